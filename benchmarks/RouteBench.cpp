// Comparisons of route programming on both paths. The operations are: a new route on a set in use,
// a new route on a new set, a change of the set, a deletion, the whole cycle of addition, change
// and deletion, and a flap, in which the returning route resurrects its group. The operations with
// the same numbers of routes and sets are measured in the same rounds.
#include <array>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "Comparison.h"
#include "Peers.h"
#include "RouteSides.h"

namespace Bench {

namespace {

enum Operation { addShared, addNew, change, del, cycle, flap, operations };
constexpr std::array<char const*, operations> operationNames = {
      "new route, shared set", "new route, new set", "set change", "delete", "whole cycle", "flap"};

// Adds, changes and deletes all routes. Returns the nanoseconds for one route.
template <class Side>
double oneCycle(Side& side, Plan const& plan) {
   side.reset();
   double const time = nanoseconds([&] {
      for (std::size_t n = 0; n < plan.routes(); ++n)
         side.add(n);
      for (std::size_t const n : plan.order)
         side.change(n);
      for (std::size_t const n : plan.order)
         side.del(n);
   });
   side.purge();
   return time / static_cast<double>(plan.routes());
}

template <class Side>
std::vector<double> oneRound(Side& side, Plan const& plan) {
   std::vector<double> times(operations);  // nanoseconds for each operation
   std::size_t const routes = plan.routes();
   auto const all = [&](auto const& operation) {
      return nanoseconds([&] {
                for (std::size_t n = 0; n < routes; ++n)
                   operation(n);
             }) /
             static_cast<double>(routes);
   };
   auto const add = [&](std::size_t n) { side.add(n); };
   auto const changeAny = [&](std::size_t n) { side.change(plan.order[n]); };
   auto const delAny = [&](std::size_t n) { side.del(plan.order[n]); };

   // Each set is held in addition to the routes, so no group is created or deleted here.
   side.reset();
   for (std::size_t set = 0; set < plan.sets.size(); ++set)
      side.hold(set);
   times[addShared] = all(add);
   times[change] = all(changeAny);
   times[del] = all(delAny);
   side.releaseHeld();
   side.purge();

   // One route for each set, so that each route needs a new group.
   std::size_t const alone = std::min(routes, plan.sets.size());
   side.reset();
   times[addNew] = nanoseconds([&] {
                      for (std::size_t n = 0; n < alone; ++n)
                         side.add(n);
                   }) /
                   static_cast<double>(alone);
   for (std::size_t n = 0; n < alone; ++n)
      side.del(n);
   side.purge();

   times[cycle] = oneCycle(side, plan);

   side.reset();
   all(add);
   times[flap] = all(delAny) + all(add);
   all(delAny);
   side.purge();
   return times;
}

// The plan and its two sides.
template <class Side>
struct Scene {
   Scene(std::size_t routes, std::size_t sets) : plan(routes, sets) {}

   Plan const plan;
   Side library{plan};
   TwinSide twin{plan};
};

template <class Side>
std::shared_ptr<JointRounds> rounds(std::size_t routes, std::size_t sets) {
   return std::make_shared<JointRounds>(effort().rounds(routes), [routes, sets] {
      auto const scene = std::make_shared<Scene<Side>>(routes, sets);
      return std::pair<JointRounds::OneRound, JointRounds::OneRound>(
            [scene] { return oneRound(scene->library, scene->plan); },
            [scene] { return oneRound(scene->twin, scene->plan); });
   });
}

std::string count(std::size_t n) {
   return n >= 1'000'000 ? std::to_string(n / 1'000'000) + "M" : std::to_string(n / 1000) + "k";
}

template <class Side>
void comparisonsOf(std::string const& path) {
   std::map<std::pair<std::size_t, std::size_t>, std::shared_ptr<JointRounds>> bySize;
   auto const sized = [&](std::size_t routes, std::size_t sets) {
      auto& joint = bySize[{routes, sets}];
      if (!joint) joint = rounds<Side>(routes, sets);
      return joint;
   };
   constexpr std::size_t k = 1000;
   for (auto const& [routes, sets] :
        {std::pair{k, k}, {100 * k, k}, {100 * k, 100 * k}, {1000 * k, k}, {1000 * k, 1000 * k}}) {
      if (!effort().covers(routes)) continue;
      auto const joint = sized(routes, sets);
      for (unsigned n = 0; n < operations; ++n) {
         auto const operation = static_cast<Operation>(n);
         bool const held = operation == cycle && routes == 100 * k;
         comparison("routes/" + path + "/" + count(routes) + " routes, " + count(sets) + " sets/" +
                          operationNames[n],
                    held ? Target::ratio(sets == k ? 2 : 3) : Target(),
                    [joint, operation] { return joint->of(operation); });
      }
   }
   // The growth of the cycle's cost with the table. The small table is in the column of the twin.
   if (!effort().covers(1000 * k)) return;
   for (bool const shared : {true, false}) {
      auto const small = sized(10 * k, shared ? k : 10 * k);
      auto const large = sized(1000 * k, shared ? k : 1000 * k);
      std::string const name = "routes/" + path + "/from 10k to 1M routes, " +
                               (shared ? "1k sets" : "as many sets") + "/whole cycle, ";
      comparison(name + "library", Target::ratio(1.5), [small, large] {
         return Rounds{large->of(cycle).library, small->of(cycle).library};
      });
      comparison(name + "twin", Target(), [small, large] {
         return Rounds{large->of(cycle).twin, small->of(cycle).twin};
      });
   }
}

// The library beside a peer, in the column of the twin.
template <class Side, class Hooks, class Maps>
void peerComparisons(std::string const& path) {
   constexpr std::size_t k = 1000;
   for (auto const& [routes, sets] : {std::pair{100 * k, k}, {100 * k, 100 * k}}) {
      comparison("peers/" + path + "/" + count(routes) + " routes, " + count(sets) + " sets/" +
                       Maps::name,
                 Target::ratio(1), [routes = routes, sets = sets] {
                    Plan const plan(routes, sets);
                    Side library(plan);
                    PeerSide<Maps, Hooks> peer(plan);
                    return takeTurns(
                          effort().rounds(routes), [&] { return oneCycle(library, plan); },
                          [&] { return oneCycle(peer, plan); });
                 });
   }
}

template <class Side, class Hooks>
void comparisonsOfPath(std::string const& path) {
   comparisonsOf<Side>(path);
   peerComparisons<Side, Hooks, HashPeer>(path);
   peerComparisons<Side, Hooks, PooledHashPeer>(path);
   peerComparisons<Side, Hooks, OrderedPeer>(path);
}

}  // namespace

void routeComparisons() {
   comparisonsOfPath<AsyncSide, AsyncPeerHooks>("async");
   comparisonsOfPath<SyncSide, SyncPeerHooks>("sync");
}

}  // namespace Bench
