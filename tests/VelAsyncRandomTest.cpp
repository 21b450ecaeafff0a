// Random operations against what the programmer owes at any time: every route has its own living
// record, every record its group and nobody else any, and zombies wait unused for their time. A
// failing seed is in the message, and replays.
#include <random>

#include "VelAsyncRecorder.h"

namespace velAsync {
namespace {

struct Route {
   RouteHandle handle;
   RecordPtr record;
};

class VelAsyncRandom : public VelAsync {
 protected:
   static constexpr unsigned sets = 8, firstFixed = 6;  // the last two live in fixed groups

   unsigned pick(unsigned below) { return static_cast<unsigned>(rng_() % below); }
   static IpGenRouteKey routeKeyOf(unsigned key) {
      return routeKey("10.0.0.2", cat("239.1.1.", key).c_str());
   }

   void begin(unsigned seed) {
      rng_.seed(seed);
      helper_->groupRoom = 9;
      helper_->routeRoom = 12;
      set_.clear();
      for (unsigned i = 0; i < sets; ++i)
         set_.push_back(oifSet(i % 2 ? "et9" : "",
                               i < firstFixed ? RouteKeyType::routed : RouteKeyType::bridged));
   }

   void operate() {
      unsigned const key = pick(16), what = pick(8);
      auto const known = routes_.find(key);
      if (what == 6) {
         pass(0.25 * pick(5));
         auto const& zombies = sw_->zombieOifSet();
         while (!zombies.empty() && zombies.begin()->first.expiryTime() <= Qor::now())
            sw_->zombieOifSetDel(zombies.begin()->first);
      } else if (known == routes_.end()) {
         RouteHandle const handle = what < 3 ? allocateRoute(routeKeyOf(key)) : RouteHandle();
         EXPECT_TRUE(what >= 3 || !handle.isNull() || routes_.size() >= helper_->routeRoom);
         if (!handle.isNull() && !point(key, handle)) sw_->doDeleteRoute(handle);
      } else if (what == 3 || what == 4) {
         point(key, known->second.handle);
      } else if (what == 5) {
         sw_->doDeleteRoute(known->second.handle);
         routes_.erase(known);
      } else if (what == 7) {
         known->second.record->dirtyIs(true);
      }
   }

   // Points a new or a known route at some set, and lets go of the record it had.
   bool point(unsigned key, RouteHandle handle) {
      unsigned const which = pick(sets);
      bool const fixed = which >= firstFixed;
      helper_->reusable = pick(8) != 0;
      RecordPtr const found = sw_->inUseRecord(set_[which]);
      bool const shares = !fixed && found && helper_->reusable && !found->dirty();
      bool const room = helper_->groups.size() < helper_->groupRoom;
      RecordPtr const record = allocate(set_[which], 40 + key);  // a fixed group has one route
      EXPECT_EQ(record != nullptr, fixed || shares || room);
      if (!record) return false;
      EXPECT_EQ(record == found, shares);
      EXPECT_EQ(record->oifSet(), set_[which]);
      EXPECT_EQ(sw_->inUseRecord(set_[which]), record);
      sw_->doSetMtableOifSet(handle, record, nullptr);
      routes_[key] = {handle, record};
      return true;
   }

   void check() {
      std::set<RecordPtr> living;
      for (auto const& [key, route] : routes_) {
         auto const& [handle, record] = route;
         living.insert(record);
         EXPECT_TRUE(record->usedInHw() && !record->zombie().isZombie() && !record->skipDelete());
         EXPECT_EQ(helper_->routes.at(handle.value()), record->multicastId());
         EXPECT_EQ(sw_->inUseRouteHandleKey(handle).routeKey(), routeKeyOf(key));
         EXPECT_EQ(sw_->inUseRouteHandle(sw_->inUseRouteHandleKey(handle)), handle);
      }
      EXPECT_EQ(sw_->inUseRouteHandle().size(), routes_.size());
      EXPECT_EQ(sw_->inUseRouteHandleKey().size(), routes_.size());
      EXPECT_EQ(helper_->routes.size(), routes_.size());
      for (auto const& [key, record] : sw_->zombieOifSet()) {
         EXPECT_TRUE(living.insert(record).second && !record->usedInHw());
         EXPECT_EQ(record->zombie(), key);
         EXPECT_TRUE(key.expiryTime() > Qor::now() - 1 && key.expiryTime() <= Qor::now() + 3);
      }
      std::map<Qor::U32, OifSetPtr> owned;
      for (RecordPtr const& record : living) {
         if (record->skipDelete()) continue;
         EXPECT_TRUE(owned.emplace(record->multicastId(), record->oifSet()).second);
         EXPECT_EQ(sw_->mcastIdToOifSet(record->multicastId()), record->oifSet());
      }
      EXPECT_EQ(owned, helper_->groups);
      for (auto const& [set, record] : sw_->inUseOifSet())
         EXPECT_TRUE(living.count(sw_->inUseRecord(set)));
      // A fast-reroute entry names the set's living record, or nothing that can be found.
      for (auto const& [set, record] : sw_->frrMtableOifSet())
         EXPECT_TRUE(!frrRecord(set) || frrRecord(set)->oifSet() == set);
   }

   std::mt19937 rng_;
   std::vector<OifSetPtr> set_;
   std::map<unsigned, Route> routes_;  // by key
};

TEST_F(VelAsyncRandom, GroupsRoutesAndZombiesAddUpWhateverHappens) {
   for (unsigned seed = 1; seed <= 40; ++seed) {
      SCOPED_TRACE(cat("seed ", seed));
      begin(seed);
      for (unsigned step = 0; step < 400; ++step) {
         operate();
         check();
         journal_.take();
         ASSERT_FALSE(HasFailure()) << "step " << step;
      }
      for (auto const& [key, route] : std::exchange(routes_, {}))
         sw_->doDeleteRoute(route.handle);
      sw_->zombieOifSetDelAll();
      check();
      EXPECT_TRUE(helper_->groups.empty() && sw_->frrMtableOifSet().empty());
      TearDown();
      SetUp();
   }
}

}  // namespace
}  // namespace velAsync
