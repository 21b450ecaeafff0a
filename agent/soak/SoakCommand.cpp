#include "agent/soak/SoakCommand.h"

#include <fmt/format.h>

#include <fstream>
#include <iostream>
#include <nlohmann/json.hpp>

#include "agent/process/Signals.h"
#include "agent/report/ErrorOutput.h"
#include "agent/report/ExitCode.h"
#include "agent/report/Output.h"
#include "agent/report/Progress.h"
#include "agent/scenario/ScenarioParser.h"
#include "agent/soak/SoakRun.h"

namespace Agent {

namespace {

using nlohmann::ordered_json;

// The lengths of the random episodes in operations; the seed selects one. Most episodes are short,
// because a short one is cheap to reduce.
constexpr std::size_t lengths[] = {300, 1000, 3000, 1000, 10'000};

class Soak {
 public:
   // `forks`: each episode may be played in a process of its own.
   Soak(SoakOptions const& options, bool forks) : options_(options), forks_(forks) {}

   // Plays random episodes on each of the paths. Returns true if no episode has a finding.
   bool random(std::vector<PathKind> const& paths) {
      toDo_ = options_.operations * paths.size();
      for (PathKind const path : paths)
         rest_.push_back({path, options_.seed, options_.operations});
      while (!rest_.empty() && !interrupted()) {
         Rest& rest = rest_.front();
         std::size_t const length =
               std::min<std::uint64_t>(lengths[rest.seed % std::size(lengths)], rest.operations);
         if (!play(soakEpisode(rest.seed, rest.path, length))) return false;
         if (interrupted()) break;
         ++rest.seed;
         rest.operations -= length;
         if (rest.operations == 0) rest_.erase(rest_.begin());
      }
      return true;
   }

   // An interrupted episode has no finding, and does not count.
   bool play(SoakEpisode const& episode) {
      SoakOutcome const outcome = playOnce(episode);
      if (outcome.interrupted) {
         cut_ = true;
         return true;
      }
      ++episodes_;
      operations_ += outcome.lines;
      figures_ += outcome.figures;
      for (auto const& [kind, count] : linesByKind(episode))
         kinds_[kind] += count;
      show(0);
      if (!outcome.clean()) report(episode, outcome);
      return outcome.clean();
   }
   // After a signal: further scenarios are not played.
   void leaveOut() { cut_ = true; }
   // Whether a signal has ended the soak before its end.
   bool cut() const { return cut_ || (!rest_.empty() && found_.empty()); }

   // Plays the scenario once for each call of a hook and each way in which the call can fail. If
   // that is more often than `operations`, plays an evenly spread part of these.
   bool sweep(SoakEpisode episode) {
      std::erase_if(episode.lines, [](Scenario::Line const& line) {
         return std::holds_alternative<Scenario::Expect>(line.event);
      });
      if (!play(episode)) return false;
      if (interrupted()) return true;
      static constexpr Scenario::FailCall ways[] = {
            {1, true, false, 0, false}, {1, false, true, 0, false}, {1, false, true, 0, true},
            {1, false, true, 2, false}, {1, true, false, 2, true},
      };
      std::uint64_t const calls = playOnce(episode).figures.hookCalls;
      std::uint64_t const plays = calls * std::size(ways);
      std::uint64_t const stride = 1 + (plays - 1) / options_.operations;
      Scenario::Line first;
      first.where = {"soak", 0};
      episode.lines.insert(episode.lines.begin(), first);
      toDo_ = (plays + stride - 1) / stride;
      played_ = 0;
      for (std::uint64_t i = 0; i < plays; i += stride, ++played_) {
         if (interrupted()) {
            leaveOut();
            break;
         }
         Scenario::Fault fault;
         fault.failCall = ways[i % std::size(ways)];
         fault.failCall->nth = static_cast<std::uint32_t>(i / std::size(ways) + 1);
         episode.lines.front().event = fault;
         if (!play(episode)) return false;
      }
      return true;
   }

   void print() const {
      if (options_.format.json) return printJson(std::cout, json(), options_.format.style);
      auto const n = [](std::uint64_t value) { return std::to_string(value); };
      std::cout << "operations     " << operations_ << " in " << episodes_ << " episodes:";
      char const* separator = " ";
      for (auto const& [kind, count] : kinds_) {
         std::cout << separator << count << ' ' << kind;
         separator = ", ";
      }
      SoakFigures const& f = figures_;
      std::cout << "\nroutes         " << n(f.routesPeak) << " at most, " << n(f.reroutes)
                << " rerouted, " << n(f.refusals) << " times a route had to wait for room\n"
                << "groups         " << n(f.resurrections) << " resurrections, " << n(f.purges)
                << " zombies purged for room\n"
                << "writes         " << n(f.writes) << " on the chip, " << n(f.faults)
                << " injected failures; " << n(f.unchanged) << " updates changed nothing\n"
                << "packets        " << n(f.packets) << " of traffic and checks\n"
                << "comparisons    " << n(f.routeChecks) << " routes at " << n(f.looks)
                << " moments, and " << n(f.tableChecks) << " routes, groups and entries in "
                << n(f.fullChecks) << " full comparisons; " << n(f.traces) << " traces\n"
                << "found          " << (found_.empty() ? "nothing" : found_.front()) << '\n';
      if (!cut()) return;
      std::cout << "interrupted    by " << interruptName();
      if (!rest_.empty()) {
         std::cout << " in the episode of seed " << rest_.front().seed << ", path "
                   << nameOf(rest_.front().path);
      }
      std::cout << '\n';
      char const* label = "resume with    ";
      for (Rest const& rest : rest_) {
         std::cout << label << "velmroute soak --path " << nameOf(rest.path) << " --seed "
                   << rest.seed << " --ops " << rest.operations << '\n';
         label = "and            ";
      }
   }

 private:
   // The random episodes of a path that are still to be played.
   struct Rest {
      PathKind path;
      std::uint64_t seed;
      std::uint64_t operations;
   };

   // Without a process for each episode, a finding that ends the process ends the soak.
   SoakOutcome playOnce(SoakEpisode const& episode,
                        unsigned looksPerFullCheck = SoakOracle::usualLooks) {
      SoakHow how;
      how.platforms = options_.platforms;
      how.looksPerFullCheck = looksPerFullCheck;
      if (progress_.shown()) how.played = [this](std::size_t lines) { show(lines); };
      return forks_ ? forkSoak(episode, how) : playSoak(episode, how);
   }

   ordered_json json() const {
      SoakFigures const& f = figures_;
      ordered_json json = {{"operations", operations_},
                           {"episodes", episodes_},
                           {"kinds", kinds_},
                           {"routesPeak", f.routesPeak},
                           {"restarts", f.restarts},
                           {"reroutes", f.reroutes},
                           {"refusals", f.refusals},
                           {"resurrections", f.resurrections},
                           {"purges", f.purges},
                           {"writes", f.writes},
                           {"failedWrites", f.faults},
                           {"unchangedUpdates", f.unchanged},
                           {"packets", f.packets},
                           {"comparisons",
                            {{"moments", f.looks},
                             {"routes", f.routeChecks},
                             {"full", f.fullChecks},
                             {"inFull", f.tableChecks},
                             {"traces", f.traces}}},
                           {"found", found_},
                           {"seed", foundSeed_},
                           {"replay", reproducer_},
                           {"interrupted", cut()}};
      if (!cut()) return json;
      json["signal"] = interruptName();
      json["resume"] = ordered_json::array();
      for (Rest const& rest : rest_) {
         json["resume"].push_back(
               {{"path", nameOf(rest.path)}, {"seed", rest.seed}, {"operations", rest.operations}});
      }
      return json;
   }

   // `lines`: of the episode under way.
   void show(std::size_t lines) {
      if (reduces_) return;
      if (options_.sweep && played_ + toDo_ > 0) return progress_.show(played_, toDo_, "plays");
      if (!rest_.empty())
         return progress_.show(std::min(operations_ + lines, toDo_), toDo_, "operations");
      progress_.show([&] { return fmt::format("{} operations", operations_ + lines); });
   }

   void report(SoakEpisode const& episode, SoakOutcome const& outcome) {
      found_ = outcome.found;
      foundSeed_ = episode.seed;
      std::string const where =
            fmt::format("{}, path {}, line {}, at {} s: ", episode.settings.title,
                        nameOf(episode.path), outcome.lines, Scenario::numberText(outcome.time));
      ErrorLimit errors;
      for (std::string const& text : outcome.found)
         errors.print(ErrorLimit::kindOf(text), where + text);
      errors.finish("; -j lists all");
      printErrorText("looking for the shortest reproducer\n");
      reduces_ = true;
      // Compare everything at each look, so that the fault is found where it first appears. If the
      // fault disappears with that, use the normal rate.
      unsigned looks = 1;
      if (playOnce(episode, looks).clean()) looks = SoakOracle::usualLooks;
      SoakOutcome ofShortest = outcome;  // the last finding is that of the shortest episode
      SoakEpisode const shortest = reducedSoak(episode, [&](SoakEpisode const& candidate) {
         SoakOutcome played = playOnce(candidate, looks);
         if (!played.clean()) ofShortest = played;
         return played;
      });
      reproducer_ = reproducerText(shortest, ofShortest);
      if (interrupted())
         printError("interrupted, so that the reproducer may not be the shortest one");
      if (options_.reproducerFile.empty()) {
         printErrorText(reproducer_);
      } else if (std::ofstream file(options_.reproducerFile);
                 !outputWritten(file << reproducer_, options_.reproducerFile)) {
         printErrorText(reproducer_);
      } else {
         printErrorText(
               fmt::format("{} lines: {}\n", shortest.lines.size(), options_.reproducerFile));
      }
   }

   SoakOptions const& options_;
   bool const forks_;
   Progress progress_;
   std::uint64_t toDo_ = 0;    // operations, or plays of a sweep
   std::uint64_t played_ = 0;  // plays of a sweep
   std::vector<Rest> rest_;    // the first one is under way
   bool cut_ = false;          // a signal has ended an episode, or has left scenarios out
   bool reduces_ = false;      // a reproducer is sought
   std::uint64_t episodes_ = 0, operations_ = 0;
   std::map<std::string, std::uint64_t> kinds_;
   SoakFigures figures_;
   std::vector<std::string> found_;
   std::uint64_t foundSeed_ = 0;
   std::string reproducer_;
};

// Reads a scenario as an episode for one path, without the lines for the other path. Prints the
// errors of a bad scenario to standard error and returns nothing.
std::optional<SoakEpisode> episodeOf(std::string const& name, PathKind path) {
   ScenarioFile file = ScenarioFile::read(name);
   ErrorLimit errors;
   for (InputError const& error : file.errors)
      errors.print(ErrorLimit::kindOf(error.reason), error.toString());
   if (!file.errors.empty()) return std::nullopt;
   std::erase_if(file.lines,
                 [&](Scenario::Line const& line) { return line.path.value_or(path) != path; });
   return SoakEpisode{0, path, file.settings, std::move(file.lines)};
}

}  // namespace

int runSoak(SoakOptions const& options) {
   Signals const signals;
   bool good = true;
   if (options.sweep && options.files.empty()) {
      printError("--sweep needs a scenario");
      return exitUsage;
   }
   std::vector<PathKind> const both{PathKind::async, PathKind::sync};
   std::vector<PathKind> const paths = options.path ? std::vector<PathKind>{*options.path} : both;
   bool forks = true;
   for (PathKind const path : paths) {
      SoakAbility const ability = soakAbility(options.platforms(path, {}));
      forks = forks && ability.forks;
      if (ability.obstacle.empty()) continue;
      printError("soak: " + ability.obstacle);
      return exitUsage;
   }
   Soak soak(options, forks);
   if (options.files.empty()) good = soak.random(paths);
   for (std::string const& name : options.files) {
      if (interrupted()) {
         soak.leaveOut();
         break;
      }
      auto const only = ScenarioFile::read(name).path;
      for (PathKind const path : paths) {
         if (only.value_or(path) != path) continue;
         auto const episode = episodeOf(name, path);
         if (!episode) return exitFailed;
         good = (options.sweep ? soak.sweep(*episode) : soak.play(*episode)) && good;
      }
   }
   soak.print();
   return exitCode(outputWritten() && good, soak.cut());
}

}  // namespace Agent
