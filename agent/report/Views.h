// The tables of a switch, as text and as JSON. The text is made from the JSON, so both have the same
// content. docs/json.md describes the keys. A key that does not apply is absent, and a key that
// applies is present also if it is false.
#pragma once

#include <nlohmann/json.hpp>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "agent/report/RouteFilter.h"
#include "agent/report/RouteRow.h"
#include "agent/report/View.h"
#include "agent/switch/Switch.h"

namespace Agent {

// The rows of a view: an array, but for View::chip an object of arrays.
struct ViewContent {
   nlohmann::ordered_json rows;
   std::optional<std::size_t> total = {};  // the number of all routes, if there is a filter
};

ViewContent viewContent(ViewRequest const& request, Switch const& theSwitch);
// The routes that match, in their order.
ViewContent routesContent(std::vector<RouteRow> routes, RouteFilter const& filter);

// The rows as a document: {"routes": [...]}.
nlohmann::ordered_json viewDocument(View view, ViewContent content);
// The tables as text in lines of this width; 0: of any length.
std::string viewText(View view, ViewContent const& content, std::size_t width);
// The routes with the kernel's tables, and without handles and groups.
std::string kernelRoutesText(ViewContent const& content, std::size_t width);

}  // namespace Agent
