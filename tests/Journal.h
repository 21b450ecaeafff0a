// A journal, in one order, of the traces, the ring trace and the log that the library emits while
// the journal exists, and of the lines that a test adds.
#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <iterator>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

#include "Qor/Blip.h"
#include "Qor/Log.h"
#include "Qor/Trace.h"

namespace testSupport {

template <class... Parts>
std::string cat(Parts const&... parts) {
   std::ostringstream out;
   (out << ... << parts);
   return out.str();
}

// Lines "<level> <trace text>", "blip <text>" and "log <severity> <name>: <text>", and the lines of
// a test, such as "hook <name>".
class Journal : public Qor::TraceSink, public Qor::LogSink {
 public:
   using Lines = std::vector<std::string>;

   // All traces come from the source of this name, by this handle.
   explicit Journal(char const* source, char const* handle = "VelMroute")
         : source_(source),
           handle_(handle),
           traceBefore_(Qor::traceSinkIs(this)),
           logBefore_(Qor::logSinkIs(this)) {
      Qor::traceLevelIs(9, handle_);
   }
   ~Journal() override {
      Qor::logSinkIs(logBefore_);
      Qor::traceLevelIs(-1, handle_);
      Qor::traceSinkIs(traceBefore_);
   }
   void add(std::string line) {
      addBlips();
      lines_.push_back(std::move(line));
   }
   void trace(Qor::TraceRecord const& record) override {
      EXPECT_EQ(record.handle, handle_);
      EXPECT_EQ(record.source, source_);
      add(cat(record.level, ' ', record.message));
   }
   void log(Qor::LogMessage const& m, std::string const& text) override {
      add(cat("log ", m.severity, ' ', m.name, ": ", text));
   }
   // All since the last take().
   Lines take() {
      addBlips();
      return std::exchange(lines_, {});
   }
   // The same as a text, with a line break before and behind each line.
   std::string text() {
      std::string all = "\n";
      for (std::string const& line : take())
         all += line + '\n';
      return all;
   }
   long count(std::string const& line) {
      addBlips();
      return std::count(lines_.begin(), lines_.end(), line);
   }
   // The lines that begin with the text.
   Lines like(std::string const& start) {
      addBlips();
      Lines found;
      std::copy_if(lines_.begin(), lines_.end(), std::back_inserter(found),
                   [&](std::string const& line) { return line.starts_with(start); });
      return found;
   }

 private:
   void addBlips() {
      while (blips_ < Qor::blip().written())
         lines_.push_back("blip " + Qor::blip().text(Qor::blip().written() - ++blips_));
   }

   std::string const source_;
   std::string const handle_;
   Qor::TraceSink* const traceBefore_;
   Qor::LogSink* const logBefore_;
   Lines lines_;
   Qor::U64 blips_ = Qor::blip().written();
};

}  // namespace testSupport
