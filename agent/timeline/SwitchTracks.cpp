#include "agent/timeline/SwitchTracks.h"

#include <nlohmann/json.hpp>

namespace Agent {

using MrouteLib::OifSetPtr;

namespace {

std::string oifSetName(OifSetPtr const& oifSet) {
   return "OifSet#" + std::to_string(oifSet->serial());
}

}  // namespace

void SwitchTracks::route(MrouteLib::RouteHandle handle, std::optional<RouteFacts> const& route) {
   endSpan(routes_, handle.value(), route ? "replaced" : "released");
   if (!route) return;
   routes_[handle.value()] =
         begin("route", route->name,
               {{"routeHandle", handle.value()}, {"vlan", route->vlan}, {"vrfId", route->vrfId}});
}

void SwitchTracks::zombie(ZombieId const& id, std::optional<ZombieFacts> const& zombie) {
   endZombie(zombies_.find(id), zombie.has_value());
   if (!zombie) return;
   auto const span = begin("zombie", "zombie " + oifSetName(zombie->oifSet),
                           {{"multicastId", id.group}, {"expiryTime", id.expiryTime}});
   zombies_[id] = {span, zombie->oifSet->serial(), zombie->sharable};
}

void SwitchTracks::reroute(OifSetPtr const& oifSet, bool waits, Qor::U32 index) {
   if (!waits) {
      endSpan(reroutes_, oifSet->serial(), "done");
   } else if (!reroutes_.contains(oifSet->serial())) {
      reroutes_[oifSet->serial()] =
            begin("reroute", "reroute " + oifSetName(oifSet), {{"multicastId", index}});
   }
}

void SwitchTracks::inUse(OifSetPtr const& oifSet, bool there) {
   // A zombie whose record is removed at the same instant was purged, not resurrected.
   for (std::size_t i = 0; !there && i < undecided_.size(); ++i) {
      if (undecided_[i].oifSet != oifSet->serial()) continue;
      end(undecided_[i].span, "purged", undecidedAt_);
      undecided_.erase(undecided_.begin() + static_cast<std::ptrdiff_t>(i));
      break;
   }
   announce("inUseOifSet", oifSet, there);
}

void SwitchTracks::announce(char const* collection, OifSetPtr const& oifSet, bool there) {
   if (detailed()) notification(collection, {{"oifSet", oifSet->serial()}, {"there", there}});
   tablesChanged();
}

void SwitchTracks::gone() {
   notification("deleted");
}

void SwitchTracks::tablesChanged() {
   settleAll();
   tablesDirty_ = true;
   tablesAt_ = Qor::now();
   tables_ = tables();
}

void SwitchTracks::settleInstant(double time) {
   if (!undecided_.empty() && undecidedAt_ < time) {
      // The record is still in use, so the zombie was resurrected.
      for (Zombie const& zombie : undecided_)
         end(zombie.span, "resurrected", undecidedAt_);
      undecided_.clear();
   }
   if (tablesDirty_ && tablesAt_ < time) writeTables();
}

void SwitchTracks::endSpan(Spans& spans, Qor::U64 key, char const* outcome) {
   auto const it = spans.find(key);
   if (it == spans.end()) return;
   end(it->second, outcome, Qor::now());
   spans.erase(it);
}

// A zombie that is removed before its expiry was purged or resurrected. The other changes of this
// instant decide which, so the outcome is written when the instant is over.
SwitchTracks::Zombies::iterator SwitchTracks::endZombie(Zombies::iterator it, bool replaced) {
   if (it == zombies_.end()) return it;
   auto const [id, zombie] = *it;
   double const now = Qor::now();
   if (replaced) {
      end(zombie.span, "replaced", now);
   } else if (id.expiryTime <= now) {
      end(zombie.span, "expired", now);
   } else if (deleted()) {
      end(zombie.span, "dropped", now);
   } else if (!zombie.sharable) {
      end(zombie.span, "purged", now);
   } else {
      settleAll();
      undecided_.push_back(zombie);
      undecidedAt_ = now;
   }
   return zombies_.erase(it);
}

void SwitchTracks::writeTables() {
   tablesDirty_ = false;
   counter("tables", tablesAt_,
           {{"groups", tables_.groups},
            {"zombies", tables_.zombies},
            {"routes", tables_.routes},
            {"rerouting", tables_.rerouting}});
}

}  // namespace Agent
