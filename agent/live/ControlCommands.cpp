#include "agent/live/ControlCommands.h"

#include <algorithm>
#include <iostream>
#include <nlohmann/json.hpp>
#include <sstream>
#include <utility>

#include "agent/inspect/LineEditor.h"
#include "agent/live/ControlClient.h"
#include "agent/process/Signals.h"
#include "agent/report/ErrorOutput.h"
#include "agent/report/ExitCode.h"
#include "agent/report/JsonOptions.h"
#include "agent/report/Output.h"
#include "agent/report/RouteFilter.h"

namespace Agent {

namespace {

// The command for a line of the prompt, which takes the commands of the inspector and two others.
std::string commandAtPrompt(std::string_view line) {
   bool const own = line.starts_with("show ") || line.starts_with("explain ");
   return (own ? "" : "inspect ") + std::string(line);
}

constexpr char const* exitCodes =
      "Exit code: 0 done, 1 the command failed or no agent answers, 2 bad usage.";

}  // namespace

ControlCommands::ControlCommands(CLI::App& app) : socket_(defaultControlPath) {
   CLI::App* const show = add(app, "show", "print a table of the live agent");
   show->add_option("VIEW", words_,
                    "routes, interfaces, status, oifsets, zombies, chip (default: routes)");
   show->footer(std::string("Routes are selected by words behind VIEW:\n   routes ") +
                RouteFilter::usage + "\nSTATE: offloaded, pending, waiting, failed, trapped.\n" +
                exitCodes);
   explain_ = add(app, "explain", "trace a packet of a route, and print what is wrong with it");
   explain_->add_option("ROUTE", words_, "[FILE...] SOURCE,GROUP or GROUP, [vrf NAME] [iif NAME]")
         ->required();
   add(app, "inspect",
       "run a command of docs/inspect.md in the live agent, or the commands of the input")
         ->add_option("COMMAND", words_, "the command; 'help' lists them");
   add(app, "complete", "print the completions of a command line")
         ->group("")  // for the shell
         ->add_option("LINE", words_)
         ->required();
   add(app, "watch", "print the changes of objects of the live agent, until it is interrupted")
         ->add_option("PATH", words_, "paths of docs/inspect.md")
         ->required();
}

CLI::App* ControlCommands::add(CLI::App& app, std::string const& name, std::string const& help) {
   CLI::App* const command = app.add_subcommand(name, help);
   command->footer(exitCodes);
   command->add_option("--control", socket_, "control socket of the agent")
         ->type_name("SOCKET")
         ->capture_default_str();
   addJsonOptions(*command, format_, "print JSON");
   commands_.push_back(command);
   return command;
}

std::optional<int> ControlCommands::run() const {
   for (CLI::App const* const command : commands_) {
      if (!command->parsed()) continue;
      std::string line = command->get_name();
      if (line == "inspect" && words_.empty()) return prompt();
      if (line == "show" && words_.empty()) line += " routes";
      for (std::string const& word : words_)
         line += ' ' + word;
      return ask(line);
   }
   return std::nullopt;
}

// Prints text of the agent as it comes. JSON that is to be indented waits for the end of its line.
bool ControlCommands::print(std::string_view text, std::string& line) const {
   if (format_.style == JsonStyle::compact)
      return static_cast<bool>(std::cout << text << std::flush);
   for (std::size_t end = text.find('\n'); end != std::string_view::npos; end = text.find('\n')) {
      line += text.substr(0, end);
      printJson(std::cout, nlohmann::ordered_json::parse(line), format_.style);
      line.clear();
      text.remove_prefix(end + 1);
   }
   line += text;
   return static_cast<bool>(std::cout.flush());
}

int ControlCommands::ask(std::string const& command) const {
   OutputFormat format = format_;
   format.width = terminalWidth();
   std::string line;
   try {
      std::string fault;
      bool const good = askAgent(
            socket_, command, format, [&](std::string_view text) { return print(text, line); },
            [&](std::string_view text) {
               fault += text;
               return true;
            });
      if (format.json) {
         printErrorText(fault);
      } else if (!fault.empty()) {
         printError(fault.substr(0, fault.find_last_not_of('\n') + 1));
      }
      return outputWritten() && good ? exitDone : exitFailed;
   } catch (std::runtime_error const& error) {
      printError(error.what());
      return exitFailed;
   }
}

// The agent's answer to "complete LINE" has one completion in each line. Without an agent there is
// none.
Completion ControlCommands::completion(std::string_view line) const {
   std::string words;
   auto const collect = [&](std::string_view text) {
      words += text;
      return true;
   };
   auto const ignore = [](std::string_view) { return true; };
   CompletionList list(line);
   try {
      askAgent(socket_, "complete " + commandAtPrompt(line), {}, collect, ignore);
   } catch (std::runtime_error const&) {
      words.clear();
   }
   std::istringstream lines(words);
   for (std::string word; std::getline(lines, word);)
      list.add(word);
   return std::move(list).take();
}

// Each line is a command of a connection of its own. A failed command of a pipe fails the program.
int ControlCommands::prompt() const {
   bool const typed = LineEditor::possible();
   // At a terminal INT ends one command, or cancels the line.
   std::optional<Signals> signals;
   if (typed) signals.emplace();
   std::optional<LineEditor> editor;
   if (typed) {
      editor.emplace([] { return std::string("agent> "); },
                     [this](std::string_view line) { return completion(line); });
   }
   int code = exitDone;
   std::string line;
   while (editor ? editor->readLine(line) : static_cast<bool>(std::getline(std::cin, line))) {
      std::size_t const first = line.find_first_not_of(" \t\r");
      if (first == std::string::npos || line[first] == '#') continue;
      std::string const command = line.substr(first, line.find_last_not_of(" \t\r") + 1 - first);
      if (command == "quit") break;
      if (ask(commandAtPrompt(command)) != exitDone && !typed) code = exitFailed;
      if (interruptSignal() == SIGINT) forgetInterrupt();
      if (interrupted()) break;
   }
   return exitCode(code == exitDone, interrupted());
}

}  // namespace Agent
