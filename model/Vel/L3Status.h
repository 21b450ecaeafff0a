// The layer 3 status of the whole agent: its VRFs, the review requests that travel between the
// route programmers, and whether multicast routing is on.
//
//  - The agent's VRF layer writes the VRF map and multicastZombiesEnabled.
//  - The table programmers raise the review counters when they have used or freed hardware; the
//    unicast and multicast reactors watch them, and each change asks for one more look at the
//    routes that are not programmed.
//  - The top-level multicast reactor writes multicastRoutingEnabled and
//    numTimesMcastRoutingEnabled; the per-switch reactors raise waitForRoutingDisabledRefCnt.
#pragma once

#include <utility>

#include "Qor/Entity.h"
#include "Qor/Exception.h"
#include "Qor/TwoWayCollection.h"
#include "Vel/VrfId.h"

namespace Vel {

class L3Status final : public Qor::Entity<L3Status, Qor::NamedEntity> {
 public:
   class Notifiee : public Qor::NotifieeOf<L3Status> {
    public:
      // A VRF was added or removed, or changed its number; and the same seen from the number. Both
      // directions hold the new state at the first notification.
      virtual void onVrfNameToVrfId(Qor::Name const&) {}
      virtual void onVrfNameToVrfIdImmediate() {}
      virtual void onVrfIdToVrfName(VrfId) {}
      virtual void onVrfIdToVrfNameImmediate() {}
      virtual void onMulticastReviewPending() {}
      virtual void onUnicastReviewPending() {}
      virtual void onUnicast6ReviewPending() {}
      virtual void onWaitForRoutingDisabledRefCnt() {}
      virtual void onMulticastRoutingEnabled() {}
      virtual void onNumTimesMcastRoutingEnabled() {}
      virtual void onMulticastZombiesEnabled() {}

    protected:
      void onImmediate() override {
         onVrfNameToVrfIdImmediate();
         onVrfIdToVrfNameImmediate();
      }
   };
   using VrfColl =
         Qor::TwoWayCollection<Qor::OrderedMap<Qor::Name, VrfId>, Qor::OrderedMap<VrfId, Qor::Name>,
                               &Notifiee::onVrfNameToVrfId, &Notifiee::onVrfNameToVrfIdImmediate,
                               &Notifiee::onVrfIdToVrfName, &Notifiee::onVrfIdToVrfNameImmediate>;

   explicit L3Status(Qor::Name name = "l3Status") : Entity(std::move(name)) {}

   // Names and numbers of the VRFs. The names are as the VRF layer has them: one that is too long
   // for an L3::VrfName is refused where it is made into one, not here.
   VrfColl::Forward const& vrfNameToVrfId() const { return vrf_.forward(); }
   VrfColl::Backward const& vrfIdToVrfName() const { return vrf_.backward(); }
   // 0 for an unknown name.
   VrfId vrfNameToVrfId(Qor::Name const& vrfName) const {
      auto const* const entry = vrf_.forward().find(vrfName);
      return entry ? entry->second : VrfId();
   }
   // The empty name, which no VRF has, for an unknown number.
   Qor::Name vrfIdToVrfName(VrfId vrfId) const {
      auto const* const entry = vrf_.backward().find(vrfId);
      return entry ? entry->second : Qor::Name();
   }
   // Gives the VRF its number, taking it from the VRF that had it before. RangeException
   // "Vel::L3Status::vrfName empty not allowed" for the empty name, here and wherever a pair is
   // made.
   void vrfNameToVrfIdIs(Qor::Name vrfName, VrfId vrfId) {
      vrf_.is(*this, checked(std::move(vrfName)), vrfId);
   }
   // The number of the VRF, which gets this one if it has none.
   VrfId newVrfNameToVrfId(Qor::Name vrfName, VrfId vrfId) {
      return vrf_.instantiate(*this, checked(std::move(vrfName)), vrfId);
   }
   void vrfNameToVrfIdDel(Qor::Name vrfName) { vrf_.del(*this, std::move(vrfName)); }
   VrfColl::Iterator vrfNameToVrfIdDel(VrfColl::Iterator it) { return vrf_.delAt(*this, it); }
   void vrfNameToVrfIdDelAll() { vrf_.delAll(*this); }
   void vrfNameToVrfIdNotify(Qor::Name vrfName) { vrf_.notify(*this, std::move(vrfName)); }

   // The same from the number's side.
   void vrfIdToVrfNameIs(VrfId vrfId, Qor::Name vrfName) {
      vrfNameToVrfIdIs(std::move(vrfName), vrfId);
   }
   Qor::Name newVrfIdToVrfName(VrfId vrfId, Qor::Name vrfName) {
      return vrf_.instantiateValue(*this, vrfId, checked(std::move(vrfName)));
   }
   void vrfIdToVrfNameDel(VrfId vrfId) { vrf_.delValue(*this, vrfId); }
   VrfColl::ValueIterator vrfIdToVrfNameDel(VrfColl::ValueIterator it) {
      return vrf_.delValueAt(*this, it);
   }
   void vrfIdToVrfNameDelAll() { vrf_.delAll(*this); }
   void vrfIdToVrfNameNotify(VrfId vrfId) { vrf_.notifyValue(*this, vrfId); }

   // Requests so far to review the multicast, the unicast IPv4 and the unicast IPv6 routes.
   Qor::U64 multicastReviewPending() const { return multicastReviewPending_; }
   void multicastReviewPendingIs(Qor::U64 v) {
      attrIs<&Notifiee::onMulticastReviewPending>(multicastReviewPending_, v);
   }
   void multicastReviewPendingInc() { multicastReviewPendingIs(multicastReviewPending_ + 1); }
   Qor::U64 unicastReviewPending() const { return unicastReviewPending_; }
   void unicastReviewPendingIs(Qor::U64 v) {
      attrIs<&Notifiee::onUnicastReviewPending>(unicastReviewPending_, v);
   }
   void unicastReviewPendingInc() { unicastReviewPendingIs(unicastReviewPending_ + 1); }
   Qor::U64 unicast6ReviewPending() const { return unicast6ReviewPending_; }
   void unicast6ReviewPendingIs(Qor::U64 v) {
      attrIs<&Notifiee::onUnicast6ReviewPending>(unicast6ReviewPending_, v);
   }
   void unicast6ReviewPendingInc() { unicast6ReviewPendingIs(unicast6ReviewPending_ + 1); }

   // Grows by one each time a chip has deleted its last multicast route while hardware routing is
   // off. The agent that turned routing off waits for this count.
   Qor::U32 waitForRoutingDisabledRefCnt() const { return waitForRoutingDisabledRefCnt_; }
   void waitForRoutingDisabledRefCntIs(Qor::U32 v) {
      attrIs<&Notifiee::onWaitForRoutingDisabledRefCnt>(waitForRoutingDisabledRefCnt_, v);
   }
   void waitForRoutingDisabledRefCntInc(Qor::U32 count) {
      waitForRoutingDisabledRefCntIs(waitForRoutingDisabledRefCnt_ + count);
   }

   bool multicastRoutingEnabled() const { return multicastRoutingEnabled_; }
   void multicastRoutingEnabledIs(bool v) {
      attrIs<&Notifiee::onMulticastRoutingEnabled>(multicastRoutingEnabled_, v);
   }
   // How often multicast routing was turned on since the agent started.
   Qor::U64 numTimesMcastRoutingEnabled() const { return numTimesMcastRoutingEnabled_; }
   void numTimesMcastRoutingEnabledIs(Qor::U64 v) {
      attrIs<&Notifiee::onNumTimesMcastRoutingEnabled>(numTimesMcastRoutingEnabled_, v);
   }

   // Whether the synchronous path keeps the group of a set whose last route has gone for a while
   // (a zombie), or frees it at once. On unless an agent turns it off.
   bool multicastZombiesEnabled() const { return multicastZombiesEnabled_; }
   void multicastZombiesEnabledIs(bool v) {
      attrIs<&Notifiee::onMulticastZombiesEnabled>(multicastZombiesEnabled_, v);
   }

 private:
   ~L3Status() override = default;

   static Qor::Name checked(Qor::Name vrfName) {
      if (vrfName.empty()) Qor::throwRange("Vel::L3Status::vrfName empty not allowed");
      return vrfName;
   }

   VrfColl vrf_;
   Qor::U64 multicastReviewPending_ = 0;
   Qor::U64 unicastReviewPending_ = 0;
   Qor::U64 unicast6ReviewPending_ = 0;
   Qor::U64 numTimesMcastRoutingEnabled_ = 0;
   Qor::U32 waitForRoutingDisabledRefCnt_ = 0;
   bool multicastRoutingEnabled_ = false;
   bool multicastZombiesEnabled_ = true;
};

}  // namespace Vel
