// The page of a report: one HTML document with style, scripts and data, which needs no network.
//
// The page is made of page.html, page.css, charts.js and page.js, which the build embeds into the
// program. Its policy (Content-Security-Policy) forbids every request, and allows the embedded style
// and scripts alone, by their hashes.
#pragma once

#include <nlohmann/json_fwd.hpp>
#include <string>
#include <string_view>

namespace Agent {

// The page with this document (ReportDocument::json()). Texts of the document are data of the page:
// no text ends the element that holds it.
std::string reportPage(nlohmann::ordered_json const& document);
// The policy of the page, as the header of an HTTP answer has it.
std::string_view reportPolicy();

// Writes the page to a file, in place of an earlier one. If that is impossible, reports it on
// standard error and returns false.
bool writeReport(std::string const& fileName, nlohmann::ordered_json const& document);

}  // namespace Agent
