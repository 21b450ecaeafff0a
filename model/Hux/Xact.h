// A transaction: a hardware change that completes later. The platform makes and completes it. If it
// fails, the platform's hook doGetXactFailureReason returns the reason. All other code holds it by
// a const pointer, compares the pointer with null, and may watch the state.
#pragma once

#include "Qor/Entity.h"
#include "Qor/Export.h"

namespace Hux {

class QOR_PUBLIC Xact : public Qor::Entity<Xact> {
 public:
   class Notifiee : public Qor::NotifieeOf<Xact> {
    public:
      virtual void onState() {}
   };

   enum class State : unsigned char {
      pending,
      succeeded,
      failed,
   };

   explicit Xact(State state = State::pending) : state_(state) {}

   State state() const { return state_; }
   bool pending() const { return state_ == State::pending; }
   // For the platform alone, which completes a transaction once. Notifies onState.
   void stateIs(State state) { attrIs<&Notifiee::onState>(state_, state); }

 protected:
   ~Xact() override;

 private:
   State state_;
};

using XactPtr = Qor::Ptr<Xact const>;

}  // namespace Hux
