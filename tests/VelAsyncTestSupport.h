// Support for the tests of the asynchronous programmer and of its reactor: a journal of all traces,
// ring trace entries, hook calls and notifications in one order; a scripted platform that writes
// its calls there and refuses the requests that a chip would refuse; and a fixture with a
// programmer on that platform.
#pragma once

#include <map>
#include <set>
#include <utility>

#include "Journal.h"
#include "TestSupport.h"
#include "Vel/VelAsyncMrouteSwitch.h"

namespace velAsync {

using Bridging::VlanIdOrNone;
using MrouteLib::OifSetPtr;
using MrouteLib::RouteHandle;
using Routing::Multicast::Fib::IpGenRouteKey;
using Routing::Multicast::Fib::RouteKeyType;
using Vel::Mroute::AsyncMrouteSwitch;
using Vel::Mroute::AsyncMtableOifSet;
using Vel::Mroute::InUseRouteHandleKey;
using Vel::Mroute::ZombieKey;
using namespace testSupport;
using RecordPtr = Qor::Ptr<AsyncMtableOifSet>;

struct Journal : testSupport::Journal {
   Journal() : testSupport::Journal("VelAsyncMrouteSm") {}
};

class Recorder final : public VelHelper::AsyncMrouteHelper {
 public:
   explicit Recorder(Journal& j) : AsyncMrouteHelper("recorder", nullptr, nullptr), journal(j) {}

   // The script.
   std::set<RouteKeyType> fixedTypes;
   bool reusable = true, xacts = true;
   std::size_t groupRoom = 1000, routeRoom = 1000;

   // The chip: which set each group carries, which group each route points at (0: none yet).
   std::map<Qor::U32, OifSetPtr> groups;
   std::map<Qor::U32, Qor::U32> routes;
   Hux::XactPtr lastXact;

   template <class... Parts>
   void call(Parts const&... parts) {
      journal.add(cat("hook", cat(' ', parts)...));
   }
   static char const* blocking(Hux::XactPtr const& xact) { return xact ? "blocked" : "free"; }
   template <class Id>
   Hux::XactPtr xact(char const* hook, Id const& id) {
      call(hook, id);
      lastXact = nullptr;
      if (xacts) lastXact = Qor::make<Hux::Xact>();
      return lastXact;
   }
   // The lowest number not in use, as a chip hands them out; all-ones without room.
   template <class Map>
   static Qor::U32 lowest(Map& used, Qor::U32 from, std::size_t room) {
      if (used.size() >= room) return 0xFFFFFFFF;
      while (!used.try_emplace(from).second)
         ++from;
      return from;
   }

   Qor::U32 doAllocateSharableMulticastGroup(MrouteLib::RouteKeyInfo const& info, OifSetPtr oifSet,
                                             Hux::XactPtr xact, bool frr) override {
      call("doAllocateSharableMulticastGroup", info.routeKey(), oifSet, blocking(xact), frr);
      Qor::U32 const id = lowest(groups, 100, groupRoom);
      if (groups.count(id)) groups[id] = oifSet;
      return id;
   }
   Qor::U32 doAllocateFixedMulticastGroup(OifSetPtr oifSet, Hux::XactPtr xact,
                                          Qor::U32 mcastId) override {
      call("doAllocateFixedMulticastGroup", oifSet, blocking(xact), mcastId);
      groups[mcastId] = oifSet;
      return mcastId;
   }
   Hux::XactPtr doGetXactForOifSet(Qor::U32 id) override { return xact("doGetXactForOifSet", id); }
   Qor::String8 doGetXactFailureReason(Hux::XactPtr, VelHelper::MrouteXactType type) override {
      return cat(type);
   }
   void doDeleteOifSet(Qor::U32 mcastId) override {
      call("doDeleteOifSet", mcastId);
      EXPECT_EQ(groups.erase(mcastId), 1u) << "no group " << mcastId;
      for (auto const& [handle, id] : routes)
         EXPECT_NE(id, mcastId) << "route " << handle << " points at a deleted group";
   }
   RouteHandle doAllocateRoute(IpGenRouteKey const& routeKey, VlanIdOrNone vlan, bool bridgeAction,
                               Wisp::Multicast::Fib::RpaIndex rpaId, Qor::U32 vrfId) override {
      call("doAllocateRoute", routeKey, vlan, bridgeAction, rpaId, vrfId);
      return RouteHandle(lowest(routes, 1, routeRoom));
   }
   void doSetMtableOifSet(RouteHandle handle, Qor::U32 mcastId, Hux::XactPtr xact) override {
      call("doSetMtableOifSet", handle, mcastId, blocking(xact));
      EXPECT_TRUE(groups.count(mcastId)) << "no group " << mcastId;
      routes.at(handle.value()) = mcastId;
   }
   Hux::XactPtr doGetXactForIngress(RouteHandle handle) override {
      return xact("doGetXactForIngress", handle);
   }
   void doDeleteRoute(RouteHandle handle) override {
      call("doDeleteRoute", handle);
      routes.erase(handle.value());
   }
   bool needFixedOifSet(RouteKeyType type) override {
      call("needFixedOifSet", type);
      return fixedTypes.count(type) != 0;
   }
   bool mcastIdReusable(Qor::U32 mcastId) override {
      call("mcastIdReusable", mcastId);
      return reusable;
   }
   void doScheduleVerify() override { call("doScheduleVerify"); }

   Journal& journal;
};

inline IpGenRouteKey routeKey(char const* source = "10.0.0.2", char const* group = "239.1.1.1") {
   return key(source, group);
}

// An oif set of one port; two calls make two sets. With an `iif` it uses fast reroute.
inline OifSetPtr oifSet(char const* iif = "", RouteKeyType type = RouteKeyType::routed) {
   MrouteLib::PortVlanSet set(type);
   set.newPortVlan(MrouteLib::PortVlan(Lnet::IntfId("et1")), true);
   set.currentIifIs(Lnet::IntfId(iif));
   return Qor::make<MrouteLib::OifSet>(nullptr, set);
}

class VelAsync : public OnVirtualTime {
 protected:
   static constexpr Qor::U32 vrfId = 3;

   VelAsync() { begin(); }
   // A switch and a platform without a past.
   void begin() {
      sw_ = nullptr;
      helper_ = Qor::make<Recorder>(journal_);
      helper_->fixedTypes = {RouteKeyType::bridged};
      auto const status = Qor::make<Routing::Hardware::RouteStatus>();
      status->newVrfStatus(L3::VrfName("default"), Vel::VrfId(vrfId));
      sw_ = Vel::Mroute::asyncMrouteSwitchFactory("switch", status, helper_);
   }

   Hux::XactPtr doAllocate(OifSetPtr const& set, Qor::U32 preset = 0, bool frr = false,
                           Hux::XactPtr const& blocking = nullptr) {
      MrouteLib::RouteKeyInfo const info(routeKey(), L3::VrfName("default"), VlanIdOrNone(7u),
                                         set->portVlanSet().type());
      return sw_->doAllocateMtableOifSet(info, set, blocking, preset, frr);
   }
   RecordPtr result() const { return Qor::ptrCast<AsyncMtableOifSet>(sw_->mtableOifSet()); }
   // As the routing layer does it: the result is taken and cleared.
   RecordPtr allocate(OifSetPtr const& set, Qor::U32 preset = 0) {
      if (!doAllocate(set, preset)) return nullptr;
      return Qor::ptrCast<AsyncMtableOifSet>(sw_->takeMtableOifSet());
   }
   // A record that some route has been pointed at, so that it becomes a zombie when it is dropped.
   RecordPtr allocateUsed(OifSetPtr const& set, Qor::U32 preset = 0) {
      RecordPtr const record = allocate(set, preset);
      record->usedInHwIs(true);
      return record;
   }
   RouteHandle allocateRoute(IpGenRouteKey const& key = routeKey(), unsigned vlan = 0,
                             char const* vrf = "default") {
      sw_->doAllocateRoute(key, VlanIdOrNone(vlan), false, {}, L3::VrfName(vrf));
      return sw_->routeHandle();
   }
   RecordPtr frrRecord(OifSetPtr const& set) { return sw_->record(set, sw_->frrMtableOifSet(set)); }
   Qor::U32 failureCode() const { return static_cast<Qor::U32>(sw_->mrouteFailureReason()); }
   // Compares the journal letter by letter. In the text $R is the record, $O the oif set.
   void expectSaid(std::string text, OifSetPtr const& set, std::string const& record) {
      for (auto at = text.find('$'); at != std::string::npos; at = text.find('$', at))
         text.replace(at, 2, text[at + 1] == 'R' ? record : cat(set));
      EXPECT_EQ(journal_.text(), text);
   }
   // Finds lines in the middle of the journal.
   void expectLines(std::string const& lines) {
      std::string const all = journal_.text();
      EXPECT_NE(all.find('\n' + lines + '\n'), std::string::npos) << all;
   }

   Journal journal_;
   Qor::Ptr<Recorder> helper_;
   Qor::Ptr<AsyncMrouteSwitch> sw_;
};

}  // namespace velAsync
