// Records of the asynchronous programmer and the keys of its collections.
#include <algorithm>
#include <functional>
#include <memory>

#include "VelAsyncRecorder.h"

namespace velAsync {
namespace {

template <class F>
std::string rangeText(F f) {
   try {
      f();
   } catch (Qor::RangeException const& e) {
      return e.what();
   }
   return "no error";
}

struct Watcher final : AsyncMtableOifSet::Notifiee {
   Watcher(Journal& j, std::string n) : journal(j), name(std::move(n)) {}
   void tell(char const* what) { journal.add(cat(name, ' ', what)); }
   void onUsedInHw() override { tell("usedInHw"); }
   void onSkipDelete() override { tell("skipDelete"); }
   void onDeleted() override { tell("deleted"); }
   void onZombie() override { tell("zombie"); }
   void onZombieLifetime() override { tell("zombieLifetime"); }
   void onDirty() override { tell("dirty"); }
   void onZeroReferences() override {
      tell("zeroReferences");
      if (atZeroReferences) atZeroReferences();
   }
   Journal& journal;
   std::string const name;
   std::function<void()> atZeroReferences;
};

class VelAsyncRecords : public VelAsync {};

TEST_F(VelAsyncRecords, AFreshRecordIsNoZombieAndHasNoFlags) {
   OifSetPtr const set = oifSet();
   RecordPtr const record = Vel::Mroute::asyncMtableOifSetFactory(set, true, 77, sw.get());
   EXPECT_EQ(record->oifSet(), set);
   EXPECT_TRUE(record->toCpu());
   EXPECT_EQ(record->multicastId(), 77u);
   EXPECT_EQ(record->mrouteSwitch(), sw.get());
   EXPECT_FALSE(record->usedInHw() || record->skipDelete() || record->deleted() || record->dirty());
   EXPECT_EQ(record->zombie(), ZombieKey(0, Qor::never));
   EXPECT_FALSE(record->zombie().isZombie());
   EXPECT_EQ(record->zombieLifetime(), 3.0);
   EXPECT_EQ(cat(*record), cat("AsyncMtableOifSet(mcastId 77, OifSet#", set->serial(), ")"));
   helper->groups[77] = set;
   EXPECT_EQ(rangeText([] { Qor::ValidPtr<AsyncMtableOifSet>{RecordPtr()}; }), "null ValidPtr");
}

TEST_F(VelAsyncRecords, EveryStoreVisitsTheNotifieesInTheOrderOfBindingWithTheValueStored) {
   RecordPtr const record = allocate(oifSet());
   Watcher a(journal, "a"), b(journal, "b");
   a.notifierIs(record);
   b.notifierIs(record);
   journal.take();
   for (int i = 0; i < 2; ++i) {  // the second time stores equal values
      record->usedInHwIs(true);
      record->skipDeleteIs(false);
      record->deletedIs(false);
      record->zombieIs(ZombieKey(1, 5.0));
      record->zombieLifetimeIs(9.0);
      record->dirtyIs(true);
      EXPECT_EQ(journal.take(),
                (Lines{"a usedInHw", "b usedInHw", "a skipDelete", "b skipDelete", "a deleted",
                       "b deleted", "a zombie", "b zombie", "a zombieLifetime", "b zombieLifetime",
                       "a dirty", "b dirty"}));
   }
   EXPECT_TRUE(record->usedInHw() && record->dirty());
   EXPECT_EQ(record->zombie(), ZombieKey(1, 5.0));
   EXPECT_EQ(record->zombieLifetime(), 9.0);
   record->zombieIs(ZombieKey());
   record->usedInHwIs(false);
}

TEST_F(VelAsyncRecords, ARecordHandsItselfOverOncePerLossInsideTheOperationThatDroppedIt) {
   RecordPtr record = allocateUsed(oifSet());
   RecordPtr second = record;
   journal.take();
   record = nullptr;
   EXPECT_EQ(journal.take(), Lines());
   second = nullptr;  // becomes a zombie, which takes and drops references on the way
   EXPECT_EQ(journal.take("hook"), Lines{"doScheduleVerify"});
   ASSERT_EQ(sw->zombieOifSet().size(), 1u);
   second = sw->zombieOifSet().begin()->second;
   sw->zombieOifSetDel(second->zombie());
   EXPECT_EQ(journal.take(), Lines());
   second = nullptr;
   EXPECT_EQ(journal.take("hook"), (Lines{"doDeleteOifSet 100", "doScheduleVerify"}));
}

TEST_F(VelAsyncRecords, ARecordKeptByANotifieeIsCleanedUpWhenThatLeaves) {
   RecordPtr const other = allocate(oifSet());
   using Leave = std::function<void(std::unique_ptr<Watcher>&)>;
   std::vector<Leave> const ways{
         [](auto& watcher) { watcher->notifierIs(nullptr); },
         [&](auto& watcher) { watcher->notifierIs(other); },
         [](auto& watcher) { watcher = nullptr; },
   };
   for (Leave const& leave : ways) {
      OifSetPtr const set = oifSet();
      RecordPtr record = allocate(set);
      auto watcher = std::make_unique<Watcher>(journal, "a");
      watcher->notifierIs(record);
      auto second = std::make_unique<Watcher>(journal, "b");
      second->notifierIs(record);
      second->hasNotificationActiveIs(false);  // a paused notifiee holds the record, too
      journal.take();
      record = nullptr;
      EXPECT_EQ(journal.take(), Lines{"a zeroReferences"});
      EXPECT_EQ(sw->inUseRecord(set).get(), sw->inUseOifSet(set).get());
      second = nullptr;
      journal.take();
      leave(watcher);
      EXPECT_EQ(journal.take("hook"), (Lines{"doDeleteOifSet 101", "doScheduleVerify"}));
      EXPECT_EQ(sw->inUseRecord(set), nullptr);
   }
   RecordPtr record = allocate(oifSet());  // the notifiee leaves when it is told
   Watcher watcher(journal, "a");
   watcher.atZeroReferences = [&] {
      RecordPtr const temporary(const_cast<AsyncMtableOifSet*>(watcher.notifier()));
      watcher.notifierIs(nullptr);
   };
   watcher.notifierIs(record);
   journal.take();
   record = nullptr;
   EXPECT_EQ(journal.take("hook"), (Lines{"doDeleteOifSet 101", "doScheduleVerify"}));
}

TEST_F(VelAsyncRecords, ASecondFreeIsIgnored) {
   OifSetPtr const set = oifSet();
   RecordPtr record = allocate(set);
   record->doCleanup();
   EXPECT_TRUE(record->deleted());
   std::string const name = cat(*record);
   journal.take();
   record = nullptr;
   EXPECT_EQ(
         journal.take(),
         (Lines{"8 AsyncMtableOifSet::doCleanup()", cat("7 ", name, " oifset ", set, " {et1}"),
                "8 AsyncMrouteSwitch::handleFreeMtableOifSet()",
                cat("7  mt ", name, " oifset ", set, " acceptingVlan  PVs {et1} multicastId 100"),
                "2 OifSet is already freed"}));
}

TEST_F(VelAsyncRecords, ARecordThatOutlivesItsSwitchGoesQuietly) {
   RecordPtr held = allocateUsed(oifSet("et1"));
   RecordPtr zombie = allocateUsed(oifSet("et2"));
   Watcher watcher(journal, "a");
   watcher.notifierIs(zombie);
   zombie = nullptr;  // a zombie that a notifiee keeps beyond its switch
   sw = nullptr;
   EXPECT_EQ(held->mrouteSwitch(), nullptr);
   EXPECT_EQ(watcher.notifier()->mrouteSwitch(), nullptr);
   held->dirtyIs(true);
   journal.take();
   held = nullptr;
   watcher.notifierIs(nullptr);
   EXPECT_EQ(journal.take("hook"), Lines());
}

// ---- Keys. ----

template <class Key>
void expectOrdered(Key const& a, Key const& b) {
   EXPECT_TRUE(a < b && a <= b && b > a && b >= a && a != b);
   EXPECT_FALSE(b < a || b <= a || a > b || a >= b || a == b);
}

TEST(VelAsyncKeys, ZombiesOrderByExpiryThenByMulticastId) {
   std::vector<ZombieKey> const sorted{{9, 1.0},          {0, 1.5},        {1, 1.5},
                                       {0xFFFFFFFF, 1.5}, {0, Qor::never}, {1, Qor::never}};
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
   auto const hashLess = [](auto const& a, auto const& b) { return a.hash() < b.hash(); };
   std::sort(keys.begin(), keys.end(), hashLess);
   expectOrdered(keys.front(), keys.back());

   auto const twin = std::adjacent_find(keys.begin(), keys.end(), [](auto const& a, auto const& b) {
      return a.hash() == b.hash();
   });
   ASSERT_NE(twin, keys.end());
   InUseRouteHandleKey const a = twin[0], b = twin[1];
   EXPECT_NE(a, b);
   EXPECT_TRUE(a <= b && b <= a && a >= b && b >= a);
   EXPECT_FALSE(a < b || b < a || a > b || b > a);
   Qor::HashMap<InUseRouteHandleKey, int> map;
   map.insert(a, 1);
   map.insert(b, 2);
   EXPECT_EQ(map.take(a), 1);
   EXPECT_EQ(map.find(b)->second, 2);
}

TEST(VelAsyncKeys, EveryFieldOfARouteKeyCountsInEqualityAndHash) {
   using Bridging::VlanIdOrNone;
   std::vector<InUseRouteHandleKey> const keys{
         {routeKey(), VlanIdOrNone(7u), Vel::VrfId(3)},
         {routeKey("10.0.0.3"), VlanIdOrNone(7u), Vel::VrfId(3)},
         {routeKey("10.0.0.2", "239.1.1.2"), VlanIdOrNone(7u), Vel::VrfId(3)},
         {routeKey(), VlanIdOrNone(7u + 256), Vel::VrfId(3)},
         {routeKey(), VlanIdOrNone(), Vel::VrfId(3)},
         {routeKey(), VlanIdOrNone(7u), Vel::VrfId(3u + (1u << 24))},
   };
   for (std::size_t i = 0; i < keys.size(); ++i) {
      for (std::size_t j = 0; j < keys.size(); ++j) {
         EXPECT_EQ(keys[i] == keys[j], i == j);
         EXPECT_EQ(keys[i].hash() == keys[j].hash(), i == j);
      }
   }
}

// Reads back what it writes; a text cut short or changed in one place is refused, or says another
// value that is written and read back just as well.
template <class Key>
void expectStrep(Key const& key, std::string const& text) {
   EXPECT_EQ(key.strep(), text);
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
   expectStrep(ZombieKey(),
               "Value('Vel::Mroute::ZombieKey', ** {'multicastId': 0, "
               "'expiryTime': inf})");
   expectStrep(ZombieKey(4294967295u, 12.25),
               "Value('Vel::Mroute::ZombieKey', ** {'multicastId': "
               "4294967295, 'expiryTime': 12.25})");
   expectStrep(InUseRouteHandleKey(routeKey(), Bridging::VlanIdOrNone(12u), Vel::VrfId(34)),
               cat("Value('Vel::Mroute::InUseRouteHandleKey', ** {'routeKey': ", routeKey().strep(),
                   ", 'vlan': 12, 'vrfId': 34})"));
   expectStrep(InUseRouteHandleKey(), cat("Value('Vel::Mroute::InUseRouteHandleKey', ** "
                                          "{'routeKey': ",
                                          IpGenRouteKey().strep(), ", 'vlan': 0, 'vrfId': 0})"));
   for (char const* bad : {"",
                           "Value('Vel::Mroute::ZombieKey', ** {'multicastId': 4294967296, "
                           "'expiryTime': 1.0})",
                           "Value('Vel::Mroute::ZombieKey', ** {'multicastId': 1, "
                           "'expiryTime': nan})"})
      EXPECT_THROW(ZombieKey{Qor::String(bad)}, Qor::RangeException) << bad;
   EXPECT_EQ(rangeText([] {
                InUseRouteHandleKey(
                      cat("Value('Vel::Mroute::InUseRouteHandleKey', ** "
                          "{'routeKey': ",
                          routeKey().strep(), ", 'vlan': 4095, 'vrfId': 0})"));
             }),
             "VlanIdOrNone::value > 4094 not allowed");
}

}  // namespace
}  // namespace velAsync
