// Reads lines from a terminal, with line editing, history and completion.
#pragma once

#include <functional>
#include <memory>
#include <string>
#include <string_view>

#include "agent/inspect/Completion.h"

namespace Agent {

class LineEditor {
 public:
   using Prompt = std::function<std::string()>;
   using Completer = std::function<Completion(std::string_view line)>;

   // Whether standard input and standard output are a terminal.
   static bool possible();

   // A prompt is printed for each line. Without a completer nothing is completed.
   explicit LineEditor(Prompt prompt, Completer completer = {});
   ~LineEditor();
   LineEditor(LineEditor const&) = delete;
   LineEditor& operator=(LineEditor const&) = delete;

   // Returns false at the end of the input (Ctrl-D), and after TERM or HUP (agent/process/Signals.h)
   // if these are noted. INT (Ctrl-C) then cancels the line, and a new prompt is printed.
   bool readLine(std::string& line);

 private:
   class Terminal;

   std::unique_ptr<Terminal> const terminal_;
};

}  // namespace Agent
