// Fast reroute of the synchronous per-switch reactor. A failure of an interface moves the oif sets
// with that input from the switch's frrMtableOifSet to frrProcessingOifSet. Passes on a clock then
// rewrite the sets in place, under the same index, so that every route with the index follows at
// once.
#include <array>
#include <span>

#include "Vel/VelSyncMrouteSmReactors.h"
#include "Vel/VelTrace.h"

namespace Vel {

using MrouteLib::OifSetPtr;
using MrouteLib::PortVlanSet;

namespace {

// Traces the sets that a failure does not affect. The events of the ring are written in batches,
// since they cost more than the rest of the selection.
class Skipped {
 public:
   explicit Skipped(Qor::Seconds begun) : begun_(begun) {}
   ~Skipped() { flush(); }
   Skipped(Skipped const&) = delete;
   Skipped& operator=(Skipped const&) = delete;

   void add(PortVlanSet const& set, Lnet::IntfId failed) {
      if (velTraceLevels & (1u << 8)) [[unlikely]]
         trace(set);
      if (set.currentIif() != failed) [[likely]] {
         if (count_ == inputs_.size()) [[unlikely]]
            flush();
         inputs_[count_++] = set.currentIif();
      } else {
         flush();
         VEL_BLIP_AT(begun_,
                     "No need for inplace update, invalid currentIif: %s, or portVlanFrrs: %s",
                     set.currentIif().isNull(), set.portVlanFrr().size());
      }
   }
   // Out of line, as trace(), so that the scan of many sets is a small loop.
   [[gnu::noinline]] void flush() {
      VEL_BLIP_EACH_AT(begun_, " skip Frr, currentIif %s",
                       std::span(std::as_const(inputs_)).first(count_));
      count_ = 0;
   }

 private:
   // The events of the sets before come first.
   [[gnu::noinline, gnu::cold]] void trace(PortVlanSet const& set) {
      flush();
      VEL_TRACE_IN("updateFrrMtableOif", 8, " skip frrMtableOif " << set);
   }

   Qor::Seconds const begun_;
   std::array<Lnet::IntfId, Qor::BlipRing::room / sizeof(Lnet::IntfId)> inputs_;
   std::size_t count_ = 0;
};

// Moves a set from the armed sets to those that wait, if a route uses its record. This function may
// hold the last reference to the record, whose end notifies listeners. So the caller's walk takes
// its next step afterwards.
void awaitRewrite(MrouteSwitch& chip, OifSetPtr const& oifSet) {
   auto const record = chip.inUseRecord(oifSet);
   bool const live = record && !record->zombie().isZombie();
   if (live) record->dirtyIs(true);
   chip.frrMtableOifSetDel(oifSet);
   if (live) chip.frrProcessingOifSetIs(oifSet, record);
}

}  // namespace

void MrouteSwitchSm::handleOperStatus(Interface::EthIntfStatus const& changed) {
   if (!initialized()) {
      VEL_TRACE(2, "SM uninitialized, ignore event");
      return;
   }
   Lnet::IntfId const intf = changed.intfId();
   Interface::IntfOperStatus const status = changed.operStatus();
   VEL_TRACE(2, "handleOperStatus");
   VEL_TRACE(8, "Intf: " << intf << ", operStatus: " << status);
   VEL_BLIP("MrouteSwitchSm::handleOperStatus, intf: %s, status: %s", intf, status);
   if (startsReroute(status)) updateFrrMtableOif(intf);
}

void MrouteSwitchSm::updateFrrMtableOif(Lnet::IntfId intfId) {
   auto const self = hold();
   Qor::Ptr<MrouteSwitch> const chip = mrouteSwitch();
   if (!chip) return;
   RerouteRetry const retry(*this);
   Qor::Seconds const begun = Qor::now();
   auto const& armed = chip->frrMtableOifSet();
   VEL_TRACE(8,
             __PRETTY_FUNCTION__ << " FrrSwitch from " << intfId << ", frrOifs " << armed.size());
   Skipped skipped(begun);
   auto const isHit = [&](auto const& entry) {
      PortVlanSet const& set = entry.first->portVlanSet();
      if (reroutedOn(set, intfId)) return true;
      skipped.add(set, intfId);
      return false;
   };
   for (auto entry = armed.seek(armed.begin(), isHit); entry != armed.end();) {
      OifSetPtr const oifSet = entry->first;
      skipped.flush();
      awaitRewrite(*chip, oifSet);
      // Last in the loop, since a listener may have removed further entries.
      entry = armed.seek(armed.resume(entry, oifSet), isHit);
   }
   skipped.flush();
   rewriteWaiting(begun);
}

void MrouteSwitchSm::handleClock() {
   rewriteWaiting(Qor::now());
}

// The pass is traced under the name of the handler.
void MrouteSwitchSm::rewriteWaiting(Qor::Seconds begun) {
   auto const self = hold();
   Qor::Ptr<MrouteSwitch> const chip = mrouteSwitch();
   if (!chip) return;
   VEL_TRACE_IN("handleClock", 8,
                "void Vel::MrouteSwitchSm::handleClock()review FrrProcessingOifSet: "
                      << FrrPosition<MrouteSwitchSm>::ofProcess().oifSet);
   reroutePass(*chip, begun);
}

// Rewrites a waiting oif set, unless its record has been freed or has become a zombie.
void MrouteSwitchSm::rewriteForFrr(MrouteSwitch& chip, OifSetPtr const& oifSet,
                                   MrouteSwitch::NamedRecord named, Qor::Seconds time) {
   auto const velMtableOifSet = chip.record(oifSet, named);
   if (!velMtableOifSet || !chip.inUseOifSet().find(oifSet) ||
       velMtableOifSet->zombie().isZombie()) {
      return;
   }
   QOR_ASSERT(velMtableOifSet->dirty());
   OifSetPtr const rewritten =
         frrReplacement(oifSet->portVlanSet(), [function = __func__](auto const& member) {
            VEL_TRACE_IN(function, 8, "add port " << member);
         });
   PortVlanSet const& pvSet = rewritten->portVlanSet();
   VEL_TRACE(8, "original pvSet" << oifSet->portVlanSet());
   Qor::U32 const oifSetIndex = velMtableOifSet->oifSetIndex();
   VEL_TRACE(8, ": Overwrite with new pvSet " << pvSet << " to oifSetIndex: " << oifSetIndex);
   VEL_BLIP_AT(time, "MrouteSwitchSm::handleClock Overwrite with pvSet %s to oifSetIndex: %s",
               MembersOf{pvSet}, oifSetIndex);
   if (!mrouteHelper()) return;
   if (mrouteHelper()->doAllocateMtableOifSet(chip.switchId(), oifSetIndex, rewritten) !=
       oifSetIndex) {
      VEL_TRACE(8, ": HW resource full ");
      VEL_BLIP("MrouteSwitchSm::handleClockHW resource full");
   }
}

}  // namespace Vel
