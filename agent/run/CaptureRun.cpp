#include "agent/run/CaptureRun.h"

#include <fmt/format.h>

#include <algorithm>
#include <ctime>
#include <filesystem>
#include <nlohmann/json.hpp>
#include <utility>

#include "agent/input/CaptureReader.h"
#include "agent/page/ReportFile.h"
#include "agent/process/Signals.h"
#include "agent/report/ErrorOutput.h"
#include "agent/report/ExitCode.h"
#include "agent/report/ForwardingCheck.h"
#include "agent/report/Output.h"
#include "agent/report/Progress.h"
#include "agent/report/RunReport.h"
#include "agent/report/Shortfalls.h"
#include "agent/report/Summary.h"
#include "agent/report/TimelineFile.h"
#include "agent/run/RunQueries.h"
#include "agent/switch/PlatformChoice.h"

namespace Agent {

namespace {

// The processor time of the process, in which waiting for input does not count.
double processorSeconds() {
   timespec time{};
   clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &time);
   return static_cast<double>(time.tv_sec) + 1e-9 * static_cast<double>(time.tv_nsec);
}

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
   explicit Run(RunOptions const& options)
         : options_(options), reader_(options.files), resumes_(options.inspect && regularFiles()) {
      if (!resumes_) reader_.stopFdIs(interruptFd());
   }

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
         errors_.finish();
         bool const good = printHookFaults(*switch_) && timeline.finish() && looked.good &&
                           !stopped_ && passesStrict(options_.strict, fallenShort());
         bool const written = writePage(good, looked.interrupted, {}, nullptr);
         return exitAfter(looked, exitCode(good && written, looked.interrupted));
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
      // A run of the prompt goes on later.
      if (!resumes_ || !interrupted()) settled_ = switch_->settle();
      return true;
   }
   Qor::Seconds nextInput() override {
      if (!readAhead()) return Qor::never;
      return timeOf(event_).time;
   }
   bool inMemory() const override { return ended_; }

 private:
   int fail(InputError const& error) {
      errors_.print(ErrorLimit::kindOf(error.reason), error.toString());
      return exitFailed;
   }

   // A regular file never lets a read wait, so that an interrupt needs not end it.
   bool regularFiles() const {
      return std::ranges::all_of(options_.files, [](std::string const& name) {
         std::error_code ignored;
         return std::filesystem::is_regular_file(name, ignored);
      });
   }

   // Applies the events up to and including this time. Returns false if a fault of the input
   // stopped the run.
   bool replay(Qor::Seconds until) {
      Progress progress;
      while (readAhead() && timeOf(event_).time <= until) {
         // In real time this wait may be long.
         if (timeOf(event_).time > Qor::now()) switch_->runUntil(timeOf(event_).time);
         if (interrupted()) break;
         ahead_ = false;
         if (auto const error = apply(*switch_, event_)) {
            report(*error);
            continue;
         }
         count(figures_, event_);
         // A large snapshot is not kept while its routes are being placed.
         if (std::holds_alternative<SnapshotEvent>(event_)) event_ = MrouteEvent();
         progress.show([&] { return progressText(); });
      }
      progress.clear();
      figures_.lines = reader_.lines();
      figures_.skippedLines = reader_.skipped();
      figures_.clockSteps = reader_.clockSteps();
      return !stopped_;
   }

   std::string progressText() const {
      return fmt::format("{} events, {:.1f} s of capture, {} routes, {} groups", figures_.events,
                         reader_.time(), switch_->programmer().routes(),
                         switch_->view().use(Table::group).used);
   }

   // Reads the next event into event_, unless that has been done. Returns false at the end, and
   // after an interrupt.
   bool readAhead() {
      while (!ahead_ && !ended_) {
         if (resumes_ && interrupted()) return false;
         auto const result = reader_.next(event_);
         if (result == CaptureReader::Result::end || (interrupted() && !resumes_)) {
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
      if (checks()) capture_.apply(event);
      return std::nullopt;
   }

   // Whether the forwarding is compared with the capture. Its state has no other use.
   bool checks() const { return options_.check && !options_.inspects(); }
   std::vector<std::string> fallenShort() const { return shortfalls(figures_.badLines, *switch_); }

   int report(Switch& theSwitch) {
      errors_.finish();
      // A signal that comes later finds a complete run.
      figures_.interruptedBy = interruptName();
      // The check comes first, so that the printed tables count its packets.
      ForwardingCheck check;
      if (!settled_) {
         check.leftOut = "the run was interrupted while writes were under way";
      } else if (options_.check) {
         check = checkForwarding(theSwitch, capture_);
      }
      theSwitch.readBack();
      auto summary = summaryJson(figures_, theSwitch, options_.check ? &check : nullptr);
      printRunReport(options_.show, options_.format, theSwitch, summary);
      if (!check.passed()) printDifferences(check.differences);
      bool const good = printHookFaults(theSwitch) && check.passed() &&
                        passesStrict(options_.strict, fallenShort());
      bool const cut = !figures_.interruptedBy.empty();
      bool const written = writePage(good, cut, check.differences, std::move(summary));
      return exitCode(outputWritten() && written && good, cut);
   }

   bool writePage(bool good, bool cut, std::vector<std::string> notes,
                  nlohmann::ordered_json summary) {
      return page_->finish({.kind = "capture",
                            .title = "Replay of captures",
                            .inputs = options_.files,
                            .result = cut    ? "interrupted"
                                      : good ? "passed"
                                             : "failed",
                            .notes = std::move(notes),
                            .summary = std::move(summary)});
   }

   static void printDifferences(std::vector<std::string> const& differences) {
      ErrorLimit errors;
      for (std::string const& difference : differences)
         errors.print("the chip does not forward as the capture says", "check: " + difference);
      errors.finish("; -j lists all");
   }

   RunOptions const& options_;
   CaptureReader reader_;
   bool const resumes_;  // after an interrupt, because the prompt takes further commands
   CaptureEvent event_;
   bool ahead_ = false;    // event_ is the next one
   bool ended_ = false;    // no more events will be read
   bool stopped_ = false;  // a fault of the input has ended the run
   CaptureState capture_;
   RunFigures figures_;
   ErrorLimit errors_;
   bool settled_ = true;  // the end of the run has found the switch settled
   std::unique_ptr<Switch> switch_;
   ReportFile* page_ = nullptr;  // null before and after the run
};

}  // namespace

int runCaptures(RunOptions const& options) {
   return Run(options).run();
}

}  // namespace Agent
