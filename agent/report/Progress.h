// The progress line of a command on standard error, if that is a terminal.
//
// The line is cleared before any other output of the process appears: errors (printError()),
// traces, log messages, and text on std::cout. At most one object lives at a time.
#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <string_view>

namespace Agent {

class Progress {
 public:
   Progress();
   ~Progress();
   Progress(Progress const&) = delete;
   Progress& operator=(Progress const&) = delete;

   // Whether standard error is a terminal. Otherwise the other operations have no effect.
   bool shown() const { return shown_; }
   // Prints the line that `text` returns, at most ten times a second, as wide as the terminal.
   void show(std::function<std::string()> const& text);
   // The same with shareText() and the time since the start of this object.
   void show(std::uint64_t done, std::uint64_t total, std::string_view unit);
   void clear();

   // Clears the line of the object that lives, if any.
   static void clearPresent();

   // "12,300 of 100,000 operations (12 %), 45 s left". The estimate supposes that the rest takes as
   // long for each unit as the work so far, and is left out in the first second.
   static std::string shareText(std::uint64_t done, std::uint64_t total, std::string_view unit,
                                double seconds);

 private:
   using SteadyClock = std::chrono::steady_clock;
   class Outputs;

   bool const shown_;
   bool written_ = false;
   SteadyClock::time_point const began_ = SteadyClock::now();
   SteadyClock::time_point last_{};
   std::unique_ptr<Outputs> outputs_;
};

}  // namespace Agent
