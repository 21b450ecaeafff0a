#include "platform/sim/SimPlatform.h"

#include <algorithm>
#include <utility>

namespace Sim {

using MrouteLib::RouteHandle;
using Qor::U32;
using VelMroute::Table;

namespace {

class AsyncSimPlatform final : public SimPlatform {
 public:
   AsyncSimPlatform(Qor::Ptr<Chip> chip, Qor::Seconds callCost)
         : SimPlatform(chip),
           hooks_(Qor::make<AsyncPlatform>("sim", std::move(chip), config(callCost))) {}

   Qor::Ptr<VelHelper::AsyncMrouteHelper> asyncHooks() override { return hooks_; }
   VelMroute::Restart* restart() override { return &restart_; }

 private:
   static AsyncPlatformConfig config(Qor::Seconds callCost) {
      AsyncPlatformConfig config;
      config.callCost = callCost;
      return config;
   }

   Faults& faults() override { return hooks_->faults(); }
   bool bridging() const override { return false; }
   bool writesPending() const override { return hooks_->queue()->pending() > 0; }
   WriteKind entryWrite() const override { return WriteKind::routePoint; }
   std::optional<U32> groupOf(U32 index) const override {
      if (!chip().group(index)) return std::nullopt;
      return index;
   }

   Qor::Ptr<AsyncPlatform> const hooks_;
   ChipRestart restart_{chip(), hooks_->found(), [this] { return hooks_->sweepUnadopted(); }};
};

class SyncSimPlatform final : public SimPlatform {
 public:
   SyncSimPlatform(Qor::Ptr<Chip> chip, Qor::Seconds callCost)
         : SimPlatform(chip),
           hooks_(Qor::make<SyncPlatform>("sim", std::move(chip), 1, config(callCost))) {}

   Qor::Ptr<VelHelper::MrouteSmHelper> syncHooks() override { return hooks_; }
   VelMroute::Restart* restart() override { return &restart_; }

 private:
   static SyncPlatformConfig config(Qor::Seconds callCost) {
      SyncPlatformConfig config;
      config.callCost = callCost;
      return config;
   }

   Faults& faults() override { return hooks_->faults(); }
   bool bridging() const override { return true; }
   bool writesPending() const override { return false; }
   WriteKind entryWrite() const override { return WriteKind::routeCreate; }
   std::optional<U32> groupOf(U32 index) const override {
      U32 const group = hooks_->groupOf(index);
      if (group == noGroup) return std::nullopt;
      return group;
   }

   Qor::Ptr<SyncPlatform> const hooks_;
   ChipRestart restart_{chip(), hooks_->found(), [this] {
                           hooks_->sweepUnadopted();
                           return true;
                        }};
};

}  // namespace

Qor::Ptr<SimPlatform> newAsyncPlatform(Qor::Ptr<Chip> chip, Qor::Seconds callCost) {
   return Qor::make<AsyncSimPlatform>(std::move(chip), callCost);
}

Qor::Ptr<SimPlatform> newSyncPlatform(Qor::Ptr<Chip> chip, Qor::Seconds callCost) {
   return Qor::make<SyncSimPlatform>(std::move(chip), callCost);
}

VelMroute::Abilities SimPlatform::abilities() const {
   VelMroute::Abilities all;
   all.noRpf = true;
   all.bridging = all.counters = bridging();
   all.virtualTime = all.forks = true;
   return all;
}

// ---- View ----

std::optional<VelMroute::View::Group> SimPlatform::group(U32 number) const {
   Sim::Group const* const group = chip_->group(number);
   if (!group) return std::nullopt;
   return Group{group->members, group->toCpu};
}

VelMroute::View::Entry SimPlatform::entryOf(U32 number, Sim::Entry const& entry,
                                            bool boundary) const {
   Entry out;
   out.handle = handleOf(number, boundary);
   out.route = {Vel::VrfId(entry.vrfId), entry.key, entry.acceptingVlan, boundary || entry.bridge};
   out.drops = entry.group == dropGroup;
   if (entry.group != noGroup) out.group = entry.group;
   out.packets = entry.packets;
   out.bytes = entry.bytes;
   return out;
}

std::optional<VelMroute::View::Entry> SimPlatform::entry(RouteHandle handle) const {
   if (handle.isNull()) return std::nullopt;
   U32 const routes = chip_->config().routes;
   bool const boundary = handle.value() >= routes;
   U32 const number = boundary ? handle.value() - routes : handle.value();
   Sim::Entry const* const entry = (boundary ? chip_->boundaries() : chip_->routes()).find(number);
   if (!entry) return std::nullopt;
   return entryOf(number, *entry, boundary);
}

void SimPlatform::forEachEntry(std::function<void(Entry const&)> const& visit) const {
   auto const all = [&](EntryTable const& table, bool boundary) {
      table.forEach(
            [&](U32 number, Sim::Entry const& entry) { visit(entryOf(number, entry, boundary)); });
   };
   all(chip_->routes(), false);
   all(chip_->boundaries(), true);
}

void SimPlatform::forEachGroup(
      std::function<void(U32 number, Group const& group)> const& visit) const {
   chip_->forEachGroup([&](U32 id, Sim::Group const& group) {
      visit(id, {group.members, group.toCpu});
   });
}

VelMroute::View::Use SimPlatform::use(Table table) const {
   ChipConfig const& size = chip_->config();
   switch (table) {
      case Table::group:
         return {chip_->groups(), size.groups};
      case Table::entry:
         return {chip_->routes().size(), size.routes};
      default:
         return {chip_->boundaries().size(), size.boundaries};
   }
}

std::optional<bool> SimPlatform::linkUp(Lnet::IntfId intf) const {
   Sim::Port const* const port = chip_->port(intf);
   if (!port) return std::nullopt;
   return port->linkUp;
}

// ---- Probe ----

std::vector<VelMroute::Probe::Port> SimPlatform::ports() const {
   std::vector<Port> all;
   for (auto const& [intf, port] : chip_->ports())
      all.push_back({intf, port.vlans.empty() ? Bridging::VlanIdOrNone() : port.vlans.front()});
   std::sort(all.begin(), all.end(), [](Port const& a, Port const& b) { return a.intf < b.intf; });
   return all;
}

std::vector<VelMroute::Probe::Seen> SimPlatform::inject(std::span<Packet const> packets) {
   std::vector<Port> const known = ports();
   std::vector<Seen> seen;
   for (Packet const& packet : packets) {
      auto const in = std::find_if(known.begin(), known.end(),
                                   [&](Port const& port) { return port.intf == packet.in; });
      if (in == known.end()) {
         seen.emplace_back();
         continue;
      }
      Forwarded out = chip_->forward(
            {packet.vrfId.value(), packet.source, packet.group, in->vlan, packet.bytes});
      seen.push_back({std::move(out.copies), out.toCpu});
   }
   return seen;
}

void SimPlatform::settle() {
   auto const loop = Qor::activityManager();
   while (writesPending())
      loop->runUntil(loop->nextDeadline());
}

void SimPlatform::wait(Qor::Seconds seconds) {
   Qor::activityManager()->runUntil(Qor::now() + seconds);
}

bool SimPlatform::linkIs(Lnet::IntfId intf, bool up) {
   return chip_->linkIs(intf, up).empty();
}

bool SimPlatform::failNext(Fault fault, U32 count) {
   switch (fault) {
      case Fault::groupWrite:
         faults().failNext(WriteKind::groupCreate, "injected fault", count);
         break;
      case Fault::entryWrite:
         faults().failNext(entryWrite(), "injected fault", count);
         break;
      case Fault::deletion:
         faults().failNext(WriteKind::routeDelete, "injected fault", count);
         break;
      case Fault::hitBitsBusy:
         faults().hitBitsBusyNext(count);
         break;
   }
   return true;
}

}  // namespace Sim
