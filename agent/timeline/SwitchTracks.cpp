#include "agent/timeline/SwitchTracks.h"

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
   routes_[handle.value()] = timeline_.begin(
         process_, "route", route->name,
         {{"routeHandle", handle.value()}, {"vlan", route->vlan}, {"vrfId", route->vrfId}});
}

void SwitchTracks::zombie(ZombieId const& id, std::optional<ZombieFacts> const& zombie) {
   endZombie(zombies_.find(id), zombie.has_value());
   if (!zombie) return;
   auto const span = timeline_.begin(process_, "zombie", "zombie " + oifSetName(zombie->oifSet),
                                     {{"multicastId", id.group}, {"expiryTime", id.expiryTime}});
   zombies_[id] = {span, zombie->oifSet->serial(), zombie->sharable};
}

void SwitchTracks::reroute(OifSetPtr const& oifSet, bool waits) {
   if (!waits) {
      endSpan(reroutes_, oifSet->serial(), "done");
   } else if (!reroutes_.contains(oifSet->serial())) {
      reroutes_[oifSet->serial()] =
            timeline_.begin(process_, "reroute", "reroute " + oifSetName(oifSet));
   }
}

void SwitchTracks::inUse(OifSetPtr const& oifSet, bool there) {
   // A zombie whose record goes with it was purged, not brought back.
   for (std::size_t i = 0; !there && i < undecided_.size(); ++i) {
      if (undecided_[i].oifSet != oifSet->serial()) continue;
      timeline_.end(undecided_[i].span, "purged", undecidedAt_);
      undecided_.erase(undecided_.begin() + static_cast<std::ptrdiff_t>(i));
      break;
   }
   announce("inUseOifSet", oifSet, there);
}

void SwitchTracks::announce(char const* collection, OifSetPtr const& oifSet, bool there) {
   timeline_.writeInstant(Timeline::Thread::notifications, collection,
                          {{"oifSet", oifSet->serial()}, {"there", there}}, process_);
   tablesChanged();
}

void SwitchTracks::gone() {
   timeline_.writeInstant(Timeline::Thread::notifications, "deleted", nullptr, process_);
}

void SwitchTracks::tablesChanged() {
   timeline_.settleInstant();
   tablesDirty_ = true;
   tablesAt_ = Qor::now();
   tables_ = tables();
}

void SwitchTracks::settleInstant(double time) {
   if (!undecided_.empty() && undecidedAt_ < time) {
      // Its record has stayed without it.
      for (Zombie const& zombie : undecided_)
         timeline_.end(zombie.span, "resurrected", undecidedAt_);
      undecided_.clear();
   }
   if (tablesDirty_ && tablesAt_ < time) writeTables();
}

void SwitchTracks::endSpan(Spans& spans, Qor::U64 key, char const* outcome) {
   auto const it = spans.find(key);
   if (it == spans.end()) return;
   timeline_.end(it->second, outcome, Qor::now());
   spans.erase(it);
}

// One that goes early was purged or brought back; what else happens at this instant tells.
SwitchTracks::Zombies::iterator SwitchTracks::endZombie(Zombies::iterator it, bool replaced) {
   if (it == zombies_.end()) return it;
   auto const [id, zombie] = *it;
   double const now = Qor::now();
   if (replaced) {
      timeline_.end(zombie.span, "replaced", now);
   } else if (id.expiryTime <= now) {
      timeline_.end(zombie.span, "expired", now);
   } else if (deleted()) {
      timeline_.end(zombie.span, "dropped", now);
   } else if (!zombie.sharable) {
      timeline_.end(zombie.span, "purged", now);
   } else {
      timeline_.settleInstant();
      undecided_.push_back(zombie);
      undecidedAt_ = now;
   }
   return zombies_.erase(it);
}

void SwitchTracks::writeTables() {
   tablesDirty_ = false;
   timeline_.write("C", process_, 0, "tables", tablesAt_,
                   {{"args",
                     {{"groups", tables_.groups},
                      {"zombies", tables_.zombies},
                      {"routes", tables_.routes},
                      {"rerouting", tables_.rerouting}}}});
}

}  // namespace Agent
