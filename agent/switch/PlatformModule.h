// Opens modules: platforms in shared objects of their own (platform/Module.h).
#pragma once

#include <stdexcept>
#include <string>

#include "platform/Module.h"

namespace Agent {

// A platform that cannot be used. what() is a line for the user.
class PlatformError final : public std::runtime_error {
 public:
   using std::runtime_error::runtime_error;
};

// Opens a module for the rest of the process. The file is opened by its real path. Throws
// PlatformError if the file is no module, or one that does not fit this program; no code of a file
// that exports no module, of one with another sanitizer's runtime, and of one that exports a copy of
// the library is run.
VelMrouteModule const& openModule(std::string const& file);

}  // namespace Agent
