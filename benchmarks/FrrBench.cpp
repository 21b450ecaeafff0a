// Comparisons of fast reroute, in real time and with slices: the selection of the sets that a
// failure hits, and the reroute from the interface's event to the last rewritten group.
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "Comparison.h"
#include "ReactorSides.h"

namespace Bench {

namespace {

// The call that rewrites a group. The compiler does not know the class of the hooks here.
[[gnu::noinline]] void rewriteGroup(VelHelper::AsyncMrouteHelper& hooks, U32 group,
                                    MrouteLib::OifSetPtr const& set) {
   hooks.doUpdateMulticastGroupInPlace(set, group);
}
[[gnu::noinline]] void rewriteGroup(VelHelper::MrouteSmHelper& hooks, U32 group,
                                    MrouteLib::OifSetPtr const& set) {
   hooks.doAllocateMtableOifSet(1, group, set);
}

// The twin of the switch's fast-reroute sets: a flat array of the sets and their groups.
template <class Hooks>
class TwinFrr {
 public:
   explicit TwinFrr(Plan const& plan) {
      for (auto const& set : plan.sets)
         waiting_.push_back({set.get(), hooks_->tables.groups.take(), false});
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
   // Rewrites the groups of the marked sets with the backup members, by the same hook as the
   // library.
   void rewrite() {
      for (Waiting const& entry : waiting_) {
         if (!entry.hit) continue;
         MrouteLib::PortVlanSet set = entry.set->portVlanSet();
         set.portVlanIs(set.portVlanFrr());
         rewriteGroup(*hooks_, entry.group, Qor::make<MrouteLib::OifSet>(nullptr, std::move(set)));
      }
   }

 private:
   struct Waiting {
      MrouteLib::OifSet const* set;
      U32 group;
      bool hit;
   };

   Qor::Ptr<Hooks> const hooks_ = Qor::make<Hooks>();
   std::vector<Waiting> waiting_;
};

template <class Side>
struct Scene {
   explicit Scene(std::size_t groups) : plan(0, groups, Lnet::IntfId("et1")) {}

   Lnet::IntfId const failed{"et1"};
   Lnet::IntfId const other{"et" + std::to_string(acceptingVlan)};
   Plan const plan;
   Side library{plan, InjectedTime::TimeBase::real};
   TwinFrr<typename decltype(Side::hooks)::element_type> twin{plan};
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
      comparison("frr/" + path + "/event to last rewrite, a group of " + size,
                 groups == 1 ? Target() : Target::ratio(2),
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
