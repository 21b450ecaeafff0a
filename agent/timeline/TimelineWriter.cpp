#include "agent/timeline/TimelineWriter.h"

#include <fmt/format.h>

#include <nlohmann/json.hpp>
#include <string>

namespace Agent {

namespace {

using Phase = TimelineEvent::Phase;

// Microseconds, with a fraction only if it is not 0.
std::string microseconds(double seconds) {
   std::string out = fmt::format("{:.3f}", seconds * 1e6);
   if (out.ends_with(".000")) out.resize(out.size() - 4);
   return out;
}

std::string jsonText(nlohmann::ordered_json const& json) {
   return json.dump(-1, ' ', true, nlohmann::json::error_handler_t::replace);
}

// The names of the phases in the trace event format, by Phase.
constexpr char phases[] = {'M', 'M', 'b', 'e', 'i', 'C'};

}  // namespace

TimelineWriter::TimelineWriter(std::ostream& out) : out_(out) {
   out_ << "{\"displayTimeUnit\":\"ms\",\"traceEvents\":[";
}

void TimelineWriter::event(TimelineEvent const& event) {
   nlohmann::ordered_json const name = event.phase == Phase::processName  ? "process_name"
                                       : event.phase == Phase::threadName ? "thread_name"
                                                                          : event.name;
   out_ << (events_++ ? ",\n" : "\n") << R"({"ph":")" << phases[static_cast<unsigned>(event.phase)]
        << R"(","pid":)" << event.process << R"(,"tid":)" << static_cast<unsigned>(event.track)
        << R"(,"ts":)" << microseconds(event.time) << R"(,"name":)" << jsonText(name);
   switch (event.phase) {
      case Phase::begin:
      case Phase::end:
         out_ << R"(,"cat":)" << jsonText(event.category) << R"(,"id":")" << event.id << '"';
         break;
      case Phase::instant:
         out_ << R"(,"s":"t")";
         break;
      case Phase::processName:
      case Phase::threadName:
         out_ << R"(,"args":{"name":)" << jsonText(event.name) << '}';
         break;
      case Phase::counter:
         break;
   }
   if (!event.args.is_null()) out_ << R"(,"args":)" << jsonText(event.args);
   out_ << '}';
}

void TimelineWriter::finish() {
   out_ << "\n]}\n";
   out_.flush();
}

}  // namespace Agent
