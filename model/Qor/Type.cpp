#include "Qor/Type.h"

#include <algorithm>
#include <map>
#include <typeindex>
#include <unordered_map>

#include "Qor/Describe.h"

namespace Qor {

namespace {

TypeRegistration const*& registrations() {
   static TypeRegistration const* first = nullptr;
   return first;
}

// The first of `members` that is called `name`.
template <class Member>
Member const* named(std::vector<Member> const& members, std::string_view name) {
   auto const found = std::ranges::find(members, name, &Member::name);
   return found == members.end() ? nullptr : &*found;
}

}  // namespace

class TypeRegistry {
 public:
   // Never destroyed: objects with static storage may ask while they are.
   static TypeRegistry& instance() {
      static auto* const registry = new TypeRegistry;
      return *registry;
   }

   std::map<String, Type, std::less<>> const& types() {
      evaluate();
      return types_;
   }

   Type const* find(std::string_view name) {
      evaluate();
      auto const found = types_.find(name);
      return found == types_.end() ? nullptr : &found->second;
   }

   Type const* typeOf(RefCounted const& object) {
      evaluate();
      auto const [known, first] = ofClass_.emplace(typeid(object), nullptr);
      if (first) {
         for (auto const& [name, type] : types_) {
            bool const fits = type.fits_ && type.fits_(object);
            if (fits && (!known->second || type.isA(*known->second))) known->second = &type;
         }
      }
      return known->second;
   }

 private:
   // Evaluates the descriptions registered since the last call: a library may be loaded later.
   void evaluate() {
      TypeRegistration const* const newest = registrations();
      if (newest == evaluated_) return;
      for (TypeRegistration const* r = newest; r != evaluated_; r = r->next_) {
         Type described = r->describe_();
         String const name = described.name();
         bool const isNew = types_.emplace(name, std::move(described)).second;
         QOR_ASSERT(isNew);
      }
      evaluated_ = newest;
      ofClass_.clear();
   }

   std::map<String, Type, std::less<>> types_;
   std::unordered_map<std::type_index, Type const*> ofClass_;
   TypeRegistration const* evaluated_ = nullptr;
};

TypeRegistration::TypeRegistration(Type (*describe)())
      : describe_(describe), next_(std::exchange(registrations(), this)) {}

Generic::Generic() = default;
Generic::Generic(String strep) : kind_(Kind::value), text_(std::move(strep)) {}
Generic::Generic(char const* strep) : Generic(String(strep)) {}
Generic::Generic(String strep, String pretty) : Generic(std::move(strep)) {
   pretty_ = std::move(pretty);
}
Generic::Generic(Ptr<RefCounted const> object, String pretty, bool writable)
      : kind_(Kind::object),
        writable_(writable),
        text_(std::move(pretty)),
        object_(std::move(object)) {}
Generic::Generic(Generic const&) = default;
Generic::Generic(Generic&&) noexcept = default;
Generic& Generic::operator=(Generic const&) = default;
Generic& Generic::operator=(Generic&&) noexcept = default;
Generic::~Generic() = default;

[[noreturn]] static void throwExpected(String const& type, Generic const& instead) {
   throwRange("expected " + type + ", not " +
              (instead.kind() == Generic::Kind::nothing ? "nothing" : instead.text()));
}

void throwExpected(TypeNamer type, Generic const& instead) {
   throwExpected(type(), instead);
}

Enumerators enumeratorsOf(String (*printed)(U32 value)) {
   Enumerators found;
   for (U32 value = 0; value < 32; ++value) {
      if (String text = printed(value); text != std::to_string(value))
         found.emplace_back(std::move(text), value);
   }
   return found;
}

U32 enumerator(Enumerators const& named, String const& text, StrepReader const& reader) {
   String names;
   for (auto const& [name, value] : named) {
      if (name == text) return value;
      names += (names.empty() ? "" : ", ") + name;
   }
   reader.fail(("one of " + names).c_str());
}

String strepOf(Generic const& generic, TypeNamer type, bool quotedName) {
   if (generic.kind() != Generic::Kind::value) throwExpected(type, generic);
   bool const unquoted = quotedName && !generic.text().starts_with('\'');
   return unquoted ? quotedStrep(generic.text()) : generic.text();
}

void throwReadOnlyObject(Generic const& object) {
   throwRange(object.text() + " may only be read");
}

void throwNamed(String const& where, String const* argument, RangeException const& error) {
   throwRange(where + (argument ? ", " + *argument : "") + ": " + error.message());
}

void addMember(std::vector<TypeMember>& members, Generic key, Generic value) {
   members.push_back({std::move(key), std::move(value)});
}

void checkArgumentCount(String const& fullName, std::size_t takes, std::size_t given) {
   if (takes == given) return;
   throwRange(fullName + " takes " + std::to_string(takes) +
              (takes == 1 ? " argument, not " : " arguments, not ") + std::to_string(given));
}

void refuseNull(String const& type, TypeConstructor const& constructor, GenericArguments given) {
   for (std::size_t i = 0; i < std::min(given.size(), constructor.arguments.size()); ++i) {
      TypeArgument const& argument = constructor.arguments[i];
      if (argument.required && given[i].isNull())
         throwNullParameter(type.c_str(), argument.name.c_str());
   }
}

DescribeBase::DescribeBase(TypeNamer name, String module) {
   type_.name_ = name();
   type_.module_ = std::move(module);
}

DescribeBase::~DescribeBase() = default;

String DescribeBase::fullName(std::string_view name) const {
   return type_.name_ + "::" + String(name);
}

namespace {

template <class Arguments>
std::vector<TypeArgument> described(Arguments const& arguments) {
   std::vector<TypeArgument> found;
   for (auto const& argument : arguments)
      found.push_back({String(argument.name), argument.type(), argument.required});
   return found;
}

}  // namespace

void DescribeBase::constructorIs(std::string_view name, ArgumentList arguments,
                                 decltype(TypeConstructor::run) run) {
   String const called = name.empty() ? type_.name_ : String(name);
   type_.constructor_ = {called, called, described(arguments), run};
}

void DescribeBase::addAttribute(std::string_view name, TypeNamer type, std::string_view handler,
                                decltype(TypeAttribute::read) read,
                                decltype(TypeAttribute::write) write) {
   type_.attributes_.push_back(
         {String(name), fullName(name), type(), String(handler), read, write});
}

void DescribeBase::addCollection(std::string_view name, Entries const& entries) {
   TypeCollection described;
   described.name = name;
   described.keyType = entries.keyType();
   described.valueType = entries.valueType();
   described.ordered = entries.ordered;
   described.size = entries.size;
   described.members = entries.members;
   described.find = entries.find;
   described.toKey = entries.toKey;
   type_.collections_.push_back(std::move(described));
}

void DescribeBase::handlersAre(std::string_view each, std::string_view immediate) {
   type_.collections_.back().handler = each;
   type_.collections_.back().immediateHandler = immediate;
}

void DescribeBase::addOperation(std::string_view name, TypeNamer result, ArgumentList arguments,
                                bool reading, decltype(TypeOperation::run) run) {
   type_.operations_.push_back(
         {String(name), fullName(name), result(), described(arguments), reading, run});
}

Type const* Type::base() const {
   return baseName_.empty() ? nullptr : &type(baseName_);
}

bool Type::isA(Type const& other) const {
   for (Type const* t = this; t; t = t->base()) {
      if (t == &other) return true;
   }
   return false;
}

// Of a type and its bases, the base first.
template <class Member>
static std::vector<Member const*> withBases(Type const* type,
                                            std::vector<Member> const& (Type::*own)() const) {
   std::vector<Member const*> all;
   if (!type) return all;
   all = withBases(type->base(), own);
   for (Member const& member : (type->*own)())
      all.push_back(&member);
   return all;
}

std::vector<TypeAttribute const*> Type::allAttributes() const {
   return withBases(this, &Type::attributes);
}
std::vector<TypeCollection const*> Type::allCollections() const {
   return withBases(this, &Type::collections);
}
std::vector<TypeOperation const*> Type::allOperations() const {
   return withBases(this, &Type::operations);
}

template <class Member>
static Member const& memberOf(Type const& type, std::string_view name, char const* what,
                              std::vector<Member> const& (Type::*own)() const) {
   for (Type const* t = &type; t; t = t->base()) {
      if (Member const* const member = named((t->*own)(), name)) return *member;
   }
   throwRange(type.name() + " has no " + what + ' ' + String(name));
}

TypeAttribute const& Type::attribute(std::string_view name) const {
   return memberOf(*this, name, "attribute", &Type::attributes);
}
TypeCollection const& Type::collection(std::string_view name) const {
   return memberOf(*this, name, "collection", &Type::collections);
}
TypeOperation const& Type::operation(std::string_view name) const {
   return memberOf(*this, name, "operation", &Type::operations);
}
TypeOperation const& Type::operation(std::string_view name, std::size_t arguments) const {
   for (TypeOperation const* const operation : allOperations()) {
      if (operation->name == name && operation->arguments.size() == arguments) return *operation;
   }
   return operation(name);
}

Generic Type::parse(String const& text) const {
   if (!parse_) throwRange(name_ + " has no string representation");
   return parse_(text);
}

std::vector<Type const*> types() {
   std::vector<Type const*> all;
   for (auto const& [name, type] : TypeRegistry::instance().types())
      all.push_back(&type);
   return all;
}

Type const& type(std::string_view name) {
   Type const* const found = TypeRegistry::instance().find(name);
   if (!found) throwRange("no type " + String(name));
   return *found;
}

Type const* typeOf(Generic const& object) {
   return object.object() ? TypeRegistry::instance().typeOf(*object.object()) : nullptr;
}

Type const* constructedBy(std::string_view name) {
   for (Type const* const t : types()) {
      if (t->constructor() && (t->constructor()->name == name || t->name() == name)) return t;
   }
   return nullptr;
}

// The type of an object that something is to be done with.
static Type const& typeFor(Generic const& object) {
   Type const* const type = typeOf(object);
   if (!type) throwExpected("an object of a registered type", object);
   return *type;
}

Generic construct(std::string_view constructor, GenericArguments arguments) {
   Type const* const type = constructedBy(constructor);
   if (!type) throwRange("no constructor " + String(constructor));
   return type->constructor()->run(*type->constructor(), arguments);
}

Generic get(Generic const& object, std::string_view attribute) {
   return typeFor(object).attribute(attribute).read(object);
}

void set(Generic const& object, std::string_view attribute, Generic const& value) {
   TypeAttribute const& described = typeFor(object).attribute(attribute);
   if (!described.writable()) throwRange(described.fullName + " may only be read");
   described.write(described, object, value);
}

Generic call(Generic const& object, std::string_view operation, GenericArguments arguments) {
   TypeOperation const& described = typeFor(object).operation(operation, arguments.size());
   return described.run(described, object, arguments);
}

Following::Following(Generic const& object, Tell tell) : tell_(std::move(tell)) {
   for (Type const* type = &typeFor(object); type; type = type->base()) {
      if (type->follow_) levels_.push_back(type->follow_(*object.object(), *type, *this));
   }
   if (levels_.empty()) throwRange(object.text() + " tells nobody of changes");
}

Following::~Following() = default;

// The callback may destroy this object, so no member is touched after the call.
void Following::changed(Type const& type, std::string_view handler, void const* key) {
   Change change;
   for (TypeAttribute const& attribute : type.attributes()) {
      if (attribute.handler == handler) change.member = attribute.name;
   }
   for (TypeCollection const& collection : type.collections()) {
      if (collection.handler == handler) {
         change.member = collection.name;
         change.key = collection.toKey(key);
      } else if (collection.immediateHandler == handler) {
         change.member = collection.name;
      }
   }
   if (change.member.empty()) return;
   Tell const tell = tell_;
   tell(change);
}

void Following::gone() {
   if (!alive_) return;
   alive_ = false;
   Change change;
   change.gone = true;
   Tell const tell = tell_;
   tell(change);
}

namespace {

constexpr char module[] = "Qor";

Type describeEntityBase() {
   Describe<EntityBase> type(module);
   type.attribute<&EntityBase::name>();
   return type;
}
TypeRegistration const entityBaseRegistered(describeEntityBase);

Type describeStateMachine() {
   Describe<StateMachine> type(module);
   type.attribute<&StateMachine::fwkType>();
   type.attribute<&StateMachine::qorFwkActivity>();
   return type;
}
TypeRegistration const stateMachineRegistered(describeStateMachine);

}  // namespace

}  // namespace Qor
