// The commands by which a run is looked at and driven: `help` lists them. One line is one command;
// what comes of it is written to an output, as text for people or as JSON, one line for each
// command and for each change that is watched.
//
// A command that cannot be done changes nothing and says why, in one line. Operations and
// attributes are the library's own, with its preconditions: `set` and `call` are tried in a copy of
// the process before, and refused with the assertion's text where they would end the agent. Once
// one of them has changed something, `run` and `step` are tried likewise, unless input is read from
// files meanwhile, which can be read only once.
#pragma once

#include <functional>
#include <ostream>
#include <string>
#include <string_view>
#include <vector>

#include "agent/inspect/InspectTree.h"
#include "agent/inspect/InspectWatch.h"
#include "agent/inspect/InspectWords.h"
#include "agent/inspect/InspectedRun.h"

namespace Agent {

class Inspector {
 public:
   enum class Outcome { done, failed, quit };

   static constexpr std::size_t screenful = 20;       // members that ls shows
   static constexpr std::size_t longestLine = 65536;  // bytes of a command

   // Both outlive the inspector.
   Inspector(InspectedRun& run, std::ostream& out, bool json);

   // Does what a line says; an empty line and a comment (#) say nothing. After Outcome::failed
   // error() is why.
   Outcome evaluate(std::string_view line);
   std::string const& error() const { return error_; }

   // What the last word of an unfinished line may become: words that take the place of it.
   struct Completion {
      std::size_t at = 0;  // where that word begins
      std::vector<std::string> words;
   };
   Completion complete(std::string_view line) const;

   // Whether `set` or `call` has changed anything: the library's records need not agree with their
   // users any more, so that taking everything out again may fail.
   bool changedByHand() const { return changed_; }

 private:
   using Words = std::vector<Word>;
   struct Command {
      char const* name;
      char const* usage;  // behind the name
      std::size_t least, most;
      char const* help;
      void (Inspector::*run)(Words const&);
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
   void explain(Words const& words);
   void goOn(Words const& words);
   void step(Words const& words);
   void quit(Words const&) { quit_ = true; }

   EntityTree tree() { return EntityTree(run_.simulated().roots()); }
   Qor::Generic argument(EntityTree const& tree, Word const& word) const;
   void change(std::function<void()> const& doIt);
   void advance(std::function<void()> const& doIt);
   void tell(nlohmann::ordered_json const& event);
   void say(nlohmann::ordered_json const& json, std::string const& text);
   void sayTime();

   InspectedRun& run_;
   std::ostream& out_;
   bool const json_;
   InspectWatches watches_;
   std::string line_;  // that is evaluated
   std::string error_;
   bool quit_ = false;
   bool changed_ = false;
};

}  // namespace Agent
