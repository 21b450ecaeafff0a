// The hooks of the asynchronous path for the chip of two arrays.
#pragma once

#include <array>
#include <deque>
#include <functional>
#include <utility>

#include "ArrayChip.h"
#include "VelMroute/Async.h"

class AsyncHooks final : public VelHelper::AsyncMrouteHelper {
 public:
   AsyncHooks(ArrayChip& chip, Mistake mistake)
         : AsyncMrouteHelper("array chip", nullptr, nullptr), chip_(chip), mistake_(mistake) {
      worker_.notifierIs(clock_.get());
   }

   bool writesPending() const { return !queue_.empty(); }

   // ---- Groups. An id is the number of a group in the array. It is taken from the call on, and the
   // write follows in the queue. ----

   Qor::U32 doAllocateSharableMulticastGroup(MrouteLib::RouteKeyInfo const&,
                                             MrouteLib::OifSetPtr oifSet, Hux::XactPtr blocking,
                                             bool) override {
      for (Qor::U32 id = 0; id < groups_.size(); ++id) {
         if (groups_[id].taken) continue;
         groups_[id].taken = true;
         writeGroup(id, oifSet, std::move(blocking));
         return id;
      }
      return invalidMulticastId;
   }
   Qor::U32 doAllocateFixedMulticastGroup(MrouteLib::OifSetPtr, Hux::XactPtr, Qor::U32) override {
      return invalidMulticastId;  // needFixedOifSet() is false for all routes
   }
   void doUpdateMulticastGroupInPlace(MrouteLib::OifSetPtr oifSet, Qor::U32 id) override {
      if (mistake_ == Mistake::rewriteIgnored) {
         groups_[id].write = queue([] { return true; }, nullptr);
      } else {
         writeGroup(id, oifSet, nullptr);
      }
   }
   Hux::XactPtr doGetXactForOifSet(Qor::U32 id) override { return groups_[id].write; }
   void doDeleteOifSet(Qor::U32 id) override {
      if (mistake_ != Mistake::freeIgnored) groups_[id].taken = false;
      // The id may be given out again at once: the new write stands behind this one in the queue.
      queue([this, id] { return chip_.groups[id].reset(), true; }, nullptr);
   }

   // ---- Entries, likewise. ----

   MrouteLib::RouteHandle doAllocateRoute(ArrayChip::RouteKey const& key,
                                          Bridging::VlanIdOrNone vlan, bool bridge,
                                          Wisp::Multicast::Fib::RpaIndex, Qor::U32 vrfId) override {
      if (bridge || !key.group().isHost()) return {};  // the chip has no such entries
      for (Qor::U32 i = 0; i < entries_.size(); ++i) {
         if (entries_[i].taken && mistake_ != Mistake::handleTwice) continue;
         entries_[i].taken = true;
         ArrayChip::Entry entry;
         entry.vrfId = vrfId;
         entry.key = key;
         entry.vlan = vlan;
         queue([this, i, entry] { return chip_.entries[i] = entry, true; }, nullptr);
         return MrouteLib::RouteHandle(i);
      }
      return {};
   }
   void doSetMtableOifSet(MrouteLib::RouteHandle handle, Qor::U32 id,
                          Hux::XactPtr blocking) override {
      Qor::U32 const i = handle.value();
      // An entry is not pointed at a group whose write has failed.
      entries_[i].write = queue(
            [this, i, id] {
               if (!chip_.entries[i] || !chip_.groups[id]) return false;
               chip_.entries[i]->group = id;
               return true;
            },
            std::move(blocking));
   }
   Hux::XactPtr doGetXactForIngress(MrouteLib::RouteHandle handle) override {
      return entries_[handle.value()].write;
   }
   void doDeleteRoute(MrouteLib::RouteHandle handle) override {
      Qor::U32 const i = handle.value();
      entries_[i] = {};
      queue([this, i] { return chip_.entries[i].reset(), true; }, nullptr);
   }
   Qor::String8 doGetXactFailureReason(Hux::XactPtr xact, VelHelper::MrouteXactType) override {
      return xact->state() == Hux::Xact::State::failed ? "the group was not written" : "";
   }
   Qor::Seconds routeLastAccessedTime(MrouteLib::RouteHandle handle) override {
      auto const& entry = chip_.entries[handle.value()];
      return entry ? entry->lastHit : 0;
   }

 private:
   // The driver's queue. The chip takes one write after the other, in the order of the calls.
   struct Write {
      std::function<bool()> apply;  // returns false if the write fails
      Hux::XactPtr blocking;
      Qor::Ptr<Hux::Xact> xact;
   };
   struct Place {
      bool taken = false;
      Hux::XactPtr write;
   };
   class Worker final : public Qor::Clock::Notifiee {
    public:
      explicit Worker(AsyncHooks& owner) : owner_(owner) {}
      void onTime() override { owner_.work(); }

    private:
      AsyncHooks& owner_;
   };
   static constexpr Qor::Seconds latency = 0.0005;  // of a write

   ~AsyncHooks() override = default;

   Hux::XactPtr queue(std::function<bool()> apply, Hux::XactPtr blocking) {
      auto xact = Qor::make<Hux::Xact>();
      if (queue_.empty()) clock_->timeMinIs(Qor::now() + latency);
      queue_.push_back({std::move(apply), std::move(blocking), xact});
      return xact;
   }
   void writeGroup(Qor::U32 id, MrouteLib::OifSetPtr const& oifSet, Hux::XactPtr blocking) {
      ArrayChip::Group const content = ArrayChip::contentOf(oifSet->portVlanSet());
      groups_[id].write = queue([this, id, content] { return chip_.groups[id] = content, true; },
                                std::move(blocking));
   }
   void work() {
      if (queue_.empty()) return;
      Hux::XactPtr const& blocking = queue_.front().blocking;
      if (!blocking || !blocking->pending()) {
         Write const write = std::move(queue_.front());
         queue_.pop_front();
         bool const blocked = write.blocking && write.blocking->state() == Hux::Xact::State::failed;
         bool const done = !blocked && write.apply();
         write.xact->stateIs(done ? Hux::Xact::State::succeeded : Hux::Xact::State::failed);
      }
      if (!queue_.empty()) clock_->timeMinIs(Qor::now() + latency);
   }

   ArrayChip& chip_;
   Mistake const mistake_;
   std::array<Place, std::tuple_size_v<decltype(ArrayChip::groups)>> groups_;
   std::array<Place, std::tuple_size_v<decltype(ArrayChip::entries)>> entries_;
   std::deque<Write> queue_;
   Qor::Ptr<Qor::Clock> const clock_ = Qor::make<Qor::Clock>("array chip");
   Worker worker_{*this};
};
