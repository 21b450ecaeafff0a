#include "agent/input/TableHandler.h"

#include <algorithm>
#include <utility>

namespace Agent {

bool TableHandler::fail(std::string what) {
   bool const routed = inRoute();
   position = routed ? routeAt_ : std::max<std::size_t>(reached(), 1) - 1;
   excerpt = text_.substr(position, routed ? reached() - position : std::string_view::npos);
   reason = routed ? "route " + std::to_string(event_.routes.size() + 1) + ": " : "";
   reason += what;
   return false;
}

void TableHandler::add(MrouteEvent route) {
   if (!event_.covers(route.vrf, route.key)) {
      event_.scopes.push_back({route.key.group().family(), route.vrf});
   }
   event_.routes.push_back(std::move(route));
}

bool TableHandler::parse_error(std::size_t at, std::string const&,
                               nlohmann::json::exception const& error) {
   constexpr std::size_t before = 60;
   position = std::min(at ? at - 1 : 0, text_.size());
   std::size_t const first = position > before ? position - before : 0;
   excerpt = text_.substr(first, position + 1 - first);
   // The library reports "[json...] parse error at line 1, column 5: syntax error while parsing
   // ...". Its place is replaced by the place in the file.
   std::string_view what = error.what();
   if (auto const colon = what.find(": "); colon != std::string_view::npos) {
      what.remove_prefix(colon + 2);
   }
   reason = "not valid JSON: ";
   reason += what;
   return false;
}

}  // namespace Agent
