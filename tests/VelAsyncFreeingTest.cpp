// Freeing records: what becomes of them, zombies, and the end of the switch.
#include <functional>

#include "VelAsyncRecorder.h"

namespace velAsync {
namespace {

// Tells the journal about the collections of freeing, and does what a test asks when it is told.
struct Watcher final : AsyncMrouteSwitch::Notifiee {
   explicit Watcher(Journal& j) : journal(j) {}
   void tell(std::string what) {
      journal.add("note " + what);
      if (then) then(what);
   }
   void onDeleted() override { tell("deleted"); }
   void onMcastIdToOifSet(Qor::U32 id) override { tell(cat("mcastIdToOifSet ", id)); }
   void onInUseOifSet(OifSetPtr const& set) override { tell(cat("inUseOifSet ", set)); }
   void onZombieOifSet(ZombieKey const& key) override {
      tell(cat("zombieOifSet ", key.multicastId(), ' ', key.expiryTime()));
   }
   void onZombieOifSetImmediate() override { tell("zombieOifSetImmediate"); }
   void onFrrMtableOifSet(OifSetPtr const& set) override { tell(cat("frrMtableOifSet ", set)); }
   void onFrrProcessingOifSet(OifSetPtr const& set) override {
      tell(cat("frrProcessingOifSet ", set));
   }
   Journal& journal;
   std::function<void(std::string const&)> then;
};

class VelAsyncFreeing : public VelAsync {
 protected:
   Lines const justFreed{"doDeleteOifSet 100", "doScheduleVerify"};

   OifSetPtr frrSet() { return oifSet("et1", RouteKeyType::sourceGroup, "et9"); }
   static Lines entry(std::string const& record, OifSetPtr const& set, char const* iif = "") {
      std::string const members = set->portVlanSet().pretty();
      return {"8 AsyncMtableOifSet::doCleanup()", cat("7 ", record, " oifset ", set, ' ', members),
              "8 AsyncMrouteSwitch::handleFreeMtableOifSet()",
              cat("7  mt ", record, " oifset ", set, " acceptingVlan ", iif, " PVs ", members,
                  " multicastId 100")};
   }
   static Lines join(Lines a, Lines const& b) {
      a.insert(a.end(), b.begin(), b.end());
      return a;
   }
};

TEST_F(VelAsyncFreeing, ASetThatNoRouteWasPointedAtGoesAtOnceWithAllItsEntries) {
   OifSetPtr const set = frrSet();
   RecordPtr record = allocate(set);
   sw->frrProcessingOifSetIs(set, record.get());
   std::string const name = cat(*record);
   Watcher watcher(journal);
   watcher.notifierIs(sw);
   journal.take();
   record = nullptr;
   EXPECT_EQ(journal.take(),
             join(entry(name, set, "et9"),
                  {cat("2 OifSet ", set, " not used in hw, skipping delayed deletion"),
                   "2 Freeing oifSet resources", "hook doDeleteOifSet 100",
                   cat("2 Delete oifset ", set), cat("note inUseOifSet ", set),
                   cat("note frrMtableOifSet ", set), cat("note frrProcessingOifSet ", set),
                   "note mcastIdToOifSet 100", "hook doScheduleVerify"}));
}

TEST_F(VelAsyncFreeing, AUsedSetWaitsAsAZombieAndIsFreedByItsPurge) {
   OifSetPtr const set = frrSet();
   RecordPtr record = allocateUsed(set);
   std::string const name = cat(*record);
   sw->frrProcessingOifSetIs(set, record.get());
   Watcher watcher(journal);
   watcher.notifierIs(sw);
   pass(4.5);
   journal.take();
   record = nullptr;
   EXPECT_EQ(journal.take(),
             join(entry(name, set, "et9"), {cat("2 Adding zombie ", name, " with mcastId: 100"),
                                            "note zombieOifSet 100 7.5", "hook doScheduleVerify"}));
   AsyncMtableOifSet const& zombie = *sw->zombieOifSet().begin()->second;
   EXPECT_EQ(zombie.zombie(), ZombieKey(100, 7.5));
   EXPECT_FALSE(zombie.usedInHw() || zombie.deleted());
   EXPECT_EQ(sw->inUseOifSet(set).get(), &zombie);
   EXPECT_EQ(frrRecord(set), &zombie);
   EXPECT_EQ(sw->mcastIdToOifSet(100), set);

   sw->zombieOifSetDel(ZombieKey(100, 7.5));
   EXPECT_EQ(journal.take(), join(join({"note zombieOifSet 100 7.5"}, entry(name, set, "et9")),
                                  {"2 Freeing zombie oifSet", "2 Freeing oifSet resources",
                                   "hook doDeleteOifSet 100", cat("2 Delete oifset ", set),
                                   cat("note inUseOifSet ", set), cat("note frrMtableOifSet ", set),
                                   cat("note frrProcessingOifSet ", set),
                                   "note mcastIdToOifSet 100", "hook doScheduleVerify"}));
}

TEST_F(VelAsyncFreeing, TheFirstMatchingRowDecides) {
   for (unsigned row = 0; row < 16; ++row) {
      bool const recordDeleted = row & 8, switchDeleted = row & 4, zombie = row & 2, used = row & 1;
      SCOPED_TRACE(row);
      OifSetPtr const set = oifSet();
      RecordPtr record = allocate(set);
      record->usedInHwIs(used);
      record->zombieLifetimeIs(1.0);
      if (zombie) record->zombieIs(ZombieKey(100, 50.0));
      record->deletedIs(recordDeleted);
      sw->deletedIs(switchDeleted);
      journal.take();
      AsyncMtableOifSet const* const address = record.get();
      record = nullptr;
      bool const nothing = recordDeleted,
                 becomesZombie = !recordDeleted && !switchDeleted && !zombie && used;
      EXPECT_EQ(journal.take("hook"), nothing         ? Lines()
                                      : becomesZombie ? Lines{"doScheduleVerify"}
                                                      : justFreed);
      EXPECT_EQ(sw->zombieOifSet(ZombieKey(100, 1.0)).get(), becomesZombie ? address : nullptr);
      bool const entriesStay = nothing || switchDeleted || becomesZombie;
      EXPECT_EQ(sw->inUseOifSet().size() + sw->mcastIdToOifSet().size(), entriesStay ? 2u : 0u);
      sw->deletedIs(false);
      sw->zombieOifSetDelAll();
      sw->inUseOifSetDelAll();
      sw->mcastIdToOifSetDelAll();
      helper->groups.clear();
   }
   RecordPtr record = allocateUsed(oifSet());
   sw->deletedIs(true);
   journal.take();
   record = nullptr;
   Lines const told = journal.take("2");
   EXPECT_EQ(told, (Lines{"MrouteSwitch deletion, skipping delayed deletion",
                          "Freeing oifSet resources"}));
}

TEST_F(VelAsyncFreeing, ARecordWhoseGroupWasTakenOverGoesWithoutAHardwareDelete) {
   helper->fixedTypes = {RouteKeyType::bridged};
   RecordPtr record = allocate(oifSet("et1", RouteKeyType::bridged), 40);
   record->skipDeleteIs(true);
   journal.take();
   record = nullptr;
   EXPECT_EQ(journal.take("hook"), (Lines{"needFixedOifSet bridged", "doScheduleVerify"}));
   EXPECT_TRUE(sw->inUseOifSet().empty() && sw->mcastIdToOifSet().empty());
}

TEST_F(VelAsyncFreeing, ANewerRecordsEntriesSurviveTheOldersEnd) {
   OifSetPtr const set = frrSet();
   RecordPtr older = allocate(set);
   older->dirtyIs(true);
   RecordPtr const newer = allocate(set);
   sw->frrProcessingOifSetIs(set, newer.get());
   journal.take();
   older = nullptr;
   EXPECT_EQ(journal.take("hook"), justFreed);
   EXPECT_EQ(sw->inUseOifSet(set).get(), newer.get());
   EXPECT_EQ(sw->frrProcessingOifSet(set).get(), newer.get());
   EXPECT_EQ(sw->mcastIdToOifSet(101), set);
   EXPECT_EQ(sw->mcastIdToOifSet(100), set);  // kept until the id carries another set
}

TEST_F(VelAsyncFreeing, ARecordMadeWhileTheOlderOneIsFreedKeepsItsEntries) {
   for (char const* moment : {"inUseOifSet", "frrMtableOifSet", "frrProcessingOifSet"}) {
      OifSetPtr const set = frrSet();
      RecordPtr older = allocate(set), newer;
      sw->frrProcessingOifSetIs(set, older.get());
      Watcher watcher(journal);
      watcher.then = [&](std::string const& what) {
         if (!newer && what.starts_with(moment)) newer = allocate(set);
      };
      watcher.notifierIs(sw);
      older = nullptr;
      ASSERT_TRUE(newer) << moment;
      EXPECT_EQ(sw->inUseRecord(set), newer);
      EXPECT_EQ(sw->record(set, sw->frrMtableOifSet(set)), newer) << moment;
      EXPECT_EQ(sw->mcastIdToOifSet(100), set) << moment;
      watcher.then = nullptr;
   }
}

// ---- Removing zombies. ----

class VelAsyncZombies : public VelAsyncFreeing {
 protected:
   // Zombies with the ids 100, 101, ... that expire in the order of their ids.
   void makeZombies(unsigned count) {
      std::vector<RecordPtr> records;
      for (unsigned i = 0; i < count; ++i)
         records.push_back(allocateUsed(oifSet()));
      for (RecordPtr& record : records)
         record = nullptr;
      journal.take();
   }
};

TEST_F(VelAsyncZombies, TheOneThatExpiresFirstIsFirst) {
   RecordPtr late = allocateUsed(oifSet()), early = allocateUsed(oifSet()),
             sameTime = allocateUsed(oifSet());
   late->zombieLifetimeIs(3.5);
   late = nullptr;
   sameTime = nullptr;
   early = nullptr;
   Lines keys;
   for (auto const& [key, record] : sw->zombieOifSet())
      keys.push_back(cat(key.multicastId(), ' ', key.expiryTime()));
   EXPECT_EQ(keys, (Lines{"101 3", "102 3", "100 3.5"}));
}

TEST_F(VelAsyncZombies, DeletingAllTellsOnceAndFreesEach) {
   makeZombies(2);
   Watcher watcher(journal);
   watcher.notifierIs(sw);
   sw->zombieOifSetDelAll();
   EXPECT_EQ(journal.take("note").front(), "zombieOifSetImmediate");
   EXPECT_TRUE(helper->groups.empty() && sw->inUseOifSet().empty());
   sw->zombieOifSetDelAll();
   EXPECT_EQ(journal.take(), Lines());
}

TEST_F(VelAsyncZombies, AWalkGoesOnWhateverAHandlerRemoves) {
   makeZombies(6);
   Watcher watcher(journal);
   watcher.notifierIs(sw);
   // The handler of 101 removes the one before, the next, and the last.
   watcher.then = [&](std::string const& what) {
      if (what.starts_with("zombieOifSet 101")) {
         for (Qor::U32 const id : {100u, 102u, 105u})
            sw->zombieOifSetDel(ZombieKey(id, 3.0));
      }
   };
   auto it = sw->zombieOifSet().begin();
   ++it;
   unsigned steps = 0;
   for (; it != sw->zombieOifSet().end(); ++steps)
      it = sw->zombieOifSetDel(it);
   EXPECT_EQ(steps, 3u);  // 101, 103, 104
   EXPECT_TRUE(sw->zombieOifSet().empty() && helper->groups.empty());
}

TEST_F(VelAsyncZombies, ARecordThatIsNoneIsRefused) {
   std::string text;
   try {
      sw->zombieOifSetIs(nullptr);
   } catch (Qor::RangeException const& e) {
      text = e.what();
   }
   EXPECT_EQ(text,
             "null _zombieOifSet parameter to mutator for "
             "Vel::Mroute::AsyncMrouteSwitch::zombieOifSet not allowed\"");
   RecordPtr const record = allocate(oifSet());
   record->zombieIs(ZombieKey(100, 8.0));
   EXPECT_EQ(sw->newZombieOifSet(record), record);
   EXPECT_EQ(sw->zombieOifSet(ZombieKey(100, 8.0)), record);
}

// ---- The end of the switch. ----

TEST_F(VelAsyncZombies, TheEndOfTheSwitchFreesWhatNobodyElseHoldsAndMakesNoZombie) {
   makeZombies(2);
   RecordPtr held = allocateUsed(oifSet());
   doAllocate(oifSet());
   sw->doSetMtableOifSet(allocateRoute(), sw->mtableOifSet(), nullptr);
   helper->routes.clear();
   journal.take();
   sw = nullptr;
   EXPECT_EQ(journal.take("hook").size(), 6u);  // a delete and a verify each
   EXPECT_EQ(helper->groups.size(), 1u);
   held = nullptr;
   EXPECT_EQ(helper->groups.size(), 1u);  // of the record that outlived the switch
}

// A listener of the base of the switch takes a reference at its very end.
TEST_F(VelAsyncZombies, AListenerMayTakeAReferenceToASwitchThatIsGoing) {
   struct Listener final : MrouteLib::SwitchChipBase::Notifiee {
      void onMtableOifSet() override {
         last = 1 + Qor::Ptr<MrouteLib::SwitchChipBase const>(notifier())->switchId();
      }
      Qor::U32 last = 0;
   } listener;
   listener.notifierIs(sw.get());
   makeZombies(1);
   doAllocate(oifSet());
   sw = nullptr;
   EXPECT_EQ(listener.notifier(), nullptr);
   EXPECT_TRUE(helper->groups.empty());
}

TEST_F(VelAsyncZombies, TheSwitchMayGoInsideAnyNotificationOfAFree) {
   // What is told, in the order in which a purge tells it; and deleting all at once.
   for (char const* moment : {"zombieOifSet ", "inUseOifSet", "frrMtableOifSet",
                              "frrProcessingOifSet", "mcastIdToOifSet", "zombieOifSetImmediate"}) {
      SCOPED_TRACE(moment);
      OifSetPtr const set = frrSet();
      RecordPtr record = allocateUsed(set);
      sw->frrProcessingOifSetIs(set, record.get());
      record = nullptr;
      makeZombies(2);
      Watcher watcher(journal);
      watcher.notifierIs(sw);
      watcher.then = [&](std::string const& what) {
         if (what.starts_with(moment)) sw = nullptr;
      };
      AsyncMrouteSwitch* const address = sw.get();
      if (moment == std::string("zombieOifSetImmediate")) {
         address->zombieOifSetDelAll();
      } else {
         address->zombieOifSetDel(address->zombieOifSet().begin()->first);
      }
      EXPECT_EQ(watcher.notifier(), nullptr);
      EXPECT_TRUE(helper->groups.empty());
      helper->groups.clear();
      SetUp();
   }
}

}  // namespace
}  // namespace velAsync
