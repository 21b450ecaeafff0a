#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <cctype>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <map>
#include <set>
#include <sstream>

#include "IntfVlanId/Table.h"
#include "Journal.h"
#include "MrouteLib/OifSet.h"
#include "MrouteLib/RouteKeyInfo.h"
#include "Qor/Type.h"
#include "TestSupport.h"
#include "Vel/L3Status.h"
#include "Vel/VelAsyncMrouteSwitch.h"
#include "Vel/VelSyncMrouteSwitch.h"

namespace {

using namespace testSupport;
using Qor::Generic;

char const* const route1 =
      "Value('Routing::Multicast::Fib::IpGenRouteKey', "
      "** {'source': '10.0.0.1', 'group': '239.0.0.1'})";
char const* const none = "null";

// Hooks without an override do nothing.
struct NoopAgent {
   NoopAgent() { setenv("VEL_NOOP_AGENT", "", 1); }
   ~NoopAgent() { unsetenv("VEL_NOOP_AGENT"); }
};

// Everything is reached by its name.
struct TypeRegistry : NoopAgent, OnVirtualTime {
   static Generic oifSet() {
      MrouteLib::PortVlanSet set(Routing::Multicast::Fib::RouteKeyType::routed);
      set.newPortVlan(pv("et1"), true);
      return Qor::toGeneric(Qor::make<MrouteLib::OifSet const>(nullptr, set));
   }

   Generic const l3Status = Qor::toGeneric(Qor::make<Vel::L3Status>());
   Generic const asyncHelper =
         Qor::construct("VelHelper::AsyncMrouteHelper", {"'async'", none, none});
   Generic const asyncSwitch =
         Qor::construct("asyncMrouteSwitchFactory", {"'chip1'", none, asyncHelper});
   Generic const syncHelper = Qor::construct("VelHelper::MrouteSmHelper", {"'sync'"});
   Generic const syncSwitch = Qor::construct(
         "mrouteSwitchFactory", {"'chip2'", "2", none, l3Status, syncHelper, none, none});
   Generic const record =
         Qor::construct("asyncMtableOifSetFactory", {oifSet(), "False", "7", asyncSwitch});
};

// DescribedTypesTest.cpp makes an object of each type. The types of other modules are the model's.
TEST_F(TypeRegistry, TheLibrarysTypesHaveTheirConstructorsByName) {
   Lines all;
   std::set<std::string> modules;
   for (Qor::Type const* const type : Qor::types()) {
      if (type->module() == "VelMroute") {
         auto const* const made = type->constructor();
         bool const isNamed = made && made->name != type->name();
         all.push_back(isNamed ? cat(type->name(), ' ', made->name) : type->name());
         EXPECT_EQ(Qor::constructedBy(made ? made->name : type->name()), made ? type : nullptr);
      } else if (type->module().starts_with("Vel")) {
         modules.insert(type->module());
      }
   }
   EXPECT_EQ(modules, std::set<std::string>{"Vel"});
   EXPECT_EQ(all,
             Lines({"Vel::Boundary", "Vel::Mroute::AsyncMrouteSwitch asyncMrouteSwitchFactory",
                    "Vel::Mroute::AsyncMrouteSwitchSm AsyncMrouteSwitchSmIs",
                    "Vel::Mroute::AsyncMtableOifSet asyncMtableOifSetFactory",
                    "Vel::Mroute::AsyncMtableOifSetPtr", "Vel::Mroute::InUseRouteHandleKey",
                    "Vel::Mroute::RecoverySm recoverySmFactory", "Vel::Mroute::ZombieKey",
                    "Vel::MrouteSm MrouteSmIs", "Vel::MrouteSwitch mrouteSwitchFactory",
                    "Vel::MrouteSwitchSm MrouteSwitchSmIs", "Vel::MtableOifSet mtableOifSetFactory",
                    "Vel::MtableOifSetPtr", "Vel::Route routeFactory", "Vel::RouteKeyVlanId",
                    "Vel::ZombieKey", "VelHelper::AsyncMrouteHelper", "VelHelper::MrouteSmHelper",
                    "VelHelper::MrouteXactType"}));
}

// The results of hooks without an override, in the order of the descriptions.
TEST_F(TypeRegistry, HooksWithoutAnOverrideDoNothing) {
   std::map<std::string, Generic> const values = {
         {"key", route1},
         {"routeKey", route1},
         {"acceptingVlanId", "5"},
         {"mode", "disabled"},
         {"mrouteXactType", "ingress"},
         {"type", "routed"},
         {"interval", "7.5"},
         {"rpaId", "1"},
         {"handle", "3"},
         {"routeKeyInfo", MrouteLib::RouteKeyInfo().strep()}};
   for (auto const& [helper, expected] :
        {std::pair{asyncHelper,
                   "True True 0 0 null '' 4294967295 null 0.0 False True True True 7.5 7.5"},
         std::pair{syncHelper, "0 0 0 0 0 0 False False False False 1"}}) {
      std::string answers;
      Qor::Type const& type = *Qor::typeOf(helper);
      for (Qor::TypeOperation const& hook : type.operations()) {
         if (std::ranges::any_of(type.collections(), [&](Qor::TypeCollection const& collection) {
                return hook.name.starts_with(collection.name);
             })) {
            continue;
         }
         std::vector<Generic> arguments;
         for (Qor::TypeArgument const& argument : hook.arguments) {
            auto const value = values.find(argument.name);
            arguments.push_back(value != values.end()                            ? value->second
                                : argument.type == "bool"                        ? "False"
                                : argument.type.find("Ptr") != std::string::npos ? none
                                                                                 : "1");
         }
         Generic const answer = hook.run(hook, helper, arguments);
         if (hook.result != "void") answers += (answers.empty() ? "" : " ") + answer.pretty();
      }
      EXPECT_EQ(answers, expected);
   }
}

// The name of the member function that a line of a class declares; empty for any other line.
std::string declaredBy(std::string const& line) {
   if (!line.starts_with("   ") || line[3] == ' ') return {};
   for (char const* const other : {"//", "static", "friend", "explicit", "using", "template"}) {
      if (line.substr(3).starts_with(other)) return {};
   }
   std::size_t const end = line.find('(');
   if (end == std::string::npos) return {};
   std::size_t const begin = line.find_last_of(" &*", end) + 1;
   return begin > 3 && std::islower(static_cast<unsigned char>(line[begin]))
                ? line.substr(begin, end - begin)
                : std::string();
}

// The names of the public member functions of each class, as the library's headers declare them.
std::multimap<std::string, std::string> declarations() {
   std::multimap<std::string, std::string> all;
   for (auto const& header : std::filesystem::directory_iterator(VELMROUTE_EXAMPLES "/../Vel")) {
      if (header.path().extension() != ".h") continue;
      std::ifstream file(header.path());
      std::string scope, className;
      bool isPublic = false;
      for (std::string line; std::getline(file, line);) {
         std::istringstream words(line.starts_with("class ") ? line.substr(6) : "");
         while (words >> className && className == "QOR_PUBLIC") {
         }
         if (line.starts_with("namespace ")) scope = line.substr(10, line.rfind(' ') - 10) + "::";
         if (line == "};") isPublic = false;
         if (line == " public:") isPublic = true;
         if (line == " private:" || line == " protected:") isPublic = false;
         std::string const name = declaredBy(line);
         if (isPublic && !name.empty()) all.emplace(scope + className, name);
      }
   }
   return all;
}

// A member that is not in the description would be missing in all tools. The exceptions are the
// accessors of reactors, and the look-up of records by their names, which a collection does itself.
TEST_F(TypeRegistry, DescriptionsLeaveNothingOut) {
   std::map<std::string, std::string> const bases = {
         {"Vel::Mroute::AsyncMrouteSwitch", "Vel::OifSetTables"},
         {"Vel::MrouteSwitch", "Vel::OifSetTables"},
         {"Vel::Mroute::AsyncMtableOifSet", "Vel::OifSetRecord"},
         {"Vel::MtableOifSet", "Vel::OifSetRecord"},
         {"Vel::Mroute::AsyncMrouteSwitchSm", "Vel::PerSwitchSm"},
         {"Vel::MrouteSwitchSm", "Vel::PerSwitchSm"}};
   std::set<std::string> const notDescribed = {"record",    "records",   "inUseRecord", "hash",
                                               "strep",     "carried",   "recordName",  "serial",
                                               "keyVlanId", "eachRecord"};
   auto const declared = declarations();
   unsigned members = 0;
   for (Qor::Type const* const type : Qor::types()) {
      if (type->module() != "VelMroute") continue;
      auto const base = bases.find(type->name());
      for (auto const& [owner, name] : declared) {
         if (owner != type->name() && (base == bases.end() || owner != base->second)) continue;
         bool const makesReactor = name.starts_with("new") && name != "newZombieOifSet";
         if (makesReactor || notDescribed.contains(name)) continue;
         ++members;
         bool described = false;
         for (auto const& c : type->collections())
            described |= c.name == name || c.name + "s" == name || c.name + "es" == name;
         for (auto const& o : type->operations())
            described |= o.name == name;
         for (auto const* const a : type->allAttributes())
            described |= a->name == name || (a->writable() && a->name + "Is" == name);
         EXPECT_TRUE(described) << type->name() << "::" << name;
      }
   }
   EXPECT_GE(members, 400u);
}

TEST_F(TypeRegistry, ErrorsNameTheFaultAndItsPlace) {
   Generic const readOnly = Qor::toGeneric(Qor::Ptr<MrouteLib::SwitchChipBase const>(
         &Qor::objectOf<MrouteLib::SwitchChipBase const>(asyncSwitch)));
   auto const error = [](auto const& call) { return errorText(call); };
   EXPECT_EQ(error([&] { Qor::type("Vel::Rout"); }), "no type Vel::Rout");
   EXPECT_EQ(error([&] { Qor::construct("RouteSmIs", {}); }), "no constructor RouteSmIs");
   EXPECT_EQ(error([&] { Qor::get(asyncSwitch, "color"); }),
             "Vel::Mroute::AsyncMrouteSwitch has no attribute color");
   EXPECT_EQ(error([&] { Qor::set(asyncSwitch, "switchId", "3"); }),
             "MrouteLib::SwitchChipBase::switchId may only be read");
   EXPECT_EQ(error([&] { Qor::set(readOnly, "routeHandle", "3"); }), "chip1 may only be read");
   EXPECT_EQ(error([&] { Qor::call(readOnly, "doDeleteRoute", {"3"}); }), "chip1 may only be read");
   EXPECT_EQ(error([&] { Qor::set(asyncSwitch, "deleted", "yes"); }),
             "Vel::Mroute::AsyncMrouteSwitch::deleted: bool: expected True or False at position 0 "
             "of \"yes\"");
   EXPECT_EQ(error([&] { Qor::call(asyncSwitch, "doDeleteRoute", {}); }),
             "Vel::Mroute::AsyncMrouteSwitch::doDeleteRoute takes 1 argument, not 0");
   EXPECT_EQ(error([&] { Qor::call(asyncSwitch, "doDeleteRoute", {"4294967296"}); }),
             "Vel::Mroute::AsyncMrouteSwitch::doDeleteRoute, handle: MrouteLib::RouteHandle: "
             "expected a number of at most 4294967295 at position 0 of \"4294967296\"");
   EXPECT_EQ(error([&] {
                Qor::construct("routeFactory", {"1", route1, "4095"});
             }),
             "routeFactory, acceptingVlanId: VlanIdOrNone::value > 4094 not allowed");
   EXPECT_EQ(error([&] {
                Qor::construct("asyncMrouteSwitchFactory", {"'x'", none, syncHelper});
             }),
             "asyncMrouteSwitchFactory, mrouteHelper: expected VelHelper::AsyncMrouteHelper, not "
             "sync");
   // Null, for each argument of a constructor that must not be.
   Generic const table = Qor::toGeneric(Qor::make<IntfVlanId::Table>());
   struct {
      char const* constructor;
      std::vector<Generic> arguments;
      char const* attribute;
   } const nulls[] = {
         {"asyncMtableOifSetFactory",
          {none, "False", "7", asyncSwitch},
          "Vel::Mroute::AsyncMtableOifSet::oifSet"},
         {"mtableOifSetFactory", {none, "False", syncSwitch}, "Vel::MtableOifSet::oifSet"},
         {"asyncMrouteSwitchFactory",
          {"'x'", none, none},
          "Vel::Mroute::AsyncMrouteSwitch::mrouteHelper"},
         {"mrouteSwitchFactory",
          {"'x'", "2", none, none, syncHelper, none, none},
          "Vel::MrouteSwitch::l3Status"},
         {"mrouteSwitchFactory",
          {"'x'", "2", none, l3Status, none, none, none},
          "Vel::MrouteSwitch::mrouteHelper"},
         {"AsyncMrouteSwitchSmIs", std::vector<Generic>(12, none),
          "Vel::Mroute::AsyncMrouteSwitchSm::mrouteSwitch"},
         {"MrouteSmIs", std::vector<Generic>(7, none), "Vel::MrouteSm::mrouteHelper"},
         {"recoverySmFactory",
          {l3Status, table, none, none},
          "Vel::Mroute::RecoverySm::vrfEnabledStatus"}};
   for (auto const& row : nulls) {
      std::string const attribute = row.attribute;
      std::string const name = attribute.substr(attribute.rfind(':') + 1);
      EXPECT_EQ(error([&] { Qor::construct(row.constructor, row.arguments); }),
                cat("null _", name, " parameter to mutator for ", attribute, " not allowed\""));
   }
   EXPECT_EQ(error([&] { Qor::type("VelHelper::MrouteXactType").parse("egress"); }),
             "VelHelper::MrouteXactType: expected one of oifSet, ingress at position 0 of "
             "\"egress\"");
   EXPECT_EQ(error([&] { Qor::type("Vel::Route").parse("x"); }),
             "Vel::Route has no string representation");
}

TEST_F(TypeRegistry, AnOperationIsChosenByTheNumberOfItsArguments) {
   Generic const sm = Qor::construct(
         "AsyncMrouteSwitchSmIs",
         {asyncSwitch, none, none, none, asyncHelper, none, none, none, none, none, none, none});
   testSupport::Journal journal("VelAsyncMrouteSm");
   Qor::call(sm, "handleZombie", {});
   EXPECT_EQ(journal.text(),
             "\n2 AsyncMrouteSwitchSm::handleZombie()\n2 Cancelling zombie timer\n");
   Generic const zombieKey = Qor::construct("Vel::Mroute::ZombieKey", {"3", "4"});
   Qor::call(sm, "handleZombie", {zombieKey});
   EXPECT_EQ(journal.like("2 AsyncMrouteSwitchSm::handleZombie() key ").size(), 1u);
   EXPECT_EQ(errorText([&] {
                Qor::call(sm, "handleZombie", {"1", "2"});
             }),
             "Vel::Mroute::AsyncMrouteSwitchSm::handleZombie takes 0 arguments, not 2");
}

// ---- The end of the process ----

// Made before the registry and destroyed behind all else.
struct AtTheEnd {
   ~AtTheEnd() {
      if (asks) _exit(Qor::types().size() == before && Qor::constructedBy("MrouteSmIs") ? 0 : 1);
   }
   bool asks = false;
   std::size_t before = 0;
} atTheEnd;

TEST(TypeRegistryDeathTest, TheRegistryAnswersWhileStaticObjectsAreDestroyed) {
   EXPECT_EXIT(
         {
            alarm(20);
            atTheEnd.asks = true;
            atTheEnd.before = Qor::types().size();
            std::exit(2);
         },
         testing::ExitedWithCode(0), "");
}

}  // namespace
