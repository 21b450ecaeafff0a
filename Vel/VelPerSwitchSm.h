// The common part of the per-switch reactors of the two paths: the inputs that both have, the
// tracking of Ethernet interfaces, the zombie passes, the passes of a fast reroute, and the end of
// a reactor. The reactors derive from PerSwitchSm, and state in their headers what an input is for
// and what the handlers do: Vel/VelAsyncMrouteSm.h, Vel/VelSyncMrouteSm.h.
//
// `Sm` is the reactor and has `typeName`. `Path` has the types that differ between the paths:
//
//   type              | meaning
//   ------------------+-----------------------------------------------------------------------
//   Switch, Helper    | the table programmer, and the hook class
//   Reactor           | the base of the nested reactors: the back pointer under the owner's name
//   QorMrouteSwitch,  | the nested reactors whose handlers differ
//   QorMfibConfig     |
//
// The nested reactors are classes of the library alone; for a user they are incomplete types.
#pragma once

#include "Interface/AllIntfStatusDir.h"
#include "Interface/AllIntfStatusLocalDir.h"
#include "Interface/EthIntfStatusDir.h"
#include "Interface/IntfOperStatus.h"
#include "IntfVlanId/Table.h"
#include "MrouteLib/OifSet.h"
#include "Qor/Reactors.h"
#include "Routing/Multicast/Fib/Hardware/Status.h"
#include "Routing/Multicast/Fib/VrfConfig.h"

namespace Vel {

// The longest time of a fast-reroute pass, in seconds, tested before each rewrite. The time of a pass
// that an event starts includes the selection of the sets.
inline constexpr Qor::Seconds frrPassBudget = 0.1;

// Returns whether an interface that changes to this state starts a fast reroute: it then carries no
// traffic.
inline bool startsReroute(Interface::IntfOperStatus status) {
   return status == Interface::IntfOperStatus::down ||
          status == Interface::IntfOperStatus::lowerLayerDown;
}

// The handlers of the changes of these inputs.
template <class Sm>
class PerSwitchSmNotifiee : public Qor::NotifieeOf<Sm> {
 public:
   virtual void onMrouteSwitch() {}
   virtual void onMfibConfig() {}
   virtual void onZombieClock() {}
   virtual void onAgingClock() {}
   virtual void onEthIntfStatusDir() {}
   virtual void onClock() {}
   virtual void onEthIntfStatus(Lnet::IntfId const&) {}
   virtual void onEthIntfStatusImmediate() {}

 protected:
   void onImmediate() override { onEthIntfStatusImmediate(); }
};

template <class Sm, class Path>
class QOR_PUBLIC PerSwitchSm : public Qor::Entity<Sm, Qor::StateMachine> {
   using Told = PerSwitchSmNotifiee<Sm>;

 public:
   using Switch = typename Path::Switch;
   using Helper = typename Path::Helper;
   using VrfConfigPtr = Qor::Ptr<Routing::Multicast::Fib::VrfConfig const>;
   using HwStatusPtr = Qor::Ptr<Routing::Multicast::Fib::Hardware::Status>;
   using ClockPtr = Qor::Ptr<Qor::Clock const>;
   using EthIntfStatusDirPtr = Qor::Ptr<Interface::EthIntfStatusDir const>;
   using EthIntfStatusPtr = Qor::Ptr<Interface::EthIntfStatus const>;

   // Nested reactors, each named after the input that it watches.
   using QorMrouteSwitch = typename Path::QorMrouteSwitch;
   using QorMfibConfig = typename Path::QorMfibConfig;
   class QorZombieClock;
   class QorAgingClock;
   class QorClock;
   class QorEthIntfStatusDir;
   class QorEthIntfStatus;

   using EthIntfStatusColl =
         Qor::ReactorColl<Lnet::IntfId, QorEthIntfStatus, &Told::onEthIntfStatus,
                          &Told::onEthIntfStatusImmediate>;

   // ---- Inputs. An input with a nested reactor may be set again: another entity moves the nested
   //      reactor, null deletes it, and the members that the nested reactor of a directory tracks
   //      follow. A new clock takes over the setting of the old clock, which is disarmed. The
   //      new...() forms set the input and return its nested reactor. ----

   Qor::Ptr<Switch> const& mrouteSwitch() const { return mrouteSwitch_.object(); }
   void mrouteSwitchIs(Qor::Ptr<Switch> v);  // not null
   QorMrouteSwitch* newMrouteSwitch(Qor::Ptr<Switch> v);
   Qor::Ptr<IntfVlanId::Table const> const& intfVlanIdTable() const { return intfVlanIdTable_; }
   VrfConfigPtr const& mfibConfig() const { return mfibConfig_.object(); }
   void mfibConfigIs(VrfConfigPtr v);
   QorMfibConfig* newMfibConfig(VrfConfigPtr v);
   void mfibConfigDel() { mfibConfigIs(nullptr); }
   HwStatusPtr const& mfibHwStatus() const { return mfibHwStatus_; }
   Qor::Ptr<Helper> const& mrouteHelper() const { return mrouteHelper_; }
   ClockPtr const& zombieClock() const { return zombieClock_.object(); }
   void zombieClockIs(ClockPtr v);
   QorZombieClock* newZombieClock(ClockPtr v);
   void zombieClockDel() { zombieClockIs(nullptr); }
   ClockPtr const& agingClock() const { return agingClock_.object(); }
   void agingClockIs(ClockPtr v);
   QorAgingClock* newAgingClock(ClockPtr v);
   void agingClockDel() { agingClockIs(nullptr); }
   EthIntfStatusDirPtr const& ethIntfStatusDir() const { return ethIntfStatusDir_.object(); }
   void ethIntfStatusDirIs(EthIntfStatusDirPtr v);
   QorEthIntfStatusDir* newEthIntfStatusDir(EthIntfStatusDirPtr v);
   void ethIntfStatusDirDel() { ethIntfStatusDirIs(nullptr); }
   Qor::Ptr<Interface::AllIntfStatusDir const> const& allIntfStatusDir() const {
      return allIntfStatusDir_;
   }
   Qor::Ptr<Interface::AllIntfStatusLocalDir const> const& allIntfStatusLocalDir() const {
      return allIntfStatusLocalDir_;
   }
   // The fast-reroute clock; null until it is needed. The first pass that leaves oif sets waiting
   // takes it from the activity manager. The clock is armed exactly while oif sets wait to be
   // rewritten; after a pass that an error ended, it is armed for Qor::Clock::retryGap later.
   ClockPtr const& clock() const { return clock_.object(); }
   void clockIs(ClockPtr v);
   QorClock* newClock(ClockPtr v);
   void clockDel() { clockIs(nullptr); }

   // ---- One nested reactor for each Ethernet interface of the directory. An entity that is set
   //      again keeps its reactor; another entity under the same key gets a new reactor. A null
   //      argument raises the range error of null parameters (Qor::throwNullParameter). ----

   typename EthIntfStatusColl::Map const& ethIntfStatus() const { return ethIntfStatus_.map(); }
   QorEthIntfStatus* ethIntfStatus(Lnet::IntfId intfId) const;
   Qor::U32 ethIntfStatuses() const;
   QorEthIntfStatus* newEthIntfStatus(EthIntfStatusPtr status);
   void ethIntfStatusIs(EthIntfStatusPtr status);
   void ethIntfStatusDel(Lnet::IntfId intfId);
   typename EthIntfStatusColl::Iterator ethIntfStatusDel(typename EthIntfStatusColl::Iterator it);
   void ethIntfStatusDelAll();
   void ethIntfStatusNotify(Lnet::IntfId intfId);

 protected:
   // `Sm` passes its Inputs to the constructor, and binds their nested reactors in its own.
   template <class Inputs>
   PerSwitchSm(Qor::Name name, Inputs& inputs);
   ~PerSwitchSm() override;
   template <class Inputs>
   void bindInputs(Inputs& inputs);
   void syncEthIntfStatus();

   // The end of the reactor. The clocks may outlive the reactor, and a clock left armed would fire
   // without a handler. The nested reactors are released before the collections are emptied, so
   // that no listener of that change causes a call of the reactor.
   void disarmClocks();
   void releaseReactors();

   Bridging::VlanIdOrNone vlanOf(Lnet::IntfId intfId) const {
      return intfVlanIdTable_ ? intfVlanIdTable_->intfIdToVlanId(intfId) : Bridging::VlanIdOrNone();
   }

   // Purges the zombies that are due, in the order of their expiry, and then calls handleZombie().
   // Calls purging(key, record) before each purge, and passEnds() after it; true ends the pass.
   template <class Purging, class PassEnds>
   void purgeDueZombies(Purging const& purging, PassEnds const& passEnds);
   // Marks the switch deleted and purges all zombies, with purging(key, record) before each.
   template <class Purging>
   void purgeAllZombies(Purging const& purging);

   // One pass over the waiting sets of the switch: Sm::rewriteForFrr() for each. `begun` is the time
   // from which the budget of the pass counts.
   void reroutePass(Switch& chip, Qor::Seconds begun);
   bool setsWait() const {
      return mrouteSwitch() && !mrouteSwitch()->frrProcessingOifSet().empty();
   }
   // While this object exists, an error of a reroute leaves no set behind: sets that wait then get
   // a further pass after Qor::Clock::retryGap.
   class RerouteRetry;

   Qor::Watched<Switch, QorMrouteSwitch> mrouteSwitch_;
   Qor::Watched<Routing::Multicast::Fib::VrfConfig const, QorMfibConfig> mfibConfig_;
   Qor::WatchedClock<QorZombieClock> zombieClock_;
   Qor::WatchedClock<QorAgingClock> agingClock_;
   Qor::Watched<Interface::EthIntfStatusDir const, QorEthIntfStatusDir> ethIntfStatusDir_;
   Qor::WatchedClock<QorClock> clock_;

 private:
   Sm& sm() { return static_cast<Sm&>(*this); }
   void armReroute(Qor::Seconds time);

   Qor::Ptr<IntfVlanId::Table const> const intfVlanIdTable_;
   HwStatusPtr const mfibHwStatus_;
   Qor::Ptr<Helper> const mrouteHelper_;
   Qor::Ptr<Interface::AllIntfStatusDir const> const allIntfStatusDir_;
   Qor::Ptr<Interface::AllIntfStatusLocalDir const> const allIntfStatusLocalDir_;
   EthIntfStatusColl ethIntfStatus_;
};

}  // namespace Vel
