// The program's command line.
#include <CLI/CLI.hpp>
#include <csignal>
#include <iostream>

#include "agent/input/TraceOption.h"
#include "agent/report/ExitCode.h"
#include "agent/report/Output.h"
#include "agent/run/RunCommand.h"
#include "agent/soak/SoakCommand.h"
#include "agent/switch/ChipOption.h"

namespace {

using Agent::RunOptions;
using Agent::SoakOptions;

CLI::Validator chipSyntax() {
   return CLI::Validator(
         [](std::string& text) {
            Sim::ChipConfig scratch;
            return Agent::parseChipOption(text, scratch).value_or("");
         },
         "groups=N,routes=N,boundaries=N,latency=S");
}

// What the command line says as text, until it is known to be whole.
struct Texts {
   std::string path;
   std::vector<std::string> traces;
   std::vector<std::string> shows;
};

void addRun(CLI::App& app, RunOptions& options, Texts& texts) {
   CLI::App* run = app.add_subcommand(
         "run", "replay captures of multicast routes, or play a scenario, on a simulated switch");
   run->footer(
         "A FILE holds lines of `ip -ts -o monitor mroute link`, or the output of `ip -j mroute "
         "show`\n"
         "(IPv4 or -6), plain or gzip; - is standard input:\n"
         "   ip -ts -o monitor mroute link | velmroute run -\n"
         "A FILE that begins with '{' is a scenario, and stands alone: docs/scenarios.md.\n"
         "Exit code: 0 done, 1 bad input or a failed check, 2 bad usage.");
   run->add_option("FILE", options.files, "captures, replayed one after another, or one scenario")
         ->required();
   run->add_option("--map", options.mapFile, "fixes the ports and vlans of interfaces");
   run->add_option("--chip", options.chipText,
                   "sizes the chip; latency is that of a write, in seconds")
         ->check(chipSyntax());
   run->add_option("--path", texts.path,
                   "how the chip is programmed: async (default, unless a scenario is for the "
                   "other) or sync")
         ->check(CLI::IsMember({"async", "sync"}));
   run->add_option("--show", texts.shows, "tables to print: routes, oifsets, zombies, chip")
         ->delimiter(',')
         ->allow_extra_args(false)
         ->check(CLI::IsMember({"routes", "oifsets", "zombies", "chip"}));
   run->add_flag("-j,--json", options.json, "print everything as one JSON object");
   run->add_flag("--check,!--no-check", options.check,
                 "compare what the chip forwards with the capture's end (on by default)");
   run->add_flag("--keep-going", options.keepGoing, "report malformed lines and go on");
   run->add_flag("--inspect", options.inspect,
                 "look at the switch by commands, in place of the summary: docs/inspect.md");
   run->add_option("--eval", options.evals, "do one such command: 'help' lists them")
         ->allow_extra_args(false)
         ->type_name("COMMAND");
   run->add_option("--until", options.until, "stand still at this time, to look and to go on")
         ->check(CLI::Range(0.0, 1e9))
         ->type_name("SECONDS");
   run->add_option("--timeline", options.timelineFile,
                   "write the run as trace events, for a trace viewer")
         ->type_name("FILE");
   run->add_option("--trace", texts.traces,
                   "trace up to LEVEL (0-9) of the handles that match GLOB")
         ->allow_extra_args(false)
         ->type_name("LEVEL[:GLOB]");
}

CLI::App* addSoak(CLI::App& app, SoakOptions& options, std::string& path) {
   CLI::App* soak = app.add_subcommand(
         "soak",
         "play random scenarios with faults, and compare the switch with a model throughout");
   soak->footer(
         "Without a FILE the scenarios are random, and follow from the seed. With scenarios, these "
         "are\nplayed under the same comparison. What is found is printed with the shortest replay "
         "that was\ncome by, a scenario: docs/soak.md.\n"
         "Exit code: 0 nothing found, 1 bad input or something found, 2 bad usage.");
   soak->add_option("FILE", options.files, "scenarios to play instead of random ones");
   soak->add_option("--seed", options.seed, "of the first episode")->capture_default_str();
   soak->add_option("--ops", options.operations, "operations on each path")
         ->check(CLI::Range(std::uint64_t{1}, std::uint64_t{1'000'000'000}))
         ->capture_default_str();
   soak->add_option("--path", path, "async or sync; both unless given")
         ->check(CLI::IsMember({"async", "sync"}));
   soak->add_option("--replay", options.replayFile, "where to write the replay of what was found")
         ->type_name("FILE");
   soak->add_flag("--sweep", options.sweep,
                  "play each FILE once for each call of a platform hook, which fails");
   soak->add_flag("-j,--json", options.json, "print the summary as one JSON object");
   return soak;
}

// What is wrong with a first word that is no subcommand; empty when there is none.
std::string unknownSubcommand(CLI::App const& app, int argc, char const* const* argv) {
   if (argc < 2 || argv[1][0] == '-') return {};
   std::string known;
   for (CLI::App const* const subcommand : app.get_subcommands({})) {
      if (subcommand->get_name() == argv[1]) return {};
      known += (known.empty() ? "" : ", ") + subcommand->get_name();
   }
   return '"' + std::string(argv[1]) + "\" is no subcommand (known: " + known + ')';
}

}  // namespace

int main(int argc, char** argv) {
   std::signal(SIGPIPE, SIG_IGN);  // a reader of the output that goes is a failed write
   CLI::App app("Carries multicast routes onto a switch chip.", "velmroute");
   app.set_version_flag("--version", "velmroute " VELMROUTE_VERSION);
   app.require_subcommand(1);
   RunOptions options;
   Texts texts;
   addRun(app, options, texts);
   SoakOptions soakOptions;
   std::string soakPath;
   CLI::App const* const soak = addSoak(app, soakOptions, soakPath);
   if (auto const wrong = unknownSubcommand(app, argc, argv); !wrong.empty()) {
      std::cerr << wrong << "\nRun with --help for more information.\n";
      return Agent::exitUsage;
   }
   try {
      app.parse(argc, argv);
   } catch (CLI::ParseError const& error) {
      if (app.exit(error) != 0) return Agent::exitUsage;
      return Agent::outputWritten() ? Agent::exitDone : Agent::exitFailed;
   }
   if (soak->parsed()) {
      soakOptions.path = Agent::pathNamed(soakPath);
      return Agent::runSoak(soakOptions);
   }
   if (options.until && !options.inspects()) {
      std::cerr << "--until stands still to look at the switch: it needs --inspect or --eval\n";
      return Agent::exitUsage;
   }
   options.path = Agent::pathNamed(texts.path);
   for (std::string const& show : texts.shows)
      options.show.push_back(*Agent::viewNamed(show));
   for (std::string const& trace : texts.traces) {
      if (auto const wrong = Agent::applyTraceOption(trace)) {
         std::cerr << *wrong << '\n';
         return Agent::exitUsage;
      }
   }
   return Agent::runFiles(options);
}
