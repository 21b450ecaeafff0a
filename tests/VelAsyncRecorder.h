// What the tests of the asynchronous programmer share: a journal of everything it does (traces,
// ring trace, hook calls, notifications) in one order, a scripted platform that writes its calls
// there and refuses what a chip would refuse, and a fixture with a switch on virtual time.
#pragma once

#include <gtest/gtest.h>

#include <map>
#include <set>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

#include "Qor/Blip.h"
#include "Qor/Clock.h"
#include "Qor/Trace.h"
#include "Vel/VelAsyncMrouteSwitch.h"

namespace velAsync {

using MrouteLib::OifSetPtr;
using MrouteLib::RouteHandle;
using Routing::Multicast::Fib::IpGenRouteKey;
using Routing::Multicast::Fib::RouteKeyType;
using Vel::Mroute::AsyncMrouteSwitch;
using Vel::Mroute::AsyncMtableOifSet;
using Vel::Mroute::AsyncMtableOifSetPtr;
using Vel::Mroute::InUseRouteHandleKey;
using Vel::Mroute::ZombieKey;
using RecordPtr = Qor::Ptr<AsyncMtableOifSet>;

template <class... Parts>
std::string cat(Parts const&... parts) {
   std::ostringstream out;
   (out << ... << parts);
   return out.str();
}

// The text of the range error that `f` raises.
template <class F>
std::string rangeText(F f) {
   try {
      f();
   } catch (Qor::RangeException const& e) {
      return e.what();
   }
   return "no error";
}

// Lines are "<level> <trace text>", "blip <text>", "hook <name> <arguments>" and what a test adds.
class Journal final : public Qor::TraceSink {
 public:
   Journal() : blips_(Qor::blip().written()) {}

   void add(std::string line) {
      addBlips();
      lines_.push_back(std::move(line));
   }
   void trace(Qor::TraceRecord const& record) override {
      EXPECT_EQ(record.handle, "VelMroute");
      EXPECT_STREQ(record.source, "VelAsyncMrouteSm");
      add(cat(record.level, ' ', record.message));
   }
   // Everything since the last time, a line each.
   std::string take() {
      addBlips();
      std::string out = "\n";
      for (std::string const& line : std::exchange(lines_, {}))
         out += line + '\n';
      return out;
   }
   // The hooks that were called, with a semicolon behind each.
   std::string hooks() {
      addBlips();
      std::string out;
      for (std::string const& line : std::exchange(lines_, {})) {
         if (line.starts_with("hook ")) out += line.substr(5) + "; ";
      }
      return out;
   }

 private:
   void addBlips() {
      while (blips_ < Qor::blip().written())
         lines_.push_back("blip " + Qor::blip().text(Qor::blip().written() - ++blips_));
   }

   std::vector<std::string> lines_;
   Qor::U64 blips_;
};

class Recorder final : public VelHelper::AsyncMrouteHelper {
 public:
   explicit Recorder(Journal& j) : AsyncMrouteHelper("recorder", nullptr, nullptr), journal(j) {}

   // The script.
   std::set<RouteKeyType> fixedTypes;
   bool reusable = true;
   bool xacts = true;
   std::size_t groupRoom = 1000;
   std::size_t routeRoom = 1000;

   // The chip: which set each group carries, which group each route points at (0: none yet).
   std::map<Qor::U32, OifSetPtr> groups;
   std::map<Qor::U32, Qor::U32> routes;
   std::map<std::string, Hux::XactPtr> xactOf;

   template <class... Parts>
   void call(char const* hook, Parts const&... arguments) {
      std::string line = cat("hook ", hook);
      ((line += cat(' ', arguments)), ...);
      journal.add(line);
   }
   static char const* blocking(Hux::XactPtr const& xact) { return xact ? "blocked" : "free"; }
   Hux::XactPtr xact(std::string const& of) {
      if (!xacts) return nullptr;
      Hux::XactPtr& found = xactOf[of];
      if (!found) found = Qor::make<Hux::Xact>();
      return found;
   }
   // The lowest number not in use, as a chip hands them out; all-ones without room.
   template <class Map>
   static Qor::U32 lowest(Map const& used, Qor::U32 from, std::size_t room) {
      if (used.size() >= room) return 0xFFFFFFFF;
      while (used.count(from))
         ++from;
      return from;
   }

   Qor::U32 doAllocateSharableMulticastGroup(MrouteLib::RouteKeyInfo const& info, OifSetPtr oifSet,
                                             Hux::XactPtr blockingXact, bool frr) override {
      call("doAllocateSharableMulticastGroup", info.routeKey(), oifSet, blocking(blockingXact),
           frr);
      Qor::U32 const id = lowest(groups, 100, groupRoom);
      if (id != invalidMulticastId) groups[id] = oifSet;
      return id;
   }
   Qor::U32 doAllocateFixedMulticastGroup(OifSetPtr oifSet, Hux::XactPtr blockingXact,
                                          Qor::U32 mcastId) override {
      call("doAllocateFixedMulticastGroup", oifSet, blocking(blockingXact), mcastId);
      if (mcastId != invalidMulticastId) groups[mcastId] = oifSet;
      return mcastId;
   }
   Hux::XactPtr doGetXactForOifSet(Qor::U32 mcastId) override {
      call("doGetXactForOifSet", mcastId);
      return xact(cat("group ", mcastId));
   }
   Qor::String8 doGetXactFailureReason(Hux::XactPtr x, VelHelper::MrouteXactType type) override {
      call("doGetXactFailureReason", x ? "xact" : "null", type);
      return "reason";
   }
   void doDeleteOifSet(Qor::U32 mcastId) override {
      call("doDeleteOifSet", mcastId);
      EXPECT_EQ(groups.erase(mcastId), 1u) << "no group " << mcastId;
      for (auto const& [handle, id] : routes)
         EXPECT_NE(id, mcastId) << "route " << handle << " points at a deleted group";
   }
   RouteHandle doAllocateRoute(IpGenRouteKey const& routeKey, Bridging::VlanIdOrNone vlan,
                               bool bridgeAction, Wisp::Multicast::Fib::RpaIndex rpaId,
                               Qor::U32 vrfId) override {
      call("doAllocateRoute", routeKey, vlan, bridgeAction, rpaId, vrfId);
      RouteHandle const handle(lowest(routes, 1, routeRoom));
      if (!handle.isNull()) routes[handle.value()] = 0;
      return handle;
   }
   void doSetMtableOifSet(RouteHandle handle, Qor::U32 mcastId, Hux::XactPtr x) override {
      call("doSetMtableOifSet", handle, mcastId, blocking(x));
      EXPECT_TRUE(groups.count(mcastId)) << "no group " << mcastId;
      routes.at(handle.value()) = mcastId;
   }
   Hux::XactPtr doGetXactForIngress(RouteHandle handle) override {
      call("doGetXactForIngress", handle);
      return xact(cat("route ", handle));
   }
   void doDeleteRoute(RouteHandle handle) override {
      call("doDeleteRoute", handle);
      routes.erase(handle.value());
   }
   bool needFixedOifSet(RouteKeyType type) override {
      call("needFixedOifSet", type);
      return fixedTypes.count(type) != 0;
   }
   bool needIngressProgramming(RouteKeyType type) override {
      call("needIngressProgramming", type);
      return type != RouteKeyType::softwareOnly;
   }
   bool mcastIdReusable(Qor::U32 mcastId) override {
      call("mcastIdReusable", mcastId);
      return reusable;
   }
   bool mcastIdIsValid(Qor::U32 mcastId) override {
      call("mcastIdIsValid", mcastId);
      return AsyncMrouteHelper::mcastIdIsValid(mcastId);
   }
   void doScheduleVerify() override { call("doScheduleVerify"); }

   Journal& journal;
};

inline IpGenRouteKey routeKey(char const* source = "10.0.0.2", char const* group = "239.1.1.1") {
   return IpGenRouteKey(Lnet::IpGenPrefix::parse(source).value(),
                        Lnet::IpGenPrefix::parse(group).value());
}

// An oif set of one port; two calls make two sets. With an `iif` it uses fast reroute.
inline OifSetPtr oifSet(char const* port = "et1", char const* iif = "",
                        RouteKeyType type = RouteKeyType::routed) {
   MrouteLib::PortVlanSet set(type);
   set.newPortVlan(MrouteLib::PortVlan(Lnet::IntfId(port)), true);
   set.currentIifIs(Lnet::IntfId(iif));
   return Qor::make<MrouteLib::OifSet>(nullptr, set);
}

class VelAsync : public testing::Test {
 protected:
   static constexpr Qor::U32 vrfId = 3;

   void SetUp() override {
      Qor::activityManagerIs(
            Qor::make<Qor::ActivityManager>(Qor::ActivityManager::TimeBase::virtualTime));
      Qor::traceSinkIs(&journal_);
      Qor::traceLevelIs(9, "VelMroute");
      helper_ = Qor::make<Recorder>(journal_);
      auto const status = Qor::make<Routing::Hardware::RouteStatus>();
      status->newVrfStatus(L3::VrfName("default"), Vel::VrfId(vrfId));
      sw_ = Vel::Mroute::asyncMrouteSwitchFactory("switch", status, helper_);
   }
   void TearDown() override {
      sw_ = nullptr;
      Qor::traceLevelIs(-1, "VelMroute");
      Qor::traceSinkIs(nullptr);
      Qor::activityManagerIs(nullptr);
   }

   Hux::XactPtr doAllocate(OifSetPtr const& set, Qor::U32 preset = 0, bool frr = false,
                           Hux::XactPtr const& blocking = nullptr) {
      MrouteLib::RouteKeyInfo const info(routeKey(), L3::VrfName("default"),
                                         Bridging::VlanIdOrNone(7u), set->portVlanSet().type());
      return sw_->doAllocateMtableOifSet(info, set, blocking, preset, frr);
   }
   // As the routing layer does it: the result is taken and cleared.
   RecordPtr allocate(OifSetPtr const& set, Qor::U32 preset = 0) {
      if (!doAllocate(set, preset)) return nullptr;
      RecordPtr const record = Qor::ptrCast<AsyncMtableOifSet>(sw_->mtableOifSet());
      sw_->mtableOifSetIs(nullptr);
      return record;
   }
   RouteHandle allocateRoute(IpGenRouteKey const& key = routeKey(), unsigned vlan = 0) {
      sw_->doAllocateRoute(key, Bridging::VlanIdOrNone(vlan), false, {}, L3::VrfName("default"));
      return sw_->routeHandle();
   }
   // A record that some route has been pointed at, so that it becomes a zombie when it is dropped.
   RecordPtr allocateUsed(OifSetPtr const& set, Qor::U32 preset = 0) {
      RecordPtr const record = allocate(set, preset);
      record->usedInHwIs(true);
      return record;
   }
   RecordPtr frrRecord(OifSetPtr const& set) { return sw_->record(set, sw_->frrMtableOifSet(set)); }
   static void pass(Qor::Seconds seconds) { Qor::activityManager()->advance(seconds); }
   // Compares the journal letter by letter. In the text $R is the record, $O the oif set.
   void expectSaid(std::string text, OifSetPtr const& set = nullptr,
                   std::string const& record = "") {
      for (auto at = text.find('$'); at != std::string::npos; at = text.find('$', at))
         text.replace(at, 2, text[at + 1] == 'R' ? record : cat(set));
      EXPECT_EQ(journal_.take(), text);
   }

   Journal journal_;
   Qor::Ptr<Recorder> helper_;
   Qor::Ptr<AsyncMrouteSwitch> sw_;
};

}  // namespace velAsync
