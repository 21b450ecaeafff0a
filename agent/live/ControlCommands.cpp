#include "agent/live/ControlCommands.h"

#include <algorithm>
#include <iostream>

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

constexpr char const* exitCodes =
      "Exit code: 0 done, 1 the command failed or no agent answers, 2 bad usage.";

}  // namespace

ControlCommands::ControlCommands(CLI::App& app) : socket_(defaultControlPath) {
   add(app, "show", "print a table of the live agent")
         ->add_option("VIEW", words_,
                      "routes, interfaces, status, oifsets, zombies, chip (default: routes)")
         ->expected(0, 1);
   add(app, "explain", "print the state of a route of the live agent, with reasons")
         ->add_option("ROUTE", words_, "SOURCE,GROUP [vrf NAME]")
         ->required();
   add(app, "inspect",
       "run a command of docs/inspect.md in the live agent, or the commands of the input")
         ->add_option("COMMAND", words_, "the command; 'help' lists them");
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

// Each line is a command of a connection of its own. A failed command of a pipe fails the program.
int ControlCommands::prompt() const {
   bool const typed = LineEditor::possible();
   // At a terminal INT ends one command, or cancels the line.
   std::optional<Signals> signals;
   if (typed) signals.emplace();
   std::optional<LineEditor> editor;
   if (typed) editor.emplace([] { return std::string("agent> "); });
   int code = exitDone;
   std::string line;
   while (editor ? editor->readLine(line) : static_cast<bool>(std::getline(std::cin, line))) {
      std::size_t const first = line.find_first_not_of(" \t\r");
      if (first == std::string::npos || line[first] == '#') continue;
      std::string const command = line.substr(first, line.find_last_not_of(" \t\r") + 1 - first);
      if (command == "quit") break;
      if (ask("inspect " + command) != exitDone && !typed) code = exitFailed;
      if (interruptSignal() == SIGINT) forgetInterrupt();
      if (interrupted()) break;
   }
   return exitCode(code == exitDone, interrupted());
}

}  // namespace Agent
