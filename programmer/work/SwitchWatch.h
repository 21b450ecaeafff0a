// The operations that both route tables share, where the switches of the two paths have the same
// operations and differ in their types.
#pragma once

#include <optional>
#include <set>

#include "Interface/EthIntfStatusDir.h"
#include "Vel/VelPerSwitchSm.h"
#include "programmer/RouteTable.h"

namespace VelMroute {

template <class Switch>
std::optional<bool> sharableRecord(Switch const& chip, MrouteLib::OifSetPtr const& oifSet) {
   auto const record = chip.inUseRecord(oifSet);
   if (!record) return std::nullopt;
   return !record->dirty();
}

// The facts of a record but its index.
template <class Switch, class Record>
RouteTable::Facts factsOf(Switch const& chip, Record const& record) {
   RouteTable::Facts facts;
   facts.dirty = record.dirty();
   facts.rewriteWaits = chip.frrProcessingOifSet().find(record.oifSet()) != nullptr;
   return facts;
}

inline std::set<Lnet::IntfId> downInterfaces(Interface::EthIntfStatusDir const* links) {
   std::set<Lnet::IntfId> down;
   if (!links) return down;
   for (auto const& [intf, status] : links->intfStatus()) {
      if (Vel::startsReroute(status->operStatus())) down.insert(intf);
   }
   return down;
}

// A zombie that goes may leave a free group: it expired, was given up, or was resurrected.
template <class Switch>
class ZombieWatch final : public Switch::Notifiee {
 public:
   ZombieWatch(Switch* chip, RouteTable::Listener*& listener) : listener_(listener) {
      this->notifierIs(chip);
   }
   void onZombieOifSet(typename Switch::ZombieOifSetColl::Key const&) override {
      onZombieOifSetImmediate();
   }
   void onZombieOifSetImmediate() override {
      if (listener_) listener_->roomIs(Table::group);
   }

 private:
   RouteTable::Listener*& listener_;
};

}  // namespace VelMroute
