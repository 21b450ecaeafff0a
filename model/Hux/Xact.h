// A hardware change under way. The platform makes it, completes it, and knows the reason when it
// fails (asked through its hook doGetXactFailureReason); everybody else holds it const, compares
// it with null, and may watch its state.
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
   // For the platform alone: completes the transaction, once, and tells its watchers.
   void stateIs(State state) { attrIs<&Notifiee::onState>(state_, state); }

 protected:
   ~Xact() override;

 private:
   State state_;
};

using XactPtr = Qor::Ptr<Xact const>;

}  // namespace Hux
