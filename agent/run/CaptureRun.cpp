#include "agent/run/CaptureRun.h"

#include <fmt/format.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <ctime>
#include <iostream>
#include <utility>

#include "agent/input/CaptureReader.h"
#include "agent/page/ReportFile.h"
#include "agent/report/ExitCode.h"
#include "agent/report/ForwardingCheck.h"
#include "agent/report/Output.h"
#include "agent/report/RunReport.h"
#include "agent/report/Summary.h"
#include "agent/report/TimelineFile.h"
#include "agent/run/Interrupt.h"
#include "agent/run/RunQueries.h"
#include "agent/switch/PlatformChoice.h"

namespace Agent {

namespace {

using SteadyClock = std::chrono::steady_clock;

// The processor time of the process, in which waiting for input does not count.
double processorSeconds() {
   timespec time{};
   clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &time);
   return static_cast<double>(time.tv_sec) + 1e-9 * static_cast<double>(time.tv_nsec);
}

class Progress {
 public:
   Progress() : shown_(isatty(STDERR_FILENO) != 0) {}
   ~Progress() { clear(); }
   Progress(Progress const&) = delete;
   Progress& operator=(Progress const&) = delete;

   void show(RunFigures const& figures, Switch const& theSwitch, double time) {
      if (!shown_) return;
      auto const now = SteadyClock::now();
      if (now - last_ < std::chrono::milliseconds(100)) return;
      last_ = now;
      written_ = true;
      fmt::print(stderr, "\r\x1b[K{} events, {:.1f} s of capture, {} routes, {} groups",
                 figures.events, time, theSwitch.programmer().routes(),
                 theSwitch.view().use(Table::group).used);
      std::fflush(stderr);
   }
   void clear() {
      if (written_) std::fputs("\r\x1b[K", stderr);
      written_ = false;
   }

 private:
   bool const shown_;
   bool written_ = false;
   SteadyClock::time_point last_{};
};

void count(RunFigures& figures, CaptureEvent const& event) {
   ++figures.events;
   if (auto const* route = std::get_if<MrouteEvent>(&event)) {
      ++figures.routeEvents;
      figures.deletions += route->deleted;
   } else if (std::holds_alternative<LinkEvent>(event)) {
      ++figures.linkEvents;
   } else {
      ++figures.snapshots;
      figures.snapshotRoutes += std::get<SnapshotEvent>(event).routes.size();
   }
   figures.captureSeconds = timeOf(event).time;
}

class Run final : public InspectedRun {
 public:
   explicit Run(RunOptions const& options) : options_(options), reader_(options.files) {}

   int run() {
      InterfaceMap intfMap;
      if (!options_.mapFile.empty()) {
         if (auto const error = intfMap.load(options_.mapFile)) return fail(*error);
      }
      auto const missing = CaptureReader::unreadable(options_.files);
      if (!missing.empty() && !options_.keepGoing) return fail(missing.front());

      double const began = processorSeconds();
      switch_ = std::make_unique<Switch>(
            options_.platform(options_.path.value_or(PathKind::async), {}), std::move(intfMap));
      ReportFile page(options_.reportFile, *switch_);
      page_ = &page;
      TimelineFile timeline(options_.timelineFile, *switch_, page.recorder());
      bool const replayed = options_.until ? runUntil(*options_.until) : runToEnd();
      if (options_.inspects() && replayed) {
         InspectResult const looked = query(*this, options_);
         bool const good =
               printHookFaults(*switch_) && timeline.finish() && looked.good && !stopped_;
         bool const written = writePage(good, {}, nullptr);
         return exitAfter(looked, good && written ? exitDone : exitFailed);
      }
      if (!timeline.finish() || !replayed) return exitFailed;
      figures_.processorSeconds = processorSeconds() - began;
      return report(*switch_);
   }

   Switch& theSwitch() override { return *switch_; }
   bool runUntil(Qor::Seconds time) override {
      if (!replay(time)) return false;
      switch_->runUntil(time);
      return true;
   }
   bool runToEnd() override {
      if (!replay(Qor::never)) return false;
      switch_->settle();
      return true;
   }
   Qor::Seconds nextInput() override {
      InterruptEndsInput const interrupt;
      reader_.stopFdIs(interrupt.fd());
      if (!readAhead()) return Qor::never;
      return timeOf(event_).time;
   }
   bool inMemory() const override { return ended_; }

 private:
   static constexpr std::size_t listedDifferences = 20;

   int fail(InputError const& error) {
      progress_.clear();
      std::cerr << error.toString() << '\n';
      return exitFailed;
   }

   // Applies the events up to and including this time. Returns false if a fault of the input
   // stopped the run.
   bool replay(Qor::Seconds until) {
      InterruptEndsInput const interrupt;
      reader_.stopFdIs(interrupt.fd());
      while (readAhead() && timeOf(event_).time <= until) {
         ahead_ = false;
         if (auto const error = apply(*switch_, event_)) {
            report(*error);
            continue;
         }
         count(figures_, event_);
         progress_.show(figures_, *switch_, reader_.time());
      }
      progress_.clear();
      figures_.lines = reader_.lines();
      figures_.skippedLines = reader_.skipped();
      figures_.clockSteps = reader_.clockSteps();
      return !stopped_;
   }

   // Reads the next event into event_, unless that has been done. Returns false at the end.
   bool readAhead() {
      while (!ahead_ && !ended_) {
         auto const result = reader_.next(event_);
         if (interrupted() || result == CaptureReader::Result::end) {
            ended_ = true;
         } else if (result == CaptureReader::Result::error) {
            report(reader_.error());
         } else {
            ahead_ = true;
         }
      }
      return ahead_ && !interrupted();
   }

   // Reports a fault of the input, which ends the run unless options_.keepGoing is set.
   void report(InputError const& error) {
      fail(error);
      ++figures_.badLines;
      if (!options_.keepGoing) stopped_ = ended_ = true;
   }

   std::optional<InputError> apply(Switch& theSwitch, CaptureEvent const& event) {
      try {
         theSwitch.apply(event);
      } catch (InterfaceMapFull const& full) {
         return InputError{reader_.where(), {}, full.what()};
      }
      capture_.apply(event);
      return std::nullopt;
   }

   int report(Switch& theSwitch) {
      // The check comes first, so that the printed tables count its packets.
      ForwardingCheck check;
      if (options_.check) check = checkForwarding(theSwitch, capture_);
      theSwitch.readBack();
      auto summary = summaryJson(figures_, theSwitch, options_.check ? &check : nullptr);
      printRunReport(options_.show, options_.format, theSwitch, summary);
      if (!check.passed()) printDifferences(check.differences);
      bool const good = printHookFaults(theSwitch) && check.passed();
      bool const written = writePage(good, check.differences, std::move(summary));
      return outputWritten() && written && good ? exitDone : exitFailed;
   }

   bool writePage(bool good, std::vector<std::string> notes, nlohmann::ordered_json summary) {
      return page_->finish({.kind = "capture",
                            .title = "Replay of captures",
                            .inputs = options_.files,
                            .result = interrupted() ? "interrupted"
                                      : good        ? "passed"
                                                    : "failed",
                            .notes = std::move(notes),
                            .summary = std::move(summary)});
   }

   static void printDifferences(std::vector<std::string> const& differences) {
      std::cerr << "check failed: the chip does not forward as the capture says\n";
      std::size_t const listed = std::min(differences.size(), listedDifferences);
      for (std::size_t i = 0; i < listed; ++i)
         std::cerr << "   " << differences[i] << '\n';
      if (listed < differences.size()) {
         std::cerr << "   and " << differences.size() - listed << " more: -j lists all\n";
      }
   }

   RunOptions const& options_;
   CaptureReader reader_;
   CaptureEvent event_;
   bool ahead_ = false;    // event_ is the next one
   bool ended_ = false;    // no more events will be read
   bool stopped_ = false;  // a fault of the input has ended the run
   CaptureState capture_;
   RunFigures figures_;
   Progress progress_;
   std::unique_ptr<Switch> switch_;
   ReportFile* page_ = nullptr;  // null before and after the run
};

}  // namespace

int runCaptures(RunOptions const& options) {
   return Run(options).run();
}

}  // namespace Agent
