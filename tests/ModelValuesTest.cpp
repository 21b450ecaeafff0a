// The value types of the model: ranges with the texts of their errors, string representations,
// orders and hashes.
#include <algorithm>
#include <cstring>
#include <set>
#include <sstream>

#include "Bfd/Peer.h"
#include "Bridging/VlanId.h"
#include "Journal.h"
#include "L3/VrfName.h"
#include "Lnet/IntfId.h"
#include "MrouteLib/MrouteCounterKey.h"
#include "MrouteLib/PortVlanSet.h"
#include "MrouteLib/RouteHandle.h"
#include "MrouteLib/RouteKeyInfo.h"
#include "Routing/Multicast/Fib/Counter.h"
#include "TestSupport.h"
#include "Vel/VelAsyncMrouteKeys.h"
#include "Vel/VelSyncMrouteKeys.h"
#include "Wisp/Multicast/Fib/RpaIndex.h"

namespace {

using Bridging::VlanId;
using Bridging::VlanIdOrNone;
using L3::VrfName;
using Lnet::IntfId;
using Lnet::IpGenAddr;
using Lnet::IpGenPrefix;
using MrouteLib::PortVlan;
using MrouteLib::PortVlanSet;
using MrouteLib::RouteHandle;
using Routing::Multicast::Fib::IpGenRouteKey;
using Routing::Multicast::Fib::RouteKeyType;
using Vel::Mroute::InUseRouteHandleKey;
using Wisp::Multicast::Fib::RpaIndex;
using namespace testSupport;

Lines words(std::string const& text) {
   std::istringstream in(text);
   return {std::istream_iterator<std::string>(in), {}};
}

TEST(ModelValues, VlansAndVrfNamesOutOfRangeAreErrorsAndNeverNarrowed) {
   std::string const vlan = "VlanId::value < 1 or > 4094 not allowed";
   std::string const orNone = "VlanIdOrNone::value > 4094 not allowed";
   for (Qor::U64 const bad : {Qor::U64{4095}, Qor::U64{65537}, Qor::U64{0x100000001}}) {
      EXPECT_EQ(errorText([&] { VlanId{bad}; }), vlan) << bad;
      EXPECT_EQ(errorText([&] { VlanIdOrNone{bad}; }), orNone) << bad;
      EXPECT_EQ(errorText([&] { VlanId(std::to_string(bad)); }), vlan);
   }
   EXPECT_EQ(errorText([] { VlanId(0); }), vlan);
   EXPECT_EQ(VlanId(1).value(), 1);
   EXPECT_EQ(VlanIdOrNone(VlanId(4094)), VlanIdOrNone(4094));
   EXPECT_TRUE(VlanIdOrNone(0).isNone());
   EXPECT_EQ(VrfName(std::string(100, 'v')).name().size(), 100u);
   EXPECT_EQ(errorText([] { VrfName(std::string(101, 'v')); }), "VrfName::bytes > 100 not allowed");
}

TEST(ModelValues, AddressesParseStrictlyAndPrintInOneForm) {
   std::pair<char const*, char const*> const good[] = {
         {"0.0.0.0", "0.0.0.0"},
         {"::", "::"},
         {"FF0E::DB8:0:7", "ff0e::db8:0:7"},
         {"::2:3:4:5:6:7:8", "0:2:3:4:5:6:7:8"},  // a single zero group is printed
         {"1:0:0:4:0:0:0:8", "1:0:0:4::8"},       // "::" is the longest run of zero groups
         {"1:0:0:4:5:0:0:8", "1::4:5:0:0:8"},     // "::" is the first of two equal runs
         {"::FFFF:a00:2", "::ffff:10.0.0.2"},
         {"1:2:3:4:5:6:1.2.3.4", "1:2:3:4:5:6:102:304"},
   };
   for (auto const& [text, printed] : good) {
      auto const address = IpGenAddr::parse(text);
      ASSERT_TRUE(address) << text;
      EXPECT_EQ(address->toString(), printed);
      EXPECT_EQ(IpGenAddr::parse(printed), address) << text;
   }
   for (std::string const& bad :
        words("10.0.0 10.0.0.0.1 10.0.0.256 10.0.0.01 10.0..1 +1.0.0.1 1000.0.0.1 : ::: :1:: 1: "
              "1::2: "
              "1::2::3 1:2:3:4:5:6:7 1:2:3:4:5:6:7:8:9 1:2:3:4::5:6:7:8 ::12345 ::g ::1.2.3 "
              "::1.2.3.4:5 1:2:3:4:5:6:7:1.2.3.4 1.2.3.4::"))
      EXPECT_FALSE(IpGenAddr::parse(bad)) << bad;
   EXPECT_FALSE(IpGenAddr::parse("") || IpGenAddr::parse("10.0.0.1 "));
   EXPECT_FALSE(IpGenAddr::parse(std::string_view("1.2.3.4\0", 8)));
}

TEST(ModelValues, PrefixesHaveNoBitsBeyondTheirLengthAndContainTheirRange) {
   EXPECT_EQ(errorText([] { IpGenPrefix(addr("::"), 384); }),
             "IpGenPrefix::length > 128 not allowed");
   EXPECT_EQ(errorText([] { IpGenPrefix(addr("10.0.0.1"), 31); }),
             "IpGenPrefix::address 10.0.0.1 has bits set beyond length 31");
   for (char const* bad : {"10.0.0.1/8", "10.0.0.0/33", "10.0.0.0/", "10.0.0.0/08", "10.0.0.0/8 ",
                           "/8", "ff00::/129", "10.0.0.0/4294967304"}) {
      EXPECT_FALSE(IpGenPrefix::parse(bad)) << bad;
   }
   IpGenPrefix const odd = prefix("10.64.0.0/11");
   EXPECT_TRUE(odd.contains(addr("10.64.0.0")) && odd.contains(addr("10.95.255.255")));
   EXPECT_FALSE(odd.contains(addr("10.96.0.0")) || odd.contains(addr("10.63.255.255")));
   EXPECT_FALSE(prefix("0.0.0.0/0").contains(addr("::")));
   EXPECT_FALSE(IpGenPrefix().contains(IpGenAddr()));
}

TEST(ModelValues, RouteKeysHaveTheirKindTypeAndPrettyForm) {
   std::tuple<IpGenRouteKey, unsigned, RouteKeyType, char const*> const table[] = {
         {key("10.0.0.2", "239.10.0.7"), 3, RouteKeyType::routed, "(10.0.0.2, 239.10.0.7)"},
         {key("::/0", "ff0e::7"), 4, RouteKeyType::routed, "(*, ff0e::7)"},
         {key("0.0.0.0/0", "239.0.0.0/8"), 1, RouteKeyType::groupRange, "(*, 239.0.0.0/8)"},
         {key("::/0", "ff00::/8"), 2, RouteKeyType::catchAll, "(*, ff00::/8)"},
         {IpGenRouteKey(), 0, RouteKeyType::invalid, "(invalid)"},
   };
   for (auto const& [k, kind, type, pretty] : table) {
      EXPECT_EQ(k.kind(), kind) << pretty;
      EXPECT_EQ(routeKeyType(k), type) << pretty;
      EXPECT_EQ(k.pretty(), pretty);
   }
   EXPECT_EQ(IpGenRouteKey::fromAddresses(addr("::"), addr("ff0e::7")), key("::/0", "ff0e::7"));
   std::string const mixed = "IpGenRouteKey::source and group of different families not allowed";
   EXPECT_EQ(errorText([] { key("10.0.0.2", "ff0e::7"); }), mixed);
}

TEST(ModelValues, RouteKeysOrderAsTheirRawBytes) {
   std::vector<IpGenRouteKey> keys{IpGenRouteKey()};
   for (char const* s : {"0.0.0.0/0", "10.0.0.0/8", "10.0.0.0/24", "10.0.0.2", "128.0.0.1"}) {
      for (char const* g : {"224.0.0.0/4", "224.0.0.1", "239.0.1.0", "239.0.0.255"})
         keys.push_back(key(s, g));
   }
   for (char const* s : {"::/0", "2001:db8::/32", "2001:db8::1", "2001:db8::ff00:0:0:1"})
      keys.push_back(key(s, "ff0e::7"));
   std::set<Qor::U32> hashes;
   for (auto const& a : keys) {
      hashes.insert(a.hash());
      for (auto const& b : keys) {
         int const raw = std::memcmp(&a, &b, sizeof a);
         EXPECT_EQ(a < b, raw < 0) << a << b;
         EXPECT_EQ(a == b, raw == 0) << a << b;
      }
   }
   EXPECT_EQ(hashes.size(), keys.size());
}

TEST(ModelValues, InterfacesOrderByNameWithNumbersAndNotByFirstUse) {
   // Leading zeros decide only between names that are equal otherwise, and then as text.
   Lines ascending =
         words("eth0 rtr rtr01 rtr1 rtr1.5 rtr2 rtr2/3 rtr2/10 rtr10 rtr99999999999999999999 "
               "rtr100000000000000000000 rtra");
   ascending.insert(ascending.begin(), "");
   std::vector<IntfId> ids(ascending.rbegin(), ascending.rend());
   std::sort(ids.begin(), ids.end());
   Lines names;
   for (IntfId const id : ids)
      names.push_back(id.name());
   EXPECT_EQ(names, ascending);

   std::string const& kept = IntfId("rtr3").name();
   for (int i = 0; i < 10000; ++i)
      IntfId("filler" + std::to_string(i));
   EXPECT_EQ(&kept, &IntfId(std::string("rtr3")).name());
   EXPECT_NE(IntfId("rtr4"), IntfId("rtr3"));
   EXPECT_TRUE(IntfId().isNull() && IntfId("").isNull());
}

TEST(ModelValues, PortVlanSetsHashAndPrintAlikeForEachOrderOfInsertion) {
   std::vector<PortVlan> members{pv("rtr3", 1007), pv("rtr4"), pv("rtr4", 1008), pv("rtr10", 5)};
   PortVlanSet first(RouteKeyType::routed);
   for (auto const& m : members)
      first.newPortVlan(m, true);
   first.toCpuIs(true);
   first.newPortVlanFrr(pv("rtr5", 1009), false);
   first.newNatVlan(VlanId(7), true);
   EXPECT_EQ(first.pretty(), "{rtr3:1007 rtr4 rtr4:1008 rtr10:5 cpu frr !rtr5:1009 nat 7}");
   do {
      PortVlanSet other = first;
      other.portVlanDelAll();
      for (auto const& m : members)
         other.newPortVlan(m, false);
      for (auto const& m : members)
         other.newPortVlan(m, true);  // sets the flag of the present member
      EXPECT_EQ(other, first);
      EXPECT_EQ(other.hash(), first.hash());
   } while (std::next_permutation(members.begin(), members.end()));
}

// ---- The promises of every value type. ----

template <class T>
concept Hashed = requires(T const& value) {
   value.hash();
};
template <class T>
concept Constructible = std::is_constructible_v<T, std::string> && !std::is_same_v<T, IntfId> &&
                        !std::is_same_v<T, VrfName>;

// The string representation of a value with members.
std::string record(char const* type, std::string const& members) {
   return cat("Value('", type, "', ** {", members, "})");
}

// Expects that the values differ from each other in equality, order, hash and string form, and that
// each string form parses to its value, but no proper prefix of it. The values are in ascending order
// if the type has one. `first` is the string representation of the first value, or its members.
template <class T>
void expectValues(char const* type, std::string const& first, std::vector<T> const& values) {
   SCOPED_TRACE(type);
   EXPECT_EQ(values.front().strep(), first.find(": ") == first.npos ? first : record(type, first));
   std::set<Qor::U32> hashes;
   for (std::size_t i = 0; i < values.size(); ++i) {
      T const& a = values[i];
      std::string const text = a.strep();
      T const read = Qor::parseStrep<T>(type, text);
      EXPECT_EQ(read, a) << text;
      EXPECT_EQ(read.strep(), text);
      if constexpr (Constructible<T>) {
         EXPECT_EQ(T(text), a) << text;
      }
      T moved = a;
      if constexpr (std::is_same_v<T, PortVlanSet>) moved.saveHash();
      EXPECT_EQ(T(std::move(moved)), a);
      if constexpr (Hashed<T>) {
         hashes.insert(a.hash());
         EXPECT_EQ(read.hash(), a.hash()) << text;
         EXPECT_EQ(Qor::parseStrep<T>(type, moved.strep()).hash(), moved.hash()) << text;
      }
      for (std::size_t j = 0; j < values.size(); ++j) {
         T const& b = values[j];
         EXPECT_EQ(a == b, i == j) << text << b;
         EXPECT_EQ(text == b.strep(), i == j) << text;
         if constexpr (std::is_same_v<T, InUseRouteHandleKey>) {
            EXPECT_EQ(a <= b, a.hash() <= b.hash());
            EXPECT_EQ(a >= b, a.hash() >= b.hash());
            EXPECT_EQ(a > b, a.hash() > b.hash());
         } else if constexpr (requires { a < b; }) {
            EXPECT_EQ(a < b, i < j) << text << b;
            EXPECT_EQ(a <= b, i <= j) << text << b;
            EXPECT_EQ(a > b, i > j) << text << b;
            EXPECT_EQ(a >= b, i >= j) << text << b;
         }
      }
      std::vector<std::string> bad{"", "?", text + " ", " " + text};
      bool const number = text.find_first_not_of("0123456789") == std::string::npos;
      for (std::size_t n = 0; !number && n < text.size(); ++n)
         bad.push_back(text.substr(0, n));
      for (std::string const& other : bad) {
         std::string const error = errorText([&] { Qor::parseStrep<T>(type, other); });
         EXPECT_TRUE(error.starts_with(std::string(type) + ": expected ")) << other << error;
      }
   }
   if constexpr (Hashed<T>) {
      EXPECT_EQ(hashes.size(), values.size());
   }
}

TEST(ModelValues, EachMemberCountsForEqualityOrderHashAndStringForm) {
   VlanIdOrNone const noVlan, five(5u);
   auto const a = key("10.0.0.2", "239.10.0.7"), b = key("10.0.0.2", "239.10.0.8");
   char const* const keyType = "Routing::Multicast::Fib::IpGenRouteKey";
   std::string const aMembers = "'source': '10.0.0.2', 'group': '239.10.0.7'";
   std::string const aText = record(keyType, aMembers);
   Vel::VrfId const one(1), two(2), large(0x10001);
   VrfName const blue("blue"), red("red");
   expectValues(keyType, aMembers, std::vector{a, b, key("10.0.0.3", "239.10.0.7")});
   expectValues("IpGenAddr", "''",
                std::vector{IpGenAddr(), addr("0.0.0.0"), addr("0.0.0.1"), addr("::")});
   expectValues("IpGenPrefix", "'10.0.0.0/8'",
                std::vector{prefix("10.0.0.0/8"), prefix("10.0.0.0/9"), prefix("11.0.0.0/8")});
   expectValues("VlanId", "1", std::vector{VlanId(1), VlanId(256), VlanId(4094)});
   expectValues("VlanIdOrNone", "0", std::vector{noVlan, five, VlanIdOrNone(4094)});
   expectValues("VrfId", "1", std::vector{one, large});
   expectValues("RouteHandle", "1",
                std::vector{RouteHandle(1), RouteHandle(0x10001), RouteHandle()});
   expectValues("RpaIndex", "0", std::vector{RpaIndex(), RpaIndex(256)});
   expectValues("IntfId", "''", std::vector{IntfId(), IntfId("rtr'3\\"), IntfId("rtr2")});
   expectValues("VrfName", "'\\xc3'", std::vector{VrfName("\xc3"), VrfName("\xc3\xa9")});
   auto const peer = [&](char const* ip, char const* intf, VrfName const& vrf,
                         Bfd::SessionType type = Bfd::SessionType::singleHop) {
      return Bfd::Peer(type, addr(ip), IntfId(intf), vrf);
   };
   expectValues("Bfd::Peer", "'type': 1, 'ip': '10.0.0.2', 'intfId': 'rtr1', 'vrfName': 'blue'",
                std::vector{peer("10.0.0.2", "rtr1", blue), peer("10.0.0.2", "rtr1", red),
                            peer("10.0.0.2", "rtr2", blue), peer("10.0.0.3", "rtr1", blue),
                            peer("10.0.0.2", "rtr1", blue, Bfd::SessionType::multihop)});
   expectValues("MrouteLib::PortVlan", "'intfId': 'rtr3', 'vlanId': 0",
                std::vector{pv("rtr3"), pv("rtr3", 1007), pv("rtr10")});
   using Info = MrouteLib::RouteKeyInfo;
   expectValues("MrouteLib::RouteKeyInfo",
                "'routeKey': " + aText + ", 'vrfName': 'red', 'acceptingVlanId': 5, 'type': 2",
                std::vector{Info(a, red, five, RouteKeyType::routed),
                            Info(b, red, five, RouteKeyType::routed),
                            Info(a, blue, five, RouteKeyType::routed),
                            Info(a, red, noVlan, RouteKeyType::routed),
                            Info(a, red, five, RouteKeyType::bridged)});
   using CounterKey = MrouteLib::MrouteCounterKey;
   expectValues("MrouteLib::MrouteCounterKey", "'vrfId': 1, 'routeKey': " + aText,
                std::vector{CounterKey(one, a), CounterKey(one, b), CounterKey(two, a)});
   using Routing::Multicast::Fib::Counter;
   expectValues("Routing::Multicast::Fib::Counter", "'timeStamp': 1.5, 'key': " + aText,
                std::vector{Counter(1.5, a), Counter(1.5, b), Counter(2, a)});
   using AsyncZombie = Vel::Mroute::ZombieKey;
   expectValues(
         "Vel::Mroute::ZombieKey", "'multicastId': 3, 'expiryTime': 1.5",
         std::vector{AsyncZombie(3, 1.5), AsyncZombie(4, 1.5), AsyncZombie(3, 2), AsyncZombie()});
   using Zombie = Vel::ZombieKey;
   expectValues("Vel::ZombieKey", "'groupId': 3, 'expiryTime': 1.5",
                std::vector{Zombie(3, 1.5), Zombie(4, 1.5), Zombie(3, 2), Zombie()});
   using Vel::RouteKeyVlanId;
   expectValues("Vel::RouteKeyVlanId", "'route': " + aText + ", 'vlan': 0",
                std::vector{RouteKeyVlanId(a, noVlan), RouteKeyVlanId(a, five),
                            RouteKeyVlanId(b, noVlan)});
   expectValues(
         "Vel::Mroute::InUseRouteHandleKey", "'routeKey': " + aText + ", 'vlan': 5, 'vrfId': 1",
         std::vector{InUseRouteHandleKey(a, five, one), InUseRouteHandleKey(b, five, one),
                     InUseRouteHandleKey(a, noVlan, one), InUseRouteHandleKey(a, five, large)});

   // Sets with one change of each member, and by each operation.
   PortVlanSet set(RouteKeyType::routed);
   set.newPortVlan(pv("rtr3", 1007), true);
   set.newPortVlanFrr(pv("rtr4"), true);
   set.newNatVlan(VlanId(7), true);
   using Change = void (*)(PortVlanSet&);
   std::vector<PortVlanSet> sets{set};
   for (Change const change : {Change([](auto& s) { s.newPortVlan(pv("rtr4"), true); }),
                               Change([](auto& s) { s.newPortVlan(pv("rtr3", 1007), false); }),
                               Change([](auto& s) { s.portVlanDelAll(); }),
                               Change([](auto& s) { s.newPortVlanFrr(pv("rtr3", 1007), true); }),
                               Change([](auto& s) { s.newPortVlanFrr(pv("rtr4"), false); }),
                               Change([](auto& s) { s.portVlanFrrDelAll(); }),
                               Change([](auto& s) { s.newNatVlan(VlanId(8), true); }),
                               Change([](auto& s) { s.newNatVlan(VlanId(7), false); }),
                               Change([](auto& s) { s.natVlanDelAll(); }),
                               Change([](auto& s) { s.portVlanIs(s.portVlanFrr()); }),
                               Change([](auto& s) { s.typeIs(RouteKeyType::bridged); }),
                               Change([](auto& s) { s.currentIifIs(IntfId("rtr5")); }),
                               Change([](auto& s) { s.toCpuIs(true); })}) {
      sets.push_back(set);
      sets.back().saveHash();  // the change is to drop this hash
      change(sets.back());
   }
   expectValues("MrouteLib::PortVlanSet",
                "'portVlan': {" + pv("rtr3", 1007).strep() + ": True}, 'portVlanFrr': {" +
                      pv("rtr4").strep() +
                      ": True}, 'natVlan': {7: True}, 'type': 2, 'currentIif': '', 'toCpu': False",
                sets);
   auto const without = [&](auto const& change) {
      PortVlanSet s = set;
      s.saveHash();
      change(s);
      return s;
   };
   EXPECT_EQ(without([](auto& s) { s.portVlanDel(pv("rtr3", 1007)); }), sets[3]);
   EXPECT_EQ(without([](auto& s) { s.portVlanFrrDel(pv("rtr4")); }), sets[6]);
   EXPECT_EQ(without([](auto& s) { s.natVlanDel(VlanId(7)); }), sets[9]);
   EXPECT_EQ(without([](auto& s) { s.portVlanDel(pv("rtr6")); }), set);
   EXPECT_TRUE(sets[3].empty() && !set.empty());

   // The text is well formed, but its source and group are of two families.
   std::string mixed = aText;
   mixed.replace(mixed.find("239.10.0.7"), 10, "ff0e::7");
   EXPECT_EQ(errorText([&] { IpGenRouteKey{mixed}; }),
             "IpGenRouteKey::source and group of different families not allowed");
}

}  // namespace
