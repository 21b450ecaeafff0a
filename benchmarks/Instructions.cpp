// Six operations for a tool that counts executed instructions. The script benchmarks/instructions
// runs the operations under that tool and compares the counts with the record.
#include <array>
#include <cstdio>
#include <functional>
#include <memory>

#include "Comparison.h"
#include "ProgrammerSide.h"
#include "ReactorSides.h"

// The tool counts the instructions of this function only; the script passes its name to the tool.
extern "C" [[gnu::noinline]] void velmrouteCounted(std::function<void()> const& work) {
   work();
}

namespace Bench {

namespace {

constexpr std::size_t routes = 10'000;
constexpr std::size_t sets = 1'000;

// Adds, changes and deletes each route. Returns the number of routes.
template <class Side>
std::size_t routeCycles() {
   Plan const plan(routes, sets);
   Side side(plan);
   for (int round = 0; round < 2; ++round) {
      std::function<void()> const work = [&] {
         for (std::size_t n = 0; n < routes; ++n)
            side.add(n);
         for (U32 const n : plan.order)
            side.change(n);
         for (U32 const n : plan.order)
            side.del(n);
      };
      // Only the second round is counted, because the tables have grown by then.
      if (round == 0) {
         work();
      } else {
         velmrouteCounted(work);
      }
      side.purge();
   }
   return routes;
}

// The same through the programmer. The calls of one turn of the loop are counted with the turn.
template <ProgrammerSide::Path path>
std::size_t programmerCycles() {
   Plan const plan(routes, sets);
   ProgrammerSide side(plan, path);
   auto const work = [&] {
      for (std::size_t n = 0; n < routes; ++n)
         side.add(n);
      side.settle();
      for (U32 const n : plan.order)
         side.change(n);
      side.settle();
      for (U32 const n : plan.order)
         side.del(n);
      side.settle();
   };
   work();
   side.purge();
   velmrouteCounted(work);
   side.purge();
   return routes;
}

std::size_t agingReview() {
   Plan const plan(routes, sets);
   AsyncReactorSide side(plan);
   side.inputs.publish(plan);
   for (std::size_t n = 0; n < routes; ++n)
      side.add(n);
   velmrouteCounted([&] { side.review(); });
   return routes;
}

std::size_t fastReroute() {
   Plan const plan(0, sets, Lnet::IntfId("et1"));
   AsyncReactorSide side(plan);
   for (std::size_t n = 0; n < sets; ++n)
      side.hold(n);
   auto const status = side.inputs.ethIntfStatusDir->newIntfStatus(Lnet::IntfId("et1"));
   velmrouteCounted([&] { status->operStatusIs(Interface::IntfOperStatus::down); });
   return side.hooks->rewritten;
}

struct Operation {
   char const* name;
   std::size_t (*run)();
};
constexpr std::array<Operation, 6> operations = {
      {{"async-route-cycle", routeCycles<AsyncReactorSide>},
       {"sync-route-cycle", routeCycles<SyncReactorSide>},
       {"async-programmer-cycle", programmerCycles<ProgrammerSide::Path::async>},
       {"sync-programmer-cycle", programmerCycles<ProgrammerSide::Path::sync>},
       {"async-aging-review", agingReview},
       {"async-fast-reroute", fastReroute}}};

}  // namespace

bool runOnce(std::string const& operation) {
   for (Operation const& o : operations) {
      if (operation != o.name) continue;
      std::printf("%zu\n", o.run());
      return true;
   }
   return false;
}

}  // namespace Bench
