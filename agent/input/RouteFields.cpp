#include "agent/input/RouteFields.h"

#include "Lnet/IpGenAddr.h"
#include "Qor/Exception.h"
#include "agent/input/PrintableText.h"

namespace Agent {

std::string routeKeyOf(std::string_view source, std::string_view group,
                       Routing::Multicast::Fib::IpGenRouteKey& key) {
   auto const src = Lnet::IpGenAddr::parse(source);
   if (!src) return "bad source address " + inQuotes(source);
   auto const grp = Lnet::IpGenAddr::parse(group);
   if (!grp) return "bad group address " + inQuotes(group);
   if (src->isV4() != grp->isV4()) {
      return "source " + inQuotes(source) + " and group " + inQuotes(group) +
             " are of different address families";
   }
   if (!grp->isMulticast()) return "group " + inQuotes(group) + " is not a multicast address";
   if (src->isMulticast()) return "source " + inQuotes(source) + " is a multicast address";
   key = Routing::Multicast::Fib::IpGenRouteKey::fromAddresses(*src, *grp);
   return "";
}

std::string intfOf(std::string_view name, Lnet::IntfId& intf) {
   constexpr std::size_t limit = 15;
   if (name.empty()) return "empty interface name";
   if (name.size() > limit) return "interface name " + inQuotes(name) + " is longer than 15 bytes";
   for (char const c : name) {
      if (c <= ' ' || c > '~' || c == '/' || c == ':') {
         return "interface name " + inQuotes(name) + " has a byte that no interface name has";
      }
   }
   intf = Lnet::IntfId(name);
   return "";
}

std::string vrfOf(bool v4, std::optional<std::string_view> table, L3::VrfName& vrf) {
   std::string_view name = table.value_or("default");
   if (table) {
      if (name.empty()) return "empty table name";
      for (char const c : name) {
         if (c <= ' ' || c > '~') return "table name " + inQuotes(name) + " is not printable ASCII";
      }
      if (name == (v4 ? "253" : "254") || (!v4 && name == "main")) {
         name = "default";
      } else if (!v4 && name == "default") {
         name = "253";
      }
   }
   try {
      vrf = L3::VrfName(std::string(name));
   } catch (Qor::RangeException const& error) {
      return "table name " + inQuotes(name) + ": " + error.message();
   }
   return "";
}

}  // namespace Agent
