// Freeing records: what becomes of them, zombies, and the end of the switch.
#include <functional>

#include "VelAsyncRecorder.h"

namespace velAsync {
namespace {

// Tells the journal about the collections of freeing, and does what a test asks when it is told.
struct Watcher final : AsyncMrouteSwitch::Notifiee {
   explicit Watcher(Journal& j) : journal(j) {}
   void tell(char const* what) {
      journal.add(cat("told ", what));
      if (then) then(what);
   }
   void onMcastIdToOifSet(Qor::U32) override { tell("mcastIdToOifSet"); }
   void onInUseOifSet(OifSetPtr const&) override { tell("inUseOifSet"); }
   void onZombieOifSet(ZombieKey const&) override { tell("zombieOifSet"); }
   void onZombieOifSetImmediate() override { tell("zombieOifSetImmediate"); }
   void onFrrMtableOifSet(OifSetPtr const&) override { tell("frrMtableOifSet"); }
   void onFrrProcessingOifSet(OifSetPtr const&) override { tell("frrProcessingOifSet"); }
   Journal& journal;
   std::function<void(std::string const&)> then;
};

class VelAsyncFreeing : public VelAsync {
 protected:
   // A record that all collections name.
   RecordPtr allocateEverywhere() {
      OifSetPtr const set = oifSet("et1", "et9");
      RecordPtr const record = allocate(set);
      sw_->frrProcessingOifSetIs(set, record.get());
      return record;
   }
   // Zombies with the lowest free ids that expire in the order of their ids.
   void makeZombies(unsigned count) {
      std::vector<RecordPtr> records;
      while (records.size() < count)
         records.push_back(allocateUsed(oifSet()));
   }
};

TEST_F(VelAsyncFreeing, ASetThatNoRouteWasPointedAtGoesAtOnceWithAllItsEntries) {
   RecordPtr record = allocateEverywhere();
   OifSetPtr const set = record->oifSet();
   std::string const name = cat(*record);
   Watcher watcher(journal_);
   watcher.notifierIs(sw_);
   journal_.take();
   record = nullptr;
   expectSaid(R"(
8 AsyncMtableOifSet::doCleanup()
7 $R oifset $O {et1 iif et9}
8 AsyncMrouteSwitch::handleFreeMtableOifSet()
7  mt $R oifset $O acceptingVlan et9 PVs {et1 iif et9} multicastId 100
2 OifSet $O not used in hw, skipping delayed deletion
2 Freeing oifSet resources
hook doDeleteOifSet 100
2 Delete oifset $O
told inUseOifSet
told frrMtableOifSet
told frrProcessingOifSet
told mcastIdToOifSet
hook doScheduleVerify
)",
              set, name);
}

TEST_F(VelAsyncFreeing, AUsedSetWaitsAsAZombieAndIsFreedByItsPurge) {
   OifSetPtr const set = oifSet();
   RecordPtr record = allocateUsed(set);
   std::string const name = cat(*record);
   Watcher watcher(journal_);
   watcher.notifierIs(sw_);
   pass(4.5);
   journal_.take();
   record = nullptr;
   expectSaid(R"(
8 AsyncMtableOifSet::doCleanup()
7 $R oifset $O {et1}
8 AsyncMrouteSwitch::handleFreeMtableOifSet()
7  mt $R oifset $O acceptingVlan  PVs {et1} multicastId 100
2 Adding zombie $R with mcastId: 100
told zombieOifSet
hook doScheduleVerify
)",
              set, name);
   AsyncMtableOifSet const* const zombie = sw_->zombieOifSet(ZombieKey(100, 7.5)).get();
   journal_.take();
   EXPECT_EQ(zombie->zombie(), ZombieKey(100, 7.5));
   EXPECT_FALSE(zombie->usedInHw() || zombie->deleted());
   EXPECT_EQ(sw_->inUseOifSet(set).get(), zombie);
   EXPECT_EQ(sw_->mcastIdToOifSet(100), set);

   sw_->zombieOifSetDel(ZombieKey(100, 7.5));
   expectSaid(R"(
told zombieOifSet
8 AsyncMtableOifSet::doCleanup()
7 $R oifset $O {et1}
8 AsyncMrouteSwitch::handleFreeMtableOifSet()
7  mt $R oifset $O acceptingVlan  PVs {et1} multicastId 100
2 Freeing zombie oifSet
2 Freeing oifSet resources
hook doDeleteOifSet 100
2 Delete oifset $O
told inUseOifSet
told mcastIdToOifSet
hook doScheduleVerify
)",
              set, name);
}

TEST_F(VelAsyncFreeing, TheFirstMatchingRowDecides) {
   for (unsigned row = 0; row < 16; ++row) {
      bool const recordDeleted = row & 8, switchDeleted = row & 4, zombie = row & 2, used = row & 1;
      SCOPED_TRACE(row);
      RecordPtr record = allocate(oifSet());
      record->usedInHwIs(used);
      record->zombieLifetimeIs(1.0);
      if (zombie) record->zombieIs(ZombieKey(100, 50.0));
      record->deletedIs(recordDeleted);
      sw_->deletedIs(switchDeleted);
      journal_.take();
      record = nullptr;
      bool const waits = !recordDeleted && !switchDeleted && !zombie && used;
      EXPECT_EQ(journal_.hooks(), recordDeleted ? ""
                                  : waits       ? "doScheduleVerify; "
                                                : "doDeleteOifSet 100; doScheduleVerify; ");
      EXPECT_EQ(sw_->zombieOifSet(ZombieKey(100, 1.0)) != nullptr, waits);
      bool const entriesStay = recordDeleted || switchDeleted || waits;
      EXPECT_EQ(sw_->inUseOifSet().size() + sw_->mcastIdToOifSet().size(), entriesStay ? 2u : 0u);
      sw_->deletedIs(false);
      sw_->zombieOifSetDelAll();
      sw_->inUseOifSetDelAll();
      sw_->mcastIdToOifSetDelAll();
      helper_->groups.clear();
   }
   RecordPtr record = allocateUsed(oifSet());
   sw_->deletedIs(true);
   record = nullptr;
   EXPECT_NE(journal_.take().find("2 MrouteSwitch deletion, skipping delayed deletion\n"
                                  "2 Freeing oifSet resources\n"),
             std::string::npos);
}

TEST_F(VelAsyncFreeing, ARecordWhoseGroupWasTakenOverGoesWithoutAHardwareDelete) {
   helper_->fixedTypes = {RouteKeyType::bridged};
   RecordPtr record = allocate(oifSet("et1", "", RouteKeyType::bridged), 40);
   record->skipDeleteIs(true);
   journal_.take();
   record = nullptr;
   EXPECT_EQ(journal_.hooks(), "needFixedOifSet bridged; doScheduleVerify; ");
   EXPECT_TRUE(sw_->inUseOifSet().empty() && sw_->mcastIdToOifSet().empty());
}

TEST_F(VelAsyncFreeing, ANewerRecordsEntriesSurviveTheOldersEnd) {
   RecordPtr older = allocateEverywhere();
   OifSetPtr const set = older->oifSet();
   older->dirtyIs(true);
   RecordPtr const newer = allocate(set);
   sw_->frrProcessingOifSetIs(set, newer.get());
   journal_.take();
   older = nullptr;
   EXPECT_EQ(journal_.hooks(), "doDeleteOifSet 100; doScheduleVerify; ");
   EXPECT_EQ(sw_->inUseOifSet(set).get(), newer.get());
   EXPECT_EQ(sw_->frrProcessingOifSet(set).get(), newer.get());
   EXPECT_EQ(sw_->mcastIdToOifSet(101), set);
   EXPECT_EQ(sw_->mcastIdToOifSet(100), set);  // kept until the id carries another set
}

TEST_F(VelAsyncFreeing, ARecordMadeWhileTheOlderOneIsFreedKeepsItsEntries) {
   for (char const* moment : {"inUseOifSet", "frrMtableOifSet", "frrProcessingOifSet"}) {
      SCOPED_TRACE(moment);
      RecordPtr older = allocateEverywhere(), newer;
      OifSetPtr const set = older->oifSet();
      Watcher watcher(journal_);
      watcher.then = [&](std::string const& what) {
         if (!newer && what == moment) newer = allocate(set);
      };
      watcher.notifierIs(sw_);
      older = nullptr;
      ASSERT_TRUE(newer);
      EXPECT_EQ(sw_->inUseRecord(set), newer);
      EXPECT_EQ(frrRecord(set), newer);
      EXPECT_EQ(sw_->mcastIdToOifSet(100), set);
   }
}

// ---- Removing zombies, and the end of the switch. ----

TEST_F(VelAsyncFreeing, AWalkGoesOnWhateverAHandlerRemovesAndDeletingAllTellsOnce) {
   makeZombies(6);
   Watcher watcher(journal_);
   watcher.notifierIs(sw_);
   // The first to go takes along the one before it, the next, and the last.
   watcher.then = [&](std::string const&) {
      watcher.then = nullptr;
      for (Qor::U32 const id : {100u, 102u, 105u})
         sw_->zombieOifSetDel(ZombieKey(id, 3.0));
   };
   unsigned steps = 0;
   for (auto it = ++sw_->zombieOifSet().begin(); it != sw_->zombieOifSet().end(); ++steps)
      it = sw_->zombieOifSetDel(it);
   EXPECT_EQ(steps, 3u);  // 101, 103, 104
   EXPECT_TRUE(sw_->zombieOifSet().empty() && helper_->groups.empty());

   makeZombies(2);
   journal_.take();
   sw_->zombieOifSetDelAll();
   EXPECT_TRUE(journal_.take().starts_with("\ntold zombieOifSetImmediate\n8 "));
   EXPECT_TRUE(helper_->groups.empty() && sw_->inUseOifSet().empty());
   sw_->zombieOifSetDelAll();
   EXPECT_EQ(journal_.take(), "\n");
}

TEST_F(VelAsyncFreeing, ARecordEntersTheZombiesUnderItsOwnKeyAndNoneIsRefused) {
   RecordPtr const record = allocate(oifSet());
   record->zombieIs(ZombieKey(100, 8.0));
   EXPECT_EQ(sw_->newZombieOifSet(record), record);
   EXPECT_EQ(sw_->zombieOifSet(ZombieKey(100, 8.0)), record);
   EXPECT_EQ(rangeText([&] { sw_->zombieOifSetIs(nullptr); }),
             "null _zombieOifSet parameter to mutator for "
             "Vel::Mroute::AsyncMrouteSwitch::zombieOifSet not allowed\"");
}

TEST_F(VelAsyncFreeing, TheEndOfTheSwitchFreesWhatNobodyElseHoldsAndMakesNoZombie) {
   makeZombies(2);
   RecordPtr held = allocateUsed(oifSet());
   doAllocate(oifSet());
   Qor::ptrCast<AsyncMtableOifSet>(sw_->mtableOifSet())->usedInHwIs(true);
   // A listener keeps the switch from going: what it had to let go of is gone all the same.
   struct Listener final : MrouteLib::SwitchChipBase::Notifiee {
      void onMtableOifSet() override { kept = notifier(); }
      Qor::Ptr<MrouteLib::SwitchChipBase const> kept;
   } listener;
   listener.notifierIs(sw_.get());
   sw_ = nullptr;
   EXPECT_EQ(helper_->groups.size(), 1u);
   EXPECT_NE(held->mrouteSwitch(), nullptr);
   listener.notifierIs(nullptr);
   listener.kept = nullptr;
   EXPECT_EQ(held->mrouteSwitch(), nullptr);
   held = nullptr;
   EXPECT_EQ(helper_->groups.size(), 1u);  // of the record that outlived the switch
}

TEST_F(VelAsyncFreeing, TheSwitchMayGoInsideAnyNotificationOfAFree) {
   for (char const* moment : {"zombieOifSet", "inUseOifSet", "frrMtableOifSet",
                              "frrProcessingOifSet", "mcastIdToOifSet", "zombieOifSetImmediate"}) {
      SCOPED_TRACE(moment);
      allocateEverywhere()->usedInHwIs(true);
      makeZombies(2);
      Watcher watcher(journal_);
      watcher.notifierIs(sw_);
      watcher.then = [&](std::string const& what) {
         if (what == moment) sw_ = nullptr;
      };
      AsyncMrouteSwitch* const address = sw_.get();
      if (moment == std::string("zombieOifSetImmediate")) {
         address->zombieOifSetDelAll();
      } else {
         address->zombieOifSetDel(ZombieKey(100, 3.0));
      }
      EXPECT_EQ(watcher.notifier(), nullptr);
      EXPECT_TRUE(helper_->groups.empty());
      SetUp();
   }
}

}  // namespace
}  // namespace velAsync
