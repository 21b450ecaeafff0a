// Allocating oif sets: sharing, resurrection, fixed groups, and what the programmer says and calls.
#include <cstdlib>

#include "VelAsyncRecorder.h"

namespace velAsync {
namespace {

class VelAsyncAllocation : public VelAsync {};

TEST_F(VelAsyncAllocation, ANewSetGetsAGroupAndTheSecondRouteSharesIt) {
   OifSetPtr const set = oifSet();
   Hux::XactPtr const xact = doAllocate(set, 5, true, Qor::make<Hux::Xact>());
   RecordPtr const record = Qor::ptrCast<AsyncMtableOifSet>(sw_->mtableOifSet());
   expectSaid(R"(
8 AsyncMrouteSwitch::doAllocateMtableOifSet( (10.0.0.2, 239.1.1.1) vrf default vlan 7 routed, $O, blockingXact set, presetMulticastId 5, frrRoute 1 )
7  oifset $O {et1}
hook needFixedOifSet routed
hook doAllocateSharableMulticastGroup (10.0.0.2, 239.1.1.1) $O blocked 1
hook mcastIdIsValid 100
2 mtableOifSet $R oifSet $O mcastId 100
hook doScheduleVerify
hook doGetXactForOifSet 100
)",
              set, cat(*record));
   EXPECT_EQ(xact, helper_->xactOf.at("group 100"));
   EXPECT_EQ(record->oifSet(), set);
   EXPECT_EQ(sw_->inUseOifSet(set).get(), record.get());
   EXPECT_EQ(sw_->mcastIdToOifSet(100), set);
   EXPECT_TRUE(sw_->frrMtableOifSet().empty());
   EXPECT_EQ(sw_->doGetMulticastId(record), 100u);
   EXPECT_EQ(sw_->doGetOifSet(record), set);

   EXPECT_EQ(doAllocate(set), xact);
   EXPECT_EQ(sw_->mtableOifSet(), record);
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
   ASSERT_EQ(sw_->zombieOifSet().size(), 1u);
   pass(2.9);
   journal_.take();
   doAllocate(set);
   RecordPtr record = Qor::ptrCast<AsyncMtableOifSet>(sw_->mtableOifSet());
   expectSaid(R"(
8 AsyncMrouteSwitch::doAllocateMtableOifSet( (10.0.0.2, 239.1.1.1) vrf default vlan 7 routed, $O, blockingXact none, presetMulticastId 0, frrRoute 0 )
7  oifset $O {et1}
hook needFixedOifSet routed
2 Found existing  mtableOifSet $R oifSet $O mcastId 100
hook mcastIdReusable 100
2 Found an existing oif set
blip Foung an existing oif set
2 Resurrecting zombie mtableOifSet $R
hook doScheduleVerify
hook doGetXactForOifSet 100
)",
              set, cat(*record));
   EXPECT_TRUE(sw_->zombieOifSet().empty());
   EXPECT_EQ(record->zombie(), ZombieKey());
   record = nullptr;
   EXPECT_EQ(helper_->groups.size(), 1u);  // the result is a user until it is cleared
   sw_->mtableOifSetIs(nullptr);           // before a route was pointed at it: no zombie again
   EXPECT_TRUE(sw_->zombieOifSet().empty() && helper_->groups.empty());
}

TEST_F(VelAsyncAllocation, WithoutAFreeIdNothingChangesAndEarlierResultsStand) {
   OifSetPtr const set = oifSet(), wanted = oifSet();
   doAllocate(set);
   RecordPtr const record = Qor::ptrCast<AsyncMtableOifSet>(sw_->mtableOifSet());
   allocateRoute();
   helper_->groupRoom = 1;
   journal_.take();
   EXPECT_EQ(doAllocate(wanted), nullptr);
   expectSaid(R"(
8 AsyncMrouteSwitch::doAllocateMtableOifSet( (10.0.0.2, 239.1.1.1) vrf default vlan 7 routed, $O, blockingXact none, presetMulticastId 0, frrRoute 0 )
7  oifset $O {et1}
hook needFixedOifSet routed
hook doAllocateSharableMulticastGroup (10.0.0.2, 239.1.1.1) $O free 0
hook mcastIdIsValid 4294967295
2 No free multicastId found
blip  No free multicastId found. acceptingVlan 7 {et1}
)",
              wanted);
   EXPECT_EQ(static_cast<Qor::U32>(sw_->mrouteFailureReason()), 8u);
   record->dirtyIs(true);
   EXPECT_EQ(doAllocate(set), nullptr);  // of a set that has a record
   EXPECT_EQ(sw_->mtableOifSet(), record);
   EXPECT_EQ(sw_->routeHandle(), RouteHandle(1));
   EXPECT_EQ(sw_->inUseOifSet().size() + sw_->mcastIdToOifSet().size(), 2u);
   EXPECT_EQ(sw_->inUseRecord(set), record);
   helper_->groupRoom = 2;
   EXPECT_NE(doAllocate(wanted), nullptr);
   EXPECT_EQ(sw_->mrouteFailureReason(), MrouteLib::MrouteFailureReason::none);
}

TEST_F(VelAsyncAllocation, SharingIsByIdentityAndEqualSetsAreOneAsLongAsAZombieLives) {
   auto const tables = Qor::make<MrouteLib::MrouteTableColl>();
   MrouteLib::PortVlanSet const value = oifSet()->portVlanSet();
   AsyncMtableOifSet const* const record = allocateUsed(tables->newOifSet(value)).get();
   EXPECT_NE(allocate(oifSet()).get(), record);
   RecordPtr const again = allocateUsed(tables->newOifSet(value));
   EXPECT_EQ(again.get(), record);
   tables->oifSetRetire(*again->oifSet());
   allocateUsed(tables->newOifSet(value));
   EXPECT_EQ(sw_->inUseOifSet().size(), 2u);
   sw_->zombieOifSetDelAll();
   EXPECT_EQ(tables->oifSets(), 0u);
}

// The one record may not be shared any more: a second one for the same set takes its place, but not
// in the fast-reroute map, which goes on naming the first, even beyond its death.
TEST_F(VelAsyncAllocation, ARecordThatMayNotBeSharedIsReplacedButForFastReroute) {
   for (bool const dirty : {false, true}) {
      OifSetPtr const set = oifSet("et1", "et9");
      RecordPtr first = allocateUsed(set);
      EXPECT_NE(journal_.take().find("\n2  Adding FrrOifSet \n"), std::string::npos);
      EXPECT_EQ(frrRecord(set), first);
      helper_->reusable = dirty;
      first->dirtyIs(dirty);
      RecordPtr second = allocate(set);
      EXPECT_NE(journal_.hooks().find("mcastIdReusable 100; doAllocateSharable"),
                std::string::npos);
      helper_->reusable = true;
      EXPECT_EQ(sw_->inUseRecord(set), second);
      EXPECT_EQ(frrRecord(set), first);
      EXPECT_EQ(allocate(set), second);

      first = nullptr;
      sw_->zombieOifSetDelAll();
      EXPECT_EQ(helper_->groups.count(100), 0u);
      EXPECT_NE(sw_->frrMtableOifSet(set).get(), nullptr);  // named, and dead
      EXPECT_EQ(frrRecord(set), nullptr);
      EXPECT_EQ(sw_->inUseRecord(set), second);
      EXPECT_EQ(sw_->mcastIdToOifSet(101), set);
      // As if another set's record had got the address of the dead one.
      RecordPtr const other = allocate(oifSet());
      sw_->frrMtableOifSetIs(set, other.get());
      EXPECT_EQ(frrRecord(set), nullptr);
      second = nullptr;
      EXPECT_TRUE(sw_->frrMtableOifSet().empty());
   }
}

// ---- Fixed groups. ----

class VelAsyncFixedGroups : public VelAsync {
 protected:
   void SetUp() override {
      VelAsync::SetUp();
      helper_->fixedTypes = {RouteKeyType::bridged};
   }
   static OifSetPtr bridged() { return oifSet("et1", "", RouteKeyType::bridged); }
};

TEST_F(VelAsyncFixedGroups, ANewerRecordTakesTheGroupOver) {
   OifSetPtr const one = bridged(), two = bridged();
   RecordPtr first = allocateUsed(one, 40);
   journal_.take();
   doAllocate(two, 40);
   RecordPtr const second = Qor::ptrCast<AsyncMtableOifSet>(sw_->mtableOifSet());
   expectSaid(cat(R"(
8 AsyncMrouteSwitch::doAllocateMtableOifSet( (10.0.0.2, 239.1.1.1) vrf default vlan 7 bridged, $O, blockingXact none, presetMulticastId 40, frrRoute 0 )
7  oifset $O {et1}
hook needFixedOifSet bridged
hook doAllocateFixedMulticastGroup $O free 40
hook mcastIdIsValid 40
8 skip delete mtable oifset )",
                  *first, R"(
2 mtableOifSet $R oifSet $O mcastId 40
hook doScheduleVerify
hook doGetXactForOifSet 40
)"),
              two, cat(*second));
   EXPECT_TRUE(first->skipDelete());
   EXPECT_FALSE(second->skipDelete());
   first = nullptr;
   sw_->zombieOifSetDelAll();
   EXPECT_EQ(helper_->groups.at(40), two);
   EXPECT_FALSE(sw_->inUseRecord(one));
   EXPECT_EQ(sw_->mcastIdToOifSet(40), two);
   // Fixed sets are not looked for among the records: the same set again is a takeover, too.
   EXPECT_NE(allocate(two, 40), second);
   EXPECT_TRUE(second->skipDelete());
}

TEST_F(VelAsyncFixedGroups, AnIdWhoseRecordIsMissingIsTakenAfterARestart) {
   OifSetPtr const stale = bridged(), set = bridged();
   RecordPtr const other = allocate(stale, 41);  // keeps its own group
   sw_->mcastIdToOifSetIs(40, stale);
   journal_.take();
   doAllocate(set, 40);
   EXPECT_NE(journal_.take().find("\nhook mcastIdIsValid 40\n"
                                  "8 Missing mtableOifSet on mcastId 40.  Restart init?\n"
                                  "blip  missing mtableOifSet on mcastId 40\n"
                                  "2 mtableOifSet "),
             std::string::npos);
   EXPECT_EQ(sw_->mcastIdToOifSet(40), set);
   EXPECT_FALSE(other->skipDelete());
}

// One set in two fixed groups, as the empty set of two vlans: the newer record hides the older in
// inUseOifSet, and still the older one must not delete a group that has got a new owner.
TEST_F(VelAsyncFixedGroups, ARecordHiddenBehindANewerOneOfItsSetIsTakenOverToo) {
   OifSetPtr const shared = bridged(), set = bridged();
   RecordPtr hidden = allocate(shared, 40), newer = allocate(shared, 41);
   RecordPtr const owner = allocate(set, 40);
   EXPECT_TRUE(hidden->skipDelete());
   EXPECT_FALSE(newer->skipDelete() || owner->skipDelete());
   hidden = newer = nullptr;
   EXPECT_EQ(helper_->groups.at(40), set);

   hidden = allocate(shared, 40);
   EXPECT_TRUE(owner->skipDelete());
   allocate(shared, 41);  // the newest, which goes at once and leaves none in inUseOifSet
   ASSERT_FALSE(sw_->inUseRecord(shared));
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
   for (char const* port : {"et1", "et2"}) {
      EXPECT_EQ(sw->doAllocateMtableOifSet({}, oifSet(port), nullptr, 0, false), nullptr);
      EXPECT_EQ(sw->doGetMulticastId(sw->mtableOifSet()), 0u);
      EXPECT_EQ(sw->doSetMtableOifSet(RouteHandle(1), sw->mtableOifSet(), nullptr), nullptr);
   }
   sw->mtableOifSetIs(nullptr);
   sw->doAllocateRoute(routeKey(), {}, false, {}, L3::VrfName("default"));
   EXPECT_TRUE(sw->routeHandle().isNull());
   EXPECT_EQ(static_cast<Qor::U32>(sw->mrouteFailureReason()), 1024u);
   sw->doDeleteRoute(RouteHandle(1));
   EXPECT_EQ(sw->doGetIngressXactFailureReason(nullptr), "");
   sw->zombieOifSetDelAll();
   EXPECT_TRUE(sw->inUseOifSet().empty());
   unsetenv("VEL_NOOP_AGENT");
}

using VelAsyncDeathTest = VelAsyncFixedGroups;

TEST_F(VelAsyncDeathTest, BrokenInvariantsStopTheProcessWithTheirExpression) {
   auto const assertion = [](char const* expression) {
      return cat("Vel/VelAsyncMroute[A-Za-z]+\\.cpp:[0-9]+: .*AsyncMrouteSwitch::.*: Assertion `",
                 expression, "' failed\\.\n");
   };
   EXPECT_DEATH(sw_->doSetMtableOifSet(RouteHandle(1), nullptr, nullptr), assertion("oif"));
   EXPECT_DEATH(sw_->doGetMulticastId(nullptr), assertion("mtableOifSet"));
   EXPECT_EQ(sw_->doGetOifSet(nullptr), nullptr);
   helper_->xacts = false;
   EXPECT_DEATH(doAllocate(oifSet()), assertion("xact"));
   helper_->xacts = true;
   RecordPtr record = allocate(oifSet());  // of a type that is not fixed
   record->skipDeleteIs(true);
   EXPECT_DEATH(record = nullptr,
                assertion("mrouteHelper\\(\\)->needFixedOifSet\\( oifSet->portVlanSet\\(\\)"
                          "\\.type\\(\\) \\)"));
   record->skipDeleteIs(false);
}

}  // namespace
}  // namespace velAsync
