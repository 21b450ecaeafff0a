// fmt::format() for the types of the model and of the platforms, as their operator<< prints them.
#pragma once

#include <fmt/format.h>

#include <ostream>
#include <string_view>
#include <type_traits>
#include <utility>

#include "Qor/TextStream.h"

namespace VelMroute {

template <class T>
using Streamed = decltype(std::declval<std::ostream&>() << std::declval<T const&>());

// String classes have operator<<, too. They are excluded here, because libfmt already formats them.
template <class T>
inline constexpr bool isString = std::is_convertible_v<T, std::string_view>;

template <class T>
concept Printable = std::is_same_v<Streamed<T>, std::ostream&> && !isString<T> &&
                    (std::is_class_v<T> || std::is_enum_v<T>);

}  // namespace VelMroute

template <VelMroute::Printable T>
struct fmt::formatter<T> : fmt::formatter<std::string_view> {
   template <class Context>
   auto format(T const& value, Context& context) const {
      Qor::TextStream text;
      text.out() << value;
      return fmt::formatter<std::string_view>::format(text.view(), context);
   }
};
