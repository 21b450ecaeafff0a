// The lines of a monitor: accepted lines, skipped lines, and refused lines with the reason. The
// accepted lines have the format in which `ip monitor` prints.
#include "agent/input/MonitorParser.h"

#include <gtest/gtest.h>

#include <algorithm>

#include "CaptureTestSupport.h"

namespace Agent {
namespace {

struct LineCase {
   std::string_view line;
   std::string_view expected;  // the text of the event, or the reason of the refusal
};

// clang-format off
constexpr LineCase acceptedRoutes[] = {
   {"[2026-11-21T03:13:44.504015] Deleted (0.0.0.0,239.10.0.7)            Iif: unresolved Oifs: pimreg rtr3 rtr4  State: resolved Table: default",
    "del default (*, 239.10.0.7) iif= oifs=pimreg,rtr3,rtr4"},
   {"[2026-11-21T03:17:32.968032] (2001:db8::2,ff1e:30:2001:db8::2) Iif: rtr0       Oifs: rtr4 rtr10  State: resolved",
    "set default (2001:db8::2, ff1e:30:2001:db8::2) iif=rtr0 oifs=rtr4,rtr10"},
   // Thresholds, statistics, offload, unusual but valid names, embedded IPv4.
   {"(10.0.0.2,239.1.1.2) Iif: a Oifs: b(ttl 255)  State: resolved\\  7 packets, 900 bytes, 3 arrived on wrong iif., Age 1.45 Table: blue",
    "set blue (10.0.0.2, 239.1.1.2) iif=a oifs=b"},
   {"(::ffff:10.0.0.2,ff3e::102:304)  Iif: x@y        State: resolved, offload\\  0 packets, 0 bytes Table: main",
    "set default (::ffff:10.0.0.2, ff3e::102:304) iif=x@y oifs="},
   // Tables: the VRF default is another table in each family.
   {"(10.0.0.2,239.1.1.1) Iif: a State: resolved Table: main", "set main (10.0.0.2, 239.1.1.1) iif=a oifs="},
   {"(::,ff3e::2) Iif: a State: resolved Table: default", "set 253 (*, ff3e::2) iif=a oifs="},
   // Labels, namespaces and blanks.
   {"[2026-11-21T08:05:24.208703] [nsid current][MROUTE](::,ff3e::2) Iif: a State: resolved", "set default (*, ff3e::2) iif=a oifs="},
   {"  \t(::,ff3e::2)Iif:\ta   Oifs:  b  b   State:  resolved   Table:   10  ", "set 10 (*, ff3e::2) iif=a oifs=b,b"},
};

constexpr LineCase acceptedLinks[] = {
   {"[2026-11-21T03:13:25.208027] 10: pimreg@NONE: <NOARP,UP,LOWER_UP> mtu 1472 qdisc noqueue state UNKNOWN group default \\    link/pimreg ",
    "link 10 pimreg up adminUp"},
   {"[2026-11-21T03:13:47.040896] 7: rtr5@if2: <NO-CARRIER,BROADCAST,MULTICAST,UP,LOWER_UP> mtu 1500 qdisc noqueue state DOWN group default \\    link/ether ba:60:69:7a:61:74 brd ff:ff:ff:ff:ff:ff link-netns caph5",
    "link 7 rtr5 down adminUp"},
   {"[2026-11-21T08:05:25.034058] Deleted 3: tapB: <BROADCAST,MULTICAST> mtu 1500 qdisc noop state DOWN group default \\    link/ether 1a:6c:20:c4:09:2b",
    "del 3 tapB notPresent"},
   {"[LINK]3: a: <UP,LOWER_UP> mtu 1500 xdpgeneric/id:4 qdisc q master br0 state UP mode DEFAULT group default qlen 1000 event FEATURE CHANGE \\ link/ether x \377",
    "link 3 a up adminUp"},
   {"Deleted 3: a: <UP,LOWER_UP> mtu 1500 master br0 state UP \\    link/ether", "link 3 a up adminUp"},  // the link leaves its bridge
   {"3: a@b@if9: <> mtu 9 \\ link/ether", "link 3 a@b down"},
   {"3: a: <UP,M-DOWN> state LOWERLAYERDOWN \\ link/ether", "link 3 a lowerLayerDown adminUp"},
};

constexpr std::string_view skippedLines[] = {
   "", "   ", "  # (::,ff3e::2) Iif: a State: resolved",
   "[2026-11-21T08:05:24.206216] [NETCONF]inet all mc_forwarding on ",
   "[2026-11-21T08:05:25.682607] [NEIGH]Deleted ff02::16 dev tapA lladdr 33:33:00:00:00:16 NOARP",
   "[2026-11-21T08:05:24.208703] [nsid 3][MROUTE](::,ff3e::2) Iif: a State: resolved"};

constexpr LineCase refusedLines[] = {
   // The beginning of a line.
   {"Timestamp: Sat Nov 21 08:05:24 2026 205633 usec", "a time stamp in the long form of `ip -t`; record with `ip -ts` (column 1)"},
   {"    link/ether ba:60:69:7a:61:74", "the continuation of a line; record with `ip -o` (column 5)"},
   {"[2026-11-21T03:13:25.2079] (::,ff3e::2)", "bad time stamp, not [YYYY-MM-DDTHH:MM:SS.ffffff] (column 26)"},
   {"[2026-02-28T23:13:25.207952] inet rtr5 mc_forwarding off", "unknown word \"inet\" where a multicast route or a link is expected (column 30)"},
   // Routes.
   {"(::,ff3e::2) Iif: a Oifs: \033[36mb", "interface name \"\033[36mb\" has a byte that no interface name has (column 27)"},
   {"(::,ff3e::2) Iif: a b State: resolved", "unknown word \"b\" where \"Oifs:\" or \"State:\" is expected (column 21)"},
   {"(::,ff3e::2) Iif: a Oifs: b(ttl 1) State: resolved", "bad TTL threshold, not \"(ttl N)\" (column 33)"},
   // Links.
   {"3: a    inet 10.9.0.1/24 scope global a", "no ':' behind the interface name (column 4)"},
   {"3: a: <UP,up> \\ link/ether", "bad link flag \"up\" (column 11)"},
};
// clang-format on

std::string parsed(MonitorParser& parser, std::string_view line, CaptureEvent& event) {
   switch (parser.parse(line, event)) {
      case MonitorParser::Result::event:
         return render(event);
      case MonitorParser::Result::skipped:
         return "skipped";
      default:
         return "malformed: " + parser.reason();
   }
}

TEST(MonitorParser, EveryFormOfARouteAndOfALinkIsRead) {
   MonitorParser parser;
   CaptureEvent event;  // reused for all lines as in the reader: no value may remain in it
   for (auto const& c : acceptedRoutes) {
      EXPECT_EQ(parsed(parser, c.line, event), c.expected);
      EXPECT_EQ(parsed(parser, acceptedLinks[0].line, event), acceptedLinks[0].expected);
   }
   for (auto const& c : acceptedLinks)
      EXPECT_EQ(parsed(parser, c.line, event), c.expected);
}

TEST(MonitorParser, LinesOfOtherKindsAreSkippedAndBadLinesAreRefusedWithReasonAndColumn) {
   MonitorParser parser;
   CaptureEvent event;
   for (auto const line : skippedLines)
      EXPECT_EQ(parsed(parser, line, event), "skipped") << line;
   for (auto const& c : refusedLines)
      EXPECT_EQ(parsed(parser, c.line, event), "malformed: " + std::string(c.expected)) << c.line;
   std::string const table(101, 't');
   EXPECT_EQ(parsed(parser, "(::,ff3e::2) Iif: a State: resolved Table: " + table, event),
             "malformed: table name \"" + table.substr(0, 60) +
                   "...\": VrfName::bytes > 100 not allowed (column 44)");
}

TEST(MonitorParser, ATimeStampIsCoordinatedUniversalTime) {
   MonitorParser parser;
   CaptureEvent event;
   auto const stampOf = [&](std::string const& stamp) {
      parsed(parser, stamp + "(::,ff3e::2) Iif: a State: resolved", event);
      return timeOf(event).stamped ? timeOf(event).unixMicroseconds : -1;
   };
   EXPECT_EQ(stampOf("[2026-11-21T03:13:55.560473] "), 1795230835560473);
   EXPECT_EQ(stampOf("[2024-02-29T23:59:59.999999]"), 1709251199999999);
   EXPECT_EQ(stampOf(""), -1);
}

}  // namespace
}  // namespace Agent
