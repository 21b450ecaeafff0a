// A receiver of the trace events of a run: the file of trace events, and the recorder of a report.
#pragma once

#include <cstdint>
#include <nlohmann/json_fwd.hpp>
#include <string_view>

namespace Agent {

struct TimelineEvent {
   enum class Phase : unsigned char {
      processName,  // the name of a process
      threadName,   // the name of a track
      begin,        // a span begins
      end,          // a span ends; its args have the "outcome"
      instant,
      counter,  // a sample; its args are the numbers
   };
   enum class Track : unsigned char { spans = 0, notifications = 1, events = 2 };
   // An object that is shown with the event, or null.
   using Args = nlohmann::ordered_json;

   Phase phase;
   unsigned process;  // counted from 1
   Track track;
   double time;  // seconds
   std::string_view name;
   std::string_view category;  // of a span; empty otherwise
   std::uint64_t id;           // of a span; 0 otherwise
   Args const& args;
};

// The times of the events do not descend, except in a timeline of several switches.
class TimelineSink {
 public:
   virtual ~TimelineSink() = default;

   // Whether the sink needs the events of routes, of transactions and of single notifications.
   // Without a sink that needs them, the timeline does not make them.
   virtual bool detailed() const = 0;
   virtual void event(TimelineEvent const& event) = 0;
   // Called after each turn of the loop: tables and links may have changed without an event.
   virtual void turnEnds() {}
   // Called once; no event follows.
   virtual void finish() {}

 protected:
   TimelineSink() = default;
   TimelineSink(TimelineSink const&) = default;
   TimelineSink& operator=(TimelineSink const&) = default;
};

}  // namespace Agent
