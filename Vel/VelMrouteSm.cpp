// Set-up of the synchronous path's agent-wide reactor, turning multicast routing on and off, and
// verification.
#include "Vel/VelMrouteSm.h"

#include <algorithm>
#include <cmath>

#include "Vel/VelDescribe.h"
#include "Vel/VelMrouteSmReactors.h"
#include "Vel/VelTrace.h"

namespace Vel {

namespace {

constexpr char smType[] = "Vel::MrouteSm";

}  // namespace

MrouteSm::MrouteSm(Qor::Ptr<VelCommonSmData const> acsd, Qor::Ptr<L3Status> l3Status,
                   Qor::Ptr<VrfConfig const> mfibVrfConfig, Qor::Ptr<HwStatus const> mfibHwStatus,
                   Qor::Ptr<Ip::Status const> ipStatus,
                   Qor::Ptr<VelHelper::MrouteSmHelper> mrouteHelper,
                   Qor::Ptr<VrfEnabledStatus const> mcastEnabledStatus)
      : Entity("MrouteSm"),
        l3Status_(std::move(l3Status)),
        ipStatus_(std::move(ipStatus)),
        mrouteHelper_(std::move(mrouteHelper)) {
   if (!mrouteHelper_) Qor::throwNullParameter(smType, "mrouteHelper");
   acsd_.is(this, std::move(acsd));
   mfibVrfConfig_.is(this, std::move(mfibVrfConfig));
   mfibHwStatus_.is(this, std::move(mfibHwStatus));
   mcastEnabledStatus_.is(this, std::move(mcastEnabledStatus));
   counterPollingClock_.is(this, Qor::activityManager()->config()->clock());
   try {
      mrouteHelper_->mrouteSmIs(this);
      handleMulticastCounterMode();
      handleWildcardCounter();
      syncMfibConfigVrf();
      if (this->acsd()) verifyDataIs(this->acsd()->verifyData());
      handleInitialized();
   } catch (...) {
      leaveHelper();
      throw;
   }
}

void MrouteSm::leaveHelper() {
   if (mrouteHelper_->mrouteSm() == this) mrouteHelper_->mrouteSmIs(nullptr);
}

// The nested reactors are released first, so that a listener of the removed counters cannot make
// this reactor create them again.
MrouteSm::~MrouteSm() {
   initialized_ = false;
   counterPollingClock_.arm(Qor::never);
   acsd_.release();
   mfibVrfConfig_.release();
   mfibHwStatus_.release();
   mcastEnabledStatus_.release();
   verifyData_.release();
   counterPollingClock_.release();
   mfibConfigVrf_.release();
   mfibConfigVrfDelAll();
   mfibCounterStatusIs(nullptr);
   mfibCounterStatusCtlIs(nullptr);
   leaveHelper();
}

Qor::Ptr<MrouteSm> MrouteSmIs(
      Qor::Ptr<VelCommonSmData const> acsd, Qor::Ptr<L3Status> l3Status,
      Qor::Ptr<Routing::Multicast::Fib::VrfConfig const> mfibVrfConfig,
      Qor::Ptr<Routing::Multicast::Fib::Hardware::Status const> mfibHwStatus,
      Qor::Ptr<Ip::Status const> ipStatus, Qor::Ptr<VelHelper::MrouteSmHelper> mrouteHelper,
      Qor::Ptr<Routing::Multicast::Fib::VrfEnabledStatus const> mcastEnabledStatus) {
   return Qor::make<MrouteSm>(std::move(acsd), std::move(l3Status), std::move(mfibVrfConfig),
                              std::move(mfibHwStatus), std::move(ipStatus), std::move(mrouteHelper),
                              std::move(mcastEnabledStatus));
}

// ---- Inputs ----

void MrouteSm::acsdIs(Qor::Ptr<VelCommonSmData const> v) {
   auto const self = hold();
   bool const changed = acsd_.is(this, std::move(v));
   verifyDataIs(acsd() ? acsd()->verifyData() : nullptr);
   if (changed) notify<&Notifiee::onAcsd>();
}

void MrouteSm::mfibVrfConfigIs(Qor::Ptr<VrfConfig const> v) {
   auto const self = hold();
   CounterMode const mode = counterMode();
   bool const changed = mfibVrfConfig_.is(this, std::move(v));
   syncMfibConfigVrf();
   if (counterMode() != mode) handleMulticastCounterMode();
   handleWildcardCounter();
   if (changed) notify<&Notifiee::onMfibVrfConfig>();
}

void MrouteSm::mfibHwStatusIs(Qor::Ptr<HwStatus const> v) {
   auto const self = hold();
   bool const changed = mfibHwStatus_.is(this, std::move(v));
   handleMulticastRouting();
   if (changed) notify<&Notifiee::onMfibHwStatus>();
}

void MrouteSm::mcastEnabledStatusIs(Qor::Ptr<VrfEnabledStatus const> v) {
   auto const self = hold();
   bool const changed = mcastEnabledStatus_.is(this, std::move(v));
   handleMulticastRouting();
   if (changed) notify<&Notifiee::onMcastEnabledStatus>();
}

void MrouteSm::verifyDataIs(Qor::Ptr<VerifyData const> v) {
   auto const self = hold();
   if (verifyData_.is(this, std::move(v))) notify<&Notifiee::onVerifyData>();
}

void MrouteSm::counterPollingClockIs(Qor::Ptr<Qor::Clock const> v) {
   auto const self = hold();
   bool const changed = counterPollingClock_.is(this, std::move(v));
   if (initialized() && counterPollingClock() && counterPollingClock()->timeMin() == Qor::never) {
      counterPollingClock_.arm(Qor::now() + counterPollingInterval());
   }
   if (changed) notify<&Notifiee::onCounterPollingClock>();
}

void MrouteSm::counterPollingIntervalIs(Qor::Seconds v) {
   if (!std::isfinite(v) || v < 0) {
      Qor::throwRange("MrouteSm::counterPollingInterval < 0 or not finite not allowed");
   }
   v = std::max(v, minCounterPollingInterval);
   if (v == counterPollingInterval_) return;
   counterPollingInterval_ = v;
   if (initialized()) counterPollingClock_.arm(Qor::now() + v);
   notify<&Notifiee::onCounterPollingInterval>();
}

// ---- Configurations of the VRFs ----

MrouteSm::QorMfibConfigVrf* MrouteSm::mfibConfigVrf(Qor::Name const& vrfName) const {
   return mfibConfigVrf_.find(vrfName);
}

Qor::U32 MrouteSm::mfibConfigVrfs() const {
   return mfibConfigVrf_.size();
}

MrouteSm::QorMfibConfigVrf* MrouteSm::newMfibConfigVrf(ConfigPtr config) {
   auto const self = hold();
   mfibConfigVrfIs(config);
   return mfibConfigVrf(config->name());
}

void MrouteSm::mfibConfigVrfIs(ConfigPtr config) {
   if (!config) Qor::throwNullParameter(smType, "mfibConfigVrf");
   auto const self = hold();
   mfibConfigVrf_.is(*this, config->name(), config);
   syncCounterRoutes({config});
}

void MrouteSm::mfibConfigVrfDel(Qor::Name vrfName) {
   auto const self = hold();
   mfibConfigVrf_.del(*this, std::move(vrfName));
   syncCounterRoutes({});
}

MrouteSm::MfibConfigVrfColl::Iterator MrouteSm::mfibConfigVrfDel(MfibConfigVrfColl::Iterator it) {
   Qor::Name const vrfName = it->first;
   mfibConfigVrfDel(vrfName);
   return mfibConfigVrf().resume(it, vrfName);
}

void MrouteSm::mfibConfigVrfDelAll() {
   auto const self = hold();
   mfibConfigVrf_.delAll(*this);
   syncCounterRoutes({});
}

void MrouteSm::mfibConfigVrfNotify(Qor::Name vrfName) {
   mfibConfigVrf_.notify(*this, std::move(vrfName));
}

// All nested reactors exist before the first counter changes, since a hook of a counter may change
// the directory.
void MrouteSm::syncMfibConfigVrf() {
   auto const self = hold();
   std::vector<ConfigPtr> configs;
   mfibConfigVrf_.sync(
         *this, [this] { return mfibVrfConfig() ? &mfibVrfConfig()->config() : nullptr; },
         [&](ConfigPtr const& config) {
            mfibConfigVrf_.is(*this, config->name(), config);
            configs.push_back(config);
         });
   syncCounterRoutes(configs);
}

// ---- Routing ----

void MrouteSm::handleInitialized() {
   VEL_TRACE(2, "handleInitialized");
   if (initialized()) return;
   auto const self = hold();
   mrouteHelper()->mrouteInit(true);
   doEnableMulticastRouting(isMulticastEnabled());
   initialized_ = true;
   counterPollingClock_.arm(Qor::now() + counterPollingInterval());
   // The handlers did nothing while the hooks above ran, and routes may be configured already.
   decideRouting();
   if (!wildcardRefused_) settleCounter(Routing::Multicast::Fib::canonicalCatchAllKey());
   syncMfibConfigVrf();
}

bool MrouteSm::hwRoutes() const {
   return mcastEnabledStatus() && !mcastEnabledStatus()->vrf().empty() && mfibHwStatus() &&
          mfibHwStatus()->hwRouting();
}

bool MrouteSm::isMulticastEnabled() const {
   bool const enabled = hwRoutes();
   VEL_TRACE(2, "isMulticastEnabled"
                      << " Multicast routing is " << (enabled ? "enabled" : "disabled"));
   return enabled;
}

void MrouteSm::handleMulticastRouting() {
   if (!initialized()) return;
   bool const enabled = isMulticastEnabled();
   QOR_ASSERT(l3Status());
   if (l3Status()->multicastRoutingEnabled() == enabled) {
      VEL_TRACE(2, "Nothing to do, multicast status unchanged");
      return;
   }
   decideRouting();
}

// A hook or a listener may change an input of the decision before the L3 status has the decision.
// The handler of such a change finds nothing to do, so the inputs are compared again here.
void MrouteSm::decideRouting() {
   if (!l3Status()) return;
   auto const self = hold();
   for (Qor::U32 i = 0; i < maxDecisions; ++i) {
      if (routing() == hwRoutes()) return;
      doEnableMulticastRouting(hwRoutes());
   }
   if (routing() == hwRoutes()) return;
   ++abandonedDecisions_;
   VEL_TRACE(0, "decideRouting"
                      << " Multicast routing is left " << (routing() ? "enabled" : "disabled")
                      << ", overturned " << maxDecisions << " times");
}

void MrouteSm::doEnableMulticastRouting(bool enable) {
   VEL_TRACE(2, "doEnableMulticastRouting");
   auto const self = hold();
   if (enable) {
      VEL_TRACE(2, "Enabling Multicast Routing\n\n");
      mrouteHelper()->handleMulticastRouting(true);
      if (l3Status()) {
         l3Status()->multicastRoutingEnabledIs(true);
         l3Status()->numTimesMcastRoutingEnabledIs(l3Status()->numTimesMcastRoutingEnabled() + 1);
      }
      // A listener may have turned routing off again; then the counters are not needed.
      bool const stillOn = !l3Status() || routing();
      if (stillOn && mfibVrfConfig()) {
         mrouteHelper()->handleMrouteCounterMode(mfibVrfConfig()->counterMode());
      }
      if (stillOn && allCounter()) createCounter(Routing::Multicast::Fib::canonicalCatchAllKey());
   } else {
      VEL_TRACE(2, "Disabling Multicast Routing\n\n");
      mrouteHelper()->handleMulticastRouting(false);
      if (l3Status()) l3Status()->multicastRoutingEnabledIs(false);
   }
   if (acsd()) acsd()->requestVerify();
}

void MrouteSm::handleVerify() {
   VEL_TRACE(2, "handleVerify");
   if (!initialized() || disableVerify() || !l3Status()) return;
   mrouteHelper()->verifyMulticastRouting(l3Status()->multicastRoutingEnabled());
}

namespace {

Qor::Type describeMrouteSm() {
   using Sm = MrouteSm;
   using Told = Sm::Notifiee;
   Qor::Describe<Sm> type(typeModule);
   type.base<Qor::StateMachine>();
   type.constructor<&MrouteSmIs>("acsd", "l3Status", "mfibVrfConfig", "mfibHwStatus", "ipStatus",
                                 Qor::Required("mrouteHelper"), "mcastEnabledStatus");
   type.attribute<&Sm::acsd, &Sm::acsdIs, &Told::onAcsd>();
   type.operation<&Sm::acsdDel>();
   type.attribute<&Sm::l3Status>();
   type.attribute<&Sm::mfibVrfConfig, &Sm::mfibVrfConfigIs, &Told::onMfibVrfConfig>();
   type.operation<&Sm::mfibVrfConfigDel>();
   type.attribute<&Sm::mfibHwStatus, &Sm::mfibHwStatusIs, &Told::onMfibHwStatus>();
   type.operation<&Sm::mfibHwStatusDel>();
   type.attribute<&Sm::ipStatus>();
   type.attribute<&Sm::mrouteHelper>();
   type.attribute<&Sm::mcastEnabledStatus, &Sm::mcastEnabledStatusIs,
                  &Told::onMcastEnabledStatus>();
   type.operation<&Sm::mcastEnabledStatusDel>();
   type.attribute<&Sm::verifyData, &Sm::verifyDataIs, &Told::onVerifyData>();
   type.operation<&Sm::verifyDataDel>();
   type.attribute<&Sm::mfibCounterStatus, &Sm::mfibCounterStatusIs, &Told::onMfibCounterStatus>();
   type.attribute<&Sm::mfibCounterStatusCtl, &Sm::mfibCounterStatusCtlIs,
                  &Told::onMfibCounterStatusCtl>();
   type.attribute<&Sm::counterPollingClock, &Sm::counterPollingClockIs,
                  &Told::onCounterPollingClock>();
   type.operation<&Sm::counterPollingClockDel>();
   type.attribute<&Sm::counterPollingInterval, &Sm::counterPollingIntervalIs,
                  &Told::onCounterPollingInterval>();
   type.collection<Sm::MfibConfigVrfColl, Sm, &Sm::mfibConfigVrf, &Sm::mfibConfigVrfDel,
                   &Sm::mfibConfigVrfDelAll, &Sm::mfibConfigVrfNotify, &Sm::mfibConfigVrfIs>();
   type.map<Sm::CounterShadow, Sm, &Sm::counterShadow>();
   type.attribute<&Sm::disableVerify, &Sm::disableVerifyIs, &Told::onDisableVerify>();
   type.attribute<&Sm::initialized>();
   type.operation<&Sm::handleInitialized>();
   type.operation<&Sm::isMulticastEnabled>();
   type.operation<&Sm::handleMulticastRouting>();
   type.operation<&Sm::doEnableMulticastRouting>("enable");
   type.attribute<&Sm::abandonedDecisions>();
   type.operation<&Sm::handleVerify>();
   type.operation<&Sm::doCounterPolling>();
   type.operation<&Sm::updateMfibCounter>("key", "value", "active");
   type.operation<&Sm::removeMfibCounter>("key");
   type.operation<&Sm::setMfibCounterActive>("key", "active");
   type.operation<&Sm::handleClearRouteCounter>("key");
   type.operation<&Sm::handleWildcardCounter>();
   type.operation<&Sm::handleMulticastCounterMode>();
   return type;
}
Qor::TypeRegistration const mrouteSmRegistered(describeMrouteSm);

}  // namespace

}  // namespace Vel
