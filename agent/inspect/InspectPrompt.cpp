#include "agent/inspect/InspectPrompt.h"

#include <fmt/format.h>
#include <unistd.h>

#include <cstdio>
#include <iostream>

#include "agent/input/LineSource.h"
#include "agent/input/PrintableText.h"
#include "agent/inspect/Inspector.h"
#include "agent/inspect/LineEditor.h"
#include "agent/process/Signals.h"
#include "agent/report/ErrorOutput.h"
#include "agent/report/ExitCode.h"
#include "agent/report/Output.h"

namespace Agent {

namespace {

// Runs commands and reports failed ones.
class Commands {
 public:
   Commands(Inspector& inspector, bool json) : inspector_(inspector), json_(json) {}

   // Returns false after `quit`.
   bool evaluate(std::string const& line) {
      auto const outcome = inspector_.evaluate(line);
      if (outcome == Inspector::Outcome::failed) {
         failed_ = true;
         if (!json_) printError(printable(inQuotes(line)) + ": " + inspector_.error());
      }
      return outcome != Inspector::Outcome::quit;
   }
   bool failed() const { return failed_; }

 private:
   Inspector& inspector_;
   bool const json_;
   bool failed_ = false;
};

// The lines of standard input. A signal ends them, also while a read waits.
class InputLines {
 public:
   InputLines() { source_.stopFdIs(interruptFd()); }

   bool read(std::string& line) {
      line.clear();
      auto got = source_.next();
      for (; got == LineSource::Result::part; got = source_.next())
         line += source_.text();
      if (got != LineSource::Result::line || interrupted()) return false;
      line += source_.text();
      return true;
   }

 private:
   LineSource source_{"-"};
};

// At a terminal: INT has ended one command, and the other signals end all.
bool goesOn(Inspector& inspector) {
   if (interruptSignal() != SIGINT) return !interrupted();
   inspector.printInterrupt(interruptName());
   forgetInterrupt();
   return true;
}

}  // namespace

InspectResult inspect(InspectedRun& run, InspectOptions const& options) {
   Inspector inspector(run, std::cout, options.format);
   Commands scripted(inspector, options.format.json);
   bool const prompts = options.inspect && LineEditor::possible();
   // An interrupt of the run that led here, at a terminal, leads to the prompt at once.
   bool go = !interrupted();
   if (prompts) goesOn(inspector);
   for (std::string const& eval : options.evals)
      go = go && scripted.evaluate(eval) && !interrupted();
   if (prompts && !interrupted()) {
      Commands typed(inspector, options.format.json);
      LineEditor editor([] { return fmt::format("{:.3f} s> ", Qor::now()); },
                        [&](std::string_view begun) { return inspector.complete(begun); });
      for (std::string line; editor.readLine(line) && typed.evaluate(line) && goesOn(inspector);) {
      }
   } else if (options.inspect && go) {
      InputLines input;
      for (std::string line; input.read(line) && scripted.evaluate(line) && !interrupted();) {
      }
   }
   bool const ended = interrupted();
   if (ended) inspector.printInterrupt(interruptName());
   return {outputWritten() && !scripted.failed(), inspector.changedByHand(), ended};
}

int exitAfter(InspectResult const& result, int code) {
   if (!result.changedByHand) return code;
   std::fflush(nullptr);
   _exit(outputWritten() ? code : exitFailed);
}

}  // namespace Agent
