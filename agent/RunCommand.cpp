#include "agent/RunCommand.h"

#include <signal.h>
#include <unistd.h>

#include <charconv>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <iostream>

#include "Qor/Exception.h"
#include "agent/CaptureReader.h"
#include "agent/Summary.h"

namespace Agent {

namespace {

using SteadyClock = std::chrono::steady_clock;

volatile sig_atomic_t interrupted = 0;

// A second interrupt ends the process as usual.
class InterruptEndsInput {
 public:
   InterruptEndsInput() {
      struct sigaction action {};
      action.sa_handler = [](int) { interrupted = 1; };
      action.sa_flags = static_cast<int>(SA_RESETHAND);  // no SA_RESTART: a waiting read returns
      sigaction(SIGINT, &action, &before_);
   }
   ~InterruptEndsInput() { sigaction(SIGINT, &before_, nullptr); }
   InterruptEndsInput(InterruptEndsInput const&) = delete;
   InterruptEndsInput& operator=(InterruptEndsInput const&) = delete;

 private:
   struct sigaction before_ {};
};

class Progress {
 public:
   Progress() : shown_(isatty(STDERR_FILENO) != 0) {}
   ~Progress() { clear(); }
   Progress(Progress const&) = delete;
   Progress& operator=(Progress const&) = delete;

   void show(RunFigures const& figures, SimulatedSwitch const& simulated, double time) {
      if (!shown_ || figures.events % 256 != 0) return;
      auto const now = SteadyClock::now();
      if (now - last_ < std::chrono::milliseconds(100)) return;
      last_ = now;
      written_ = true;
      std::fprintf(stderr, "\r\x1b[K%llu events, %.1f s of capture, %u routes, %u groups",
                   static_cast<unsigned long long>(figures.events), time,
                   simulated.routeProgrammer().routes(), simulated.chip().groups());
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
   }
   figures.captureSeconds = timeOf(event).time;
}

class Run {
 public:
   explicit Run(RunOptions const& options) : options_(options), reader_(options.files) {}

   int run() {
      InterfaceMap intfMap;
      if (!options_.mapFile.empty()) {
         if (auto const error = intfMap.load(options_.mapFile)) return fail(*error);
      }
      auto const missing = CaptureReader::unreadable(options_.files);
      if (!missing.empty() && !options_.keepGoing) return fail(missing.front());

      auto const began = SteadyClock::now();
      SimulatedSwitch simulated(options_.chip, std::move(intfMap));
      if (!replay(simulated)) return exitFailed;
      simulated.settle();
      figures_.realSeconds = std::chrono::duration<double>(SteadyClock::now() - began).count();
      return report(simulated);
   }

 private:
   int fail(InputError const& error) {
      progress_.clear();
      std::cerr << error.toString() << '\n';
      return exitFailed;
   }

   // False when the input stopped the run.
   bool replay(SimulatedSwitch& simulated) {
      InterruptEndsInput const interruptEndsInput;
      CaptureEvent event;
      while (!interrupted) {
         auto result = reader_.next(event);
         if (interrupted || result == CaptureReader::Result::end) break;
         std::optional<InputError> error;
         if (result == CaptureReader::Result::error) {
            error = reader_.error();
         } else {
            error = apply(simulated, event);
         }
         if (error) {
            fail(*error);
            ++figures_.badLines;
            if (!options_.keepGoing) return false;
            continue;
         }
         count(figures_, event);
         progress_.show(figures_, simulated, reader_.time());
      }
      progress_.clear();
      figures_.lines = reader_.lines();
      figures_.skippedLines = reader_.skipped();
      figures_.clockSteps = reader_.clockSteps();
      return true;
   }

   std::optional<InputError> apply(SimulatedSwitch& simulated, CaptureEvent const& event) {
      try {
         simulated.apply(event);
      } catch (InterfaceMapFull const& full) {
         return InputError{reader_.where(), {}, full.what()};
      }
      capture_.apply(event);
      return std::nullopt;
   }

   int report(SimulatedSwitch& simulated) {
      nlohmann::ordered_json views = nlohmann::ordered_json::object();
      for (View const view : options_.show) {
         views[std::string(nameOf(view))] = viewJson(view, simulated);
      }
      CheckResult check;
      if (options_.check) check = checkForwarding(simulated, capture_);
      auto summary = summaryJson(figures_, simulated, options_.check ? &check : nullptr);
      if (options_.json) {
         if (!views.empty()) summary["tables"] = std::move(views);
         std::cout << summary.dump(1) << '\n';
      } else {
         for (View const view : options_.show) {
            printView(std::cout, view, views.at(std::string(nameOf(view))));
            std::cout << '\n';
         }
         printSummary(std::cout, summary);
      }
      std::cout.flush();
      if (!check.passed()) {
         std::cerr << "check failed: the chip does not forward what the capture says\n";
         for (std::string const& line : check.differences)
            std::cerr << "   " << line << '\n';
         return exitFailed;
      }
      return std::cout.good() ? exitDone : exitFailed;
   }

   RunOptions const& options_;
   CaptureReader reader_;
   CaptureState capture_;
   RunFigures figures_;
   Progress progress_;
};

template <class T>
bool parseNumber(std::string_view text, T& value) {
   auto const [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
   return error == std::errc() && end == text.data() + text.size();
}

}  // namespace

std::optional<std::string> parseChipOption(std::string const& text, Sim::ChipConfig& config) {
   std::string_view rest(text);
   while (true) {
      auto const comma = rest.find(',');
      std::string_view const item = rest.substr(0, comma);
      auto const equals = item.find('=');
      std::string_view const key = item.substr(0, equals);
      std::string_view const value =
            equals == std::string_view::npos ? std::string_view() : item.substr(equals + 1);
      bool good = false;
      if (key == "groups") {
         good = parseNumber(value, config.groups);
      } else if (key == "routes") {
         good = parseNumber(value, config.routes);
      } else if (key == "latency") {
         good = parseNumber(value, config.latency) && config.latency >= 0 &&
                std::isfinite(config.latency);
      } else {
         return "unknown chip property \"" + std::string(key) +
                "\" (known: groups=N, routes=N, latency=SECONDS)";
      }
      if (!good) return "bad value in \"" + std::string(item) + "\"";
      if (comma == std::string_view::npos) break;
      rest.remove_prefix(comma + 1);
   }
   try {
      Qor::make<Sim::Chip>(config);
   } catch (Qor::RangeException const& error) {
      return error.message();
   }
   return std::nullopt;
}

std::optional<std::string> applyTraceOption(std::string const& text) {
   auto const colon = text.find(':');
   int level = 0;
   if (!parseNumber(std::string_view(text).substr(0, colon), level) || level < 0 || level > 9) {
      return "bad trace \"" + text + "\": want LEVEL[:GLOB] with a level of 0 to 9";
   }
   Qor::traceLevelIs(level, colon == std::string::npos ? "*" : text.substr(colon + 1));
   return std::nullopt;
}

int runCapture(RunOptions const& options) {
   return Run(options).run();
}

}  // namespace Agent
