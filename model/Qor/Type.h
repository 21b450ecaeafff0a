// The type registry: it lists the types and their members, and reads, writes and calls members by
// name, for tools that do not know the C++ types.
//
//    Generic const sm = Qor::construct("AsyncMrouteSwitchSmIs", {mrouteSwitch, ...});
//    for (Type const* t = Qor::typeOf(sm); auto const& a : t->allAttributes()) ... a->get(sm) ...
//    Qor::set(switch, "zombieLifetime", "2.5");
//    Qor::call(recovery, "doAddMfibHwStatusEntry", {"1", "Value('...', ** {...})", "1001"});
//
// A type is registered when its source is loaded, by a description that stands in that source
// (Qor/Describe.h). Descriptions are evaluated when the registry is first read. Types exist
// for the whole life of the process, the destruction of objects with static storage included.
//
// A type may have a base and then inherits its attributes, collections and operations. The type of
// an object is the most derived registered type that fits the object, so a platform's hook object
// has the type of the hook class.
//
// Errors are RangeExceptions; beside those of Qor/Generic.h and of the operation itself
//    "no type <name>", "no constructor <name>"
//    "<type> has no attribute <name>", likewise collection and operation
//    "<type>::<attribute> may only be read"
//    "<type>::<operation> takes <n> arguments, not <m>"; and likewise for a constructor
//    "<type>::<operation>, <argument>: <what is wrong with it>"; and likewise for a constructor,
//                                   and for an attribute, which has no name of an argument
//    that of null parameters (throwNullParameter), for an argument that a constructor requires
#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <span>
#include <vector>

#include "Qor/Generic.h"

namespace Qor {

using GenericArguments = std::span<Generic const>;

struct TypeArgument {
   String name;
   String type;
   bool required = false;  // null is refused
};

// The errors name the attribute by `fullName`.
struct TypeAttribute {
   String name;
   String fullName;  // "<type>::<name>"
   String type;
   String handler;  // that is called for a change; empty: no notification
   Generic (*read)(Generic const& of);
   // Null: only for reading.
   void (*write)(TypeAttribute const& self, Generic const& of, Generic const& value);

   bool readable() const { return read != nullptr; }
   bool writable() const { return write != nullptr; }
};

// One member of a collection.
struct TypeMember {
   Generic key;
   Generic value;
};

struct TypeCollection {
   String name;
   String keyType;
   String valueType;
   String handler;           // for one key; empty: no notification
   String immediateHandler;  // for the whole collection
   bool ordered = false;     // by key; otherwise the order means nothing
   U32 (*size)(Generic const& of) = nullptr;
   // At most `max` members behind the first `skip`.
   std::vector<TypeMember> (*members)(Generic const& of, U32 skip, U32 max) = nullptr;
   // The member under the key, if there is one. A key is its string representation or its stream
   // output; where keys are objects, it is the object or the object's name.
   std::optional<TypeMember> (*find)(Generic const& of, Generic const& key) = nullptr;
   Generic (*toKey)(void const* key) = nullptr;
};

struct TypeOperation {
   String name;
   String fullName;
   String result;  // "void" without one
   std::vector<TypeArgument> arguments;
   bool reading = false;  // changes nothing: allowed on read-only objects
   Generic (*run)(TypeOperation const& self, Generic const& of,
                  GenericArguments arguments) = nullptr;
};

struct TypeConstructor {
   String name;  // of the factory; that of the type where there is none
   String fullName;
   std::vector<TypeArgument> arguments;
   Generic (*run)(TypeConstructor const& self, GenericArguments arguments);
};

class Following;

class QOR_PUBLIC Type final {
 public:
   enum class Kind : U8 {
      entity,       // objects
      value,        // values with a string representation
      enumeration,  // values with names
      objectName,   // names an object without holding it; null unless its collection says otherwise
   };

   String const& name() const { return name_; }
   Kind kind() const { return kind_; }
   // The owner of the type: "VelMroute" for this library.
   String const& module() const { return module_; }
   Type const* base() const;

   // The members of this type without those of its base.
   std::vector<TypeAttribute> const& attributes() const { return attributes_; }
   std::vector<TypeCollection> const& collections() const { return collections_; }
   std::vector<TypeOperation> const& operations() const { return operations_; }
   // Null for a type without a constructor.
   TypeConstructor const* constructor() const { return constructor_ ? &*constructor_ : nullptr; }
   // The names of an enumeration.
   std::vector<String> const& enumerators() const { return enumerators_; }

   // With those of the bases, the base first.
   std::vector<TypeAttribute const*> allAttributes() const;
   std::vector<TypeCollection const*> allCollections() const;
   std::vector<TypeOperation const*> allOperations() const;
   // By name, of the type or its bases.
   TypeAttribute const& attribute(std::string_view name) const;
   TypeCollection const& collection(std::string_view name) const;
   TypeOperation const& operation(std::string_view name) const;
   // Of several operations with this name the one with this number of arguments, or the first.
   TypeOperation const& operation(std::string_view name, std::size_t arguments) const;

   // Reads a string representation and writes it back: the canonical form. Only for kinds other
   // than entity.
   Generic parse(String const& text) const;
   bool hasStrep() const { return parse_ != nullptr; }

   bool isA(Type const& other) const;

 private:
   friend class TypeRegistry;
   friend class Following;
   friend class DescribeBase;
   template <class T>
   friend class Describe;

   String name_;
   String module_;
   Kind kind_ = Kind::entity;
   String baseName_;
   std::vector<TypeAttribute> attributes_;
   std::vector<TypeCollection> collections_;
   std::vector<TypeOperation> operations_;
   std::optional<TypeConstructor> constructor_;
   std::vector<String> enumerators_;
   bool (*fits_)(RefCounted const& object) = nullptr;
   Generic (*parse_)(String const& text) = nullptr;
   // Makes a follower of this level of an object; null for a type without notifications.
   std::unique_ptr<Notifiee> (*follow_)(RefCounted const& object, Type const& type,
                                        Following& following) = nullptr;
};

// The notification of a follower. `member` names an attribute or a collection of the type.
struct Change {
   String member;
   std::optional<Generic> key;  // of a collection, unless all of it may have changed
   bool gone = false;           // the object was destroyed; the last notification
};

// Follows the changes of one object, without holding the object or lengthening its life.
// `tell` runs inside the mutator, as a reactor's handler does, with the change made. The callback
// may do all that a handler may, and may destroy the Following. The next sweep of the activity loop
// notifies it of the object's end. RangeException "<object> tells nobody of changes" for an object
// whose type has no notifications.
class QOR_PUBLIC Following final {
 public:
   using Tell = std::function<void(Change const&)>;

   Following(Generic const& object, Tell tell);
   ~Following();
   Following(Following const&) = delete;
   Following& operator=(Following const&) = delete;

   // Whether the object still exists.
   bool alive() const { return alive_; }

 private:
   template <class T>
   friend class Follower;

   void changed(Type const& type, std::string_view handler, void const* key);
   void gone();

   Tell tell_;
   bool alive_ = true;
   std::vector<std::unique_ptr<Notifiee>> levels_;
};

// All types, by name.
QOR_PUBLIC std::vector<Type const*> types();
QOR_PUBLIC Type const& type(std::string_view name);
// Null for an object of no registered type, and for a value.
QOR_PUBLIC Type const* typeOf(Generic const& object);
// The type whose constructor, or which itself, has this name; null without one.
QOR_PUBLIC Type const* constructedBy(std::string_view name);

// ---- By name. ----

QOR_PUBLIC Generic construct(std::string_view constructor, GenericArguments arguments);
QOR_PUBLIC Generic get(Generic const& object, std::string_view attribute);
QOR_PUBLIC void set(Generic const& object, std::string_view attribute, Generic const& value);
QOR_PUBLIC Generic call(Generic const& object, std::string_view operation,
                        GenericArguments arguments);

inline Generic construct(std::string_view constructor, std::initializer_list<Generic> arguments) {
   return construct(constructor, GenericArguments(arguments.begin(), arguments.size()));
}
inline Generic call(Generic const& object, std::string_view operation,
                    std::initializer_list<Generic> arguments) {
   return call(object, operation, GenericArguments(arguments.begin(), arguments.size()));
}

// A description on its way into the registry; with static storage. `describe` makes the type.
class QOR_PUBLIC TypeRegistration final {
 public:
   explicit TypeRegistration(Type (*describe)());

 private:
   friend class TypeRegistry;

   Type (*const describe_)();
   TypeRegistration const* const next_;
};

}  // namespace Qor
