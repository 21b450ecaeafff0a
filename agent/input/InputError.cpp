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
   std::string out = position.toString() + ": " + printable(reason);
   if (!text.empty()) out += "\n    " + printable(text);
   return out;
}

}  // namespace Agent
