#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <cctype>
#include <cstdlib>
#include <fstream>
#include <sstream>

#include "Bfd/AppStatus.h"
#include "Interface/EthIntfStatusDir.h"
#include "IntfVlanId/Table.h"
#include "Journal.h"
#include "MrouteLib/MrouteCounterKey.h"
#include "MrouteLib/RouteKeyInfo.h"
#include "Qor/Type.h"
#include "Routing/Multicast/Fib/CounterStatus.h"
#include "Routing/Multicast/Fib/CounterStatusCtl.h"
#include "Routing/Multicast/Fib/Hardware/Status.h"
#include "Routing/Multicast/Fib/VrfConfig.h"
#include "Routing/Multicast/Fib/VrfEnabledStatus.h"
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

// One object, or one string representation, of each of the library's types.
std::map<std::string, Generic> oneOfEach(TypeRegistry const& t) {
   std::map<std::string, Generic> made;
   auto const make = [&](char const* type, char const* constructor,
                         std::vector<Generic> const& arguments) {
      made[type] = Qor::construct(constructor, arguments);
   };
   made["VelHelper::AsyncMrouteHelper"] = t.asyncHelper;
   made["VelHelper::MrouteSmHelper"] = t.syncHelper;
   made["Vel::Mroute::AsyncMrouteSwitch"] = t.asyncSwitch;
   made["Vel::MrouteSwitch"] = t.syncSwitch;
   made["Vel::Mroute::AsyncMtableOifSet"] = t.record;
   made["VelHelper::MrouteXactType"] = Qor::type("VelHelper::MrouteXactType").parse("ingress");
   make("Vel::Mroute::AsyncMtableOifSetPtr", "Vel::Mroute::AsyncMtableOifSetPtr", {t.record});
   make("Vel::Mroute::ZombieKey", "Vel::Mroute::ZombieKey", {"3", "12.5"});
   make("Vel::Mroute::InUseRouteHandleKey", "Vel::Mroute::InUseRouteHandleKey", {route1, "5", "1"});
   make("Vel::MtableOifSet", "mtableOifSetFactory", {t.oifSet(), "True", t.syncSwitch});
   make("Vel::MtableOifSetPtr", "Vel::MtableOifSetPtr", {made["Vel::MtableOifSet"]});
   make("Vel::ZombieKey", "Vel::ZombieKey", {"3", "inf"});
   make("Vel::RouteKeyVlanId", "Vel::RouteKeyVlanId", {route1, "0"});
   make("Vel::Route", "routeFactory", {"9", route1, "5"});
   make("Vel::Boundary", "Vel::Boundary", {"9", route1, "5"});
   make("Vel::Mroute::AsyncMrouteSwitchSm", "AsyncMrouteSwitchSmIs",
        {t.asyncSwitch, none, none, none, t.asyncHelper, none, none, none, none, none, none, none});
   make("Vel::MrouteSwitchSm", "MrouteSwitchSmIs",
        {"2", none, t.l3Status, t.syncSwitch, none, none, none, t.syncHelper, none, none, none,
         none, none});
   make("Vel::MrouteSm", "MrouteSmIs", {none, t.l3Status, none, none, none, t.syncHelper, none});
   make("Vel::Mroute::RecoverySm", "recoverySmFactory",
        {t.l3Status, Qor::toGeneric(Qor::make<IntfVlanId::Table>()),
         Qor::toGeneric(Qor::make<Routing::Multicast::Fib::VrfEnabledStatus>()),
         Qor::toGeneric(Qor::make<Routing::Multicast::Fib::Hardware::Status>())});
   return made;
}

TEST_F(TypeRegistry, EachOfTheLibrarysTypesIsConstructedByName) {
   std::map<std::string, Generic> const made = oneOfEach(*this);
   std::vector<std::string> names, modules;
   for (Qor::Type const* const type : Qor::types()) {
      if (type->module() == "VelMroute") {
         names.push_back(type->name());
      } else if (!std::ranges::count(modules, type->module())) {
         modules.push_back(type->module());
      }
   }
   // The others are the model's.
   EXPECT_EQ(
         std::ranges::count_if(modules, [](std::string const& m) { return m.find("Vel") == 0; }),
         1);
   EXPECT_EQ(names, Lines({"Vel::Boundary", "Vel::Mroute::AsyncMrouteSwitch",
                           "Vel::Mroute::AsyncMrouteSwitchSm", "Vel::Mroute::AsyncMtableOifSet",
                           "Vel::Mroute::AsyncMtableOifSetPtr", "Vel::Mroute::InUseRouteHandleKey",
                           "Vel::Mroute::RecoverySm", "Vel::Mroute::ZombieKey", "Vel::MrouteSm",
                           "Vel::MrouteSwitch", "Vel::MrouteSwitchSm", "Vel::MtableOifSet",
                           "Vel::MtableOifSetPtr", "Vel::Route", "Vel::RouteKeyVlanId",
                           "Vel::ZombieKey", "VelHelper::AsyncMrouteHelper",
                           "VelHelper::MrouteSmHelper", "VelHelper::MrouteXactType"}));
   for (std::string const& name : names) {
      Qor::Type const& type = Qor::type(name);
      Generic const& one = made.at(name);
      if (type.kind() == Qor::Type::Kind::entity) {
         EXPECT_EQ(Qor::typeOf(one), &type) << name;
      } else if (type.kind() == Qor::Type::Kind::objectName) {
         EXPECT_TRUE(one.object()) << name;
      } else {
         EXPECT_EQ(type.parse(one.text()), one) << name;
      }
      // Each member can be read; an attribute accepts the value that it returns, and a collection
      // finds the members that it lists.
      for (Qor::TypeAttribute const* const attribute : type.allAttributes()) {
         SCOPED_TRACE(attribute->fullName);
         Generic const value = attribute->read(one);
         if (attribute->writable()) attribute->write(*attribute, one, value);
         EXPECT_EQ(attribute->read(one), value);
      }
      for (Qor::TypeCollection const* const collection : type.allCollections()) {
         auto const members = collection->members(one, 0, 100);
         EXPECT_EQ(members.size(), collection->size(one));
         for (Qor::TypeMember const& member : members)
            EXPECT_EQ(collection->find(one, member.key)->value, member.value);
      }
   }
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

// A new object of a type that has collections, without another holder.
Generic owner(TypeRegistry const& t, std::string const& type) {
   if (type == "Vel::L3Status") return Qor::toGeneric(Qor::make<Vel::L3Status>());
   if (type == "IntfVlanId::Table") return Qor::toGeneric(Qor::make<IntfVlanId::Table>());
   if (type == "VelHelper::AsyncMrouteHelper") return Qor::construct(type, {"'new'", none, none});
   if (type == "Vel::Mroute::AsyncMrouteSwitch") {
      return Qor::construct("asyncMrouteSwitchFactory", {"'new'", none, t.asyncHelper});
   }
   if (type == "Vel::MrouteSwitch") {
      return Qor::construct("mrouteSwitchFactory",
                            {"'new'", "3", none, t.l3Status, t.syncHelper, none, none});
   }
   if (type == "Vel::Mroute::AsyncMrouteSwitchSm") {
      return Qor::construct("AsyncMrouteSwitchSmIs",
                            {owner(t, "Vel::Mroute::AsyncMrouteSwitch"), none, none, none, none,
                             none, none, none, none, none, none, none});
   }
   if (type == "Vel::MrouteSwitchSm") {
      return Qor::construct("MrouteSwitchSmIs",
                            {"3", none, none, owner(t, "Vel::MrouteSwitch"), none, none, none, none,
                             none, none, none, none, none});
   }
   return Qor::construct("MrouteSmIs", {none, t.l3Status, none, none, none, t.syncHelper, none});
}

// A member of each of their collections: its key, and the arguments of <collection>Is.
struct Member {
   char const* collection;
   Generic key;
   std::vector<Generic> arguments;
};

std::map<std::string, std::vector<Member>> members(TypeRegistry const& t) {
   std::map<std::string, Generic> const made = oneOfEach(t);
   Generic const set = t.oifSet();
   Generic const syncRecord = made.at("Vel::MtableOifSet");
   Generic const handleKey = made.at("Vel::Mroute::InUseRouteHandleKey");
   Generic const vlanKey = made.at("Vel::RouteKeyVlanId");
   Generic const counterKey = MrouteLib::MrouteCounterKey().strep();
   Bfd::Peer const peer(Bfd::SessionType::singleHop, addr("10.0.0.2"), Lnet::IntfId("et1"),
                        L3::VrfName("red"));
   auto const eth = Qor::make<Interface::EthIntfStatus>(Lnet::IntfId("et1"));
   Generic const never = Qor::construct("Vel::ZombieKey", {"0", "inf"});
   Generic const asyncNever = Qor::construct("Vel::Mroute::ZombieKey", {"0", "inf"});
   std::vector<Member> const interfaces = {{"ethIntfStatus", "'et1'", {Qor::toGeneric(eth)}}};
   Generic const config = Qor::toGeneric(Qor::make<Routing::Multicast::Fib::Config>("red"));
   auto tables = [&](Generic const& record, Generic const& zombieKey) {
      return std::vector<Member>{{"zombieOifSet", zombieKey, {record}},
                                 {"inUseOifSet", set, {set, record}},
                                 {"frrMtableOifSet", set, {set, record}},
                                 {"frrProcessingOifSet", set, {set, record}}};
   };
   std::map<std::string, std::vector<Member>> all = {
         {"Vel::Mroute::AsyncMrouteSwitch", tables(t.record, asyncNever)},
         {"Vel::MrouteSwitch", tables(syncRecord, never)},
         {"VelHelper::AsyncMrouteHelper",
          {{"deletedMrouteCounterKey", counterKey, {counterKey, "True"}},
           {"noHwCounterMrouteKey", counterKey, {counterKey, "True"}}}},
         {"Vel::MrouteSwitchSm", interfaces},
         {"Vel::Mroute::AsyncMrouteSwitchSm", interfaces},
         {"Vel::MrouteSm", {{"mfibConfigVrf", "red", {config}}}},
         {"Vel::L3Status",
          {{"vrfNameToVrfId", "red", {"red", "7"}}, {"vrfIdToVrfName", "8", {"8", "blue"}}}},
         {"IntfVlanId::Table",
          {{"intfIdToVlanId", "et1", {"et1", "7"}}, {"vlanIdToIntfId", "8", {"8", "et2"}}}}};
   auto const add = [&](char const* type, std::vector<Member> const& more) {
      all[type].insert(all[type].end(), more.begin(), more.end());
   };
   add("Vel::Mroute::AsyncMrouteSwitch", {{"mcastIdToOifSet", "7", {"7", set}},
                                          {"oifSetXact", set, {set, none}},
                                          {"inUseRouteHandle", handleKey, {handleKey, "3"}},
                                          {"inUseRouteHandleKey", "3", {"3", handleKey}}});
   add("Vel::MrouteSwitch", {{"oifSetIndexColl", "4", {"4", "True"}},
                             {"route", "9", {"9", route1, "5"}},
                             {"boundary", "9", {"9", route1, "5"}},
                             {"routeKeyToHandle", vlanKey, {vlanKey, "3"}}});
   add("Vel::Mroute::AsyncMrouteSwitchSm",
       {{"mfibConfigVrf", "red", {config}},
        {"bfdStatus",
         Qor::toGeneric(peer),
         {Qor::toGeneric(Qor::make<Bfd::BfdPeerStatus>(peer))}}});
   return all;
}

// Each collection takes a member, notifies of it, and forgets it, by its key or with all others; and
// with the end of its owner.
TEST_F(TypeRegistry, CollectionsAreChangedByNameAndEmptiedAtTheEnd) {
   std::map<std::string, std::vector<Member>> const all = members(*this);
   for (auto const& [type, rows] : all) {
      SCOPED_TRACE(type);
      Generic object = owner(*this, type);
      Lines heard;
      auto const following = std::make_unique<Qor::Following>(object, [&](Qor::Change const& c) {
         heard.push_back(cat(c.member, c.key ? " one" : c.gone ? "gone" : ""));
      });
      std::vector<std::string> emptied;
      for (Member const& row : rows) {
         SCOPED_TRACE(row.collection);
         Qor::TypeCollection const& collection = Qor::typeOf(object)->collection(row.collection);
         auto const call = [&](char const* form, std::vector<Generic> const& arguments) {
            Qor::call(object, std::string(row.collection) + form, arguments);
            return collection.size(object);
         };
         std::string const one = row.collection + std::string(" one");
         heard.clear();
         EXPECT_EQ(call("Is", row.arguments), 1u);
         EXPECT_TRUE(collection.find(object, row.key));
         EXPECT_EQ(call("Notify", {row.key}), 1u);
         EXPECT_EQ(call("Del", {row.key}), 0u);
         EXPECT_EQ(std::ranges::count(heard, one), 3);
         call("Is", row.arguments);
         EXPECT_EQ(call("DelAll", {}), 0u);
         EXPECT_EQ(std::ranges::count(heard, row.collection), 1);
         emptied.push_back(row.collection);
      }
      for (Member const& row : rows)
         Qor::call(object, std::string(row.collection) + "Is", row.arguments);
      std::vector<std::string> described;
      for (Qor::TypeCollection const& collection : Qor::typeOf(object)->collections()) {
         if (!collection.handler.empty()) described.push_back(collection.name);
      }
      EXPECT_TRUE(std::ranges::is_permutation(emptied, described));
      bool const ends = type.starts_with("Vel::M") || type.starts_with("VelHelper::");
      heard.clear();
      object = Generic();
      EXPECT_EQ(std::ranges::all_of(emptied,
                                    [&](std::string const& collection) {
                                       return std::ranges::count(heard, collection) == 1;
                                    }),
                ends);
   }
}

// ---- Attributes ----

// An attribute that can be set notifies of each change, and of nothing else.
TEST_F(TypeRegistry, AttributesThatCanBeSetNotifyOfAChange) {
   Lines silent;
   for (Qor::Type const* const type : Qor::types()) {
      for (Qor::TypeAttribute const& attribute : type->attributes()) {
         if (attribute.writable() && attribute.handler.empty())
            silent.push_back(attribute.fullName);
      }
   }
   EXPECT_EQ(silent, Lines({"Qor::Clock::timeMin", "Vel::Boundary::vrfId",
                            "Vel::Mroute::AsyncMrouteSwitchSm::initialized"}));

   std::map<std::string, Generic> others = {{"bool", "True"}, {"double", "0.25"}};
   auto const add = [&](auto const& object) {
      Generic const generic = Qor::toGeneric(object);
      std::string const name = Qor::typeOf(generic)->name();
      others["Ptr<" + name + ">"] = others["Ptr<" + name + " const>"] = generic;
   };
   add(Qor::make<Vel::VelCommonSmData>());
   add(Qor::make<Vel::VerifyData>());
   add(Qor::make<Vel::L3Status>());
   add(Qor::make<Routing::Multicast::Fib::VrfConfig>());
   add(Qor::make<Routing::Multicast::Fib::VrfEnabledStatus>());
   add(Qor::make<Routing::Multicast::Fib::Hardware::Status>());
   add(Qor::make<Routing::Multicast::Fib::CounterStatus>());
   add(Qor::make<Routing::Multicast::Fib::CounterStatusCtl>());
   add(Qor::make<Interface::EthIntfStatusDir>());
   add(Qor::make<Bfd::AppStatus>());
   add(Qor::make<Qor::Clock>());
   for (char const* const type : {"Vel::Mroute::AsyncMrouteSwitch", "Vel::MrouteSwitch"})
      others[cat("Ptr<", type, '>')] = owner(*this, type);
   for (char const* const type :
        {"Vel::Mroute::AsyncMrouteSwitchSm", "Vel::MrouteSwitchSm", "Vel::MrouteSm"}) {
      Generic const sm = owner(*this, type);
      for (Qor::TypeAttribute const& attribute : Qor::type(type).attributes()) {
         if (!attribute.writable() || attribute.handler.empty()) continue;
         SCOPED_TRACE(attribute.fullName);
         int heard = 0;
         Qor::Following const following(
               sm, [&](Qor::Change const& c) { heard += c.member == attribute.name; });
         for (int again = 0; again < 2; ++again)
            Qor::set(sm, attribute.name, others.at(attribute.type));
         EXPECT_EQ(heard, 1);
         EXPECT_EQ(Qor::get(sm, attribute.name), others.at(attribute.type));
      }
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

// The names of the public member functions of a class, as its header declares them.
std::vector<std::string> declaredIn(std::string const& header, std::string const& className) {
   std::ifstream file(VELMROUTE_EXAMPLES "/../Vel/" + header);
   std::vector<std::string> names;
   bool inClass = false;
   bool isPublic = false;
   for (std::string line; std::getline(file, line);) {
      if (line.starts_with("class ") && line.find(' ' + className + ' ') != std::string::npos)
         inClass = true;
      if (line == "};") inClass = false;
      if (line == " public:") isPublic = true;
      if (line == " private:" || line == " protected:") isPublic = false;
      std::string const name = declaredBy(line);
      if (inClass && isPublic && !name.empty()) names.push_back(name);
   }
   return names;
}

// A member that is not in the description would be missing in all tools. The exceptions are the
// accessors of reactors, and the look-up of records by their names, which a collection does itself.
TEST_F(TypeRegistry, DescriptionsLeaveNothingOut) {
   struct {
      char const* type;
      char const* header;
      char const* className;
      std::size_t atLeast;
   } const rows[] = {
         {"Vel::Mroute::AsyncMrouteSwitch", "VelAsyncMrouteSwitch.h", "AsyncMrouteSwitch", 30},
         {"Vel::Mroute::AsyncMrouteSwitch", "VelOifSetTables.h", "OifSetTables", 20},
         {"Vel::MrouteSwitch", "VelSyncMrouteSwitch.h", "MrouteSwitch", 40},
         {"Vel::MrouteSwitch", "VelOifSetTables.h", "OifSetTables", 20},
         {"Vel::Mroute::AsyncMtableOifSet", "VelAsyncMrouteRecords.h", "AsyncMtableOifSet", 10},
         {"Vel::Mroute::AsyncMtableOifSet", "VelOifSetRecord.h", "OifSetRecord", 3},
         {"Vel::MtableOifSet", "VelSyncMrouteRecords.h", "MtableOifSet", 8},
         {"Vel::Route", "VelSyncMrouteRecords.h", "Route", 15},
         {"Vel::Boundary", "VelSyncMrouteRecords.h", "Boundary", 5},
         {"Vel::Mroute::AsyncMrouteSwitchSm", "VelAsyncMrouteSm.h", "AsyncMrouteSwitchSm", 30},
         {"Vel::Mroute::AsyncMrouteSwitchSm", "VelPerSwitchSm.h", "PerSwitchSm", 35},
         {"Vel::MrouteSwitchSm", "VelSyncMrouteSm.h", "MrouteSwitchSm", 30},
         {"Vel::MrouteSwitchSm", "VelPerSwitchSm.h", "PerSwitchSm", 35},
         {"Vel::MrouteSm", "VelMrouteSm.h", "MrouteSm", 40},
         {"Vel::Mroute::RecoverySm", "VelMrouteRecoverySm.h", "RecoverySm", 2},
         {"VelHelper::AsyncMrouteHelper", "VelAsyncMrouteHelper.h", "AsyncMrouteHelper", 30},
         {"VelHelper::MrouteSmHelper", "VelSyncMrouteHelper.h", "MrouteSmHelper", 28},
         {"Vel::Mroute::ZombieKey", "VelAsyncMrouteKeys.h", "ZombieKey", 1},
         {"Vel::Mroute::InUseRouteHandleKey", "VelAsyncMrouteKeys.h", "InUseRouteHandleKey", 3},
         {"Vel::ZombieKey", "VelSyncMrouteKeys.h", "ZombieKey", 1},
         {"Vel::RouteKeyVlanId", "VelSyncMrouteKeys.h", "RouteKeyVlanId", 2},
   };
   std::vector<std::string> const notDescribed = {"record",     "records",     "inUseRecord",
                                                  "hash",       "strep",       "carried",
                                                  "queuePlace", "queuePlaceIs"};
   for (auto const& row : rows) {
      std::vector<std::string> const names = declaredIn(row.header, row.className);
      EXPECT_GE(names.size(), row.atLeast) << row.header;
      Qor::Type const& type = Qor::type(row.type);
      for (std::string const& name : names) {
         bool const makesReactor = name.starts_with("new") && name != "newZombieOifSet";
         if (makesReactor || std::ranges::count(notDescribed, name)) continue;
         bool described = false;
         for (auto const& c : type.collections())
            described |= c.name == name || c.name + "s" == name || c.name + "es" == name;
         for (auto const& o : type.operations())
            described |= o.name == name;
         for (auto const* const a : type.allAttributes())
            described |= a->name == name || (a->writable() && a->name + "Is" == name);
         EXPECT_TRUE(described) << row.type << "::" << name;
      }
   }
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
   Generic const sm = owner(*this, "Vel::Mroute::AsyncMrouteSwitchSm");
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

TEST_F(TypeRegistry, AFollowerIsNotifiedAndKeepsNothingAlive) {
   auto& chip = Qor::objectOf<Vel::Mroute::AsyncMrouteSwitch>(asyncSwitch);
   Lines heard;
   auto const tell = [&](char const* who) {
      return [&heard, who](Qor::Change const& c) {
         heard.push_back(
               cat(who, ' ', c.gone ? "gone" : c.member, c.key ? ' ' + c.key->pretty() : ""));
      };
   };
   Qor::Following const ofSwitch(asyncSwitch, tell("switch"));
   Generic made = Qor::construct("asyncMtableOifSetFactory", {oifSet(), "False", "8", asyncSwitch});
   Qor::Following const ofRecord(made, tell("record"));
   Qor::set(made, "usedInHw", "True");
   Qor::call(asyncSwitch, "mcastIdToOifSetIs", {"8", Qor::get(made, "oifSet")});
   EXPECT_EQ(heard, Lines({"record usedInHw", "switch mcastIdToOifSet 8"}));
   heard.clear();
   // Its last user leaves: it becomes a zombie, and goes when it has been one for long enough.
   made = Generic();
   EXPECT_EQ(chip.zombieOifSet().size(), 1u);
   EXPECT_TRUE(ofRecord.alive());
   EXPECT_EQ(heard, Lines({"record usedInHw", "record zombie",
                           "switch zombieOifSet " + chip.zombieOifSet().begin()->first.strep()}));
   heard.clear();
   Qor::call(asyncSwitch, "zombieOifSetDelAll", {});
   EXPECT_EQ(heard.front(), "switch zombieOifSet");  // all of it
   EXPECT_EQ(heard.back(), "record deleted");
   Qor::sweepZombieReactors();
   EXPECT_FALSE(ofRecord.alive());
   EXPECT_EQ(heard.back(), "record gone");
   EXPECT_EQ(errorText([&] {
                Qor::Following const ofSm(oneOfEach(*this)["Vel::Mroute::RecoverySm"], tell("sm"));
             }),
             "RecoverySm tells nobody of changes");
}

// Reactors decide how long a record lives, whether or not followers are about.
TEST_F(TypeRegistry, AReactorKeepsARecordThatIsFollowed) {
   Generic made = Qor::construct("asyncMtableOifSetFactory", {oifSet(), "False", "9", asyncSwitch});
   bool ended = false;
   std::unique_ptr<Qor::Following> following;
   following = std::make_unique<Qor::Following>(made, [&](Qor::Change const& c) {
      if (c.member == "dirty") following.reset();  // from inside
      ended = ended || c.gone;
   });
   Qor::Following const other(made, [&](Qor::Change const& c) { ended = ended || c.gone; });
   Vel::Mroute::AsyncMtableOifSet::Notifiee reactor;
   reactor.notifierIs(&Qor::objectOf<Vel::Mroute::AsyncMtableOifSet>(made));
   Qor::set(made, "dirty", "True");
   EXPECT_EQ(following, nullptr);
   made = Generic();
   ASSERT_NE(reactor.notifier(), nullptr);
   EXPECT_TRUE(reactor.notifier()->livesUnreferenced());
   reactor.notifierIs(nullptr);
   Qor::sweepZombieReactors();
   EXPECT_TRUE(ended);
   EXPECT_FALSE(other.alive());
}

}  // namespace
