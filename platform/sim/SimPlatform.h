// The simulated chip as a platform of programs, on either path, in virtual time.
#pragma once

#include "platform/Platform.h"
#include "platform/PlatformOptions.h"
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
   bool portIs(Lnet::IntfId intf, Qor::U32 number, Bridging::VlanIdOrNone vlan) override;

 protected:
   explicit SimPlatform(Qor::Ptr<Chip> chip) : chip_(std::move(chip)) {}

   Chip& chip() const { return *chip_; }
   Qor::Ptr<Chip> const& chipPtr() const { return chip_; }
   // A boundary entry has a handle behind those of the route table.
   MrouteLib::RouteHandle handleOf(Qor::U32 number, bool boundary) const {
      return MrouteLib::RouteHandle(boundary ? chip_->config().routes + number : number);
   }

 private:
   using RouteKey = Routing::Multicast::Fib::IpGenRouteKey;

   // ---- Of the path. ----
   virtual bool bridging() const = 0;
   virtual Qor::U32 allocated(VelMroute::Table table) const = 0;

   // ---- View ----
   void refresh(std::function<void(bool read)> const& done) override { done(true); }
   Qor::Seconds asOf() const override { return Qor::now(); }
   std::optional<Group> group(Qor::U32 number) const override;
   std::optional<Entry> entry(MrouteLib::RouteHandle handle) const override;
   void forEachEntry(std::function<void(Entry const&)> const& visit) const override;
   void forEachEntryOf(Vel::VrfId vrfId, RouteKey const& key,
                       std::function<void(Entry const&)> const& visit) const override;
   void forEachGroup(
         std::function<void(Qor::U32 number, Group const& group)> const& visit) const override;
   Use use(VelMroute::Table table) const override;
   std::optional<Qor::U64> writes(WriteKind kind) const override { return chip_->writes(kind); }
   std::optional<bool> linkUp(Lnet::IntfId intf) const override;
   Entry entryOf(Qor::U32 number, Sim::Entry const& entry, bool boundary) const;

   // ---- Probe ----
   std::vector<Port> ports() const override;
   std::vector<Seen> inject(std::span<Packet const> packets) override;
   void settle() override;
   void wait(Qor::Seconds seconds) override;
   bool linkIs(Lnet::IntfId intf, bool up) override;
   Seen inject(Packet const& packet);

   Qor::Ptr<Chip> const chip_;
};

// A platform on the chip, which keeps its tables from an earlier platform. On the synchronous path
// the chip has the number 1.
Qor::Ptr<SimPlatform> newAsyncPlatform(Qor::Ptr<Chip> chip, AsyncPlatformConfig config = {});
Qor::Ptr<SimPlatform> newSyncPlatform(Qor::Ptr<Chip> chip, SyncPlatformConfig config = {});

}  // namespace Sim

namespace VelMroute {

// A platform of the asynchronous or synchronous path on a new simulated chip. Options:
//    groups=N, routes=N, boundaries=N   the sizes of the tables (8192, 32768, 1024)
//    latency=SECONDS                    of a write in an empty queue (0.001), asynchronous path
//    minPollingInterval=SECONDS         the shortest polling interval (0), asynchronous path
//    callCost=SECONDS                   virtual time that each hook call takes (0)
// Throws PlatformOptionError for an unknown option and a bad value.
Qor::Ptr<Platform> newSimulatedAsyncPlatform(PlatformOptions const& options = {});
Qor::Ptr<Platform> newSimulatedSyncPlatform(PlatformOptions const& options = {});

}  // namespace VelMroute
