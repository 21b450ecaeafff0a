// Comparisons of fast reroute, in real time and with slices: the selection of the sets that a
// failure hits, and the reroute from the interface's event to the last rewritten group.
#include <memory>
#include <string>
#include <vector>

#include "Comparison.h"
#include "ReactorSides.h"

namespace Bench {

namespace {

// The twin of the switch's fast-reroute sets: a flat array of the sets and their groups.
class TwinFrr {
 public:
   TwinFrr(TwinHooks& hooks, Plan const& plan) : hooks_(hooks) {
      for (auto const& set : plan.sets)
         waiting_.push_back({set.get(), hooks.allocateGroup(set.get()), false});
   }

   // Marks the sets that the failure of the interface hits, and returns their number.
   U32 select(Lnet::IntfId failed) {
      U32 hit = 0;
      for (Waiting& entry : waiting_) {
         MrouteLib::PortVlanSet const& set = entry.set->portVlanSet();
         entry.hit = set.currentIif() == failed && !set.portVlanFrr().empty();
         hit += entry.hit;
      }
      return hit;
   }
   // Rewrites the groups of the marked sets with the backup members.
   void rewrite() {
      for (Waiting const& entry : waiting_) {
         if (!entry.hit) continue;
         members_.clear();
         for (auto const& [member, flag] : entry.set->portVlanSet().portVlanFrr())
            members_.push_back(member);
         hooks_.rewriteGroup(entry.group, members_.data(), members_.size());
      }
   }

 private:
   struct Waiting {
      MrouteLib::OifSet const* set;
      U32 group;
      bool hit;
   };

   TwinHooks& hooks_;
   std::vector<Waiting> waiting_;
   std::vector<MrouteLib::PortVlan> members_;
};

template <class Side>
struct Scene {
   explicit Scene(std::size_t groups) : plan(0, groups, Lnet::IntfId("et1")) {}

   Lnet::IntfId const failed{"et1"};
   Lnet::IntfId const other{"et" + std::to_string(acceptingVlan)};
   Plan const plan;
   Side library{plan, InjectedTime::TimeBase::real};
   IdleTwinHooks hooks;
   TwinFrr twin{opaque(hooks), plan};
};

// A round repeats the operation on small tables, so that all rounds take about the same time.
unsigned repetitions(std::size_t groups) {
   return static_cast<unsigned>(std::max<std::size_t>(10'000 / groups, 1));
}

// The scan alone: the failed interface hits no set.
template <class Side>
Rounds select(std::size_t groups) {
   Scene<Side> scene(groups);
   for (std::size_t n = 0; n < groups; ++n)
      scene.library.hold(n);
   auto const perGroup = [&](auto const& scan) {
      return [scan, groups, turn = repeated(repetitions(groups), scan)]() mutable {
         return turn() / static_cast<double>(groups);
      };
   };
   return takeTurns(effort().rounds(groups),
                    perGroup([&] { scene.library.sm->updateFrrMtableOif(scene.other); }),
                    perGroup([&] { benchmark::DoNotOptimize(scene.twin.select(scene.other)); }));
}

// The reroute: the failed interface hits all sets. The cost is that of one group.
template <class Side>
Rounds reroute(std::size_t groups) {
   using Interface::IntfOperStatus;
   Scene<Side> scene(groups);
   Side& library = scene.library;
   auto const status = library.inputs.ethIntfStatusDir->newIntfStatus(scene.failed);
   auto const libraryOnce = [&] {
      for (std::size_t n = 0; n < groups; ++n)
         library.hold(n);
      U64 const until = library.hooks->rewritten + groups;
      double const time = nanoseconds([&] {
         status->operStatusIs(IntfOperStatus::down);
         while (library.hooks->rewritten < until)
            library.time.manager->runDue();
      });
      status->operStatusIs(IntfOperStatus::up);
      library.releaseHeld();
      library.purge();
      return time;
   };
   auto const twinOnce = [&] {
      return nanoseconds([&] {
         scene.twin.select(scene.failed);
         scene.twin.rewrite();
      });
   };
   auto const perGroup = [&](auto const& once) {
      return [&once, groups] {
         unsigned const times = repetitions(groups);
         double sum = 0;
         for (unsigned n = 0; n < times; ++n)
            sum += once();
         return sum / static_cast<double>(times * groups);
      };
   };
   return takeTurns(effort().rounds(groups), perGroup(libraryOnce), perGroup(twinOnce));
}

template <class Side>
void comparisonsOf(std::string const& path) {
   for (std::size_t const groups : {1, 1'000, 100'000}) {
      std::string const size = groups == 1 ? "1" : std::to_string(groups / 1000) + "k";
      comparison("frr/" + path + "/selection, a group of " + size,
                 groups == 1 ? Target() : Target::ratio(2),
                 [groups] { return select<Side>(groups); });
      comparison("frr/" + path + "/event to last rewrite, a group of " + size, Target(),
                 [groups] { return reroute<Side>(groups); });
   }
   // The growth of the cost per group. A linear reroute grows only through the colder caches.
   comparison("frr/" + path + "/from 1k to 100k, event to last rewrite", Target::ratio(2), [] {
      return Rounds{reroute<Side>(100'000).library, reroute<Side>(1'000).library};
   });
}

}  // namespace

void frrComparisons() {
   comparisonsOf<AsyncReactorSide>("async");
   comparisonsOf<SyncReactorSide>("sync");
}

}  // namespace Bench
