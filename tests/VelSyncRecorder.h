// Support for the tests of the synchronous programmer: a scripted platform that writes its calls to
// a journal, and a fixture with a programmer on that platform.
#pragma once

#include "Journal.h"
#include "TestSupport.h"
#include "Vel/VelSyncMrouteSwitch.h"

namespace velSync {

using Bridging::VlanIdOrNone;
using MrouteLib::OifSetPtr;
using MrouteLib::RouteHandle;
using Qor::U16;
using Qor::U32;
using Routing::Multicast::Fib::IpGenRouteKey;
using Routing::Multicast::Fib::RouteKeyType;
using Vel::MrouteSwitch;
using Vel::MtableOifSet;
using Vel::ZombieKey;
using Wisp::Multicast::Fib::RpaIndex;
using namespace testSupport;
using RecordPtr = Qor::Ptr<MtableOifSet>;

using RoutePtr = Qor::Ptr<Vel::Route const>;
using BoundaryPtr = Qor::Ptr<Vel::Boundary const>;

class Recorder final : public VelHelper::MrouteSmHelper {
 public:
   explicit Recorder(Journal& j) : MrouteSmHelper("recorder"), journal(j) {}

   // The script: the next index and handle, all-ones for none; `full` is each table's answer.
   U32 nextIndex = 31, nextHandle = 1;
   bool full = false;

   template <class... Parts>
   void call(Parts const&... parts) {
      journal.add(cat("hook", cat(' ', parts)...));
   }
   static U32 take(U32& next) { return next == invalidOifSetIndex ? next : next++; }

   void mrouteSwitchInit(U32 id, bool start) override { call("mrouteSwitchInit", id, start); }
   U32 doAllocateMtableOifSet(U32 id, U32 hint, OifSetPtr oifSet) override {
      call("doAllocateMtableOifSet", id, hint, oifSet);
      return take(nextIndex);
   }
   void handleFreeMtableOifSet(U32 id, RecordPtr record) override {
      call("handleFreeMtableOifSet", id, *record);
      EXPECT_TRUE(record->deleted());
   }
   RouteHandle doAllocateMroute(U32 id, U16 vrf, IpGenRouteKey const& k, VlanIdOrNone vlan,
                                bool bridge, U32 index, bool drop, U16 rpaId) override {
      call("doAllocateMroute", id, vrf, k, vlan, bridge, index, drop, rpaId);
      return RouteHandle(take(nextHandle));
   }
   RouteHandle doAllocateMrouteNoRpf(U32 id, U16 vrf, IpGenRouteKey const& k, bool bridge,
                                     U32 index, bool drop, U16 rpaId) override {
      call("doAllocateMrouteNoRpf", id, vrf, k, bridge, index, drop, rpaId);
      return RouteHandle(take(nextHandle));
   }
   void doSetMtableOifSet(U32 id, U16 vrf, RouteHandle h, RoutePtr r, U32 index) override {
      call("doSetMtableOifSet", id, vrf, h, r->key(), index);
   }
   void doDeleteMroute(U32 id, U16 vrf, RouteHandle h, RoutePtr r) override {
      call("doDeleteMroute", id, vrf, h, r->key());
   }
   void doDeleteMrouteBoundary(U32 id, U16 vrf, RouteHandle h, BoundaryPtr b) override {
      call("doDeleteMrouteBoundary", id, vrf, h, b->key());
   }
   bool isFull(char const* hook, U32 id) {
      call(hook, id);
      return full;
   }
   bool mrouteFull(U32 id) override { return isFull("mrouteFull", id); }
   bool mrouteBoundaryFull(U32 id) override { return isFull("mrouteBoundaryFull", id); }
   bool mtableFull(U32 id) override { return isFull("mtableFull", id); }

   Journal& journal;
};

// Each call makes another set. With an `iif` it uses fast reroute.
inline OifSetPtr oifSet(char const* iif = "", RouteKeyType type = RouteKeyType::routed) {
   MrouteLib::PortVlanSet set(type);
   set.newPortVlan(pv("et1"), true);
   set.currentIifIs(Lnet::IntfId(iif));
   return Qor::make<MrouteLib::OifSet>(nullptr, set);
}

inline OifSetPtr emptySet() {
   MrouteLib::PortVlanSet set(RouteKeyType::routed);
   set.toCpuIs(true);
   return Qor::make<MrouteLib::OifSet>(nullptr, set);
}

class VelSync : public OnVirtualTime {
 protected:
   VelSync() { begin(); }
   // A switch and a platform without a past. The VRF "red" has the id 7.
   void begin() {
      sw_ = nullptr;
      helper_ = Qor::make<Recorder>(journal_);
      l3_ = Qor::make<Vel::L3Status>();
      l3_->vrfNameToVrfIdIs("red", Vel::VrfId(7));
      acsd_->verifyDataIs(Qor::make<Vel::VerifyData>());
      sw_ = Vel::mrouteSwitchFactory("switch", 5, acsd_, l3_, helper_, nullptr, hwStatus_);
      journal_.take();
   }

   // As the routing layer does it: the result is taken and cleared.
   RecordPtr allocate(OifSetPtr const& set) {
      sw_->doAllocateMtableOifSet(set);
      auto const record = Qor::ptrCast<MtableOifSet>(sw_->takeMtableOifSet());
      return record;
   }
   RouteHandle allocateRoute(IpGenRouteKey const& k, RecordPtr const& record = nullptr,
                             unsigned vlan = 3, RpaIndex rpa = {}) {
      sw_->doAllocateRoute(k, VlanIdOrNone(vlan), false, record, false, vlan == 0, rpa,
                           L3::VrfName("red"));
      return sw_->routeHandle();
   }
   RouteHandle allocateBoundary(IpGenRouteKey const& k, unsigned vlan) {
      sw_->doAllocateRoute(k, VlanIdOrNone(vlan), true, nullptr, true, false, RpaIndex(9),
                           L3::VrfName("red"));
      return sw_->routeHandle();
   }
   // The review counters, as "unicast unicast6 multicast"; then the flags that are false.
   std::string flags() const {
      return cat(l3_->unicastReviewPending(), ' ', l3_->unicast6ReviewPending(), ' ',
                 l3_->multicastReviewPending(), sw_->mtableFree() ? "" : " no group",
                 sw_->mrouteTcamFree() ? "" : " no route",
                 sw_->boundaryTcamFree() ? "" : " no boundary");
   }
   // Compares the journal letter by letter. In the text $ is the oif set.
   void expectSaid(std::string text, OifSetPtr const& set = nullptr) {
      for (auto at = text.find('$'); at != std::string::npos; at = text.find('$', at))
         text.replace(at, 1, cat(set));
      EXPECT_EQ(journal_.text(), text);
   }

   Journal journal_{"VelSyncMrouteSm"};
   Qor::Ptr<Vel::VelCommonSmData> const acsd_ = Qor::make<Vel::VelCommonSmData>();
   Qor::Ptr<Routing::Multicast::Fib::Hardware::Status> const hwStatus_ =
         Qor::make<Routing::Multicast::Fib::Hardware::Status>();
   Qor::Ptr<Vel::L3Status> l3_;
   Qor::Ptr<Recorder> helper_;
   Qor::Ptr<MrouteSwitch> sw_;
};

}  // namespace velSync
