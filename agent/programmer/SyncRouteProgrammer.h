// The route programmer of the synchronous path, whose duties Vel/VelSyncMrouteSwitch.h states.
//
// Operations are through at once, so a change is never under way. When there is no room a route
// waits; the switch's flags (mtableFree, mrouteTcamFree, boundaryTcamFree) and its mrouteReviewKick
// mark those who wait, and a pass on the clock has them try.
//
// A write that fails, where the platform says that there is room, is tried maxAttempts times at
// once. A set that still has no index waits for the next review; a route without an entry then
// stays out of hardware until it changes, as does one that the switch programs in no case.
//
// A route that bridges takes a boundary entry and no group; a fastdrop entry takes no group either.
#pragma once

#include "Vel/VelSyncMrouteSwitch.h"
#include "agent/programmer/SwitchRouteProgrammer.h"

namespace Agent {

class SyncRouteProgrammer final : public SwitchRouteProgrammer<Vel::MrouteSwitch> {
 public:
   static constexpr Qor::U32 maxAttempts = 3;

   // All three are held. Everything the programmer placed is taken out again by its destructor.
   SyncRouteProgrammer(Qor::Ptr<Vel::MrouteSwitch> mrouteSwitch,
                       Qor::Ptr<MrouteLib::MrouteTableColl> tableColl,
                       Qor::Ptr<Routing::Multicast::Fib::Hardware::Status> mfibHwStatus);
   ~SyncRouteProgrammer() override;

 private:
   // Hears of room.
   class QorSwitchChip final : public MrouteLib::SwitchChip::Notifiee {
    public:
      explicit QorSwitchChip(SyncRouteProgrammer& owner) : owner_(owner) {}
      void onMtableFree() override {
         if (notifier()->mtableFree()) owner_.roomIs(Table::group);
      }
      void onMrouteTcamFree() override {
         if (notifier()->mrouteTcamFree()) owner_.roomIs(Table::entry);
      }
      void onBoundaryTcamFree() override {
         if (notifier()->boundaryTcamFree()) owner_.roomIs(Table::boundary);
      }
      void onMrouteReviewKick() override { owner_.tryAgain(); }

    private:
      SyncRouteProgrammer& owner_;
   };

   bool needsGroup(Route const& route) const override;
   std::optional<Table> entryTable(Route const& route) const override;
   MrouteLib::MtableOifSetPtr newRecord(Route& route, MrouteLib::OifSetPtr const& set) override;
   Entry newEntry(Route& route, MrouteLib::MtableOifSetPtr const& record) override;
   void point(Route& route) override;
   void commit() override { mrouteSwitch().doCommitRouteBatch(); }
   Qor::String reason(Route const& route) const override;

   QorSwitchChip chipReactor_{*this};
};

}  // namespace Agent
