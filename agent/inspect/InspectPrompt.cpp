#include "agent/inspect/InspectPrompt.h"

#include <fmt/format.h>
#include <unistd.h>

#include <cstdio>
#include <iostream>

#include "agent/input/PrintableText.h"
#include "agent/inspect/Inspector.h"
#include "agent/inspect/LineEditor.h"
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
         if (!json_) std::cerr << printable(inQuotes(line)) << ": " << inspector_.error() << '\n';
      }
      return outcome != Inspector::Outcome::quit;
   }
   bool failed() const { return failed_; }

 private:
   Inspector& inspector_;
   bool const json_;
   bool failed_ = false;
};

}  // namespace

InspectResult inspect(InspectedRun& run, InspectOptions const& options) {
   Inspector inspector(run, std::cout, options.format);
   Commands scripted(inspector, options.format.json);
   bool go = true;
   for (std::string const& eval : options.evals)
      go = go && scripted.evaluate(eval);
   if (options.inspect && go) {
      std::string line;
      if (LineEditor::possible()) {
         Commands typed(inspector, options.format.json);
         LineEditor editor([] { return fmt::format("{:.3f} s> ", Qor::now()); },
                           [&](std::string_view begun) { return inspector.complete(begun); });
         while (editor.readLine(line) && typed.evaluate(line)) {
         }
      } else {
         while (std::getline(std::cin, line) && scripted.evaluate(line)) {
         }
      }
   }
   return {outputWritten() && !scripted.failed(), inspector.changedByHand()};
}

int exitAfter(InspectResult const& result, int code) {
   if (!result.changedByHand) return code;
   std::fflush(nullptr);
   _exit(outputWritten() ? code : exitFailed);
}

}  // namespace Agent
