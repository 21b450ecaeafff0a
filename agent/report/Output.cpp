#include "agent/report/Output.h"

#include <poll.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <iostream>

#include "agent/report/ErrorOutput.h"

namespace Agent {

namespace {

// Whether standard output is a pipe or a socket that nobody reads any more.
bool readerHasEnded() {
   pollfd out{STDOUT_FILENO, POLLOUT, 0};
   return ::poll(&out, 1, 0) == 1 && (out.revents & (POLLERR | POLLHUP)) != 0;
}

}  // namespace

bool outputWritten(std::ostream& out, std::string_view name) {
   errno = 0;
   if (out.flush().good()) return true;
   int const error = errno;
   if (&out == &std::cout && readerHasEnded()) return false;
   printError(std::string(name) + ": cannot write" +
              (error ? ": " + std::string(std::strerror(error)) : ""));
   return false;
}

bool outputWritten() {
   return outputWritten(std::cout, "<stdout>");
}

}  // namespace Agent
