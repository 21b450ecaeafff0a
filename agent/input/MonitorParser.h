// Parses one line of `ip -ts -o monitor mroute link` into one event.
//
//    [2026-11-21T03:13:27.100001] (10.0.0.2,239.10.0.7)   Iif: rtr0  Oifs: pimreg rtr3 rtr4(ttl 5)
//                                                         State: resolved Table: default
//    [2026-11-21T03:13:27.100002] Deleted (10.0.0.2,239.10.0.7)   Iif: unresolved  State: resolved
//    [2026-11-21T03:13:44.504015] 7: rtr5@if2: <NO-CARRIER,UP> mtu 1500 state DOWN ... \ link/...
//
// (The first two lines above are one line.) The parser also accepts
//  - lines without a time stamp, `[nsid current]`, and the labels `[MROUTE]` and `[LINK]`;
//  - any number of blanks between words, and lines without `Oifs:` or `Table:`;
//  - `(ttl N)` behind an output, with N of 2 to 255. A switch has no such threshold, so N is
//    dropped;
//  - `, offload` and the statistics of `ip -s` behind the state.
// It skips empty lines, comments that begin with '#', lines labelled as another kind of object
// (`[ROUTE]`, `[NEIGH]`, ...), and lines of another network namespace (`[nsid 3]`). All other lines
// are malformed, with a reason and a column.
//
// The state of a link follows from its flags and its state word:
//  - A deleted link is notPresent. An interface that leaves a bridge is not deleted, although the
//    bridge announces a deletion: that line has a master and no qdisc.
//  - A link without the flag UP is down. So is one with NO-CARRIER and no more specific word.
//  - Otherwise the word is the state. If the word is UNKNOWN or missing, because the driver does not
//    report a state, a link with the flag LOWER_UP is up.
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

   // Parses `line`, without its line end. With Result::event, `event` is the event, and its storage
   // is reused if it had the same kind; `stamped` and `unixMicroseconds` are set, and `time` is 0,
   // because it depends on other lines. Otherwise the content of `event` is unspecified.
   Result parse(std::string_view line, CaptureEvent& event);

   // After Result::malformed, the fault and its place: "unknown word "Foo" (column 34)".
   std::string const& reason() const { return reason_; }

 private:
   struct Link {  // the parts of a link line from which the link's state follows
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
