#include "TestSupport.h"

#include <filesystem>
#include <fstream>

namespace testSupport {

std::string sourceText(std::string const& path) {
   std::ifstream in(std::filesystem::path(VELMROUTE_EXAMPLES).parent_path() / path);
   std::string text, word;
   while (in >> word) {
      if (word != "//") text += (text.empty() ? "" : " ") + word;
   }
   return text;
}

}  // namespace testSupport
