// The groups and entries that a platform of the simulated chip finds when its agent starts again, as
// the programmer needs them.
#pragma once

#include <functional>
#include <utility>

#include "platform/sim/Chip.h"
#include "programmer/Found.h"

namespace Sim {

class ChipRestart final : public VelMroute::Restart {
 public:
   // The chip and what was found on it outlive this object. sweep() of the programmer calls `sweep`.
   ChipRestart(Chip const& chip, VelMroute::Found const& found, std::function<bool()> sweep)
         : chip_(chip), found_(found), sweep_(std::move(sweep)) {}

   std::vector<Route> found() const override { return found_.listed(); }
   bool isFound(Route const& route) const override { return found_.isFound(route); }
   std::optional<Qor::U32> free(VelMroute::Table table) const override {
      ChipConfig const& size = chip_.config();
      switch (table) {
         case VelMroute::Table::group:
            return size.groups - chip_.groups();
         case VelMroute::Table::entry:
            return size.routes - chip_.routes().size();
         case VelMroute::Table::boundary:
            return size.boundaries - chip_.boundaries().size();
      }
      return std::nullopt;
   }
   bool sweep() override { return sweep_(); }
   Qor::U64 adopted() const override { return found_.adopted; }
   Qor::U64 swept() const override { return found_.swept; }

 private:
   Chip const& chip_;
   VelMroute::Found const& found_;
   std::function<bool()> const sweep_;
};

}  // namespace Sim
