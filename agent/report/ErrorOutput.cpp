#include "agent/report/ErrorOutput.h"

#include <iostream>
#include <string>

namespace Agent {

void printError(std::string_view text) {
   // One write for each line, so that lines of a forked child do not mix with others.
   std::cerr << "velmroute: " + std::string(text) + '\n';
}

}  // namespace Agent
