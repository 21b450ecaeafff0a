// Allocating oif sets: sharing, resurrection, fixed groups, traces and hook calls.
#include <cstdlib>

#include "VelAsyncTestSupport.h"

namespace velAsync {
namespace {

class VelAsyncAllocation : public VelAsync {};

TEST_F(VelAsyncAllocation, ANewSetGetsAGroupAndTheSecondRouteSharesIt) {
   OifSetPtr const set = oifSet();
   EXPECT_TRUE(doAllocate(set, 5, true, Qor::make<Hux::Xact>()));
   RecordPtr const record = result();
   expectSaid(R"(
8 AsyncMrouteSwitch::doAllocateMtableOifSet( (10.0.0.2, 239.1.1.1) vrf default vlan 7 routed, $O, blockingXact set, presetMulticastId 5, frrRoute 1 )
7  oifset $O {et1}
hook needFixedOifSet routed
hook doAllocateSharableMulticastGroup (10.0.0.2, 239.1.1.1) $O blocked 1
2 mtableOifSet $R oifSet $O mcastId 100
hook doScheduleVerify
hook doGetXactForOifSet 100
)",
              set, cat(*record));
   EXPECT_EQ(sw_->inUseRecord(set), record);
   EXPECT_EQ(sw_->mcastIdToOifSet(100), set);
   EXPECT_TRUE(sw_->frrMtableOifSet().empty());
   EXPECT_EQ(sw_->doGetMulticastId(record), 100u);
   EXPECT_EQ(sw_->doGetOifSet(record), set);

   EXPECT_EQ(doAllocate(set), helper_->lastXact);
   EXPECT_EQ(result(), record);
   expectSaid(R"(
8 AsyncMrouteSwitch::doAllocateMtableOifSet( (10.0.0.2, 239.1.1.1) vrf default vlan 7 routed, $O, blockingXact none, presetMulticastId 0, frrRoute 0 )
7  oifset $O {et1}
hook needFixedOifSet routed
2 Found existing  mtableOifSet $R oifSet $O mcastId 100
hook mcastIdReusable 100
2 Found an existing oif set
blip Foung an existing oif set
hook doScheduleVerify
hook doGetXactForOifSet 100
)",
              set, cat(*record));
}

TEST_F(VelAsyncAllocation, AZombieIsResurrectedAndWithoutAFreeIdEarlierResultsStand) {
   OifSetPtr const set = oifSet();
   allocateUsed(set);
   doAllocate(set);
   RecordPtr const record = result();
   expectLines(cat("2 Resurrecting zombie mtableOifSet ", *record, "\nhook doScheduleVerify"));
   EXPECT_EQ(record->zombie(), ZombieKey());
   EXPECT_FALSE(record->usedInHw());  // by none of the routes from before
   record->dirtyIs(true);
   helper_->groupRoom = 1;
   EXPECT_EQ(doAllocate(set), nullptr);
   expectLines(
         "2 No free multicastId found\n"
         "blip  No free multicastId found. acceptingVlan 7 {et1}");
   EXPECT_EQ(failureCode(), 8u);
   EXPECT_EQ(result(), record);
   EXPECT_EQ(sw_->inUseRecord(set), record);
   helper_->groupRoom = 2;
   EXPECT_NE(doAllocate(set), nullptr);
   EXPECT_EQ(failureCode(), 0u);
}

// The one record may not be shared any more: a second one for the same set takes its place, but not
// in the fast-reroute map, which goes on naming the first, even beyond its death.
TEST_F(VelAsyncAllocation, ARecordThatMayNotBeSharedIsReplacedButForFastReroute) {
   for (bool const dirty : {false, true}) {
      OifSetPtr const set = oifSet("et9");
      RecordPtr first = allocateUsed(set);
      expectLines("2  Adding FrrOifSet ");
      helper_->reusable = dirty;
      first->dirtyIs(dirty);
      RecordPtr second = allocate(set);
      EXPECT_EQ(second->multicastId(), 101u);
      helper_->reusable = true;
      EXPECT_EQ(frrRecord(set), first);
      EXPECT_EQ(allocate(set), second);

      first = nullptr;
      sw_->zombieOifSetDelAll();
      EXPECT_TRUE(sw_->frrMtableOifSet(set));  // named, and dead
      EXPECT_EQ(frrRecord(set), nullptr);
      RecordPtr const other = allocate(oifSet());
      sw_->frrMtableOifSetIs(set, other);  // of another set
      EXPECT_EQ(frrRecord(set), nullptr);
      second = nullptr;
      EXPECT_TRUE(sw_->frrMtableOifSet().empty());
   }
}

// A later record of the same set has the address of the one that is named and has died.
TEST_F(VelAsyncAllocation, ANameMeansOneRecordThoughAnotherTakesItsAddress) {
   ReusedMemory const reused;
   OifSetPtr const set = oifSet("et9");
   RecordPtr first = allocate(set);
   AsyncMtableOifSet const* const address = first.get();
   first->dirtyIs(true);
   RecordPtr const second = allocate(set);
   first = nullptr;
   second->dirtyIs(true);
   RecordPtr const third = allocate(set);
   ASSERT_EQ(third.get(), address);
   EXPECT_EQ(frrRecord(set), nullptr);
   EXPECT_TRUE(sw_->frrMtableOifSet(set) && sw_->frrMtableOifSet(set) != third);
   EXPECT_EQ(sw_->inUseRecord(set), third);
}

TEST_F(VelAsyncAllocation, ANewerRecordTakesAFixedGroupOver) {
   OifSetPtr const one = oifSet("", RouteKeyType::bridged), two = oifSet("", RouteKeyType::bridged);
   RecordPtr first = allocate(one, 40), second = allocate(two, 40);
   expectLines(cat("hook doAllocateFixedMulticastGroup ", two, " free 40\n",
                   "8 skip delete mtable oifset ", *first, "\n2 mtableOifSet ", *second, " oifSet ",
                   two, " mcastId 40"));
   // Fixed sets are not looked for among the records: the same set again is a takeover, too.
   RecordPtr const third = allocate(two, 40);
   EXPECT_TRUE(first->skipDelete() && second->skipDelete() && !third->skipDelete());
   first = nullptr;
   EXPECT_EQ(sw_->mcastIdToOifSet(40), two);
   // After a restart the id may be known without its record; another record keeps its own group.
   sw_->mcastIdToOifSetIs(50, two);
   allocate(one, 50);
   expectLines(
         "8 Missing mtableOifSet on mcastId 50.  Restart init?\n"
         "blip  missing mtableOifSet on mcastId 50");
   EXPECT_FALSE(third->skipDelete());
}

// ---- The bare base class, and broken invariants. ----

TEST_F(VelAsyncAllocation, TheBareBaseClassIsEnoughWhereTheVariableAllowsItAndNowhereElse) {
   setenv("VEL_NOOP_AGENT", "", 1);
   auto const sw = Vel::Mroute::asyncMrouteSwitchFactory(
         "s", nullptr, Qor::make<VelHelper::AsyncMrouteHelper>("bare", nullptr, nullptr));
   EXPECT_EQ(sw->doAllocateMtableOifSet({}, oifSet(), nullptr, 0, false), nullptr);
   EXPECT_EQ(sw->doGetMulticastId(sw->mtableOifSet()), 0u);
   EXPECT_EQ(sw->doSetMtableOifSet(RouteHandle(1), sw->mtableOifSet(), nullptr), nullptr);
   sw->mtableOifSetIs(nullptr);
   sw->zombieOifSetDelAll();
   EXPECT_TRUE(sw->inUseOifSet().empty());
   unsetenv("VEL_NOOP_AGENT");  // read at each call
   EXPECT_DEATH(sw->doDeleteRoute(RouteHandle(1)),
                "This function must be implemented by derived class\n");
}

using VelAsyncDeathTest = VelAsync;

TEST_F(VelAsyncDeathTest, BrokenInvariantsStopTheProcessWithTheirExpression) {
   auto const assertion = [](char const* expression) {
      return cat("Vel/VelAsyncMroute[A-Za-z]+\\.cpp:[0-9]+: .*AsyncMrouteSwitch::.*: Assertion `",
                 expression, "' failed\\.\n");
   };
   EXPECT_DEATH(sw_->doSetMtableOifSet(RouteHandle(1), nullptr, nullptr), assertion("oif"));
   RecordPtr record = allocate(oifSet());  // of a type that is not fixed
   record->skipDeleteIs(true);
   EXPECT_DEATH(record = nullptr,
                assertion("mrouteHelper\\(\\)->needFixedOifSet\\( oifSet->portVlanSet\\(\\)"
                          "\\.type\\(\\) \\)"));
   record->skipDeleteIs(false);
   helper_->xacts = false;
   EXPECT_DEATH(doAllocate(oifSet()), assertion("xact"));
}

}  // namespace
}  // namespace velAsync
