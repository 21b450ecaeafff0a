#include "agent/report/JsonOutput.h"

#include <nlohmann/json.hpp>

namespace Agent {

void printJson(std::ostream& os, nlohmann::ordered_json const& document, JsonStyle style) {
   constexpr int indentation = 2;
   os << document.dump(style == JsonStyle::pretty ? indentation : -1, ' ', false,
                       nlohmann::ordered_json::error_handler_t::replace)
      << '\n';
}

}  // namespace Agent
