// The commands that ask a live agent over its control socket: show, explain, inspect, watch.
#pragma once

#include <CLI/CLI.hpp>
#include <optional>
#include <string>
#include <vector>

#include "agent/inspect/Completion.h"
#include "agent/report/OutputFormat.h"

namespace Agent {

class ControlCommands {
 public:
   // Adds the subcommands to the command line, which this object outlives.
   explicit ControlCommands(CLI::App& app);
   ControlCommands(ControlCommands const&) = delete;
   ControlCommands& operator=(ControlCommands const&) = delete;

   // The subcommand explain, and its words.
   CLI::App* explain() const { return explain_; }
   std::vector<std::string>& words() { return words_; }
   OutputFormat const& format() const { return format_; }

   // After the command line is parsed: runs the subcommand, if it is one of these, and returns the
   // exit code.
   std::optional<int> run() const;

 private:
   CLI::App* add(CLI::App& app, std::string const& name, std::string const& help);
   bool print(std::string_view text, std::string& line) const;
   int ask(std::string const& command) const;
   int prompt() const;
   Completion completion(std::string_view line) const;

   std::string socket_;
   std::vector<std::string> words_;
   OutputFormat format_;
   std::vector<CLI::App const*> commands_;
   CLI::App* explain_ = nullptr;
};

}  // namespace Agent
