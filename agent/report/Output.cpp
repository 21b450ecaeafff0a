#include "agent/report/Output.h"

#include <cerrno>
#include <cstring>
#include <iostream>

namespace Agent {

bool outputWritten(std::ostream& out, std::string_view name) {
   errno = 0;
   if (out.flush().good()) return true;
   std::cerr << name << ": cannot write";
   if (errno) std::cerr << ": " << std::strerror(errno);
   std::cerr << '\n';
   return false;
}

bool outputWritten() {
   return outputWritten(std::cout, "<stdout>");
}

}  // namespace Agent
