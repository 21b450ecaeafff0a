// The per-switch reactor of the synchronous path. It watches the programmer of one chip and the
// configuration and status around that programmer. It notifies the routing layer when the route
// table has room again, purges zombie oif sets, polls route activity, reroutes sets when an
// interface fails, and runs the chip's verification. The work is done within the notification that
// asks for it, or in slices on a clock.
//
//   concern                                           | source
//   --------------------------------------------------+-----------------------------
//   set-up, room for routes, clean-up                 | VelSyncMrouteSm.cpp
//   zombie clock                                      | VelSyncMrouteZombieClock.cpp
//   activity polling and aging review                 | VelSyncMrouteAging.cpp
//   fast reroute                                      | VelSyncMrouteFrr.cpp
//
// Threads. The thread of the activity loop makes all calls.
//
// Order. Make the hook object and the switch (Vel/VelSyncMrouteSwitch.h) first, then this reactor.
// Let go of the reactor before the routes and records: its end marks the switch deleted, so that
// records are freed at once from then on.
//
// Errors. The error of a hook or of a listener ends the handler that called it. The error reaches
// the caller of the mutator that notified the reactor, or the activity loop's caller if a clock
// fired; that clock fires again after Qor::Clock::retryGap. A set whose rewrite throws stays in
// frrProcessingOifSet. The reactor's end frees zombies inside its destructor, where no hook
// and no listener may throw: the process is terminated.
//
// Inputs. The switch is required (RangeException of null parameters), though mrouteSwitchDel() may
// take it away for a while. Every other input may be null:
//
//   null input              | consequence
//   ------------------------+--------------------------------------------------------------------
//   acsd                    | no verification, unless the caller sets verifyData
//   l3Status                | the reactor is not notified of review requests; each VRF has the id 0
//   intfVlanIdTable         | no interface has a vlan: no route is polled
//   mfibConfig              | no review is scheduled
//   mfibHwStatus            | no route is polled
//   mrouteHelper            | no hook is called: mrouteTcamFree is never set, no hit bit is read,
//                           | and sets that wait for fast reroute are dropped
//   zombieClock, agingClock | never armed: zombies are not purged, routes are not polled
//   ethIntfStatusDir        | the reactor is not notified of interface failures
//   allIntfStatusDir,       | none: the reactor keeps them for the platform and does not read them
//   allIntfStatusLocalDir   |
//
// Clocks. After construction the aging clock is armed if the switch has routes, and the zombie
// clock is armed if the switch has zombies; otherwise each stands at `never`. The destructor sets
// the three clocks to `never`.
//
// Process-wide positions. The aging review and the fast-reroute pass each keep their position in
// one variable for the whole process, since slices never overlap. With several chips, a slice
// therefore starts where the last slice of any chip stopped. The review's position is the VRF and
// the last route reviewed, and the review goes on behind that route. The reactor that set a
// position clears it at its end. The review's position is cleared also when its reactor stops
// reviewing.
//
// Notifications. The setters of inputs and settings and the operations of the collection notify the
// reactor's own notifiees, after everything that depends on the change is updated. A hook or a
// listener may drop the last reference to the reactor in the middle of any operation.
//
// Ownership. The reactor holds its inputs counted. It owns the nested reactors, which point back at
// it.
#pragma once

#include "Interface/AllIntfStatusDir.h"
#include "Interface/AllIntfStatusLocalDir.h"
#include "Interface/EthIntfStatusDir.h"
#include "IntfVlanId/Table.h"
#include "Qor/Reactors.h"
#include "Routing/Multicast/Fib/VrfConfig.h"
#include "Vel/VelSyncMrouteSwitch.h"

namespace Vel {

class QOR_PUBLIC MrouteSwitchSm final : public Qor::Entity<MrouteSwitchSm, Qor::StateMachine> {
 public:
   class Notifiee : public Qor::NotifieeOf<MrouteSwitchSm> {
    public:
      virtual void onAcsd() {}
      virtual void onL3Status() {}
      virtual void onMrouteSwitch() {}
      virtual void onMfibConfig() {}
      virtual void onZombieClock() {}
      virtual void onAgingClock() {}
      virtual void onEthIntfStatusDir() {}
      virtual void onClock() {}
      virtual void onVerifyData() {}
      virtual void onAgingReviewInterval() {}
      virtual void onAgingReviewQuota() {}
      virtual void onDisableVerify() {}
      virtual void onEthIntfStatus(Lnet::IntfId const&) {}
      virtual void onEthIntfStatusImmediate() {}

    protected:
      void onImmediate() override { onEthIntfStatusImmediate(); }
   };

   using EthIntfStatusPtr = Qor::Ptr<Interface::EthIntfStatus const>;

   // The reactors, named after the input that each watches.
   class QorAcsd;
   class QorL3Status;
   class QorMrouteSwitch;
   class QorMfibConfig;
   class QorZombieClock;
   class QorAgingClock;
   class QorEthIntfStatusDir;
   class QorEthIntfStatus;
   class QorClock;
   class QorVerifyData;

   using EthIntfStatusColl =
         Qor::ReactorColl<Lnet::IntfId, QorEthIntfStatus, &Notifiee::onEthIntfStatus,
                          &Notifiee::onEthIntfStatusImmediate>;

   MrouteSwitchSm(Qor::U32 switchId, Qor::Ptr<VelCommonSmData> acsd, Qor::Ptr<L3Status> l3Status,
                  Qor::Ptr<MrouteSwitch> mrouteSwitch,
                  Qor::Ptr<IntfVlanId::Table const> intfVlanIdTable,
                  Qor::Ptr<Routing::Multicast::Fib::VrfConfig const> mfibConfig,
                  Qor::Ptr<Routing::Multicast::Fib::Hardware::Status> mfibHwStatus,
                  Qor::Ptr<VelHelper::MrouteSmHelper> mrouteHelper,
                  Qor::Ptr<Qor::Clock const> zombieClock, Qor::Ptr<Qor::Clock const> agingClock,
                  Qor::Ptr<Interface::EthIntfStatusDir const> ethIntfStatusDir,
                  Qor::Ptr<Interface::AllIntfStatusDir const> allIntfStatusDir,
                  Qor::Ptr<Interface::AllIntfStatusLocalDir const> allIntfStatusLocalDir);

   // The number that the reactor passes to mrouteFull(). For hit bits and rewrites the reactor
   // passes the switch's own number.
   Qor::U32 switchId() const { return switchId_; }

   // ---- Inputs. An input with a reactor may be set again, which moves the reactor to the new
   //      entity, or set to null, which deletes the reactor. A clock that replaces another clock
   //      takes over its timeMin, and the replaced clock is disarmed. ----

   Qor::Ptr<VelCommonSmData> const& acsd() const { return acsd_.object(); }
   void acsdIs(Qor::Ptr<VelCommonSmData> v);
   QorAcsd* newAcsd(Qor::Ptr<VelCommonSmData> v);
   void acsdDel() { acsdIs(nullptr); }
   Qor::Ptr<L3Status> const& l3Status() const { return l3Status_.object(); }
   void l3StatusIs(Qor::Ptr<L3Status> v);
   QorL3Status* newL3Status(Qor::Ptr<L3Status> v);
   void l3StatusDel() { l3StatusIs(nullptr); }
   Qor::Ptr<MrouteSwitch> const& mrouteSwitch() const { return mrouteSwitch_.object(); }
   void mrouteSwitchIs(Qor::Ptr<MrouteSwitch> v);  // not null
   QorMrouteSwitch* newMrouteSwitch(Qor::Ptr<MrouteSwitch> v);
   // Parts from the switch and leaves the switch as it is: not marked deleted, with its zombies,
   // routes and waiting sets, which no reactor takes care of then. The reactor disarms all clocks.
   // Its handlers leave all tables alone until mrouteSwitchIs() sets a switch again. A reactor that
   // is destroyed without a switch cleans nothing up.
   void mrouteSwitchDel();
   Qor::Ptr<IntfVlanId::Table const> const& intfVlanIdTable() const { return intfVlanIdTable_; }
   Qor::Ptr<Routing::Multicast::Fib::VrfConfig const> const& mfibConfig() const {
      return mfibConfig_.object();
   }
   void mfibConfigIs(Qor::Ptr<Routing::Multicast::Fib::VrfConfig const> v);
   QorMfibConfig* newMfibConfig(Qor::Ptr<Routing::Multicast::Fib::VrfConfig const> v);
   void mfibConfigDel() { mfibConfigIs(nullptr); }
   Qor::Ptr<Routing::Multicast::Fib::Hardware::Status> const& mfibHwStatus() const {
      return mfibHwStatus_;
   }
   Qor::Ptr<VelHelper::MrouteSmHelper> const& mrouteHelper() const { return mrouteHelper_; }
   Qor::Ptr<Qor::Clock const> const& zombieClock() const { return zombieClock_.object(); }
   void zombieClockIs(Qor::Ptr<Qor::Clock const> v);
   QorZombieClock* newZombieClock(Qor::Ptr<Qor::Clock const> v);
   void zombieClockDel() { zombieClockIs(nullptr); }
   Qor::Ptr<Qor::Clock const> const& agingClock() const { return agingClock_.object(); }
   void agingClockIs(Qor::Ptr<Qor::Clock const> v);
   QorAgingClock* newAgingClock(Qor::Ptr<Qor::Clock const> v);
   void agingClockDel() { agingClockIs(nullptr); }
   Qor::Ptr<Interface::EthIntfStatusDir const> const& ethIntfStatusDir() const {
      return ethIntfStatusDir_.object();
   }
   void ethIntfStatusDirIs(Qor::Ptr<Interface::EthIntfStatusDir const> v);
   QorEthIntfStatusDir* newEthIntfStatusDir(Qor::Ptr<Interface::EthIntfStatusDir const> v);
   void ethIntfStatusDirDel() { ethIntfStatusDirIs(nullptr); }
   Qor::Ptr<Interface::AllIntfStatusDir const> const& allIntfStatusDir() const {
      return allIntfStatusDir_;
   }
   Qor::Ptr<Interface::AllIntfStatusLocalDir const> const& allIntfStatusLocalDir() const {
      return allIntfStatusLocalDir_;
   }
   // The fast-reroute clock. The reactor takes the clock from the activity manager when a pass
   // first has to yield; before, the attribute is null. The clock is armed while a pass has left
   // oif sets to rewrite.
   Qor::Ptr<Qor::Clock const> const& clock() const { return clock_.object(); }
   void clockIs(Qor::Ptr<Qor::Clock const> v);
   QorClock* newClock(Qor::Ptr<Qor::Clock const> v);
   void clockDel() { clockIs(nullptr); }
   // The verifyData of `acsd`; the attribute follows a change of it.
   Qor::Ptr<VerifyData const> const& verifyData() const { return verifyData_.object(); }
   void verifyDataIs(Qor::Ptr<VerifyData const> v);
   QorVerifyData* newVerifyData(Qor::Ptr<VerifyData const> v);
   void verifyDataDel() { verifyDataIs(nullptr); }

   // ---- Settings. ----

   // The pause between two slices of the aging review (interval), and the duration of a slice
   // (quota), in seconds. A pause shorter than Clock::retryGap lasts Clock::retryGap.
   // RangeException
   //    "MrouteSwitchSm::agingReviewInterval < 0 or not finite not allowed"
   // and the same for agingReviewQuota.
   Qor::Seconds agingReviewInterval() const { return agingReviewInterval_; }
   void agingReviewIntervalIs(Qor::Seconds v);
   Qor::Seconds agingReviewQuota() const { return agingReviewQuota_; }
   void agingReviewQuotaIs(Qor::Seconds v);
   // While true, the reactor does not verify.
   bool disableVerify() const { return disableVerify_; }
   void disableVerifyIs(bool v) { attrIs<&Notifiee::onDisableVerify>(disableVerify_, v); }

   // ---- One reactor for each Ethernet interface. A null argument raises the RangeException of
   // null
   //      parameters (Qor::throwNullParameter). The new...() form does the same as the ...Is() form
   //      and returns the reactor. ----

   EthIntfStatusColl::Map const& ethIntfStatus() const { return ethIntfStatus_.map(); }
   QorEthIntfStatus* ethIntfStatus(Lnet::IntfId intfId) const;
   Qor::U32 ethIntfStatuses() const;
   QorEthIntfStatus* newEthIntfStatus(EthIntfStatusPtr status);
   void ethIntfStatusIs(EthIntfStatusPtr status);
   void ethIntfStatusDel(Lnet::IntfId intfId);
   EthIntfStatusColl::Iterator ethIntfStatusDel(EthIntfStatusColl::Iterator it);
   void ethIntfStatusDelAll();
   void ethIntfStatusNotify(Lnet::IntfId intfId);

   // True once handleInitialized() has run. Before, the handlers of zombies, of the zombie and the
   // aging clock, of interface failures and of verifications do nothing.
   bool initialized() const { return initialized_; }

   // ---- Handlers and operations. ----

   // Ends the construction, once.
   void handleInitialized();
   // Marks the switch deleted and removes all zombies. The destructor runs this.
   void doCleanup();

   // Sets mrouteTcamFree if the route table has room again; then runs maybeScheduleAgingReview().
   void maybeScheduleRoutesReview();
   // Starts the aging review if the switch has routes, and stops it otherwise. If the switch has no
   // routes and no review is armed, increments mrouteReviewKick, so that the routing layer tries
   // its waiting routes again.
   void maybeScheduleAgingReview();

   // Arms the zombie clock for the expiry of the first zombie, or disarms it.
   void handleZombie();
   // Removes the zombies that are due.
   void handleZombieClock();

   // Starts the next slice of a running review at once; writes the configured interval to
   // mfibHwStatus.pollingInterval.
   void handlePollingInterval();
   // Runs one slice of the review, which sets the poll time of each hit route to the present time.
   void doRouteAgingReview();

   // Moves the sets that have the failed interface as their input and have backup members to
   // frrProcessingOifSet, and runs handleClock(). A zombie only leaves frrMtableOifSet. The records
   // of these sets stay dirty for good.
   void updateFrrMtableOif(Lnet::IntfId intfId);
   // Runs one pass over frrProcessingOifSet, from the position where the last pass stopped. The
   // pass rewrites each set with its backup members, in place under its own index.
   void handleClock();

   void handleVerify();

 private:
   ~MrouteSwitchSm() override;

   void syncEthIntfStatus();
   void disarmClocks();
   bool hasRoutes() const {
      return initialized() && mrouteSwitch() && !mrouteSwitch()->route().empty();
   }
   bool setsWait() const {
      return mrouteSwitch() && !mrouteSwitch()->frrProcessingOifSet().empty();
   }
   Bridging::VlanIdOrNone vlanOf(Lnet::IntfId intfId) const;
   void reviewRoute(Routing::Multicast::Fib::Hardware::RouteStatus& route, Qor::U16 vrfId);
   bool isHit(Routing::Multicast::Fib::IpGenRouteKey const& key, Bridging::VlanIdOrNone vlan,
              Qor::U16 vrfId) const;
   void reviewStopped() const;
   void rewriteForFrr(MrouteSwitch& chip, MrouteLib::OifSetPtr const& oifSet);

   Qor::U32 const switchId_;
   Qor::Watched<VelCommonSmData, QorAcsd> acsd_;
   Qor::Watched<L3Status, QorL3Status> l3Status_;
   Qor::Watched<MrouteSwitch, QorMrouteSwitch> mrouteSwitch_;
   Qor::Ptr<IntfVlanId::Table const> const intfVlanIdTable_;
   Qor::Watched<Routing::Multicast::Fib::VrfConfig const, QorMfibConfig> mfibConfig_;
   Qor::Ptr<Routing::Multicast::Fib::Hardware::Status> const mfibHwStatus_;
   Qor::Ptr<VelHelper::MrouteSmHelper> const mrouteHelper_;
   Qor::WatchedClock<QorZombieClock> zombieClock_;
   Qor::Seconds agingReviewInterval_ = 0.01;
   Qor::Seconds agingReviewQuota_ = 0.05;
   Qor::WatchedClock<QorAgingClock> agingClock_;
   Qor::Watched<Interface::EthIntfStatusDir const, QorEthIntfStatusDir> ethIntfStatusDir_;
   Qor::Ptr<Interface::AllIntfStatusDir const> const allIntfStatusDir_;
   Qor::Ptr<Interface::AllIntfStatusLocalDir const> const allIntfStatusLocalDir_;
   EthIntfStatusColl ethIntfStatus_;
   Qor::WatchedClock<QorClock> clock_;
   Qor::Watched<VerifyData const, QorVerifyData> verifyData_;
   bool disableVerify_ = false;
   bool initialized_ = false;
};

// Makes a reactor; the arguments are those of the constructor.
QOR_PUBLIC Qor::Ptr<MrouteSwitchSm> MrouteSwitchSmIs(
      Qor::U32 switchId, Qor::Ptr<VelCommonSmData> acsd, Qor::Ptr<L3Status> l3Status,
      Qor::Ptr<MrouteSwitch> mrouteSwitch, Qor::Ptr<IntfVlanId::Table const> intfVlanIdTable,
      Qor::Ptr<Routing::Multicast::Fib::VrfConfig const> mfibConfig,
      Qor::Ptr<Routing::Multicast::Fib::Hardware::Status> mfibHwStatus,
      Qor::Ptr<VelHelper::MrouteSmHelper> mrouteHelper, Qor::Ptr<Qor::Clock const> zombieClock,
      Qor::Ptr<Qor::Clock const> agingClock,
      Qor::Ptr<Interface::EthIntfStatusDir const> ethIntfStatusDir,
      Qor::Ptr<Interface::AllIntfStatusDir const> allIntfStatusDir,
      Qor::Ptr<Interface::AllIntfStatusLocalDir const> allIntfStatusLocalDir);

}  // namespace Vel
