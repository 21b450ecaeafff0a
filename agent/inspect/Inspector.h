// The commands that query and continue a run; the command `help` lists them. Each line is a
// command. The result is printed as text, or as JSON with one line for each command and for each
// change of a watched object.
//
// A command that fails changes nothing and reports the reason in one line. `set` and `call` reach
// the library's attributes and operations, which have preconditions. Both are therefore tried in a
// copy of the process first, and are refused with the text of the assertion if the copy ends. After
// such a change, `run` and `step` are tried in the same way, unless they read input from files,
// which can be read only once.
#pragma once

#include <functional>
#include <ostream>
#include <string>
#include <string_view>
#include <vector>

#include "agent/inspect/Completion.h"
#include "agent/inspect/InspectTree.h"
#include "agent/inspect/InspectWatch.h"
#include "agent/inspect/InspectWords.h"
#include "agent/inspect/InspectedRun.h"
#include "agent/report/OutputFormat.h"

namespace Agent {

class Inspector {
 public:
   enum class Outcome { done, failed, quit };

   static constexpr std::size_t screenful = 20;       // members that ls prints
   static constexpr std::size_t longestLine = 65536;  // bytes of a command, at most

   // The commands for a live agent only read.
   enum class Rights { all, reading };

   // Run and output outlive the inspector.
   Inspector(InspectedRun& run, std::ostream& out, OutputFormat format,
             Rights rights = Rights::all);

   // Runs the command of a line. Empty lines and comments (#) have no effect. After
   // Outcome::failed, error() is the reason.
   Outcome evaluate(std::string_view line);
   std::string const& error() const { return error_; }
   // Prints that a signal has ended the commands at the present time, or the present command.
   void printInterrupt(std::string const& signal);

   // The completions of the last word of an unfinished line; `limit` bounds Completion::words.
   Completion complete(std::string_view line, std::size_t limit = CompletionList::most) const;

   // Whether `set` or `call` has changed the switch. The library's records may then disagree with
   // their users, so that the destruction of the switch may fail an assertion.
   bool changedByHand() const { return changed_; }

 private:
   using Words = std::vector<Word>;
   struct Command {
      char const* name;
      char const* usage;  // the text behind the name
      std::size_t least, most;
      char const* help;
      void (Inspector::*run)(Words const&);
      bool changes = false;  // the process, and not only what the inspector prints
   };
   static std::vector<Command> const& commands();
   static Command const& command(std::string const& name);

   void help(Words const& words);
   void ls(Words const& words);
   void get(Words const& words);
   void set(Words const& words);
   void call(Words const& words);
   void watch(Words const& words);
   void unwatch(Words const& words);
   void types(Words const& words);
   void trace(Words const& words);
   void show(Words const& words);
   void explain(Words const& words);
   void goOn(Words const& words);
   void step(Words const& words);
   void quit(Words const&) { quit_ = true; }

   EntityTree tree() { return EntityTree(run_.theSwitch().roots()); }
   Qor::Generic argument(EntityTree const& tree, Word const& word) const;
   void change(std::function<void()> const& doIt);
   void advance(std::function<void()> const& doIt);
   void printEvent(nlohmann::ordered_json const& event);
   void printResult(nlohmann::ordered_json const& json, std::string const& text);
   void print(nlohmann::ordered_json const& json, std::string const& text);
   void printTime();

   InspectedRun& run_;
   std::ostream& out_;
   OutputFormat const format_;
   Rights const rights_;
   InspectWatches watches_;
   std::string line_;  // the present command
   std::string error_;
   bool quit_ = false;
   bool changed_ = false;
};

}  // namespace Agent
