// Reads lines from a terminal, with line editing, history and completion.
#pragma once

#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

namespace Agent {

class LineEditor {
 public:
   // The completions of the last word of an unfinished line. Each can replace that word.
   struct Completion {
      std::size_t at = 0;  // position of that word
      std::vector<std::string> words;
   };
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
