#include "Routing/Multicast/Fib/IpGenRouteKey.h"

namespace Routing::Multicast::Fib {

namespace {

using Lnet::IpFamily;
using Lnet::IpGenAddr;
using Lnet::IpGenPrefix;

constexpr IpGenAddr source4 = IpGenAddr::v4(0x0a000002);
constexpr IpGenAddr group4 = IpGenAddr::v4(0xef0a0007);
constexpr IpGenAddr source6 = IpGenAddr::v6({0x20, 0x01});
constexpr IpGenAddr group6 = IpGenAddr::v6({0xff, 0x0e});

constexpr bool encodes(IpGenRouteKey const& key, unsigned kind, unsigned type) {
   return key.kind() == kind && static_cast<unsigned>(routeKeyType(key)) == type;
}

// The programmers and platforms rely on these numbers. With a wrong one they would treat an
// ordinary route as the catch-all, as a group range, or as a route that stays out of the hardware.
static_assert(encodes(invalidRouteKey(), 0, 0));
static_assert(encodes(IpGenRouteKey(IpGenPrefix::any(IpFamily::v4),
                                    IpGenPrefix(IpGenAddr::v4(0xef000000), 8)),
                      1, 3));
static_assert(encodes(IpGenRouteKey(IpGenPrefix::host(source4),
                                    IpGenPrefix::multicast(IpFamily::v4)),
                      1, 3));
static_assert(encodes(IpGenRouteKey(IpGenPrefix::any(IpFamily::v6), IpGenPrefix(group6, 127)), 1,
                      3));
static_assert(encodes(canonicalCatchAllKey(), 2, 4));
static_assert(encodes(IpGenRouteKey(IpGenPrefix::any(IpFamily::v6),
                                    IpGenPrefix::multicast(IpFamily::v6)),
                      2, 4));
static_assert(encodes(IpGenRouteKey::fromAddresses(source4, group4), 3, 2));
static_assert(encodes(IpGenRouteKey::fromAddresses(source6, group6), 3, 2));
static_assert(encodes(IpGenRouteKey::fromAddresses(IpGenAddr::v4(0), group4), 4, 2));
static_assert(encodes(IpGenRouteKey::fromAddresses(IpGenAddr::v6({}), group6), 4, 2));
static_assert(encodes(IpGenRouteKey::fromAddresses(IpGenAddr::v4(0), IpGenAddr::v4(0xe0000000)), 4,
                      2));
static_assert(static_cast<unsigned>(RouteKeyType::softwareOnly) == 1 &&
              static_cast<unsigned>(RouteKeyType::bridged) == 5);

// Keys compare alike in constant expressions and at run time. The tests check run time.
static_assert(invalidRouteKey() < canonicalCatchAllKey());
static_assert(IpGenRouteKey::fromAddresses(IpGenAddr::v4(0x00000100), group4) <
              IpGenRouteKey::fromAddresses(IpGenAddr::v4(0x01000000), group4));
static_assert(IpGenRouteKey::fromAddresses(source4, group4) !=
              IpGenRouteKey::fromAddresses(source4, source4));

constexpr char typeName[] = "Routing::Multicast::Fib::IpGenRouteKey";

}  // namespace

void IpGenRouteKey::throwFamilies() {
   Qor::throwRange("IpGenRouteKey::source and group of different families not allowed");
}

Qor::String IpGenRouteKey::pretty() const {
   if (isNull()) return "(invalid)";
   Qor::String out = "(";
   out += source_.isAny() ? "*" : source_.toString();
   return out + ", " + group_.toString() + ")";
}

Qor::String IpGenRouteKey::strep() const {
   return Qor::String("Value('") + typeName + "', ** {'source': " + source_.strep() +
          ", 'group': " + group_.strep() + "})";
}

IpGenRouteKey::IpGenRouteKey(Qor::String const& strep)
      : IpGenRouteKey(Qor::parseStrep<IpGenRouteKey>(typeName, strep)) {}

IpGenRouteKey IpGenRouteKey::fromStrep(Qor::StrepReader& reader) {
   reader.expect("Value('Routing::Multicast::Fib::IpGenRouteKey', ** {");
   reader.expect("'source': ");
   auto const source = Lnet::IpGenPrefix::fromStrep(reader);
   reader.expect(", 'group': ");
   auto const group = Lnet::IpGenPrefix::fromStrep(reader);
   reader.expect("})");
   return IpGenRouteKey(source, group);
}

}  // namespace Routing::Multicast::Fib
