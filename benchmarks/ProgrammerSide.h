// The programmer of a chip (programmer/Programmer.h) as a side of the comparisons with routes. Its
// owner wants the routes of the plan, changes their outputs and forgets them; a turn of the loop
// follows each `batch` of these calls.
#pragma once

#include <vector>

#include "RouteSides.h"
#include "programmer/AsyncRouteTable.h"
#include "programmer/Programmer.h"
#include "programmer/SyncRouteTable.h"

namespace Bench {

class ProgrammerSide {
 public:
   static constexpr unsigned batch = 256;
   enum class Path { async, sync };

   ProgrammerSide(Plan const& plan, Path path);

   void add(std::size_t n) { want(n, n); }
   void change(std::size_t n) { want(n, n + 1); }
   void del(std::size_t n) {
      programmer_->routeDel(vrf_, plan_.keys[n]);
      called();
   }
   // Turns the loop until all routes are placed or gone.
   void settle() {
      do
         turn();
      while (!programmer_->settled());
   }
   void purge() {
      for (; programmer_->table().zombies() > 0; turn())
         time.manager->advance(zombieTime);
   }
   void reset() {
      async_->tables.reset();
      sync_->tables.reset();
   }

   InjectedTime const time{InjectedTime::TimeBase::virtualTime};

 private:
   std::unique_ptr<VelMroute::RouteTable> newTable(Path path) const;
   void want(std::size_t n, std::size_t set) {
      programmer_->routeIs(vrf_, plan_.keys[n],
                           {.iif = iif_, .outputs = outputs_[set % outputs_.size()]});
      called();
   }
   void called() {
      if (++calls_ % batch == 0) turn();
   }
   void turn() {
      time.manager->advance(batch * changeTime);
      time.manager->runDue();
   }

   Plan const& plan_;
   L3::VrfName const vrf_{"default"};
   Lnet::IntfId const iif_{"et1"};
   Qor::Ptr<AsyncHooks> const async_ = Qor::make<AsyncHooks>();
   Qor::Ptr<SyncHooks> const sync_ = Qor::make<SyncHooks>();
   Qor::Ptr<IntfVlanId::Table> const vlans_ = Qor::make<IntfVlanId::Table>();
   VelMroute::OutputsPool pool_;
   std::vector<VelMroute::OutputsPtr> outputs_;
   std::unique_ptr<VelMroute::Programmer> programmer_;
   unsigned calls_ = 0;
};

}  // namespace Bench
