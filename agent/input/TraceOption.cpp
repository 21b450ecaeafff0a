#include "agent/input/TraceOption.h"

#include "Qor/Trace.h"
#include "agent/input/NumberText.h"

namespace Agent {

std::optional<std::string> applyTraceOption(std::string const& text) {
   auto const colon = text.find(':');
   int level = 0;
   if (!parseNumber(std::string_view(text).substr(0, colon), level) || level < 0 || level > 9 ||
       colon == text.size() - 1) {
      return "bad trace \"" + text + "\": want LEVEL[:GLOB] with a level of 0 to 9";
   }
   Qor::traceLevelIs(level, colon == std::string::npos ? "*" : text.substr(colon + 1));
   return std::nullopt;
}

}  // namespace Agent
