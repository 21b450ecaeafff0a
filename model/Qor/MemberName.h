// The names of types and members as the compiler knows them. A description that takes its names
// from here cannot differ from the class that it describes.
#pragma once

#include <string_view>

// Outside of all namespaces of ours, from within which the compiler leaves their names out.
namespace qorNames {

// What the compiler calls the template argument: "[with T = Vel::Route]".
template <class T>
consteval auto typeArgumentText() {
   std::string_view const text = __PRETTY_FUNCTION__;
   auto const begin = text.find("T = ") + 4;
   return text.substr(begin, text.rfind(']') - begin);
}

}  // namespace qorNames

namespace Qor {

// The full name of a class: "Vel::Route".
template <class T>
consteval auto className() {
   return qorNames::typeArgumentText<T>();
}

// The last name of a member or function: "usedInHwIs" of &AsyncMtableOifSet::usedInHwIs.
template <auto Member>
consteval auto memberName() {
   std::string_view const text = __PRETTY_FUNCTION__;
   auto const end = text.find_last_not_of(")]") + 1;
   auto const begin = text.find_last_of(":&= ", end - 1) + 1;
   return text.substr(begin, end - begin);
}

}  // namespace Qor
