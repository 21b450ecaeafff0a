// The tracks of one switch in a timeline, whatever its path. An observer, derived for the path,
// watches the switch's collections and tells here what has changed in them; what a span's end means
// is decided here.
#pragma once

#include <map>
#include <optional>
#include <string>
#include <unordered_map>
#include <vector>

#include "MrouteLib/OifSet.h"
#include "MrouteLib/RouteHandle.h"
#include "Qor/Clock.h"
#include "agent/timeline/Timeline.h"

namespace Agent {

class SwitchTracks : public Timeline::Process {
 public:
   using Process::Process;

   void settleInstant(double time) override;

 protected:
   struct RouteFacts {
      std::string name;
      Qor::U32 vlan;
      Qor::U32 vrfId;
   };
   struct ZombieId {
      Qor::Seconds expiryTime;
      Qor::U32 group;

      auto operator<=>(ZombieId const&) const = default;
   };
   struct ZombieFacts {
      MrouteLib::OifSetPtr oifSet;
      bool sharable;  // not replaced by a newer record, so it can be brought back
   };
   struct Tables {
      std::size_t groups, zombies, routes, rerouting;
   };

   // ---- What the observer answers. ----

   virtual Tables tables() const = 0;
   // The switch is being torn down.
   virtual bool deleted() const = 0;

   // ---- What the observer tells: how it is now; none for what is not there any more. ----

   void route(MrouteLib::RouteHandle handle, std::optional<RouteFacts> const& route);
   void zombie(ZombieId const& id, std::optional<ZombieFacts> const& zombie);
   void reroute(MrouteLib::OifSetPtr const& oifSet, bool waits);
   // A member of inUseOifSet.
   void inUse(MrouteLib::OifSetPtr const& oifSet, bool there);
   // A member of any collection that has no spans.
   void announce(char const* collection, MrouteLib::OifSetPtr const& oifSet, bool there);
   void gone();
   void tablesChanged();

   // What is shown at present and not among those that stay is there no more; the others are left.
   template <class There>
   void routesThere(There const& there) {
      endSpans(routes_, deleted() ? "dropped" : "released",
               [&](Qor::U64 handle) { return there(MrouteLib::RouteHandle(Qor::U32(handle))); });
   }
   template <class There>
   void zombiesThere(There const& there) {
      for (auto it = zombies_.begin(); it != zombies_.end();)
         it = there(it->first) ? std::next(it) : endZombie(it, false);
   }
   template <class There>
   void reroutesThere(There const& there) {
      endSpans(reroutes_, deleted() ? "dropped" : "done", there);
   }
   bool shown(MrouteLib::RouteHandle handle) const { return routes_.contains(handle.value()); }
   bool shown(ZombieId const& id) const { return zombies_.contains(id); }

 private:
   struct Zombie {
      std::uint64_t span;
      Qor::U64 oifSet;  // its serial
      bool sharable;
   };
   using Spans = std::unordered_map<Qor::U64, std::uint64_t>;
   using Zombies = std::map<ZombieId, Zombie>;

   void endSpan(Spans& spans, Qor::U64 key, char const* outcome);
   // All but those that stay.
   template <class Stays>
   void endSpans(Spans& spans, char const* outcome, Stays const& stays) {
      std::erase_if(spans, [&](auto const& item) {
         if (stays(item.first)) return false;
         end(item.second, outcome, Qor::now());
         return true;
      });
   }
   Zombies::iterator endZombie(Zombies::iterator it, bool replaced);
   void writeTables();

   Spans routes_;    // by handle
   Spans reroutes_;  // by the oif set's serial
   Zombies zombies_;
   std::vector<Zombie> undecided_;  // ended early, at undecidedAt_
   double undecidedAt_ = 0;
   bool tablesDirty_ = false;
   double tablesAt_ = 0;
   Tables tables_{};
};

}  // namespace Agent
