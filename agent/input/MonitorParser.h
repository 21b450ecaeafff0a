// One line of `ip -ts -o monitor mroute link` to one event.
//
//    [2026-11-21T03:13:27.100001] (10.0.0.2,239.10.0.7)   Iif: rtr0  Oifs: pimreg rtr3 rtr4(ttl 5)
//                                                         State: resolved Table: default
//    [2026-11-21T03:13:27.100002] Deleted (10.0.0.2,239.10.0.7)   Iif: unresolved  State: resolved
//    [2026-11-21T03:13:44.504015] 7: rtr5@if2: <NO-CARRIER,UP> mtu 1500 state DOWN ... \ link/...
//
// What is accepted, beyond what these lines show (the first is one line):
//  - no time stamp at all; `[nsid current]` and the labels `[MROUTE]` and `[LINK]`;
//  - any number of blanks between words; no `Oifs:`; no `Table:`;
//  - `(ttl N)` behind an output: the threshold is checked to be a number of 2 to 255 and dropped,
//    since a switch replicates without regard to it;
//  - `, offload` and the statistics of `ip -s` behind the state.
// What is skipped: an empty line, a comment that begins with '#', a line labelled as another kind
// of object (`[ROUTE]`, `[NEIGH]`, ...), a line of another network namespace (`[nsid 3]`).
// Everything else is malformed, with a reason and a column.
//
// The state of a link is told by its flags and its state word together:
//  - deleted: notPresent. Not for an interface that leaves a bridge: the bridge announces that as a
//    deletion, too, but names a master and no qdisc, which the interface's own deletion has;
//  - without the flag UP, or with NO-CARRIER and no more particular word: down;
//  - otherwise the word's status; where it is UNKNOWN or missing, because the driver does not
//    tell, up if the flag LOWER_UP says that the layer below works.
//
// The parser keeps no state from line to line and reads no clock.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "agent/input/CaptureEvent.h"

namespace Agent {

class MonitorParser {
 public:
   enum class Result { event, skipped, malformed };

   // Reads `line`, without its line end. With Result::event, `event` is the event, its storage
   // reused where the kind is the same; `stamped` and `unixMicroseconds` are set and `time` is left
   // at 0, since the line alone does not know its place in time. Otherwise `event` may hold
   // anything.
   Result parse(std::string_view line, CaptureEvent& event);

   // After Result::malformed: what is wrong and where, "unknown word "Foo" (column 34)".
   std::string const& reason() const { return reason_; }

 private:
   struct Link {  // what a link line says of the link's state
      bool up = false;
      bool lowerUp = false;
      bool noCarrier = false;
      bool master = false;
      bool qdisc = false;
      Interface::IntfOperStatus word = Interface::IntfOperStatus::unknown;

      Interface::IntfOperStatus status() const;
   };

   bool atEnd() const { return position_ == line_.size(); }
   char peek() const { return atEnd() ? '\0' : line_[position_]; }
   bool accept(std::string_view literal);
   void skipBlanks();
   std::string_view word();
   std::optional<std::uint64_t> number(std::uint64_t max);
   bool fail(std::string reason, std::size_t position);
   bool fail(std::string reason) { return fail(std::move(reason), position_); }
   bool failWord(char const* expected);

   bool parsePrefixes(CaptureTime& time, bool& skip);
   bool parseStamp(CaptureTime& time);
   bool parseMroute(MrouteEvent& event);
   bool parseKey(MrouteEvent& event);
   bool parseOifs(MrouteEvent& event);
   bool parseTtl();
   bool parseState(MrouteEvent& event);
   bool parseStatistics();
   bool parseLink(LinkEvent& event);
   bool parseLinkName(LinkEvent& event);
   bool parseLinkFlags(Link& link);
   bool parseLinkAttributes(Link& link);

   std::string_view line_;
   std::size_t position_ = 0;
   std::string reason_;
};

}  // namespace Agent
