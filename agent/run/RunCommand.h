// `velmroute run FILE...`: replays captures of multicast routes through the route programmer and
// one of the two paths onto the simulated chip, in virtual time, and checks what the chip forwards
// in the end.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "agent/inspect/InspectPrompt.h"
#include "agent/report/Views.h"
#include "platform/sim/Chip.h"

namespace Agent {

struct RunOptions {
   std::vector<std::string> files;  // "-" is standard input
   std::string mapFile;             // empty: interfaces are numbered on first sight
   std::string chipText;      // as parseChipOption() reads it; empty: the defaults, or a scenario's
   std::string timelineFile;  // empty: none
   std::vector<View> show;
   std::optional<Path> path;  // nothing: that of the scenario, or Path::async
   bool json = false;
   bool check = true;
   bool keepGoing = false;
   // Looking at the run in its place: at this time, or at the end, by these commands, and then by
   // those of standard input. Neither a summary nor the check is made then.
   std::optional<double> until;
   std::vector<std::string> evals;
   bool inspect = false;

   bool inspects() const { return inspect || !evals.empty(); }
   InspectOptions inspected() const;
};

// Exit codes of the program.
inline constexpr int exitDone = 0;
inline constexpr int exitFailed = 1;  // bad input, failed output, or the check found differences
inline constexpr int exitUsage = 2;

// Parses "groups=N,routes=N,boundaries=N,latency=S" (any of them, in any order) into `config`. Returns what is
// wrong with the text, or nothing.
std::optional<std::string> parseChipOption(std::string const& text, Sim::ChipConfig& config);
// Parses "LEVEL[:GLOB]" and turns the trace on. Returns what is wrong with the text, or nothing.
std::optional<std::string> applyTraceOption(std::string const& text);

// Flushes standard output; says on standard error that it could not be written, if so.
bool outputWritten();

// Prints the tables that options.show asks for, and the summary: as text, or everything as one JSON
// object.
void reportTables(RunOptions const& options, SimulatedSwitch const& simulated,
                  nlohmann::ordered_json& summary);

// Replays captures, or plays a scenario, which is told from its content and stands alone. Results
// go to standard output, all else to standard error; a progress line is shown while standard error
// is a terminal. An interrupt (SIGINT) ends the input, as end of file does.
int runFiles(RunOptions const& options);

}  // namespace Agent
