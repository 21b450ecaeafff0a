// Comparisons of the programmer with the library below it: the whole cycle of a route, which is
// wanted, changed and forgotten, beside the cycle of the table programmer with its reactor. The
// programmer also finds the route and its outputs by value, decides on the writes, and publishes the
// status of the route; its library is in the column of the twin.
#include <memory>
#include <string>

#include "Comparison.h"
#include "ProgrammerSide.h"
#include "ReactorSides.h"

namespace Bench {

using VelMroute::AsyncRouteTable;
using VelMroute::SyncRouteTable;

ProgrammerSide::ProgrammerSide(Plan const& plan, Path path) : plan_(plan) {
   async_->tables.reserve(plan.routes());
   sync_->tables.reserve(plan.routes());
   // Set n has the ports n % 1000 and 1000 + n / 1000.
   constexpr std::size_t first = 1000;
   std::size_t const second = plan.sets.size() / first + 1;
   std::vector<Lnet::IntfId> ports;
   for (std::size_t n = 0; n < first + second; ++n) {
      ports.emplace_back("et" + std::to_string(n + 1));
      vlans_->intfIdToVlanIdIs(ports.back(), Bridging::VlanId(U64{n + 1}));
   }
   for (std::size_t n = 0; n < plan.sets.size(); ++n)
      outputs_.push_back(pool_.get({ports[n % first], ports[first + n / first]}));
   programmer_ = std::make_unique<VelMroute::Programmer>(
         VelMroute::Programmer::Inputs{.table = newTable(path)});
}

std::unique_ptr<VelMroute::RouteTable> ProgrammerSide::newTable(Path path) const {
   auto const published = Qor::make<Routing::Multicast::Fib::Hardware::Status>();
   if (path == Path::async) {
      auto const vrfs = Qor::make<Routing::Hardware::RouteStatus>();
      vrfs->newVrfStatus(vrf_, Vel::VrfId(vrfId));
      return VelMroute::asyncRouteTable(
            {.hooks = async_, .vrfs = vrfs, .vlans = vlans_, .published = published});
   }
   auto const l3Status = Qor::make<Vel::L3Status>();
   l3Status->vrfNameToVrfIdIs(vrf_.name(), Vel::VrfId(vrfId));
   auto const routing = Qor::make<VelMroute::SyncRouting>(VelMroute::SyncRouting::Inputs{
         .hooks = sync_, .l3Status = l3Status, .published = published});
   return VelMroute::syncRouteTable({.routing = routing, .vlans = vlans_});
}

namespace {

template <class Side>
double oneCycle(Side& side, Plan const& plan, auto const& settle) {
   Qor::activityManagerIs(side.time.manager);
   side.reset();
   double const time = nanoseconds([&] {
      for (std::size_t n = 0; n < plan.routes(); ++n)
         side.add(n);
      settle();
      for (std::size_t const n : plan.order)
         side.change(n);
      settle();
      for (std::size_t const n : plan.order)
         side.del(n);
      settle();
   });
   side.purge();
   return time / static_cast<double>(plan.routes());
}

template <class Library>
void comparisonsOf(std::string const& path, ProgrammerSide::Path side) {
   for (std::size_t const sets : {1000u, 100'000u}) {
      constexpr std::size_t routes = 100'000;
      comparison("programmer/" + path + "/100k routes, " + std::to_string(sets / 1000) +
                       "k sets/whole cycle",
                 Target::ratio(2), [side, sets] {
                    Plan const plan(routes, sets);
                    ProgrammerSide programmer(plan, side);
                    Library library(plan);
                    return takeTurns(
                          effort().rounds(routes),
                          [&] { return oneCycle(programmer, plan, [&] { programmer.settle(); }); },
                          [&] { return oneCycle(library, plan, [] {}); });
                 });
   }
}

}  // namespace

void programmerComparisons() {
   comparisonsOf<AsyncReactorSide>("async", ProgrammerSide::Path::async);
   comparisonsOf<SyncReactorSide>("sync", ProgrammerSide::Path::sync);
}

}  // namespace Bench
