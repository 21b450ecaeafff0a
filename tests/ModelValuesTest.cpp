// The value types of the model: ranges with the texts of their errors, string representations,
// orders and hashes.
#include <algorithm>
#include <cstring>
#include <set>
#include <sstream>

#include "Bfd/Peer.h"
#include "Bridging/VlanId.h"
#include "L3/VrfName.h"
#include "Lnet/IntfId.h"
#include "MrouteLib/PortVlanSet.h"
#include "MrouteLib/RouteHandle.h"
#include "TestSupport.h"
#include "Vel/VrfId.h"

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
   first.saveHash();
   do {
      PortVlanSet other = first;
      other.portVlanDelAll();
      for (auto const& m : members)
         other.newPortVlan(m, false);
      other.portVlanDel(pv("rtr6"));  // not a member
      EXPECT_NE(other, first);
      EXPECT_NE(other.hash(), first.hash());  // the copied hash was dropped
      for (auto const& m : members)
         other.newPortVlan(m, true);  // sets the flag of the present member
      EXPECT_EQ(other, first);
      EXPECT_EQ(other.hash(), first.hash());
   } while (std::next_permutation(members.begin(), members.end()));
   // A set that was moved from is another set, with a hash of its own.
   PortVlanSet moved = std::move(first);
   EXPECT_NE(first.hash(), moved.hash());
   first = std::move(moved);
   EXPECT_NE(first.hash(), moved.hash());
}

// Checks the value's string representation, that both parsers return the value for it, and that an
// error with the type's name is raised for each proper prefix of it and for text around it.
template <class T>
void expectStrep(T const& value, std::string const& expected, char const* type) {
   std::string const strep = Qor::valueToStrep(value);
   EXPECT_EQ(strep, expected);
   EXPECT_EQ(Qor::parseStrep<T>(type, strep), value) << strep;
   if constexpr (!std::is_same_v<T, IntfId> && !std::is_same_v<T, VrfName>) {
      EXPECT_EQ(T(strep), value) << strep;
   }
   std::vector<std::string> bad{"", "?", strep + " ", " " + strep};
   bool const number = strep.find_first_not_of("0123456789") == std::string::npos;
   for (std::size_t n = 0; !number && n < strep.size(); ++n) {
      bad.push_back(strep.substr(0, n));
   }
   for (auto const& text : bad) {
      std::string const error = errorText([&] { Qor::parseStrep<T>(type, text); });
      EXPECT_EQ(error.rfind(std::string(type) + ": expected ", 0), 0u) << text << " -> " << error;
   }
}

TEST(ModelValues, StringRepresentationsParseToTheValueAndMalformedTextsAreErrors) {
   std::string const keyText =
         "Value('Routing::Multicast::Fib::IpGenRouteKey', ** "
         "{'source': '10.0.0.2', 'group': '239.10.0.7'})";
   expectStrep(key("10.0.0.2", "239.10.0.7"), keyText, "IpGenRouteKey");
   expectStrep(VlanId(4094), "4094", VlanId::typeName);
   expectStrep(RouteHandle(), "4294967295", RouteHandle::typeName);
   expectStrep(IntfId("rtr'3\\"), "'rtr\\'3\\\\'", "IntfId");
   expectStrep(VrfName("\xc3\xa9"), "'\\xc3\\xa9'", "VrfName");
   expectStrep(IpGenAddr(), "''", "IpGenAddr");
   expectStrep(prefix("10.0.0.0/8"), "'10.0.0.0/8'", "IpGenPrefix");
   expectStrep(Bfd::Peer(Bfd::SessionType::singleHop, addr("10.0.0.2"), IntfId("rtr1"),
                         VrfName("default")),
               "Value('Bfd::Peer', ** {'type': 1, 'ip': '10.0.0.2', 'intfId': 'rtr1', "
               "'vrfName': 'default'})",
               "Bfd::Peer");
   std::string const pvText = "Value('MrouteLib::PortVlan', ** {'intfId': 'rtr3', 'vlanId': 1007})";
   PortVlanSet set(RouteKeyType::routed);
   set.newPortVlan(pv("rtr3", 1007), true);
   set.newNatVlan(VlanId(7), true);
   set.newNatVlan(VlanId(8), false);
   expectStrep(set,
               "Value('MrouteLib::PortVlanSet', ** {'portVlan': {" + pvText +
                     ": True}, 'portVlanFrr': {}, 'natVlan': {7: True, 8: False}, 'type': 2, "
                     "'currentIif': '', 'toCpu': False})",
               "PortVlanSet");

   // The text is well formed, but its source and group are of two families.
   std::string mixed = keyText;
   mixed.replace(mixed.find("239.10.0.7"), 10, "ff0e::7");
   EXPECT_EQ(errorText([&] { IpGenRouteKey{mixed}; }),
             "IpGenRouteKey::source and group of different families not allowed");
}

}  // namespace
