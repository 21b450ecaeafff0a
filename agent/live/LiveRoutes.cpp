#include "agent/live/LiveRoutes.h"

#include <algorithm>
#include <utility>

namespace Agent {

using KernelKey = Kernel::RouteKey;
using Lnet::IntfId;

L3::VrfName LiveRoutes::vrfOf(IntfId intf) const {
   auto const found = vrfs_.find(intf);
   return found == vrfs_.end() ? L3::VrfName("default") : found->second;
}

LiveRoutes::Known const* LiveRoutes::find(KernelKey const& key) const {
   auto const found = routes_.find(key);
   return found == routes_.end() ? nullptr : &found->second;
}

Qor::U32 LiveRoutes::count(Qor::U32 table) const {
   auto const found = counts_.find(table);
   return found == counts_.end() ? 0 : found->second;
}

void LiveRoutes::switchIs(Switch* theSwitch) {
   switch_ = theSwitch;
   for (auto& [key, known] : routes_)
      known.wanted = false;
   if (switch_) decideAll();
}

void LiveRoutes::routeIs(KernelKey const& key, Kernel::Route const& route) {
   auto const [it, isNew] = routes_.try_emplace(key);
   it->second.route = route;
   if (isNew) {
      tablesOf_[{key.source, key.group}].insert(key.table);
      ++counts_[key.table];
   }
   decideAllOf(key.source, key.group);
}

void LiveRoutes::routeDel(KernelKey const& key) {
   auto const it = routes_.find(key);
   if (it == routes_.end()) return;
   withdraw(key, it->second);
   routes_.erase(it);
   --counts_[key.table];
   auto const tables = tablesOf_.find({key.source, key.group});
   tables->second.erase(key.table);
   if (tables->second.empty()) {
      tablesOf_.erase(tables);
   } else {
      decideAllOf(key.source, key.group);
   }
}

void LiveRoutes::decideAll() {
   for (auto const& [group, tables] : tablesOf_)
      decideAllOf(group.source, group.group);
}

// The routes of all tables with this source and group, by ascending table. Those that leave the
// hardware go first, since one of the others may take the place.
void LiveRoutes::decideAllOf(Lnet::IpGenAddr const& source, Lnet::IpGenAddr const& group) {
   std::map<RouteId, Qor::U32> taken;
   for (Qor::U32 const table : tablesOf_.at({source, group})) {
      KernelKey const key{table, source, group};
      Known& known = routes_.at(key);
      known.decision = decide(key, known.route, surroundings_);
      RouteId id;
      if (known.decision.inHardware()) {
         id = {vrfOf(known.decision.input),
               Routing::Multicast::Fib::IpGenRouteKey::fromAddresses(source, group)};
         auto const [other, isFirst] = taken.emplace(id, table);
         if (!isFirst) {
            known.decision.reason = CpuReason::hiddenByTable;
            known.decision.text = "hidden by table " + std::to_string(other->second);
         }
      }
      if (known.wanted && (!known.decision.inHardware() || known.id != id)) withdraw(key, known);
      known.id = std::move(id);
   }
   if (!switch_) return;
   for (Qor::U32 const table : tablesOf_.at({source, group})) {
      KernelKey const key{table, source, group};
      Known& known = routes_.at(key);
      if (known.decision.inHardware()) place(known);
   }
}

WantedRoute LiveRoutes::wantedOf(RouteDecision const& decision) const {
   WantedRoute wanted;
   wanted.iif = decision.input;
   std::vector<IntfId> outputs = decision.outputs, backup;
   for (IntfId const intf : failed_) {
      IntfId const other = reroutes_.at(intf);
      if (other != decision.input) std::ranges::replace(outputs, intf, other);
   }
   for (auto const& [intf, other] : reroutes_) {
      if (std::ranges::count(outputs, intf) == 0) continue;
      if (other == decision.input || failed_.contains(intf) || restoring_.contains(intf)) continue;
      wanted.protectedIntf = intf;
      backup = outputs;
      std::ranges::replace(backup, intf, other);
      break;
   }
   wanted.outputs = switch_->outputsPool().get(std::move(outputs), false, std::move(backup));
   return wanted;
}

void LiveRoutes::place(Known& known) {
   known.wanted = true;
   switch_->learnVrf(known.id.vrf);
   switch_->routeIs(known.id.vrf, known.id.key, wantedOf(known.decision));
}

void LiveRoutes::withdraw(KernelKey const& key, Known& known) {
   if (!std::exchange(known.wanted, false)) return;
   if (withdrawn_) withdrawn_(key);
   if (switch_) switch_->routeDel(known.id.vrf, known.id.key);
}

void LiveRoutes::placeAll(IntfId output) {
   for (auto& [key, known] : routes_) {
      if (known.wanted && std::ranges::count(known.decision.outputs, output) > 0) place(known);
   }
}

void LiveRoutes::reroutesAre(Reroutes reroutes) {
   reroutes_ = std::move(reroutes);
   for (auto* const interfaces : {&failed_, &restoring_})
      std::erase_if(*interfaces, [this](IntfId intf) { return !reroutes_.contains(intf); });
}

// The routes that are being restored have no backup.
void LiveRoutes::failed(IntfId intf) {
   if (!reroutes_.contains(intf)) return;
   failed_.insert(intf);
   if (restoring_.erase(intf) > 0) placeAll(intf);
}

void LiveRoutes::restore(IntfId intf, bool again) {
   if (again) {
      if (restoring_.erase(intf) == 0) return;
   } else {
      if (failed_.erase(intf) == 0) return;
      restoring_.insert(intf);
   }
   placeAll(intf);
}

}  // namespace Agent
