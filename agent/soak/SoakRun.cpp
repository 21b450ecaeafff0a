#include "agent/soak/SoakRun.h"

#include <sys/mman.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <nlohmann/json.hpp>
#include <sstream>

#include "agent/process/Child.h"
#include "agent/process/Signals.h"
#include "agent/scenario/ScenarioPlayer.h"
#include "agent/scenario/ScenarioWriter.h"
#include "agent/soak/SoakTestbed.h"

namespace Agent {

Testbed::Copies SoakTestbed::send(Packet const& packet) {
   auto const arriving = testbed_.onChip(packet);
   auto const seen = switch_.send(arriving);
   oracle_.sent(arriving, seen);
   changed_ = true;
   return SwitchTestbed::copiesOf(seen);
}

namespace {

// Ends the lasting faults. A fault that counts its writes (failNext) stays in force for the writes
// that it has left.
void healAll(SoakTestbed& testbed) {
   Scenario::Fault fault;
   fault.groupsExhausted = fault.routesExhausted = fault.boundariesExhausted = false;
   testbed.faultIs(fault);
   for (std::size_t i = 0; i < VelMroute::writeKinds; ++i) {
      Scenario::Fault end;
      end.rate = {static_cast<VelMroute::WriteKind>(i), 0};
      testbed.faultIs(end);
   }
}

// 20 s are enough for each zombie to expire and, with the polling intervals of random episodes, for
// an aging review.
void rest(SoakTestbed& testbed) {
   testbed.runUntil(Qor::now() + 20);
   testbed.settle();
}

void playEnd(Switch& theSwitch, SoakTestbed& testbed, SoakOracle& oracle) {
   healAll(testbed);
   rest(testbed);
   if (!oracle.found().empty()) return;
   oracle.lookAtAll();
   if (!oracle.found().empty()) return;
   std::vector<RouteId> wanted;
   std::as_const(theSwitch).programmer().forEach([&](RouteView const& route) {
      wanted.push_back({route.vrf(), route.key()});
   });
   for (RouteId const& id : wanted)
      testbed.routeDel(id.vrf, id.key);
   rest(testbed);
   if (!oracle.found().empty()) return;
   oracle.lookAtAll();
   oracle.lookAtEmpty();
}

}  // namespace

namespace {

std::string obstacle(VelMroute::Platform& platform) {
   if (!platform.view()) return "the tables of the platform cannot be read";
   if (!platform.probe()) return "the platform sends no packets";
   if (!platform.faults()) return "the platform injects no faults";
   for (Table const table : VelMroute::allTables) {
      auto const use = platform.view()->use(table);
      if (!use.size || !use.allocated) return "the platform does not know the sizes of its tables";
   }
   if (!platform.view()->writes(VelMroute::WriteKind::groupCreate))
      return "the platform does not count its writes";
   return {};
}

// The times that the platform was made with, which may differ from those of the scenario.
SoakTiming timingOf(PlatformChoice const& choice) {
   SoakTiming timing;
   VelMroute::OptionReader reader("time", choice.options);
   reader.seconds("minPollingInterval", timing.minPollingInterval);
   reader.seconds("callCost", timing.callCost);
   return timing;
}

}  // namespace

SoakAbility soakAbility(PlatformChoice const& choice) {
   if (!choice.virtualTime) return {"the platform is not in virtual time"};
   Switch theSwitch(choice);
   return {obstacle(theSwitch.platform()), theSwitch.forks()};
}

SoakOutcome playSoak(SoakEpisode const& episode, SoakHow const& how) {
   PlatformChoice choice = how.platforms(episode.path, episode.settings.platformOptions());
   choice.checksHooks = true;
   choice.refusals = 0;  // the oracle knows for which refusals there is a reason
   SoakTiming const timing = timingOf(choice);
   Switch theSwitch(choice);
   SwitchTestbed inner(theSwitch, nullptr, true);
   SoakOracle oracle(theSwitch, timing, how.looksPerFullCheck);
   SoakTestbed testbed(theSwitch, inner, oracle);
   ScenarioPlayer player(testbed, episode.lines);
   while (oracle.found().empty() && player.step()) {
      if (how.played) how.played(player.played());
   }
   bool const cut = interrupted();
   if (oracle.found().empty() && !cut) {
      player.finish();
      playEnd(theSwitch, testbed, oracle);
   }
   return {oracle.found(), player.played(), Qor::now(), oracle.figures(), cut};
}

// ---- The process of an episode. ----

namespace {

using nlohmann::json;

json toJson(SoakOutcome const& outcome) {
   SoakFigures const& f = outcome.figures;
   return {{"found", outcome.found},
           {"lines", outcome.lines},
           {"time", outcome.time},
           {"figures",
            {f.looks, f.routeChecks, f.fullChecks, f.tableChecks, f.packets, f.reroutes, f.faults,
             f.refusals, f.resurrections, f.purges, f.unchanged, f.writes, f.hookCalls,
             f.routesPeak, f.restarts, f.traces}}};
}

SoakOutcome fromJson(json const& j) {
   SoakOutcome outcome;
   outcome.found = j.at("found").get<std::vector<std::string>>();
   outcome.lines = j.at("lines");
   outcome.time = j.at("time");
   SoakFigures& f = outcome.figures;
   std::uint64_t* const all[] = {&f.looks,         &f.routeChecks, &f.fullChecks, &f.tableChecks,
                                 &f.packets,       &f.reroutes,    &f.faults,     &f.refusals,
                                 &f.resurrections, &f.purges,      &f.unchanged,  &f.writes,
                                 &f.hookCalls,     &f.routesPeak,  &f.restarts,   &f.traces};
   for (std::size_t i = 0; i < std::size(all); ++i)
      *all[i] = j.at("figures").at(i);
   return outcome;
}

// The memory that the child shares with its parent. The parent also reads it after the child has
// died, to report the line that the child had reached.
struct Shared {
   std::size_t played;
};

int playInChild(SoakEpisode const& episode, SoakHow how, Shared* shared, std::FILE* result,
                std::FILE* said) {
   ::dup2(::fileno(said), STDERR_FILENO);
   rlimit const limit{soakProcessorLimit, soakProcessorLimit + 5};
   ::setrlimit(RLIMIT_CPU, &limit);
   rlimit const noCore{0, 0};
   ::setrlimit(RLIMIT_CORE, &noCore);
   try {
      how.played = [&](std::size_t n) { shared->played = n; };
      std::string const text = toJson(playSoak(episode, how)).dump();
      std::fwrite(text.data(), 1, text.size(), result);
      std::fflush(result);
   } catch (std::exception const& error) {
      std::fprintf(stderr, "%s\n", error.what());
      std::fflush(stderr);
      return 3;
   }
   return 0;
}

std::string contents(std::FILE* file) {
   std::rewind(file);
   std::string text;
   char part[4096];
   for (std::size_t n; (n = std::fread(part, 1, sizeof part, file)) > 0;)
      text.append(part, n);
   return text;
}

struct CloseFile {
   void operator()(std::FILE* file) const { std::fclose(file); }
};
using File = std::unique_ptr<std::FILE, CloseFile>;

SoakOutcome died(int status, std::size_t played, std::string said) {
   SoakOutcome outcome;
   outcome.lines = played;
   std::string how = WIFSIGNALED(status) ? ::strsignal(WTERMSIG(status))
                                         : "exit code " + std::to_string(WEXITSTATUS(status));
   constexpr std::size_t shown = 4000;
   if (said.size() > shown) said = said.substr(0, shown) + "...";
   outcome.found.push_back("the process has ended: " + how + "\n" + said);
   return outcome;
}

}  // namespace

SoakOutcome forkSoak(SoakEpisode const& episode, SoakHow how) {
   File const result(std::tmpfile()), said(std::tmpfile());
   void* const memory =
         ::mmap(nullptr, sizeof(Shared), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
   if (!result || !said || memory == MAP_FAILED)
      throw std::runtime_error("cannot create temporary files");
   auto* const shared = static_cast<Shared*>(memory);
   std::optional<int> status;
   {
      Child child([&] { return playInChild(episode, how, shared, result.get(), said.get()); });
      status =
            child.wait(how.played ? [&] { how.played(shared->played); } : std::function<void()>());
   }
   std::size_t const played = shared->played;
   ::munmap(memory, sizeof(Shared));
   if (!status) {
      SoakOutcome outcome;
      outcome.lines = played;
      outcome.interrupted = true;
      return outcome;
   }
   if (*status != 0) return died(*status, played, contents(said.get()));
   return fromJson(json::parse(contents(result.get())));
}

// ---- Reduction of an episode. ----

namespace {

class Reduction {
 public:
   Reduction(SoakEpisode episode, SoakPlay const& play, unsigned tries)
         : best_(std::move(episode)), play_(play), tries_(tries) {
      take(SoakEpisode(best_));
   }

   // Leaves out parts from the end of the episode to its beginning. The length of the parts starts
   // with half of the lines and is halved until it is one line, which is tried until nothing more
   // can be left out.
   SoakEpisode run() {
      for (std::size_t part = best_.lines.size() / 2; part > 0; part /= 2) {
         bool shorter = true;
         while (shorter && tries_ > 0) {
            shorter = false;
            for (std::size_t end = best_.lines.size(); end > 0 && tries_ > 0;) {
               std::size_t const begin = end > part ? end - part : 0;
               SoakEpisode candidate = best_;
               candidate.lines.erase(at(candidate, begin), at(candidate, end));
               shorter = take(std::move(candidate)) || shorter;
               end = begin;
            }
            if (part > 1) break;
         }
      }
      shrinkBlocks();
      return std::move(best_);
   }

 private:
   static std::vector<Scenario::Line>::iterator at(SoakEpisode& episode, std::size_t i) {
      return episode.lines.begin() + static_cast<std::ptrdiff_t>(i);
   }

   bool take(SoakEpisode candidate) {
      if (tries_ == 0) return false;
      --tries_;
      SoakOutcome const outcome = play_(candidate);
      if (outcome.interrupted) tries_ = 0;
      if (outcome.clean()) return false;
      if (outcome.lines < candidate.lines.size()) candidate.lines.resize(outcome.lines);
      best_ = std::move(candidate);
      return true;
   }

   static Scenario::RouteRun* runOf(Scenario::Line& line) {
      if (auto* const route = std::get_if<Scenario::Route>(&line.event)) return &route->routes;
      if (auto* const gone = std::get_if<Scenario::Withdraw>(&line.event)) return &gone->routes;
      return nullptr;
   }

   void shrinkBlocks() {
      for (bool smaller = true; smaller;) {
         smaller = false;
         for (std::size_t i = 0; i < best_.lines.size(); ++i) {
            SoakEpisode candidate = best_;
            Scenario::RouteRun* const run = runOf(candidate.lines[i]);
            if (!run || run->groups < 2) continue;
            run->groups /= 2;
            smaller = take(std::move(candidate)) || smaller;
         }
      }
   }

   SoakEpisode best_;
   SoakPlay const& play_;
   unsigned tries_;
};

}  // namespace

SoakEpisode reducedSoak(SoakEpisode const& episode, SoakPlay const& play, unsigned tries) {
   return Reduction(episode, play, tries).run();
}

std::string reproducerText(SoakEpisode const& episode, SoakOutcome const& outcome) {
   std::ostringstream os;
   os << "# Found after " << outcome.lines << " lines, at " << Scenario::numberText(outcome.time)
      << " s:\n";
   for (std::string const& found : outcome.found) {
      std::istringstream lines(found);
      for (std::string line; std::getline(lines, line);)
         os << "#    " << line << '\n';
   }
   os << scenarioLine(episode.settings, episode.path) << '\n';
   for (Scenario::Line const& line : episode.lines)
      os << scenarioLine(line) << '\n';
   os << R"({"after": 10, "expect": {"check": true}})" << '\n';
   return os.str();
}

std::map<std::string, std::uint64_t> linesByKind(SoakEpisode const& episode) {
   static constexpr char const* names[] = {"scenario", "route",  "withdraw", "link",  "bfd",
                                           "traffic",  "config", "counter",  "fault", "restart",
                                           "mark",     "show",   "expect"};
   static_assert(std::size(names) == std::variant_size_v<Scenario::Event>);
   std::map<std::string, std::uint64_t> kinds;
   for (Scenario::Line const& line : episode.lines)
      ++kinds[names[line.event.index()]];
   return kinds;
}

}  // namespace Agent
