// Requests to compare the tables of the synchronous path with the hardware.
//
//  - The agent's verifier sets verifyRequired while it wants verifications. During that time the
//    programmers and reactors call doRequestVerify() after each change in hardware
//    (VelCommonSmData::requestVerify).
//  - doRequestVerify() only sets reverify, so that many changes cost one verification. The verifier
//    watches reverify, waits until the changes settle, clears the flag and adds 1 to verify.
//  - The reactors watch verify. Each change of it starts one comparison of all tables and of the
//    routing state.
//  - A platform sets retryVerify when its comparison found a change that is still under way. A
//    verifier that repeats such comparisons watches the flag and clears it.
#pragma once

#include <utility>

#include "Qor/Entity.h"

namespace Vel {

class VerifyData final : public Qor::Entity<VerifyData, Qor::NamedEntity> {
 public:
   class Notifiee : public Qor::NotifieeOf<VerifyData> {
    public:
      virtual void onVerify() {}
      virtual void onVerifyRequired() {}
      virtual void onRetryVerify() {}
      virtual void onReverify() {}
   };

   explicit VerifyData(Qor::Name name = "verifyData") : Entity(std::move(name)) {}

   // The number of verifications started so far.
   Qor::U64 verify() const { return verify_; }
   void verifyIs(Qor::U64 v) { attrIs<&Notifiee::onVerify>(verify_, v); }
   bool verifyRequired() const { return verifyRequired_; }
   void verifyRequiredIs(bool v) { attrIs<&Notifiee::onVerifyRequired>(verifyRequired_, v); }
   bool retryVerify() const { return retryVerify_; }
   void retryVerifyIs(bool v) { attrIs<&Notifiee::onRetryVerify>(retryVerify_, v); }
   bool reverify() const { return reverify_; }
   void reverifyIs(bool v) { attrIs<&Notifiee::onReverify>(reverify_, v); }

   void doRequestVerify() { reverifyIs(true); }

 private:
   ~VerifyData() override = default;

   Qor::U64 verify_ = 0;
   bool verifyRequired_ = false;
   bool retryVerify_ = false;
   bool reverify_ = false;
};

}  // namespace Vel
