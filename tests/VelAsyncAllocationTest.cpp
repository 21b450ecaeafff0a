// Allocating oif sets: sharing, resurrection, fixed groups, and what the programmer says and calls.
#include <cstdlib>

#include "VelAsyncRecorder.h"

namespace velAsync {
namespace {

class VelAsyncAllocation : public VelAsync {
 protected:
   // The first lines of every allocation.
   static Lines entry(OifSetPtr const& set, Qor::U32 preset, bool frr, bool blocked = false) {
      auto const type = set->portVlanSet().type();
      return {cat("8 AsyncMrouteSwitch::doAllocateMtableOifSet( (10.0.0.2, 239.1.1.1) vrf default "
                  "vlan 7 ",
                  type, ", ", set, ", blockingXact ", blocked ? "set" : "none",
                  ", presetMulticastId ", preset, ", frrRoute ", frr, " )"),
              cat("7  oifset ", set, ' ', set->portVlanSet().pretty()),
              cat("hook needFixedOifSet ", type)};
   }
   // The lines that announce a record, whatever comes first.
   static std::string names(RecordPtr const& record) {
      return cat("mtableOifSet ", *record, " oifSet ", record->oifSet(), " mcastId ",
                 record->multicastId());
   }
   static Lines found(RecordPtr const& record) {
      return {cat("2 Found existing  ", names(record)),
              cat("hook mcastIdReusable ", record->multicastId())};
   }
   static Lines end(RecordPtr const& record) {
      return {"hook doScheduleVerify", cat("hook doGetXactForOifSet ", record->multicastId())};
   }
   static Lines join(std::initializer_list<Lines> parts) {
      Lines out;
      for (Lines const& part : parts)
         out.insert(out.end(), part.begin(), part.end());
      return out;
   }
};

TEST_F(VelAsyncAllocation, ANewSetGetsAGroupAndTheSecondRouteSharesIt) {
   OifSetPtr const set = oifSet();
   Hux::XactPtr const xact = doAllocate(set, 5, true, Qor::make<Hux::Xact>());
   RecordPtr const record = Qor::ptrCast<AsyncMtableOifSet>(sw->mtableOifSet());
   EXPECT_EQ(xact, helper->xactOf.at("group 100"));
   EXPECT_EQ(journal.take(),
             join({entry(set, 5, true, true),
                   {cat("hook doAllocateSharableMulticastGroup (10.0.0.2, 239.1.1.1) ", set,
                        " blocked 1"),
                    "hook mcastIdIsValid 100", cat("2 ", names(record))},
                   end(record)}));
   EXPECT_EQ(record->oifSet(), set);
   EXPECT_EQ(sw->inUseOifSet(set).get(), record.get());
   EXPECT_EQ(sw->mcastIdToOifSet(100), set);
   EXPECT_TRUE(sw->frrMtableOifSet().empty());
   EXPECT_EQ(sw->doGetMulticastId(record), 100u);
   EXPECT_EQ(sw->doGetOifSet(record), set);

   EXPECT_EQ(doAllocate(set), xact);
   EXPECT_EQ(sw->mtableOifSet(), record);
   EXPECT_EQ(journal.take(),
             join({entry(set, 0, false),
                   found(record),
                   {"2 Found an existing oif set", "blip Foung an existing oif set"},
                   end(record)}));
}

TEST_F(VelAsyncAllocation, AZombieIsResurrectedWithoutHardwareWork) {
   OifSetPtr const set = oifSet();
   allocateUsed(set);
   ASSERT_EQ(sw->zombieOifSet().size(), 1u);
   pass(2.9);
   journal.take();
   RecordPtr record = allocate(set);
   EXPECT_EQ(journal.take(), join({entry(set, 0, false),
                                   found(record),
                                   {"2 Found an existing oif set", "blip Foung an existing oif set",
                                    cat("2 Resurrecting zombie mtableOifSet ", *record)},
                                   end(record)}));
   EXPECT_TRUE(sw->zombieOifSet().empty());
   EXPECT_EQ(record->zombie(), ZombieKey());
   EXPECT_FALSE(record->usedInHw());
   record = nullptr;  // dropped before a route was pointed at it: no zombie again
   EXPECT_TRUE(sw->zombieOifSet().empty() && helper->groups.empty());
}

TEST_F(VelAsyncAllocation, WithoutAFreeIdNothingChangesAndEarlierResultsStand) {
   OifSetPtr const set = oifSet();
   doAllocate(set);
   RecordPtr const record = Qor::ptrCast<AsyncMtableOifSet>(sw->mtableOifSet());
   allocateRoute();
   helper->groupRoom = 1;
   record->dirtyIs(true);
   for (OifSetPtr const& wanted : {oifSet("et2"), set}) {  // unknown, and known but dirty
      sw->mrouteFailureReasonIs(MrouteLib::MrouteFailureReason::none);
      journal.take();
      EXPECT_EQ(doAllocate(wanted), nullptr);
      EXPECT_EQ(journal.take(),
                join({entry(wanted, 0, false),
                      wanted == set ? found(record) : Lines(),
                      {cat("hook doAllocateSharableMulticastGroup (10.0.0.2, 239.1.1.1) ", wanted,
                           " free 0"),
                       "hook mcastIdIsValid 4294967295", "2 No free multicastId found",
                       cat("blip  No free multicastId found. acceptingVlan 7 ",
                           wanted->portVlanSet())}}));
      EXPECT_EQ(sw->mrouteFailureReason(), MrouteLib::MrouteFailureReason::noMulticastId);
      EXPECT_EQ(sw->mtableOifSet(), record);
      EXPECT_EQ(sw->routeHandle(), RouteHandle(1));
      EXPECT_EQ(sw->inUseOifSet().size() + sw->mcastIdToOifSet().size(), 2u);
      EXPECT_EQ(sw->inUseOifSet(set).get(), record.get());
   }
   helper->groupRoom = 2;
   EXPECT_NE(doAllocate(oifSet("et2")), nullptr);
   EXPECT_EQ(sw->mrouteFailureReason(), MrouteLib::MrouteFailureReason::none);
}

TEST_F(VelAsyncAllocation, SharingIsByIdentityOfTheOifSet) {
   auto const tables = Qor::make<MrouteLib::MrouteTableColl>();
   MrouteLib::PortVlanSet const value = oifSet()->portVlanSet();
   OifSetPtr interned = tables->newOifSet(value);
   RecordPtr const record = allocateUsed(interned);
   EXPECT_NE(allocate(oifSet()), record);
   EXPECT_EQ(allocate(tables->newOifSet(value)), record);
   tables->oifSetRetire(*interned);
   EXPECT_NE(allocate(tables->newOifSet(value)), record);
}

TEST_F(VelAsyncAllocation, TheInternerKnowsASetAsLongAsItsZombieLives) {
   auto const tables = Qor::make<MrouteLib::MrouteTableColl>();
   MrouteLib::PortVlanSet const value = oifSet()->portVlanSet();
   allocateUsed(tables->newOifSet(value));
   AsyncMtableOifSet const* const zombie = sw->zombieOifSet().begin()->second.get();
   EXPECT_EQ(allocateUsed(tables->newOifSet(value)).get(), zombie);
   sw->zombieOifSetDelAll();
   EXPECT_EQ(tables->oifSets(), 0u);
}

// The one record may not be shared any more: a second one for the same set takes its place, but not
// in the fast-reroute map, which goes on naming the first, even beyond its death.
TEST_F(VelAsyncAllocation, ARecordThatMayNotBeSharedIsReplacedButForFastReroute) {
   for (bool const dirty : {false, true}) {
      OifSetPtr const set = oifSet("et1", RouteKeyType::sourceGroup, "et9");
      RecordPtr first = allocateUsed(set);
      EXPECT_EQ(frrRecord(set), first.get());
      Lines const lines = journal.take();
      EXPECT_EQ(lines.at(lines.size() - 3), "2  Adding FrrOifSet ");
      helper->reusable = dirty;
      first->dirtyIs(dirty);

      RecordPtr second = allocate(set);
      EXPECT_EQ(journal.take("hook").at(1), cat("mcastIdReusable ", first->multicastId()));
      helper->reusable = true;
      EXPECT_NE(second, first);
      EXPECT_EQ(sw->inUseRecord(set), second);
      EXPECT_EQ(sw->record(set, sw->frrMtableOifSet(set)), first);
      EXPECT_EQ(allocate(set), second);

      Qor::U32 const firstId = first->multicastId();
      first = nullptr;
      sw->zombieOifSetDelAll();
      EXPECT_EQ(helper->groups.count(firstId), 0u);
      EXPECT_EQ(sw->record(set, sw->frrMtableOifSet(set)), nullptr);  // named, and dead
      EXPECT_NE(frrRecord(set), nullptr);
      EXPECT_EQ(sw->inUseRecord(set), second);
      EXPECT_EQ(sw->mcastIdToOifSet(second->multicastId()), set);

      // As if another set's record had got the address of the dead one.
      RecordPtr const other = allocate(oifSet("et2"));
      sw->frrMtableOifSetIs(set, other.get());
      EXPECT_EQ(sw->record(set, sw->frrMtableOifSet(set)), nullptr);
      second = nullptr;
      EXPECT_TRUE(sw->frrMtableOifSet().empty());
   }
}

TEST_F(VelAsyncAllocation, TheResultAttributeIsAUserUntilItIsCleared) {
   doAllocate(oifSet());
   EXPECT_EQ(helper->groups.size(), 1u);
   sw->mtableOifSetIs(nullptr);
   EXPECT_TRUE(helper->groups.empty() && sw->inUseOifSet().empty());
}

// ---- Fixed groups. ----

class VelAsyncFixedGroups : public VelAsyncAllocation {
 protected:
   void SetUp() override {
      VelAsyncAllocation::SetUp();
      helper->fixedTypes = {RouteKeyType::bridged};
   }
   static OifSetPtr bridged(char const* port) { return oifSet(port, RouteKeyType::bridged); }
};

TEST_F(VelAsyncFixedGroups, ANewerRecordTakesTheGroupOver) {
   OifSetPtr const one = bridged("et1"), two = bridged("et2");
   RecordPtr first = allocateUsed(one, 40);
   journal.take();
   RecordPtr const second = allocate(two, 40);
   EXPECT_EQ(journal.take(),
             join({entry(two, 40, false),
                   {cat("hook doAllocateFixedMulticastGroup ", two, " free 40"),
                    "hook mcastIdIsValid 40", cat("8 skip delete mtable oifset ", *first),
                    cat("2 ", names(second))},
                   end(second)}));
   EXPECT_TRUE(first->skipDelete());
   EXPECT_FALSE(second->skipDelete());
   first = nullptr;
   sw->zombieOifSetDelAll();
   EXPECT_EQ(helper->groups.at(40), two);
   EXPECT_EQ(sw->inUseOifSet(one).get(), nullptr);
   EXPECT_EQ(sw->mcastIdToOifSet(40), two);
   // Fixed sets are not looked for among the records: the same set again is a takeover, too.
   RecordPtr const third = allocate(two, 40);
   EXPECT_NE(third, second);
   EXPECT_TRUE(second->skipDelete());
}

TEST_F(VelAsyncFixedGroups, AnIdWhoseRecordIsMissingIsTakenAfterARestart) {
   OifSetPtr const stale = bridged("et1"), set = bridged("et2");
   sw->mcastIdToOifSetIs(40, stale);
   for (bool const otherId : {false, true}) {
      // A record of the stale set under another id keeps its own group.
      RecordPtr const other = otherId ? allocate(stale, 41) : nullptr;
      sw->mcastIdToOifSetIs(40, stale);
      journal.take();
      RecordPtr const record = allocate(set, 40);
      EXPECT_EQ(
            journal.take(),
            join({entry(set, 40, false),
                  {cat("hook doAllocateFixedMulticastGroup ", set, " free 40"),
                   "hook mcastIdIsValid 40", "8 Missing mtableOifSet on mcastId 40.  Restart init?",
                   "blip  missing mtableOifSet on mcastId 40", cat("2 ", names(record))},
                  end(record)}));
      EXPECT_EQ(sw->mcastIdToOifSet(40), set);
      EXPECT_FALSE(other && other->skipDelete());
   }
}

// One set in two fixed groups, as the empty set of two vlans: the newer record hides the older in
// inUseOifSet, and still the older one must not delete a group that has got a new owner.
TEST_F(VelAsyncFixedGroups, ARecordHiddenBehindANewerOneOfItsSetIsTakenOverToo) {
   OifSetPtr const shared = bridged("et1"), set = bridged("et2");
   RecordPtr hidden = allocate(shared, 40);
   RecordPtr newer = allocate(shared, 41);
   RecordPtr const owner = allocate(set, 40);
   EXPECT_TRUE(hidden->skipDelete());
   EXPECT_FALSE(newer->skipDelete() || owner->skipDelete());
   hidden = newer = nullptr;
   EXPECT_EQ(helper->groups.at(40), set);

   hidden = allocate(shared, 40);
   EXPECT_TRUE(owner->skipDelete());
   allocate(shared, 41);  // the newest, which goes at once and leaves none in inUseOifSet
   ASSERT_EQ(sw->inUseRecord(shared), nullptr);
   RecordPtr const last = allocate(set, 40);
   EXPECT_TRUE(hidden->skipDelete());
   EXPECT_FALSE(last->skipDelete());
}

// ---- The bare base class, and what stops the process. ----

class VelAsyncNoop : public testing::Test {
 protected:
   void TearDown() override { unsetenv("VEL_NOOP_AGENT"); }
   static Qor::Ptr<VelHelper::AsyncMrouteHelper> bare() {
      return Qor::make<VelHelper::AsyncMrouteHelper>("bare", nullptr, nullptr);
   }
};

TEST_F(VelAsyncNoop, TheWholeProgrammerRunsOnTheBareBaseClass) {
   setenv("VEL_NOOP_AGENT", "", 1);
   auto const status = Qor::make<Routing::Hardware::RouteStatus>();
   status->newVrfStatus(L3::VrfName("default"), Vel::VrfId(1));
   Qor::Ptr<AsyncMrouteSwitch> sw = Vel::Mroute::asyncMrouteSwitchFactory("s", status, bare());
   for (char const* port : {"et1", "et2"}) {
      EXPECT_EQ(sw->doAllocateMtableOifSet({}, oifSet(port), nullptr, 0, false), nullptr);
      RecordPtr const record = Qor::ptrCast<AsyncMtableOifSet>(sw->mtableOifSet());
      EXPECT_EQ(record->multicastId(), 0u);
      sw->mtableOifSetIs(nullptr);
      EXPECT_EQ(sw->doSetMtableOifSet(RouteHandle(1), record, nullptr), nullptr);
   }
   sw->doAllocateRoute(routeKey(), {}, false, {}, L3::VrfName("default"));
   EXPECT_TRUE(sw->routeHandle().isNull());
   EXPECT_EQ(sw->mrouteFailureReason(), MrouteLib::MrouteFailureReason::noRouteHandle);
   sw->doDeleteRoute(RouteHandle(1));
   EXPECT_EQ(sw->doGetIngressXactFailureReason(nullptr), "");
   EXPECT_EQ(sw->doGetOifSetXactFailureReason(nullptr), "");
   sw->zombieOifSetDelAll();
   EXPECT_TRUE(sw->inUseOifSet().empty());
}

using VelAsyncDeathTest = VelAsyncFixedGroups;

// The line of a failed assertion of the library, up to the expression.
std::string assertion(char const* expression) {
   return cat("Vel/VelAsyncMroute[A-Za-z]+\\.cpp:[0-9]+: .*AsyncMrouteSwitch::.*: Assertion `",
              expression, "' failed\\.\n");
}

TEST_F(VelAsyncDeathTest, BrokenInvariantsStopTheProcessWithTheirExpression) {
   GTEST_FLAG_SET(death_test_style, "threadsafe");
   EXPECT_DEATH(sw->doSetMtableOifSet(RouteHandle(1), nullptr, nullptr), assertion("oif"));
   EXPECT_DEATH(sw->doGetMulticastId(nullptr), assertion("mtableOifSet"));
   EXPECT_EQ(sw->doGetOifSet(nullptr), nullptr);
   EXPECT_DEATH(
         {
            helper->xacts = false;
            doAllocate(oifSet());
         },
         assertion("xact"));
   EXPECT_DEATH(
         {
            RecordPtr record = allocate(oifSet());  // of a type that is not fixed
            record->skipDeleteIs(true);
            record = nullptr;
         },
         assertion("mrouteHelper\\(\\)->needFixedOifSet\\( oifSet->portVlanSet\\(\\)\\.type\\(\\) "
                   "\\)"));
}

}  // namespace
}  // namespace velAsync
