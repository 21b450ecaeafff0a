#include "agent/scenario/ScenarioPlayer.h"

#include <fmt/format.h>

#include <algorithm>

#include "Qor/Clock.h"
#include "agent/process/Signals.h"

namespace Agent {

using namespace Scenario;

namespace {

std::string expectedFound(std::string const& what, std::string const& expected,
                          std::string const& found) {
   return fmt::format("{}: expected {}, found {}", what, expected, found);
}

std::string numbers(std::string const& what, Range const& expected, double found) {
   return expectedFound(what, expected.toString(), numberText(found));
}

std::string joined(std::vector<std::string> const& names) {
   return names.empty() ? "nowhere" : fmt::format("{}", fmt::join(names, " "));
}

std::string nameOf(RouteRun const& routes, std::uint32_t i) {
   return RouteRun{routes.vrf, routes.key(i), 1}.toString();
}

}  // namespace

std::string ScenarioPlayer::Failure::toString() const {
   return fmt::format("{}: at {:.6f} s: {}", where.toString(), time, text);
}

ScenarioPlayer::ScenarioPlayer(Testbed& testbed, std::vector<Line> const& lines)
      : testbed_(testbed), lines_(lines), messages_(lines) {
   mark();
}

bool ScenarioPlayer::step() {
   if (next_ == lines_.size()) return false;
   Line const& line = lines_[next_];
   if (next_ == 0 || line.at > lines_[next_ - 1].at) advance(line.at);
   if (interrupted()) return false;
   ++next_;
   try {
      std::visit([this](auto const& event) { play(event); }, line.event);
   } catch (TestbedRefusal const& refused) {
      fail(refused.what());
   }
   return true;
}

void ScenarioPlayer::play() {
   while (step()) {
   }
   if (!interrupted()) finish();
}

void ScenarioPlayer::finish() {
   while (!trains_.empty() && !interrupted())
      advance(trains_.begin()->first.first);
   trains_.clear();
   testbed_.settle();
   for (std::string const& fault : testbed_.audit())
      fail("in the end: " + fault);
}

void ScenarioPlayer::advance(double time) {
   while (!trains_.empty() && trains_.begin()->first.first <= time) {
      double const due = trains_.begin()->first.first;
      testbed_.runUntil(due);
      if (interrupted()) return;
      sendDue(due);
   }
   testbed_.runUntil(time);
}

// Sends the packets that are due up to this time. Packets of one time are sent in the order of
// their lines.
void ScenarioPlayer::sendDue(double time) {
   while (!trains_.empty() && trains_.begin()->first.first <= time) {
      auto node = trains_.extract(trains_.begin());
      Train& train = node.mapped();
      send(*train.traffic);
      if (++train.sent == train.traffic->count) continue;
      node.key().first = train.due();
      trains_.insert(std::move(node));
   }
}

void ScenarioPlayer::send(Traffic const& traffic) {
   for (std::uint32_t i = 0; i < traffic.routes.groups; ++i) {
      RouteKey const key = traffic.routes.key(i);
      Testbed::Packet const packet{traffic.routes.vrf, key.source().address(),
                                   key.group().address(), traffic.iif, traffic.bytes};
      Testbed::Copies const copies = testbed_.send(packet);
      testbed_.sent(packet, key, copies);
      ++packets_;
      ++sent_;
      lost_ += copies.at.empty();
      bool twice = false;
      for (auto const& [name, count] : copies.at) {
         delivered_[name] += count;
         twice |= count > 1;
      }
      duplicated_ += twice;
   }
}

void ScenarioPlayer::fail(std::string text) {
   // An empty scenario has no line, so a failure in it has no place.
   InputPosition const where = next_ ? lines_[next_ - 1].where : InputPosition{"scenario", 0};
   failures_.push_back({where, Qor::now(), std::move(text)});
}

void ScenarioPlayer::mark() {
   for (std::size_t i = 0; i < testbedCounts; ++i)
      marked_[i] = testbed_.value(static_cast<Count>(i));
   sent_ = lost_ = duplicated_ = 0;
   delivered_.clear();
   messages_.mark();
}

// ---- Changes of the switch. ----

void ScenarioPlayer::play(Scenario::Route const& route) {
   Testbed::Route one;
   one.vrf = route.routes.vrf;
   one.iif = route.iif;
   one.cpu = route.cpu;
   one.backup = route.backup;
   one.fastdrop = route.fastdrop;
   one.noRpf = route.noRpf;
   one.bridge = route.bridge;
   for (std::uint32_t i = 0; i < route.routes.groups; ++i) {
      one.key = route.routes.key(i);
      one.oifs = route.oifs;
      if (!route.ownOif.empty()) {
         Lnet::IntfId const own(route.ownOif + std::to_string(i + 1));
         if (std::find(one.oifs.begin(), one.oifs.end(), own) == one.oifs.end()) {
            one.oifs.push_back(own);
         }
      }
      testbed_.routeIs(one);
   }
}

void ScenarioPlayer::play(Withdraw const& withdraw) {
   for (std::uint32_t i = 0; i < withdraw.routes.groups; ++i)
      testbed_.routeDel(withdraw.routes.vrf, withdraw.routes.key(i));
}

void ScenarioPlayer::play(Scenario::Link const& link) {
   testbed_.linkIs(link.intf, link.state);
}

void ScenarioPlayer::play(Scenario::BfdSession const& bfd) {
   testbed_.bfdIs(bfd.peer, bfd.state);
}

void ScenarioPlayer::play(Traffic const& traffic) {
   double const now = lines_[next_ - 1].at;
   trains_.emplace(std::pair(now, next_), Train{&traffic, now});
   sendDue(now);
}

void ScenarioPlayer::play(Scenario::Config const& config) {
   testbed_.configIs(config);
}

void ScenarioPlayer::play(Scenario::Counter const& counter) {
   for (std::uint32_t i = 0; i < counter.routes.groups; ++i)
      testbed_.counterRouteIs(counter.routes.vrf, counter.routes.key(i), counter.counted);
}

void ScenarioPlayer::play(Fault const& fault) {
   testbed_.faultIs(fault);
}

void ScenarioPlayer::play(Scenario::Restart const& restart) {
   testbed_.restart(restart);
}

void ScenarioPlayer::play(Mark const& m) {
   mark();
   testbed_.marked(m.text);
}

void ScenarioPlayer::play(Show const& show) {
   testbed_.show(show.views);
}

// ---- Expectations. ----

void ScenarioPlayer::play(Expect const& expect) {
   ++expectations_;
   double const limit = Qor::now() + expect.within.value_or(0);
   Texts wrong = differences(expect);
   // The state changes at deadlines and packets alone, so it is enough to compare there.
   while (!wrong.empty() && Qor::now() < limit) {
      if (interrupted()) return;  // the expectation may still come true
      double next = testbed_.nextDeadline();
      if (!trains_.empty()) next = std::min(next, trains_.begin()->first.first);
      advance(std::min(next, limit));
      wrong = differences(expect);
   }
   for (std::string& text : wrong)
      fail(std::move(text));
}

ScenarioPlayer::Texts ScenarioPlayer::differences(Expect const& expect) {
   Texts out;
   for (auto const& [state, range] : expect.states) {
      auto const found = static_cast<double>(testbed_.value(state));
      if (!range.contains(found)) out.push_back(numbers(Scenario::nameOf(state), range, found));
   }
   for (auto const& [count, range] : expect.counts) {
      double const found = since(count);
      if (!range.contains(found)) {
         out.push_back(numbers(std::string("sinceMark ") + Scenario::nameOf(count), range, found));
      }
   }
   for (auto const& [name, range] : expect.delivered) {
      auto const it = delivered_.find(name);
      auto const found = it == delivered_.end() ? 0.0 : static_cast<double>(it->second);
      if (!range.contains(found)) out.push_back(numbers("delivered at " + name, range, found));
   }
   for (MessageExpectation const& expected : expect.messages) {
      auto const found = static_cast<double>(messages_.seen(expected));
      if (!expected.seen.contains(found))
         out.push_back(numbers(expected.toString(), expected.seen, found));
   }
   if (expect.now && !expect.now->contains(Qor::now())) {
      out.push_back(numbers("now", *expect.now, Qor::now()));
   }
   for (RouteExpectation const& route : expect.route)
      compare(out, route);
   for (ForwardExpectation const& forward : expect.forward)
      compare(out, forward);
   if (expect.check) {
      constexpr std::size_t listed = 10;
      Texts const lines = testbed_.forwardingFaults();
      for (std::size_t i = 0; i < std::min(listed, lines.size()); ++i)
         out.push_back("check: " + lines[i]);
      if (lines.size() > listed) {
         out.push_back("check: and " + std::to_string(lines.size() - listed) + " more");
      }
   }
   return out;
}

double ScenarioPlayer::since(Count count) const {
   switch (count) {
      case Count::sent:
         return static_cast<double>(sent_);
      case Count::lost:
         return static_cast<double>(lost_);
      case Count::duplicated:
         return static_cast<double>(duplicated_);
      case Count::writes: {
         double sum = 0;
         for (auto i = static_cast<unsigned>(Count::groupCreate);
              i <= static_cast<unsigned>(Count::boundaryDelete); ++i)
            sum += since(static_cast<Count>(i));
         return sum;
      }
      default:
         return static_cast<double>(testbed_.value(count) -
                                    marked_[static_cast<std::size_t>(count)]);
   }
}

// Several routes that differ in one expectation give one text, with the first route and the number
// of the others.
template <class Expectation>
void ScenarioPlayer::compare(Texts& out, Expectation const& expected) {
   std::string first;
   std::uint32_t wrong = 0;
   for (std::uint32_t i = 0; i < expected.routes.groups; ++i) {
      std::string text = difference(expected, i);
      if (!text.empty() && wrong++ == 0) first = std::move(text);
   }
   if (wrong > 1) first += "; and " + std::to_string(wrong - 1) + " more groups";
   if (wrong) out.push_back(std::move(first));
}

std::string ScenarioPlayer::difference(ForwardExpectation const& expected, std::uint32_t i) {
   RouteKey const key = expected.routes.key(i);
   Testbed::Copies const copies =
         testbed_.send({expected.routes.vrf, key.source().address(), key.group().address(),
                        expected.iif, expected.bytes});
   std::vector<std::string> found;
   for (auto const& [name, count] : copies.at)
      found.insert(found.end(), count, name);
   if (found == expected.to) return "";
   return expectedFound("forward " + nameOf(expected.routes, i) + " from " + expected.iif.name(),
                        joined(expected.to),
                        joined(found) + (copies.result.empty() ? "" : " (" + copies.result + ')'));
}

std::string ScenarioPlayer::difference(RouteExpectation const& expected, std::uint32_t i) {
   Testbed::RouteFacts const facts = testbed_.route(expected.routes.vrf, expected.routes.key(i));
   std::string const name = "route " + nameOf(expected.routes, i) + ' ';
   std::string text;
   auto const add = [&](std::string more) {
      text += text.empty() ? name : "; ";
      text += more;
   };
   auto const number = [&](std::string const& what, std::optional<Range> const& range,
                           auto const& found) {
      if (!range) return;
      if (!found) {
         add(expectedFound(what, range->toString(), "none"));
      } else if (!range->contains(static_cast<double>(*found))) {
         add(numbers(what, *range, static_cast<double>(*found)));
      }
   };
   if (expected.state && *expected.state != facts.state) {
      std::string const why = facts.reason.empty() ? "" : " (" + facts.reason + ')';
      add(expectedFound("state", *expected.state, facts.state + why));
   }
   if (expected.reason && facts.reason.find(*expected.reason) == std::string::npos) {
      add(expectedFound("reason", '"' + *expected.reason + '"', '"' + facts.reason + '"'));
   }
   number("lastPollTime", expected.lastPollTime, facts.lastPollTime);
   for (auto const& [intf, range] : expected.fastdropLastPollTime) {
      auto const it = facts.fastdropLastPollTime.find(intf);
      std::optional<double> found;
      if (it != facts.fastdropLastPollTime.end()) found = it->second;
      number("fastdropLastPollTime of " + intf, range, found);
   }
   number("packets", expected.packets, facts.packets);
   number("bytes", expected.bytes, facts.bytes);
   number("counter", expected.counter, facts.counter);
   return text;
}

}  // namespace Agent
