#include "agent/page/Page.h"

#include <fstream>
#include <nlohmann/json.hpp>

#include "agent/page/PageText.h"
#include "agent/report/Output.h"

namespace Agent {

std::string reportPage(nlohmann::ordered_json const& document) {
   std::string const data = document.dump(-1, ' ', true, nlohmann::json::error_handler_t::replace);
   std::string page;
   page.reserve(pageBegin.size() + data.size() + pageEnd.size());
   page = pageBegin;
   // A less-than sign could begin the end tag of the data, and occurs in strings alone.
   for (char const c : data) {
      if (c == '<') {
         page += "\\u003c";
      } else {
         page += c;
      }
   }
   page += pageEnd;
   return page;
}

std::string_view reportPolicy() {
   return pagePolicy;
}

bool writeReport(std::string const& fileName, nlohmann::ordered_json const& document) {
   std::ofstream out(fileName, std::ios::binary);
   out << reportPage(document);
   return outputWritten(out, fileName);
}

}  // namespace Agent
