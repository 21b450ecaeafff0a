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
   AsyncSimPlatform(Qor::Ptr<Chip> chip, AsyncPlatformConfig const& config)
         : SimPlatform(chip),
           config_(config),
           hooks_(Qor::make<AsyncPlatform>("sim", std::move(chip), config)) {}

   Qor::Ptr<VelHelper::AsyncMrouteHelper> asyncHooks() override { return hooks_; }
   VelMroute::Restart* restart() override { return &restart_; }
   Faults* faults() override { return &hooks_->faults(); }
   bool writesPending() const override { return hooks_->queue()->pending() > 0; }
   std::vector<Qor::String> violations() const override { return hooks_->violations().texts(); }
   std::vector<Qor::String> audit() const override { return hooks_->audit(); }
   Qor::Ptr<Platform> crash(U32 applied) override {
      hooks_->detach(applied);
      auto const next = newAsyncPlatform(chipPtr(), config_);
      *next->faults() = hooks_->faults();  // the hardware has them
      return next;
   }

 private:
   bool bridging() const override { return false; }
   U32 allocated(Table table) const override {
      switch (table) {
         case Table::group:
            return hooks_->groupsAllocated();
         case Table::entry:
            return hooks_->routesAllocated();
         default:
            return 0;
      }
   }
   std::optional<U32> groupOf(U32 index) const override {
      if (index >= chip().config().groups) return std::nullopt;
      return index;
   }

   AsyncPlatformConfig const config_;
   Qor::Ptr<AsyncPlatform> const hooks_;
   ChipRestart restart_{chip(), hooks_->found(), [this] { return hooks_->sweepUnadopted(); }};
};

class SyncSimPlatform final : public SimPlatform {
 public:
   SyncSimPlatform(Qor::Ptr<Chip> chip, SyncPlatformConfig const& config)
         : SimPlatform(chip),
           config_(config),
           hooks_(Qor::make<SyncPlatform>("sim", std::move(chip), 1, config)) {}

   Qor::Ptr<VelHelper::MrouteSmHelper> syncHooks() override { return hooks_; }
   VelMroute::Restart* restart() override { return &restart_; }
   Faults* faults() override { return &hooks_->faults(); }
   std::vector<Qor::String> violations() const override {
      return withDifferences(hooks_->violations().texts());
   }
   std::vector<Qor::String> audit() const override { return withDifferences(hooks_->audit()); }
   Qor::Ptr<Platform> crash(U32) override {
      hooks_->detach();
      auto const next = newSyncPlatform(chipPtr(), config_);
      *next->faults() = hooks_->faults();  // the hardware has them
      return next;
   }

 private:
   std::vector<Qor::String> withDifferences(std::vector<Qor::String> faults) const {
      hooks_->differences().audit(faults);
      return faults;
   }
   bool bridging() const override { return true; }
   U32 allocated(Table table) const override {
      switch (table) {
         case Table::group:
            return hooks_->groupsAllocated();
         case Table::entry:
            return hooks_->routesAllocated();
         default:
            return hooks_->boundariesAllocated();
      }
   }
   std::optional<U32> groupOf(U32 index) const override {
      U32 const group = hooks_->groupOf(index);
      if (group == noGroup) return std::nullopt;
      return group;
   }

   SyncPlatformConfig const config_;
   Qor::Ptr<SyncPlatform> const hooks_;
   ChipRestart restart_{chip(), hooks_->found(), [this] {
                           hooks_->sweepUnadopted();
                           return true;
                        }};
};

}  // namespace

Qor::Ptr<SimPlatform> newAsyncPlatform(Qor::Ptr<Chip> chip, AsyncPlatformConfig config) {
   return Qor::make<AsyncSimPlatform>(std::move(chip), std::move(config));
}

Qor::Ptr<SimPlatform> newSyncPlatform(Qor::Ptr<Chip> chip, SyncPlatformConfig config) {
   return Qor::make<SyncSimPlatform>(std::move(chip), config);
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
   return Group{group->members, group->toCpu, isHardWired(number)};
}

VelMroute::View::Entry SimPlatform::entryOf(U32 number, Sim::Entry const& entry,
                                            bool boundary) const {
   Entry out;
   out.handle = handleOf(number, boundary);
   out.number = number;
   out.route = {Vel::VrfId(entry.vrfId), entry.key, entry.acceptingVlan, boundary};
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

void SimPlatform::forEachEntryOf(Vel::VrfId vrfId, RouteKey const& key,
                                 std::function<void(Entry const&)> const& visit) const {
   auto const all = [&](EntryTable const& table, bool boundary) {
      table.forEachOf(vrfId.value(), key, [&](U32 number, Sim::Entry const& entry) {
         visit(entryOf(number, entry, boundary));
      });
   };
   all(chip_->routes(), false);
   all(chip_->boundaries(), true);
}

void SimPlatform::forEachGroup(
      std::function<void(U32 number, Group const& group)> const& visit) const {
   chip_->forEachGroup([&](U32 id, Sim::Group const& group) {
      visit(id, {group.members, group.toCpu, false});
   });
}

VelMroute::View::Use SimPlatform::use(Table table) const {
   ChipConfig const& size = chip_->config();
   switch (table) {
      case Table::group:
         return {chip_->groups(), size.groups, allocated(table), chip_->groupsPeak()};
      case Table::entry:
         return {chip_->routes().size(), size.routes, allocated(table), chip_->routes().peak()};
      default:
         return {chip_->boundaries().size(), size.boundaries, allocated(table),
                 chip_->boundaries().peak()};
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
   std::vector<Seen> seen;
   seen.reserve(packets.size());
   for (Packet const& packet : packets)
      seen.push_back(inject(packet));
   return seen;
}

VelMroute::Probe::Seen SimPlatform::inject(Packet const& packet) {
   Bridging::VlanIdOrNone vlan = packet.vlan;
   if (vlan.isNone()) {
      Sim::Port const* const port = chip_->port(packet.in);
      if (!port) return {};
      if (!port->vlans.empty()) vlan = port->vlans.front();
   }
   Forwarded out =
         chip_->forward({packet.vrfId.value(), packet.source, packet.group, vlan, packet.bytes});
   Seen seen;
   seen.copies = std::move(out.copies);
   seen.cpu = out.toCpu;
   seen.verdict = out.result;
   if (out.entry) seen.entry = handleOf(*out.entry, out.result == Forwarding::bridged);
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

bool SimPlatform::portIs(Lnet::IntfId intf, U32 number, Bridging::VlanIdOrNone vlan) {
   return chip_->portAdd(intf, number, vlan).empty();
}

bool SimPlatform::linkIs(Lnet::IntfId intf, bool up) {
   return chip_->linkIs(intf, up).empty();
}

}  // namespace Sim

// ---- By options ----

namespace VelMroute {

namespace {

struct SimulatedChip {
   explicit SimulatedChip(PlatformOptions const& options) {
      Sim::ChipConfig sizes;
      OptionReader reader("chip property", options);
      reader.number("groups", sizes.groups);
      reader.number("routes", sizes.routes);
      reader.number("boundaries", sizes.boundaries);
      reader.seconds("latency", sizes.latency);
      reader.seconds("minPollingInterval", minPollingInterval);
      reader.seconds("callCost", callCost);
      reader.end();
      try {
         chip = Qor::make<Sim::Chip>(sizes);
      } catch (Qor::RangeException const& error) {
         throw PlatformOptionError(error.message());
      }
   }

   Qor::Ptr<Sim::Chip> chip;
   Qor::Seconds minPollingInterval = 0, callCost = 0;
};

}  // namespace

Qor::Ptr<Platform> newSimulatedAsyncPlatform(PlatformOptions const& options) {
   SimulatedChip const simulated(options);
   Sim::AsyncPlatformConfig config;
   config.minPollingInterval = simulated.minPollingInterval;
   config.callCost = simulated.callCost;
   return Sim::newAsyncPlatform(simulated.chip, config);
}

Qor::Ptr<Platform> newSimulatedSyncPlatform(PlatformOptions const& options) {
   SimulatedChip const simulated(options);
   Sim::SyncPlatformConfig config;
   config.callCost = simulated.callCost;
   return Sim::newSyncPlatform(simulated.chip, config);
}

}  // namespace VelMroute
