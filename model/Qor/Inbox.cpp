#include "Qor/Inbox.h"

#include <deque>
#include <mutex>

namespace Qor {

struct Inbox::State {
   void announce() {
      if (announced) return;
      announced = true;
      if (wake) wake();
   }

   std::mutex mutex;  // of all that follows
   Function wake;
   std::deque<Function> waiting;
   bool announced = false;
   bool open = true;
};

bool Inbox::Sender::post(Function function) const {
   std::lock_guard const lock(state_->mutex);
   if (!state_->open) return false;
   state_->waiting.push_back(std::move(function));
   state_->announce();
   return true;
}

Inbox::Inbox(Function wake) : state_(std::make_shared<State>()) {
   state_->wake = std::move(wake);
}

// Captured objects may post when they are destroyed, so the functions go after the lock.
Inbox::~Inbox() {
   std::deque<Function> dropped;
   Function wake;
   std::lock_guard const lock(state_->mutex);
   state_->open = false;
   dropped.swap(state_->waiting);
   wake.swap(state_->wake);
}

std::size_t Inbox::run() {
   // The inbox may be destroyed by a function.
   std::shared_ptr<State> const state = state_;
   std::unique_lock lock(state->mutex);
   state->announced = false;
   struct End {
      ~End() {
         if (!lock.owns_lock()) lock.lock();
         if (!state.waiting.empty()) state.announce();
      }
      State& state;
      std::unique_lock<std::mutex>& lock;
   } const end{*state, lock};
   std::size_t const most = state->waiting.size();
   std::size_t count = 0;
   while (count < most && !state->waiting.empty()) {
      Function function = std::move(state->waiting.front());
      state->waiting.pop_front();
      ++count;
      lock.unlock();
      function();
      function = nullptr;  // without the lock, too
      lock.lock();
   }
   return count;
}

}  // namespace Qor
