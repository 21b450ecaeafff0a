// The tracks of one switch in a timeline, on either path. A derived observer is notified of changes
// of the switch's collections and passes them to this class, which begins and ends the spans and
// decides their outcomes.
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
      bool sharable;  // no newer record has replaced it, so it can be resurrected
   };
   struct Tables {
      std::size_t groups, zombies, routes, rerouting;
   };

   // ---- The state of the switch, from the observer. ----

   virtual Tables tables() const = 0;
   // Whether the switch is being destroyed.
   virtual bool deleted() const = 0;

   // ---- Changes that the observer reports. A null fact means that the member was removed. ----

   void route(MrouteLib::RouteHandle handle, std::optional<RouteFacts> const& route);
   void zombie(ZombieId const& id, std::optional<ZombieFacts> const& zombie);
   // `index` is the multicast id or the oif set index of a set that waits.
   void reroute(MrouteLib::OifSetPtr const& oifSet, bool waits, Qor::U32 index);
   // Reports a member of inUseOifSet.
   void inUse(MrouteLib::OifSetPtr const& oifSet, bool there);
   // Reports a member of a collection without spans.
   void announce(char const* collection, MrouteLib::OifSetPtr const& oifSet, bool there);
   void gone();
   void tablesChanged();

   // Ends the span of every shown route for which there(handle) is false. The two operations behind
   // it do the same for zombies and reroutes.
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
      Qor::U64 oifSet;  // the serial of the oif set
      bool sharable;
   };
   using Spans = std::unordered_map<Qor::U64, std::uint64_t>;
   using Zombies = std::map<ZombieId, Zombie>;

   void endSpan(Spans& spans, Qor::U64 key, char const* outcome);
   // Ends all spans for which stays(key) is false.
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
   // The zombies that were removed before their expiry, at undecidedAt_. Their outcome is not
   // decided so far.
   std::vector<Zombie> undecided_;
   double undecidedAt_ = 0;
   bool tablesDirty_ = false;
   double tablesAt_ = 0;
   Tables tables_{};
};

}  // namespace Agent
