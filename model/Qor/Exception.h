// The errors that the framework raises. The text of an error is part of the behaviour: callers
// compare it letter by letter.
#pragma once

#include <exception>

#include "Qor/Export.h"
#include "Qor/Types.h"

namespace Qor {

class QOR_PUBLIC Exception : public std::exception {
 public:
   explicit Exception(String message);
   ~Exception() override;
   char const* what() const noexcept override { return message_.c_str(); }
   String const& message() const { return message_; }

 private:
   String message_;
};

// A value outside the range of its type, a text that does not parse, or a null pointer passed to a
// mutator that needs an object.
class QOR_PUBLIC RangeException final : public Exception {
 public:
   using Exception::Exception;
   ~RangeException() override;
};

// A member of a collection was requested under the key of a present member, but with another value
// of a constructor parameter. Text: "Reinstantiating the pointer interface where constructor
// parameter attribute _<name> has a different value of <value of the present member>".
class QOR_PUBLIC ReinstantiationException final : public Exception {
 public:
   using Exception::Exception;
   ~ReinstantiationException() override;
};

// Raises RangeException with `message`.
[[noreturn]] QOR_PUBLIC void throwRange(String message);

// Raises RangeException with "null _<attribute> parameter to mutator for <type>::<attribute> not
// allowed" and one double quote character behind it, which belongs to the text.
[[noreturn]] QOR_PUBLIC void throwNullParameter(char const* type, char const* attribute);

// Raises ReinstantiationException. `attribute` is the name without the underscore, `oldValue` the
// string representation of the present member's value.
[[noreturn]] QOR_PUBLIC void throwReinstantiation(char const* attribute, String const& oldValue);

}  // namespace Qor
