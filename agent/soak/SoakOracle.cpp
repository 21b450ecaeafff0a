// The oracle's comparisons of single routes.
#include "agent/soak/SoakOracle.h"

#include <algorithm>
#include <sstream>

#include "agent/explain/Explainer.h"
#include "agent/explain/TraceWords.h"
#include "agent/scenario/RouteStateName.h"

namespace Agent {

using Routing::Multicast::Fib::IpGenRouteKey;
using VelMroute::WriteKind;

namespace {

constexpr std::size_t maxFound = 20;
constexpr std::size_t underWayLooks = 48;  // unverified routes that a look compares before rest
constexpr unsigned otherLooks = 8;         // verified routes that a look compares
constexpr unsigned looksPerTrace = 4;      // on average

constexpr WriteKind deletions[VelMroute::allTables.size()] = {
      WriteKind::groupDelete, WriteKind::routeDelete, WriteKind::boundaryDelete};

using Outputs = VelMroute::ForwardingModel::Outputs;

bool contains(std::vector<Outputs> const& list, Outputs const& outputs) {
   return std::find(list.begin(), list.end(), outputs) != list.end();
}

std::string joined(std::vector<Outputs> const& list) {
   std::string text;
   for (Outputs const& outputs : list)
      text += (text.empty() ? "" : ", or ") + outputs.toString();
   return text;
}

}  // namespace

SoakFigures& SoakFigures::operator+=(SoakFigures const& other) {
   looks += other.looks;
   routeChecks += other.routeChecks;
   fullChecks += other.fullChecks;
   tableChecks += other.tableChecks;
   packets += other.packets;
   traces += other.traces;
   reroutes += other.reroutes;
   faults += other.faults;
   refusals += other.refusals;
   resurrections += other.resurrections;
   purges += other.purges;
   unchanged += other.unchanged;
   writes += other.writes;
   hookCalls += other.hookCalls;
   restarts += other.restarts;
   routesPeak = std::max(routesPeak, other.routesPeak);
   return *this;
}

SoakOracle::SoakOracle(Switch& theSwitch, SoakTiming const& timing, unsigned looksPerFullCheck)
      : switch_(theSwitch),
        path_(theSwitch.pathKind()),
        timing_(timing),
        model_(path_ == PathKind::async ? VelMroute::HookPath::async : VelMroute::HookPath::sync),
        callsTakeTime_(timing.callCost > 0),
        looksPerFullCheck_(looksPerFullCheck) {}

void SoakOracle::wrong(std::string const& text) {
   if (found_.size() < maxFound) found_.push_back(text);
}

void SoakOracle::wrong(RouteId const& id, std::string const& text) {
   wrong(id.toString() + ": " + text);
}

SoakFigures SoakOracle::figures() const {
   SoakFigures f = figures_;
   auto const all = std::as_const(switch_).figures();
   auto const& counters = all.programmer;
   f.restarts = all.restarts;
   f.faults = failures();
   f.hookCalls = faults().calls();
   f.refusals = counters.refusals;
   f.resurrections = counters.resurrections;
   f.purges = counters.purges;
   f.unchanged = counters.unchanged;
   f.writes = writes();
   return f;
}

std::uint64_t SoakOracle::writes() const {
   std::uint64_t sum = 0;
   for (std::size_t i = 0; i < VelMroute::writeKinds; ++i)
      sum += view().writes(static_cast<WriteKind>(i)).value_or(0);
   return sum;
}

std::uint64_t SoakOracle::failures() const {
   return faults().injected();
}

// ---- Looks at the switch. ----

bool SoakOracle::atRest() const {
   auto const& path = std::as_const(switch_).path();
   return programmer().settled() && !switch_.platform().writesPending() && path.rerouting() == 0 &&
          !switch_.recovering();
}

void SoakOracle::updateExcuses(bool rest) {
   bool const failed = failures() != failuresSeen_;
   failuresSeen_ = failures();
   if (failed) {
      failedAt_ = Qor::now();
      nobodyUninterrupted();
   }
   if (replay_.underWay && !roomToSpare()) nobodyUninterrupted();
   for (std::size_t i = 0; i < excuses_.size(); ++i) {
      Excuse& excuse = excuses_[i];
      std::uint64_t const deleted = view().writes(deletions[i]).value_or(0);
      if (excuse.denied || failed) {
         excuse.holds = true;
         excuse.since = Qor::now();
         excuse.deletions.reset();
      } else if (excuse.holds && rest && !excuse.deletions) {
         excuse.deletions = deleted;
      } else if (excuse.holds && rest) {
         bool const asked = Qor::now() > excuse.since + Programmer::Options().retry + 2;
         excuse.holds = deleted == excuse.deletions && !asked;
      }
   }
   if (rest) failuresAtRest_ = failuresSeen_;
}

void SoakOracle::look() {
   ++figures_.looks;
   bool const rest = atRest();
   checkHooks();
   updateExcuses(rest);
   noteRecovered();
   if (rest) {
      std::vector<RouteId> ids;
      ids.swap(unverified_);
      for (RouteId const& id : ids) {
         Known* const known = model_.find(id);
         if (!known || !known->unverified) continue;
         if (checkRoute(id, *known, true)) continue;
         model_.forget(id);
         activities_.erase(id);
      }
   } else {
      std::size_t const count = std::min(underWayLooks, unverified_.size());
      for (std::size_t i = 0; i < count; ++i) {
         bool const all = count == unverified_.size();
         RouteId const id = unverified_[all ? i : random_() % unverified_.size()];
         if (Known* const known = model_.find(id)) checkRoute(id, *known, false);
      }
   }
   for (unsigned i = 0; i < otherLooks && !everWanted_.empty(); ++i) {
      std::size_t const at = random_() % everWanted_.size();
      Known* const known = model_.find(everWanted_[at]);
      if (!known) {
         everWanted_[at] = everWanted_.back();
         everWanted_.pop_back();
      } else if (!known->unverified) {
         checkRoute(everWanted_[at], *known, rest);
      }
   }
   checkTrace();
   if (untilFull_ > 0) --untilFull_;
   if (rest && untilFull_ == 0) lookAtAll();
}

// The trace of a packet of any route, at any input, must have the fate of the packet, also while
// writes are under way. A route that forwards as wanted must have no cause of a mistake, and a route
// whose packets come out nowhere must have one.
void SoakOracle::checkTrace() {
   if (everWanted_.empty() || random_() % looksPerTrace != 0) return;
   RouteId const id = everWanted_[random_() % everWanted_.size()];
   auto const vrfId = switch_.vrfId(id.vrf);
   auto const& intfs = switch_.interfaceMap().intfs();
   auto packet = samplePacket(id.key);
   packet.vrfId = *vrfId;
   packet.in = intfs[random_() % intfs.size()]->id;
   auto const route = programmer().view(id.vrf, id.key);
   bool const ownInput = route && !route->wanted().iif.isNull() && random_() % 2 == 0;
   if (ownInput) packet.in = route->wanted().iif;
   if (switch_.intf(packet.in).port == 0) return;

   Explainer const explainer(switch_);
   PacketTrace const trace = explainer.packet(packet);
   auto const seen = switch_.send(packet);
   sent(packet, seen);
   ++figures_.traces;
   bool const same = trace.copies() == seen.copies && trace.toCpu == seen.cpu &&
                     trace.verdict == seen.verdict.value_or(trace.verdict) &&
                     (trace.missed || trace.entry->handle == seen.entry);
   if (!same) {
      return wrong(id,
                   fmt::format("the trace of a packet at {} is {}, and the packet is {}: they {}",
                               packet.in, trace.verdict, seen.verdict.value_or(trace.verdict),
                               fateOf(trace)));
   }
   if (!ownInput) return;
   RouteTrace const full = explainer.route(*route);
   bool const complete =
         seen.verdict == VelMroute::Forwarding::bridged ||
         (full.expected && full.expectedCpu == seen.cpu && *full.expected == seen.copies);
   // While the group has the members of the backup, the wanted outputs are no measure.
   bool const rerouted =
         seen.verdict == VelMroute::Forwarding::portsDown ||
         (full.reroute && full.reroute->state == RouteTrace::RerouteState::rerouted);
   bool const healthy = full.inHardware() && full.ownEntry && complete && !rerouted &&
                        full.packet.inputUp.value_or(false) && atRest() && !failedLately();
   bool const lost = full.expected && !full.expected->empty() && seen.copies.empty() && !seen.cpu &&
                     !full.wanted.bridge;
   if (healthy && !full.causes.empty()) {
      wrong(id, "forwards as wanted, and its explanation says: " + full.causes.front().text);
   } else if (lost && full.causes.empty()) {
      wrong(id, "forwards nothing, and its explanation says: " + full.headline());
   }
}

// Returns false if the route is withdrawn and no part of it is left, so the model can forget it.
bool SoakOracle::checkRoute(RouteId const& id, Known& known, bool rest) {
   ++figures_.routeChecks;
   auto const route = programmer().view(id.vrf, id.key);
   if (!known.wanted) {
      if (route) wrong(id, "is withdrawn, and the route programmer still has the route");
      if (rest) checkAbsent(id);
      return !rest;
   }
   if (!route && !switch_.recovering()) {
      wrong(id, "is wanted, and the route programmer lacks the route");
      return true;
   }
   if (rest) checkState(id, known, *route);
   checkPacket(id, known, route, rest);
   if (rest) {
      if (known.unverified) activities_[id].sameSince = Qor::now();
      model_.verified(known, model_.setOf(route));
   }
   return true;
}

void SoakOracle::checkAbsent(RouteId const& id) {
   view().forEachEntryOf(*switch_.vrfId(id.vrf), id.key, [&](Entry const& entry) {
      wrong(id, "is withdrawn, and entry " + std::to_string(entry.number) + " for vlan " +
                      std::to_string(entry.route.vlan.value()) + " still exists");
   });
}

// A breach of the contract is a finding of its own, also when nothing follows from it.
void SoakOracle::checkHooks() {
   auto const& all = switch_.hookFaults()->list();
   for (; hookFaults_ < all.size(); ++hookFaults_) {
      std::ostringstream text;
      text << "the hooks: " << all[hookFaults_];
      wrong(text.str());
   }
}

bool SoakOracle::full(Table table) const {
   auto const use = view().use(table);
   return (table == Table::group ? groupsAllocated() : use.used) >= *use.size;
}

// The reason of a route that is not in hardware must be true.
void SoakOracle::checkState(RouteId const& id, Known const& known, RouteView const& route) {
   auto const waits = [&](Table table, char const* what) {
      if (excused(table)) return;
      if (!full(table)) {
         wrong(id, std::string("waits for a ") + what + ", and there is room");
      } else if (table == Table::group) {
         for (RecordRow const& zombie : std::as_const(switch_).path().zombieRecords()) {
            if (isHardWired(view(), zombie.group)) continue;
            return wrong(id, "waits for a group, and a zombie keeps one");
         }
      }
   };
   switch (route.state()) {
      case State::inHardware:
         return;
      case State::waitingGroup:
         return waits(Table::group, "group");
      case State::waitingEntry:
         return waits(Table::entry, "route entry");
      case State::waitingBoundary:
         return waits(Table::boundary, "boundary entry");
      case State::failed:
         if (failures() == known.failuresAtChange) {
            wrong(id, "is given up, and no write has failed: " + route.reason());
         }
         return;
      default: {
         std::ostringstream text;
         text << "the switch is at rest, and the route is " << nameOf(route.state());
         wrong(id, text.str());
      }
   }
}

Bridging::VlanIdOrNone SoakOracle::vlanOf(Route const& route) const {
   if (route.noRpf) return {};
   return switch_.intf(route.iif).vlan;
}

std::vector<SoakOracle::Outputs> SoakOracle::expected(Known& known,
                                                      std::optional<RouteView> route) const {
   return model_.expected(known, model_.setOf(route),
                          faults().injected(WriteKind::groupUpdate) > 0);
}

void SoakOracle::checkPacket(RouteId const& id, Known& known, std::optional<RouteView> route,
                             bool rest) {
   Route const& wanted = *known.wanted;
   auto packet = samplePacket(id.key);
   packet.vrfId = *switch_.vrfId(id.vrf);
   packet.in = wanted.iif;
   auto const seen = switch_.send(packet);
   auto const hit = seen.entry ? view().entry(*seen.entry) : std::nullopt;
   bool const own = hit && hit->route.vrfId == packet.vrfId && hit->route.key == id.key &&
                    hit->route.vlan == vlanOf(wanted) && hit->route.bridge == wanted.bridge;
   if (hit) sent(packet, seen);
   if (rest) {
      VelMroute::ChipComparison const chip(*programmer().table().shadow());
      auto const isUp = [this](Lnet::IntfId intf) { return model_.linkUp(intf); };
      auto arriving = packet;
      if (arriving.vlan.isNone()) arriving.vlan = switch_.intf(arriving.in).vlan;
      if (auto const how = chip.ofPacket(arriving, seen, isUp)) {
         return wrong(id, "the platform: " + *how);
      }
   }
   Outputs got;
   got.cpu = seen.cpu;
   for (auto const& copy : seen.copies)
      got.ports.push_back(copy.intfId());
   std::sort(got.ports.begin(), got.ports.end(),
             [](Lnet::IntfId a, Lnet::IntfId b) { return a.id() < b.id(); });
   if (std::adjacent_find(got.ports.begin(), got.ports.end()) != got.ports.end()) {
      wrong(id, "a receiver gets two copies: " + got.toString());
   }

   std::vector<Outputs> allowed = expected(known, route);
   bool const inHardware =
         route && route->state() == State::inHardware && (rest || !known.unverified);
   if (inHardware) {
      if (!own) {
         std::ostringstream text;
         text << "is in hardware, and a packet does not hit its entry";
         if (seen.verdict) text << " (" << *seen.verdict << ')';
         return wrong(id, text.str());
      }
   } else {
      if (rest) {
         if (own) wrong(id, "is not in hardware, and a packet hits its entry");
         return;
      }
      // The route's entry may not exist yet, and the packet may hit the entry of another route.
      if (!own && !known.uninterrupted) return;
      for (Outputs& outputs : model_.permitted(known))
         allowed.push_back(std::move(outputs));
      for (Outputs& outputs : followed(known))
         allowed.push_back(std::move(outputs));
   }
   if (contains(allowed, got)) return;
   wrong(id, "expected " + joined(allowed) + ", got " + got.toString());
}

}  // namespace Agent
