// Plays scenarios under the oracle, each in its own process. An episode that ends the process
// through an assertion or a sanitizer, or that never ends, is therefore a finding like any other.
#pragma once

#include <functional>
#include <map>
#include <optional>

#include "agent/soak/SoakEpisode.h"
#include "agent/soak/SoakOracle.h"

namespace Agent {

struct SoakOutcome {
   std::vector<std::string> found;  // the findings of the first look that has any
   std::size_t lines = 0;           // played lines of the episode, up to the finding
   double time = 0;                 // Qor::now() at the finding, or at the end
   SoakFigures figures;
   // A signal (agent/process/Signals.h) has ended the episode, which then has no finding.
   bool interrupted = false;

   bool clean() const { return found.empty(); }
};

// The limit on the processor time for one episode, in seconds.
inline constexpr unsigned soakProcessorLimit = 300;

struct SoakHow {
   // The chip of the episode.
   PlatformSource platforms = simulatedPlatform;
   // One of so many looks compares everything. With 1, a fault is found at the first look after it.
   unsigned looksPerFullCheck = SoakOracle::usualLooks;
   // Called with the number of lines played so far: after each line, and in the process that waits
   // for forkSoak() ten times a second.
   std::function<void(std::size_t)> played = nullptr;
};

// Plays an episode in this process, up to its first finding. After the last line, ends the lasting
// faults and compares everything; then withdraws all routes, compares everything again, and tests
// that the chip is empty. Failed expectations of the scenario are not findings.
SoakOutcome playSoak(SoakEpisode const& episode, SoakHow const& how = {});

struct SoakAbility {
   // The reason why the platform cannot be soaked, such as "the platform is not in virtual time";
   // empty if it can.
   std::string obstacle;
   bool forks = false;  // as Abilities::forks
};
SoakAbility soakAbility(PlatformChoice const& choice);

// Plays an episode in its own process. The platform forks (Abilities::forks). If the process ends early, the finding is "the process has
// ended: SIGNAL" or "... exit code N", with the first 4,000 characters of its standard error. The
// process ends with this one, however this one ends.
// Throws std::runtime_error if no process or temporary file can be created.
SoakOutcome forkSoak(SoakEpisode const& episode, SoakHow how = {});

// Plays an episode and returns its outcome.
using SoakPlay = std::function<SoakOutcome(SoakEpisode const&)>;

// Reduces an episode with a finding: leaves out lines and halves blocks of routes as long as `play`
// still has a finding, which may be a different one. Calls `play` at most `tries` times, and not
// after a signal (agent/process/Signals.h). Returns the shortest episode with a finding.
SoakEpisode reducedSoak(SoakEpisode const& episode, SoakPlay const& play, unsigned tries = 2000);

// The episode as a scenario file for `velmroute run` and `velmroute soak`. Its comments have the
// findings, and its last line expects all routes to forward as wanted.
std::string reproducerText(SoakEpisode const& episode, SoakOutcome const& outcome);

// The number of lines of each kind: "route", "link" and so on.
std::map<std::string, std::uint64_t> linesByKind(SoakEpisode const& episode);

}  // namespace Agent
