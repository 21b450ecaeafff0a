// The per-switch reactor of the synchronous path. It watches the programmer of one chip and the
// configuration and status around that programmer. It notifies the routing layer when the route
// table has room again, purges zombie oif sets, polls route activity, reroutes sets when an
// interface fails, and runs the chip's verification. The work is done within the notification that
// asks for it, or in slices on a clock.
//
//   concern                                           | source
//   --------------------------------------------------+-----------------------------
//   set-up, room for routes, clean-up                 | VelSyncMrouteSm.cpp
//   the inputs and operations of both paths           | VelPerSwitchSm.h, VelPerSwitchSmMembers.h
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
// frrProcessingOifSet. If sets wait after an error in a reroute, the fast-reroute clock is armed
// for Qor::Clock::retryGap later. The reactor's end frees zombies inside its destructor, where no hook
// and no listener may throw: the process is terminated.
//
// Inputs. mrouteSwitchSmFactory() takes them by name, MrouteSwitchSmIs() by position. The switch is
// required (RangeException of null parameters), though mrouteSwitchDel() may take it away for a
// while. Every other input may be null:
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
// the place of the last route reviewed, and the review goes on behind that place. The reactor that
// set a position clears it at its end. The review's position is cleared also when its reactor stops
// reviewing.
//
// Notifications. The setters of inputs and settings and the operations of the collection notify the
// reactor's own notifiees, after everything that depends on the change is updated. A hook or a
// listener may drop the last reference to the reactor in the middle of any operation.
//
// Ownership. The reactor holds its inputs counted. It owns the nested reactors, which point back at
// it.
#pragma once

#include <utility>

#include "Vel/VelPerSwitchSm.h"
#include "Vel/VelSyncMrouteSwitch.h"

namespace Vel {

class MrouteSwitchSm;

// The types of this path in the common part of the reactors.
struct QOR_PUBLIC SyncSmPath {
   using Switch = MrouteSwitch;
   using Helper = VelHelper::MrouteSmHelper;
   class Reactor;
   class QorMrouteSwitch;
   class QorMfibConfig;
};

class QOR_PUBLIC MrouteSwitchSm final : public PerSwitchSm<MrouteSwitchSm, SyncSmPath> {
 public:
   static constexpr char const* typeName = "Vel::MrouteSwitchSm";

   class Notifiee : public PerSwitchSmNotifiee<MrouteSwitchSm> {
    public:
      virtual void onAcsd() {}
      virtual void onL3Status() {}
      virtual void onVerifyData() {}
      virtual void onAgingReviewInterval() {}
      virtual void onAgingReviewQuota() {}
      virtual void onDisableVerify() {}
   };

   // The inputs by name, for mrouteSwitchSmFactory(); those that are left out are 0 or null.
   struct Inputs {
      Qor::U32 switchId = 0;
      Qor::Ptr<VelCommonSmData> acsd{};
      Qor::Ptr<L3Status> l3Status{};
      Qor::Ptr<MrouteSwitch> mrouteSwitch{};
      Qor::Ptr<IntfVlanId::Table const> intfVlanIdTable{};
      Qor::Ptr<Routing::Multicast::Fib::VrfConfig const> mfibConfig{};
      Qor::Ptr<Routing::Multicast::Fib::Hardware::Status> mfibHwStatus{};
      Qor::Ptr<VelHelper::MrouteSmHelper> mrouteHelper{};
      Qor::Ptr<Qor::Clock const> zombieClock{};
      Qor::Ptr<Qor::Clock const> agingClock{};
      Qor::Ptr<Interface::EthIntfStatusDir const> ethIntfStatusDir{};
      Qor::Ptr<Interface::AllIntfStatusDir const> allIntfStatusDir{};
      Qor::Ptr<Interface::AllIntfStatusLocalDir const> allIntfStatusLocalDir{};
   };

   // Nested reactors, each named after the input that it watches.
   class QorAcsd;
   class QorL3Status;
   class QorVerifyData;

   explicit MrouteSwitchSm(Inputs inputs);
   // The same with the inputs by position.
   MrouteSwitchSm(Qor::U32 switchId, Qor::Ptr<VelCommonSmData> acsd, Qor::Ptr<L3Status> l3Status,
                  Qor::Ptr<MrouteSwitch> mrouteSwitch,
                  Qor::Ptr<IntfVlanId::Table const> intfVlanIdTable,
                  Qor::Ptr<Routing::Multicast::Fib::VrfConfig const> mfibConfig,
                  Qor::Ptr<Routing::Multicast::Fib::Hardware::Status> mfibHwStatus,
                  Qor::Ptr<VelHelper::MrouteSmHelper> mrouteHelper,
                  Qor::Ptr<Qor::Clock const> zombieClock, Qor::Ptr<Qor::Clock const> agingClock,
                  Qor::Ptr<Interface::EthIntfStatusDir const> ethIntfStatusDir,
                  Qor::Ptr<Interface::AllIntfStatusDir const> allIntfStatusDir,
                  Qor::Ptr<Interface::AllIntfStatusLocalDir const> allIntfStatusLocalDir)
         : MrouteSwitchSm(Inputs{switchId, std::move(acsd), std::move(l3Status),
                                 std::move(mrouteSwitch), std::move(intfVlanIdTable),
                                 std::move(mfibConfig), std::move(mfibHwStatus),
                                 std::move(mrouteHelper), std::move(zombieClock),
                                 std::move(agingClock), std::move(ethIntfStatusDir),
                                 std::move(allIntfStatusDir), std::move(allIntfStatusLocalDir)}) {}

   // The number that the reactor passes to mrouteFull(). For hit bits and rewrites the reactor
   // passes the switch's own number.
   Qor::U32 switchId() const { return switchId_; }

   // ---- Inputs beside those of PerSwitchSm, by the same rules. ----

   Qor::Ptr<VelCommonSmData> const& acsd() const { return acsd_.object(); }
   void acsdIs(Qor::Ptr<VelCommonSmData> v);
   QorAcsd* newAcsd(Qor::Ptr<VelCommonSmData> v) {
      auto const self = hold();
      acsdIs(std::move(v));
      return acsd_.reactor();
   }
   void acsdDel() { acsdIs(nullptr); }
   Qor::Ptr<L3Status> const& l3Status() const { return l3Status_.object(); }
   void l3StatusIs(Qor::Ptr<L3Status> v);
   QorL3Status* newL3Status(Qor::Ptr<L3Status> v) {
      auto const self = hold();
      l3StatusIs(std::move(v));
      return l3Status_.reactor();
   }
   void l3StatusDel() { l3StatusIs(nullptr); }
   // Parts from the switch and leaves the switch as it is: not marked deleted, with its zombies,
   // routes and waiting sets, which no reactor takes care of then. The reactor disarms all clocks.
   // Its handlers leave all tables alone until mrouteSwitchIs() sets a switch again. A reactor that
   // is destroyed without a switch cleans nothing up.
   void mrouteSwitchDel();
   // The verifyData of `acsd`; the attribute follows a change of it.
   Qor::Ptr<VerifyData const> const& verifyData() const { return verifyData_.object(); }
   void verifyDataIs(Qor::Ptr<VerifyData const> v);
   QorVerifyData* newVerifyData(Qor::Ptr<VerifyData const> v) {
      auto const self = hold();
      verifyDataIs(std::move(v));
      return verifyData_.reactor();
   }
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
   // Removes all zombies that are due, in one pass.
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
   friend PerSwitchSm;

   ~MrouteSwitchSm() override;

   void switchFollows(bool first);
   void configFollows(bool changed);
   void agingClockFollows();
   bool hasRoutes() const {
      return initialized() && mrouteSwitch() && !mrouteSwitch()->route().empty();
   }
   void reviewRoute(Routing::Multicast::Fib::Hardware::RouteStatus& route, Qor::U16 vrfId);
   bool isHit(Routing::Multicast::Fib::IpGenRouteKey const& key, Bridging::VlanIdOrNone vlan,
              Qor::U16 vrfId) const;
   void reviewStopped() const;
   void handleOperStatus(Interface::EthIntfStatus const& status);
   void rewriteWaiting(Qor::Seconds begun);
   void rewriteForFrr(MrouteSwitch& chip, MrouteLib::OifSetPtr const& oifSet,
                      MrouteSwitch::NamedRecord named, Qor::Seconds time);

   Qor::U32 const switchId_;
   Qor::Watched<VelCommonSmData, QorAcsd> acsd_;
   Qor::Watched<L3Status, QorL3Status> l3Status_;
   Qor::Watched<VerifyData const, QorVerifyData> verifyData_;
   Qor::Seconds agingReviewInterval_ = 0.01;
   Qor::Seconds agingReviewQuota_ = 0.05;
   bool disableVerify_ = false;
   bool initialized_ = false;
};

// Makes a reactor of named inputs:
//
//    auto const sm = mrouteSwitchSmFactory({.mrouteSwitch = chip, .mrouteHelper = hooks});
QOR_PUBLIC Qor::Ptr<MrouteSwitchSm> mrouteSwitchSmFactory(MrouteSwitchSm::Inputs inputs);
// The same with the inputs by position.
QOR_PUBLIC inline Qor::Ptr<MrouteSwitchSm> MrouteSwitchSmIs(
      Qor::U32 switchId, Qor::Ptr<VelCommonSmData> acsd, Qor::Ptr<L3Status> l3Status,
      Qor::Ptr<MrouteSwitch> mrouteSwitch, Qor::Ptr<IntfVlanId::Table const> intfVlanIdTable,
      Qor::Ptr<Routing::Multicast::Fib::VrfConfig const> mfibConfig,
      Qor::Ptr<Routing::Multicast::Fib::Hardware::Status> mfibHwStatus,
      Qor::Ptr<VelHelper::MrouteSmHelper> mrouteHelper, Qor::Ptr<Qor::Clock const> zombieClock,
      Qor::Ptr<Qor::Clock const> agingClock,
      Qor::Ptr<Interface::EthIntfStatusDir const> ethIntfStatusDir,
      Qor::Ptr<Interface::AllIntfStatusDir const> allIntfStatusDir,
      Qor::Ptr<Interface::AllIntfStatusLocalDir const> allIntfStatusLocalDir) {
   return mrouteSwitchSmFactory({switchId, std::move(acsd), std::move(l3Status),
                                 std::move(mrouteSwitch), std::move(intfVlanIdTable),
                                 std::move(mfibConfig), std::move(mfibHwStatus),
                                 std::move(mrouteHelper), std::move(zombieClock),
                                 std::move(agingClock), std::move(ethIntfStatusDir),
                                 std::move(allIntfStatusDir), std::move(allIntfStatusLocalDir)});
}

}  // namespace Vel
