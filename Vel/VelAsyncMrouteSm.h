// The per-switch reactor of the asynchronous path. It programs no routes. It watches the switch
// entity and the configuration and status around it, and does what must happen over time or in
// response to others: it purges zombie oif sets, polls route activity, reroutes groups when an
// interface or a BFD session fails, and hands the counter settings to the platform.
//
//   concern                                         | source
//   ------------------------------------------------+-----------------------------
//   set-up, tracking of directories, clean-up       | VelAsyncMrouteSm.cpp
//   zombie clock                                    | VelAsyncMrouteZombieClock.cpp
//   activity polling and aging review               | VelAsyncMrouteAging.cpp
//   fast reroute                                    | VelAsyncMrouteFrr.cpp
//   counter settings                                | VelAsyncMrouteCounters.cpp
//
// Inputs. The switch is required; every other input may be null, and then:
//
//   null input              | what it means
//   ------------------------+--------------------------------------------------------------------
//   intfVlanIdTable         | no interface has a vlan: only routes that accept from any interface
//                           | are polled. Fast reroute works without it
//   mfibConfig              | never read: nothing is polled, no counter setting is handed on
//   mfibHwStatus            | nothing is polled; a route coming into use is an assertion
//   mrouteHelper            | never called: intervals are taken as configured, no route is ever
//                           | hit, and groups that wait for fast reroute are dropped
//   zombieClock, agingClock | never armed: nobody purges zombies, nothing is polled
//   ethIntfStatusDir        | interface failures are not heard of
//   bfdAllPeerStatusDir     | not registered as a BFD application
//   bfdAllPeerStatus        | likewise, and BFD failures are not heard of
//   allIntfStatusDir,       | kept for the platform; nothing here reads them
//   allIntfStatusLocalDir   |
//
// Clocks. After construction the aging clock is armed if there is a configuration, and the zombie
// clock if there are zombies; otherwise both stand at `never`. After destruction all three do.
//
// Process-wide positions. The aging review and the fast-reroute pass keep the place where they
// stopped for the next slice in one position each for the whole process, since slices never
// overlap. With two reactors, a review that one has begun is continued by whichever fires next,
// over its own tables, and whoever completes it ends it for both: in that interval a route may be
// polled twice, or not before the next review. Where two reactors watch large tables of their own,
// the later routes of the larger one may go without being polled while the other keeps completing
// reviews; reactors of one table share the work instead. Positions are keys (or counted), so
// nothing that vanishes between two slices can hurt; a fast-reroute position dies with its reactor.
// The review's position is cleared only when a review is complete: it outlives its reactor, and a
// time without routes.
//
// Notifications. The setters of inputs and the operations of the collections notify the reactor's
// own notifiees, once all that depends on the change has followed it. A hook or a listener may let go
// of the reactor in the middle of any of its operations, its clean-up included.
//
// Ownership. Inputs are held counted. The nested reactors are the reactor's own and point back at
// it.
#pragma once

#include "Bfd/StatusPeer.h"
#include "Interface/AllIntfStatusDir.h"
#include "Interface/AllIntfStatusLocalDir.h"
#include "Interface/EthIntfStatusDir.h"
#include "IntfVlanId/Table.h"
#include "Qor/Reactors.h"
#include "Routing/Multicast/Fib/Hardware/Status.h"
#include "Routing/Multicast/Fib/VrfConfig.h"
#include "Vel/VelAsyncMrouteSwitch.h"
#include "Vel/VelMrouteFrr.h"

namespace Vel::Mroute {

class QOR_PUBLIC AsyncMrouteSwitchSm final
      : public Qor::Entity<AsyncMrouteSwitchSm, Qor::StateMachine> {
 public:
   class Notifiee : public Qor::NotifieeOf<AsyncMrouteSwitchSm> {
    public:
      virtual void onMrouteSwitch() {}
      virtual void onMfibConfig() {}
      virtual void onZombieClock() {}
      virtual void onAgingClock() {}
      virtual void onEthIntfStatusDir() {}
      virtual void onBfdAllPeerStatus() {}
      virtual void onClock() {}
      virtual void onBfdVelAsyncMrouteSm() {}
      virtual void onEthIntfStatus(Lnet::IntfId const&) {}
      virtual void onEthIntfStatusImmediate() {}
      virtual void onBfdStatus(Bfd::Peer const&) {}
      virtual void onBfdStatusImmediate() {}
      virtual void onMfibConfigVrf(Qor::Name const&) {}
      virtual void onMfibConfigVrfImmediate() {}

    protected:
      void onImmediate() override {
         onEthIntfStatusImmediate();
         onBfdStatusImmediate();
         onMfibConfigVrfImmediate();
      }
   };

   using EthIntfStatusPtr = Qor::Ptr<Interface::EthIntfStatus const>;
   using BfdPeerStatusPtr = Qor::Ptr<Bfd::BfdPeerStatus const>;
   using ConfigPtr = Qor::Ptr<Routing::Multicast::Fib::Config const>;
   using IpGenRouteKey = Routing::Multicast::Fib::IpGenRouteKey;

   // A zombie pass stops when it has lasted this long, tested after every zombieCheckStride
   // removals.
   static constexpr Qor::Seconds zombiePassBudget = 3.0;
   static constexpr Qor::U32 zombieCheckStride = 5;
   // An aging pass ends with the route that brings the reviewed entries (routes and fastdrops) to
   // the quota; the next one follows after the gap.
   static constexpr Qor::U32 agingQuota = 256;
   static constexpr Qor::Seconds agingGap = 0.2;
   static constexpr Qor::Seconds frrPassBudget = Vel::frrPassBudget;

   // Reactors, named after what they watch.
   class QorMrouteSwitch;
   class QorMfibConfig;
   class QorMfibConfigVrf;
   class QorZombieClock;
   class QorAgingClock;
   class QorClock;
   class QorEthIntfStatusDir;
   class QorEthIntfStatus;
   class QorBfdAllPeerStatus;
   class QorBfdStatus;

   using EthIntfStatusColl =
         Qor::ReactorColl<Lnet::IntfId, QorEthIntfStatus, &Notifiee::onEthIntfStatus,
                          &Notifiee::onEthIntfStatusImmediate>;
   using BfdStatusColl = Qor::ReactorColl<Bfd::Peer, QorBfdStatus, &Notifiee::onBfdStatus,
                                          &Notifiee::onBfdStatusImmediate>;
   using MfibConfigVrfColl =
         Qor::ReactorColl<Qor::Name, QorMfibConfigVrf, &Notifiee::onMfibConfigVrf,
                          &Notifiee::onMfibConfigVrfImmediate>;

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
                       Qor::Ptr<Interface::AllIntfStatusLocalDir const> allIntfStatusLocalDir);

   // ---- Inputs. Those with a reactor may be set again, which moves the reactor to the new entity,
   //      or to null, which deletes it; the members that a directory's reactor tracks follow. A
   //      clock that replaces another takes over what that was set to, and the other is disarmed.
   //      A configuration that replaces another hands its counter mode, its wildcard flag and its
   //      polling interval to the platform at once. After null, the platform keeps the last ones. ----

   Qor::Ptr<AsyncMrouteSwitch> const& mrouteSwitch() const { return mrouteSwitch_.object(); }
   void mrouteSwitchIs(Qor::Ptr<AsyncMrouteSwitch> v);  // not null
   QorMrouteSwitch* newMrouteSwitch(Qor::Ptr<AsyncMrouteSwitch> v) {
      auto const self = hold();
      mrouteSwitchIs(std::move(v));
      return mrouteSwitch_.reactor();
   }
   Qor::Ptr<IntfVlanId::Table const> const& intfVlanIdTable() const { return intfVlanIdTable_; }
   Qor::Ptr<Routing::Multicast::Fib::VrfConfig const> const& mfibConfig() const {
      return mfibConfig_.object();
   }
   void mfibConfigIs(Qor::Ptr<Routing::Multicast::Fib::VrfConfig const> v);
   QorMfibConfig* newMfibConfig(Qor::Ptr<Routing::Multicast::Fib::VrfConfig const> v) {
      auto const self = hold();
      mfibConfigIs(std::move(v));
      return mfibConfig_.reactor();
   }
   void mfibConfigDel() { mfibConfigIs(nullptr); }
   Qor::Ptr<Routing::Multicast::Fib::Hardware::Status> const& mfibHwStatus() const {
      return mfibHwStatus_;
   }
   Qor::Ptr<VelHelper::AsyncMrouteHelper> const& mrouteHelper() const { return mrouteHelper_; }
   Qor::Ptr<Qor::Clock const> const& zombieClock() const { return zombieClock_.object(); }
   void zombieClockIs(Qor::Ptr<Qor::Clock const> v);
   QorZombieClock* newZombieClock(Qor::Ptr<Qor::Clock const> v) {
      auto const self = hold();
      zombieClockIs(std::move(v));
      return zombieClock_.reactor();
   }
   void zombieClockDel() { zombieClockIs(nullptr); }
   Qor::Ptr<Qor::Clock const> const& agingClock() const { return agingClock_.object(); }
   void agingClockIs(Qor::Ptr<Qor::Clock const> v);
   QorAgingClock* newAgingClock(Qor::Ptr<Qor::Clock const> v) {
      auto const self = hold();
      agingClockIs(std::move(v));
      return agingClock_.reactor();
   }
   void agingClockDel() { agingClockIs(nullptr); }
   Qor::Ptr<Interface::EthIntfStatusDir const> const& ethIntfStatusDir() const {
      return ethIntfStatusDir_.object();
   }
   void ethIntfStatusDirIs(Qor::Ptr<Interface::EthIntfStatusDir const> v);
   QorEthIntfStatusDir* newEthIntfStatusDir(Qor::Ptr<Interface::EthIntfStatusDir const> v) {
      auto const self = hold();
      ethIntfStatusDirIs(std::move(v));
      return ethIntfStatusDir_.reactor();
   }
   void ethIntfStatusDirDel() { ethIntfStatusDirIs(nullptr); }
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
   Qor::Ptr<Interface::AllIntfStatusDir const> const& allIntfStatusDir() const {
      return allIntfStatusDir_;
   }
   Qor::Ptr<Interface::AllIntfStatusLocalDir const> const& allIntfStatusLocalDir() const {
      return allIntfStatusLocalDir_;
   }
   // The fast-reroute clock: taken from the activity manager when a pass first has to yield; null
   // until then. Armed exactly while oif sets wait to be rewritten.
   Qor::Ptr<Qor::Clock const> const& clock() const { return clock_.object(); }
   void clockIs(Qor::Ptr<Qor::Clock const> v);
   QorClock* newClock(Qor::Ptr<Qor::Clock const> v) {
      auto const self = hold();
      clockIs(std::move(v));
      return clock_.reactor();
   }
   void clockDel() { clockIs(nullptr); }

   // ---- Collections of reactors: one for each member of the directory they follow. The same
   //      entity set again keeps its reactor, another entity under the key gets a new one. A null
   //      argument raises the range error of null parameters (Qor::throwNullParameter). The
   //      new...() forms do the same and return the reactor. ----

   EthIntfStatusColl::Map const& ethIntfStatus() const { return ethIntfStatus_.map(); }
   QorEthIntfStatus* ethIntfStatus(Lnet::IntfId intfId) const;
   Qor::U32 ethIntfStatuses() const;
   QorEthIntfStatus* newEthIntfStatus(EthIntfStatusPtr status);
   void ethIntfStatusIs(EthIntfStatusPtr status);
   void ethIntfStatusDel(Lnet::IntfId intfId);
   EthIntfStatusColl::Iterator ethIntfStatusDel(EthIntfStatusColl::Iterator it);
   void ethIntfStatusDelAll();
   void ethIntfStatusNotify(Lnet::IntfId intfId);
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

   // The registration as a BFD application; null while there is none.
   Qor::Ptr<Bfd::AppRegistration> const& bfdVelAsyncMrouteSm() const {
      return bfdVelAsyncMrouteSm_;
   }
   void bfdVelAsyncMrouteSmIs(Qor::Name appName, Qor::Ptr<Bfd::StatusPeer const> dir,
                              Qor::Ptr<Bfd::AppStatus> status, L3::VrfName vrfName);
   void bfdVelAsyncMrouteSmDel();

   // Whether construction is through. Handlers of zombies and of failures do nothing before. Setting
   // it notifies nobody.
   bool initialized() const { return initialized_; }
   void initializedIs(bool v) { initialized_ = v; }

   // ---- Handlers and operations. ----

   // Ends the construction, once.
   void handleInitialized();
   // The handle came into use, or went out of it.
   void handleRoute(MrouteLib::RouteHandle handle);
   // Marks the switch deleted, removes all zombies, which ends the zombie clock's work, and the BFD
   // registration. Does nothing before initialisation. Run by the destructor.
   void doCleanup();

   // Keeps the zombie clock at the expiry of the first zombie.
   void handleZombie();
   void handleZombie(ZombieKey const& key);
   // Removes the zombies that are due, within the budget of a pass.
   void handleZombieClock();
   // Removes the oldest zombie, due or not; for an agent that ran out of groups.
   void doForcePurgeOneZombie();

   // Takes over the configured polling interval, as far as the platform can keep it: raises the log
   // message mrouteActivityPollingIntervalNotSupported otherwise, and writes
   // mfibHwStatus.pollingInterval. A clock counts as armed while its time is below the largest
   // finite double.
   void handlePollingInterval();
   // Starts the review when there are routes, stops it when there are none; a running one is left
   // alone. A clock counts as armed while its time is not above the largest finite double.
   void doMaybeScheduleRouteAgingReview();
   // One pass of the review: copies the hardware's hit times into lastPollTime and
   // fastdropLastPollTime, where they are later.
   void doRouteAgingReview();

   // Has the groups rewritten whose sets come in over the failed interface and have backup members.
   // The backup members (portVlanFrr) are the complete new set. All living records that carry such
   // a set turn dirty.
   void updateFrrMtableOif(Lnet::IntfId intfId);
   // One pass over frrProcessingOifSet, from where the last one stopped. The oif set objects stay
   // as they are: the platform is given new ones, with the backup members in the place of the
   // outgoing ones. Of the records that carry a waiting set, zombies and those whose fixed group
   // another record has taken over are left alone.
   void handleClock();

   void handleMulticastCounterMode();
   void handleWildcardCounter();

 private:
   ~AsyncMrouteSwitchSm() override;

   void syncEthIntfStatus();
   void syncBfdStatus();
   void syncMfibConfigVrf();
   void registerWithBfd();
   Qor::Seconds pollingInterval() const;
   Bridging::VlanIdOrNone vlanOf(Lnet::IntfId intfId) const;
   Qor::Seconds lastRoutePollTime(IpGenRouteKey const& key, Bridging::VlanIdOrNone vlan,
                                  VrfId vrfId);
   Qor::U32 reviewRoute(Routing::Multicast::Fib::Hardware::RouteStatus& route, VrfId vrfId);
   void rewriteForFrr(AsyncMrouteSwitch& chip, MrouteLib::OifSetPtr const& oifSet);

   Qor::Watched<AsyncMrouteSwitch, QorMrouteSwitch> mrouteSwitch_;
   Qor::Ptr<IntfVlanId::Table const> const intfVlanIdTable_;
   Qor::Watched<Routing::Multicast::Fib::VrfConfig const, QorMfibConfig> mfibConfig_;
   Qor::Ptr<Routing::Multicast::Fib::Hardware::Status> const mfibHwStatus_;
   Qor::Ptr<VelHelper::AsyncMrouteHelper> const mrouteHelper_;
   Qor::WatchedClock<QorZombieClock> zombieClock_;
   Qor::WatchedClock<QorAgingClock> agingClock_;
   Qor::Watched<Interface::EthIntfStatusDir const, QorEthIntfStatusDir> ethIntfStatusDir_;
   Qor::Ptr<Bfd::StatusPeer const> const bfdAllPeerStatusDir_;
   Qor::Watched<Bfd::AppStatus, QorBfdAllPeerStatus> bfdAllPeerStatus_;
   Qor::Ptr<Interface::AllIntfStatusDir const> const allIntfStatusDir_;
   Qor::Ptr<Interface::AllIntfStatusLocalDir const> const allIntfStatusLocalDir_;
   Qor::WatchedClock<QorClock> clock_;
   EthIntfStatusColl ethIntfStatus_;
   BfdStatusColl bfdStatus_;
   MfibConfigVrfColl mfibConfigVrf_;
   Qor::Ptr<Bfd::AppRegistration> bfdVelAsyncMrouteSm_;
   bool initialized_ = false;
};

// Makes a reactor; the arguments are those of the constructor.
QOR_PUBLIC Qor::Ptr<AsyncMrouteSwitchSm> AsyncMrouteSwitchSmIs(
      Qor::Ptr<AsyncMrouteSwitch> mrouteSwitch, Qor::Ptr<IntfVlanId::Table const> intfVlanIdTable,
      Qor::Ptr<Routing::Multicast::Fib::VrfConfig const> mfibConfig,
      Qor::Ptr<Routing::Multicast::Fib::Hardware::Status> mfibHwStatus,
      Qor::Ptr<VelHelper::AsyncMrouteHelper> mrouteHelper, Qor::Ptr<Qor::Clock const> zombieClock,
      Qor::Ptr<Qor::Clock const> agingClock,
      Qor::Ptr<Interface::EthIntfStatusDir const> ethIntfStatusDir,
      Qor::Ptr<Bfd::StatusPeer const> bfdAllPeerStatusDir,
      Qor::Ptr<Bfd::AppStatus> bfdAllPeerStatus,
      Qor::Ptr<Interface::AllIntfStatusDir const> allIntfStatusDir,
      Qor::Ptr<Interface::AllIntfStatusLocalDir const> allIntfStatusLocalDir);

}  // namespace Vel::Mroute
