#include "agent/soak/SoakCommand.h"

#include <unistd.h>

#include <cstdio>
#include <fstream>
#include <iostream>
#include <nlohmann/json.hpp>

#include "agent/report/ExitCode.h"
#include "agent/report/Output.h"
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
   Soak(SoakOptions const& options, bool forks)
         : options_(options), forks_(forks), progress_(::isatty(STDERR_FILENO) != 0) {}

   // Returns true if no episode has a finding.
   bool random(PathKind path) {
      std::uint64_t done = 0;
      for (std::uint64_t i = 0; done < options_.operations; ++i) {
         std::uint64_t const seed = options_.seed + i;
         std::size_t const length = std::min<std::uint64_t>(lengths[seed % std::size(lengths)],
                                                            options_.operations - done);
         if (!play(soakEpisode(seed, path, length))) return false;
         done += length;
      }
      return true;
   }

   bool play(SoakEpisode const& episode) {
      SoakOutcome const outcome = playOnce(episode);
      ++episodes_;
      operations_ += outcome.lines;
      figures_ += outcome.figures;
      for (auto const& [kind, count] : linesByKind(episode))
         kinds_[kind] += count;
      show();
      if (!outcome.clean()) report(episode, outcome);
      return outcome.clean();
   }

   // Plays the scenario once for each call of a hook and each way in which the call can fail. If
   // that is more often than `operations`, plays an evenly spread part of these.
   bool sweep(SoakEpisode episode) {
      std::erase_if(episode.lines, [](Scenario::Line const& line) {
         return std::holds_alternative<Scenario::Expect>(line.event);
      });
      if (!play(episode)) return false;
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
      for (std::uint64_t i = 0; i < plays; i += stride) {
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
   }

 private:
   // Without a process for each episode, a finding that ends the process ends the soak.
   SoakOutcome playOnce(SoakEpisode const& episode,
                        unsigned looksPerFullCheck = SoakOracle::usualLooks) const {
      SoakHow how;
      how.platforms = options_.platforms;
      how.looksPerFullCheck = looksPerFullCheck;
      return forks_ ? forkSoak(episode, how) : playSoak(episode, how);
   }

   ordered_json json() const {
      SoakFigures const& f = figures_;
      return {{"operations", operations_},
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
              {"replay", reproducer_}};
   }

   void show() {
      if (!progress_) return;
      std::fprintf(stderr, "\r\x1b[K%llu operations in %llu episodes",
                   static_cast<unsigned long long>(operations_),
                   static_cast<unsigned long long>(episodes_));
      std::fflush(stderr);
   }

   void report(SoakEpisode const& episode, SoakOutcome const& outcome) {
      if (progress_) std::fputs("\r\x1b[K", stderr);
      found_ = outcome.found;
      foundSeed_ = episode.seed;
      std::cerr << episode.settings.title << ", path " << nameOf(episode.path) << ", line "
                << outcome.lines << ", at " << Scenario::numberText(outcome.time) << " s:\n";
      for (std::string const& text : outcome.found)
         std::cerr << "   " << text << '\n';
      std::cerr << "looking for the shortest reproducer\n";
      // Compare everything at each look, so that the fault is found where it first appears. If the
      // fault disappears with that, use the normal rate.
      unsigned looks = 1;
      if (playOnce(episode, looks).clean()) looks = SoakOracle::usualLooks;
      auto const again = [&](SoakEpisode const& candidate) { return playOnce(candidate, looks); };
      SoakEpisode const shortest = reducedSoak(episode, again);
      reproducer_ = reproducerText(shortest, again(shortest));
      if (options_.reproducerFile.empty()) {
         std::cerr << reproducer_;
      } else if (std::ofstream file(options_.reproducerFile);
                 !(file << reproducer_ << std::flush)) {
         std::cerr << options_.reproducerFile << ": cannot write\n" << reproducer_;
      } else {
         std::cerr << shortest.lines.size() << " lines: " << options_.reproducerFile << '\n';
      }
   }

   SoakOptions const& options_;
   bool const forks_;
   bool const progress_;
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
   for (InputError const& error : file.errors)
      std::cerr << error.toString() << '\n';
   if (!file.errors.empty()) return std::nullopt;
   std::erase_if(file.lines,
                 [&](Scenario::Line const& line) { return line.path.value_or(path) != path; });
   return SoakEpisode{0, path, file.settings, std::move(file.lines)};
}

}  // namespace

int runSoak(SoakOptions const& options) {
   bool good = true;
   if (options.sweep && options.files.empty()) {
      std::cerr << "--sweep needs a scenario\n";
      return exitUsage;
   }
   std::vector<PathKind> const both{PathKind::async, PathKind::sync};
   std::vector<PathKind> const paths = options.path ? std::vector<PathKind>{*options.path} : both;
   bool forks = true;
   for (PathKind const path : paths) {
      SoakAbility const ability = soakAbility(options.platforms(path, {}));
      forks = forks && ability.forks;
      if (ability.obstacle.empty()) continue;
      std::cerr << "soak: " << ability.obstacle << '\n';
      return exitUsage;
   }
   Soak soak(options, forks);
   if (options.files.empty()) {
      for (PathKind const path : paths)
         good = good && soak.random(path);
   }
   for (std::string const& name : options.files) {
      auto const only = ScenarioFile::read(name).path;
      for (PathKind const path : paths) {
         if (only.value_or(path) != path) continue;
         auto const episode = episodeOf(name, path);
         if (!episode) return exitFailed;
         good = (options.sweep ? soak.sweep(*episode) : soak.play(*episode)) && good;
      }
   }
   soak.print();
   return outputWritten() && good ? exitDone : exitFailed;
}

}  // namespace Agent
