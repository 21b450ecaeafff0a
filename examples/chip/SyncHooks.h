// The hooks of the synchronous path for the chip of two arrays.
#pragma once

#include <map>
#include <set>
#include <tuple>
#include <utility>

#include "ArrayChip.h"
#include "VelMroute/Sync.h"

class SyncHooks final : public VelHelper::MrouteSmHelper {
 public:
   using Handle = MrouteLib::RouteHandle;
   using Vlan = Bridging::VlanIdOrNone;
   using RouteKey = ArrayChip::RouteKey;

   SyncHooks(ArrayChip& chip, Mistake mistake)
         : MrouteSmHelper("array chip"), chip_(chip), mistake_(mistake) {}

   // ---- Life. ----

   void mrouteInit(bool) override {}
   void handleMulticastRouting(bool) override {}  // the chip always routes
   void verifyMulticastRouting(bool) override {}
   void mrouteSwitchInit(Qor::U32, bool start) override {
      if (start) return;
      chip_.groups = {};
      chip_.entries = {};
      emptySets_.clear();
   }

   // ---- Sets. The index of a set is the number of its group plus 1. An empty set has an index
   // behind those, and no group. ----

   Qor::U32 doAllocateMtableOifSet(Qor::U32, Qor::U32 index, MrouteLib::OifSetPtr oifSet) override {
      auto const& set = oifSet->portVlanSet();
      bool const isNew = index == 0 || index == freshOifSetIndex;
      if (!isNew) return rewrite(index, set);
      if (set.portVlan().empty()) {
         Qor::U32 next = firstEmpty;
         while (emptySets_.contains(next))
            ++next;
         emptySets_[next] = set.toCpu();
         return next;
      }
      auto const place = ArrayChip::freePlace(chip_.groups);
      if (!place) return invalidOifSetIndex;
      chip_.groups[*place] = ArrayChip::contentOf(set);
      return *place + 1;
   }
   Qor::U32 doReallocateMtableOifSet(Qor::U32 switchId, Qor::U32 index,
                                     MrouteLib::OifSetPtr oifSet) override {
      return doAllocateMtableOifSet(switchId, index, oifSet);
   }
   void handleFreeMtableOifSet(Qor::U32, Qor::Ptr<Vel::MtableOifSet> record) override {
      Qor::U32 const index = record->oifSetIndex();
      if (emptySets_.erase(index) == 1 || mistake_ == Mistake::freeIgnored) return;
      if (index != 0 && index <= chip_.groups.size()) chip_.groups[index - 1].reset();
   }
   bool mtableFull(Qor::U32) override { return !ArrayChip::freePlace(chip_.groups); }

   // ---- Entries. The handle is the number of the entry. The chip has no boundary entries, and
   // checks the input of each entry. ----

   Handle doAllocateMroute(Qor::U32, Qor::U16 vrfId, RouteKey const& key, Vlan vlan, bool bridge,
                           Qor::U32 index, bool fastDrop, Qor::U16) override {
      if (bridge || !key.group().isHost()) return {};
      auto place = ArrayChip::freePlace(chip_.entries);
      if (mistake_ == Mistake::handleTwice && chip_.entries[0]) place = 0;
      if (!place) return {};
      ArrayChip::Entry entry;
      entry.vrfId = vrfId;
      entry.key = key;
      entry.vlan = vlan;
      if (!fastDrop) entry.group = groupOf(index);
      chip_.entries[*place] = entry;
      return Handle(*place);
   }
   Handle doAllocateMrouteNoRpf(Qor::U32, Qor::U16, RouteKey const&, bool, Qor::U32, bool,
                                Qor::U16) override {
      return {};
   }
   void doSetMtableOifSet(Qor::U32, Qor::U16, Handle handle, Qor::Ptr<Vel::Route const>,
                          Qor::U32 index) override {
      chip_.entries[handle.value()]->group = groupOf(index);
   }
   void doDeleteMroute(Qor::U32, Qor::U16, Handle handle, Qor::Ptr<Vel::Route const>) override {
      chip_.entries[handle.value()].reset();
   }
   void doDeleteMrouteBoundary(Qor::U32, Qor::U16, Handle, Qor::Ptr<Vel::Boundary const>) override {
   }
   bool mrouteFull(Qor::U32) override { return !ArrayChip::freePlace(chip_.entries); }
   bool mrouteBoundaryFull(Qor::U32) override { return true; }

   // ---- Activity: the cache has the bits since the review before. ----

   Qor::U8 mrouteHitBitCacheRefresh(Qor::U32) override {
      hits_.clear();
      for (auto& entry : chip_.entries) {
         if (!entry || !std::exchange(entry->hit, false)) continue;
         hits_.insert({entry->vrfId, entry->key, entry->vlan});
      }
      return hitBitCacheRefreshed;
   }
   bool mrouteHitBit(Qor::U32, Qor::U16 vrfId, RouteKey const& key, Vlan vlan, bool) override {
      return hits_.contains({vrfId, key, vlan});
   }

   void verifyMroute(Qor::U32, Qor::U16, Qor::Ptr<Vel::Route const>) override {}
   void verifyMrouteBoundary(Qor::U32, Qor::U16, Qor::Ptr<Vel::Boundary const>) override {}

 private:
   static constexpr Qor::U32 firstEmpty = 1000;

   ~SyncHooks() override = default;

   // An empty set has no group that could be rewritten.
   Qor::U32 rewrite(Qor::U32 index, MrouteLib::PortVlanSet const& set) {
      if (index >= firstEmpty) {
         bool const same = set.portVlan().empty() && set.toCpu() == emptySets_.at(index);
         return same ? index : invalidOifSetIndex;
      }
      if (mistake_ != Mistake::rewriteIgnored) chip_.groups[index - 1] = ArrayChip::contentOf(set);
      return index;
   }
   unsigned groupOf(Qor::U32 index) const {
      if (index == 0) return ArrayChip::dropGroup;
      if (index < firstEmpty) return index - 1;
      return emptySets_.at(index) ? ArrayChip::cpuGroup : ArrayChip::dropGroup;
   }

   ArrayChip& chip_;
   Mistake const mistake_;
   std::map<Qor::U32, bool> emptySets_;  // by index, whether the set sends to the CPU
   std::set<std::tuple<Qor::U32, RouteKey, Vlan>> hits_;
};
