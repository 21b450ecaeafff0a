// A value or an object in the form in which the generic interface (Qor/Type.h) carries it, so that
// it can be passed on without knowing its C++ type: a value by its string representation, an object
// by a counted reference, and nothing, the result of an operation that returns void.
//
// A generic value is checked when it is converted to its C++ type: RangeException with
//    "<type>: expected <what> at position <n> of \"<text>\""     for a text that does not parse
//    "expected <type>, not <what is there>"                        for anything else
//    "<object> may only be read"                                   for an object held const
#pragma once

#include <concepts>
#include <limits>
#include <type_traits>
#include <utility>
#include <vector>

#include "Qor/Entity.h"
#include "Qor/Strep.h"
#include "Qor/TextStream.h"

namespace Qor {

class QOR_PUBLIC Generic final {
 public:
   enum class Kind : U8 { nothing, value, object };

   Generic();
   // A value by its string representation. `pretty` is how it is shown to people.
   Generic(String strep);       // NOLINT: meant implicit
   Generic(char const* strep);  // NOLINT: likewise
   Generic(String strep, String pretty);
   // A counted reference to an object, or null. `writable`: mutators may be called on the object.
   Generic(Ptr<RefCounted const> object, String pretty, bool writable);
   Generic(Generic const&);
   Generic(Generic&&) noexcept;
   Generic& operator=(Generic const&);
   Generic& operator=(Generic&&) noexcept;
   ~Generic();

   Kind kind() const { return kind_; }
   // A value's string representation, or an object's name for people; "null" for a null object.
   String const& text() const { return text_; }
   // The text for people: of a value its stream output.
   String const& pretty() const { return pretty_.empty() ? text_ : pretty_; }
   Ptr<RefCounted const> const& object() const { return object_; }
   bool writable() const { return writable_; }
   // Whether this is a null object; the value "null" counts as one.
   bool isNull() const { return kind_ != Kind::nothing && !object_ && text_ == "null"; }

   // Values are equal when their texts are; objects are compared by identity.
   friend bool operator==(Generic const& a, Generic const& b) {
      return a.kind_ == b.kind_ && a.object_ == b.object_ && a.text_ == b.text_;
   }

 private:
   Kind kind_ = Kind::nothing;
   bool writable_ = false;
   String text_;
   String pretty_;
   Ptr<RefCounted const> object_;
};

// The kinds of types that the generic interface distinguishes. A type of none of these kinds has no
// string representation: its values can be printed but not passed as arguments.
template <class T>
concept CountedObject = std::derived_from<T, RefCounted>;
template <class T>
concept Streamable = requires(std::ostream& out, T const& value) {
   out << value;
};
template <class T>
concept StrepValue = requires(T const& value, StrepReader& reader) {
   { value.strep() } -> std::convertible_to<String>;
   { T::fromStrep(reader) } -> std::same_as<T>;
};
template <class T>
concept Enumeration = std::is_enum_v<T> && Streamable<T>;

// Ptr<T>, ValidPtr<T> and T* name a T.
template <class P>
struct Pointee {};
template <class T>
struct Pointee<Ptr<T>> {
   using type = T;
};
template <class T>
struct Pointee<ValidPtr<T>> {
   using type = T;
};
template <class T>
requires CountedObject<std::remove_const_t<T>>
struct Pointee<T*> {
   using type = T;
};
template <class P>
concept ObjectPointer = requires {
   typename Pointee<P>::type;
};

// A name for an object, which it neither holds nor leads to.
template <class T>
concept ObjectName = !ObjectPointer<T> && requires(typename T::Object * object) {
   requires CountedObject<typename T::Object>;
   T(object);
};

// The registered name of a type: the result of its `typeName`, or else the name of its class.
template <class T>
struct TypeName {
   static String get() {
      if constexpr (requires { T::typeName(); }) {
         return T::typeName();
      } else if constexpr (requires { String(T::typeName); }) {
         return T::typeName;
      } else {
         return String(className<T>());
      }
   }
};
template <std::integral T>
struct TypeName<T> {
   static String get() {
      return std::same_as<T, bool>
                   ? "bool"
                   : (std::is_signed_v<T> ? "S" : "U") + std::to_string(8 * sizeof(T));
   }
};
template <>
struct TypeName<double> {
   static String get() { return "double"; }
};
template <>
struct TypeName<String> {
   static String get() { return "Qor::String"; }
};
template <>
struct TypeName<void> {
   static String get() { return "void"; }
};
template <ObjectPointer P>
struct TypeName<P> {
   static String get() {
      using T = typename Pointee<P>::type;
      return "Ptr<" + TypeName<std::remove_const_t<T>>::get() +
             (std::is_const_v<T> ? " const>" : ">");
   }
};

template <class T>
String typeName() {
   return TypeName<std::remove_cvref_t<T>>::get();
}

// The name of an object for people: its stream output, its name, or else its type.
template <CountedObject T>
String objectText(T const* object) {
   if (!object) return "null";
   if constexpr (Streamable<T>) {
      return printed(*object);
   } else {
      if constexpr (std::derived_from<T, EntityBase>) {
         if (Name const name = object->name(); !name.empty()) return name;
      }
      return typeName<T>();
   }
}

template <class T>
Generic toGeneric(T const& value) {
   if constexpr (ObjectPointer<T>) {
      using Object = typename Pointee<T>::type;
      Object* object;
      if constexpr (std::is_pointer_v<T>) {
         object = value;
      } else {
         object = value.get();
      }
      return {Ptr<RefCounted const>(object), objectText(object), !std::is_const_v<Object>};
   } else if constexpr (StrepValue<T>) {
      return {valueToStrep(value), printed(value)};
   } else if constexpr (std::is_arithmetic_v<T>) {
      return {valueToStrep(value)};
   } else if constexpr (std::same_as<T, String>) {
      return {valueToStrep(value), value};
   } else {
      static_assert(Streamable<T>);
      return {printed(value)};
   }
}

using TypeNamer = String (*)();

[[noreturn]] QOR_PUBLIC void throwExpected(TypeNamer type, Generic const& instead);
[[noreturn]] QOR_PUBLIC void throwReadOnlyObject(Generic const& object);

// The object itself: a `T const` of any, a `T` only of one that may be written.
template <class T>
T& objectOf(Generic const& generic) {
   auto* const object = dynamic_cast<std::add_const_t<T>*>(generic.object().get());
   if (!object) throwExpected(&typeName<T>, generic);
   if constexpr (!std::is_const_v<T>) {
      if (!generic.writable()) throwReadOnlyObject(generic);
   }
   return const_cast<T&>(*object);
}

// The names that an enumeration prints, found among its first values, with their numbers. An
// enumeration that prints numbers has no names. Its values are given as numbers.
using Enumerators = std::vector<std::pair<String, U32>>;
QOR_PUBLIC Enumerators enumeratorsOf(String (*printed)(U32 value));
template <Enumeration E>
Enumerators enumerators() {
   return enumeratorsOf([](U32 value) { return printed(static_cast<E>(value)); });
}
// The number of the value that `text` names; fails in `reader` for another text.
QOR_PUBLIC U32 enumerator(Enumerators const& named, String const& text, StrepReader const& reader);

// Reads one scalar.
template <class T>
T readScalar(StrepReader& reader) {
   if constexpr (std::same_as<T, bool>) {
      return reader.boolean();
   } else if constexpr (std::floating_point<T>) {
      return reader.real();
   } else {
      static_assert(std::unsigned_integral<T>);
      return static_cast<T>(reader.number(std::numeric_limits<T>::max()));
   }
}

// Whether the string representation of T is a quoted name: a name may be given without quotes too.
template <class T>
bool isQuotedName() {
   if constexpr (StrepValue<T> && std::is_default_constructible_v<T>) {
      return T().strep().starts_with('\'');
   }
   return std::same_as<T, String>;
}

// The string representation that `generic` holds; error for another kind. A quoted name may lack
// its quotes.
QOR_PUBLIC String strepOf(Generic const& generic, TypeNamer type, bool quotedName);

template <class T>
T fromGeneric(Generic const& generic) {
   if constexpr (ObjectPointer<T>) {
      if (generic.isNull()) return T(Ptr<typename Pointee<T>::type>().get());
      return T(&objectOf<typename Pointee<T>::type>(generic));
   } else if constexpr (ObjectName<T>) {
      return generic.isNull() ? T() : T(&objectOf<typename T::Object>(generic));
   } else {
      String const text = strepOf(generic, &typeName<T>, isQuotedName<T>());
      String const type = typeName<T>();
      StrepReader reader(type.c_str(), text);
      if constexpr (StrepValue<T>) {
         T value = T::fromStrep(reader);
         reader.end();
         return value;
      } else if constexpr (std::is_arithmetic_v<T>) {
         T const value = readScalar<T>(reader);
         reader.end();
         return value;
      } else if constexpr (std::same_as<T, String>) {
         String value = reader.quoted();
         reader.end();
         return value;
      } else {
         auto const named = enumerators<T>();
         if (named.empty()) return static_cast<T>(readScalar<std::underlying_type_t<T>>(reader));
         return static_cast<T>(enumerator(named, text, reader));
      }
   }
}

// Whether a T can be given in generic form.
template <class T>
concept GenericArgument = ObjectPointer<T> || ObjectName<T> || StrepValue<T> ||
      std::is_arithmetic_v<T> || std::same_as<T, String> || Enumeration<T>;

}  // namespace Qor
