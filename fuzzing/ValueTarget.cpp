// The target `value`: the string representations of values, as the type registry parses them, and
// the texts of addresses, prefixes, routes and chip options.
//
// The first line of an input names the parser. An input of one line is passed to all parsers.
#include <arpa/inet.h>

#include <algorithm>
#include <cstring>
#include <sstream>

#include "Bfd/Peer.h"
#include "MrouteLib/MrouteCounterKey.h"
#include "MrouteLib/PortVlanSet.h"
#include "MrouteLib/RouteHandle.h"
#include "MrouteLib/RouteKeyInfo.h"
#include "Qor/Type.h"
#include "Routing/Multicast/Fib/Counter.h"
#include "Vel/VelAsyncMrouteKeys.h"
#include "Vel/VelSyncMrouteKeys.h"
#include "Wisp/Multicast/Fib/RpaIndex.h"
#include "agent/input/RouteFields.h"
#include "fuzzing/Target.h"
#include "platform/sim/SimPlatform.h"

namespace Fuzz {

namespace {

using Qor::Generic;

template <class T>
std::string textOf(T const& value) {
   return (std::ostringstream() << value).str();
}

// Parses the string representation of a T. A parsed value must be printed in a form that is parsed
// as an equal value, and an error must name the type and the position.
template <class T>
void runStrep(std::string const& text) {
   T value;
   try {
      value = Qor::parseStrep<T>("T", text);
   } catch (Qor::RangeException const& error) {
      require(error.message().starts_with("T: expected ") ||
                    error.message().find("not allowed") != std::string::npos ||
                    error.message().find("has bits set beyond") != std::string::npos,
              "the error has an unexpected form: " + error.message());
      return;
   }
   std::string const printed = value.strep();
   T const again = Qor::parseStrep<T>("T", printed);
   require(again == value,
           text + " is printed as " + printed + ", which is parsed as a different value");
   require(again.strep() == printed, printed + " is parsed and printed as " + again.strep());
   if constexpr (std::is_constructible_v<T, std::string> && !requires { value.name(); }) {
      require(T(printed) == value, printed + " constructs a different value");
   }
}

// The same, with the parser that the type registry has for a type.
void runType(Qor::Type const& type, std::string const& text) {
   Generic value;
   try {
      value = type.parse(text);
   } catch (Qor::RangeException const& error) {
      require(!error.message().empty(), "the error has no text");
      return;
   }
   require(type.parse(value.text()) == value, type.name() + ": " + text + " is printed as " +
                                                    value.text() +
                                                    ", which is parsed as a different value");
}

// An address must be accepted exactly if the parser of the system accepts it, with the same bytes.
// Neither parser accepts a scope.
void runAddress(std::string const& text) {
   bool const v6 = text.find(':') != std::string::npos;
   unsigned char bytes[16] = {};
   bool const expected = text.find('\0') == std::string::npos &&
                         inet_pton(v6 ? AF_INET6 : AF_INET, text.c_str(), bytes) == 1;
   auto const address = Lnet::IpGenAddr::parse(text);
   require(address.has_value() == expected, text + (expected ? " is rejected" : " is accepted"));
   if (!address) return;
   require(address->isV6() == v6 && std::memcmp(address->bytes().data(), bytes, 16) == 0,
           text + " is parsed as " + textOf(*address));
   // The text that the system prints is parsed as the same address.
   char buffer[64];
   inet_ntop(v6 ? AF_INET6 : AF_INET, bytes, buffer, sizeof buffer);
   require(Lnet::IpGenAddr::parse(buffer) == address,
           std::string(buffer) + " is parsed as a different address");
   require(Lnet::IpGenAddr::parse(textOf(*address)) == address,
           text + " is printed as a different address");
}

void runPrefix(std::string const& text) {
   auto const prefix = Lnet::IpGenPrefix::parse(text);
   if (!prefix) return;
   require(Lnet::IpGenPrefix::parse(textOf(*prefix)) == prefix,
           text + " is printed as a different prefix");
   require(Lnet::IpGenAddr::parse(text.substr(0, text.find('/'))) == prefix->address(),
           text + " has a different address");
}

void runRoute(std::string const& text) {
   std::size_t const comma = std::min(text.find(','), text.size());
   Routing::Multicast::Fib::IpGenRouteKey key;
   std::string const group = comma < text.size() ? text.substr(comma + 1) : "";
   if (!Agent::routeKeyOf(text.substr(0, comma), group, key).empty()) return;
   using Key = Routing::Multicast::Fib::IpGenRouteKey;
   require(Key(key.strep()) == key, key.strep() + " is parsed as a different route");
}

void runChip(std::string const& text) {
   using VelMroute::Table;
   auto const printed = [](std::string const& options) {
      VelMroute::PlatformOptions parsed;
      parsed.add(options);
      auto const chip = VelMroute::newSimulatedAsyncPlatform(parsed);
      auto const size = [&](Table table) {
         return std::to_string(chip->view()->use(table).size.value());
      };
      return "groups=" + size(Table::group) + ",routes=" + size(Table::entry) +
             ",boundaries=" + size(Table::boundary);
   };
   std::string sizes;
   try {
      sizes = printed(text);
   } catch (VelMroute::PlatformOptionError const& error) {
      require(*error.what() != 0, "the error has no text");
      return;
   }
   require(printed(sizes) == sizes, text + " is parsed as " + sizes);
}

constexpr std::pair<char const*, void (*)(std::string const&)> texts[] = {
      {"address", runAddress},
      {"prefix", runPrefix},
      {"route", runRoute},
      {"chip", runChip},
      {"Address", runStrep<Lnet::IpGenAddr>},
      {"Prefix", runStrep<Lnet::IpGenPrefix>},
      {"IntfId", runStrep<Lnet::IntfId>},
      {"VrfName", runStrep<L3::VrfName>},
      {"VrfId", runStrep<Vel::VrfId>},
      {"VlanIdOrNone", runStrep<Bridging::VlanIdOrNone>},
      {"RouteHandle", runStrep<MrouteLib::RouteHandle>},
      {"RpaIndex", runStrep<Wisp::Multicast::Fib::RpaIndex>},
      {"RouteKey", runStrep<Routing::Multicast::Fib::IpGenRouteKey>},
      {"PortVlan", runStrep<MrouteLib::PortVlan>},
      {"PortVlanSet", runStrep<MrouteLib::PortVlanSet>},
      {"RouteKeyInfo", runStrep<MrouteLib::RouteKeyInfo>},
      {"CounterKey", runStrep<MrouteLib::MrouteCounterKey>},
      {"Counter", runStrep<Routing::Multicast::Fib::Counter>},
      {"Peer", runStrep<Bfd::Peer>},
      {"AsyncZombieKey", runStrep<Vel::Mroute::ZombieKey>},
      {"ZombieKey", runStrep<Vel::ZombieKey>},
      {"InUseRouteHandleKey", runStrep<Vel::Mroute::InUseRouteHandleKey>},
      {"RouteKeyVlanId", runStrep<Vel::RouteKeyVlanId>},
};

void runValue(std::string_view input) {
   std::size_t const end = input.find('\n');
   bool const named = end != std::string_view::npos;
   std::string_view const name = named ? input.substr(0, end) : std::string_view();
   std::string const text(named ? input.substr(end + 1) : input);
   for (auto const& [parserName, parse] : texts) {
      if (!named || parserName == name) parse(text);
   }
   for (Qor::Type const* const type : Qor::types()) {
      if (type->hasStrep() && (!named || type->name() == name)) runType(*type, text);
   }
}

// Adds the string representations of values of one parser.
template <class T>
void addStreps(std::vector<std::string>& seeds, char const* name, std::initializer_list<T> values) {
   for (T const& value : values)
      seeds.push_back(std::string(name) + '\n' + value.strep());
}

std::vector<std::string> valueSeeds() {
   using Lnet::IpGenAddr;
   std::vector<std::string> seeds = {"address\n10.0.0.1",
                                     "address\n2001:db8::1",
                                     "address\n::ffff:1.2.3.4",
                                     "address\n::",
                                     "address\nff3e:0:0:1::",
                                     "prefix\n10.0.0.0/8",
                                     "prefix\nff00::/8",
                                     "prefix\n::/0",
                                     "route\n10.0.0.1,239.1.1.1",
                                     "route\n::,ff3e::1",
                                     "chip\ngroups=1,routes=2,boundaries=3,latency=0.5",
                                     "VelHelper::MrouteXactType\ningress"};
   IpGenAddr const source = IpGenAddr::v4(0x0a000001);
   auto const key =
         Routing::Multicast::Fib::IpGenRouteKey::fromAddresses(source, IpGenAddr::v4(0xef000001));
   Lnet::IntfId const intf("rtr'3\\");
   Bridging::VlanIdOrNone const vlan(1007);
   L3::VrfName const vrf("\xc3\xa9");
   MrouteLib::PortVlan const port(intf, vlan);
   MrouteLib::PortVlanSet set(Routing::Multicast::Fib::RouteKeyType::routed);
   set.newPortVlan(port, true);
   set.newNatVlan(Bridging::VlanId(7), false);
   MrouteLib::RouteKeyInfo const none;
   addStreps(seeds, "Address", {IpGenAddr(), source, IpGenAddr::v6({0xff, 0x3e})});
   addStreps(seeds, "Prefix", {Lnet::IpGenPrefix(), Lnet::IpGenPrefix::host(source)});
   addStreps(seeds, "IntfId", {intf});
   addStreps(seeds, "VrfName", {vrf});
   addStreps(seeds, "VrfId", {Vel::VrfId()});
   addStreps(seeds, "VlanIdOrNone", {vlan});
   addStreps(seeds, "RouteHandle", {MrouteLib::RouteHandle()});
   addStreps(seeds, "RpaIndex", {Wisp::Multicast::Fib::RpaIndex()});
   addStreps(seeds, "RouteKey", {key});
   addStreps(seeds, "PortVlan", {port});
   addStreps(seeds, "PortVlanSet", {set});
   addStreps(seeds, "RouteKeyInfo", {none});
   addStreps(seeds, "CounterKey", {MrouteLib::MrouteCounterKey()});
   addStreps(seeds, "Counter", {Routing::Multicast::Fib::Counter()});
   addStreps(seeds, "Peer", {Bfd::Peer(Bfd::SessionType::singleHop, source, intf, vrf)});
   addStreps(seeds, "AsyncZombieKey", {Vel::Mroute::ZombieKey(3, 12.5)});
   addStreps(seeds, "ZombieKey", {Vel::ZombieKey(3, Qor::never)});
   addStreps(seeds, "InUseRouteHandleKey", {Vel::Mroute::InUseRouteHandleKey()});
   addStreps(seeds, "RouteKeyVlanId", {Vel::RouteKeyVlanId()});
   seeds.emplace_back(100'000, '(');
   return seeds;
}

}  // namespace

Target valueTarget() {
   std::vector<std::string> words = {
         "Value('",    "', ** {'",   "': ",      ", '",  "})",    "'",    "\\'",
         "\\\\",       "\\x00",      "\\xff",    "True", "False", "null", "inf",
         "-inf",       "nan",        "1e308",    "-0.0", "4094",  "4095", "4294967295",
         "4294967296", "10.0.0.0/8", "ff00::/8", "::",   ":",     "/",    "0"};
   for (auto const& [name, parse] : texts)
      words.push_back(std::string(name) + '\n');
   return {runValue, valueSeeds, words};
}

}  // namespace Fuzz
