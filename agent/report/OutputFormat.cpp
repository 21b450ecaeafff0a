#include "agent/report/OutputFormat.h"

#include <sys/ioctl.h>
#include <unistd.h>

#include <cstdlib>

#include "agent/input/NumberText.h"

namespace Agent {

std::size_t terminalWidth() {
   if (::isatty(STDOUT_FILENO) == 0) return 0;
   std::size_t columns = 0;
   char const* const wanted = std::getenv("COLUMNS");
   if (wanted && parseNumber(wanted, columns) && columns > 0) return columns;
   winsize size{};
   if (::ioctl(STDOUT_FILENO, TIOCGWINSZ, &size) == 0 && size.ws_col > 0) return size.ws_col;
   constexpr std::size_t usual = 80;  // of terminals that do not know their width
   return usual;
}

}  // namespace Agent
