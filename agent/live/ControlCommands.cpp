#include "agent/live/ControlCommands.h"

#include <algorithm>
#include <iostream>
#include <sstream>
#include <utility>

#include "agent/inspect/LineEditor.h"
#include "agent/live/ControlClient.h"
#include "agent/process/Signals.h"
#include "agent/report/ErrorOutput.h"
#include "agent/report/ExitCode.h"
#include "agent/report/Output.h"

namespace Agent {

namespace {

bool print(std::string_view text) {
   return static_cast<bool>(std::cout << text << std::flush);
}

// The command for a line of the prompt, which takes the commands of the inspector and two others.
std::string commandAtPrompt(std::string_view line) {
   bool const own = line.starts_with("show ") || line.starts_with("explain ");
   return (own ? "" : "inspect ") + std::string(line);
}

constexpr char const* exitCodes =
      "Exit code: 0 done, 1 the command failed or no agent answers, 2 bad usage.";

}  // namespace

ControlCommands::ControlCommands(CLI::App& app) : socket_(defaultControlPath) {
   add(app, "show", "print a table of the live agent")
         ->add_option("VIEW", words_,
                      "routes, interfaces, status, oifsets, zombies, chip (default: routes)")
         ->expected(0, 1);
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
   command->add_flag("-j,--json", json_, "print JSON");
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

int ControlCommands::ask(std::string const& command) const {
   try {
      std::string fault;
      bool const good = askAgent(socket_, command, json_, print, [&](std::string_view text) {
         fault += text;
         return true;
      });
      if (json_) {
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
