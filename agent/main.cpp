// The program's command line.
#include <fmt/format.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <csignal>
#include <iostream>
#include <utility>

#include "VelMroute/Version.h"
#include "agent/check/CheckCommand.h"
#include "agent/explain/RouteQuestion.h"
#include "agent/input/PrintableText.h"
#include "agent/input/Suggestion.h"
#include "agent/input/TraceOption.h"
#include "agent/live/AgentCommand.h"
#include "agent/live/ControlCommands.h"
#include "agent/report/ErrorOutput.h"
#include "agent/report/ExitCode.h"
#include "agent/report/JsonOptions.h"
#include "agent/report/Output.h"
#include "agent/report/Views.h"
#include "agent/run/RunCommand.h"
#include "agent/soak/SoakCommand.h"
#include "agent/switch/PlatformChoice.h"

namespace {

using Agent::CheckOptions;
using Agent::RunOptions;
using Agent::SoakOptions;

CLI::Validator chipSyntax() {
   return CLI::Validator([](std::string const& text) { return Agent::chipOptionFault(text); },
                         "groups=N,routes=N,boundaries=N,latency=S");
}

CLI::Validator viewSyntax() {
   return CLI::Validator(
         [](std::string const& text) -> std::string {
            try {
               Agent::viewRequest(text);
               return {};
            } catch (std::invalid_argument const& error) {
               return error.what();
            }
         },
         "");
}

CLI::Validator oneOf(std::vector<std::string> words) {
   std::string const description = fmt::format("{{{}}}", fmt::join(words, ","));
   return CLI::Validator(
         [words = std::move(words)](std::string const& text) {
            if (std::ranges::find(words, text) != words.end()) return std::string();
            return Agent::inQuotes(text) + " is not a value" + Agent::knownNames(text, words);
         },
         description);
}

// Values of the command line that are parsed after the whole command line is known to be valid.
struct Texts {
   std::string path;
   std::string platform;
   std::vector<std::string> traces;
   std::vector<std::string> shows;
   std::string vrf, iif;  // of a question
};

CLI::Option* addPlatform(CLI::App* command, std::string& text) {
   return command
         ->add_option("--platform", text,
                      "the chip: sim, sim-sync, or the file of a module: docs/platforms.md")
         ->type_name("NAME[:OPTIONS]");
}

// The options of the commands that play FILEs.
void addPlay(CLI::App* command, RunOptions& options, Texts& texts) {
   command->add_option("--map", options.mapFile,
                       "file that fixes the ports and vlans of interfaces");
   CLI::Option* const chip =
         command
               ->add_option("--chip", options.chipText,
                            "sizes of the chip's tables; latency of a write in seconds")
               ->check(chipSyntax());
   CLI::Option* const path =
         command
               ->add_option("--path", texts.path,
                            "path to the chip, async or sync (default: the path of the scenario, "
                            "or async)")
               ->check(oneOf({"async", "sync"}));
   addPlatform(command, texts.platform)->excludes(chip)->excludes(path);
   command->add_flag("--keep-going", options.keepGoing, "report malformed lines and read on");
}

CLI::Option* addUntil(CLI::App* command, RunOptions& options, std::string const& help) {
   return command->add_option("--until", options.until, help)
         ->check(CLI::Range(0.0, 1e9))
         ->type_name("SECONDS");
}

// Adds the options for files to the subcommand of the live agent.
void addExplainFiles(CLI::App* explain, RunOptions& options, Texts& texts) {
   explain->footer(
         "ROUTE is 10.0.0.2,239.1.1.1 or *,239.1.1.1. A GROUP lists the routes of all its "
         "sources.\n"
         "Without a FILE the live agent answers. With FILEs, captures or a scenario, the answer is "
         "about the\nswitch at their end, or at --until: docs/explain.md.\n"
         "Exit code: 0 done, 1 bad input or no agent answers, 2 bad usage.");
   addPlay(explain, options, texts);
   addUntil(explain, options, "explain at this time of the FILEs");
   explain->add_option("--vrf", texts.vrf, "explain the route of this VRF")->type_name("NAME");
   explain->add_option("--iif", texts.iif, "trace a packet that comes in by this interface")
         ->type_name("NAME");
}

// Takes the files off the words of `explain`: the words before the first one with which a question
// begins.
std::vector<std::string> takeFiles(std::vector<std::string>& words) {
   for (std::size_t files = 0; files < words.size(); ++files) {
      std::string question;
      for (std::size_t i = files; i < words.size(); ++i)
         question += words[i] + ' ';
      try {
         Agent::routeQuestion(question);
      } catch (Agent::QuestionError const&) {
         continue;
      }
      std::vector<std::string> const taken(words.begin(),
                                           words.begin() + static_cast<std::ptrdiff_t>(files));
      words.erase(words.begin(), words.begin() + static_cast<std::ptrdiff_t>(files));
      return taken;
   }
   // No word begins a question: the last one is misspelt, or there are files alone.
   Agent::routeQuestion(words.empty() ? "" : words.back());
   return {};
}

void addRun(CLI::App& app, RunOptions& options, Texts& texts) {
   CLI::App* run = app.add_subcommand(
         "run", "replay captures of multicast routes, or play a scenario, on a simulated switch");
   run->footer(
         "A FILE holds lines of `ip -ts -o monitor mroute link`, or the output of `ip -j mroute "
         "show`\n"
         "(IPv4 or -6) or of FRR's `show ip mroute vrf all json`, plain or gzip; - is standard "
         "input:\n"
         "   ip -ts -o monitor mroute link | velmroute run -\n"
         "A FILE that begins with '{' is a scenario, and must be the only FILE: "
         "docs/scenarios.md.\n"
         "Exit code: 0 done, 1 bad input, a failed check or failed output, 2 bad usage, 3 "
         "interrupted.");
   run->add_option("FILE", options.files, "captures, replayed one after another, or one scenario")
         ->required();
   addPlay(run, options, texts);
   run->add_option("--show", texts.shows,
                   "tables to print: routes, oifsets, zombies, chip; with words behind it, 'routes "
                   "group 239.1.0.0/16 state waiting', some of the routes")
         ->delimiter(',')
         ->allow_extra_args(false)
         ->type_name("VIEW,...")
         ->check(viewSyntax());
   Agent::addJsonOptions(*run, options.format, "print everything as one JSON object");
   run->add_flag("--check,!--no-check", options.check,
                 "compare the chip's forwarding with the end of the capture (on by default)");
   run->add_flag("--check-hooks", options.checkHooks,
                 "compare each call of the platform's hooks with their contract");
   run->add_flag("--strict", options.strict,
                 "fail if malformed lines were left out, or no wanted route is in hardware");
   run->add_flag("--inspect", options.inspect,
                 "query the switch by commands, in place of the summary: docs/inspect.md");
   run->add_option("--eval", options.evals, "run one such command; the command 'help' lists them")
         ->allow_extra_args(false)
         ->type_name("COMMAND");
   addUntil(run, options, "stop at this time for the commands");
   run->add_option("--timeline", options.timelineFile,
                   "file for the run as trace events, for a trace viewer")
         ->type_name("FILE");
   run->add_option("--report", options.reportFile,
                   "file for the run as a page for a browser: docs/report.md")
         ->type_name("FILE");
   run->add_option("--trace", texts.traces,
                   "print the traces up to LEVEL (0-9) of the trace handles that match GLOB")
         ->allow_extra_args(false)
         ->type_name("LEVEL[:GLOB]");
}

CLI::App* addSoak(CLI::App& app, SoakOptions& options, Texts& texts) {
   CLI::App* soak = app.add_subcommand(
         "soak",
         "play random scenarios with faults, and compare the switch with a model all the time");
   soak->footer(
         "Without a FILE the scenarios are random and follow from the seed. Otherwise the "
         "scenarios "
         "in\nFILE... are played under the same comparison. A fault is printed with the shortest "
         "scenario that\nreproduces it: docs/soak.md.\n"
         "Exit code: 0 no fault, 1 bad input or a fault, 2 bad usage, 3 interrupted.");
   soak->add_option("FILE", options.files, "scenarios to play in place of random ones");
   soak->add_option("--seed", options.seed, "seed of the first episode")->capture_default_str();
   soak->add_option("--ops", options.operations, "number of operations on each path")
         ->check(CLI::Range(std::uint64_t{1}, std::uint64_t{1'000'000'000}))
         ->capture_default_str();
   soak->add_option("--path", texts.path, "path to the chip, async or sync (default: both)")
         ->check(oneOf({"async", "sync"}));
   addPlatform(soak, texts.platform)->excludes("--path");
   soak->add_option("--replay", options.reproducerFile,
                    "file for the scenario that reproduces a fault")
         ->type_name("FILE");
   soak->add_flag("--sweep", options.sweep,
                  "play each FILE once for each call of a platform hook, and let that call fail");
   Agent::addJsonOptions(*soak, options.format, "print the summary as one JSON object");
   return soak;
}

CLI::App* addCheck(CLI::App& app, CheckOptions& options, std::string& platform) {
   CLI::App* check = app.add_subcommand(
         "check", "find mistakes in the hooks of a platform: packets, full tables, random lives");
   check->footer(
         "Each numbered check is passed, failed or left out, with the reason: docs/kit.md.\n"
         "Exit code: 0 no check failed, 1 a check failed, 2 bad usage, 3 interrupted.");
   addPlatform(check, platform)->capture_default_str();
   check->add_option("--seed", options.seed, "seed of the first random life")
         ->capture_default_str();
   check->add_option("--lives", options.lives, "number of random lives")->capture_default_str();
   check->add_option("--steps", options.steps, "number of steps of a random life")
         ->capture_default_str();
   check->add_option("--room", options.room,
                     "sets or entries after which the search for a full table ends")
         ->check(CLI::Range(2u, 1'000'000u))
         ->capture_default_str();
   check->add_option("--only", options.only, "checks to run, by id")->delimiter(',');
   CLI::Option* const tap =
         check->add_flag("--tap", options.tap, "print the Test Anything Protocol, version 13");
   Agent::addJsonOptions(*check, options.format, "print the results as one JSON object", tap);
   return check;
}

CLI::App* addAgent(CLI::App& app, Agent::AgentOptions& options) {
   CLI::App* agent = app.add_subcommand(
         "agent", "follow the kernel's multicast routes, and forward them by a software switch");
   agent->footer(
         "TERM and INT end the agent, and the switch forwards on; HUP reads FILE again: "
         "docs/live.md.\n"
         "Exit code: 0 done with --check-config, 1 faults in FILE or no access to the kernel, 2 "
         "bad "
         "usage,\n3 ended by a signal.");
   agent->add_option("--config", options.configFile, "configuration")
         ->type_name("FILE")
         ->capture_default_str();
   agent->add_flag(
         "--check-config", options.checkConfig,
         "report faults of FILE, interfaces without a port and routes without hardware, and end");
   agent->add_flag("--flush", options.flush, "clear the switch at the end");
   agent->add_option("--log", options.log, "level of the log, in place of that of FILE")
         ->check(oneOf({"error", "warning", "notice", "info", "debug"}));
   return agent;
}

// The error line for a wrong command line.
std::string usageText(std::string text) {
   std::replace(text.begin(), text.end(), '\n', ' ');
   return "velmroute: " + text + "; run with --help for more information\n";
}

// The error text for a first word that is no subcommand; empty for a subcommand or an option.
std::string unknownSubcommand(CLI::App const& app, int argc, char const* const* argv) {
   if (argc < 2 || argv[1][0] == '-') return {};
   std::vector<std::string> known;
   for (CLI::App const* const subcommand : app.get_subcommands({})) {
      if (subcommand->get_name() == argv[1]) return {};
      if (!subcommand->get_group().empty()) known.push_back(subcommand->get_name());
   }
   return Agent::inQuotes(argv[1]) + " is not a subcommand" + Agent::knownNames(argv[1], known);
}

// The error text for a long option that the parsed subcommand does not have, or empty.
std::string unknownOption(CLI::App const& app) {
   for (CLI::App const* const command : app.get_subcommands()) {
      for (std::string const& argument : command->remaining()) {
         std::string const option = argument.substr(0, argument.find('='));
         if (!option.starts_with("--") || option.size() == 2) continue;
         Agent::Suggestion suggestion(option);
         for (CLI::Option const* const known : command->get_options()) {
            for (std::string const& name : known->get_lnames())
               suggestion.offer("--" + name);
         }
         return Agent::inQuotes(option) + " is not an option of " + command->get_name() +
                suggestion.text();
      }
   }
   return {};
}

// Sets path and platform of a command.
template <class Options>
void choosePlatform(Texts const& texts, Options& options) {
   options.path = Agent::pathKindNamed(texts.path);
   if (texts.platform.empty()) return;
   Agent::NamedPlatform named = Agent::namedPlatform(texts.platform);
   options.path = named.path;
   options.platforms = std::move(named.source);
}

int runProgram(int argc, char** argv) {
   std::signal(SIGPIPE, SIG_IGN);  // if the reader of the output ends, a write fails instead
   CLI::App app("Programs multicast routes into the tables of a switch chip.", "velmroute");
   app.set_version_flag("--version", "velmroute " VELMROUTE_VERSION_STRING);
   app.require_subcommand(1);
   app.failure_message(
         [](CLI::App const*, CLI::Error const& error) { return usageText(error.what()); });
   RunOptions options;
   Texts texts;
   addRun(app, options, texts);
   SoakOptions soakOptions;
   Texts soakTexts;
   CLI::App const* const soak = addSoak(app, soakOptions, soakTexts);
   CheckOptions checkOptions;
   std::string checked = "sim";
   CLI::App const* const check = addCheck(app, checkOptions, checked);
   Agent::AgentOptions agentOptions;
   CLI::App const* const agent = addAgent(app, agentOptions);
   Agent::ControlCommands control(app);
   addExplainFiles(control.explain(), options, texts);
   if (auto const wrong = unknownSubcommand(app, argc, argv); !wrong.empty()) {
      Agent::printErrorText(usageText(wrong));
      return Agent::exitUsage;
   }
   try {
      app.parse(argc, argv);
   } catch (CLI::ParseError const& error) {
      if (auto const wrong = unknownOption(app); !wrong.empty()) {
         Agent::printError(wrong);
         return Agent::exitUsage;
      }
      if (app.exit(error) != 0) return Agent::exitUsage;
      return Agent::outputWritten() ? Agent::exitDone : Agent::exitFailed;
   }
   if (control.explain()->parsed()) {
      if (!texts.vrf.empty()) control.words().insert(control.words().end(), {"vrf", texts.vrf});
      if (!texts.iif.empty()) control.words().insert(control.words().end(), {"iif", texts.iif});
      try {
         options.files = takeFiles(control.words());
      } catch (Agent::QuestionError const& error) {
         Agent::printError(error.what());
         return Agent::exitUsage;
      }
      if (options.files.empty()) return *control.run();
      std::string question;
      for (std::string const& word : control.words())
         question += word + ' ';
      options.question = Agent::routeQuestion(question);
      options.format = control.format();
   } else if (auto const code = control.run()) {
      return *code;
   }
   if (soak->parsed()) {
      choosePlatform(soakTexts, soakOptions);
      return Agent::runSoak(soakOptions);
   }
   if (agent->parsed()) return Agent::runAgent(agentOptions);
   if (check->parsed()) {
      checkOptions.platform = Agent::namedPlatform(checked);
      return Agent::runCheck(checkOptions);
   }
   if (options.until && !options.inspects()) {
      Agent::printError("--until stops the run for commands, so it needs --inspect or --eval");
      return Agent::exitUsage;
   }
   choosePlatform(texts, options);
   for (std::string const& show : texts.shows)
      options.show.push_back(Agent::viewRequest(show));
   if (!options.format.json) options.format.width = Agent::terminalWidth();
   for (std::string const& trace : texts.traces) {
      if (auto const wrong = Agent::applyTraceOption(trace)) {
         Agent::printError(*wrong);
         return Agent::exitUsage;
      }
   }
   return Agent::runFiles(options);
}

}  // namespace

int main(int argc, char** argv) {
   try {
      return runProgram(argc, argv);
   } catch (std::exception const& error) {
      Agent::printError(error.what());
      return Agent::exitFailed;
   }
}
