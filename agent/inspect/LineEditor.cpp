#include "agent/inspect/LineEditor.h"

#include <histedit.h>
#include <poll.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <iostream>
#include <utility>

#include "agent/input/PrintableText.h"
#include "agent/process/Signals.h"

namespace Agent {

class LineEditor::Terminal {
 public:
   Terminal(Prompt prompt, Completer completer)
         : promptText_(std::move(prompt)),
           completer_(std::move(completer)),
           editor_(el_init("velmroute", stdin, stdout, stderr), el_end),
           history_(history_init(), history_end) {
      HistEvent event;
      constexpr int kept = 1000;
      history(history_.get(), &event, H_SETSIZE, kept);
      history(history_.get(), &event, H_SETUNIQUE, 1);
      EditLine* const el = editor_.get();
      el_set(el, EL_CLIENTDATA, this);
      el_set(el, EL_PROMPT, &Terminal::prompt);
      el_set(el, EL_GETCFN, &Terminal::readCharacter);
      el_set(el, EL_EDITOR, "emacs");
      el_set(el, EL_HIST, history, history_.get());
      // The narrow form would copy the texts, and never free them.
      el_wset(el, EL_ADDFN, L"complete", L"complete a command or a path", &Terminal::completes);
      el_set(el, EL_BIND, "^I", "complete", nullptr);
      el_set(el, EL_BIND, "^R", "em-inc-search-prev", nullptr);
   }

   // Returns false at the end of the input.
   bool readLine(std::string& line) {
      int count = 0;
      char const* text = editedLine(count);
      for (; interruptSignal() == SIGINT; text = editedLine(count)) {
         forgetInterrupt();
         std::cout << "^C\n" << std::flush;
      }
      if (!text || count <= 0 || interrupted()) return false;
      line.assign(text, static_cast<std::size_t>(count));
      while (!line.empty() && (line.back() == '\n' || line.back() == '\r'))
         line.pop_back();
      HistEvent event;
      if (!line.empty()) history(history_.get(), &event, H_ENTER, line.c_str());
      return true;
   }

 private:
   // The editor itself prepares the terminal behind the prompt only. The terminal would swallow a
   // Ctrl-D that a fast typist, or a program, sends between the two.
   char const* editedLine(int& count) {
      el_set(editor_.get(), EL_PREP_TERM, 1);
      return el_gets(editor_.get(), &count);
   }
   static Terminal& of(EditLine* el) {
      void* self = nullptr;
      el_get(el, EL_CLIENTDATA, &self);
      return *static_cast<Terminal*>(self);
   }
   static char* prompt(EditLine* el) {
      Terminal& self = of(el);
      self.prompt_ = self.promptText_();
      return self.prompt_.data();
   }
   // Reads a byte. A signal ends the read, and thereby the line, with -1.
   static int readCharacter(EditLine*, wchar_t* character) {
      pollfd waits[] = {{STDIN_FILENO, POLLIN, 0}, {interruptFd(), POLLIN, 0}};
      while (true) {
         int const ready = poll(waits, std::size(waits), -1);
         if (interrupted()) {
            errno = EINTR;
            return -1;
         }
         if (ready <= 0) continue;
         unsigned char byte = 0;
         ssize_t const size = read(STDIN_FILENO, &byte, 1);
         if (size < 0 && (errno == EINTR || errno == EAGAIN)) continue;
         *character = byte;
         return static_cast<int>(size);
      }
   }
   static unsigned char completes(EditLine* el, int) { return of(el).complete(); }

   // Adds the common beginning of all completions. If the line has that already, lists at most a
   // screenful of the completions.
   unsigned char complete() {
      LineInfo const* const info = el_line(editor_.get());
      std::string const line(info->buffer, info->cursor);
      Completion const found = completer_ ? completer_(line) : Completion();
      if (found.words.empty()) return CC_ERROR;
      std::string const typed = line.substr(found.at);
      if (found.common.size() > typed.size()) {
         el_deletestr(editor_.get(), static_cast<int>(typed.size()));
         return el_insertstr(editor_.get(), found.common.c_str()) == 0 ? CC_REFRESH : CC_ERROR;
      }
      if (found.words.size() + found.more == 1) return CC_NORM;
      std::size_t const listed = std::min(found.words.size(), screenful());
      std::cout << '\n';
      for (std::size_t i = 0; i < listed; ++i)
         std::cout << printable(found.words[i]) << '\n';
      if (std::size_t const more = found.words.size() - listed + found.more; more > 0)
         std::cout << "... " << more << " more\n";
      std::cout << std::flush;
      return CC_REDISPLAY;
   }

   // The lines of the terminal, without those of the old and the new prompt and of "more".
   static std::size_t screenful() {
      constexpr std::size_t usual = 24, others = 3;
      winsize size{};
      bool const known = ioctl(STDOUT_FILENO, TIOCGWINSZ, &size) == 0 && size.ws_row > 2 * others;
      return (known ? size.ws_row : usual) - others;
   }

   Prompt const promptText_;
   Completer const completer_;
   std::unique_ptr<EditLine, decltype(&el_end)> const editor_;
   std::unique_ptr<History, decltype(&history_end)> const history_;
   std::string prompt_;
};

bool LineEditor::possible() {
   return isatty(STDIN_FILENO) && isatty(STDOUT_FILENO);
}

LineEditor::LineEditor(Prompt prompt, Completer completer)
      : terminal_(std::make_unique<Terminal>(std::move(prompt), std::move(completer))) {}

LineEditor::~LineEditor() = default;

bool LineEditor::readLine(std::string& line) {
   return terminal_->readLine(line);
}

}  // namespace Agent
