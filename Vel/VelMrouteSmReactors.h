// Private header: the nested reactors of the synchronous path's agent-wide reactor. Each class
// binds the notifications of one input to a handler of its owner. A reactor points back at its
// owner without holding it; the owner creates and deletes the reactor, possibly during a call of
// that reactor.
#pragma once

#include "Vel/VelMrouteSm.h"

namespace Vel {

class MrouteSmReactor : public Qor::OwnedReactor<MrouteSm> {
 public:
   MrouteSm* mrouteSm() const { return owner(); }
   void mrouteSmIs(MrouteSm* sm) { ownerIs(sm); }
};

class MrouteSm::QorAcsd final : public VelCommonSmData::Notifiee, public MrouteSmReactor {
 public:
   void onVerifyData() override { mrouteSm()->verifyDataIs(notifier()->verifyData()); }
};

class MrouteSm::QorMfibVrfConfig final : public VrfConfig::Notifiee, public MrouteSmReactor {
 public:
   void onConfig(Qor::Name const& vrfName) override {
      auto const config = notifier()->config(vrfName);
      if (config) {
         mrouteSm()->mfibConfigVrfIs(config);
      } else {
         mrouteSm()->mfibConfigVrfDel(vrfName);
      }
   }
   void onConfigImmediate() override { mrouteSm()->syncMfibConfigVrf(); }
   void onCounterMode() override { mrouteSm()->handleMulticastCounterMode(); }
   void onAllCounter() override { mrouteSm()->handleWildcardCounter(); }
};

class MrouteSm::QorMfibHwStatus final : public HwStatus::Notifiee, public MrouteSmReactor {
 public:
   void onHwRouting() override { mrouteSm()->handleMulticastRouting(); }
};

class MrouteSm::QorMcastEnabledStatus final : public VrfEnabledStatus::Notifiee,
                                              public MrouteSmReactor {
 public:
   void onVrf(L3::VrfName const&) override { mrouteSm()->handleMulticastRouting(); }
   void onVrfImmediate() override { mrouteSm()->handleMulticastRouting(); }
};

class MrouteSm::QorMfibConfigVrf final : public Config::Notifiee, public MrouteSmReactor {
 public:
   explicit QorMfibConfigVrf(ConfigPtr config) : config_(std::move(config)) {}

   // Brings the route's counter in step with the configuration.
   void handleCounterRoute(IpGenRouteKey key) {
      mrouteSm()->handleCounterRoute({key, config_->name()});
   }
   void onCounterRoute(IpGenRouteKey const& key) override { handleCounterRoute(key); }
   void onCounterRouteImmediate() override { mrouteSm()->syncCounterRoutes({config_}); }
   // Only a new entry requests a clearing; a removed entry and the immediate form do not.
   void onClearCounterRoute(IpGenRouteKey const& key) override {
      if (config_->clearCounterRoute().find(key)) mrouteSm()->handleClearRouteCounter(key);
   }

 private:
   ConfigPtr const config_;
};

class MrouteSm::QorCounterPollingClock final : public Qor::Clock::Notifiee, public MrouteSmReactor {
 public:
   void onTime() override { mrouteSm()->doCounterPolling(); }
};

class MrouteSm::QorVerifyData final : public VerifyData::Notifiee, public MrouteSmReactor {
 public:
   void onVerify() override { mrouteSm()->handleVerify(); }
};

}  // namespace Vel
