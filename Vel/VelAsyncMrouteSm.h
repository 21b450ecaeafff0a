// The per-switch reactor of the asynchronous path. It programs no routes. It watches the switch
// entity, the configuration and the status, and does the work that time or a change of status
// requires: it purges zombie oif sets, polls route activity, reroutes groups when an interface or a
// BFD session fails, and passes the counter settings to the platform.
//
//   concern                                         | source
//   ------------------------------------------------+-----------------------------
//   set-up, tracking of directories, clean-up       | VelAsyncMrouteSm.cpp
//   the inputs and operations of both paths         | VelPerSwitchSm.h, VelPerSwitchSmMembers.h
//   zombie clock                                    | VelAsyncMrouteZombieClock.cpp
//   activity polling and aging review               | VelAsyncMrouteAging.cpp
//   fast reroute                                    | VelAsyncMrouteFrr.cpp
//   counter settings                                | VelAsyncMrouteCounters.cpp
//
// Inputs. asyncMrouteSwitchSmFactory() takes them by name, AsyncMrouteSwitchSmIs() by position. The
// switch is required; every other input may be null, and then:
//
//   null input              | consequence
//   ------------------------+--------------------------------------------------------------------
//   intfVlanIdTable         | no interface has a vlan: only routes that accept from any interface
//                           | are polled. Fast reroute is not affected
//   mfibConfig              | no route is polled, no counter setting is passed to the platform
//   mfibHwStatus            | no route is polled; a route that comes into use fails an assertion
//   mrouteHelper            | no hook is called: the configured intervals apply, no route counts
//                           | as hit, and waiting sets leave fast reroute without a rewrite
//   zombieClock             | zombies do not expire
//   agingClock              | no route is polled
//   ethIntfStatusDir        | interface failures start no fast reroute
//   bfdAllPeerStatusDir     | the reactor does not register as a BFD application
//   bfdAllPeerStatus        | likewise, and BFD failures start no fast reroute
//   allIntfStatusDir,       | none: the reactor does not read these two inputs, and keeps them for
//   allIntfStatusLocalDir   | the platform
//
// Thread. All calls come from one thread, which drives the activity loop; no object has a lock. A
// completion on another thread enters the loop through Qor/Inbox.h.
//
// Order of life. Make the hooks, then the switch, then the reactor. Release the reactor first, then
// the routes and the records, and the switch last. The reactor's destructor marks the switch
// deleted and frees the zombies, so that each record released afterwards is freed at once.
//
// Ownership. Inputs are held counted. The reactor owns its nested reactors, which point back at it
// without holding it. A hook or a listener may release the last reference to the reactor in the
// middle of any operation of the reactor, the clean-up included.
//
// Clocks. After construction the aging clock is armed if there is a configuration, and the zombie
// clock if there are zombies; otherwise the two clocks stand at `never`. The destructor sets these
// two and the fast-reroute clock to `never`.
//
// Notifications. The setters of inputs and the operations of the collections notify the reactor's
// own notifiees, after everything that depends on the change has followed the change.
//
// Errors. An error thrown by a hook or a listener ends the handler that called it. The error
// reaches the caller of the mutator that started the handler, or of the activity loop if a clock
// did. The change that started the handler stays made. A clock that fired and was not armed again
// fires after Qor::Clock::retryGap: an aging review then starts again with the first route. If sets
// wait after an error in a reroute, the fast-reroute clock is armed for Qor::Clock::retryGap later.
// The pass then continues with all sets that wait, the failed set included. Hooks and listeners
// must not throw in the destructor of the reactor, nor in the freeing of a record, which a zombie
// pass causes too: the process is terminated.
//
// Process-wide positions. The process has one position for the aging review and one for the
// fast-reroute pass. A position is the place where the last slice stopped and the next slice
// begins; slices never overlap. With two reactors, the reactor whose clock fires next continues the
// other's review over its own tables, and the reactor that completes a review ends it for both. In
// that interval a route may be polled twice, or not before the next review. If two reactors watch
// large tables of their own, the later routes of the larger table may go without being polled while
// the other reactor keeps completing reviews; reactors of one table share the work instead. A
// position is a key with a place, or holds its oif set counted, so a removal between two slices
// does no harm. A fast-reroute position ends with its reactor. The position of the review is
// cleared when a review is complete or ends by an error: it outlives its reactor, and a time
// without routes.
#pragma once

#include <utility>

#include "Bfd/StatusPeer.h"
#include "Vel/VelAsyncMrouteSwitch.h"
#include "Vel/VelPerSwitchSm.h"

namespace Vel::Mroute {

class AsyncMrouteSwitchSm;

// The types of this path in the common part of the reactors.
struct QOR_PUBLIC AsyncSmPath {
   using Switch = AsyncMrouteSwitch;
   using Helper = VelHelper::AsyncMrouteHelper;
   class Reactor;
   class QorMrouteSwitch;
   class QorMfibConfig;
};

class QOR_PUBLIC AsyncMrouteSwitchSm final : public PerSwitchSm<AsyncMrouteSwitchSm, AsyncSmPath> {
 public:
   static constexpr char const* typeName = "Vel::Mroute::AsyncMrouteSwitchSm";

   class Notifiee : public PerSwitchSmNotifiee<AsyncMrouteSwitchSm> {
    public:
      virtual void onBfdAllPeerStatus() {}
      virtual void onBfdVelAsyncMrouteSm() {}
      virtual void onBfdStatus(Bfd::Peer const&) {}
      virtual void onBfdStatusImmediate() {}
      virtual void onMfibConfigVrf(Qor::Name const&) {}
      virtual void onMfibConfigVrfImmediate() {}

    protected:
      void onImmediate() override {
         PerSwitchSmNotifiee::onImmediate();
         onBfdStatusImmediate();
         onMfibConfigVrfImmediate();
      }
   };

   // The inputs by name, for asyncMrouteSwitchSmFactory(); those that are left out are null.
   struct Inputs {
      Qor::Ptr<AsyncMrouteSwitch> mrouteSwitch{};
      Qor::Ptr<IntfVlanId::Table const> intfVlanIdTable{};
      Qor::Ptr<Routing::Multicast::Fib::VrfConfig const> mfibConfig{};
      Qor::Ptr<Routing::Multicast::Fib::Hardware::Status> mfibHwStatus{};
      Qor::Ptr<VelHelper::AsyncMrouteHelper> mrouteHelper{};
      Qor::Ptr<Qor::Clock const> zombieClock{};
      Qor::Ptr<Qor::Clock const> agingClock{};
      Qor::Ptr<Interface::EthIntfStatusDir const> ethIntfStatusDir{};
      Qor::Ptr<Bfd::StatusPeer const> bfdAllPeerStatusDir{};
      Qor::Ptr<Bfd::AppStatus> bfdAllPeerStatus{};
      Qor::Ptr<Interface::AllIntfStatusDir const> allIntfStatusDir{};
      Qor::Ptr<Interface::AllIntfStatusLocalDir const> allIntfStatusLocalDir{};
   };

   using BfdPeerStatusPtr = Qor::Ptr<Bfd::BfdPeerStatus const>;
   using ConfigPtr = Qor::Ptr<Routing::Multicast::Fib::Config const>;
   using IpGenRouteKey = Routing::Multicast::Fib::IpGenRouteKey;

   // The longest time of a zombie pass, in seconds, tested after every zombieCheckStride removals.
   static constexpr Qor::Seconds zombiePassBudget = 3.0;
   static constexpr Qor::U32 zombieCheckStride = 5;
   // An aging pass ends with the route that brings the reviewed entries (routes and fastdrops) to
   // the quota. The next pass of the review follows after the gap, in seconds.
   static constexpr Qor::U32 agingQuota = 256;
   static constexpr Qor::Seconds agingGap = 0.2;

   // Nested reactors, each named after the entity that it watches.
   class QorMfibConfigVrf;
   class QorBfdAllPeerStatus;
   class QorBfdStatus;

   using BfdStatusColl = Qor::ReactorColl<Bfd::Peer, QorBfdStatus, &Notifiee::onBfdStatus,
                                          &Notifiee::onBfdStatusImmediate>;
   using MfibConfigVrfColl =
         Qor::ReactorColl<Qor::Name, QorMfibConfigVrf, &Notifiee::onMfibConfigVrf,
                          &Notifiee::onMfibConfigVrfImmediate>;

   explicit AsyncMrouteSwitchSm(Inputs inputs);
   // The same with the inputs by position.
   AsyncMrouteSwitchSm(Qor::Ptr<AsyncMrouteSwitch> mrouteSwitch,
                       Qor::Ptr<IntfVlanId::Table const> intfVlanIdTable,
                       Qor::Ptr<Routing::Multicast::Fib::VrfConfig const> mfibConfig,
                       Qor::Ptr<Routing::Multicast::Fib::Hardware::Status> mfibHwStatus,
                       Qor::Ptr<VelHelper::AsyncMrouteHelper> mrouteHelper,
                       Qor::Ptr<Qor::Clock const> zombieClock,
                       Qor::Ptr<Qor::Clock const> agingClock,
                       Qor::Ptr<Interface::EthIntfStatusDir const> ethIntfStatusDir,
                       Qor::Ptr<Bfd::StatusPeer const> bfdAllPeerStatusDir,
                       Qor::Ptr<Bfd::AppStatus> bfdAllPeerStatus,
                       Qor::Ptr<Interface::AllIntfStatusDir const> allIntfStatusDir,
                       Qor::Ptr<Interface::AllIntfStatusLocalDir const> allIntfStatusLocalDir)
         : AsyncMrouteSwitchSm(
                 Inputs{std::move(mrouteSwitch), std::move(intfVlanIdTable), std::move(mfibConfig),
                        std::move(mfibHwStatus), std::move(mrouteHelper), std::move(zombieClock),
                        std::move(agingClock), std::move(ethIntfStatusDir),
                        std::move(bfdAllPeerStatusDir), std::move(bfdAllPeerStatus),
                        std::move(allIntfStatusDir), std::move(allIntfStatusLocalDir)}) {}

   // ---- Inputs beside those of PerSwitchSm. A new configuration passes its counter mode, its
   //      wildcard flag and its polling interval to the platform at once; after null, the platform
   //      keeps the last settings. ----

   Qor::Ptr<Bfd::StatusPeer const> const& bfdAllPeerStatusDir() const {
      return bfdAllPeerStatusDir_;
   }
   Qor::Ptr<Bfd::AppStatus> const& bfdAllPeerStatus() const { return bfdAllPeerStatus_.object(); }
   void bfdAllPeerStatusIs(Qor::Ptr<Bfd::AppStatus> v);
   QorBfdAllPeerStatus* newBfdAllPeerStatus(Qor::Ptr<Bfd::AppStatus> v) {
      auto const self = hold();
      bfdAllPeerStatusIs(std::move(v));
      return bfdAllPeerStatus_.reactor();
   }
   void bfdAllPeerStatusDel() { bfdAllPeerStatusIs(nullptr); }

   // ---- Collections of nested reactors: one reactor for each member of the directory that the
   //      collection follows, by the rules of ethIntfStatus. ----

   BfdStatusColl::Map const& bfdStatus() const { return bfdStatus_.map(); }
   QorBfdStatus* bfdStatus(Bfd::Peer const& peer) const;
   Qor::U32 bfdStatuses() const;
   QorBfdStatus* newBfdStatus(BfdPeerStatusPtr status);
   void bfdStatusIs(BfdPeerStatusPtr status);
   void bfdStatusDel(Bfd::Peer peer);
   BfdStatusColl::Iterator bfdStatusDel(BfdStatusColl::Iterator it);
   void bfdStatusDelAll();
   void bfdStatusNotify(Bfd::Peer peer);
   MfibConfigVrfColl::Map const& mfibConfigVrf() const { return mfibConfigVrf_.map(); }
   QorMfibConfigVrf* mfibConfigVrf(Qor::Name const& vrfName) const;
   Qor::U32 mfibConfigVrfs() const;
   QorMfibConfigVrf* newMfibConfigVrf(ConfigPtr config);
   void mfibConfigVrfIs(ConfigPtr config);
   void mfibConfigVrfDel(Qor::Name vrfName);
   MfibConfigVrfColl::Iterator mfibConfigVrfDel(MfibConfigVrfColl::Iterator it);
   void mfibConfigVrfDelAll();
   void mfibConfigVrfNotify(Qor::Name vrfName);

   // The registration as a BFD application; null while the reactor is not registered.
   Qor::Ptr<Bfd::AppRegistration> const& bfdVelAsyncMrouteSm() const {
      return bfdVelAsyncMrouteSm_;
   }
   void bfdVelAsyncMrouteSmIs(Qor::Name appName, Qor::Ptr<Bfd::StatusPeer const> dir,
                              Qor::Ptr<Bfd::AppStatus> status, L3::VrfName vrfName);
   void bfdVelAsyncMrouteSmDel();

   // Whether the construction is complete. Until then the handlers of zombies and of failures do
   // nothing. The setter notifies no reactor.
   bool initialized() const { return initialized_; }
   void initializedIs(bool v) { initialized_ = v; }

   // ---- Handlers and operations. ----

   // Completes the construction: arms the clocks, applies the polling interval and registers with
   // BFD. A second call does nothing.
   void handleInitialized();
   // Calls doMaybeScheduleRouteAgingReview() if the handle is in use. Called for each handle that
   // enters or leaves inUseRouteHandleKey.
   void handleRoute(MrouteLib::RouteHandle handle);
   // Marks the switch deleted, removes all zombies, disarms the zombie clock and removes the BFD
   // registration. Does nothing before the construction is complete. Called by the destructor.
   void doCleanup();

   // Arm the zombie clock for the expiry of the first zombie; disarm it if there are no zombies.
   void handleZombie();
   void handleZombie(ZombieKey const& key);
   // Removes the zombies that are due, within the budget of a pass.
   void handleZombieClock();
   // Removes the zombie that expires first, due or not; for an agent that has no free group.
   void doForcePurgeOneZombie();

   // Applies the configured polling interval: arms the aging clock unless the clock is armed, and
   // writes the interval that the platform can keep into mfibHwStatus.pollingInterval, as the low
   // eight bits of whole seconds. If that interval differs from the configured one, it logs
   // mrouteActivityPollingIntervalNotSupported. A clock counts as armed here while its time is
   // below the largest finite double.
   void handlePollingInterval();
   // Starts the review if there are routes and no review is scheduled; stops it if there are no
   // routes. A clock counts as armed here while its time is not above the largest finite double.
   void doMaybeScheduleRouteAgingReview();
   // One pass of the review: copies each hit time of the hardware that is later than lastPollTime
   // or fastdropLastPollTime into that attribute.
   void doRouteAgingReview();

   // Starts the fast reroute of each set that comes in over the failed interface and has backup
   // members (portVlanFrr), which are the complete new set: moves the set from frrMtableOifSet to
   // frrProcessingOifSet, marks all living records of the set dirty, and runs the first pass.
   void updateFrrMtableOif(Lnet::IntfId intfId);
   // One pass over frrProcessingOifSet, from the place where the last pass stopped. The oif set
   // objects stay unchanged: the platform receives new objects with the backup members as outgoing
   // members. The pass skips a record of a waiting set that is a zombie, or whose fixed group
   // belongs to another record.
   void handleClock();

   // Pass the counter mode and the wildcard flag of the configuration to the platform.
   void handleMulticastCounterMode();
   void handleWildcardCounter();

 private:
   friend AsyncSmPath;
   friend PerSwitchSm;

   ~AsyncMrouteSwitchSm() override;

   void switchFollows(bool first);
   void configFollows(bool changed);
   void agingClockFollows();
   void syncBfdStatus();
   void syncMfibConfigVrf();
   void registerWithBfd();
   Qor::Seconds pollingInterval() const;
   Qor::Seconds lastRoutePollTime(IpGenRouteKey const& key, Bridging::VlanIdOrNone vlan,
                                  VrfId vrfId);
   Qor::U32 reviewRoute(Routing::Multicast::Fib::Hardware::RouteStatus& route, VrfId vrfId);
   void handleOperStatus(Interface::EthIntfStatus const& status);
   void rewriteWaiting(Qor::Seconds begun);
   void rewriteForFrr(AsyncMrouteSwitch& chip, MrouteLib::OifSetPtr const& oifSet,
                      AsyncMrouteSwitch::NamedRecord named, Qor::Seconds time);

   Qor::Ptr<Bfd::StatusPeer const> const bfdAllPeerStatusDir_;
   Qor::Watched<Bfd::AppStatus, QorBfdAllPeerStatus> bfdAllPeerStatus_;
   BfdStatusColl bfdStatus_;
   MfibConfigVrfColl mfibConfigVrf_;
   Qor::Ptr<Bfd::AppRegistration> bfdVelAsyncMrouteSm_;
   bool initialized_ = false;
};

// Makes a reactor of named inputs:
//
//    auto const sm = asyncMrouteSwitchSmFactory({.mrouteSwitch = chip, .mrouteHelper = hooks});
QOR_PUBLIC Qor::Ptr<AsyncMrouteSwitchSm> asyncMrouteSwitchSmFactory(
      AsyncMrouteSwitchSm::Inputs inputs);
// The same with the inputs by position.
QOR_PUBLIC inline Qor::Ptr<AsyncMrouteSwitchSm> AsyncMrouteSwitchSmIs(
      Qor::Ptr<AsyncMrouteSwitch> mrouteSwitch, Qor::Ptr<IntfVlanId::Table const> intfVlanIdTable,
      Qor::Ptr<Routing::Multicast::Fib::VrfConfig const> mfibConfig,
      Qor::Ptr<Routing::Multicast::Fib::Hardware::Status> mfibHwStatus,
      Qor::Ptr<VelHelper::AsyncMrouteHelper> mrouteHelper, Qor::Ptr<Qor::Clock const> zombieClock,
      Qor::Ptr<Qor::Clock const> agingClock,
      Qor::Ptr<Interface::EthIntfStatusDir const> ethIntfStatusDir,
      Qor::Ptr<Bfd::StatusPeer const> bfdAllPeerStatusDir,
      Qor::Ptr<Bfd::AppStatus> bfdAllPeerStatus,
      Qor::Ptr<Interface::AllIntfStatusDir const> allIntfStatusDir,
      Qor::Ptr<Interface::AllIntfStatusLocalDir const> allIntfStatusLocalDir) {
   return asyncMrouteSwitchSmFactory(
         {std::move(mrouteSwitch), std::move(intfVlanIdTable), std::move(mfibConfig),
          std::move(mfibHwStatus), std::move(mrouteHelper), std::move(zombieClock),
          std::move(agingClock), std::move(ethIntfStatusDir), std::move(bfdAllPeerStatusDir),
          std::move(bfdAllPeerStatus), std::move(allIntfStatusDir),
          std::move(allIntfStatusLocalDir)});
}

}  // namespace Vel::Mroute
