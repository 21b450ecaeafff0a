#include "agent/input/MonitorParser.h"

#include <algorithm>
#include <charconv>
#include <chrono>
#include <utility>

#include "agent/input/Characters.h"
#include "agent/input/PrintableText.h"
#include "agent/input/RouteFields.h"

namespace Agent {

namespace {

using Interface::IntfOperStatus;

template <class Event>
Event& reused(CaptureEvent& event) {
   auto* const same = std::get_if<Event>(&event);
   Event& e = same ? *same : event.emplace<Event>();
   static_cast<CaptureTime&>(e) = CaptureTime{};
   return e;
}

bool isBlank(char c) {
   return c == ' ' || c == '\t';
}

bool isUpper(char c) {
   return c >= 'A' && c <= 'Z';
}

// `count` decimal digits of `text` at `first`, or nothing.
std::optional<unsigned> digits(std::string_view text, std::size_t first, std::size_t count) {
   unsigned value = 0;
   for (std::size_t i = first; i < first + count; ++i) {
      if (i >= text.size() || !isDigit(text[i])) return std::nullopt;
      value = value * 10 + static_cast<unsigned>(text[i] - '0');
   }
   return value;
}

std::optional<IntfOperStatus> statusOfWord(std::string_view word) {
   constexpr std::pair<std::string_view, IntfOperStatus> words[] = {
         {"UP", IntfOperStatus::up},
         {"DOWN", IntfOperStatus::down},
         {"TESTING", IntfOperStatus::testing},
         {"UNKNOWN", IntfOperStatus::unknown},
         {"DORMANT", IntfOperStatus::dormant},
         {"NOTPRESENT", IntfOperStatus::notPresent},
         {"LOWERLAYERDOWN", IntfOperStatus::lowerLayerDown},
   };
   for (auto const& [text, status] : words) {
      if (text == word) return status;
   }
   return std::nullopt;
}

// The words of a link line that are followed by a value.
bool takesValue(std::string_view word) {
   for (std::string_view const known :
        {"mtu", "qdisc", "master", "state", "mode", "group", "qlen"}) {
      if (word == known) return true;
   }
   return false;
}

}  // namespace

bool MonitorParser::accept(std::string_view literal) {
   if (line_.substr(position_, literal.size()) != literal) return false;
   position_ += literal.size();
   return true;
}

void MonitorParser::skipBlanks() {
   while (isBlank(peek()))
      ++position_;
}

// Reads the next word, which is empty at the end of the line only. position_ is then behind it.
std::string_view MonitorParser::word() {
   skipBlanks();
   std::size_t const first = position_;
   while (!atEnd() && !isBlank(peek()))
      ++position_;
   return line_.substr(first, position_ - first);
}

std::optional<std::uint64_t> MonitorParser::number(std::uint64_t max) {
   std::uint64_t value = 0;
   char const* const first = line_.data() + position_;
   auto const [end, error] = std::from_chars(first, line_.data() + line_.size(), value);
   if (error != std::errc() || value > max) return std::nullopt;
   position_ += static_cast<std::size_t>(end - first);
   return value;
}

bool MonitorParser::fail(std::string reason, std::size_t position) {
   reason_ = std::move(reason) + " (column " + std::to_string(position + 1) + ")";
   return false;
}

// Reports the next word as a fault. `expected` is the text for the right words.
bool MonitorParser::failWord(char const* expected) {
   skipBlanks();
   if (atEnd()) return fail(std::string("the line ends where ") + expected + " is expected");
   std::size_t const first = position_;
   return fail("unknown word " + inQuotes(word()) + " where " + expected + " is expected", first);
}

MonitorParser::Result MonitorParser::parse(std::string_view line, CaptureEvent& event) {
   line_ = line;
   position_ = 0;
   reason_.clear();
   skipBlanks();
   if (atEnd() || peek() == '#') return Result::skipped;
   CaptureTime time;
   bool skip = false;
   if (!parsePrefixes(time, skip)) return Result::malformed;
   if (skip) return Result::skipped;
   std::size_t const body = position_;
   bool const deleted = accept("Deleted ");
   skipBlanks();
   bool done;
   if (peek() == '(') {
      auto& mroute = reused<MrouteEvent>(event);
      mroute.deleted = deleted;
      done = parseMroute(mroute);
   } else if (isDigit(peek()) && line_.find(" packets,") == std::string_view::npos) {
      auto& link = reused<LinkEvent>(event);
      link.deleted = deleted;
      done = parseLink(link);
   } else if (accept("Timestamp:")) {
      done = fail("a time stamp in the long form of `ip -t`; record with `ip -ts`", body);
   } else if (accept("link/") || isDigit(peek())) {
      done = fail("the continuation of a line; record with `ip -o`", body);
   } else {
      done = failWord("a multicast route or a link");
   }
   if (!done) return Result::malformed;
   timeOf(event) = time;
   return Result::event;
}

bool MonitorParser::parsePrefixes(CaptureTime& time, bool& skip) {
   while (peek() == '[') {
      std::size_t const first = position_++;
      if (isDigit(peek()) && !time.stamped) {
         if (!parseStamp(time)) return false;
      } else {
         std::size_t const end = line_.find(']', position_);
         if (end == std::string_view::npos) return fail("'[' is never closed", first);
         std::string_view const label = line_.substr(position_, end - position_);
         bool other = !label.empty();
         for (char const c : label)
            other = other && isUpper(c);
         if (label.starts_with("nsid ")) {
            skip = skip || label != "nsid current";
         } else if (other) {
            skip = skip || (label != "MROUTE" && label != "LINK");
         } else {
            return fail("unknown label " + inQuotes(label), first);
         }
         position_ = end + 1;
      }
      skipBlanks();
   }
   return true;
}

// Parses "YYYY-MM-DDTHH:MM:SS.ffffff]", behind the opening bracket.
bool MonitorParser::parseStamp(CaptureTime& time) {
   constexpr std::string_view form = "dddd-dd-ddTdd:dd:dd.dddddd]";
   std::string_view const text = line_.substr(position_, form.size());
   for (std::size_t i = 0; i < form.size(); ++i) {
      char const c = i < text.size() ? text[i] : '\0';
      if (form[i] == 'd' ? !isDigit(c) : c != form[i]) {
         return fail("bad time stamp, not [YYYY-MM-DDTHH:MM:SS.ffffff]", position_ + i);
      }
   }
   using namespace std::chrono;
   year_month_day const date{year(static_cast<int>(*digits(text, 0, 4))),
                             month(*digits(text, 5, 2)), day(*digits(text, 8, 2))};
   unsigned const h = *digits(text, 11, 2);
   unsigned const m = *digits(text, 14, 2);
   unsigned const s = *digits(text, 17, 2);
   if (!date.ok() || date.year() < year(1970)) {
      return fail("bad date " + inQuotes(text.substr(0, 10)), position_);
   }
   if (h > 23 || m > 59 || s > 60) {  // 60: a leap second
      return fail("bad time of day " + inQuotes(text.substr(11, 8)), position_ + 11);
   }
   auto const whole = sys_days(date) + hours(h) + minutes(m) + seconds(s);
   time.unixMicroseconds = microseconds(whole.time_since_epoch()).count() + *digits(text, 20, 6);
   time.stamped = true;
   position_ += form.size();
   return true;
}

bool MonitorParser::parseMroute(MrouteEvent& event) {
   if (!parseKey(event)) return false;
   std::size_t at = position_;
   if (word() != "Iif:") {
      position_ = at;
      return failWord("\"Iif:\"");
   }
   event.iif = Lnet::IntfId();
   skipBlanks();
   at = position_;
   std::string_view const iif = word();
   if (iif != unresolvedWord) {
      if (auto reason = intfOf(iif, event.iif); !reason.empty()) return fail(std::move(reason), at);
   }
   event.oifs.clear();
   at = position_;
   std::string_view next = word();
   if (next == "Oifs:") {
      if (!parseOifs(event)) return false;
   } else if (next != "State:") {
      position_ = at;
      return failWord("\"Oifs:\" or \"State:\"");
   }
   if (!parseState(event)) return false;
   at = position_;
   std::optional<std::string_view> table;
   next = word();
   if (next == "Table:") {
      skipBlanks();
      at = position_;
      table = word();
   } else if (!next.empty()) {
      position_ = at;
      return failWord("\"Table:\" or the end");
   }
   auto reason = vrfOf(event.key.group().family() == Lnet::IpFamily::v4, table, event.vrf);
   if (!reason.empty()) return fail(std::move(reason), at);
   skipBlanks();
   return atEnd() || failWord("the end");
}

// Parses "(SOURCE,GROUP)".
bool MonitorParser::parseKey(MrouteEvent& event) {
   std::size_t const first = position_++;
   std::size_t const end = line_.find(')', position_);
   if (end == std::string_view::npos) return fail("'(' is never closed", first);
   std::string_view const pair = line_.substr(position_, end - position_);
   std::size_t const comma = pair.find(',');
   if (comma == std::string_view::npos) return fail("no ',' between source and group", first);
   auto reason = routeKeyOf(pair.substr(0, comma), pair.substr(comma + 1), event.key);
   if (!reason.empty()) return fail(std::move(reason), first);
   position_ = end + 1;
   return true;
}

// Parses the names of the outputs up to the word "State:", which is also read.
bool MonitorParser::parseOifs(MrouteEvent& event) {
   while (true) {
      skipBlanks();
      std::size_t const at = position_;
      std::string_view name = word();
      if (name.empty()) return failWord("an output interface or \"State:\"");
      if (name == "State:") return true;
      bool const threshold = name.ends_with("(ttl");
      if (threshold) name.remove_suffix(4);
      Lnet::IntfId intf;
      if (auto reason = intfOf(name, intf); !reason.empty()) return fail(std::move(reason), at);
      if (threshold && !parseTtl()) return false;
      event.oifs.push_back(intf);
   }
}

// Parses the "N)" of "(ttl N)".
bool MonitorParser::parseTtl() {
   skipBlanks();
   std::size_t const at = position_;
   auto const ttl = number(255);
   if (!ttl || *ttl < 2 || !accept(")")) return fail("bad TTL threshold, not \"(ttl N)\"", at);
   return true;
}

bool MonitorParser::parseState(MrouteEvent& event) {
   skipBlanks();
   std::size_t const at = position_;
   event.resolved = accept("resolved");
   if (!event.resolved && !accept(unresolvedWord)) return failWord("a state");
   if (!accept(", offload")) accept(" offload");  // versions of `ip` differ in the comma
   if (accept("\\")) return parseStatistics();
   if (!atEnd() && !isBlank(peek())) {
      position_ = at;
      return failWord("a state");
   }
   return true;
}

// Parses "  N packets, N bytes[, N arrived on wrong iif.][, Age S.SS]", behind the backslash.
bool MonitorParser::parseStatistics() {
   constexpr std::uint64_t any = ~std::uint64_t{0};
   auto const counted = [this](std::string_view unit) { return number(any) && accept(unit); };
   skipBlanks();
   std::size_t const at = position_;
   bool good = counted(" packets, ") && counted(" bytes");
   while (good && accept(", ")) {
      good = accept("Age ") ? number(any) && accept(".") && number(any)
                            : counted(" arrived on wrong iif.");
   }
   return good || fail("bad statistics", at);
}

bool MonitorParser::parseLink(LinkEvent& event) {
   Link link;
   if (!parseLinkName(event) || !parseLinkFlags(link) || !parseLinkAttributes(link)) return false;
   if (link.master && !link.qdisc) event.deleted = false;
   event.adminUp = link.up;
   event.status = event.deleted ? IntfOperStatus::notPresent : link.status();
   return true;
}

IntfOperStatus MonitorParser::Link::status() const {
   if (word == IntfOperStatus::notPresent) return word;
   if (!up) return IntfOperStatus::down;
   if (word == IntfOperStatus::up || word == IntfOperStatus::unknown) {
      if (noCarrier) return IntfOperStatus::down;
      if (lowerUp) return IntfOperStatus::up;
   }
   return word;
}

// Parses "7: rtr5@if2: ".
bool MonitorParser::parseLinkName(LinkEvent& event) {
   std::size_t at = position_;
   auto const index = number(0x7fffffff);
   if (!index || *index == 0 || !accept(": ")) return fail("bad interface index", at);
   event.ifindex = static_cast<std::uint32_t>(*index);
   skipBlanks();
   at = position_;
   std::string_view name = word();
   if (!name.ends_with(':')) return fail("no ':' behind the interface name", at);
   name.remove_suffix(1);
   std::size_t const peer = name.rfind('@');
   if (peer != std::string_view::npos) name = name.substr(0, peer);
   auto reason = intfOf(name, event.intf);
   return reason.empty() || fail(std::move(reason), at);
}

// Parses "<NO-CARRIER,BROADCAST,UP>".
bool MonitorParser::parseLinkFlags(Link& link) {
   skipBlanks();
   std::size_t const first = position_;
   if (!accept("<")) return failWord("\"<FLAGS>\"");
   std::size_t const end = line_.find('>', position_);
   if (end == std::string_view::npos) return fail("'<' is never closed", first);
   while (position_ <= end) {
      std::size_t const last = std::min(line_.find(',', position_), end);
      std::string_view const flag = line_.substr(position_, last - position_);
      link.up = link.up || flag == "UP";
      link.lowerUp = link.lowerUp || flag == "LOWER_UP";
      link.noCarrier = link.noCarrier || flag == "NO-CARRIER";
      for (char const c : flag) {
         if (!isUpper(c) && !isDigit(c) && c != '-' && c != '_') {
            return fail("bad link flag " + inQuotes(flag));
         }
      }
      position_ = last + 1;
   }
   return true;
}

// Parses "mtu 1500 qdisc noqueue state UP group default \ link/". The rest of the line has the
// hardware address and is ignored.
bool MonitorParser::parseLinkAttributes(Link& link) {
   while (true) {
      skipBlanks();
      std::size_t const at = position_;
      std::string_view const key = word();
      if (key == "\\") break;
      if (key == "event") {  // its value has one or two words
         while (!atEnd() && peek() != '\\')
            ++position_;
      } else if (takesValue(key)) {
         skipBlanks();
         std::size_t const valueAt = position_;
         std::string_view const value = word();
         if (value.empty() || value == "\\") return fail(inQuotes(key) + " has no value", at);
         link.master = link.master || key == "master";
         link.qdisc = link.qdisc || key == "qdisc";
         if (key == "state") {
            auto const known = statusOfWord(value);
            if (!known) return fail("unknown link state " + inQuotes(value), valueAt);
            link.word = *known;
         }
      } else if (!key.starts_with("xdp")) {
         position_ = at;
         return failWord("an attribute of the link or \"\\ link/\"");
      }
   }
   skipBlanks();
   return accept("link/") || failWord("\"link/\"");
}

}  // namespace Agent
