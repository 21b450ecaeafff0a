// Requests to compare what the programmers believe with what the hardware holds.
//
// Who plays which part:
//  - the agent's verifier turns verifyRequired on and off. That is the "verification requested"
//    flag: while it is set, the programmers call doRequestVerify() after each change they make in
//    hardware;
//  - doRequestVerify() only marks reverify, so that any number of changes costs one verification.
//    The verifier watches reverify, waits until changes settle, takes the mark back and raises
//    verify;
//  - the reactors of the synchronous path watch verify, and each change of it makes them compare
//    everything once;
//  - the platform's verification sets retryVerify when it met something that was still under way
//    and has to be looked at again; the verifier watches it and takes it back.
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

   // Counts the verifications asked for so far.
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
