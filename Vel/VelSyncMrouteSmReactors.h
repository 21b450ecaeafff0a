// Private header: the nested reactors of the synchronous per-switch reactor. Each class binds the
// notifications of one input to a handler of its owner. A reactor points back at its owner without
// holding it; the owner creates and deletes the reactor.
#pragma once

#include "Vel/VelPerSwitchSmMembers.h"
#include "Vel/VelSyncMrouteSm.h"

namespace Vel {

class SyncSmPath::Reactor : public Qor::OwnedReactor<MrouteSwitchSm> {
 public:
   MrouteSwitchSm* mrouteSwitchSm() const { return owner(); }
   void mrouteSwitchSmIs(MrouteSwitchSm* sm) { ownerIs(sm); }
};

class MrouteSwitchSm::QorAcsd final : public VelCommonSmData::Notifiee, public SyncSmPath::Reactor {
 public:
   void onVerifyData() override { mrouteSwitchSm()->verifyDataIs(notifier()->verifyData()); }
};

class MrouteSwitchSm::QorL3Status final : public L3Status::Notifiee, public SyncSmPath::Reactor {
 public:
   void onMulticastReviewPending() override { mrouteSwitchSm()->maybeScheduleRoutesReview(); }
};

class SyncSmPath::QorMrouteSwitch final : public MrouteSwitch::Notifiee, public Reactor {
 public:
   void onZombieOifSet(ZombieKey const&) override { mrouteSwitchSm()->handleZombie(); }
   void onZombieOifSetImmediate() override { mrouteSwitchSm()->handleZombie(); }
};

class SyncSmPath::QorMfibConfig final : public Routing::Multicast::Fib::VrfConfig::Notifiee,
                                        public Reactor {
 public:
   void onActivityPollingInterval() override { mrouteSwitchSm()->handlePollingInterval(); }
};

class MrouteSwitchSm::QorVerifyData final : public VerifyData::Notifiee,
                                            public SyncSmPath::Reactor {
 public:
   void onVerify() override { mrouteSwitchSm()->handleVerify(); }
};

}  // namespace Vel

extern template class Vel::PerSwitchSm<Vel::MrouteSwitchSm, Vel::SyncSmPath>;
