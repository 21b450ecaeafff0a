#include "Qor/Exception.h"

#include <utility>

namespace Qor {

// The destructors are out of line so that each class has one vtable and one type_info, which are in
// this library. A program that uses the library can then catch the errors by their types.
Exception::Exception(String message) : message_(std::move(message)) {}
Exception::~Exception() = default;
RangeException::~RangeException() = default;
ReinstantiationException::~ReinstantiationException() = default;

void throwRange(String message) {
   throw RangeException(std::move(message));
}

void throwNullParameter(char const* type, char const* attribute) {
   String const name(attribute);
   throwRange("null _" + name + " parameter to mutator for " + type + "::" + name +
              " not allowed\"");
}

void throwReinstantiation(char const* attribute, String const& oldValue) {
   throw ReinstantiationException(
         "Reinstantiating the pointer interface where constructor parameter attribute _" +
         String(attribute) + " has a different value of " + oldValue);
}

}  // namespace Qor
