// The data that the agent's state machines share. The agent writes it. The reactors of the
// synchronous path watch verifyData, and then the entity that it points to.
#pragma once

#include <utility>

#include "Qor/Entity.h"
#include "Vel/VerifyData.h"

namespace Vel {

class VelCommonSmData final : public Qor::Entity<VelCommonSmData, Qor::NamedEntity> {
 public:
   class Notifiee : public Qor::NotifieeOf<VelCommonSmData> {
    public:
      virtual void onVerifyData() {}
   };

   explicit VelCommonSmData(Qor::Name name = "velCommonSmData") : Entity(std::move(name)) {}

   // Null if the agent does not verify.
   Qor::Ptr<VerifyData> verifyData() const { return verifyData_; }
   void verifyDataIs(Qor::Ptr<VerifyData> v) {
      attrIs<&Notifiee::onVerifyData>(verifyData_, std::move(v));
   }
   // Requests a verification after a change in hardware, if the agent wants verifications.
   void requestVerify() const {
      if (verifyData_ && verifyData_->verifyRequired()) verifyData_->doRequestVerify();
   }

 private:
   ~VelCommonSmData() override = default;

   Qor::Ptr<VerifyData> verifyData_;
};

}  // namespace Vel
