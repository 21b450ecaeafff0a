#include "platform/sim/Chip.h"

#include <algorithm>
#include <cmath>
#include <iterator>
#include <utility>

#include "Qor/Clock.h"
#include "Qor/EnumText.h"
#include "platform/Format.h"

namespace Sim {

using Bridging::VlanIdOrNone;
using Lnet::IntfId;
using MrouteLib::PortVlan;
using Qor::U32;

Qor::String groupName(U32 group) {
   if (group == noGroup) return "none";
   if (group == dropGroup) return "drop";
   return group == cpuGroup ? "cpu" : fmt::format("{}", group);
}

void Violations::add(Qor::String violation) {
   ++count_;
   if (texts_.size() < kept) texts_.push_back(std::move(violation));
}

void Violations::audit(std::vector<Qor::String>& faults) const {
   faults.insert(faults.end(), texts_.begin(), texts_.end());
   if (count_ > texts_.size()) faults.push_back(fmt::format("and {} more", count_ - texts_.size()));
}

namespace {

ChipConfig const& checked(ChipConfig const& config) {
   auto const table = [](char const* name, U32 size) {
      if (size > 16777216)
         Qor::throwRange(fmt::format("ChipConfig::{} > 16777216 not allowed", name));
   };
   table("groups", config.groups);
   table("routes", config.routes);
   table("boundaries", config.boundaries);
   if (!(config.latency >= 0 && config.latency <= Qor::maxFinite)) {
      Qor::throwRange("ChipConfig::latency < 0 or not finite not allowed");
   }
   return config;
}

}  // namespace

Chip::Chip(ChipConfig const& config)
      : config_(checked(config)),
        routes_("route entry", config.routes),
        boundaries_("boundary entry", config.boundaries) {}

Chip::~Chip() = default;

// ---- Ports ----

Refusal Chip::portAdd(IntfId intfId, U32 number, VlanIdOrNone vlan) {
   if (intfId.isNull()) return "the empty interface has no port";
   Port const* const there = port(intfId);
   if (there && there->number != number) {
      return fmt::format("{} has port {}, not {}", intfId, there->number, number);
   }
   IntfId const owner = intfOfPort_.insert(number, intfId).first->second;
   if (owner != intfId) {
      return fmt::format("port {} belongs to {}, not to {}", number, owner, intfId);
   }
   auto& vlans = ports_.insert(intfId, Port{number, {}}).first->second.vlans;
   if (std::find(vlans.begin(), vlans.end(), vlan) == vlans.end()) vlans.push_back(vlan);
   return {};
}

Refusal Chip::linkIs(IntfId intfId, bool up) {
   auto* const entry = ports_.find(intfId);
   if (!entry) return fmt::format("{} has no port", intfId);
   entry->second.linkUp = up;
   return {};
}

Port const* Chip::port(IntfId intfId) const {
   auto const* const entry = ports_.find(intfId);
   return entry ? &entry->second : nullptr;
}

// ---- Table writes ----

std::vector<PortVlan> membersOf(MrouteLib::PortVlanSet const& set) {
   std::vector<PortVlan> members;
   members.reserve(set.portVlan().size());
   for (auto const& [member, flag] : set.portVlan())
      members.push_back(member);
   return members;
}

// Counts a completed write, or records the violation of a refused one.
Refusal Chip::done(WriteKind kind, Refusal refusal) {
   if (refusal.empty()) {
      ++writes_[static_cast<std::size_t>(kind)];
   } else {
      violations_.add(fmt::format("{} refused: {}", kind, refusal));
   }
   return refusal;
}

Refusal Chip::checkMembers(std::vector<PortVlan> const& members) const {
   for (std::size_t i = 0; i < members.size(); ++i) {
      PortVlan const& member = members[i];
      Port const* const itsPort = port(member.intfId());
      if (!itsPort) return fmt::format("the interface of member {} has no port", member);
      auto const& vlans = itsPort->vlans;
      if (!member.vlanId().isNone() &&
          std::find(vlans.begin(), vlans.end(), member.vlanId()) == vlans.end()) {
         return fmt::format("member {} is in a vlan that its port does not carry", member);
      }
      // Groups with the same members must compare equal, so the order is fixed.
      if (i > 0 && !(members[i - 1] < member)) {
         return fmt::format("members {} and {} do not ascend", members[i - 1], member);
      }
   }
   return {};
}

Refusal Chip::checkInTable(U32 id) const {
   if (id < groups_.size() && groups_[id]) return {};
   return fmt::format("group {}{}", groupName(id),
                      group(id) ? " is hard-wired" : " does not exist");
}

Refusal Chip::groupWrite(U32 id, std::vector<PortVlan> members, bool toCpu) {
   Refusal const refusal = checkMembers(members);
   if (!refusal.empty()) return fmt::format("group {}: {}", id, refusal);
   if (id >= groups_.size()) groups_.resize(id + 1);
   if (!groups_[id]) {
      groups_[id].emplace();
      groupsPeak_ = std::max(groupsPeak_, ++groupCount_);
   }
   groups_[id]->members = std::move(members);
   groups_[id]->toCpu = toCpu;
   return {};
}

Refusal Chip::groupCreate(U32 id, std::vector<PortVlan> members, bool toCpu) {
   if (id >= config_.groups) {
      return done(WriteKind::groupCreate,
                  fmt::format("group {} is beyond the {} groups of the chip", id, config_.groups));
   }
   if (group(id)) return done(WriteKind::groupCreate, fmt::format("group {} exists already", id));
   return done(WriteKind::groupCreate, groupWrite(id, std::move(members), toCpu));
}

Refusal Chip::groupUpdate(U32 id, std::vector<PortVlan> members, bool toCpu) {
   Refusal const refusal = checkInTable(id);
   if (!refusal.empty()) return done(WriteKind::groupUpdate, refusal);
   return done(WriteKind::groupUpdate, groupWrite(id, std::move(members), toCpu));
}

Refusal Chip::groupDelete(U32 id) {
   Refusal const refusal = checkInTable(id);
   if (!refusal.empty()) return done(WriteKind::groupDelete, refusal);
   if (U32 const routes = groups_[id]->routes; routes > 0) {
      return done(WriteKind::groupDelete,
                  fmt::format("group {} has {} routes pointing at it", id, routes));
   }
   groups_[id].reset();
   --groupCount_;
   return done(WriteKind::groupDelete, {});
}

Refusal Chip::routeCreate(U32 index, Entry const& entry) {
   if (entry.group != noGroup) {
      return done(WriteKind::routeCreate,
                  fmt::format("route entry {} is created with a group", index));
   }
   return done(WriteKind::routeCreate, routes_.create(index, entry));
}

Refusal Chip::routePoint(U32 index, U32 groupId) {
   Entry* const entry = routes_.find(index);
   if (!entry) {
      return done(WriteKind::routePoint, fmt::format("route entry {} does not exist", index));
   }
   Group* const to = writable(groupId);
   if (!to) {
      return done(WriteKind::routePoint,
                  fmt::format("route entry {} is pointed at missing group {}", index, groupId));
   }
   if (Group* const from = writable(entry->group)) --from->routes;
   entry->group = groupId;
   ++to->routes;
   return done(WriteKind::routePoint, {});
}

Refusal Chip::routeDelete(U32 index) {
   Entry const* const entry = routes_.find(index);
   Group* const from = entry ? writable(entry->group) : nullptr;
   if (from) --from->routes;
   return done(WriteKind::routeDelete, routes_.erase(index));
}

Refusal Chip::boundaryCreate(U32 index, Entry const& entry) {
   if (entry.acceptingVlan.isNone()) {
      return done(WriteKind::boundaryCreate, fmt::format("boundary entry {} has no vlan", index));
   }
   return done(WriteKind::boundaryCreate, boundaries_.create(index, entry));
}

Refusal Chip::boundaryDelete(U32 index) {
   return done(WriteKind::boundaryDelete, boundaries_.erase(index));
}

// ---- Packets ----

Forwarded Chip::forward(Packet const& p) {
   Forwarded out = VelMroute::match(routes_, boundaries_, p);
   if (!out.entry) return out;
   bool const kept = out.result == Forwarding::bridged;
   Entry* const found = kept ? boundaries_.find(*out.entry) : routes_.find(*out.entry);
   QOR_ASSERT(found != nullptr);
   Entry& entry = *found;
   entry.lastHit = Qor::now();
   ++entry.packets;
   entry.bytes += p.bytes;
   ++hits_.packets;
   hits_.bytes += p.bytes;
   Group const* const to = kept ? nullptr : group(entry.group);
   if (!to) return out;
   auto const isUp = [&](PortVlan const& member) {
      Port& port = ports_.find(member.intfId())->second;
      ++(port.linkUp ? port.copies : port.droppedCopies);
      return port.linkUp;
   };
   VelMroute::replicate(*to, isUp, out);
   droppedCopies_ += out.droppedCopies;
   return out;
}

// ---- Reading ----

std::vector<Qor::String> Chip::audit() const {
   std::vector<Qor::String> faults;
   violations_.audit(faults);
   routes_.audit(faults);
   boundaries_.audit(faults);

   // The number of entries that point at each group: the groups of the table by id, and then the
   // hard-wired groups.
   std::vector<U32> pointing(groups_.size() + hardWired_.size());
   routes_.forEach([&](U32 index, Entry const& entry) {
      if (entry.group == noGroup) return;
      if (group(entry.group)) {
         ++pointing[entry.group < groups_.size() ? entry.group
                                                 : groups_.size() + entry.group - dropGroup];
      } else {
         faults.push_back(
               fmt::format("route entry {} points at missing group {}", index, entry.group));
      }
   });
   auto const count = [&](U32 id, Group const& g, U32 routes) {
      if (g.routes == routes) return;
      faults.push_back(fmt::format("group {} counts {} routes, but {} point at it", groupName(id),
                                   g.routes, routes));
   };
   U32 present = 0;
   forEachGroup([&](U32 id, Group const& g) {
      ++present;
      count(id, g, pointing[id]);
   });
   for (U32 i = 0; i < hardWired_.size(); ++i)
      count(dropGroup + i, hardWired_[i], pointing[groups_.size() + i]);
   if (present != groupCount_) {
      faults.push_back(fmt::format("group count {} but {} present", groupCount_, present));
   }
   return faults;
}

void Chip::softError(U32 routeIndex, U32 group) {
   Entry* const entry = routes_.find(routeIndex);
   QOR_ASSERT(entry != nullptr);
   entry->group = group;
}

}  // namespace Sim
