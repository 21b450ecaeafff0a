// Random operations against what the programmer owes at any time: every user has a living record of
// its set, every record its group and nobody else any, and zombies wait unused for their time. A
// failing seed is in the message, and replays.
#include <random>

#include "VelAsyncTestSupport.h"

namespace velAsync {
namespace {

class VelAsyncRandom : public VelAsync {
 protected:
   static constexpr unsigned sets = 8, firstFixed = 6;  // the last two live in fixed groups

   unsigned pick(unsigned below) { return static_cast<unsigned>(rng_() % below); }

   void operate() {
      unsigned const user = pick(16), what = pick(8);
      auto const known = users_.find(user);
      if (what < 4) {
         use(user, pick(sets));
      } else if (what == 4) {
         time_->advance(0.25 * pick(5));
         auto const& zombies = sw_->zombieOifSet();
         while (!zombies.empty() && zombies.begin()->first.expiryTime() <= Qor::now())
            sw_->zombieOifSetDel(zombies.begin()->first);
      } else if (known != users_.end() && what < 7) {
         users_.erase(known);
      } else if (known != users_.end()) {
         known->second->dirtyIs(true);
      }
   }

   // Gives a user some set, which lets go of the record it had. A fixed group has one user.
   void use(unsigned user, unsigned which) {
      bool const fixed = which >= firstFixed;
      helper_->reusable = pick(8) != 0;
      RecordPtr const found = sw_->inUseRecord(set_[which]);
      bool const shares = !fixed && found && helper_->reusable && !found->dirty();
      bool const room = helper_->groups.size() < helper_->groupRoom;
      RecordPtr const record = allocate(set_[which], 40 + user);
      EXPECT_EQ(record != nullptr, fixed || shares || room);
      if (!record) return;
      EXPECT_EQ(record == found, shares);
      EXPECT_EQ(record->oifSet(), set_[which]);
      EXPECT_EQ(sw_->inUseRecord(set_[which]), record);
      record->usedInHwIs(true);
      users_[user] = record;
   }

   void check() {
      std::set<RecordPtr> living;
      for (auto const& [user, record] : users_) {
         living.insert(record);
         EXPECT_TRUE(record->usedInHw() && !record->zombie().isZombie() && !record->skipDelete());
      }
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
   std::map<unsigned, RecordPtr> users_;
};

TEST_F(VelAsyncRandom, GroupsAndZombiesAddUpWhateverHappens) {
   for (unsigned i = 0; i < sets; ++i)
      set_.push_back(oifSet(i % 2 ? "et9" : "",
                            i < firstFixed ? RouteKeyType::routed : RouteKeyType::bridged));
   helper_->groupRoom = 9;
   for (unsigned seed = 1; seed <= 40; ++seed) {
      SCOPED_TRACE(cat("seed ", seed));
      rng_.seed(seed);
      for (unsigned step = 0; step < 400; ++step) {
         operate();
         check();
         journal_.take();
         ASSERT_FALSE(HasFailure()) << "step " << step;
      }
      users_.clear();
      sw_->zombieOifSetDelAll();
      check();
      EXPECT_TRUE(helper_->groups.empty() && sw_->frrMtableOifSet().empty());
   }
}

}  // namespace
}  // namespace velAsync
