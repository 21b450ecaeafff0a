// String representations ("streps") of values, and the reader that parses them back.
//
// A scalar's strep is its plain text: 42, 3.5, inf, True, 'text'. A value type's is the constructor
// form "Value('<type name>', ** {'<attribute>': <value>, ...})". A value type takes part with
//    Qor::String strep() const;
//    static T fromStrep(Qor::StrepReader&);      // reads exactly one value
//    explicit T(Qor::String const& strep);       // the parsing constructor: the whole text
// and what strep() writes, fromStrep() reads back to an equal value.
#pragma once

#include <concepts>
#include <string_view>

#include "Qor/Exception.h"
#include "Qor/Export.h"
#include "Qor/Types.h"

namespace Qor {

// A cursor over the text of one strep. Every mismatch raises RangeException with
//    "<type>: expected <what> at position <n> of \"<text>\""
// and leaves nothing half built, since values are only constructed from complete parts.
class QOR_PUBLIC StrepReader {
 public:
   // Both texts must outlive the reader. `type` names the value being parsed in errors.
   StrepReader(char const* type, std::string_view text) : type_(type), text_(text) {}

   // Consumes exactly `literal`.
   void expect(std::string_view literal);
   // Consumes `literal` if it stands here, and says whether it did.
   bool accept(std::string_view literal);
   // Consumes an unsigned decimal number of at most `max`.
   U64 number(U64 max);
   U32 u32() { return static_cast<U32>(number(std::numeric_limits<U32>::max())); }
   // Consumes a floating point number, "inf" and "-inf" included, "nan" refused.
   double real();
   // Consumes True or False.
   bool boolean();
   // Consumes a quoted text with the escapes that quotedStrep() writes.
   String quoted();
   // Requires that everything has been consumed.
   void end();

   [[noreturn]] void fail(char const* what) const;

 private:
   char const* type_;
   std::string_view text_;
   std::size_t position_ = 0;
};

// 'text' with \\, \' and \xNN for the quote, the backslash and bytes outside printable ASCII.
QOR_PUBLIC String quotedStrep(std::string_view text);

// The shortest decimal text that reads back to the same double; whole numbers keep one decimal
// ("3.0"), infinities are "inf" and "-inf".
QOR_PUBLIC String realStrep(double value);

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

// What a parsing constructor does: one value, and nothing behind it.
template <class T>
T parseStrep(char const* type, std::string_view text) {
   StrepReader reader(type, text);
   T value = T::fromStrep(reader);
   reader.end();
   return value;
}

}  // namespace Qor
