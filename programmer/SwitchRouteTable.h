// The common part of the two route tables: the switches of both paths have the same operations for
// it and differ in their types. The class holds switch, reactor and gate, which a derived class
// makes, and lets go of them in this order: reactor, switch.
#pragma once

#include <memory>
#include <utility>

#include "Interface/EthIntfStatusDir.h"
#include "Vel/VelPerSwitchSm.h"
#include "programmer/RouteTable.h"

namespace VelMroute {

template <class SwitchOf, class ReactorOf, class GateOf>
class SwitchRouteTable : public RouteTable {
 public:
   using Switch = SwitchOf;
   using Reactor = ReactorOf;
   using Gate = GateOf;

   // Null after endService().
   Qor::Ptr<Switch> const& mrouteSwitch() const { return switch_; }
   Qor::Ptr<Reactor> const& reactor() const { return reactor_; }
   Qor::Ptr<Gate> const& gate() const { return gate_; }

   void listenerIs(Listener* listener) final { listener_ = listener; }
   void deleteEntry(MrouteLib::RouteHandle handle) final { switch_->doDeleteRoute(handle); }
   void clearResults() final {
      switch_->mtableOifSetIs(nullptr);
      switch_->routeHandleIs({});
   }
   void markDirty(MrouteLib::MtableOifSetPtr const& record) final {
      if (auto const mine = Qor::ptrCast<SwitchRecord>(record)) mine->dirtyIs(true);
   }
   std::optional<bool> sharable(MrouteLib::OifSetPtr const& oifSet) const final {
      auto const record = switch_->inUseRecord(oifSet);
      if (!record) return std::nullopt;
      return !record->dirty();
   }
   Qor::U32 zombies() const final { return static_cast<Qor::U32>(switch_->zombieOifSet().size()); }
   void purgeZombie() final { switch_->zombieOifSetDel(switch_->zombieOifSet().begin()->first); }
   std::set<Lnet::IntfId> failedInterfaces() const override {
      std::set<Lnet::IntfId> down;
      auto const& links = reactor_->ethIntfStatusDir();
      if (!links) return down;
      for (auto const& [intf, status] : links->intfStatus()) {
         if (Vel::startsReroute(status->operStatus())) down.insert(intf);
      }
      return down;
   }
   void reroute(Lnet::IntfId intf) final { reactor_->updateFrrMtableOif(intf); }
   Facts facts(MrouteLib::MtableOifSetPtr const& record) const final {
      auto const mine = Qor::ptrCast<SwitchRecord>(record);
      if (!mine) return {};
      return {indexOf(*mine), mine->dirty(),
              switch_->frrProcessingOifSet().find(mine->oifSet()) != nullptr};
   }
   void endService() final {
      listener_ = nullptr;
      zombieWatch_.reset();
      reactor_ = nullptr;
      switch_ = nullptr;
      gate_->openIs(false);
   }
   void gateIs(bool open) final { gate_->openIs(open); }
   HookErrors const& hookErrors() const final { return gate_->errors(); }
   HookFaults const* hookFaults() const final {
      return gate_->checks() ? gate_->checks()->faults().get() : nullptr;
   }

 protected:
   using SwitchRecord = typename Switch::RecordPtr::element_type;

   explicit SwitchRouteTable(Qor::Ptr<Gate> gate) : gate_(std::move(gate)) {}
   ~SwitchRouteTable() override {
      gate_->openIs(false);
      endService();
   }
   // Called once, by the constructor of the derived class.
   void wire(Qor::Ptr<Switch> chip, Qor::Ptr<Reactor> reactor) {
      switch_ = std::move(chip);
      reactor_ = std::move(reactor);
      zombieWatch_ = std::make_unique<ZombieWatch>(*this);
   }
   // Null while the programmer is not to be notified.
   Listener* listener() const { return listener_; }

 private:
   // A zombie that goes may leave a free group: it expired, was given up, or was resurrected.
   class ZombieWatch final : public Switch::Notifiee {
    public:
      explicit ZombieWatch(SwitchRouteTable& table) : table_(table) {
         this->notifierIs(table.switch_.get());
      }
      void onZombieOifSet(typename Switch::ZombieOifSetColl::Key const&) override {
         onZombieOifSetImmediate();
      }
      void onZombieOifSetImmediate() override {
         if (table_.listener_) table_.listener_->roomIs(Table::group);
      }

    private:
      SwitchRouteTable& table_;
   };

   // The multicast id or the oif set index of the record.
   virtual Qor::U32 indexOf(SwitchRecord const& record) const = 0;

   Qor::Ptr<Gate> const gate_;
   Qor::Ptr<Switch> switch_;
   Qor::Ptr<Reactor> reactor_;
   std::unique_ptr<ZombieWatch> zombieWatch_;
   Listener* listener_ = nullptr;
};

}  // namespace VelMroute
