#include "platform/PlatformOptions.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <cmath>

namespace VelMroute {

void PlatformOptions::add(std::string_view text) {
   while (true) {
      auto const comma = text.find(',');
      std::string_view const item = text.substr(0, comma);
      auto const equals = item.find('=');
      words.emplace_back(item.substr(0, equals), equals == std::string_view::npos
                                                       ? std::string_view()
                                                       : item.substr(equals + 1));
      if (comma == std::string_view::npos) return;
      text.remove_prefix(comma + 1);
   }
}

void PlatformOptions::add(std::string word, double value) {
   std::array<char, 32> text{};
   auto const end = std::to_chars(text.data(), text.data() + text.size(), value).ptr;
   words.emplace_back(std::move(word), std::string(text.data(), end));
}

template <class Value, class Good>
void OptionReader::read(char const* word, char const* kind, Value& value, Good const& good) {
   known_.emplace_back(word);
   knownText_ += (knownText_.empty() ? "" : ", ") + known_.back() + '=' + kind;
   for (auto const& [given, text] : options_.words) {
      if (given != word) continue;
      char const* const end = text.data() + text.size();
      auto const read = std::from_chars(text.data(), end, value);
      if (read.ec == std::errc() && read.ptr == end && good(value)) continue;
      throw PlatformOptionError("bad value in \"" + given + (text.empty() ? "" : "=") + text + '"');
   }
}

void OptionReader::number(char const* word, Qor::U32& value) {
   read(word, "N", value, [](Qor::U32) { return true; });
}

void OptionReader::seconds(char const* word, Qor::Seconds& value) {
   read(word, "SECONDS", value, [](double v) { return v >= 0 && std::isfinite(v); });
}

void OptionReader::end() const {
   for (auto const& [given, text] : options_.words) {
      if (std::find(known_.begin(), known_.end(), given) != known_.end()) continue;
      throw UnknownPlatformOption(
            std::string("unknown ") + what_ + " \"" + given + "\" (known: " + knownText_ + ')',
            given, known_);
   }
}

}  // namespace VelMroute
