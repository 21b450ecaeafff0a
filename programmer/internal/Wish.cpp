#include "programmer/internal/Wish.h"

#include <algorithm>

#include "Qor/Hash.h"

namespace VelMroute {

using Bridging::VlanIdOrNone;
using Routing::Multicast::Fib::RouteKeyType;

namespace {

void normalize(WantedRoute& wanted) {
   auto& drops = wanted.fastdrop;
   std::sort(drops.begin(), drops.end());
   drops.erase(std::unique(drops.begin(), drops.end()), drops.end());
}

Qor::U32 hashOf(WantedRoute const& wanted, bool fastdrop) {
   Qor::U64 hash = Qor::hashMix(wanted.iif.id(), wanted.outputs ? wanted.outputs->hash() : 0);
   if (!wanted.protectedIntf.isNull()) hash = Qor::hashMix(hash, wanted.protectedIntf.id());
   for (Lnet::IntfId const intf : wanted.fastdrop)
      hash = Qor::hashMix(hash, intf.id());
   Qor::U64 const flags = wanted.bridge + 2 * wanted.noRpf + 4 * fastdrop;
   return Qor::hashFold(Qor::hashMix(hash, flags << 16 | wanted.rpaId.value()));
}

}  // namespace

Wish::Wish(WishPool& pool, WantedRoute wanted, bool fastdrop, Qor::U32 hash)
      : pool_(pool), wanted_(std::move(wanted)), fastdrop_(fastdrop), hash_(hash) {}

Wish::~Wish() {
   pool_.wishes_.erase(this);
}

RouteKeyType Wish::typeFor(Routing::Multicast::Fib::IpGenRouteKey const& key) const {
   return wanted_.bridge ? RouteKeyType::bridged : Routing::Multicast::Fib::routeKeyType(key);
}

WishPtr WishPool::get(WantedRoute&& wanted, bool fastdrop) {
   normalize(wanted);
   Candidate const candidate{wanted, fastdrop, hashOf(wanted, fastdrop)};
   auto const known = wishes_.find(candidate);
   if (known != wishes_.end()) return *known;
   auto const made = Qor::make<Wish>(*this, std::move(wanted), fastdrop, candidate.hash);
   wishes_.insert(made.get());
   return made;
}

Wish::Resolved const& WishPool::resolve(Wish const& wish, RouteKeyType type) const {
   auto known = std::find_if(wish.resolved_.begin(), wish.resolved_.end(),
                             [&](auto const& r) { return r.type == type; });
   if (known == wish.resolved_.end()) known = wish.resolved_.insert(known, {.type = type});
   if (known->epoch != epoch_) {
      Wish::Resolved now = read(wish, type);
      bool const same = known->placement && now.placement &&
                        known->placement->vlan == now.placement->vlan &&
                        known->placement->set == now.placement->set;
      if (same) now.placement = known->placement;
      *known = std::move(now);
   }
   return *known;
}

Wish::Resolved WishPool::read(Wish const& wish, RouteKeyType type) const {
   WantedRoute const& wanted = wish.wanted();
   Lnet::IntfId missing;
   auto const vlanOf = [&](Lnet::IntfId intf) {
      VlanIdOrNone const vlan = vlans_->intfIdToVlanId(intf);
      if (vlan.isNone() && missing.isNull()) missing = intf;
      return vlan;
   };
   VlanIdOrNone const input = wanted.noRpf ? VlanIdOrNone() : vlanOf(wanted.iif);
   MrouteLib::PortVlanSet set(type);
   if (wanted.outputs) {
      set.toCpuIs(wanted.outputs->cpu());
      for (Lnet::IntfId const port : wanted.outputs->ports())
         set.newPortVlan(MrouteLib::PortVlan(port, vlanOf(port)), true);
      for (Lnet::IntfId const port : wanted.outputs->backup())
         set.newPortVlanFrr(MrouteLib::PortVlan(port, vlanOf(port)), true);
      if (!wanted.outputs->backup().empty()) {
         set.currentIifIs(wanted.protectedIntf.isNull() ? wanted.iif : wanted.protectedIntf);
      }
   }
   if (!missing.isNull()) return {type, epoch_, nullptr, missing};
   return {type, epoch_, Qor::make<Placement>(input, std::move(set)), {}};
}

}  // namespace VelMroute
