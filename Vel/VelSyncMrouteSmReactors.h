// Private header: the nested reactors of the synchronous per-switch reactor. Each class binds the
// notifications of one input to a handler of its owner. A reactor points back at its owner without
// holding it; the owner creates and deletes the reactor.
#pragma once

#include "Vel/VelSyncMrouteSm.h"

namespace Vel {

class MrouteSwitchSmReactor : public Qor::OwnedReactor<MrouteSwitchSm> {
 public:
   MrouteSwitchSm* mrouteSwitchSm() const { return owner(); }
   void mrouteSwitchSmIs(MrouteSwitchSm* sm) { ownerIs(sm); }
};

class MrouteSwitchSm::QorAcsd final : public VelCommonSmData::Notifiee,
                                      public MrouteSwitchSmReactor {
 public:
   void onVerifyData() override { mrouteSwitchSm()->verifyDataIs(notifier()->verifyData()); }
};

class MrouteSwitchSm::QorL3Status final : public L3Status::Notifiee, public MrouteSwitchSmReactor {
 public:
   void onMulticastReviewPending() override { mrouteSwitchSm()->maybeScheduleRoutesReview(); }
};

class MrouteSwitchSm::QorMrouteSwitch final : public MrouteSwitch::Notifiee,
                                              public MrouteSwitchSmReactor {
 public:
   void onZombieOifSet(ZombieKey const&) override { mrouteSwitchSm()->handleZombie(); }
   void onZombieOifSetImmediate() override { mrouteSwitchSm()->handleZombie(); }
};

class MrouteSwitchSm::QorMfibConfig final : public Routing::Multicast::Fib::VrfConfig::Notifiee,
                                            public MrouteSwitchSmReactor {
 public:
   void onActivityPollingInterval() override { mrouteSwitchSm()->handlePollingInterval(); }
};

class MrouteSwitchSm::QorZombieClock final : public Qor::Clock::Notifiee,
                                             public MrouteSwitchSmReactor {
 public:
   void onTime() override { mrouteSwitchSm()->handleZombieClock(); }
};

class MrouteSwitchSm::QorAgingClock final : public Qor::Clock::Notifiee,
                                            public MrouteSwitchSmReactor {
 public:
   void onTime() override { mrouteSwitchSm()->doRouteAgingReview(); }
};

class MrouteSwitchSm::QorEthIntfStatusDir final : public Interface::EthIntfStatusDir::Notifiee,
                                                  public MrouteSwitchSmReactor {
 public:
   void onIntfStatus(Lnet::IntfId intfId) override;
   void onIntfStatusImmediate() override { mrouteSwitchSm()->syncEthIntfStatus(); }
};

class MrouteSwitchSm::QorEthIntfStatus final : public Interface::EthIntfStatus::Notifiee,
                                               public MrouteSwitchSmReactor {
 public:
   explicit QorEthIntfStatus(EthIntfStatusPtr status) : status_(std::move(status)) {}

   // Down and lower-layer-down start a reroute. Route programming restores the routes when the
   // interface comes back.
   void handleOperStatus();
   void onOperStatus() override { handleOperStatus(); }

 private:
   EthIntfStatusPtr const status_;
};

class MrouteSwitchSm::QorClock final : public Qor::Clock::Notifiee, public MrouteSwitchSmReactor {
 public:
   void onTime() override { mrouteSwitchSm()->handleClock(); }
};

class MrouteSwitchSm::QorVerifyData final : public VerifyData::Notifiee,
                                            public MrouteSwitchSmReactor {
 public:
   void onVerify() override { mrouteSwitchSm()->handleVerify(); }
};

}  // namespace Vel
