// The verifier of the agent, in the role that Vel/VerifyData.h describes. It requests a comparison
// of the tables with the hardware after changes. All requests within `delay` get one verification.
#pragma once

#include "Qor/Clock.h"
#include "Vel/VerifyData.h"

namespace Agent {

class Verifier {
 public:
   static constexpr Qor::Seconds delay = 1.0;  // from the first request to the verification

   explicit Verifier(Qor::Ptr<Vel::VerifyData> data)
         : data_(std::move(data)), clock_(Qor::make<Qor::Clock>("verifier")) {
      requestReactor_.notifierIs(data_.get());
      clockReactor_.notifierIs(clock_.get());
      data_->verifyRequiredIs(true);
   }
   Verifier(Verifier const&) = delete;
   Verifier& operator=(Verifier const&) = delete;

   // Makes the verification that is due, without the delay.
   void verify() {
      clock_->timeMinIs(Qor::never);
      if (!data_->reverify()) return;
      data_->reverifyIs(false);
      data_->verifyIs(data_->verify() + 1);
   }

 private:
   class QorVerifyData final : public Vel::VerifyData::Notifiee {
    public:
      explicit QorVerifyData(Verifier& owner) : owner_(owner) {}
      void onReverify() override {
         if (notifier()->reverify()) owner_.clock_->timeMinIs(Qor::now() + delay);
      }

    private:
      Verifier& owner_;
   };
   class QorClock final : public Qor::Clock::Notifiee {
    public:
      explicit QorClock(Verifier& owner) : owner_(owner) {}
      void onTime() override { owner_.verify(); }

    private:
      Verifier& owner_;
   };

   Qor::Ptr<Vel::VerifyData> const data_;
   Qor::Ptr<Qor::Clock> const clock_;
   QorVerifyData requestReactor_{*this};
   QorClock clockReactor_{*this};
};

}  // namespace Agent
