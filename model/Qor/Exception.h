// The errors the framework raises. Each carries one text, which is part of the behaviour: callers
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

// A value outside its type's range, a text that does not parse, or a null pointer given to a
// mutator that needs an object.
class QOR_PUBLIC RangeException final : public Exception {
 public:
   using Exception::Exception;
   ~RangeException() override;
};

// A collection member is created again under its key, but with another value of a constructor
// parameter than the member that is there. Text: "Reinstantiating the pointer interface where
// constructor parameter attribute _<name> has a different value of <old value>".
class QOR_PUBLIC ReinstantiationException final : public Exception {
 public:
   using Exception::Exception;
   ~ReinstantiationException() override;
};

[[noreturn]] QOR_PUBLIC void throwRange(String message);

// Raises RangeException with "null _<attribute> parameter to mutator for <type>::<attribute> not
// allowed" followed by one double quote character, which belongs to the text.
[[noreturn]] QOR_PUBLIC void throwNullParameter(char const* type, char const* attribute);

// Raises ReinstantiationException; `attribute` is without the underscore.
[[noreturn]] QOR_PUBLIC void throwReinstantiation(char const* attribute, String const& oldValue);

}  // namespace Qor
