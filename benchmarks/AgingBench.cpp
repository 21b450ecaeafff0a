// Comparisons of the work on the clocks: the aging review of routes, and the purge of zombies.
#include <memory>
#include <string>

#include "Comparison.h"
#include "ReactorSides.h"

namespace Bench {

namespace {

// ---- The aging review of routes that no packet has hit. ----

template <class Side>
struct ReviewScene {
   explicit ReviewScene(std::size_t routes) : plan(routes, 1000), library(plan) {
      library.inputs.publish(plan);
      for (std::size_t n = 0; n < routes; ++n) {
         library.add(n);
         twin.add(n);
      }
      vlanOf.resize(library.inputs.accepting.id() + 1);
      vlanOf[library.inputs.accepting.id()] = acceptingVlan;
   }

   // The twin of the review: finds the handle of each published route and calls the hook. Returns
   // the number of routes that were hit.
   U64 walk() {
      U64 used = 0;
      TwinHooks& hooks = opaque(twin.hooks);
      for (auto const& [key, route] :
           library.inputs.mfibHwStatus->vrfStatus().begin()->second->route()) {
         U32 const handle = twin.twin.routeOf({key, vlanOf[route->acceptingIntfId().id()], vrfId});
         used += hooks.lastAccess(handle) > route->lastPollTime();
      }
      return used;
   }

   Plan const plan;
   Side library;
   TwinSide twin{plan};
   std::vector<U16> vlanOf;  // internal vlans, indexed by Lnet::IntfId::id()
};

template <class Side>
Rounds review(std::size_t routes) {
   ReviewScene<Side> scene(routes);
   auto const perRoute = [&](double time) { return time / static_cast<double>(routes); };
   return takeTurns(
         effort().rounds(routes),
         [&] { return perRoute(nanoseconds([&] { scene.library.review(); })); },
         [&] { return perRoute(nanoseconds([&] { benchmark::DoNotOptimize(scene.walk()); })); });
}

// ---- The purge of due zombies. ----

template <class Side>
Rounds purge(std::size_t zombies) {
   Plan const plan(0, zombies);
   Side library(plan);
   TwinSide twin(plan);
   auto const round = [&](auto& side, auto const& purgeAll) {
      for (std::size_t n = 0; n < zombies; ++n)
         side.hold(n);
      side.releaseHeld();
      return nanoseconds(purgeAll) / static_cast<double>(zombies);
   };
   return takeTurns(
         effort().rounds(zombies),
         [&] {
            return round(library, [&] {
               library.passTime(zombieTime);
               library.sm->handleZombieClock();
            });
         },
         [&] { return round(twin, [&] { twin.purge(); }); });
}

template <class Side>
void comparisonsOf(std::string const& path) {
   for (std::size_t const count : {1'000, 100'000, 1'000'000}) {
      if (!effort().covers(count)) continue;
      std::string const size = std::to_string(count / 1000) + "k";
      comparison("aging/" + path + "/review, a route of " + size, Target::ratio(2),
                 [count] { return review<Side>(count); });
      comparison("aging/" + path + "/purge, a zombie of " + size, Target(),
                 [count] { return purge<Side>(count); });
   }
}

}  // namespace

void agingComparisons() {
   comparisonsOf<AsyncReactorSide>("async");
   comparisonsOf<SyncReactorSide>("sync");
}

}  // namespace Bench
