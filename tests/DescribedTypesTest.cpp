// Tests that are generated from the descriptions of all registered types: they set each attribute,
// and fill, change and empty each collection, and nothing else may change.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <functional>
#include <set>

#include "Bfd/AppStatus.h"
#include "Hux/Xact.h"
#include "Interface/AllIntfStatusDir.h"
#include "Interface/EthIntfStatusDir.h"
#include "IntfVlanId/Table.h"
#include "Journal.h"
#include "MrouteLib/MrouteCounterKey.h"
#include "Qor/Type.h"
#include "Routing/Hardware/RouteStatus.h"
#include "Routing/Multicast/Fib/CounterStatus.h"
#include "Routing/Multicast/Fib/CounterStatusCtl.h"
#include "Routing/Multicast/Fib/Hardware/Status.h"
#include "Routing/Multicast/Fib/VrfConfig.h"
#include "Routing/Multicast/Fib/VrfEnabledStatus.h"
#include "TestSupport.h"
#include "Vel/L3Status.h"
#include "Vel/VelAsyncMrouteSm.h"
#include "Vel/VelMrouteSm.h"
#include "Vel/VelSyncMrouteSm.h"

namespace {

using namespace testSupport;
using Qor::Generic;
using Qor::objectOf;
using Qor::toGeneric;
using Qor::Type;
namespace Fib = Routing::Multicast::Fib;

using Made = std::function<Generic(unsigned n)>;  // one for each n

Lnet::IntfId intf(unsigned n) {
   return Lnet::IntfId(n ? "et2" : "et1");
}
L3::VrfName vrf(unsigned n) {
   return L3::VrfName(n ? "red" : "blue");
}
Bfd::Peer peer(unsigned n) {
   return Bfd::Peer(Bfd::SessionType::singleHop, addr("10.0.0.2"), intf(n), vrf(n));
}

// A maker of objects without arguments, or with the n-th argument.
template <class T, class... Argument>
std::pair<std::string const, Made> madeOf(Argument... argument) {
   return {std::string(Qor::className<T>()),
           [=]([[maybe_unused]] unsigned n) { return toGeneric(Qor::make<T>(argument(n)...)); }};
}
// Makes the objects that have no constructor by name.
std::map<std::string, Made> const& makers() {
   auto const vrfName = [](unsigned n) { return vrf(n).name(); };
   static auto const* const all = new std::map<std::string, Made>{
         madeOf<Bfd::AppStatus>(),
         madeOf<Bfd::BfdPeerStatus>(peer),
         madeOf<Hux::Xact>(),
         madeOf<Interface::AllIntfStatusDir>(),
         madeOf<Interface::EthIntfStatus>(intf),
         madeOf<Interface::EthIntfStatusDir>(),
         madeOf<Interface::IntfStatus>(intf),
         madeOf<IntfVlanId::Table>(),
         madeOf<Qor::Clock>(),
         madeOf<Routing::Hardware::RouteStatus>(),
         madeOf<Fib::Config>(vrfName),
         madeOf<Fib::CounterStatus>(),
         madeOf<Fib::CounterStatusCtl>(),
         madeOf<Fib::Hardware::RouteStatus>([](unsigned n) { return key(n); }),
         madeOf<Fib::Hardware::Status>(),
         madeOf<Fib::VrfConfig>(),
         madeOf<Fib::VrfEnabledStatus>(),
         madeOf<Vel::L3Status>(),
         madeOf<Vel::VelCommonSmData>(),
         madeOf<Vel::VerifyData>(),
         {"MrouteLib::OifSet",
          [](unsigned n) {
             MrouteLib::PortVlanSet set(Fib::RouteKeyType::routed);
             set.newPortVlan(MrouteLib::PortVlan(intf(n)), true);
             return toGeneric(Qor::make<MrouteLib::OifSet const>(nullptr, set));
          }},
         {"Routing::Hardware::VrfStatus",
          [](unsigned n) {
             return toGeneric(Qor::make<Routing::Hardware::RouteStatus>()->newVrfStatus(
                   vrf(n), Vel::VrfId(n)));
          }},
         {"Routing::Multicast::Fib::Hardware::VrfStatus", [](unsigned n) {
             return toGeneric(Qor::make<Fib::Hardware::Status>()->vrfStatusIs(vrf(n)));
          }}};
   return *all;
}

// Two values of each type that is no object, in ascending order.
std::map<std::string, std::pair<Generic, Generic>> const& values() {
   static auto const* const all = new std::map<std::string, std::pair<Generic, Generic>>{
         {"bool", {"False", "True"}},
         {"double", {"1.5", "2.5"}},
         {"Qor::String", {"'blue'", "'red'"}},
         {"Bfd::OperState", {"down", "up"}},
         {"Bfd::Peer", {peer(0).strep(), peer(1).strep()}},
         {"Interface::IntfOperStatus", {"up", "down"}},
         {"L3::VrfName", {"'blue'", "'red'"}},
         {"Lnet::IntfId", {"'et1'", "'et2'"}},
         {"MrouteLib::MrouteCounterKey",
          {MrouteLib::MrouteCounterKey(Vel::VrfId(1), key(1)).strep(),
           MrouteLib::MrouteCounterKey(Vel::VrfId(1), key(2)).strep()}},
         {"Routing::Multicast::Fib::CounterMode", {"packets", "bytes"}},
         {"Routing::Multicast::Fib::IpGenRouteKey", {key(1).strep(), key(2).strep()}}};
   return *all;
}

Generic sample(std::string const& type, unsigned n);

// Calls the constructor of the type, with null for each optional object.
Generic construct(Type const& type, unsigned n) {
   std::vector<Generic> arguments;
   for (Qor::TypeArgument const& argument : type.constructor()->arguments) {
      bool const null = argument.type.starts_with("Ptr<") && !argument.required &&
                        argument.name != "l3Status" && argument.name != "record";
      arguments.push_back(null ? Generic("null") : sample(argument.type, n));
   }
   Generic const made = Qor::construct(type.name(), arguments);
   if (type.name().ends_with("MtableOifSet")) {  // each has a place of its own among the zombies
      Generic const zombie = Qor::get(made, "zombie");
      std::string const keyType =
            type.name().starts_with("Vel::Mroute") ? "Vel::Mroute::ZombieKey" : "Vel::ZombieKey";
      Qor::set(made, "zombie", sample(keyType, n));
   }
   return made;
}

Generic object(std::string const& type, unsigned n) {
   if (auto const maker = makers().find(type); maker != makers().end()) return maker->second(n);
   // The record of either path has the attributes of the common base.
   return construct(Qor::type(type == "MrouteLib::MtableOifSet" ? "Vel::MtableOifSet" : type), n);
}

// All types of numbers have the same string form.
Generic sample(std::string const& type, unsigned n) {
   if (type.starts_with("Ptr<")) {
      std::string const name = type.substr(4, type.find_first_of(" >") - 4);
      return object(name, n);
   }
   if (auto const value = values().find(type); value != values().end())
      return n ? value->second.second : value->second.first;
   for (Type const* const t : Qor::types()) {
      if (t->name() == type && t->constructor()) return construct(*t, n);
   }
   return n ? "8" : "7";
}

// The values of all attributes and the members of all collections.
std::map<std::string, std::string> contents(Generic const& object) {
   std::map<std::string, std::string> all;
   Type const& type = *Qor::typeOf(object);
   for (auto const* const a : type.allAttributes())
      all[a->name] = a->read(object).text();
   for (auto const* const c : type.allCollections()) {
      for (Qor::TypeMember const& m : c->members(object, 0, 9))
         all[c->name] += m.key.text() + ": " + m.value.text() + "; ";
   }
   return all;
}
std::map<std::string, std::string> without(std::map<std::string, std::string> all,
                                           std::string const& name) {
   all.erase(name);
   return all;
}

struct DescribedTypes : OnVirtualTime {
   // The hooks that are not overridden do nothing then.
   DescribedTypes() { setenv("VEL_NOOP_AGENT", "", 1); }
   ~DescribedTypes() override { unsetenv("VEL_NOOP_AGENT"); }

   // Runs `test` for an object of each type that can be made.
   template <class Test>
   void forEachObject(Test const& test) {
      for (Type const* const type : Qor::types()) {
         if (type->kind() != Type::Kind::entity || type->name().starts_with("disturbance"))
            continue;
         bool const made = makers().contains(type->name()) || type->constructor();
         bool const isBase =
               std::ranges::any_of(Qor::types(), [&](auto* t) { return t->base() == type; });
         EXPECT_TRUE(made || isBase) << type->name();
         SCOPED_TRACE(type->name());
         if (!made) continue;
         Generic const one = object(type->name(), 0);
         EXPECT_TRUE(Qor::typeOf(one) == type || type->name() == "MrouteLib::MtableOifSet");
         test(*type, one);
      }
   }
   // The notifications of a follower: "<member>", or "<collection> <key>".
   Lines notified_;
   std::unique_ptr<Qor::Following> follow(Generic const& object) {
      notified_.clear();
      try {
         return std::make_unique<Qor::Following>(object, [this](Qor::Change const& c) {
            notified_.push_back(c.key ? cat(c.member, ' ', c.key->text()) : c.member);
         });
      } catch (Qor::RangeException const&) {
         return nullptr;
      }
   }
   Lines notified() { return std::exchange(notified_, {}); }
};

TEST_F(DescribedTypes, EachAttributeIsSetAloneAndNotifiesOnce) {
   Lines silent;
   forEachObject([&](Type const& type, Generic const& object) {
      auto const following = follow(object);
      bool const equalNotifies = type.name() == "Vel::Mroute::AsyncMtableOifSet";
      bool const reacts = type.base() && type.base()->name() == "Qor::StateMachine";
      for (auto const* const a : type.allAttributes()) {
         if (!a->writable()) continue;
         SCOPED_TRACE(a->name);
         auto const before = contents(object);
         Generic other = sample(a->type, 0);
         if (other.text() == before.at(a->name) && !other.object()) other = sample(a->type, 1);
         notified();
         Qor::set(object, a->name, other);
         EXPECT_EQ(Qor::get(object, a->name).object(), other.object());
         EXPECT_TRUE(other.object() || Qor::get(object, a->name).text() == other.text());
         Lines const once = a->handler.empty() ? Lines() : Lines{a->name};
         if (once.empty()) silent.push_back(a->fullName);
         // A reactor acts on the change, and sets other attributes.
         if (reacts) {
            EXPECT_EQ(std::ranges::count(notified_, a->name), std::ssize(once));
         } else {
            EXPECT_EQ(notified(), once);
            EXPECT_EQ(without(contents(object), a->name), without(before, a->name));
         }
         notified();
         Qor::set(object, a->name, other);
         EXPECT_EQ(notified(), equalNotifies ? once : Lines());
      }
   });
   EXPECT_EQ(silent, Lines({"Qor::Clock::timeMin", "Vel::Boundary::vrfId",
                            "Vel::Mroute::AsyncMrouteSwitchSm::initialized"}));
}

using Change = std::function<void(Generic const& object, unsigned n)>;

// Inserts the n-th member of a collection that has no insertion by name.
std::map<std::string, Change> const& insertions() {
   static auto const* const all = new std::map<std::string, Change>{
         {"Bfd::AppStatus.peerStatus",
          [](auto& o, unsigned n) { objectOf<Bfd::AppStatus>(o).newPeerStatus(peer(n)); }},
         {"Interface::AllIntfStatusDir.intfStatus",
          [](auto& o, unsigned n) {
             objectOf<Interface::AllIntfStatusDir>(o).newIntfStatus(intf(n));
          }},
         {"Interface::EthIntfStatusDir.intfStatus",
          [](auto& o, unsigned n) {
             objectOf<Interface::EthIntfStatusDir>(o).newIntfStatus(intf(n));
          }},
         {"Routing::Hardware::RouteStatus.vrfStatus",
          [](auto& o, unsigned n) {
             objectOf<Routing::Hardware::RouteStatus>(o).newVrfStatus(vrf(n), Vel::VrfId(n));
          }},
         {"Routing::Multicast::Fib::CounterStatus.counter",
          [](auto& o, unsigned n) {
             objectOf<Fib::CounterStatus>(o).counterIs(key(1 + n), {n, 1.5, true});
          }},
         {"Routing::Multicast::Fib::VrfConfig.config",
          [](auto& o, unsigned n) { objectOf<Fib::VrfConfig>(o).newConfig(vrf(n).name()); }}};
   return *all;
}
// Deletes the first member by its iterator.
#define BY_ITERATOR(Type, name)                                                \
   {                                                                           \
      std::string(Qor::className<Type>()) + "." #name, [](auto& o, unsigned) { \
         auto& object = objectOf<Type>(o);                                     \
         object.name##Del(object.name().begin());                              \
      }                                                                        \
   }
std::map<std::string, Change> const& deletions() {
   using Vel::MrouteSwitch;
   using Vel::Mroute::AsyncMrouteSwitch;
   static auto const* const all = new std::map<std::string, Change>{
         BY_ITERATOR(AsyncMrouteSwitch, inUseOifSet),
         BY_ITERATOR(AsyncMrouteSwitch, zombieOifSet),
         BY_ITERATOR(AsyncMrouteSwitch, frrMtableOifSet),
         BY_ITERATOR(AsyncMrouteSwitch, frrProcessingOifSet),
         BY_ITERATOR(AsyncMrouteSwitch, mcastIdToOifSet),
         BY_ITERATOR(AsyncMrouteSwitch, oifSetXact),
         BY_ITERATOR(AsyncMrouteSwitch, inUseRouteHandle),
         BY_ITERATOR(AsyncMrouteSwitch, inUseRouteHandleKey),
         BY_ITERATOR(MrouteSwitch, inUseOifSet),
         BY_ITERATOR(MrouteSwitch, zombieOifSet),
         BY_ITERATOR(MrouteSwitch, frrMtableOifSet),
         BY_ITERATOR(MrouteSwitch, frrProcessingOifSet),
         BY_ITERATOR(MrouteSwitch, oifSetIndexColl),
         BY_ITERATOR(MrouteSwitch, route),
         BY_ITERATOR(MrouteSwitch, boundary),
         BY_ITERATOR(MrouteSwitch, routeKeyToHandle),
         BY_ITERATOR(VelHelper::AsyncMrouteHelper, deletedMrouteCounterKey),
         BY_ITERATOR(VelHelper::AsyncMrouteHelper, noHwCounterMrouteKey),
         BY_ITERATOR(Vel::L3Status, vrfNameToVrfId),
         BY_ITERATOR(Vel::L3Status, vrfIdToVrfName),
         BY_ITERATOR(IntfVlanId::Table, intfIdToVlanId),
         BY_ITERATOR(IntfVlanId::Table, vlanIdToIntfId),
         BY_ITERATOR(Bfd::AppStatus, peerStatus),
         BY_ITERATOR(Interface::AllIntfStatusDir, intfStatus),
         BY_ITERATOR(Interface::EthIntfStatusDir, intfStatus),
         BY_ITERATOR(Routing::Hardware::RouteStatus, vrfStatus),
         BY_ITERATOR(Fib::Config, counterRoute),
         BY_ITERATOR(Fib::Config, clearCounterRoute),
         BY_ITERATOR(Fib::CounterStatus, counter),
         BY_ITERATOR(Fib::Hardware::RouteStatus, fastdropLastPollTime),
         BY_ITERATOR(Fib::Hardware::VrfStatus, route),
         BY_ITERATOR(Fib::Hardware::Status, vrfStatus),
         BY_ITERATOR(Fib::VrfConfig, config),
         BY_ITERATOR(Fib::VrfEnabledStatus, vrf),
         BY_ITERATOR(Vel::MrouteSm, mfibConfigVrf),
         BY_ITERATOR(Vel::MrouteSwitchSm, ethIntfStatus),
         BY_ITERATOR(Vel::Mroute::AsyncMrouteSwitchSm, ethIntfStatus),
         BY_ITERATOR(Vel::Mroute::AsyncMrouteSwitchSm, bfdStatus),
         BY_ITERATOR(Vel::Mroute::AsyncMrouteSwitchSm, mfibConfigVrf)};
   return *all;
}

// The arguments of <collection>Is for the n-th member; none if the collection has no such operation.
std::vector<Generic> argumentsFor(Type const& type, Qor::TypeCollection const& collection,
                                  unsigned n) {
   std::vector<Generic> arguments;
   if (insertions().contains(cat(type.name(), '.', collection.name))) return arguments;
   for (auto const& argument : type.operation(collection.name + "Is").arguments)
      arguments.push_back(sample(argument.type, n));
   return arguments;
}
void insert(Generic const& object, Qor::TypeCollection const& collection,
            std::vector<Generic> const& arguments, unsigned n) {
   auto const insertion = insertions().find(cat(Qor::typeOf(object)->name(), '.', collection.name));
   if (insertion != insertions().end()) {
      insertion->second(object, n);
   } else {
      Qor::call(object, collection.name + "Is", arguments);
   }
}

TEST_F(DescribedTypes, EachCollectionIsChangedAloneAndNotifiesOnce) {
   forEachObject([&](Type const& type, Generic const& object) {
      auto const following = follow(object);
      // The two collections of these types are inverse to each other.
      bool const inverse = type.name() == "Vel::L3Status" || type.name() == "IntfVlanId::Table";
      for (auto const* const c : type.allCollections()) {
         if (c->handler.empty()) continue;
         SCOPED_TRACE(c->name);
         auto const untouched = without(contents(object), c->name);
         std::vector<Generic> const arguments[] = {argumentsFor(type, *c, 0),
                                                   argumentsFor(type, *c, 1)};
         auto const keyAt = [&](Qor::U32 skip) { return c->members(object, skip, 1).at(0).key; };
         // Expects notifications of the key alone, or of the whole collection if the key is empty.
         auto const expectNotified = [&](std::string const& key, unsigned times = 1) {
            Lines const all = notified();
            std::string const line = key.empty() ? c->name : c->name + ' ' + key;
            EXPECT_EQ(std::ranges::count(all, line), times) << testing::PrintToString(all);
            EXPECT_TRUE(inverse || all.size() == times) << testing::PrintToString(all);
            EXPECT_TRUE(inverse || without(contents(object), c->name) == untouched);
         };
         notified();
         insert(object, *c, arguments[1], 1);
         Generic const second = keyAt(0);
         expectNotified(second.text());
         insert(object, *c, arguments[0], 0);
         Generic const first = keyAt(0) == second ? keyAt(1) : keyAt(0);
         expectNotified(first.text());
         EXPECT_TRUE(!c->ordered || keyAt(0) == first);
         EXPECT_EQ(c->size(object), 2u);
         insert(object, *c, arguments[0], 0);
         expectNotified(first.text(), 0);
         if (arguments[0].size() == 2 && !inverse) {
            Qor::call(object, c->name + "Is", {arguments[0][0], arguments[1][1]});
            expectNotified(first.text());
            auto const value = c->find(object, first)->value;
            EXPECT_TRUE(value.text() == arguments[1][1].text() || value.isNull());
         }
         for (Qor::TypeMember const& m : c->members(object, 0, 9))
            EXPECT_EQ(c->find(object, m.key)->value, m.value);
         Qor::call(object, c->name + "Notify", {first});
         expectNotified(first.text());
         Qor::call(object, c->name + "Del", {first});
         expectNotified(first.text());
         EXPECT_FALSE(c->find(object, first));
         EXPECT_TRUE(c->find(object, second));
         Qor::call(object, c->name + "Del", {first});
         expectNotified(first.text(), 0);
         insert(object, *c, arguments[0], 0);
         notified();
         deletions().at(cat(type.name(), '.', c->name))(object, 0);
         Generic const begin = c->find(object, first) ? second : first;
         EXPECT_TRUE(!c->ordered || begin == first);
         expectNotified(begin.text());
         EXPECT_EQ(c->size(object), 1u);
         Qor::call(object, c->name + "DelAll", {});
         expectNotified("");
         EXPECT_EQ(c->size(object), 0u);
         Qor::call(object, c->name + "DelAll", {});
         expectNotified("", 0);
      }
   });
}

// An attribute that can be set starts as zero, empty or the first of its enumeration, but for these.
TEST_F(DescribedTypes, NewObjectsHaveTheirDefaults) {
   std::set<std::string> const zero = {"False",    "0",       "0.0",      "''",
                                       "disabled", "unknown", "adminDown"};
   Lines others;
   forEachObject([&](Type const& type, Generic const& object) {
      for (auto const* const a : type.allAttributes()) {
         std::string const value = a->read(object).text();
         bool const plain = !a->type.starts_with("Ptr<") && !a->type.ends_with("Key");
         if (a->writable() && plain && !zero.contains(value))
            others.push_back(cat(type.name(), ' ', a->name, ' ', value));
      }
   });
   EXPECT_EQ(
         others,
         Lines({"Bfd::BfdPeerStatus intf 'et1'",  // the peer's
                "Qor::Clock timeMin inf",
                "Routing::Multicast::Fib::CounterStatusCtl limit 4294967295",
                "Routing::Multicast::Fib::VrfConfig activityPollingInterval 60",
                "Vel::L3Status multicastZombiesEnabled True",
                "Vel::Mroute::AsyncMrouteSwitch routeHandle 4294967295",
                "Vel::Mroute::AsyncMrouteSwitchSm initialized True",
                "Vel::Mroute::AsyncMtableOifSet zombieLifetime 3.0",
                "Vel::MrouteSm counterPollingInterval 2.0",
                "Vel::MrouteSwitch routeHandle 4294967295", "Vel::MrouteSwitch mtableFree True",
                "Vel::MrouteSwitch mrouteTcamFree True", "Vel::MrouteSwitch boundaryTcamFree True",
                "Vel::MrouteSwitch zombieLifetime 4.0",
                "Vel::MrouteSwitchSm agingReviewInterval 0.01",
                "Vel::MrouteSwitchSm agingReviewQuota 0.05"}));
}

}  // namespace
