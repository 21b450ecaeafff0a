#include "agent/input/InputError.h"

#include "agent/input/PrintableText.h"

namespace Agent {

std::string InputPosition::toString() const {
   return line ? file + ":" + std::to_string(line) : file;
}

void InputError::textIs(std::string_view offending) {
   text.assign(offending.substr(0, textLimit));
   if (offending.size() > textLimit) text += "...";
}

std::string InputError::toString() const {
   static constexpr std::string_view columnWord = " (column ";
   std::size_t const at = reason.ends_with(')') ? reason.rfind(columnWord) : std::string::npos;
   std::string out = position.toString();
   if (at != std::string::npos) {
      std::size_t const number = at + columnWord.size();
      out += ':' + reason.substr(number, reason.size() - 1 - number);
   }
   out += ": " + printable(std::string_view(reason).substr(0, at));
   if (!text.empty()) out += ": " + printable(text);
   return out;
}

}  // namespace Agent
