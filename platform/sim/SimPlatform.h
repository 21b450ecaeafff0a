// The simulated chip as a platform of programs, on either path, in virtual time.
#pragma once

#include "platform/Platform.h"
#include "platform/sim/AsyncPlatform.h"
#include "platform/sim/ChipRestart.h"
#include "platform/sim/SyncPlatform.h"

namespace Sim {

// The part that does not depend on the path.
class SimPlatform : public VelMroute::Platform, private VelMroute::View, private VelMroute::Probe {
 public:
   VelMroute::Abilities abilities() const override;
   VelMroute::View* view() override { return this; }
   VelMroute::Probe* probe() override { return this; }

 protected:
   explicit SimPlatform(Qor::Ptr<Chip> chip) : chip_(std::move(chip)) {}

   Chip& chip() const { return *chip_; }
   // A boundary entry has a handle behind those of the route table.
   MrouteLib::RouteHandle handleOf(Qor::U32 number, bool boundary) const {
      return MrouteLib::RouteHandle(boundary ? chip_->config().routes + number : number);
   }

 private:
   using RouteKey = Routing::Multicast::Fib::IpGenRouteKey;

   // ---- Of the path. ----
   virtual Faults& faults() = 0;
   virtual bool bridging() const = 0;
   virtual bool writesPending() const = 0;
   virtual WriteKind entryWrite() const = 0;

   // ---- View ----
   void refresh(std::function<void(bool read)> const& done) override { done(true); }
   Qor::Seconds asOf() const override { return Qor::now(); }
   std::optional<Group> group(Qor::U32 number) const override;
   std::optional<Entry> entry(MrouteLib::RouteHandle handle) const override;
   void forEachEntry(std::function<void(Entry const&)> const& visit) const override;
   void forEachGroup(
         std::function<void(Qor::U32 number, Group const& group)> const& visit) const override;
   Use use(VelMroute::Table table) const override;
   std::optional<bool> linkUp(Lnet::IntfId intf) const override;
   Entry entryOf(Qor::U32 number, Sim::Entry const& entry, bool boundary) const;

   // ---- Probe ----
   std::vector<Port> ports() const override;
   std::vector<Seen> inject(std::span<Packet const> packets) override;
   void settle() override;
   void wait(Qor::Seconds seconds) override;
   bool linkIs(Lnet::IntfId intf, bool up) override;
   bool failNext(Fault fault, Qor::U32 count) override;

   Qor::Ptr<Chip> const chip_;
};

// A chip of the asynchronous path, or of the synchronous one with the number 1. The chip keeps its
// tables from an earlier platform. `callCost`: the seconds of virtual time that each hook call takes.
Qor::Ptr<SimPlatform> newAsyncPlatform(Qor::Ptr<Chip> chip, Qor::Seconds callCost = 0);
Qor::Ptr<SimPlatform> newSyncPlatform(Qor::Ptr<Chip> chip, Qor::Seconds callCost = 0);

}  // namespace Sim
