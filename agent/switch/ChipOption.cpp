#include "agent/switch/ChipOption.h"

#include <cmath>
#include <string_view>

#include "Qor/Exception.h"
#include "agent/input/NumberText.h"

namespace Agent {

std::optional<std::string> parseChipOption(std::string const& text, Sim::ChipConfig& config) {
   std::string_view rest(text);
   while (true) {
      auto const comma = rest.find(',');
      std::string_view const item = rest.substr(0, comma);
      auto const equals = item.find('=');
      std::string_view const key = item.substr(0, equals);
      std::string_view const value =
            equals == std::string_view::npos ? std::string_view() : item.substr(equals + 1);
      bool good = false;
      if (key == "groups") {
         good = parseNumber(value, config.groups);
      } else if (key == "routes") {
         good = parseNumber(value, config.routes);
      } else if (key == "boundaries") {
         good = parseNumber(value, config.boundaries);
      } else if (key == "latency") {
         good = parseNumber(value, config.latency) && config.latency >= 0 &&
                std::isfinite(config.latency);
      } else {
         return "unknown chip property \"" + std::string(key) +
                "\" (known: groups=N, routes=N, boundaries=N, latency=SECONDS)";
      }
      if (!good) return "bad value in \"" + std::string(item) + "\"";
      if (comma == std::string_view::npos) break;
      rest.remove_prefix(comma + 1);
   }
   try {
      Qor::make<Sim::Chip>(config);
   } catch (Qor::RangeException const& error) {
      return error.message();
   }
   return std::nullopt;
}

}  // namespace Agent
