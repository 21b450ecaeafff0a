// Random operations against a model of what the programmer owes: who uses which record, which group
// each set has, which zombies wait until when. A failing seed is in the message, and replays.
#include <algorithm>
#include <random>

#include "VelAsyncRecorder.h"

namespace velAsync {
namespace {

// One record, as the model sees it. A route or the test itself uses it; nobody does when it waits.
struct ModelRecord {
   unsigned set;
   Qor::U32 id;
   bool used = false, dirty = false, takenOver = false;
   unsigned users = 0;
   Qor::Seconds expiry = Qor::never;
};

struct ModelRoute {
   unsigned key;
   RouteHandle handle;
   Qor::U32 modelRecord;
   RecordPtr record;
};

class VelAsyncRandom : public VelAsync {
 protected:
   static constexpr unsigned sets = 8, firstFixed = 6;  // the last two live in fixed groups

   unsigned pick(unsigned below) { return static_cast<unsigned>(rng_() % below); }

   void begin(unsigned seed) {
      rng_.seed(seed);
      helper_->fixedTypes = {RouteKeyType::bridged};
      helper_->groupRoom = 9;
      helper_->routeRoom = 12;
      for (unsigned i = 0; i < sets; ++i) {
         auto const type = i < firstFixed ? RouteKeyType::routed : RouteKeyType::bridged;
         set_.push_back(oifSet("et1", i % 2 ? "et9" : "", type));
      }
   }

   // The record that an allocation of this set would find: the newest living one.
   ModelRecord* newest(unsigned which) {
      auto const it = latest_.find(which);
      return it == latest_.end() ? nullptr : &model_.at(it->second);
   }

   void modelFree(Qor::U32 number) {
      ModelRecord& r = model_.at(number);
      if (r.users) return;
      if (r.used && r.expiry == Qor::never) {
         r.used = false;
         r.expiry = Qor::now() + 3.0;
         // Two records of one fixed group that come to wait at one instant have one key: the later
         // one takes the place of the earlier, which goes at once.
         for (auto const& [other, twin] : model_) {
            if (other != number && twin.id == r.id && twin.expiry == r.expiry) {
               modelFree(other);
               return;
            }
         }
         return;
      }
      if (!r.takenOver) groups_.erase(r.id);
      if (auto const it = latest_.find(r.set); it != latest_.end() && it->second == number) {
         latest_.erase(it);
      }
      model_.erase(number);
   }

   // The number of the model record that the real one must agree with, or 0 without room.
   Qor::U32 modelAllocate(unsigned which, Qor::U32 preset) {
      bool const fixed = which >= firstFixed;
      ModelRecord* const found = newest(which);
      if (!fixed && found && helper_->reusable && !found->dirty) {
         found->expiry = Qor::never;
         return latest_.at(which);
      }
      if (!fixed && groups_.size() >= helper_->groupRoom) return 0;
      Qor::U32 id = fixed ? preset : 100;
      while (!fixed && groups_.count(id))
         ++id;
      for (auto& [number, r] : model_) {
         if (r.id == id) r.takenOver = true;
      }
      groups_[id] = which;
      latest_[which] = ++lastNumber_;
      model_[lastNumber_] = {which, id};
      return lastNumber_;
   }

   void addRoute(unsigned key) {
      RouteHandle const handle = allocateRoute(routeKeyOf(key), 0);
      if (handle.isNull()) {
         EXPECT_GE(routes_.size(), helper_->routeRoom);
         return;
      }
      unsigned const which = pick(sets);
      if (!point({key, handle, 0, nullptr}, which)) sw_->doDeleteRoute(handle);
   }

   // Points a new or a known route at a set, and lets go of the record it had.
   bool point(ModelRoute route, unsigned which) {
      Qor::U32 const preset = 40 + route.key;  // a fixed group belongs to one route
      helper_->reusable = pick(8) != 0;
      Qor::U32 const number = modelAllocate(which, preset);
      RecordPtr record = allocate(set_[which], preset);
      EXPECT_EQ(record != nullptr, number != 0);
      if (!record || !number) return false;
      ModelRecord& r = model_.at(number);
      EXPECT_EQ(record->multicastId(), r.id);
      ++r.users;
      r.used = true;
      sw_->doSetMtableOifSet(route.handle, record, nullptr);
      Qor::U32 const oldNumber = std::exchange(route.modelRecord, number);
      RecordPtr old = std::exchange(route.record, std::move(record));
      routes_[route.key] = std::move(route);
      release(oldNumber, std::move(old));
      return true;
   }

   void release(Qor::U32 number, RecordPtr record) {
      if (!record) return;
      bool const last = --model_.at(number).users == 0;
      record = nullptr;
      if (last) modelFree(number);
   }

   void removeRoute(unsigned key) {
      ModelRoute route = routes_.at(key);
      routes_.erase(key);
      sw_->doDeleteRoute(route.handle);
      release(route.modelRecord, std::move(route.record));
   }

   void purge(Qor::Seconds until) {
      while (!sw_->zombieOifSet().empty() &&
             sw_->zombieOifSet().begin()->first.expiryTime() <= until)
         sw_->zombieOifSetDel(sw_->zombieOifSet().begin()->first);
      for (auto it = model_.begin(); it != model_.end();) {
         auto const [number, r] = *it++;
         if (r.expiry <= until) modelFree(number);
      }
   }

   void check() {
      std::map<Qor::U32, unsigned> real;
      for (auto const& [id, carried] : helper_->groups)
         real[id] =
               static_cast<unsigned>(std::find(set_.begin(), set_.end(), carried) - set_.begin());
      ASSERT_EQ(real, groups_);
      ASSERT_EQ(sw_->inUseOifSet().size(), latest_.size());
      for (auto const& [which, number] : latest_) {
         RecordPtr const record = sw_->inUseRecord(set_[which]);
         ASSERT_TRUE(record);
         ASSERT_EQ(record->multicastId(), model_.at(number).id);
         ASSERT_EQ(record->zombie().expiryTime(), model_.at(number).expiry);
         ASSERT_EQ(record->dirty(), model_.at(number).dirty);
      }
      std::multiset<std::pair<Qor::Seconds, Qor::U32>> waiting, zombies;
      for (auto const& [number, r] : model_) {
         if (r.expiry != Qor::never) waiting.insert({r.expiry, r.id});
      }
      for (auto const& [key, record] : sw_->zombieOifSet())
         zombies.insert({key.expiryTime(), key.multicastId()});
      ASSERT_EQ(zombies, waiting);
      // A fast-reroute entry names the set's living record, or nothing that can be found.
      for (auto const& [named, record] : sw_->frrMtableOifSet())
         ASSERT_TRUE(!sw_->record(named, record) || sw_->record(named, record)->oifSet() == named);
      ASSERT_EQ(sw_->inUseRouteHandle().size(), routes_.size());
      ASSERT_EQ(sw_->inUseRouteHandleKey().size(), routes_.size());
      ASSERT_EQ(helper_->routes.size(), routes_.size());
      for (auto const& [key, route] : routes_) {
         ASSERT_EQ(sw_->inUseRouteHandle(sw_->inUseRouteHandleKey(route.handle)), route.handle);
         ASSERT_EQ(sw_->inUseRouteHandleKey(route.handle).routeKey(), routeKeyOf(key));
         ASSERT_EQ(helper_->routes.at(route.handle.value()), route.record->multicastId());
      }
   }

   static IpGenRouteKey routeKeyOf(unsigned key) {
      return routeKey("10.0.0.2", cat("239.1.1.", key).c_str());
   }

   std::mt19937 rng_;
   std::vector<OifSetPtr> set_;
   std::map<Qor::U32, ModelRecord> model_;
   std::map<unsigned, Qor::U32> latest_;    // set -> its newest record
   std::map<Qor::U32, unsigned> groups_;    // id -> the set it carries
   std::map<unsigned, ModelRoute> routes_;  // by key
   Qor::U32 lastNumber_ = 0;
};

TEST_F(VelAsyncRandom, GroupsRoutesAndZombiesAddUpWhateverHappens) {
   for (unsigned seed = 1; seed <= 40; ++seed) {
      SCOPED_TRACE(cat("seed ", seed));
      begin(seed);
      for (unsigned step = 0; step < 400; ++step) {
         unsigned const key = pick(16);
         bool const known = routes_.count(key) != 0;
         switch (pick(8)) {
            case 0:
            case 1:
            case 2:
               if (!known) addRoute(key);
               break;
            case 3:
            case 4:
               if (known) point(routes_.at(key), pick(sets));
               break;
            case 5:
               if (known) removeRoute(key);
               break;
            case 6:
               pass(0.25 * pick(5));
               purge(Qor::now());
               break;
            default:
               if (known) {
                  model_.at(routes_.at(key).modelRecord).dirty = true;
                  routes_.at(key).record->dirtyIs(true);
               }
         }
         journal_.take();
         ASSERT_NO_FATAL_FAILURE(check()) << "step " << step;
         ASSERT_FALSE(HasFailure()) << "step " << step;
      }
      while (!routes_.empty())
         removeRoute(routes_.begin()->first);
      purge(Qor::never);
      ASSERT_NO_FATAL_FAILURE(check());
      EXPECT_TRUE(helper_->groups.empty() && model_.empty() && sw_->frrMtableOifSet().empty());
      set_.clear();
      TearDown();
      SetUp();
   }
}

}  // namespace
}  // namespace velAsync
