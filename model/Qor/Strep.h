// String representations ("streps") of values, and the reader that parses them.
//
// The strep of a scalar is its plain text: 42, 3.5, inf, True, 'text'. The strep of a value type is
// the constructor form "Value('<type name>', ** {'<attribute>': <value>, ...})". A value type has
//    Qor::String strep() const;
//    static T fromStrep(Qor::StrepReader&);      // consumes exactly one value
//    explicit T(Qor::String const& strep);       // the parsing constructor: parses the whole text
// fromStrep() of a text that strep() returned gives an equal value.
#pragma once

#include <concepts>
#include <string_view>

#include "Qor/Exception.h"
#include "Qor/Export.h"
#include "Qor/Types.h"

namespace Qor {

// A cursor over the text of one strep. A mismatch raises RangeException with
//    "<type>: expected <what> at position <n> of \"<text>\""
// Positions are counted in bytes from 0.
class QOR_PUBLIC StrepReader {
 public:
   // Both texts must outlive the reader. `type` is the type's name in the errors.
   StrepReader(char const* type, std::string_view text) : type_(type), text_(text) {}

   // Consumes exactly `literal`.
   void expect(std::string_view literal);
   // Consumes `literal` if the text continues with it, and returns whether it did.
   bool accept(std::string_view literal);
   // Consumes an unsigned decimal number of at most `max`.
   U64 number(U64 max);
   U32 u32() { return static_cast<U32>(number(std::numeric_limits<U32>::max())); }
   // Consumes a floating point number, "inf" or "-inf". "nan" is an error.
   double real();
   // Consumes True or False.
   bool boolean();
   // Consumes a quoted text with the escapes of quotedStrep(), and returns it without them.
   String quoted();
   // Requires that the whole text has been consumed.
   void end();

   // Raises the error above for the present position.
   [[noreturn]] void fail(char const* what) const;

 private:
   char const* type_;
   std::string_view text_;
   std::size_t position_ = 0;
};

// The text in single quotes, with \\ for a backslash, \' for a quote, and \xNN for a byte outside
// printable ASCII.
QOR_PUBLIC String quotedStrep(std::string_view text);

// The shortest decimal text that parses to the same double. A whole number keeps one decimal
// ("3.0"); infinities are "inf" and "-inf".
QOR_PUBLIC String realStrep(double value);

// The strep of a scalar, a text or a value type.
template <class T>
String valueToStrep(T const& value) {
   if constexpr (std::same_as<T, bool>) {
      return value ? "True" : "False";
   } else if constexpr (std::floating_point<T>) {
      return realStrep(value);
   } else if constexpr (std::integral<T>) {
      return std::to_string(value);
   } else if constexpr (std::convertible_to<T const&, std::string_view>) {
      return quotedStrep(value);
   } else {
      return value.strep();
   }
}

// The body of a parsing constructor: parses one value, and raises an error for text behind it.
template <class T>
T parseStrep(char const* type, std::string_view text) {
   StrepReader reader(type, text);
   T value = T::fromStrep(reader);
   reader.end();
   return value;
}

}  // namespace Qor
