// Freeing records: kept, made zombies or freed; zombies; and the end of the switch.
#include <functional>

#include "Qor/Type.h"
#include "VelAsyncTestSupport.h"

namespace velAsync {
namespace {

// Adds a line for each notification of a record's collections, then calls the test's `then`.
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
      OifSetPtr const set = oifSet("et9");
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
   std::string const name = cat("AsyncMtableOifSet(mcastId 100, ", set, ')');
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
      EXPECT_EQ(helper_->groups.empty(), !recordDeleted && !waits);
      EXPECT_EQ(sw_->zombieOifSet(ZombieKey(100, 1.0)) != nullptr, waits);
      bool const entriesStay = recordDeleted || switchDeleted || waits;
      EXPECT_EQ(sw_->inUseOifSet().size() + sw_->mcastIdToOifSet().size(), entriesStay ? 2u : 0u);
      if (recordDeleted) {
         expectLines("2 OifSet is already freed");
      } else if (switchDeleted) {
         expectLines("2 MrouteSwitch deletion, skipping delayed deletion");
      }
      begin();
   }
}

// A follower does not keep a record from being freed, and is notified while that goes on.
TEST_F(VelAsyncFreeing, AFollowerNeitherShiftsAZombiesTimeNorHasAResurrectedRecordWait) {
   for (bool const resurrects : {false, true}) {
      OifSetPtr const set = oifSet();
      RecordPtr record = allocateUsed(set), resurrected;
      Qor::Following const follower(Qor::toGeneric(record), [&](Qor::Change const& change) {
         if (change.member == "usedInHw") time_->advance(1);
         if (change.member == "zombie" && resurrects && !resurrected) resurrected = allocate(set);
      });
      record = nullptr;
      EXPECT_EQ(sw_->zombieOifSet(ZombieKey(100, 3.0)) != nullptr, !resurrects);
      EXPECT_EQ(sw_->inUseRecord(set)->zombie().isZombie(), !resurrects);
      EXPECT_EQ(sw_->zombieOifSet().size(), resurrects ? 0u : 1u);
      sw_->zombieOifSetDelAll();
   }
}

TEST_F(VelAsyncFreeing, ANewerRecordKeepsItsEntriesWheneverItIsMade) {
   for (char const* moment : {"before", "inUseOifSet", "frrMtableOifSet", "frrProcessingOifSet"}) {
      SCOPED_TRACE(moment);
      RecordPtr older = allocateEverywhere(), newer;
      OifSetPtr const set = older->oifSet();
      older->dirtyIs(true);
      auto const makeNewer = [&](std::string const& what) {
         if (newer || what != moment) return;
         newer = allocate(set);
         sw_->frrProcessingOifSetIs(set, newer.get());
      };
      Watcher watcher(journal_);
      watcher.then = makeNewer;
      watcher.notifierIs(sw_);
      makeNewer("before");
      older = nullptr;
      ASSERT_TRUE(newer);
      EXPECT_EQ(sw_->inUseRecord(set), newer);
      EXPECT_EQ(sw_->frrProcessingOifSet(set), newer);
      EXPECT_TRUE(frrRecord(set) == newer || newer->multicastId() == 101);
      EXPECT_EQ(sw_->mcastIdToOifSet(100), set);  // kept until the id carries another set
   }
}

// ---- Removing zombies, and the end of the switch. ----

TEST_F(VelAsyncFreeing, AWalkGoesOnThoughAHandlerRemovesEntries) {
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
   EXPECT_EQ(errorText([&] { sw_->zombieOifSetIs(nullptr); }),
             "null _zombieOifSet parameter to mutator for "
             "Vel::Mroute::AsyncMrouteSwitch::zombieOifSet not allowed\"");
}

TEST_F(VelAsyncFreeing, TheEndOfTheSwitchFreesRecordsWithoutAnotherHolderAndMakesNoZombie) {
   makeZombies(3);
   AsyncMtableOifSet::Notifiee keeper;
   keeper.notifierIs(sw_->zombieOifSet(ZombieKey(101, 3.0)));
   RecordPtr held = allocateUsed(oifSet());
   doAllocate(oifSet());
   result()->usedInHwIs(true);
   // A listener keeps the switch alive; the records that the switch released are freed even so.
   struct Listener final : MrouteLib::SwitchChipBase::Notifiee {
      void onMtableOifSet() override { kept = notifier(); }
      Qor::Ptr<MrouteLib::SwitchChipBase const> kept;
   } listener;
   listener.notifierIs(sw_.get());
   EXPECT_TRUE(sw_->hasNotifiees());  // on a level of its interface
   sw_ = nullptr;
   EXPECT_EQ(helper_->groups.size(), 2u);
   EXPECT_NE(held->mrouteSwitch(), nullptr);
   listener.notifierIs(nullptr);
   listener.kept = nullptr;
   EXPECT_EQ(held->mrouteSwitch(), nullptr);
   held = nullptr;
   EXPECT_EQ(helper_->groups.size(), 2u);  // of the records that outlived the switch
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
      address->zombieOifSetDel(ZombieKey(100, 3.0));
      if (sw_) address->zombieOifSetDelAll();
      EXPECT_EQ(watcher.notifier(), nullptr);
      EXPECT_TRUE(helper_->groups.empty());
      begin();
   }
}

}  // namespace
}  // namespace velAsync
