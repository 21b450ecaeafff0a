// Numbers in texts that people write.
#pragma once

#include <charconv>
#include <string_view>

namespace Agent {

// Whether the whole text is a number of type T, which is then in `value`.
template <class T>
bool parseNumber(std::string_view text, T& value) {
   char const* const last = text.data() + text.size();
   auto const [end, error] = std::from_chars(text.data(), last, value);
   return error == std::errc() && end == last;
}

}  // namespace Agent
