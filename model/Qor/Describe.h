// How a type is described to the registry (Qor/Type.h), in its own source:
//
//    Qor::Type describeRoute() {
//       Qor::Describe<Route> type("VelMroute");
//       type.constructor<&routeFactory>("handle", "key", "acceptingVlanId");
//       type.attribute<&Route::handle>();  // only for reading
//       type.attribute<&Route::fastdrop, &Route::fastdropIs, &Route::Notifiee::onFastdrop>();
//       return type;
//    }
//    Qor::TypeRegistration const routeRegistered(describeRoute);
//
// and for a type with collections and operations also
//
//    type.collection<RouteColl, MrouteSwitch, &MrouteSwitch::route, &MrouteSwitch::routeDel,
//                    &MrouteSwitch::routeDelAll>();
//    type.operation<&MrouteSwitch::doDeleteRoute>("handle");
//
// All names are the compiler's own: an attribute has the name of its accessor. A description does
// not compile with a mutator or a handler of another attribute, with an unknown member, or with
// another number of argument names than the operation takes.
#pragma once

#include <array>
#include <functional>
#include <span>
#include <string_view>
#include <type_traits>
#include <utility>
#include <vector>

#include "Qor/Map.h"
#include "Qor/Type.h"

namespace Qor {

template <class... Types>
struct TypeList {
   static constexpr std::size_t size = sizeof...(Types);
};

// The argument types and the result type of a function.
template <class F>
struct Signature;
template <class R, class... Args>
struct Signature<R (*)(Args...)> {
   using Result = R;
   using Arguments = TypeList<std::remove_cvref_t<Args>...>;
   static constexpr bool reading = true;
};
template <class R, class C, class... Args>
struct Signature<R (C::*)(Args...)> : Signature<R (*)(Args...)> {
   static constexpr bool reading = false;
};
template <class R, class C, class... Args>
struct Signature<R (C::*)(Args...) const> : Signature<R (*)(Args...)> {};

// Whether `name` is `stem` with a prefix and a suffix; behind a prefix its first letter is a
// capital: "onUsedInHw" is "usedInHw" with "on".
consteval bool namedAfter(std::string_view name, std::string_view prefix, std::string_view stem,
                          std::string_view suffix) {
   if (name.size() != prefix.size() + stem.size() + suffix.size()) return false;
   if (!name.starts_with(prefix) || !name.ends_with(suffix)) return false;
   bool const capital = !prefix.empty() && stem[0] >= 'a';
   char const first = capital ? static_cast<char>(stem[0] - 'a' + 'A') : stem[0];
   return name[prefix.size()] == first &&
          name.substr(prefix.size() + 1, stem.size() - 1) == stem.substr(1);
}

// The name of a constructor's argument that must not be null: null raises the range error of null
// parameters (throwNullParameter).
struct Required {
   explicit constexpr Required(char const* argument) : name(argument) {}
   char const* name;
};

// Raises `error` again: its text begins with `where`, and with the name of the argument if it has
// one.
[[noreturn]] QOR_PUBLIC void throwNamed(String const& where, String const* argument,
                                        RangeException const& error);

// The value in its own type. A range error has the text of throwNamed().
template <class T>
T namedValue(Generic const& value, String const& where, String const* argument = nullptr) {
   try {
      return fromGeneric<T>(value);
   } catch (RangeException const& error) {
      throwNamed(where, argument, error);
   }
}

// The owner of a collection whose members only name records. Its record() returns the record of a
// member.
template <class Owner, class Key, class Value>
concept RecordOwner = requires(Owner const& owner, Key const& key, Value const& value) {
   owner.record(key, value);
};

// A pointer to a reactor, which knows its notifier.
template <class Value>
concept ReactorPointer = requires(Value const& reactor) {
   reactor->notifier();
};

QOR_PUBLIC void checkArgumentCount(String const& fullName, std::size_t takes, std::size_t given);
// Refuses null for each argument that the constructor of the type requires.
QOR_PUBLIC void refuseNull(String const& type, TypeConstructor const& constructor,
                           GenericArguments given);

QOR_PUBLIC void addMember(std::vector<TypeMember>& members, Generic key, Generic value);

// The arguments of a call, each of which is read once, in their order.
struct ArgumentReader {
   GenericArguments given;
   String const& where;
   std::vector<TypeArgument> const& named;
   std::size_t at = 0;

   template <class T>
   T next() {
      std::size_t const argument = at++;
      return namedValue<T>(given[argument], where, &named[argument].name);
   }
};

// The result of a call by a constructor: arguments in braces are evaluated from left to right.
struct CalledInOrder {
   template <class Function, class... Args>
   CalledInOrder(Function const& function, Args&&... arguments) : result(function(arguments...)) {}
   Generic result;
};

// Calls `function` with the arguments in their own types. `Callee` is a TypeOperation or a
// TypeConstructor.
template <class... Args, class Callee, class Function>
Generic applyGeneric(TypeList<Args...>, Callee const& callee, GenericArguments given,
                     Function const& function) {
   checkArgumentCount(callee.fullName, sizeof...(Args), given.size());
   [[maybe_unused]] ArgumentReader arguments{given, callee.fullName, callee.arguments};
   return CalledInOrder{function, arguments.next<Args>()...}.result;
}

// Follows the changes of one level of an object's type.
template <class T>
class Follower final : public NotifieeOf<T> {
 public:
   Follower(T const& object, Type const& type, Following& following)
         : type_(type), following_(following) {
      this->followerIs();
      this->notifierIs(&object);
   }

 private:
   void onChange(std::string_view handler, void const* key) override {
      following_.changed(type_, handler, key);
   }
   void qorDoZombieReactors(bool) override { following_.gone(); }

   Type const& type_;
   Following& following_;
};

// The part of a description that does not depend on the C++ type.
class QOR_PUBLIC DescribeBase {
 public:
   DescribeBase(DescribeBase const&) = delete;
   DescribeBase& operator=(DescribeBase const&) = delete;
   operator Type() && { return std::move(type_); }
   operator Type() & { return std::move(type_); }

 protected:
   struct Argument {
      std::string_view name;
      TypeNamer type;
      bool required;
   };
   using ArgumentList = std::span<Argument const>;
   // The entries of a collection.
   struct Entries {
      TypeNamer keyType;
      TypeNamer valueType;
      bool ordered;
      decltype(TypeCollection::size) size;
      decltype(TypeCollection::members) members;
      decltype(TypeCollection::find) find;
      decltype(TypeCollection::toKey) toKey;
   };

   DescribeBase(TypeNamer name, String module);
   ~DescribeBase();

   // A constructor without a name has that of the type.
   void constructorIs(std::string_view name, ArgumentList arguments,
                      decltype(TypeConstructor::run) run);
   void addAttribute(std::string_view name, TypeNamer type, std::string_view handler,
                     decltype(TypeAttribute::read) read, decltype(TypeAttribute::write) write);
   void addCollection(std::string_view name, Entries const& entries);
   // The handlers of the last collection.
   void handlersAre(std::string_view each, std::string_view immediate);
   void addOperation(std::string_view name, TypeNamer result, ArgumentList arguments, bool reading,
                     decltype(TypeOperation::run) run);

   Type type_;

 private:
   String fullName(std::string_view name) const;
};

template <class T>
class Describe final : public DescribeBase {
 public:
   // `module` names the library or the platform that owns the type.
   explicit Describe(String module) : DescribeBase(&typeName<T>, std::move(module)) {
      if constexpr (CountedObject<T>) {
         describeObject();
      } else {
         describeValue();
      }
   }

   // The class whose members this type inherits. Every entity has EntityBase by default.
   template <class Base>
   void base() {
      static_assert(std::derived_from<T, Base> && !std::same_as<T, Base>);
      type_.baseName_ = typeName<Base>();
   }

   // The factory function of the type. Names are strings, or Required.
   template <auto Factory, class... Names>
   void constructor(Names... names) {
      using Arguments = typename Signature<decltype(Factory)>::Arguments;
      constructorIs(memberName<Factory>(), describeArguments(Arguments(), names...),
                    [](TypeConstructor const& self, GenericArguments given) {
                       refuseNull(typeName<T>(), self, given);
                       return applyGeneric(Arguments(), self, given, [](auto&... arguments) {
                          return toGeneric(Factory(std::move(arguments)...));
                       });
                    });
   }
   // The class's own constructor with these arguments makes the object.
   template <class... Args, class... Names>
   void constructible(Names... names) {
      using Arguments = TypeList<Args...>;
      constructorIs({}, describeArguments(Arguments(), names...),
                    [](TypeConstructor const& self, GenericArguments given) {
                       refuseNull(typeName<T>(), self, given);
                       return applyGeneric(Arguments(), self, given, [](auto&... arguments) {
                          return made(std::move(arguments)...);
                       });
                    });
   }

   // `Get` reads the attribute; `Set` writes it and `Handler` notifies of it, if they are given.
   template <auto Get, auto Set = nullptr, auto Handler = nullptr>
   void attribute() {
      constexpr std::string_view name = memberName<Get>();
      using Read = typename Signature<decltype(Get)>::Result;
      std::string_view handler;
      decltype(TypeAttribute::write) write = nullptr;
      if constexpr (!std::is_null_pointer_v<decltype(Set)>) {
         static_assert(namedAfter(memberName<Set>(), "", name, "Is"));
         write = writer<Set>(typename Signature<decltype(Set)>::Arguments());
      }
      if constexpr (!std::is_null_pointer_v<decltype(Handler)>) {
         static_assert(namedAfter(memberName<Handler>(), "on", name, ""));
         handler = memberName<Handler>();
      }
      addAttribute(
            name, &typeName<Read>, handler,
            [](Generic const& of) { return toGeneric((self(of).*Get)()); }, write);
   }

   // A Qor::Collection, or another class with its Map, Key and handlers, read by `Get` of `Owner`,
   // which is T or the base that declares it. The mutators, of which `Del` is the one by key, are
   // operations too.
   template <class Coll, class Owner, typename Coll::Map const& (Owner::*Get)() const,
             void (Owner::*Del)(typename Coll::Key), auto... Mutators>
   void collection() {
      map<typename Coll::Map, Owner, Get>();
      static_assert(namedAfter(memberName<Coll::each>(), "on", memberName<Get>(), ""));
      static_assert(
            namedAfter(memberName<Coll::immediate>(), "on", memberName<Get>(), "Immediate"));
      handlersAre(memberName<Coll::each>(), memberName<Coll::immediate>());
      mutators<Get, Del, Mutators...>();
   }
   // A keyed map without notifications.
   template <Map M, class Owner, M const& (Owner::*Get)() const, auto... Mutators>
   void map() {
      using Key = typename M::Key;
      using Shown = decltype(memberValue(std::declval<T const&>(), std::declval<Key const&>(),
                                         std::declval<typename M::Value const&>()));
      static constexpr auto entries = [](Generic const& of) -> M const& {
         return (self(of).*Get)();
      };
      Entries described{&typeName<Key>, &typeName<Shown>, M::ordered, {}, {}, {}, {}};
      described.size = [](Generic const& of) { return static_cast<U32>(entries(of).size()); };
      described.members = [](Generic const& of, U32 skip, U32 max) {
         std::vector<TypeMember> found;
         for (auto const& entry : entries(of)) {
            if (found.size() == max) break;
            if (skip != 0) {
               --skip;
            } else {
               addMember(found, toGeneric(entry.first),
                         toGeneric(memberValue(self(of), entry.first, entry.second)));
            }
         }
         return found;
      };
      described.find = [](Generic const& of, Generic const& key) -> std::optional<TypeMember> {
         auto const entry = findEntry(entries(of), key);
         if (!entry) return std::nullopt;
         return TypeMember{toGeneric(entry->first),
                           toGeneric(memberValue(self(of), entry->first, entry->second))};
      };
      described.toKey = [](void const* key) { return toGeneric(*static_cast<Key const*>(key)); };
      addCollection(memberName<Get>(), described);
      mutators<Get, Mutators...>();
   }

   // A member function, called by name with arguments of these names. The call holds the object.
   template <auto Operation, class... Names>
   void operation(Names... names) {
      using Called = Signature<decltype(Operation)>;
      using Arguments = typename Called::Arguments;
      using Result = typename Called::Result;
      auto const run = [](TypeOperation const& me, Generic const& of, GenericArguments given) {
         decltype(auto) object = calledOn<Called::reading>(of);
         // Holds the object, as the operation may drop the last other reference.
         // NOLINTNEXTLINE(performance-unnecessary-copy-initialization)
         Ptr<RefCounted const> const held = of.object();
         return applyGeneric(Arguments(), me, given, [&](auto&... arguments) {
            if constexpr (std::is_void_v<Result>) {
               std::invoke(Operation, object, std::move(arguments)...);
               return Generic();
            } else {
               return toGeneric(std::invoke(Operation, object, std::move(arguments)...));
            }
         });
      };
      addOperation(memberName<Operation>(), &typeName<Result>,
                   describeArguments(Arguments(), names...), Called::reading, run);
   }

 private:
   void describeObject() {
      type_.kind_ = Type::Kind::entity;
      if constexpr (std::derived_from<T, EntityBase> && !std::same_as<T, EntityBase>) {
         base<EntityBase>();
      }
      type_.fits_ = [](RefCounted const& object) {
         return dynamic_cast<T const*>(&object) != nullptr;
      };
      if constexpr (std::derived_from<T, NotifierOf<T>>) {
         type_.follow_ = [](RefCounted const& object, Type const& type,
                            Following& following) -> std::unique_ptr<Notifiee> {
            return std::make_unique<Follower<T>>(dynamic_cast<T const&>(object), type, following);
         };
      }
   }

   void describeValue() {
      if constexpr (StrepValue<T> || Enumeration<T>) {
         type_.kind_ = Enumeration<T> ? Type::Kind::enumeration : Type::Kind::value;
         type_.parse_ = [](String const& text) { return toGeneric(fromGeneric<T>(text)); };
         if constexpr (Enumeration<T>) {
            for (auto const& [name, value] : enumerators<T>())
               type_.enumerators_.push_back(name);
         }
      } else {
         static_assert(ObjectName<T>);
         type_.kind_ = Type::Kind::objectName;
         type_.parse_ = [](String const& text) {
            fromGeneric<T>(text);  // only null has a text
            return toGeneric(static_cast<typename T::Object*>(nullptr));
         };
      }
   }

   template <class... Args, class... Names>
   static std::array<Argument, sizeof...(Args)> describeArguments(TypeList<Args...>,
                                                                  Names... names) {
      static_assert(sizeof...(Args) == sizeof...(Names), "a name for each argument");
      static_assert((GenericArgument<Args> && ...));
      return {describeArgument<Args>(names)...};
   }
   template <class Described, class ArgumentName>
   static Argument describeArgument(ArgumentName name) {
      if constexpr (std::same_as<ArgumentName, Required>) {
         static_assert(ObjectPointer<Described>);
         return {name.name, &typeName<Described>, true};
      } else {
         return {name, &typeName<Described>, false};
      }
   }

   template <auto Set, class Argument>
   static decltype(TypeAttribute::write) writer(TypeList<Argument>) {
      return [](TypeAttribute const& me, Generic const& of, Generic const& value) {
         (objectOf<T>(of).*Set)(namedValue<Argument>(value, me.fullName));
      };
   }

   // The mutators of the collection that `Get` reads.
   template <auto Get, auto... Mutators>
   void mutators() {
      (mutator<Get, Mutators>(), ...);
   }
   template <auto Get, auto Mutator>
   void mutator() {
      static_assert(memberName<Mutator>().starts_with(memberName<Get>()));
      constexpr std::size_t arity = Signature<decltype(Mutator)>::Arguments::size;
      if constexpr (arity == 0) {
         operation<Mutator>();
      } else if constexpr (arity == 1) {
         operation<Mutator>(memberName<Mutator>().ends_with("Is") ? "value" : "key");
      } else {
         operation<Mutator>("key", "value");
      }
   }

   static decltype(auto) self(Generic const& of) { return calledOn<true>(of); }

   // The C++ form of a generic value: the object, or a value parsed from its text.
   template <bool Reading>
   static decltype(auto) calledOn(Generic const& of) {
      if constexpr (CountedObject<T>) {
         return objectOf<std::conditional_t<Reading, T const, T>>(of);
      } else {
         return fromGeneric<T>(of);
      }
   }

   template <class... Args>
   static Generic made(Args&&... arguments) {
      if constexpr (CountedObject<T>) {
         return toGeneric(make<T>(std::forward<Args>(arguments)...));
      } else if constexpr (StrepValue<T>) {
         return toGeneric(T(std::forward<Args>(arguments)...));
      } else {
         return toGeneric(arguments...);  // the object that it names
      }
   }

   // The value of a member. For a name that holds no reference, the owner returns the record if the
   // record still lives; a reactor is shown as its notifier.
   template <class Key, class Value>
   static auto memberValue(T const& owner, Key const& key, Value const& value) {
      if constexpr (RecordOwner<T, Key, Value>) {
         return owner.record(key, value);
      } else if constexpr (ReactorPointer<Value>) {
         return value->notifier();
      } else {
         return value;
      }
   }

   template <Map M>
   static auto findEntry(M const& map, Generic const& key)
         -> decltype(map.find(std::declval<typename M::Key const&>())) {
      using Key = typename M::Key;
      if constexpr (GenericArgument<Key>) {
         try {
            return map.find(fromGeneric<Key>(key));
         } catch (RangeException const&) {
            // The text is no string representation of a key; it may be a key's stream output.
         }
      }
      for (auto const& entry : map) {
         if (toGeneric(entry.first).pretty() == key.text()) return map.find(entry.first);
      }
      return {};
   }
};

}  // namespace Qor
