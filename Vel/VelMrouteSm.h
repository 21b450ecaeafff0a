// The agent-wide reactor of the synchronous path. The reactor decides whether the hardware routes
// multicast at all, and passes the decision to the platform and to the layer 3 status. It keeps the
// route counters: it creates and deletes them, reads them on a clock, and publishes them. One such
// reactor serves all chips; each chip has a reactor of its own (Vel/VelSyncMrouteSm.h).
//
//   concern                                          | source
//   -------------------------------------------------+----------------------
//   set-up, turning routing on and off, verification | VelMrouteSm.cpp
//   counters: making, polling, clearing, publishing  | VelSyncMrouteCounters.cpp
//
// Threads. The thread of the activity loop makes all calls.
//
// Order. Make the hook object first, then this reactor, once for all chips. The library needs no
// order between this reactor and the switches; the constructor calls the hook mrouteInit(true). Let
// go of this reactor before the hook object.
//
// Errors. A hook that throws ends the operation, and the error reaches the caller of the mutator
// that notified the reactor. A counter whose creation throws is not recorded, and a counter whose
// deletion throws stays recorded. If a hook throws in the constructor, no reactor is made, and
// mrouteSm of the hook object is null again. A listener that throws ends the notification,
// and the error reaches the caller of the mutator. In the destructor the records lose their
// counters: their listeners must not throw there, since the process is terminated.
//
// Inputs. The hook object is required; every other input may be null:
//
//   null input           | consequence
//   ---------------------+-----------------------------------------------------------------------
//   acsd                 | no verification, unless the caller sets verifyData
//   l3Status             | VRF ids are 0, and the platform is notified once, at construction, of
//                        | the routing decision; a later change of an input that leads to a
//                        | decision is an assertion
//   mfibVrfConfig        | no counters, no counter mode, no reactors for VRFs
//   mfibHwStatus,        | multicast routing is off
//   mcastEnabledStatus   |
//   ipStatus             | none: the reactor keeps it for the platform and does not read it
//   mfibCounterStatus    | counters are created and deleted, but neither read nor published
//   mfibCounterStatusCtl | the number of counters has no limit, and no counter is read
//
// Routing. Multicast is routed while a VRF has it enabled and the hardware status says hwRouting.
// Each time the decision turns true, the reactor passes the counter mode to the platform and
// creates the wildcard counter. Before set-up is complete, a change of an input leads to no
// decision. If hooks or listeners overturn a decision while the reactor applies it, the reactor
// decides again, at most maxDecisions times. Then it leaves routing as it is, traces that and
// counts it in abandonedDecisions().
//
// Existence of counters.
//  - The wildcard counter, of the key canonicalCatchAllKey() and the VRF id 0, counts all routes.
//    The reactor creates it when routing turns on while allCounter is set, and when allCounter is
//    set while routing is on. The reactor deletes it when allCounter is cleared.
//  - A route in counterRoute of a VRF's configuration has a counter of its own, but only while
//    allCounter is set as well: a user who wants to see a single route has to turn on both. The
//    configuration alone decides, not the order of its changes. The reactor deletes the counter
//    with the entry, with the VRF's configuration or with allCounter. The hardware knows routes by
//    their keys alone. If several VRFs name the same route, the counter is created for the first
//    VRF by name, and is deleted when the last of these VRFs no longer names the route.
//  - The platform may enter further counters, of routes that it found, through updateMfibCounter().
// A counter that the platform refused, or that aged out, is missing until a change requests it
// again. The platform creates a new counter before an old counter makes room. So the platform sets
// the control record's limit at least one below the capacity of its hardware.
// Turning routing off leaves the counters alone: they keep their values and flags, and the platform
// returns 0 for their readings.
//
// Storage of counters. `counterShadow` orders all counters by the time of their last writing, so
// the first counter has been idle for longest; a writing moves the counter to the end. The two
// records hold published copies: they get all counters when they are set, and lose them when they
// are replaced and when the reactor is destroyed. The published value of a counter takes
// precedence. If the counter status has an entry with a time stamp, "unchanged" keeps the value of
// that entry, and a reading is added to it, also if another writer has published the entry. No
// value grows to unchangedCounter by addition.
//
// Notifications. Before set-up is complete, handlers trace and do nothing else; enabling routing
// then passes the present configuration to the platform. The setters of inputs and settings and the
// operations of the collection notify the reactor's own notifiees, after everything that depends on
// the change is updated. A hook or a listener may act in the middle of any operation, and may even
// drop the last reference to the reactor. A platform may hold the reactor counted from the first
// hook on.
//
// Clock. The reactor takes the clock from the activity manager; the clock is armed from set-up
// until the reactor is destroyed.
//
// Ownership. The reactor holds its inputs counted. It owns the nested reactors, which point back at
// it. The hook object points back at the reactor from construction to destruction.
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

   // The special value, passed by a caller or returned by the read hook, for a counter whose value
   // has not changed.
   static constexpr Qor::U64 unchangedCounter = ~Qor::U64{0};
   // The shortest polling interval, in seconds, so that polling cannot fill an instant.
   static constexpr Qor::Seconds minCounterPollingInterval = 0.01;
   // Limit on re-evaluating the routing decision when a hook or a handler changes its inputs while
   // the decision is being applied.
   static constexpr Qor::U32 maxDecisions = 8;

   // The reactors, named after the input that each watches.
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

   // A null `mrouteHelper` raises the RangeException of null parameters (Qor::throwNullParameter).
   MrouteSm(Qor::Ptr<VelCommonSmData const> acsd, Qor::Ptr<L3Status> l3Status,
            Qor::Ptr<VrfConfig const> mfibVrfConfig, Qor::Ptr<HwStatus const> mfibHwStatus,
            Qor::Ptr<Ip::Status const> ipStatus, Qor::Ptr<VelHelper::MrouteSmHelper> mrouteHelper,
            Qor::Ptr<VrfEnabledStatus const> mcastEnabledStatus);

   // ---- Inputs. An input with a reactor may be set again, which moves the reactor to the new
   //      entity, or set to null, which deletes the reactor. The state that depends on the input is
   //      updated at once. ----

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
   // The verifyData of `acsd`; the attribute follows a change of it.
   Qor::Ptr<VerifyData const> const& verifyData() const { return verifyData_.object(); }
   void verifyDataIs(Qor::Ptr<VerifyData const> v);
   QorVerifyData* newVerifyData(Qor::Ptr<VerifyData const> v) {
      auto const self = hold();
      verifyDataIs(std::move(v));
      return verifyData_.reactor();
   }
   void verifyDataDel() { verifyDataIs(nullptr); }

   // The records in which the reactor publishes counters; null until a caller sets them.
   Qor::Ptr<CounterStatus> const& mfibCounterStatus() const { return mfibCounterStatus_; }
   void mfibCounterStatusIs(Qor::Ptr<CounterStatus> v);
   Qor::Ptr<CounterStatusCtl> const& mfibCounterStatusCtl() const { return mfibCounterStatusCtl_; }
   void mfibCounterStatusCtlIs(Qor::Ptr<CounterStatusCtl> v);

   // A clock that replaces another clock takes over its timeMin, and the replaced clock is
   // disarmed.
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
   // The time from one polling to the next, in seconds. After a change the next polling is one new
   // interval from now. An interval below minCounterPollingInterval becomes
   // minCounterPollingInterval. RangeException
   //    "MrouteSm::counterPollingInterval < 0 or not finite not allowed"
   Qor::Seconds counterPollingInterval() const { return counterPollingInterval_; }
   void counterPollingIntervalIs(Qor::Seconds v);

   // One reactor for each VRF with a configuration. The same entity set again keeps its reactor; a
   // different entity of the same name gets a new reactor. A null argument raises the
   // RangeException of null parameters. The new...() form does the same as the ...Is() form and
   // returns the reactor.
   MfibConfigVrfColl::Map const& mfibConfigVrf() const { return mfibConfigVrf_.map(); }
   QorMfibConfigVrf* mfibConfigVrf(Qor::Name const& vrfName) const;
   Qor::U32 mfibConfigVrfs() const;
   QorMfibConfigVrf* newMfibConfigVrf(ConfigPtr config);
   void mfibConfigVrfIs(ConfigPtr config);
   void mfibConfigVrfDel(Qor::Name vrfName);
   MfibConfigVrfColl::Iterator mfibConfigVrfDel(MfibConfigVrfColl::Iterator it);
   void mfibConfigVrfDelAll();
   void mfibConfigVrfNotify(Qor::Name vrfName);

   // All counters, the counter idle for longest first; the value is true for an active counter.
   CounterShadow const& counterShadow() const { return counterShadow_; }

   bool disableVerify() const { return disableVerify_; }
   void disableVerifyIs(bool v) { attrIs<&Notifiee::onDisableVerify>(disableVerify_, v); }
   bool initialized() const { return initialized_; }

   // ---- Routing. ----

   // Ends the construction, once.
   void handleInitialized();
   // True if a VRF has multicast enabled and the hardware status says hwRouting.
   bool isMulticastEnabled() const;
   // Evaluates the routing decision and applies a change of it. After set-up the L3 status must not
   // be null (assertion).
   void handleMulticastRouting();
   // Turns routing on or off, also if it is in that state already. Each call with true adds 1 to
   // numTimesMcastRoutingEnabled of the L3 status.
   void doEnableMulticastRouting(bool enable);
   // The number of times that maxDecisions re-evaluations did not settle the decision.
   Qor::U32 abandonedDecisions() const { return abandonedDecisions_; }
   // Calls the platform's hook verifyMulticastRouting(), unless disableVerify is set.
   void handleVerify();

   // ---- Counters. ----

   // Reads all active counters, while the control record's pollingRefCnt is not 0, and arms the
   // clock for the next polling. A counter that exists at the start, and still exists at its turn,
   // is read once.
   void doCounterPolling();
   // Writes a counter, with the present time as its time stamp; unchangedCounter keeps its value.
   // If the table is full, a new counter replaces the first counter of counterShadow. The new
   // counter is not entered if counterShadow is empty or a listener has taken the free place. So a
   // table whose limit was lowered does not grow, and shrinks as counters are removed.
   void updateMfibCounter(IpGenRouteKey key, Qor::U64 value, bool active);
   void removeMfibCounter(IpGenRouteKey key);
   // For a platform whose hardware has stopped counting a route, or counts the route again. Does
   // nothing for a route without a counter.
   void setMfibCounterActive(IpGenRouteKey key, bool active);
   // Clears the counter in the hardware and here. The route need not have a counter here.
   void handleClearRouteCounter(IpGenRouteKey key);
   // Creates or deletes the wildcard counter and the route counters after a change of allCounter.
   void handleWildcardCounter();
   // Passes the mode to the platform, while routing is on, and clears all counters, the wildcard
   // counter first: a sum of packets and bytes would mean nothing.
   void handleMulticastCounterMode();

 private:
   using CounterRoute = std::pair<IpGenRouteKey, Qor::Name>;

   ~MrouteSm() override;

   // ---- Set-up, routing ----
   void leaveHelper();
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
   // The counters by route, as published; counterShadow_ has each counter under its time stamp.
   Qor::HashMap<IpGenRouteKey, CounterStatus::Entry> counter_;
   CounterShadow counterShadow_;
   Qor::U32 activeCounters_ = 0;
   // The values of currSize and currActive already published to the control record.
   Qor::U32 publishedSize_ = 0;
   Qor::U32 publishedActive_ = 0;
   // The routes that configurations name, each with the VRF. All values are true.
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
