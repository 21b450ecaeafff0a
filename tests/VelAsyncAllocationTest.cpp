// Allocating oif sets: sharing, resurrection, fixed groups, and what the programmer says and calls.
#include <cstdlib>

#include "VelAsyncRecorder.h"

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

TEST_F(VelAsyncAllocation, AZombieIsResurrectedWithoutHardwareWork) {
   OifSetPtr const set = oifSet();
   allocateUsed(set);
   pass(2.9);
   doAllocate(set);
   expectLines(cat("2 Resurrecting zombie mtableOifSet ", *result(), "\nhook doScheduleVerify"));
   EXPECT_EQ(result()->multicastId(), 100u);
   EXPECT_EQ(result()->zombie(), ZombieKey());
   EXPECT_TRUE(sw_->zombieOifSet().empty());
   EXPECT_EQ(helper_->groups.size(), 1u);  // the result is a user until it is cleared
   sw_->mtableOifSetIs(nullptr);           // before a route was pointed at it: no zombie again
   EXPECT_TRUE(sw_->zombieOifSet().empty() && helper_->groups.empty());
}

TEST_F(VelAsyncAllocation, WithoutAFreeIdNothingChangesAndEarlierResultsStand) {
   OifSetPtr const set = oifSet(), wanted = oifSet();
   doAllocate(set);
   RecordPtr const record = result();
   helper_->groupRoom = 1;
   EXPECT_EQ(doAllocate(wanted), nullptr);
   expectLines(
         "2 No free multicastId found\n"
         "blip  No free multicastId found. acceptingVlan 7 {et1}");
   EXPECT_EQ(failureCode(), 8u);
   record->dirtyIs(true);
   EXPECT_EQ(doAllocate(set), nullptr);  // of a set that has a record
   EXPECT_EQ(result(), record);
   EXPECT_EQ(sw_->inUseOifSet().size() + sw_->mcastIdToOifSet().size(), 2u);
   EXPECT_EQ(sw_->inUseRecord(set), record);
   helper_->groupRoom = 2;
   EXPECT_NE(doAllocate(wanted), nullptr);
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
      EXPECT_NE(sw_->frrMtableOifSet(set).get(), nullptr);  // named, and dead
      EXPECT_EQ(frrRecord(set), nullptr);
      // As if another set's record had got the address of the dead one.
      RecordPtr const other = allocate(oifSet());
      sw_->frrMtableOifSetIs(set, other.get());
      EXPECT_EQ(frrRecord(set), nullptr);
      second = nullptr;
      EXPECT_TRUE(sw_->frrMtableOifSet().empty());
   }
}

// ---- Fixed groups. ----

OifSetPtr bridged() {
   return oifSet("", RouteKeyType::bridged);
}

TEST_F(VelAsyncAllocation, ANewerRecordTakesAFixedGroupOver) {
   OifSetPtr const one = bridged(), two = bridged();
   RecordPtr first = allocateUsed(one, 40);
   RecordPtr const second = allocate(two, 40);
   expectLines(cat("hook doAllocateFixedMulticastGroup ", two, " free 40\n",
                   "8 skip delete mtable oifset ", *first, "\n2 mtableOifSet ", *second, " oifSet ",
                   two, " mcastId 40"));
   EXPECT_FALSE(second->skipDelete());
   first = nullptr;
   sw_->zombieOifSetDelAll();
   EXPECT_EQ(helper_->groups.at(40), two);
   EXPECT_EQ(sw_->mcastIdToOifSet(40), two);
   // Fixed sets are not looked for among the records: the same set again is a takeover, too.
   EXPECT_NE(allocate(two, 40), second);
   EXPECT_TRUE(second->skipDelete());
}

TEST_F(VelAsyncAllocation, AFixedIdWhoseRecordIsMissingIsTakenAfterARestart) {
   OifSetPtr const stale = bridged(), set = bridged();
   RecordPtr const other = allocate(stale, 41);  // keeps its own group
   sw_->mcastIdToOifSetIs(40, stale);
   doAllocate(set, 40);
   expectLines(
         "8 Missing mtableOifSet on mcastId 40.  Restart init?\n"
         "blip  missing mtableOifSet on mcastId 40");
   EXPECT_EQ(sw_->mcastIdToOifSet(40), set);
   EXPECT_FALSE(other->skipDelete());
}

// One set in two fixed groups, as the empty set of two vlans: the newer record hides the older in
// inUseOifSet, and still the older one must not delete a group that has got a new owner.
TEST_F(VelAsyncAllocation, ARecordHiddenBehindANewerOneOfItsSetIsTakenOverToo) {
   OifSetPtr const shared = bridged(), set = bridged();
   RecordPtr hidden = allocate(shared, 40), newer = allocate(shared, 41);
   RecordPtr const owner = allocate(set, 40);
   EXPECT_TRUE(hidden->skipDelete());
   EXPECT_FALSE(newer->skipDelete() || owner->skipDelete());
   hidden = newer = nullptr;
   EXPECT_EQ(helper_->groups.at(40), set);

   hidden = allocate(shared, 40);
   allocate(shared, 41);  // the newest, which goes at once and leaves none in inUseOifSet
   RecordPtr const last = allocate(set, 40);
   EXPECT_TRUE(hidden->skipDelete());
   EXPECT_FALSE(last->skipDelete());
}

// ---- The bare base class, and what stops the process. ----

TEST(VelAsyncNoop, TheWholeProgrammerRunsOnTheBareBaseClass) {
   setenv("VEL_NOOP_AGENT", "", 1);
   auto const status = Qor::make<Routing::Hardware::RouteStatus>();
   status->newVrfStatus(L3::VrfName("default"), Vel::VrfId(1));
   Qor::Ptr<AsyncMrouteSwitch> const sw = Vel::Mroute::asyncMrouteSwitchFactory(
         "s", status, Qor::make<VelHelper::AsyncMrouteHelper>("bare", nullptr, nullptr));
   EXPECT_EQ(sw->doAllocateMtableOifSet({}, oifSet(), nullptr, 0, false), nullptr);
   EXPECT_EQ(sw->doGetMulticastId(sw->mtableOifSet()), 0u);
   EXPECT_EQ(sw->doSetMtableOifSet(RouteHandle(1), sw->mtableOifSet(), nullptr), nullptr);
   sw->mtableOifSetIs(nullptr);
   sw->doAllocateRoute(routeKey(), {}, false, {}, L3::VrfName("default"));
   EXPECT_EQ(static_cast<Qor::U32>(sw->mrouteFailureReason()), 1024u);
   sw->doDeleteRoute(RouteHandle(1));
   sw->zombieOifSetDelAll();
   EXPECT_TRUE(sw->inUseOifSet().empty());
   unsetenv("VEL_NOOP_AGENT");
}

using VelAsyncDeathTest = VelAsync;

TEST_F(VelAsyncDeathTest, BrokenInvariantsStopTheProcessWithTheirExpression) {
   auto const assertion = [](char const* expression) {
      return cat("Vel/VelAsyncMroute[A-Za-z]+\\.cpp:[0-9]+: .*AsyncMrouteSwitch::.*: Assertion `",
                 expression, "' failed\\.\n");
   };
   EXPECT_DEATH(sw_->doSetMtableOifSet(RouteHandle(1), nullptr, nullptr), assertion("oif"));
   EXPECT_DEATH(sw_->doGetMulticastId(nullptr), assertion("mtableOifSet"));
   EXPECT_EQ(sw_->doGetOifSet(nullptr), nullptr);
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
