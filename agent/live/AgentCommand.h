// The command `agent`: a live agent in the foreground, as a service manager wants it.
//
// TERM and INT end the agent, HUP reads the configuration again. The exit code is 0 after such an
// end, and 1 for a configuration with faults or a kernel that cannot be followed.
#pragma once

#include <string>

namespace Agent {

struct AgentOptions {
   std::string configFile = "/etc/velmroute/velmroute.conf";
   bool checkConfig = false;  // only prints the notes on the interfaces, and ends
   bool flush = false;        // clears the bridge at the end
   std::string log;           // the level, in place of that of the file; or empty
};

int runAgent(AgentOptions const& options);

}  // namespace Agent
