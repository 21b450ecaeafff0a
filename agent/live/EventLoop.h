// The loop of a live agent: it waits for descriptors and for the clocks of the activity loop, on one
// thread. Nothing that it calls blocks.
//
// A turn waits until a descriptor has an event or a clock is due, and then calls the ready()
// functions of the sources with events, the clocks that are due, and turnEnds() of all sources. A
// source may add and remove sources in each of these calls.
#pragma once

#include <vector>

#include "Qor/Types.h"

namespace Agent {

class EventSource {
 public:
   virtual ~EventSource() = default;
   // The descriptor to wait for; -1 for none at the moment.
   virtual int fd() const = 0;
   virtual bool wantsWrite() const { return false; }
   // The descriptor has an event; an error or a hang-up counts as readable.
   virtual void ready(bool readable, bool writable) = 0;
   // All that was due in this turn is done.
   virtual void turnEnds() {}
};

class EventLoop {
 public:
   EventLoop() = default;
   EventLoop(EventLoop const&) = delete;
   EventLoop& operator=(EventLoop const&) = delete;

   // The source outlives the loop, or is removed.
   void add(EventSource& source) { sources_.push_back(&source); }
   void remove(EventSource& source);

   // Turns until stop() is called.
   void run();
   // Ends run() after the present turn.
   void stop() { stopped_ = true; }
   // One turn, which waits for `longest` seconds at most.
   void turn(Qor::Seconds longest);

   // The turns so far that had something to do.
   Qor::U64 turns() const { return turns_; }

 private:
   template <class Call>
   void forEach(Call const& call);

   std::vector<EventSource*> sources_;  // null: removed during a turn
   bool stopped_ = false;
   Qor::U64 turns_ = 0;
};

}  // namespace Agent
