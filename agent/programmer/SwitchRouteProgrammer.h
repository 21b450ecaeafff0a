// What a route programmer does with a table programmer of either kind, where both have the same
// operations and only their types differ.
#pragma once

#include <utility>

#include "agent/programmer/RouteProgrammer.h"

namespace Agent {

// `Switch` has the collections inUseOifSet and zombieOifSet, whose records can be dirty, and the
// operations inUseRecord() and doDeleteRoute().
template <class Switch>
class SwitchRouteProgrammer : public RouteProgrammer {
 protected:
   SwitchRouteProgrammer(Qor::Ptr<Switch> mrouteSwitch,
                         Qor::Ptr<MrouteLib::MrouteTableColl> tableColl,
                         Qor::Ptr<Routing::Multicast::Fib::Hardware::Status> mfibHwStatus)
         : RouteProgrammer(std::move(tableColl), std::move(mfibHwStatus)),
           mrouteSwitch_(std::move(mrouteSwitch)),
           switchReactor_(*this) {
      switchReactor_.notifierIs(mrouteSwitch_.get());
   }

   Switch& mrouteSwitch() const { return *mrouteSwitch_; }

   void deleteEntry(MrouteLib::RouteHandle handle) override {
      mrouteSwitch_->doDeleteRoute(handle);
   }
   std::optional<bool> sharable(MrouteLib::OifSetPtr const& set) const override {
      auto const record = mrouteSwitch_->inUseRecord(set);
      if (!record) return std::nullopt;
      return !record->dirty();
   }
   Qor::U32 zombies() const override {
      return static_cast<Qor::U32>(mrouteSwitch_->zombieOifSet().size());
   }
   void purgeOldestZombie() override {
      mrouteSwitch_->zombieOifSetDel(mrouteSwitch_->zombieOifSet().begin()->first);
   }

 private:
   // A zombie that goes, for whatever reason, may leave a free group.
   class QorMrouteSwitch final : public Switch::Notifiee {
    public:
      explicit QorMrouteSwitch(SwitchRouteProgrammer& owner) : owner_(owner) {}
      void onZombieOifSet(typename Switch::ZombieOifSetColl::Key const&) override {
         onZombieOifSetImmediate();
      }
      void onZombieOifSetImmediate() override { owner_.roomIs(Table::group); }

    private:
      SwitchRouteProgrammer& owner_;
   };

   Qor::Ptr<Switch> const mrouteSwitch_;
   QorMrouteSwitch switchReactor_;
};

}  // namespace Agent
