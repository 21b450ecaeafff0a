// The characters that the parsers of captures distinguish, in ASCII and without a locale.
#pragma once

namespace Agent {

inline bool isDigit(char c) {
   return c >= '0' && c <= '9';
}

}  // namespace Agent
