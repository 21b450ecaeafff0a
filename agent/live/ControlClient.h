// The other end of the control socket (agent/live/ControlSocket.h): a small program that blocks.
#pragma once

#include <functional>
#include <string>
#include <string_view>

#include "agent/report/OutputFormat.h"

namespace Agent {

inline constexpr char const* defaultControlPath = "/run/velmroute/control.sock";

// Sends a command to the agent that listens at the path, and passes the text of the answer to `out`
// as it arrives. Returns whether the command succeeded; the text of a failed command goes to `fault`.
// Raises std::runtime_error with one line if no agent answers, or if the connection ends before the
// answer does, and if a signal is noted (agent/process/Signals.h). `out` returns false to end the
// connection. The agent prints compact JSON alone; the client indents it.
using TextSink = std::function<bool(std::string_view)>;
bool askAgent(std::string const& path, std::string const& command, OutputFormat format,
              TextSink const& out, TextSink const& fault);

}  // namespace Agent
