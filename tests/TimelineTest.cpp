// The timeline of a run: the written file is read back as a trace viewer reads it.
#include "agent/timeline/Timeline.h"

#include <nlohmann/json.hpp>
#include <sstream>

#include "Routing/Hardware/RouteStatus.h"
#include "TestSupport.h"
#include "agent/timeline/AsyncObserver.h"
#include "agent/timeline/TimelineWriter.h"
#include "platform/sim/AsyncPlatform.h"

namespace Agent {
namespace {

using nlohmann::json;
using testSupport::Lines;

// A table programmer on the simulated chip, whose writes take a millisecond.
class TimelineTest : public testSupport::OnVirtualTime {
 protected:
   TimelineTest() {
      auto const vrfs = Qor::make<Routing::Hardware::RouteStatus>();
      vrfs->newVrfStatus(L3::VrfName("default"), Vel::VrfId(0));
      switch_ = Vel::Mroute::asyncMrouteSwitchFactory("switch \"1\"", vrfs, platform_);
      for (unsigned i = 1; i <= 3; ++i) {
         auto const member = testSupport::pv(("et" + std::to_string(i)).c_str(), i);
         EXPECT_EQ(chip_->portAdd(member.intfId(), i, member.vlanId()), "");
         MrouteLib::PortVlanSet set(Routing::Multicast::Fib::RouteKeyType::routed);
         set.newPortVlan(member, true);
         sets_.push_back(tables_->newOifSet(set));
      }
      EXPECT_EQ(timeline_.observe(std::make_unique<AsyncObserver>(timeline_, *switch_)), 1u);
   }

   void at(double time) { time_->runUntil(time); }

   MrouteLib::MtableOifSetPtr allocate(MrouteLib::OifSetPtr const& set) {
      timeline_.xact("allocate", switch_->doAllocateMtableOifSet({}, set, nullptr, 0, false));
      auto record = switch_->takeMtableOifSet();
      return record;
   }
   MrouteLib::RouteHandle program(unsigned group, MrouteLib::MtableOifSetPtr const& record) {
      switch_->doAllocateRoute(testSupport::key(group), Bridging::VlanIdOrNone(1), false, {},
                               L3::VrfName("default"));
      auto const handle = switch_->routeHandle();
      timeline_.xact("point", switch_->doSetMtableOifSet(handle, record, nullptr));
      return handle;
   }

   std::string name(std::size_t set) const {
      return "OifSet#" + std::to_string(sets_[set]->serial());
   }

   // Finishes the file, parses it, and returns its events.
   std::vector<json> finished() {
      timeline_.finish();
      json const file = json::parse(out_.str());
      EXPECT_EQ(file.at("traceEvents").size(), writer_.events());
      return file.at("traceEvents");
   }

   // The spans as "CATEGORY NAME BEGIN-END OUTCOME", with times in microseconds. Checks that each
   // end has exactly one beginning before it, and that the times ascend.
   static Lines spans(std::vector<json> const& events) {
      Lines out;
      std::map<std::string, std::size_t> begun;
      double last = 0;
      for (json const& e : events) {
         std::string const phase = e.at("ph");
         EXPECT_LE(last, e.at("ts").get<double>()) << e;
         last = e.at("ts");
         if (phase != "b" && phase != "e") continue;
         std::string const id = e.at("cat").get<std::string>() + e.at("id").get<std::string>();
         if (phase == "b") {
            EXPECT_TRUE(begun.emplace(id, out.size()).second) << e;
            out.push_back(e.at("cat").get<std::string>() + ' ' + e.at("name").get<std::string>() +
                          ' ' + e.at("ts").dump() + '-');
         } else if (auto const node = begun.extract(id); node.empty()) {
            ADD_FAILURE() << "the end of a span without a beginning: " << e;
         } else {
            out[node.mapped()] +=
                  e.at("ts").dump() + ' ' + e.at("args").at("outcome").get<std::string>();
         }
      }
      EXPECT_TRUE(begun.empty());
      return out;
   }

   Qor::Ptr<MrouteLib::MrouteTableColl> const tables_ = Qor::make<MrouteLib::MrouteTableColl>();
   Qor::Ptr<Sim::Chip> const chip_ = Qor::make<Sim::Chip>(Sim::ChipConfig{8, 8, 1, 0.001});
   Qor::Ptr<Sim::AsyncPlatform> const platform_ = Qor::make<Sim::AsyncPlatform>("sim", chip_);
   std::vector<MrouteLib::OifSetPtr> sets_;
   std::ostringstream out_;
   TimelineWriter writer_{out_};
   Timeline timeline_{{&writer_}};
   Qor::Ptr<Vel::Mroute::AsyncMrouteSwitch> switch_;  // destroyed before the platform and the chip
};

TEST_F(TimelineTest, RoutesZombiesAndTransactionsAreShownAsSpans) {
   at(1);
   platform_->faults().failNext(Sim::WriteKind::routePoint, "parity", 1);
   auto first = allocate(sets_[0]);
   auto const one = program(1, first);
   at(2);
   // The allocation that resurrects the zombie is complete at once, and its span has no length.
   switch_->doDeleteRoute(one);
   first = nullptr;
   at(2.5);
   first = allocate(sets_[0]);
   auto const two = program(2, first);
   auto second = allocate(sets_[1]);
   auto const three = program(3, second);
   at(3);
   switch_->doDeleteRoute(two);
   switch_->doDeleteRoute(three);
   first = second = nullptr;
   at(4);
   switch_->zombieOifSetDel(switch_->zombieOifSet().begin()->first);  // purged before its time
   auto third = allocate(sets_[2]);
   at(6);
   switch_->zombieOifSetDelAll();  // purged after its lifetime

   auto const events = finished();
   EXPECT_EQ(spans(events), (Lines{
                                  "xact allocate 1000000-1001000 succeeded",
                                  "route (10.0.0.1, 239.0.0.1) 1000000-2000000 released",
                                  "xact point 1000000-1001000 failed",
                                  "zombie zombie " + name(0) + " 2000000-2500000 resurrected",
                                  "xact allocate 2500000-2500000 succeeded",
                                  "route (10.0.0.1, 239.0.0.2) 2500000-3000000 released",
                                  "xact point 2500000-2501000 succeeded",
                                  "xact allocate 2500000-2501000 succeeded",
                                  "route (10.0.0.1, 239.0.0.3) 2500000-3000000 released",
                                  "xact point 2500000-2501000 succeeded",
                                  "zombie zombie " + name(0) + " 3000000-4000000 purged",
                                  "zombie zombie " + name(1) + " 3000000-6000000 expired",
                                  "xact allocate 4000000-4001000 succeeded",
                            }));
   Lines samples;  // one for each time at which the tables changed
   for (json const& e : events) {
      if (e.at("ph") == "C") samples.push_back(e.at("ts").dump() + ' ' + e.at("args").dump());
   }
   EXPECT_EQ(samples.size(), 7u);
   EXPECT_EQ(samples[3], R"(2500000 {"groups":2,"rerouting":0,"routes":2,"zombies":0})");
}

TEST_F(TimelineTest, TheFileIsCompleteWhenTheRunEndsEarlyOrTheSwitchIsDestroyedFirst) {
   auto record = allocate(sets_[0]);
   program(1, record);
   timeline_.instant("link down \x01\xff", {{"intf", "et1"}});
   at(0.0005);
   switch_->frrProcessingOifSetIs(sets_[0],
                                  static_cast<Vel::Mroute::AsyncMtableOifSet*>(record.get()));
   record = nullptr;
   switch_ = nullptr;
   auto const events = finished();
   EXPECT_EQ(spans(events),
             (Lines{"xact allocate 0-500 open", "route (10.0.0.1, 239.0.0.1) 0-500 dropped",
                    "xact point 0-500 open", "reroute reroute " + name(0) + " 500-500 dropped",
                    "zombie zombie " + name(0) + " 500-500 dropped"}));
   EXPECT_EQ(events[0].at("args").at("name"), "switch \"1\"");
   auto const instant = std::find_if(events.begin(), events.end(), [](json const& e) {
      return e.at("ph") == "i" && e.at("tid") == 2;
   });
   ASSERT_NE(instant, events.end());
   EXPECT_EQ(instant->at("name"), "link down \x01\xEF\xBF\xBD");
   EXPECT_EQ(instant->at("args").at("intf"), "et1");
   timeline_.instant("late");
   timeline_.xact("late", Qor::make<Hux::Xact>());
   EXPECT_TRUE(json::accept(out_.str()));  // later events are not written
}

}  // namespace
}  // namespace Agent
