// Shows a run as trace events, which the sinks of the timeline receive.
//
// Each observed switch is a process with these tracks:
//
//   track               | content
//   --------------------+-------------------------------------------------------------------------
//   route (spans)       | a route entry, from when its handle is in use to when it is not
//   zombie (spans)      | a zombie, from its beginning to its outcome: expired, purged, resurrected
//   reroute (spans)     | an oif set that waits for its fast-reroute rewrite
//   xact (spans)        | the transactions that were passed to xact(), with the outcome
//   notifications       | notifications of the switch's collections, as instants
//   events              | the events that were passed to instant(), such as a link that goes down
//   tables (counters)   | groups, zombies, routes and waiting reroutes, a sample at each instant
//                       | that changed one
//
// The timeline observes through reactors alone and changes nothing. It may be attached at any time;
// spans of existing entries begin then. Sinks receive events at once. Only open spans are kept in
// memory, and the zombies whose outcome is not decided before the end of the instant. finish() ends
// open spans with the outcome "open". Routes, transactions and notifications are shown only if a
// sink is detailed.
#pragma once

#include <initializer_list>
#include <map>
#include <memory>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "Hux/Xact.h"
#include "agent/timeline/TimelineSink.h"

namespace Agent {

class Timeline {
 public:
   using Args = TimelineEvent::Args;
   class Process;

   // The sinks outlive the timeline.
   explicit Timeline(std::vector<TimelineSink*> sinks);
   // Calls finish().
   ~Timeline();
   Timeline(Timeline const&) = delete;
   Timeline& operator=(Timeline const&) = delete;

   // Shows a switch from now on. `process` is an observer of the switch that was made for this
   // timeline (agent/timeline/AsyncObserver.h). Returns the number of its process, counted from 1.
   unsigned observe(std::unique_ptr<Process> process);

   // Shows the transaction as a span from now to its completion. A complete transaction becomes a
   // span without length, and a null transaction none.
   void xact(std::string_view name, Hux::XactPtr const& xact, unsigned process = 1);
   void instant(std::string_view name);
   void instant(std::string_view name, Args const& args, unsigned process = 1);
   // The instant at which a link fails or carries traffic again.
   void link(std::string_view name, std::string const& intf, bool fails);
   // Writes a sample of some numbers, which viewers show as one stacked graph.
   void counter(std::string_view name,
                std::initializer_list<std::pair<char const*, double>> const& values,
                unsigned process = 1);

   // Called when the agent has crashed. Stops observing its switches, and ends open spans with the
   // outcome "lost".
   void crash();
   // Ends open spans and finishes the sinks. Later events are ignored.
   void finish();
   // Called after each turn of the loop.
   void turnEnds();
   bool detailed() const { return detailed_; }

 private:
   class QorXact;
   struct Open {  // a span that has begun
      unsigned process;
      std::string category;
      std::string name;
   };

   using Phase = TimelineEvent::Phase;
   using Track = TimelineEvent::Track;

   // Adds the tracks of a switch with this name.
   unsigned newProcess(std::string const& name);
   std::uint64_t begin(unsigned process, char const* category, std::string name, Args const& args);
   void end(std::uint64_t id, char const* outcome, double time);
   void endAll(char const* outcome);
   void send(TimelineEvent const& event);
   void writeInstant(Track track, std::string_view name, Args const& args, unsigned process);
   // Makes the switches write their events of earlier instants, so that times never go back.
   void settleInstant();

   std::vector<TimelineSink*> const sinks_;
   bool const detailed_;
   bool finished_ = false;
   std::uint64_t lastId_ = 0;
   std::map<std::uint64_t, Open> open_;
   unsigned processes_ = 0;
   std::vector<std::unique_ptr<Process>> observed_;
   std::map<std::uint64_t, std::unique_ptr<QorXact>> xacts_;  // by the id of the span
};

// One observed switch: a process of its own in the timeline. An observer derives from it and writes
// the process's events.
class Timeline::Process {
 public:
   // The timeline outlives the process, which it shows under this name.
   Process(Timeline& timeline, std::string const& name)
         : timeline_(timeline), number_(timeline.newProcess(name)) {}
   virtual ~Process() = default;
   Process(Process const&) = delete;
   Process& operator=(Process const&) = delete;

   unsigned number() const { return number_; }
   // Begins spans for everything that the switch has at present.
   virtual void showAll() = 0;
   // Writes the events of instants before `time` that the observer has held back.
   virtual void settleInstant(double time) = 0;

 protected:
   // Begins a span, and returns its id.
   std::uint64_t begin(char const* category, std::string name);
   std::uint64_t begin(char const* category, std::string name, Args const& args) {
      return timeline_.begin(number_, category, std::move(name), args);
   }
   void end(std::uint64_t id, char const* outcome, double time) {
      timeline_.end(id, outcome, time);
   }
   bool detailed() const { return timeline_.detailed_; }
   // An instant in the track "notifications".
   void notification(std::string_view name);
   void notification(std::string_view name, Args const& args) {
      if (detailed()) timeline_.writeInstant(Track::notifications, name, args, number_);
   }
   // Writes a sample of some numbers at a time that is not after now.
   void counter(std::string_view name, double time, Args const& values) {
      timeline_.send(
            {Timeline::Phase::counter, number_, Timeline::Track::spans, time, name, {}, 0, values});
   }
   // Makes all observed switches write the events of earlier instants that they have held back.
   void settleAll() { timeline_.settleInstant(); }

 private:
   Timeline& timeline_;
   unsigned const number_;
};

}  // namespace Agent
