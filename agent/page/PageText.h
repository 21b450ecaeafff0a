// The text of the page around its data. The build makes the source of these constants from page.html,
// page.css and the scripts: cmake/EmbedPage.cmake.
#pragma once

#include <string_view>

namespace Agent {

extern std::string_view const pageBegin;
extern std::string_view const pageEnd;
extern std::string_view const pagePolicy;

}  // namespace Agent
