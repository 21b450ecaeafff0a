#include "agent/input/InputError.h"

namespace Agent {

namespace {

std::string printable(std::string_view text) {
   constexpr char digits[] = "0123456789abcdef";
   std::string out;
   for (char const c : text) {
      auto const byte = static_cast<unsigned char>(c);
      if (byte >= 0x20 && byte < 0x7f) {
         out += c;
      } else {
         out += "\\x";
         out += digits[byte >> 4];
         out += digits[byte & 15];
      }
   }
   return out;
}

}  // namespace

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
