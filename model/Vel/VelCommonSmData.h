// What the agent's state machines share. The agent writes it; the reactors of the synchronous path
// watch verifyData and follow it to the entity it names.
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

   // Null where the agent does not verify.
   Qor::Ptr<VerifyData> verifyData() const { return verifyData_; }
   void verifyDataIs(Qor::Ptr<VerifyData> v) {
      attrIs<&Notifiee::onVerifyData>(verifyData_, std::move(v));
   }
   // Has a change that was made in hardware verified, while the agent wants that.
   void requestVerify() const {
      if (verifyData_ && verifyData_->verifyRequired()) verifyData_->doRequestVerify();
   }

 private:
   ~VelCommonSmData() override = default;

   Qor::Ptr<VerifyData> verifyData_;
};

}  // namespace Vel
