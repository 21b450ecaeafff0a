// The names of types and members as the compiler knows them. A type description (Qor/Describe.h)
// takes its names from here, so that they cannot differ from the class.
#pragma once

#include <string_view>

#include "Qor/Standard.h"

// Not nested in Qor: the compiler omits the name of the enclosing namespace from a type's name.
namespace qorNames {

// The name of the template argument, cut from "... [with T = Vel::Route]".
template <class T>
consteval auto typeArgumentText() {
   std::string_view const text = __PRETTY_FUNCTION__;
   auto const begin = text.find("T = ") + 4;
   return text.substr(begin, text.rfind(']') - begin);
}

}  // namespace qorNames

namespace Qor {

// The full name of a class, such as "Vel::Route".
template <class T>
consteval auto className() {
   return qorNames::typeArgumentText<T>();
}

// The unqualified name of a member or function: "usedInHwIs" for &AsyncMtableOifSet::usedInHwIs.
template <auto Member>
consteval auto memberName() {
   std::string_view const text = __PRETTY_FUNCTION__;
   auto const end = text.find_last_not_of(")]") + 1;
   auto const begin = text.find_last_of(":&= ", end - 1) + 1;
   return text.substr(begin, end - begin);
}

}  // namespace Qor
