// The agent-wide reactor of the synchronous path. It decides whether the hardware routes multicast
// at all, tells the platform and the layer 3 status, and keeps the route counters: which are made,
// when they are read, and what is published of them. Chips have reactors of their own.
//
//   concern                                          | source
//   -------------------------------------------------+----------------------
//   set-up, turning routing on and off, verification | VelMrouteSm.cpp
//   counters: making, polling, clearing, publishing  | VelMrouteCounters.cpp
//
// Inputs. The hook object is required; every other input may be null, and then:
//
//   null input           | what it means
//   ---------------------+-----------------------------------------------------------------------
//   acsd                 | nobody verifies
//   l3Status             | VRF ids are 0, and the platform is told once, at construction, whether
//                        | multicast is routed; a change of that is an assertion
//   mfibVrfConfig        | no counters, no counter mode, no VRFs to follow
//   mfibHwStatus,        | multicast routing is off
//   mcastEnabledStatus   |
//   ipStatus             | kept for the platform; nothing here reads it
//   mfibCounterStatus    | counters are made and deleted, but neither read nor published
//   mfibCounterStatusCtl | there is no limit, and nothing is read or counted
//
// Routing. Multicast is routed while a VRF has it enabled and the hardware status says hwRouting.
// Each time that turns true the platform is given the counter mode and the wildcard counter. It is
// not decided anew before the reactor is initialised. A decision that its own hooks or listeners
// overturn is taken again, maxDecisions times at most; then the reactor leaves routing as it is,
// traces that and counts it in abandonedDecisions().
//
// Which counters there are.
//  - The wildcard counter, of the key canonicalCatchAllKey() and the VRF id 0, counts all routes.
//    It is made when routing turns on while allCounter is set, and when allCounter is set while
//    routing is on. It goes when allCounter is cleared.
//  - A route that a VRF's configuration names in counterRoute has a counter of its own, but only
//    while allCounter is set as well: a user who wants to see a single route has to turn on both.
//    What counts is the configuration, and not the order in which it was made. The counter goes
//    with the entry, with the VRF's configuration and with allCounter. The hardware knows routes by
//    their keys alone: of several VRFs that name the same route, the first by name has the counter
//    made, and the last one lets it go.
//  - The platform may enter others, of routes that it found, through updateMfibCounter().
// A counter that was refused, or aged out, is missing until something asks for it again.
// A new counter is made before an old one makes room for it, so the platform sets the control
// record's limit at least one below what its hardware holds.
// Turning routing off leaves the counters alone: they keep their values and flags, and read 0.
//
// What is kept of them. `counterShadow` lines up all counters by the time of their last writing, so
// the first has been idle for longest; writing moves a counter to the end. The two records are
// copies of that for others to see: they get all counters when they are set, and lose them when
// they are replaced and with the reactor. The value of a counter is the published one, though: an
// entry of the counter status with a time stamp is what "unchanged" keeps and what a reading is
// added to, also when another has written it. No value grows to unchangedCounter by addition.
//
// Notifications. Before initialisation, handlers trace and do nothing else: enabling hands on what
// is configured by then. The setters of inputs and settings and the operations of the collection
// notify the reactor's own notifiees, once all that depends on the change has followed it. All
// operations survive the acts of hooks and listeners, up to dropping the last reference to the
// reactor. A platform may hold the reactor counted from the first hook on.
//
// Clock. Taken from the activity manager; armed from initialisation until destruction.
//
// Ownership. Inputs are held counted. The nested reactors are the reactor's own and point back at
// it, and so does the hook object, from construction to destruction.
#pragma once

#include <utility>
#include <vector>

#include "Ip/Status.h"
#include "Qor/OrderedMap.h"
#include "Qor/Reactors.h"
#include "Routing/Multicast/Fib/Counter.h"
#include "Routing/Multicast/Fib/CounterStatus.h"
#include "Routing/Multicast/Fib/CounterStatusCtl.h"
#include "Routing/Multicast/Fib/Hardware/Status.h"
#include "Routing/Multicast/Fib/VrfConfig.h"
#include "Routing/Multicast/Fib/VrfEnabledStatus.h"
#include "Vel/L3Status.h"
#include "Vel/VelCommonSmData.h"
#include "Vel/VelSyncMrouteHelper.h"

namespace Vel {

class QOR_PUBLIC MrouteSm final : public Qor::Entity<MrouteSm, Qor::StateMachine> {
 public:
   class Notifiee : public Qor::NotifieeOf<MrouteSm> {
    public:
      virtual void onAcsd() {}
      virtual void onMfibVrfConfig() {}
      virtual void onMfibHwStatus() {}
      virtual void onMcastEnabledStatus() {}
      virtual void onVerifyData() {}
      virtual void onMfibCounterStatus() {}
      virtual void onMfibCounterStatusCtl() {}
      virtual void onCounterPollingClock() {}
      virtual void onCounterPollingInterval() {}
      virtual void onDisableVerify() {}
      virtual void onMfibConfigVrf(Qor::Name const&) {}
      virtual void onMfibConfigVrfImmediate() {}

    protected:
      void onImmediate() override { onMfibConfigVrfImmediate(); }
   };

   using Config = Routing::Multicast::Fib::Config;
   using ConfigPtr = Qor::Ptr<Config const>;
   using CounterMode = Routing::Multicast::Fib::CounterMode;
   using CounterStatus = Routing::Multicast::Fib::CounterStatus;
   using CounterStatusCtl = Routing::Multicast::Fib::CounterStatusCtl;
   using CounterShadow = Qor::OrderedMap<Routing::Multicast::Fib::Counter, bool>;
   using HwStatus = Routing::Multicast::Fib::Hardware::Status;
   using IpGenRouteKey = Routing::Multicast::Fib::IpGenRouteKey;
   using VrfConfig = Routing::Multicast::Fib::VrfConfig;
   using VrfEnabledStatus = Routing::Multicast::Fib::VrfEnabledStatus;

   // The value, given or read, that says that a counter's value has not changed.
   static constexpr Qor::U64 unchangedCounter = ~Qor::U64{0};
   // No polling interval is shorter, so that polling cannot fill an instant.
   static constexpr Qor::Seconds minCounterPollingInterval = 0.01;
   // How often a decision on routing is taken again that its own hooks have overtaken.
   static constexpr Qor::U32 maxDecisions = 8;

   // Reactors, named after what they watch.
   class QorAcsd;
   class QorMfibVrfConfig;
   class QorMfibHwStatus;
   class QorMcastEnabledStatus;
   class QorMfibConfigVrf;
   class QorCounterPollingClock;
   class QorVerifyData;

   using MfibConfigVrfColl =
         Qor::ReactorColl<Qor::Name, QorMfibConfigVrf, &Notifiee::onMfibConfigVrf,
                          &Notifiee::onMfibConfigVrfImmediate>;

   // RangeException of null parameters (Qor::throwNullParameter) for a null `mrouteHelper`.
   MrouteSm(Qor::Ptr<VelCommonSmData const> acsd, Qor::Ptr<L3Status> l3Status,
            Qor::Ptr<VrfConfig const> mfibVrfConfig, Qor::Ptr<HwStatus const> mfibHwStatus,
            Qor::Ptr<Ip::Status const> ipStatus, Qor::Ptr<VelHelper::MrouteSmHelper> mrouteHelper,
            Qor::Ptr<VrfEnabledStatus const> mcastEnabledStatus);

   // ---- Inputs. Those with a reactor may be set again, which moves the reactor to the new entity,
   //      or to null, which deletes it; what depends on them follows at once. ----

   Qor::Ptr<VelCommonSmData const> const& acsd() const { return acsd_.object(); }
   void acsdIs(Qor::Ptr<VelCommonSmData const> v);
   QorAcsd* newAcsd(Qor::Ptr<VelCommonSmData const> v) {
      auto const self = hold();
      acsdIs(std::move(v));
      return acsd_.reactor();
   }
   void acsdDel() { acsdIs(nullptr); }
   Qor::Ptr<L3Status> const& l3Status() const { return l3Status_; }
   Qor::Ptr<VrfConfig const> const& mfibVrfConfig() const { return mfibVrfConfig_.object(); }
   void mfibVrfConfigIs(Qor::Ptr<VrfConfig const> v);
   QorMfibVrfConfig* newMfibVrfConfig(Qor::Ptr<VrfConfig const> v) {
      auto const self = hold();
      mfibVrfConfigIs(std::move(v));
      return mfibVrfConfig_.reactor();
   }
   void mfibVrfConfigDel() { mfibVrfConfigIs(nullptr); }
   Qor::Ptr<HwStatus const> const& mfibHwStatus() const { return mfibHwStatus_.object(); }
   void mfibHwStatusIs(Qor::Ptr<HwStatus const> v);
   QorMfibHwStatus* newMfibHwStatus(Qor::Ptr<HwStatus const> v) {
      auto const self = hold();
      mfibHwStatusIs(std::move(v));
      return mfibHwStatus_.reactor();
   }
   void mfibHwStatusDel() { mfibHwStatusIs(nullptr); }
   Qor::Ptr<Ip::Status const> const& ipStatus() const { return ipStatus_; }
   Qor::Ptr<VelHelper::MrouteSmHelper> const& mrouteHelper() const { return mrouteHelper_; }
   Qor::Ptr<VrfEnabledStatus const> const& mcastEnabledStatus() const {
      return mcastEnabledStatus_.object();
   }
   void mcastEnabledStatusIs(Qor::Ptr<VrfEnabledStatus const> v);
   QorMcastEnabledStatus* newMcastEnabledStatus(Qor::Ptr<VrfEnabledStatus const> v) {
      auto const self = hold();
      mcastEnabledStatusIs(std::move(v));
      return mcastEnabledStatus_.reactor();
   }
   void mcastEnabledStatusDel() { mcastEnabledStatusIs(nullptr); }
   // Follows the common data's verifyData.
   Qor::Ptr<VerifyData const> const& verifyData() const { return verifyData_.object(); }
   void verifyDataIs(Qor::Ptr<VerifyData const> v);
   QorVerifyData* newVerifyData(Qor::Ptr<VerifyData const> v) {
      auto const self = hold();
      verifyDataIs(std::move(v));
      return verifyData_.reactor();
   }
   void verifyDataDel() { verifyDataIs(nullptr); }

   // The records to publish counters in; null until they are set.
   Qor::Ptr<CounterStatus> const& mfibCounterStatus() const { return mfibCounterStatus_; }
   void mfibCounterStatusIs(Qor::Ptr<CounterStatus> v);
   Qor::Ptr<CounterStatusCtl> const& mfibCounterStatusCtl() const { return mfibCounterStatusCtl_; }
   void mfibCounterStatusCtlIs(Qor::Ptr<CounterStatusCtl> v);

   // A clock that replaces another takes over what that was set to, and the other is disarmed.
   Qor::Ptr<Qor::Clock const> const& counterPollingClock() const {
      return counterPollingClock_.object();
   }
   void counterPollingClockIs(Qor::Ptr<Qor::Clock const> v);
   QorCounterPollingClock* newCounterPollingClock(Qor::Ptr<Qor::Clock const> v) {
      auto const self = hold();
      counterPollingClockIs(std::move(v));
      return counterPollingClock_.reactor();
   }
   void counterPollingClockDel() { counterPollingClockIs(nullptr); }
   // The time from one polling to the next, in seconds; a change counts from now. Shorter ones are
   // taken as minCounterPollingInterval. RangeException
   //    "MrouteSm::counterPollingInterval < 0 or not finite not allowed"
   Qor::Seconds counterPollingInterval() const { return counterPollingInterval_; }
   void counterPollingIntervalIs(Qor::Seconds v);

   // One reactor for each VRF with a configuration. The same entity set again keeps its reactor,
   // another one of the same name gets a new one. A null argument raises the range error of null
   // parameters. The new...() form does the same as the ...Is() form and returns the reactor.
   MfibConfigVrfColl::Map const& mfibConfigVrf() const { return mfibConfigVrf_.map(); }
   QorMfibConfigVrf* mfibConfigVrf(Qor::Name const& vrfName) const;
   Qor::U32 mfibConfigVrfs() const;
   QorMfibConfigVrf* newMfibConfigVrf(ConfigPtr config);
   void mfibConfigVrfIs(ConfigPtr config);
   void mfibConfigVrfDel(Qor::Name vrfName);
   MfibConfigVrfColl::Iterator mfibConfigVrfDel(MfibConfigVrfColl::Iterator it);
   void mfibConfigVrfDelAll();
   void mfibConfigVrfNotify(Qor::Name vrfName);

   // All counters, the one idle for longest first, and whether they are active.
   CounterShadow const& counterShadow() const { return counterShadow_; }

   bool disableVerify() const { return disableVerify_; }
   void disableVerifyIs(bool v) { attrIs<&Notifiee::onDisableVerify>(disableVerify_, v); }
   bool initialized() const { return initialized_; }

   // ---- Routing. ----

   // Ends the construction, once.
   void handleInitialized();
   bool isMulticastEnabled() const;
   // Decides, and does what the decision changes. Requires the L3 status, once initialised.
   void handleMulticastRouting();
   // Does so without asking whether it is a change. Each call with true adds 1 to the L3 status's
   // numTimesMcastRoutingEnabled.
   void doEnableMulticastRouting(bool enable);
   // How often routing was left as it was, since each decision was overturned at once.
   Qor::U32 abandonedDecisions() const { return abandonedDecisions_; }
   // Has the platform compare whether routing is on, unless disableVerify is set.
   void handleVerify();

   // ---- Counters. ----

   // Reads all active counters, while the control record's pollingRefCnt is not 0, and arms the
   // clock for the next time. Each counter there at the start, and still there when its turn comes,
   // is read once.
   void doCounterPolling();
   // Writes a counter, with the present time; unchangedCounter keeps the value that it has. A new
   // counter that finds the table full takes the place of the first of counterShadow; it is not
   // entered where there is none, or where a listener has taken that place. So a table whose limit
   // was lowered grows no more, and shrinks as counters are removed.
   void updateMfibCounter(IpGenRouteKey key, Qor::U64 value, bool active);
   void removeMfibCounter(IpGenRouteKey key);
   // For a platform whose hardware has stopped counting a route, or counts it again. Does nothing
   // without the counter.
   void setMfibCounterActive(IpGenRouteKey key, bool active);
   // The route need not have a counter here.
   void handleClearRouteCounter(IpGenRouteKey key);
   void handleWildcardCounter();
   // Hands on the mode, while routing is on, and clears all counters, the wildcard counter first:
   // packets and bytes do not add up.
   void handleMulticastCounterMode();

 private:
   using CounterRoute = std::pair<IpGenRouteKey, Qor::Name>;

   ~MrouteSm() override;

   // ---- Set-up, routing ----
   bool hwRoutes() const;
   bool routing() const { return l3Status() && l3Status()->multicastRoutingEnabled(); }
   void decideRouting();
   void syncMfibConfigVrf();

   // ---- Counters ----
   bool allCounter() const { return mfibVrfConfig() && mfibVrfConfig()->allCounter(); }
   CounterMode counterMode() const;
   bool counterRouteConfigured(CounterRoute const& route) const;
   Qor::Name const* vrfOfCounterRoute(IpGenRouteKey const& key) const;
   bool counterWanted(IpGenRouteKey const& key) const;
   bool countersPolled() const;
   std::vector<IpGenRouteKey> counterKeys() const;
   void handleCounterRoute(CounterRoute route);
   void syncCounterRoutes(std::vector<ConfigPtr> const& configs);
   void settleCounter(IpGenRouteKey key);
   void createCounter(IpGenRouteKey key);
   void deleteCounter(IpGenRouteKey key);
   bool writeCounter(IpGenRouteKey const& key, Qor::U64 value, bool active);
   bool counterListed(IpGenRouteKey const& key) const;
   Qor::U64 storedCounter(IpGenRouteKey const& key) const;
   bool makeCounterRoom();
   void publishCounter(IpGenRouteKey const& key);
   void publishCounts();

   Qor::Watched<VelCommonSmData const, QorAcsd> acsd_;
   Qor::Ptr<L3Status> const l3Status_;
   Qor::Watched<VrfConfig const, QorMfibVrfConfig> mfibVrfConfig_;
   Qor::Watched<HwStatus const, QorMfibHwStatus> mfibHwStatus_;
   Qor::Ptr<Ip::Status const> const ipStatus_;
   Qor::Ptr<VelHelper::MrouteSmHelper> const mrouteHelper_;
   Qor::Watched<VrfEnabledStatus const, QorMcastEnabledStatus> mcastEnabledStatus_;
   Qor::Watched<VerifyData const, QorVerifyData> verifyData_;
   MfibConfigVrfColl mfibConfigVrf_;
   Qor::Ptr<CounterStatus> mfibCounterStatus_;
   Qor::Ptr<CounterStatusCtl> mfibCounterStatusCtl_;
   Qor::WatchedClock<QorCounterPollingClock> counterPollingClock_;
   Qor::Seconds counterPollingInterval_ = 2.0;
   // The counters by route, as they are published; each is in the shadow under its time stamp.
   Qor::HashMap<IpGenRouteKey, CounterStatus::Entry> counter_;
   CounterShadow counterShadow_;
   Qor::U32 activeCounters_ = 0;
   // What of the two counts the control record has been told.
   Qor::U32 publishedSize_ = 0;
   Qor::U32 publishedActive_ = 0;
   // The routes that configurations name, with the VRF; a set.
   Qor::OrderedMap<CounterRoute, bool> counterRoute_;
   Qor::U32 abandonedDecisions_ = 0;
   // The platform has refused the wildcard counter, and allCounter has not changed since.
   bool wildcardRefused_ = false;
   bool disableVerify_ = false;
   bool initialized_ = false;
};

// Makes a reactor; the arguments are those of the constructor.
QOR_PUBLIC Qor::Ptr<MrouteSm> MrouteSmIs(
      Qor::Ptr<VelCommonSmData const> acsd, Qor::Ptr<L3Status> l3Status,
      Qor::Ptr<Routing::Multicast::Fib::VrfConfig const> mfibVrfConfig,
      Qor::Ptr<Routing::Multicast::Fib::Hardware::Status const> mfibHwStatus,
      Qor::Ptr<Ip::Status const> ipStatus, Qor::Ptr<VelHelper::MrouteSmHelper> mrouteHelper,
      Qor::Ptr<Routing::Multicast::Fib::VrfEnabledStatus const> mcastEnabledStatus);

}  // namespace Vel
