// Programming routes, on both paths: a route on a set that is in use, on a set of its own, a change
// of its set, a deletion, the whole cycle of the three, and a flap that finds its group among the
// zombies. All of one number of routes and sets is measured in the same rounds.
#include <array>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "Comparison.h"
#include "RouteSides.h"

namespace Bench {

namespace {

enum Operation { addShared, addNew, change, del, cycle, flap, operations };
constexpr std::array<char const*, operations> operationNames = {
      "new route, shared set", "new route, new set", "set change", "delete", "whole cycle", "flap"};

template <class Side>
std::vector<double> oneRound(Side& side, Plan const& plan) {
   std::vector<double> times(operations);  // ns of one operation
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

   // Every set has a user beside the routes.
   side.reset();
   for (std::size_t set = 0; set < plan.sets.size(); ++set)
      side.hold(set);
   times[addShared] = all(add);
   times[change] = all(changeAny);
   times[del] = all(delAny);
   side.releaseHeld();
   side.purge();

   // As many routes as there are sets.
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

   side.reset();
   times[cycle] = all(add) + all(changeAny) + all(delAny);
   side.purge();

   side.reset();
   all(add);
   times[flap] = all(delAny) + all(add);
   all(delAny);
   side.purge();
   return times;
}

// The work and the two sides that do it.
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
                    held ? Target::ratio(2) : Target(),
                    [joint, operation] { return joint->of(operation); });
      }
   }
   // How the cost of the cycle grows with the table; the small table stands in the twin's place.
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

}  // namespace

void routeComparisons() {
   comparisonsOf<AsyncSide>("async");
   comparisonsOf<SyncSide>("sync");
}

}  // namespace Bench
