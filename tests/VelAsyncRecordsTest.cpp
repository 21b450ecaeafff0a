// Records of the asynchronous programmer and the keys of its collections.
#include <algorithm>
#include <functional>
#include <memory>

#include "VelAsyncRecorder.h"

namespace velAsync {
namespace {

struct Watcher final : AsyncMtableOifSet::Notifiee {
   Watcher(Journal& j, RecordPtr const& record) : journal(j) { notifierIs(record); }
   void onUsedInHw() override { journal.add("usedInHw"); }
   void onSkipDelete() override { journal.add("skipDelete"); }
   void onDeleted() override { journal.add("deleted"); }
   void onZombie() override { journal.add("zombie"); }
   void onZombieLifetime() override { journal.add("zombieLifetime"); }
   void onDirty() override { journal.add("dirty"); }
   void onZeroReferences() override {
      journal.add("zeroReferences");
      if (leaveAtZero) {
         RecordPtr const temporary(const_cast<AsyncMtableOifSet*>(notifier()));
         notifierIs(nullptr);
      }
   }
   Journal& journal;
   bool leaveAtZero = false;
};

class VelAsyncRecords : public VelAsync {};

TEST_F(VelAsyncRecords, AFreshRecordIsNoZombieAndHasNoFlags) {
   OifSetPtr const set = oifSet();
   RecordPtr const record = Vel::Mroute::asyncMtableOifSetFactory(set, true, 77, nullptr);
   EXPECT_EQ(record->oifSet(), set);
   EXPECT_TRUE(record->toCpu());
   EXPECT_EQ(record->multicastId(), 77u);
   EXPECT_FALSE(record->usedInHw() || record->skipDelete() || record->deleted() || record->dirty());
   EXPECT_EQ(record->zombie(), ZombieKey(0, Qor::never));
   EXPECT_EQ(record->zombieLifetime(), 3.0);
   EXPECT_EQ(cat(*record), cat("AsyncMtableOifSet(mcastId 77, OifSet#", set->serial(), ")"));
   EXPECT_EQ(rangeText([] { Qor::ValidPtr<AsyncMtableOifSet>{RecordPtr()}; }), "null ValidPtr");
}

TEST_F(VelAsyncRecords, EveryStoreVisitsTheNotifiees) {
   RecordPtr const record = Vel::Mroute::asyncMtableOifSetFactory(oifSet(), true, 77, nullptr);
   Watcher watcher(journal_, record);
   for (int i = 0; i < 2; ++i) {  // the second time stores equal values
      record->usedInHwIs(true);
      record->skipDeleteIs(false);
      record->deletedIs(false);
      record->zombieIs(ZombieKey(1, 5.0));
      record->zombieLifetimeIs(9.0);
      record->dirtyIs(true);
      EXPECT_EQ(journal_.take(),
                "\nusedInHw\nskipDelete\ndeleted\nzombie\nzombieLifetime\ndirty\n");
   }
   EXPECT_TRUE(record->usedInHw() && record->dirty());
   EXPECT_EQ(record->zombie(), ZombieKey(1, 5.0));
   EXPECT_EQ(record->zombieLifetime(), 9.0);
}

TEST_F(VelAsyncRecords, ARecordHandsItselfOverOncePerLossInsideTheOperationThatDroppedIt) {
   RecordPtr record = allocateUsed(oifSet());
   RecordPtr second = record;
   journal_.take();
   record = nullptr;
   EXPECT_EQ(journal_.take(), "\n");
   second = nullptr;  // becomes a zombie, which takes and drops references on the way
   EXPECT_EQ(journal_.hooks(), "doScheduleVerify; ");
   second = sw_->zombieOifSet(ZombieKey(100, 3.0));
   sw_->zombieOifSetDel(second->zombie());
   EXPECT_EQ(journal_.take(), "\n");
   second = nullptr;
   EXPECT_EQ(journal_.hooks(), "doDeleteOifSet 100; doScheduleVerify; ");
}

TEST_F(VelAsyncRecords, ARecordKeptByANotifieeIsCleanedUpWhenThatLeaves) {
   RecordPtr const other = allocate(oifSet());
   std::function<void(std::unique_ptr<Watcher>&)> const ways[]{
         [](auto& watcher) { watcher->notifierIs(nullptr); },
         [&](auto& watcher) { watcher->notifierIs(other); },
         [](auto& watcher) { watcher = nullptr; },
   };
   for (auto const& leave : ways) {
      OifSetPtr const set = oifSet();
      RecordPtr record = allocate(set);
      auto watcher = std::make_unique<Watcher>(journal_, record);
      auto paused = std::make_unique<Watcher>(journal_, record);  // holds it as well
      paused->hasNotificationActiveIs(false);
      journal_.take();
      record = nullptr;
      EXPECT_EQ(journal_.take(), "\nzeroReferences\n");
      paused = nullptr;
      leave(watcher);
      EXPECT_EQ(journal_.hooks(), "doDeleteOifSet 101; doScheduleVerify; ");
      EXPECT_FALSE(sw_->inUseRecord(set));
   }
   RecordPtr record = allocate(oifSet());
   Watcher watcher(journal_, record);
   watcher.leaveAtZero = true;
   journal_.take();
   record = nullptr;
   EXPECT_EQ(journal_.hooks(), "doDeleteOifSet 101; doScheduleVerify; ");
}

TEST_F(VelAsyncRecords, ASecondFreeIsIgnored) {
   OifSetPtr const set = oifSet();
   RecordPtr record = allocate(set);
   record->doCleanup();
   EXPECT_TRUE(record->deleted());
   std::string const name = cat(*record);
   journal_.take();
   record = nullptr;
   expectSaid(R"(
8 AsyncMtableOifSet::doCleanup()
7 $R oifset $O {et1}
8 AsyncMrouteSwitch::handleFreeMtableOifSet()
7  mt $R oifset $O acceptingVlan  PVs {et1} multicastId 100
2 OifSet is already freed
)",
              set, name);
}

TEST_F(VelAsyncRecords, ARecordThatOutlivesItsSwitchGoesQuietly) {
   RecordPtr held = allocateUsed(oifSet()), zombie = allocateUsed(oifSet());
   Watcher watcher(journal_, zombie);
   zombie = nullptr;  // a zombie that a notifiee keeps beyond its switch
   sw_ = nullptr;
   EXPECT_EQ(held->mrouteSwitch(), nullptr);
   EXPECT_EQ(watcher.notifier()->mrouteSwitch(), nullptr);
   journal_.take();
   held = nullptr;
   watcher.notifierIs(nullptr);
   EXPECT_EQ(journal_.hooks(), "");
}

// ---- Keys. ----

template <class Key>
void expectOrdered(Key const& a, Key const& b) {
   EXPECT_TRUE(a < b && a <= b && b > a && b >= a && a != b);
   EXPECT_FALSE(b < a || b <= a || a > b || a >= b || a == b);
}

TEST(VelAsyncKeys, ZombiesOrderByExpiryThenByMulticastId) {
   std::vector<ZombieKey> const sorted{{9, 1.0}, {0, 1.5}, {0xFFFFFFFF, 1.5}, {0, Qor::never}};
   for (auto a = sorted.begin(); a != sorted.end(); ++a) {
      EXPECT_TRUE(*a == *a && *a <= *a && *a >= *a && !(*a < *a) && !(*a > *a));
      for (auto b = a + 1; b != sorted.end(); ++b)
         expectOrdered(*a, *b);
   }
}

TEST(VelAsyncKeys, RouteKeysOrderByTheirHashAlone) {
   std::vector<InUseRouteHandleKey> keys;
   for (unsigned n = 0; n < 200000; ++n)
      keys.emplace_back(routeKey(), Bridging::VlanIdOrNone(n % 4000), Vel::VrfId(n));
   std::sort(keys.begin(), keys.end(), [](auto& a, auto& b) { return a.hash() < b.hash(); });
   expectOrdered(keys.front(), keys.back());

   auto const twin = std::adjacent_find(keys.begin(), keys.end(),
                                        [](auto& a, auto& b) { return a.hash() == b.hash(); });
   ASSERT_NE(twin, keys.end());
   EXPECT_NE(twin[0], twin[1]);
   EXPECT_TRUE(twin[0] <= twin[1] && twin[1] <= twin[0]);
   EXPECT_TRUE(twin[0] >= twin[1] && twin[1] >= twin[0]);
   EXPECT_FALSE(twin[0] < twin[1] || twin[0] > twin[1]);
}

TEST(VelAsyncKeys, EveryFieldOfARouteKeyCountsInEqualityAndHash) {
   using Bridging::VlanIdOrNone;
   InUseRouteHandleKey const key(routeKey(), VlanIdOrNone(7u), Vel::VrfId(3));
   for (InUseRouteHandleKey const& other :
        {InUseRouteHandleKey(routeKey("10.0.0.3"), VlanIdOrNone(7u), Vel::VrfId(3)),
         InUseRouteHandleKey(routeKey(), VlanIdOrNone(7u + 256), Vel::VrfId(3)),
         InUseRouteHandleKey(routeKey(), VlanIdOrNone(7u), Vel::VrfId(3u + (1u << 24)))}) {
      EXPECT_NE(other, key);
      EXPECT_NE(other.hash(), key.hash());
   }
}

// Reads back what it writes; a text cut short or changed in one place is refused, or says another
// value that is written and read back just as well.
template <class Key>
void expectStrep(Key const& key, std::string const& text) {
   EXPECT_EQ(cat(key), text);
   EXPECT_EQ(Key(text), key);
   EXPECT_THROW(Key(text + " "), Qor::RangeException);
   for (std::size_t at = 0; at < text.size(); ++at) {
      EXPECT_THROW(Key(text.substr(0, at)), Qor::RangeException) << at;
      for (char const c : std::string("\0\xff 9-.'\\x})e", 13)) {
         std::string changed = text;
         changed[at] = c;
         try {
            Key const other(changed);
            EXPECT_EQ(Key(other.strep()), other) << changed;
            EXPECT_EQ(other == key, changed == text) << changed;
         } catch (Qor::RangeException const&) {
         }
      }
   }
}

TEST(VelAsyncKeys, StringFormsReadBackAndRefuseGarbage) {
   auto const zombie = [](char const* id, char const* expiry) {
      return cat("Value('Vel::Mroute::ZombieKey', ** {'multicastId': ", id,
                 ", 'expiryTime': ", expiry, "})");
   };
   auto const inUse = [](IpGenRouteKey const& key, char const* vlan, char const* vrf) {
      return cat("Value('Vel::Mroute::InUseRouteHandleKey', ** {'routeKey': ", key.strep(),
                 ", 'vlan': ", vlan, ", 'vrfId': ", vrf, "})");
   };
   expectStrep(ZombieKey(), zombie("0", "inf"));
   expectStrep(ZombieKey(4294967295u, 12.25), zombie("4294967295", "12.25"));
   expectStrep(InUseRouteHandleKey(), inUse(IpGenRouteKey(), "0", "0"));
   expectStrep(InUseRouteHandleKey(routeKey(), Bridging::VlanIdOrNone(12u), Vel::VrfId(34)),
               inUse(routeKey(), "12", "34"));
   EXPECT_THROW(ZombieKey(zombie("4294967296", "1.0")), Qor::RangeException);
   EXPECT_THROW(ZombieKey(zombie("1", "nan")), Qor::RangeException);
   EXPECT_EQ(rangeText([&] { InUseRouteHandleKey(inUse(routeKey(), "4095", "0")); }),
             "VlanIdOrNone::value > 4094 not allowed");
}

}  // namespace
}  // namespace velAsync
