// Private header: the nested reactors and the operations of PerSwitchSm (Vel/VelPerSwitchSm.h). The
// main source of each reactor instantiates them all.
//
// A nested reactor points back at its owner without holding it; the owner creates and deletes the
// nested reactor.
#pragma once

#include <exception>
#include <utility>

#include "Vel/VelFrr.h"
#include "Vel/VelPerSwitchSm.h"

namespace Vel {

// ---- Nested reactors ----

template <class Sm, class Path>
class PerSwitchSm<Sm, Path>::QorZombieClock final : public Qor::Clock::Notifiee,
                                                    public Path::Reactor {
 public:
   void onTime() override { this->owner()->handleZombieClock(); }
};

template <class Sm, class Path>
class PerSwitchSm<Sm, Path>::QorAgingClock final : public Qor::Clock::Notifiee,
                                                   public Path::Reactor {
 public:
   void onTime() override { this->owner()->doRouteAgingReview(); }
};

template <class Sm, class Path>
class PerSwitchSm<Sm, Path>::QorClock final : public Qor::Clock::Notifiee, public Path::Reactor {
 public:
   void onTime() override { this->owner()->handleClock(); }
};

template <class Sm, class Path>
class PerSwitchSm<Sm, Path>::QorEthIntfStatusDir final
      : public Interface::EthIntfStatusDir::Notifiee,
        public Path::Reactor {
 public:
   void onIntfStatus(Lnet::IntfId intfId) override {
      auto const status = this->notifier()->intfStatus(intfId);
      if (status) {
         this->owner()->ethIntfStatusIs(status);
      } else {
         this->owner()->ethIntfStatusDel(intfId);
      }
   }
   void onIntfStatusImmediate() override { this->owner()->syncEthIntfStatus(); }
};

template <class Sm, class Path>
class PerSwitchSm<Sm, Path>::QorEthIntfStatus final : public Interface::EthIntfStatus::Notifiee,
                                                      public Path::Reactor {
 public:
   explicit QorEthIntfStatus(EthIntfStatusPtr status) : status_(std::move(status)) {}

   // Starts a reroute if the interface is down or lower-layer-down. After the recovery of the
   // interface, the routing layer programs the routes again.
   void handleOperStatus() { this->owner()->handleOperStatus(*status_); }
   void onOperStatus() override { handleOperStatus(); }

 private:
   EthIntfStatusPtr const status_;
};

// ---- Life ----

template <class Sm, class Path>
template <class Inputs>
PerSwitchSm<Sm, Path>::PerSwitchSm(Qor::Name name, Inputs& inputs)
      : Qor::Entity<Sm, Qor::StateMachine>(std::move(name)),
        intfVlanIdTable_(std::move(inputs.intfVlanIdTable)),
        mfibHwStatus_(std::move(inputs.mfibHwStatus)),
        mrouteHelper_(std::move(inputs.mrouteHelper)),
        allIntfStatusDir_(std::move(inputs.allIntfStatusDir)),
        allIntfStatusLocalDir_(std::move(inputs.allIntfStatusLocalDir)) {}

template <class Sm, class Path>
PerSwitchSm<Sm, Path>::~PerSwitchSm() = default;

template <class Sm, class Path>
template <class Inputs>
void PerSwitchSm<Sm, Path>::bindInputs(Inputs& inputs) {
   mrouteSwitchIs(std::move(inputs.mrouteSwitch));
   mfibConfig_.is(&sm(), std::move(inputs.mfibConfig));
   zombieClock_.is(&sm(), std::move(inputs.zombieClock));
   agingClock_.is(&sm(), std::move(inputs.agingClock));
   ethIntfStatusDir_.is(&sm(), std::move(inputs.ethIntfStatusDir));
}

template <class Sm, class Path>
void PerSwitchSm<Sm, Path>::disarmClocks() {
   zombieClock_.arm(Qor::never);
   agingClock_.arm(Qor::never);
   clock_.arm(Qor::never);
   FrrPosition<Sm>::clear(&sm());
}

template <class Sm, class Path>
void PerSwitchSm<Sm, Path>::releaseReactors() {
   mrouteSwitch_.release();
   mfibConfig_.release();
   zombieClock_.release();
   agingClock_.release();
   ethIntfStatusDir_.release();
   clock_.release();
   ethIntfStatus_.release();
}

// ---- Inputs. Everything that depends on an input follows before the listeners are notified. ----

template <class Sm, class Path>
void PerSwitchSm<Sm, Path>::mrouteSwitchIs(Qor::Ptr<Switch> v) {
   if (!v) Qor::throwNullParameter(Sm::typeName, "mrouteSwitch");
   auto const self = this->hold();
   bool const first = !mrouteSwitch();
   bool const changed = mrouteSwitch_.is(&sm(), std::move(v));
   if (sm().initialized()) sm().switchFollows(first);
   if (changed) this->template notify<&Told::onMrouteSwitch>();
}

template <class Sm, class Path>
typename Path::QorMrouteSwitch* PerSwitchSm<Sm, Path>::newMrouteSwitch(Qor::Ptr<Switch> v) {
   auto const self = this->hold();
   mrouteSwitchIs(std::move(v));
   return mrouteSwitch_.reactor();
}

template <class Sm, class Path>
void PerSwitchSm<Sm, Path>::mfibConfigIs(VrfConfigPtr v) {
   auto const self = this->hold();
   bool const changed = mfibConfig_.is(&sm(), std::move(v));
   sm().configFollows(changed);
   if (changed) this->template notify<&Told::onMfibConfig>();
}

template <class Sm, class Path>
typename Path::QorMfibConfig* PerSwitchSm<Sm, Path>::newMfibConfig(VrfConfigPtr v) {
   auto const self = this->hold();
   mfibConfigIs(std::move(v));
   return mfibConfig_.reactor();
}

template <class Sm, class Path>
void PerSwitchSm<Sm, Path>::zombieClockIs(ClockPtr v) {
   auto const self = this->hold();
   bool const changed = zombieClock_.is(&sm(), std::move(v));
   if (sm().initialized()) sm().handleZombie();
   if (changed) this->template notify<&Told::onZombieClock>();
}

template <class Sm, class Path>
typename PerSwitchSm<Sm, Path>::QorZombieClock* PerSwitchSm<Sm, Path>::newZombieClock(ClockPtr v) {
   auto const self = this->hold();
   zombieClockIs(std::move(v));
   return zombieClock_.reactor();
}

template <class Sm, class Path>
void PerSwitchSm<Sm, Path>::agingClockIs(ClockPtr v) {
   auto const self = this->hold();
   bool const changed = agingClock_.is(&sm(), std::move(v));
   sm().agingClockFollows();
   if (changed) this->template notify<&Told::onAgingClock>();
}

template <class Sm, class Path>
typename PerSwitchSm<Sm, Path>::QorAgingClock* PerSwitchSm<Sm, Path>::newAgingClock(ClockPtr v) {
   auto const self = this->hold();
   agingClockIs(std::move(v));
   return agingClock_.reactor();
}

template <class Sm, class Path>
void PerSwitchSm<Sm, Path>::ethIntfStatusDirIs(EthIntfStatusDirPtr v) {
   auto const self = this->hold();
   bool const changed = ethIntfStatusDir_.is(&sm(), std::move(v));
   syncEthIntfStatus();
   if (changed) this->template notify<&Told::onEthIntfStatusDir>();
}

template <class Sm, class Path>
typename PerSwitchSm<Sm, Path>::QorEthIntfStatusDir* PerSwitchSm<Sm, Path>::newEthIntfStatusDir(
      EthIntfStatusDirPtr v) {
   auto const self = this->hold();
   ethIntfStatusDirIs(std::move(v));
   return ethIntfStatusDir_.reactor();
}

template <class Sm, class Path>
void PerSwitchSm<Sm, Path>::clockIs(ClockPtr v) {
   auto const self = this->hold();
   bool const changed = clock_.is(&sm(), std::move(v));
   if (setsWait()) clock_.arm(Qor::now());
   if (changed) this->template notify<&Told::onClock>();
}

template <class Sm, class Path>
typename PerSwitchSm<Sm, Path>::QorClock* PerSwitchSm<Sm, Path>::newClock(ClockPtr v) {
   auto const self = this->hold();
   clockIs(std::move(v));
   return clock_.reactor();
}

// ---- Ethernet interfaces ----

template <class Sm, class Path>
typename PerSwitchSm<Sm, Path>::QorEthIntfStatus* PerSwitchSm<Sm, Path>::ethIntfStatus(
      Lnet::IntfId intfId) const {
   return ethIntfStatus_.find(intfId);
}

template <class Sm, class Path>
Qor::U32 PerSwitchSm<Sm, Path>::ethIntfStatuses() const {
   return ethIntfStatus_.size();
}

template <class Sm, class Path>
typename PerSwitchSm<Sm, Path>::QorEthIntfStatus* PerSwitchSm<Sm, Path>::newEthIntfStatus(
      EthIntfStatusPtr status) {
   auto const self = this->hold();
   ethIntfStatusIs(status);
   return ethIntfStatus(status->intfId());
}

template <class Sm, class Path>
void PerSwitchSm<Sm, Path>::ethIntfStatusIs(EthIntfStatusPtr status) {
   if (!status) Qor::throwNullParameter(Sm::typeName, "ethIntfStatus");
   ethIntfStatus_.is(sm(), status->intfId(), status);
}

template <class Sm, class Path>
void PerSwitchSm<Sm, Path>::ethIntfStatusDel(Lnet::IntfId intfId) {
   ethIntfStatus_.del(sm(), intfId);
}

template <class Sm, class Path>
typename PerSwitchSm<Sm, Path>::EthIntfStatusColl::Iterator PerSwitchSm<Sm, Path>::ethIntfStatusDel(
      typename EthIntfStatusColl::Iterator it) {
   return ethIntfStatus_.del(sm(), it);
}

template <class Sm, class Path>
void PerSwitchSm<Sm, Path>::ethIntfStatusDelAll() {
   ethIntfStatus_.delAll(sm());
}

template <class Sm, class Path>
void PerSwitchSm<Sm, Path>::ethIntfStatusNotify(Lnet::IntfId intfId) {
   ethIntfStatus_.notify(sm(), intfId);
}

template <class Sm, class Path>
void PerSwitchSm<Sm, Path>::syncEthIntfStatus() {
   ethIntfStatus_.sync(
         sm(), [this] { return ethIntfStatusDir() ? &ethIntfStatusDir()->intfStatus() : nullptr; },
         [this](auto const& status) { ethIntfStatusIs(status); });
}

// ---- Zombies ----

template <class Sm, class Path>
template <class Purging, class PassEnds>
void PerSwitchSm<Sm, Path>::purgeDueZombies(Purging const& purging, PassEnds const& passEnds) {
   auto const self = this->hold();
   Qor::Ptr<Switch> const chip = mrouteSwitch();
   auto const& zombies = chip->zombieOifSet();
   while (!zombies.empty()) {
      auto const& [key, record] = *zombies.begin();
      if (record->zombie().expiryTime() > Qor::now()) break;
      purging(key, *record);
      chip->zombieOifSetDel(key);
      if (passEnds()) break;
   }
   // handleZombie() leaves the clock of a deleted switch alone; the end of the switch frees the
   // remaining zombies.
   if (chip->deleted()) zombieClock_.arm(Qor::never);
   sm().handleZombie();
}

// The reactor holds the switch, so the switch is not in its destructor here.
template <class Sm, class Path>
template <class Purging>
void PerSwitchSm<Sm, Path>::purgeAllZombies(Purging const& purging) {
   Qor::Ptr<Switch> const chip = mrouteSwitch();
   chip->deletedIs(true);
   auto const& zombies = chip->zombieOifSet();
   while (!zombies.empty()) {
      auto const& [key, record] = *zombies.begin();
      purging(key, *record);
      chip->zombieOifSetDel(key);
   }
}

// ---- Fast reroute ----

template <class Sm, class Path>
class PerSwitchSm<Sm, Path>::RerouteRetry {
 public:
   explicit RerouteRetry(PerSwitchSm& sm) : sm_(sm), errors_(std::uncaught_exceptions()) {}
   RerouteRetry(RerouteRetry const&) = delete;
   RerouteRetry& operator=(RerouteRetry const&) = delete;
   ~RerouteRetry() {
      if (std::uncaught_exceptions() == errors_ || !sm_.setsWait()) return;
      try {
         sm_.armReroute(Qor::now() + Qor::Clock::retryGap);
      } catch (...) {  // the first error is on its way to the caller, and a listener's is dropped
      }
   }

 private:
   PerSwitchSm& sm_;
   int const errors_;
};

// Takes the clock from the activity manager if there is none.
template <class Sm, class Path>
void PerSwitchSm<Sm, Path>::armReroute(Qor::Seconds time) {
   if (!clock()) clockIs(Qor::activityManager()->config()->clock());
   clock_.arm(time);
}

template <class Sm, class Path>
void PerSwitchSm<Sm, Path>::reroutePass(Switch& chip, Qor::Seconds begun) {
   RerouteRetry const retry(*this);
   Qor::Seconds const deadline = begun + frrPassBudget;
   auto& position = FrrPosition<Sm>::ofProcess();
   MrouteLib::OifSetPtr const from = position.oifSet;
   MrouteLib::OifSetPtr const next =
         frrPass(chip.frrProcessingOifSet(), from, deadline,
                 [&](MrouteLib::OifSetPtr const& oifSet, auto named, Qor::Seconds time) {
                    sm().rewriteForFrr(chip, oifSet, named, time);
                    chip.frrProcessingOifSetDel(oifSet);
                 });
   if (next) {
      position = {next, &sm()};
   } else {
      FrrPosition<Sm>::clear(&sm());
   }
   // A hook or a listener may have set another switch; the clock serves the sets that wait in the
   // present one.
   if (setsWait()) {
      armReroute(Qor::now());
   } else {
      clock_.arm(Qor::never);
   }
}

}  // namespace Vel
