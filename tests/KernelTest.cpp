// The monitor of a kernel: the parser on recorded messages, and the rest with a kernel of the tests.
#include <algorithm>
#include <cmath>
#include <filesystem>
#include <fstream>
#include <optional>
#include <sstream>

#include "KernelTestSupport.h"
#include "kernel/Message.h"

namespace {

using namespace kernelTest;
using testSupport::addr;
using testSupport::Lines;

std::string textOf(RouteKey const& key) {
   return "(" + key.source.toString() + "," + key.group.toString() + ")@" +
          std::to_string(key.table);
}
std::string textOf(Route const& route) {
   std::string text = " " + std::to_string(route.input) + ">";
   for (U32 output : route.outputs)
      text += (text.ends_with('>') ? "" : ",") + std::to_string(output);
   return route.unresolved ? " unresolved" : text;
}
std::string textOf(Link const& link) {
   std::ostringstream text;
   text << link.index << ' ' << link.name << ' ' << link.status;
   if (link.hasIpv4) text << " ipv4";
   if (link.hasIpv6) text << " ipv6";
   return text.str();
}
std::string textOf(Rule const& rule) {
   std::ostringstream text;
   text << rule.priority << (rule.inverted ? ": not " : ": ");
   if (!rule.input.empty()) text << "from " << rule.input << ' ';
   if (rule.markMask) text << "mark " << rule.mark << '/' << std::hex << rule.markMask << std::dec;
   if (rule.markMask) text << ' ';
   text << "table " << rule.table;
   return text.str();
}

// ---- The parser. ----

std::string textOf(Kernel::Message const& message) {
   std::ostringstream text;
   auto const name = [&](char const* what, bool deleted) -> std::ostream& {
      return text << (deleted ? "deleted " : "") << what << ' ';
   };
   if (auto const* route = std::get_if<Kernel::RouteMessage>(&message.content)) {
      name("route", route->deleted) << textOf(route->key) << textOf(route->route);
      if (route->route.packets != 0) {
         text << " packets " << route->route.packets << ' ' << route->route.bytes << ' '
              << route->route.wrongInterface;
      }
      if (route->route.idle >= 0) text << " idle " << route->route.idle;
   } else if (auto const* link = std::get_if<Kernel::LinkMessage>(&message.content)) {
      name("link", link->deleted) << textOf(link->link) << ' ' << link->link.kind << ' ';
      for (unsigned const byte : link->link.mac)
         text << byte << '.';
   } else if (auto const* address = std::get_if<Kernel::AddressMessage>(&message.content)) {
      name("address", address->deleted)
            << address->address << '/' << unsigned{address->length} << " of " << address->link;
   } else if (auto const* rule = std::get_if<Kernel::RuleMessage>(&message.content)) {
      name(rule->family == IpFamily::v6 ? "rule6" : "rule", rule->deleted) << textOf(rule->rule);
   } else if (auto const* of = std::get_if<Kernel::ForwardingMessage>(&message.content)) {
      text << "forwarding " << (of->family == IpFamily::v6 ? "v6" : "v4");
   } else if (auto const* end = std::get_if<Kernel::EndMessage>(&message.content)) {
      text << "end " << end->error;
   } else {
      text << "ignored";
   }
   return text.str();
}

struct Recorded {
   std::string title;
   Bytes bytes;
   std::string text;
};

std::vector<Recorded> recorded() {
   std::ifstream file(std::filesystem::path(VELMROUTE_EXAMPLES).parent_path() /
                      "tests/netlink/messages.txt");
   std::vector<Recorded> all;
   std::string title, line;
   while (std::getline(file, line)) {
      if (line.starts_with("# ")) title = line.substr(2);
      if (line.starts_with("= ") && !all.empty()) all.back().text = line.substr(2);
      if (line.empty() || line[0] == '#' || line[0] == '=') continue;
      all.push_back({title, {}, {}});
      for (std::size_t at = 0; at + 1 < line.size(); at += 2)
         all.back().bytes.push_back(std::byte(std::stoi(line.substr(at, 2), nullptr, 16)));
   }
   return all;
}

TEST(KernelMessages, ParserReadsRecordedMessages) {
   ASSERT_GT(recorded().size(), 40u);
   for (Recorded const& message : recorded()) {
      Kernel::MessageReader reader(message.bytes);
      Kernel::Message parsed;
      ASSERT_EQ(reader.next(parsed), Kernel::MessageReader::Result::message) << message.title;
      EXPECT_EQ(textOf(parsed), message.text) << message.title;
      EXPECT_EQ(reader.next(parsed), Kernel::MessageReader::Result::end) << message.title;
   }
}

// ---- The monitor. ----

RouteKey key(char const* group, U32 table = 253) {
   bool const v6 = addr(group).isV6();
   return {table, addr(v6 ? "2001:db8::9" : "10.0.0.9"), addr(group)};
}
RouteKey key(unsigned n) {
   return {253, addr("10.0.0.9"), Lnet::IpGenAddr::v4(0xef000000 + n)};
}
Route to(std::vector<U32> outputs) {
   Route route;
   route.input = 1;
   route.outputs = std::move(outputs);
   return route;
}
Route unresolved() {
   Route route;
   route.unresolved = true;
   return route;
}
Link link(U32 index, char const* name) {
   Link link;
   link.index = index;
   link.name = name;
   link.mac = {2, 0, 0, 0, 0, static_cast<Qor::U8>(index)};
   link.adminUp = true;
   return link;
}

class KernelMonitor : public testSupport::OnVirtualTime, public Kernel::Listener {
 protected:
   void linkIs(Link const& changed) override { log("link " + textOf(changed)); }
   void linkDel(U32 index) override { log("no link " + std::to_string(index)); }
   void routeIs(RouteKey const& key, Route const& route) override {
      log(key.group.toString() + textOf(route));
   }
   void routeDel(RouteKey const& key) override { log("no " + key.group.toString()); }
   void rulesChanged(IpFamily family) override {
      log(family == IpFamily::v6 ? "rules 6" : "rules 4");
   }
   void synced() override { log("synced"); }
   void overrun() override { log("overrun"); }
   void failed() override { log("failed"); }

   void log(std::string const& text) { journal_.push_back(text); }
   Lines journal() { return std::exchange(journal_, {}); }
   Lines requests() { return std::exchange(kernel_.requests, {}); }

   void start() {
      monitor_.emplace(options_, kernel_, *this);
      run();
   }
   // Lets all messages and timers be handled until `duration` milliseconds have passed.
   void run(double duration = 50) {
      double const until = Qor::now() + duration / 1000;
      do {
         while (kernel_.readable())
            monitor_->ready();
         time_->runUntil(std::min(until, std::max(time_->nextDeadline(), Qor::now())));
      } while (Qor::now() < until || kernel_.readable());
   }
   // Starts with routes that the monitor knows, and forgets the journal.
   void startWith(std::vector<RouteKey> const& keys) {
      for (RouteKey const& key : keys)
         kernel_.routes[key] = to({2});
      start();
      journal();
      requests();
   }

   Kernel::MonitorOptions options_;
   FakeKernel kernel_;
   std::optional<Kernel::Monitor> monitor_;
   Lines journal_;
};

TEST_F(KernelMonitor, NotifiesLinksThenRulesThenRoutes) {
   kernel_.links = {{1, link(1, "lo")}, {2, link(2, "d0")}};
   kernel_.addresses[2] = {addr("10.0.0.1"), addr("fe80::1")};
   kernel_.rules[0] = {{.priority = 32767, .table = 253}};
   kernel_.routes = {{key("239.0.0.1"), to({2, 3})},
                     {key("ff3e::1", 254), to({3})},
                     {key("ff3e::1", 253), to({4})}};
   start();
   EXPECT_EQ(journal(), (Lines{"link 1 lo up", "link 2 d0 up ipv4 ipv6", "rules 4", "rules 6",
                               "239.0.0.1 1>2,3", "ff3e::1 1>3", "synced"}));
   EXPECT_EQ(monitor_->routes(), 2u);
   EXPECT_TRUE(monitor_->synced());
   EXPECT_EQ(time_->nextDeadline(), Qor::never);
}

// Each event is the time of a notification in milliseconds, a route and its output; 0 deletes the
// route. An event follows the timers of its time.
TEST_F(KernelMonitor, CoalescesEachRouteOnItsOwn) {
   struct Event {
      int time;
      unsigned route;
      U32 output;
   };
   struct Case {
      char const* what;
      std::vector<Event> events;
      Lines expected;
   };
   std::vector<Event> busy{{0, 1, 100}, {1, 2, 7}};
   for (int time = 1; time < 24; ++time)
      busy.push_back({time, 1, 100u + static_cast<U32>(time)});
   Case const cases[] = {
         {"The last state wins", {{0, 1, 7}, {1, 1, 8}, {2, 1, 9}}, {"4: 239.0.0.1 1>9"}},
         {"A route that returns is not notified",
          {{0, 1, 7}, {5, 1, 8}, {6, 1, 0}, {7, 1, 7}},
          {"2: 239.0.0.1 1>7"}},
         {"A short-lived route is not notified", {{0, 1, 7}, {1, 1, 0}}, {}},
         {"A deletion waits, too", {{0, 1, 7}, {5, 1, 0}}, {"2: 239.0.0.1 1>7", "7: no 239.0.0.1"}},
         {"A busy route is not starved, and delays no other",
          busy,
          {"3: 239.0.0.2 1>7", "10: 239.0.0.1 1>109", "20: 239.0.0.1 1>119",
           "25: 239.0.0.1 1>123"}},
   };
   for (Case const& c : cases) {
      SCOPED_TRACE(c.what);
      kernel_.routes.clear();
      start();
      journal();
      Lines found;
      double const begin = Qor::now();
      auto event = c.events.begin();
      for (int time = 0; time < 40; ++time) {
         time_->runUntil(begin + time / 1000.0 + 1e-9);
         for (std::string const& text : journal())
            found.push_back(std::to_string(time) + ": " + text);
         for (; event != c.events.end() && event->time == time; ++event) {
            if (event->output == 0)
               kernel_.routeDel(key(event->route));
            else
               kernel_.routeIs(key(event->route), to({event->output}));
         }
         while (kernel_.readable())
            monitor_->ready();
      }
      EXPECT_EQ(found, c.expected);
   }
}

TEST_F(KernelMonitor, ConfirmsThatARouteHasGone) {
   startWith({key(1), key(2), key(3), key("ff3e::1", 254)});
   // The dump lacks two routes. One of them is still there, and the other has gone silently.
   kernel_.unlisted = {key(1)};
   kernel_.routes.erase(key(2));
   monitor_->refresh();
   run();
   EXPECT_EQ(journal(), (Lines{"no 239.0.0.2", "synced"}));
   EXPECT_EQ(requests(),
             (Lines{"dump routes 253", "dump routes 254", "get 239.0.0.1", "get 239.0.0.2"}));
   EXPECT_EQ(monitor_->counts().missedByDumps, 1u);
   // A notification during the dump shows that the route exists.
   kernel_.unlisted = {key(1), key(3)};
   kernel_.beforeEnd = [&] {
      kernel_.routeIs(key(1), to({5}));
      kernel_.routeDel(key(3));
   };
   monitor_->refresh();
   run();
   EXPECT_EQ(journal(), (Lines{"239.0.0.1 1>5", "no 239.0.0.3", "synced"}));
   EXPECT_EQ(requests(), (Lines{"dump routes 253", "dump routes 254"}));
   // The table has never existed, or the whole kernel has no such table any more.
   kernel_.tables.clear();
   kernel_.routes.clear();
   monitor_->refresh();
   run();
   EXPECT_EQ(journal(), (Lines{"rules 4", "rules 6", "no 239.0.0.1", "no ff3e::1", "synced"}));
}

TEST_F(KernelMonitor, NeedsAQuietSecondDumpWithoutRequestsForOneRoute) {
   kernel_.singleRequests[1] = false;
   options_.ipv4Tables.clear();
   startWith({key("ff3e::1", 254), key("ff3e::2", 254), key("ff3e::3", 254)});
   kernel_.unlisted = {key("ff3e::2", 254)};
   kernel_.routes.erase(key("ff3e::3", 254));
   monitor_->refresh();
   // The first dump teaches that there are no such requests. During the second a route changes.
   unsigned dumps = 0;
   std::function<void()> const change = [&] {
      ++dumps;
      if (dumps < 3) kernel_.routeIs(key("ff3e::1", 254), to({10 + dumps}));
      if (dumps == 2) kernel_.unlisted.clear();
      kernel_.beforeEnd = change;
   };
   kernel_.beforeEnd = change;
   run();
   EXPECT_EQ(journal(), (Lines{"ff3e::1 1>12", "no ff3e::3", "synced"}));
   EXPECT_EQ(monitor_->routes(), 2u);
}

TEST_F(KernelMonitor, RepeatsADumpThatMayHaveSkippedUnknownRoutes) {
   for (unsigned n = 1; n <= 3; ++n)
      kernel_.routes[key(n)] = to({2});
   kernel_.unlisted = {key(3)};
   kernel_.beforeEnd = [&] {
      kernel_.routeDel(key(1));
      kernel_.unlisted.clear();
   };
   start();
   EXPECT_EQ(journal(), (Lines{"rules 4", "rules 6", "239.0.0.2 1>2", "239.0.0.3 1>2", "synced"}));
   EXPECT_EQ(monitor_->counts().missedByDumps, 1u);
}

TEST_F(KernelMonitor, BelievesNoRecordThatIsOlderThanANotification) {
   startWith({key(1), key(2), key(3)});
   // The dump has read the routes when they change, and its records come behind the notifications.
   kernel_.beforeRecords = [&] {
      kernel_.routeIs(key(1), to({7}));
      kernel_.routeDel(key(2));
   };
   monitor_->refresh();
   run();
   EXPECT_EQ(journal(), (Lines{"239.0.0.1 1>7", "no 239.0.0.2", "synced"}));
   EXPECT_EQ(requests(),
             (Lines{"dump routes 253", "dump routes 254", "get 239.0.0.1", "get 239.0.0.2"}));
   // A record is newer than the notification, and the change between them was silent.
   kernel_.routeIs(key(3), to({2, 3}));
   kernel_.routes[key(3)] = to({2});
   monitor_->refresh();
   run();
   EXPECT_EQ(journal(), (Lines{"synced"}));
}

TEST_F(KernelMonitor, RepeatsDumpsThatFailOrAreInterrupted) {
   kernel_.links = {{1, link(1, "d0")}, {2, link(2, "d1")}};
   startWith({key(1)});
   // All dumps of links in a row are interrupted, so the absence of a link proves nothing yet.
   kernel_.overrun = true;
   kernel_.interruptions = 8;
   kernel_.links.erase(2);
   run(100);
   EXPECT_EQ(journal(), (Lines{"overrun", "synced"}));
   EXPECT_EQ(monitor_->counts().interruptedDumps, 8u);
   EXPECT_TRUE(monitor_->synced());
   kernel_.dumpErrors = {EBUSY, ENOBUFS};
   run(1000);
   EXPECT_EQ(journal(), (Lines{"no link 2", "synced"}));
   EXPECT_TRUE(kernel_.dumpErrors.empty());
}

TEST_F(KernelMonitor, ReadsAllAgainAfterAnOverrun) {
   kernel_.links = {{1, link(1, "d0")}};
   options_.messagesPerTurn = 1;
   startWith({key(1), key(2), key(3)});
   Lines answers;
   monitor_->ask(key(2), [&](RouteKey const&, Kernel::Monitor::Answer answer, Route const&) {
      answers.push_back(answer == Kernel::Monitor::Answer::absent ? "absent" : "other");
   });
   // The answer and a deletion are lost. Before its buffer is empty the monitor requests nothing.
   kernel_.queue.clear();
   kernel_.routes.erase(key(2));
   kernel_.routes[key(4)] = to({4});
   kernel_.links[2] = link(2, "d1");
   kernel_.unlisted = {key(3)};
   kernel_.overrun = true;
   kernel_.routeIs(key(1), to({9}));
   kernel_.push({});
   requests();
   while (kernel_.readable())
      monitor_->ready();
   EXPECT_EQ(requests(), Lines{});
   EXPECT_FALSE(monitor_->synced());
   run();
   EXPECT_EQ(journal(), (Lines{"overrun", "link 2 d1 up", "239.0.0.1 1>9", "no 239.0.0.2",
                               "239.0.0.4 1>4", "synced"}));
   EXPECT_EQ(answers, (Lines{"absent"}));
   EXPECT_TRUE(monitor_->synced());
}

TEST_F(KernelMonitor, ReadsTheTablesAgainWhenLinksChange) {
   kernel_.links = {{1, link(1, "d0")}, {2, link(2, "d1")}, {3, link(3, "d2")}};
   startWith({key(1)});
   Link renamed = link(3, "x2");
   Link moved = renamed;
   moved.mac[5] = 99;
   Link down = moved;
   down.adminUp = false;
   struct Case {
      char const* what;
      std::function<void()> change;
      Lines expected;  // without the silent change of the route
      bool read;
   };
   Case const cases[] = {
         {"deleted", [&] { kernel_.linkDel(2); }, {"no link 2"}, true},
         {"created", [&] { kernel_.linkIs(link(4, "d1")); }, {"link 4 d1 up"}, true},
         {"renamed", [&] { kernel_.linkIs(renamed); }, {"link 3 x2 up"}, true},
         {"MAC", [&] { kernel_.linkIs(moved); }, {"link 3 x2 up"}, true},
         {"forwarding", [&] { kernel_.forwardingIs(IpFamily::v4); }, {}, true},
         {"state", [&] { kernel_.linkIs(down); }, {"link 3 x2 down"}, false},
         {"address",
          [&] { kernel_.addressIs(3, "fe80::1", true); },
          {"link 3 x2 down ipv6"},
          false},
         {"second", [&] { kernel_.addressIs(3, "2001:db8::1", true); }, {}, false},
         {"one left", [&] { kernel_.addressIs(3, "fe80::1", false); }, {}, false},
         {"none", [&] { kernel_.addressIs(3, "2001:db8::1", false); }, {"link 3 x2 down"}, false},
   };
   for (U32 output = 10; Case const& c : cases) {
      SCOPED_TRACE(c.what);
      kernel_.routes[key(1)] = to({++output});
      c.change();
      run();
      Lines expected = c.expected;
      if (c.read) {
         expected.push_back("239.0.0.1 1>" + std::to_string(output));
         expected.emplace_back("synced");
      }
      EXPECT_EQ(journal(), expected);
   }
   // Many changes cause one reading.
   requests();
   for (U32 index = 100; index < 200; ++index)
      kernel_.linkIs(link(index, ("n" + std::to_string(index)).c_str()));
   run();
   EXPECT_EQ(requests(), (Lines{"dump routes 253", "dump routes 254"}));
}

TEST_F(KernelMonitor, KnowsTheTableThatHidesTheOthers) {
   Link vrf = link(5, "red");
   vrf.kind = "vrf";
   vrf.vrfTable = 1000;
   Link member = link(6, "r0");
   member.master = 5;
   kernel_.links = {{1, link(1, "d0")}, {2, link(2, "d1")}, {5, vrf}, {6, member}};
   kernel_.rules[0] = {{.priority = 1000, .vrf = true}, {.priority = 32767, .table = 253}};
   options_.ipv4Tables = {253, 100};
   startWith({});
   auto const selected = [&] {
      std::string text;
      for (U32 index : {1, 2, 6})
         text += " " + std::to_string(monitor_->selectedTable(IpFamily::v4, index));
      return text;
   };
   EXPECT_EQ(selected(), " 253 253 253");
   kernel_.tables.insert({IpFamily::v4, 1000});  // which is not followed
   kernel_.forwardingIs(IpFamily::v4);
   run();
   EXPECT_EQ(journal(), (Lines{"rules 4", "synced"}));
   EXPECT_EQ(selected(), " 253 253 1000");
   kernel_.ruleAdd(IpFamily::v4, {.priority = 100, .table = 100, .input = "d1"});
   run();
   EXPECT_EQ(journal(), (Lines{"rules 4"}));
   EXPECT_EQ(selected(), " 253 253 1000") << "Table 100 does not exist yet";
   kernel_.tables.insert({IpFamily::v4, 100});
   kernel_.routeIs(key("239.0.0.1", 100), to({2}));
   run();
   EXPECT_EQ(journal(), (Lines{"rules 4", "239.0.0.1 1>2"}));
   EXPECT_EQ(selected(), " 253 100 1000");
}

TEST(KernelRules, SelectTheFirstTableThatExists) {
   using Action = Rule::Action;
   Rule const last{.priority = 32767, .table = 253};
   struct Case {
      char const* what;
      Rule rule;
      char const* selected;  // for d0, for d1, for r0 in the VRF red
   };
   Case const cases[] = {
         {"all", {.table = 100}, "100 100 100"},
         {"a table that does not exist", {.table = 7}, "253 253 253"},
         {"an input", {.table = 100, .input = "d1"}, "253 100 253"},
         {"a VRF as input", {.table = 100, .input = "red"}, "253 253 100"},
         {"not an input", {.table = 100, .input = "d1", .inverted = true}, "100 253 100"},
         {"an output", {.table = 100, .output = true}, "253 253 253"},
         {"a mark", {.table = 100, .mark = 5, .markMask = 0xff}, "253 253 253"},
         {"not a mark",
          {.table = 100, .mark = 5, .markMask = 0xff, .inverted = true},
          "100 100 100"},
         {"the VRF's table", {.vrf = true}, "253 253 1000"},
         {"refused", {.action = Action::refuse, .input = "d0"}, "0 253 253"},
         {"jump", {.action = Action::jump, .target = 40000}, "0 0 0"},
         {"nothing", {.action = Action::none}, "253 253 253"},
   };
   for (Case const& c : cases) {
      std::string found;
      for (Kernel::RuleInput const& input :
           {Kernel::RuleInput{"d0", "", 0}, {"d1", "", 0}, {"r0", "red", 1000}}) {
         found += (found.empty() ? "" : " ") +
                  std::to_string(Kernel::selectedTable({c.rule, last}, input,
                                                       [](U32 table) { return table != 7; }));
      }
      EXPECT_EQ(found, c.selected) << c.what;
   }
}

TEST_F(KernelMonitor, AnswersRequestsForOneRoute) {
   kernel_.routes[key(1)] = to({2});
   kernel_.routes[key(2)] = unresolved();
   kernel_.singleRequests[1] = false;
   start();
   journal();
   Lines answers;
   auto const ask = [&](RouteKey const& key) {
      monitor_->ask(
            key, [&](RouteKey const& of, Kernel::Monitor::Answer answer, Route const& route) {
               static constexpr char const* names[] = {"present ", "absent", "unanswered"};
               answers.push_back(of.group.toString() + " " + names[static_cast<int>(answer)] +
                                 (route.packets != 0 ? std::to_string(route.packets) : ""));
            });
   };
   kernel_.routes[key(1)].packets = 77;
   for (RouteKey const& of : {key(1), key(1), key(2), key(3), key("ff3e::1", 254)})
      ask(of);
   run();
   EXPECT_EQ(answers, (Lines{"239.0.0.1 present 77", "239.0.0.1 present 77", "239.0.0.2 absent",
                             "239.0.0.3 absent", "ff3e::1 unanswered"}));
   EXPECT_EQ(monitor_->route(key(1))->packets, 77u);
   EXPECT_TRUE(monitor_->route(key(2))->unresolved);
   EXPECT_EQ(journal(), Lines{});
   // Few answers are under way at a time, so that they leave room for notifications.
   answers.clear();
   for (unsigned n = 1000; n < 2000; ++n)
      ask(key(n));
   std::size_t most = 0;
   while (kernel_.readable()) {
      most = std::max(most, kernel_.queue.size());
      monitor_->ready();
   }
   EXPECT_LE(most, 64u);
   EXPECT_EQ(answers.size(), 1000u);
   // A socket that failed answers nothing.
   answers.clear();
   ask(key(1));
   kernel_.broken = true;
   monitor_->ready();
   EXPECT_EQ(answers, (Lines{"239.0.0.1 unanswered"}));
   EXPECT_EQ(journal(), (Lines{"failed"}));
   EXPECT_FALSE(monitor_->synced());
   EXPECT_EQ(time_->nextDeadline(), Qor::never);
}

TEST_F(KernelMonitor, SkipsMalformedMessages) {
   startWith({});
   for (Recorded const& message : recorded()) {
      // The last attribute ends behind the message; and a length that is too short for a header.
      for (U32 const cut : {4u, 8u, static_cast<U32>(message.bytes.size()) - 3}) {
         Bytes datagram = message.bytes;
         std::memcpy(datagram.data(), &cut, sizeof cut);
         kernel_.push(datagram);
      }
   }
   run(1);
   EXPECT_GE(monitor_->counts().malformed, 2 * recorded().size());
   // The messages behind a malformed one are read.
   Route zero = to({0});
   Bytes datagram = FakeKernel::routeMessage(RTM_NEWROUTE, key(1), zero, 0, 0);
   Bytes const good = FakeKernel::routeMessage(RTM_NEWROUTE, key(2), to({2}), 0, 0);
   datagram.insert(datagram.end(), good.begin(), good.end());
   Qor::U64 const before = monitor_->counts().malformed;
   run();
   journal();
   kernel_.push(datagram);
   run();
   EXPECT_EQ(journal(), (Lines{"239.0.0.2 1>2"}));
   EXPECT_EQ(monitor_->counts().malformed, before + 1);
}

}  // namespace
