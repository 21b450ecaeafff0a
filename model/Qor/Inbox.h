// The way from other threads into the loop. Everything else in Qor belongs to one thread, the one
// that drives the loop: objects, counted pointers and clocks have no locks. A thread that has something
// for the loop, as a completion of a chip's software, posts a function; the loop's thread runs it.
//
//    Qor::Inbox inbox([fd] { eventfd_write(fd, 1); });        // on the loop's thread
//    sdk.onCompletion([sender = inbox.sender()](Id id) {      // on any thread
//       sender.post([id] { platform().completed(id); });
//    });
//    ... in the loop, when fd is readable: read fd, then inbox.run()
//
// Guarantees:
//  - Every posted function runs at most once, on the thread that calls run(). Functions of one
//    poster run in the order of posting.
//  - The wake-up function is called for the first function that is posted since the last run() began,
//    and at the end of a run() that left functions nobody announced. It runs on the poster's
//    thread, or in run(), with the inbox locked: it only signals, as by writing to a descriptor. It
//    neither posts, nor blocks, nor throws.
//  - Functions posted during run() wait for the next call, so that run() ends.
//  - A function that throws ends run() with its error. The functions behind it wait for the next
//    call.
//  - After the inbox has gone no function runs, post() returns false, and the wake-up function is not
//    called any more. Functions that waited are destroyed by the inbox's destructor.
//
// A function must not capture counted pointers (Qor::Ptr): copying one on another thread races with
// the loop. It captures ids, and looks the object up when it runs.
//
// The inbox belongs to the loop's thread. Senders are copied and kept by any thread, and may outlive
// the inbox.
#pragma once

#include <cstddef>
#include <functional>
#include <memory>
#include <utility>

#include "Qor/Export.h"

namespace Qor {

class QOR_PUBLIC Inbox {
   struct State;

 public:
   using Function = std::function<void()>;

   class QOR_PUBLIC Sender {
    public:
      // Any thread. Returns false, and destroys the function here, when the inbox has gone. Posting
      // an empty function is an error of std::bad_function_call in run().
      bool post(Function function) const;

    private:
      friend class Inbox;
      explicit Sender(std::shared_ptr<State> state) : state_(std::move(state)) {}

      std::shared_ptr<State> state_;
   };

   // `wake` may be empty for a loop that calls run() in every turn.
   explicit Inbox(Function wake = {});
   ~Inbox();
   Inbox(Inbox const&) = delete;
   Inbox& operator=(Inbox const&) = delete;

   Sender sender() const { return Sender(state_); }

   // Runs as many functions as wait at the time of the call, oldest first, and returns their number.
   // A nested call, made by one of these functions, goes on with those behind it. A function may
   // destroy the inbox: those behind it do not run.
   std::size_t run();

 private:
   std::shared_ptr<State> state_;
};

}  // namespace Qor
