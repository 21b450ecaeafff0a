// The oracle's comparisons of everything: the chip's tables, the table programmer's records, and
// the published activity of the routes.
#include <algorithm>
#include <cmath>
#include <ranges>
#include <sstream>

#include "agent/soak/SoakOracle.h"

namespace Agent {

namespace {

constexpr double tolerance = 1e-6;  // the rounding error of sums of times, in seconds

bool sameMembers(VelMroute::View::Group const& group, MrouteLib::PortVlanSet const& set,
                 bool backup) {
   auto const& members = backup ? set.portVlanFrr() : set.portVlan();
   return group.cpu == set.toCpu() && group.members.size() == members.size() &&
          std::equal(members.begin(), members.end(), group.members.begin(),
                     [](auto const& member, auto const& there) { return member.first == there; });
}

std::string groupText(RecordRow const& row) {
   return "group " + (row.group ? std::to_string(*row.group) : "none") + " of " +
          row.oifSet->portVlanSet().pretty();
}

}  // namespace

SoakOracle::Outputs SoakOracle::outputsOf(std::optional<Qor::U32> number) const {
   Outputs out;
   auto const group = number ? view().group(*number) : std::nullopt;
   if (!group) return out;
   out.cpu = group->cpu;
   for (auto const& member : group->members) {
      if (model_.linkUp(member.intfId())) out.ports.push_back(member.intfId());
   }
   std::sort(out.ports.begin(), out.ports.end(),
             [](Lnet::IntfId a, Lnet::IntfId b) { return a.id() < b.id(); });
   return out;
}

void SoakOracle::lookAtAll() {
   if (!atRest()) return wrong("the switch does not come to rest");
   untilFull_ = looksPerFullCheck_;
   ++figures_.fullChecks;
   updateExcuses(true);
   checkHooks();
   switch_.readBack();
   VelMroute::ChipComparison const chip(*programmer().table().shadow());
   if (auto const how = chip.ofTables(view())) wrong("the platform: " + *how);
   for (std::string const& fault : switch_.audit())
      wrong(fault);
   for (std::string const& fault : std::as_const(switch_).path().auditTables())
      wrong(fault);
   checkRoutesInTables();
   checkEntries();
   checkBoundaries();
   checkGroups();
   if (path_ == PathKind::async) return;
   for (std::string const& text :
        counters_.check(std::as_const(switch_).path(), !callsTakeTime_ && failures() == 0))
      wrong(text);
}

// Compares each wanted route by its handle. No packet is sent, so no entry is hit.
void SoakOracle::checkRoutesInTables() {
   std::size_t wanted = 0;
   for (auto& [id, known] : model_.routes()) {
      if (!known.wanted) continue;
      ++wanted;
      ++figures_.tableChecks;
      auto const route = programmer().view(id.vrf, id.key);
      if (!route) {
         wrong(id, "is wanted, and the route programmer lacks the route");
         continue;
      }
      checkState(id, known, *route);
      checkActivity(id, known);
      bool const placed = route->state() == State::inHardware;
      if (!placed) continue;
      auto const entry = view().entry(route->handle());
      if (!entry || entry->route.key != id.key || entry->route.vlan != vlanOf(*known.wanted) ||
          entry->route.vrfId != *switch_.vrfId(id.vrf)) {
         wrong(id, "is in hardware, and its handle is of another entry");
      } else if (!known.wanted->bridge) {
         Outputs const got = outputsOf(entry->group);
         auto const allowed = expected(known, route);
         if (std::find(allowed.begin(), allowed.end(), got) == allowed.end()) {
            wrong(id, "expected " + allowed.front().toString() + ", its entry points at " +
                            got.toString());
         }
      }
   }
   if (wanted != programmer().routes()) {
      wrong(std::to_string(wanted) + " routes are wanted, the route programmer has " +
            std::to_string(programmer().routes()));
   }
}

// Each entry of the chip must belong to a route in hardware or to a fastdrop interface.
void SoakOracle::checkEntries() {
   std::size_t own = 0, fastdrops = 0, wantedOwn = 0, wantedFastdrops = 0;
   view().forEachEntry([&](Entry const& entry) {
      auto const& [vrfId, key, vlan, boundary] = entry.route;
      if (boundary) return;
      ++figures_.tableChecks;
      auto const vrf = vrfNames_.find(vrfId);
      Known* const known = vrf == vrfNames_.end() ? nullptr : model_.find({vrf->second, key});
      bool expectedHere = false;
      if (known && known->wanted) {
         if (!known->wanted->bridge && vlan == vlanOf(*known->wanted)) {
            expectedHere = true;
            ++own;
         }
         for (Lnet::IntfId const intf : known->wanted->fastdrop) {
            if (switch_.intf(intf).vlan != vlan) continue;
            expectedHere = true;
            ++fastdrops;
            if (!outputsOf(entry.group).nowhere()) {
               wrong({vrf->second, key}, "forwards packets from fastdrop interface " + intf.name());
            }
         }
      }
      if (expectedHere) return;
      std::ostringstream text;
      text << "route entry " << entry.number << " has no route: vrf id " << vrfId << ' ' << key
           << " vlan " << vlan;
      wrong(text.str());
   });
   for (auto const& [id, known] : model_.routes()) {
      if (!known.wanted) continue;
      wantedFastdrops += known.wanted->fastdrop.size();
      auto const route = programmer().view(id.vrf, id.key);
      wantedOwn += route && route->state() == State::inHardware && !known.wanted->bridge;
   }
   if (own != wantedOwn) {
      wrong(std::to_string(wantedOwn) + " routes are in hardware with a route entry, " +
            std::to_string(own) + " are on the chip");
   }
   bool const room = !full(Table::entry) && !excused(Table::entry) && !full(Table::group) &&
                     !excused(Table::group) && failures() == 0;
   if (room && fastdrops != wantedFastdrops) {
      wrong(std::to_string(wantedFastdrops) + " fastdrop entries are wanted, " +
            std::to_string(fastdrops) + " are on the chip, which has room");
   }
}

void SoakOracle::checkBoundaries() {
   std::size_t own = 0, wantedOwn = 0;
   view().forEachEntry([&](Entry const& entry) {
      auto const& [vrfId, key, vlan, boundary] = entry.route;
      if (!boundary) return;
      auto const vrf = vrfNames_.find(vrfId);
      Known* const known = vrf == vrfNames_.end() ? nullptr : model_.find({vrf->second, key});
      if (known && known->wanted && known->wanted->bridge && vlan == vlanOf(*known->wanted)) {
         ++own;
      } else {
         wrong("boundary entry " + std::to_string(entry.number) + " has no route: " + key.pretty());
      }
   });
   programmer().forEach([&](RouteView const& route) {
      wantedOwn += route.state() == State::inHardware && route.wanted().bridge;
   });
   if (own != wantedOwn) {
      wrong(std::to_string(wantedOwn) + " routes are in hardware with a boundary entry, " +
            std::to_string(own) + " are on the chip");
   }
}

// ---- Groups. ----

// Each record must have a group that no other record has, with the members of its set. Routes use
// the groups of records in use, and no route uses the group of a zombie. The chip has no other
// groups.
void SoakOracle::checkGroups() {
   auto const& path = std::as_const(switch_).path();
   std::vector<RecordRow> const inUse = path.recordsInUse();
   std::vector<RecordRow> const zombies = path.zombieRecords();
   std::set<Qor::U32> groups;
   std::size_t onChip = 0;
   pointing_.clear();
   view().forEachEntry([&](Entry const& entry) {
      if (entry.group && !entry.route.bridge) ++pointing_[*entry.group];
   });
   auto const look = [&](RecordRow const& row, bool zombie) {
      ++figures_.tableChecks;
      if (isHardWired(view(), row.group)) return;
      if (!row.group) return wrong(groupText(row) + " has no number");
      if (!groups.insert(*row.group).second) wrong(groupText(row) + " has a second record");
      onChip += view().group(*row.group).has_value();
      checkMembers(row, zombie);
   };
   std::set<Qor::U64> serials;
   std::map<Qor::String, RecordRow const*> shared;
   for (RecordRow const& row : inUse) {
      look(row, false);
      serials.insert(row.oifSet->serial());
      if (row.expiryTime <= Qor::maxFinite)
         wrong(groupText(row) + " is in use and may expire like a zombie");
      if (row.dirty) continue;
      auto const [other, isNew] = shared.emplace(row.oifSet->portVlanSet().strep(), &row);
      if (!isNew && other->second->oifSet != row.oifSet) {
         wrong(groupText(row) + " has the set of another clean record");
      }
   }
   for (RecordRow const& row : zombies)
      look(row, true);
   if (groups.size() != groupsAllocated()) {
      wrong(std::to_string(groupsAllocated()) + " groups are allocated, " +
            std::to_string(groups.size()) + " have a record");
   }
   if (onChip != view().use(Table::group).used) {
      wrong(std::to_string(view().use(Table::group).used) + " groups are on the chip, " +
            std::to_string(onChip) + " of them have a record");
   }
   checkZombies(zombies, serials);
}

void SoakOracle::checkMembers(RecordRow const& row, bool zombie) {
   auto const& set = row.oifSet->portVlanSet();
   auto const group = view().group(*row.group);
   if (!group) {
      if (!failedLately()) wrong(groupText(row) + " is not on the chip");
      return;
   }
   bool const pointed = pointing_.contains(*row.group);
   if (zombie == pointed) {
      if (!failedLately() || zombie) {
         wrong(groupText(row) + (zombie ? " is a zombie, and routes point at it"
                                        : " is in use, and no route points at it"));
      }
   }
   bool const canReroute = !set.currentIif().isNull() && !set.portVlanFrr().empty();
   if (row.dirty && !canReroute && failures() == 0) {
      wrong(groupText(row) + " is dirty, without a backup or a failed write");
   }
   if (sameMembers(*group, set, false) || (row.dirty && sameMembers(*group, set, true))) return;
   wrong(groupText(row) + " has other members on the chip");
}

// A zombie must live for its lifetime after its last route left, unless it is resurrected or purged
// for room. The zombies and the records in use of the last full look are compared with the present
// ones.
void SoakOracle::checkZombies(std::vector<RecordRow> const& zombies,
                              std::set<Qor::U64> const& inUse) {
   double const lifetime = path_ == PathKind::async ? 3.0 : 4.0;
   double const now = Qor::now();
   bool const timeStands = !callsTakeTime_;  // otherwise the zombie clock may fire late
   std::map<Qor::U64, double> present;
   for (RecordRow const& row : zombies) {
      if (isHardWired(view(), row.group)) continue;  // several records may have the same set
      Qor::U64 const serial = row.oifSet->serial();
      present[serial] = row.expiryTime;
      if (row.expiryTime > now + lifetime + tolerance || (timeStands && row.expiryTime <= now)) {
         wrong(groupText(row) + " is a zombie until " + Scenario::numberText(row.expiryTime) +
               ", and the time is " + Scenario::numberText(now));
      }
      auto const before = zombies_.find(serial);
      bool const same = before != zombies_.end() && before->second == row.expiryTime;
      if (timeStands && !same && row.expiryTime < zombiesAt_ + lifetime - tolerance) {
         wrong(groupText(row) + " expires too early for a zombie that is new since the last look");
      }
   }
   std::uint64_t early = 0;
   for (auto const& [serial, expiry] : zombies_) {
      early += expiry > now + tolerance && !present.contains(serial) && !inUse.contains(serial);
   }
   // A resurrected record may have become a zombie again and expired, or its set may be gone
   // because nothing shares it. Resurrections are therefore counted with the purges.
   Programmer::Counters const counters = programmer().counters();
   std::uint64_t const purges = counters.purges + counters.resurrections;
   if (early > purges - purgesAtZombies_ && !failedLately()) {
      wrong(std::to_string(early) + " zombies are gone before their expiry, " +
            std::to_string(purges - purgesAtZombies_) + " were purged or resurrected");
   }
   std::uint64_t lost = 0;
   for (Qor::U64 const serial : inUse_)
      lost += !inUse.contains(serial) && !present.contains(serial);
   bool const mayBeGone = now >= zombiesAt_ + lifetime - tolerance || failedLately();
   if (lost > purges - purgesAtZombies_ && !mayBeGone) {
      wrong(std::to_string(lost) + " groups were deleted with their last route, not as zombies");
   }
   inUse_ = inUse;
   zombies_ = std::move(present);
   zombiesAt_ = now;
   purgesAtZombies_ = purges;
}

// ---- Activity. ----

// The published lastPollTime must not decrease or exceed the time of the last packet. It may be
// earlier than that packet by the time that two reviews take.
void SoakOracle::checkActivity(RouteId const& id, Known const& known) {
   Activity& activity = activities_[id];
   auto const vrfStatus = switch_.mfibHwStatus().vrfStatus(id.vrf);
   auto const status = vrfStatus ? vrfStatus->route(id.key) : nullptr;
   auto const route = programmer().view(id.vrf, id.key);
   if (!status) {
      if (route->state() == State::inHardware) wrong(id, "is in hardware without a status");
      activity.lastPollTime = 0;
      return;
   }
   double const polled = status->lastPollTime();
   double const now = Qor::now();
   if (activity.status == status && polled < activity.lastPollTime) {
      wrong(id, "lastPollTime went back from " + Scenario::numberText(activity.lastPollTime) +
                      " to " + Scenario::numberText(polled));
   }
   activity.lastPollTime = polled;
   if (activity.status != status) {
      activity.status = status;
      activity.sameSince = now;
   }
   // The time of two reviews: the interval, the gaps between the slices, and the cost of the calls.
   double const entries = view().use(Table::entry).used + 1.0;
   double const gaps = path_ == PathKind::async ? 0.2 * (entries / 128 + 2) : 0.2;
   double const bound = 2 * (longestInterval(now - 600) + gaps +
                             entries * timing_.callCost * (path_ == PathKind::async ? 2 : 3)) +
                        1;
   if (polled > now + tolerance) wrong(id, "lastPollTime is in the future");
   // Catch-all routes of both families are polled under one key.
   if (id.key.kind() == Scenario::RouteKey::kindCatchAll) return;
   bool const byHit = path_ == PathKind::async;
   double const latest = std::max(activity.lastHit, activity.foundHit);
   if (polled > latest + (byHit ? tolerance : bound) && busySince_ < 0) {
      wrong(id, "lastPollTime is " + Scenario::numberText(polled) + ", the last packet came at " +
                      Scenario::numberText(activity.lastHit));
   }
   // The synchronous path does not poll no-RPF routes.
   bool const isPolled = known.wanted && !known.wanted->bridge &&
                         (path_ == PathKind::async || !known.wanted->noRpf);
   bool const due = route->state() == State::inHardware && activity.sameSince < activity.lastHit &&
                    activity.lastHit + bound < now && busySince_ + bound < now &&
                    // A failed reading loses the hit bits.
                    (path_ == PathKind::async || failures() == 0);
   if (isPolled && due && polled < activity.lastHit - tolerance) {
      wrong(id, "was hit at " + Scenario::numberText(activity.lastHit) + ", and at " +
                      Scenario::numberText(now) + " lastPollTime is " +
                      Scenario::numberText(polled));
   }
   for (Lnet::IntfId const intf : known.wanted->fastdrop) {
      auto const* const entry = status->fastdropLastPollTime().find(intf.name());
      auto const hit = activity.fastdropHit.find(intf);
      double const lastHit =
            std::max(activity.foundHit, hit == activity.fastdropHit.end() ? 0 : hit->second);
      if (entry && entry->second > lastHit + (byHit ? tolerance : bound) && busySince_ < 0) {
         wrong(id, "fastdropLastPollTime of " + intf.name() + " is " +
                         Scenario::numberText(entry->second) + ", the last packet came at " +
                         Scenario::numberText(lastHit));
      }
   }
}

// The interval that was in force at `since` is included.
double SoakOracle::longestInterval(double since) const {
   double longest = 0;
   for (auto const& [begin, interval] : intervals_ | std::views::reverse) {
      longest = std::max(longest, interval);
      if (begin < since) break;
   }
   return longest;
}

// ---- The end. ----

void SoakOracle::lookAtEmpty() {
   static constexpr char const* names[] = {"groups", "route entries", "boundary entries"};
   for (Table const table : VelMroute::allTables) {
      Qor::U32 const used = view().use(table).used;
      if (used == 0) continue;
      wrong(std::to_string(used) + ' ' + names[static_cast<std::size_t>(table)] + " are left over");
   }
   auto const& path = std::as_const(switch_).path();
   if (path.zombies() != 0) wrong(std::to_string(path.zombies()) + " zombies are left over");
   if (groupsAllocated() != 0) wrong("groups are allocated without a route");
   if (!path.recordsInUse().empty()) wrong("records are in use without a route");
}

}  // namespace Agent
