// The per-switch reactor of the synchronous path. It watches the programmer of one chip and the
// configuration and status around it, and does what must happen over time or in response to others:
// it tells the routing layer when there is room again, purges zombie oif sets, polls route
// activity, reroutes sets when an interface fails, and has the chip verified. All of it is done
// within the notification that asks for it, or in slices on a clock.
//
//   concern                                           | source
//   --------------------------------------------------+-----------------------------
//   set-up, room for routes, zombie clock, clean-up   | VelSyncMrouteSm.cpp
//   activity polling and aging review                 | VelSyncMrouteAging.cpp
//   fast reroute                                      | VelSyncMrouteFrr.cpp
//
// Inputs. The switch is required, though it may be taken away for a while (mrouteSwitchDel); every
// other one may be null, and then:
//
//   null input              | what it means
//   ------------------------+--------------------------------------------------------------------
//   acsd                    | nothing is verified, unless verifyData is set by itself
//   l3Status                | review requests are not heard; every VRF has the id 0
//   intfVlanIdTable         | no interface has a vlan: nothing is polled
//   mfibConfig              | never read: no review is scheduled
//   mfibHwStatus            | nothing is polled
//   mrouteHelper            | never called: no table is known to have room again, no route is ever
//                           | hit, and sets that wait for fast reroute are dropped
//   zombieClock, agingClock | never armed: nobody purges zombies, nothing is polled
//   ethIntfStatusDir        | interface failures are not heard of
//   allIntfStatusDir,       | kept for the platform; nothing here reads them
//   allIntfStatusLocalDir   |
//
// Clocks. After construction the aging clock is armed if the switch has routes, and the zombie
// clock if it has zombies; otherwise both stand at `never`. After destruction all three do.
//
// Process-wide positions. The aging review and the fast-reroute pass keep the place where they
// stopped in one position each for the whole process, since slices never overlap: with several
// chips, a slice goes on where the last slice of any chip stopped. For the review that is the VRF
// and the last route reviewed, and it goes on behind it. A position dies with the reactor that set
// it; the review's also when its reactor stops reviewing.
//
// Notifications. The setters of inputs and settings and the operations of the collection notify the
// reactor's own notifiees, once all that depends on the change has followed it. A hook or a listener
// may let go of the reactor in the middle of any of its operations.
//
// Ownership. Inputs are held counted. The nested reactors are the reactor's own and point back at
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

   // Reactors, named after what they watch.
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

   // The number of this reactor, by which the platform is asked for room; hit bits and rewrites go
   // by the switch's own number.
   Qor::U32 switchId() const { return switchId_; }

   // ---- Inputs. Those with a reactor may be set again, which moves the reactor to the new entity,
   //      or to null, which deletes it. A clock that replaces another takes over what that was set
   //      to, and the other is disarmed. ----

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
   // Parts from the switch and leaves it as it is: not marked deleted, with its zombies, routes and
   // waiting sets, of which nobody takes care then. All clocks are disarmed, and no handler does
   // anything until mrouteSwitchIs() gives the reactor a switch again. The end of a reactor without
   // a switch cleans nothing up.
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
   // The fast-reroute clock: taken from the activity manager when a pass first has to yield; null
   // until then. Armed exactly while oif sets wait to be rewritten.
   Qor::Ptr<Qor::Clock const> const& clock() const { return clock_.object(); }
   void clockIs(Qor::Ptr<Qor::Clock const> v);
   QorClock* newClock(Qor::Ptr<Qor::Clock const> v);
   void clockDel() { clockIs(nullptr); }
   // The common data's, and follows it.
   Qor::Ptr<VerifyData const> const& verifyData() const { return verifyData_.object(); }
   void verifyDataIs(Qor::Ptr<VerifyData const> v);
   QorVerifyData* newVerifyData(Qor::Ptr<VerifyData const> v);
   void verifyDataDel() { verifyDataIs(nullptr); }

   // ---- Settings. ----

   // The pause between two slices of the aging review, and how long a slice lasts, in seconds.
   // Clock::retryGap is the shortest pause: shorter ones are taken as that. RangeException
   //    "MrouteSwitchSm::agingReviewInterval < 0 or not finite not allowed"
   // and the same for agingReviewQuota.
   Qor::Seconds agingReviewInterval() const { return agingReviewInterval_; }
   void agingReviewIntervalIs(Qor::Seconds v);
   Qor::Seconds agingReviewQuota() const { return agingReviewQuota_; }
   void agingReviewQuotaIs(Qor::Seconds v);
   // Verifications that are asked for are not done.
   bool disableVerify() const { return disableVerify_; }
   void disableVerifyIs(bool v) { attrIs<&Notifiee::onDisableVerify>(disableVerify_, v); }

   // ---- One reactor for each Ethernet interface. A null argument raises the range error of null
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

   // Whether construction is through. Handlers of zombies, clocks and failures do nothing before.
   bool initialized() const { return initialized_; }

   // ---- Handlers and operations. ----

   // Ends the construction, once.
   void handleInitialized();
   // Marks the switch deleted and removes all zombies. Run by the destructor.
   void doCleanup();

   // Says that the route table has room again, if it has; then maybeScheduleAgingReview().
   void maybeScheduleRoutesReview();
   // Starts the aging review when there are routes, stops it when there are none; without routes
   // and review, asks the routing layer to look at its routes once more (mrouteReviewKick).
   void maybeScheduleAgingReview();

   // Keeps the zombie clock at the expiry of the first zombie.
   void handleZombie();
   // Removes the zombies that are due.
   void handleZombieClock();

   // Restarts a running review with the configured interval; writes mfibHwStatus.pollingInterval.
   void handlePollingInterval();
   // One slice of the review: stamps the routes that have been hit with the present time.
   void doRouteAgingReview();

   // Has the sets rewritten that come in over the failed interface and have backup members, each
   // under its own index. Their records turn dirty, for good.
   void updateFrrMtableOif(Lnet::IntfId intfId);
   // One pass over frrProcessingOifSet, from where the last one stopped.
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
