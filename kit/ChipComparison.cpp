#include "kit/ChipComparison.h"

#include "hooks/internal/Text.h"

namespace VelMroute {

using MrouteLib::PortVlan;
using MrouteLib::RouteHandle;
using Qor::String;

namespace {

bool failed(Hux::XactPtr const& write) {
   return write && write->state() == Hux::Xact::State::failed;
}

}  // namespace

String ChipComparison::members(std::vector<PortVlan> const& members, bool cpu) {
   String out;
   for (PortVlan const& member : members)
      out += (out.empty() ? "" : " ") + text(member);
   if (cpu) out += out.empty() ? "cpu" : " cpu";
   return out.empty() ? "nothing" : out;
}

String ChipComparison::lastCall(std::optional<Qor::U32> handle, IsKey const& isKey) const {
   HookCall const* last = nullptr;
   auto const consider = [&](HookCall const* call) {
      if (call && (!last || call->number > last->number)) last = call;
   };
   if (handle) {
      consider(shadow_.lastCallOfEntry(RouteHandle(*handle)));
      Shadow::Entry const* const entry = shadow_.entry(RouteHandle(*handle));
      if (entry && entry->set) consider(shadow_.lastCallOfSet(*entry->set));
   } else if (isKey) {
      shadow_.forEachDeletedEntry([&](RouteHandle, Shadow::Entry const& entry) {
         if (isKey(entry.key)) consider(&entry.lastCall);
      });
   }
   if (!last) return "no call has touched the entry";
   return text("the last call that touched it: ", *last, " at ", last->time, " s");
}

// ---- Packets. ----

std::optional<String> ChipComparison::ofPacket(
      Probe::Packet const& sent, Probe::Seen const& seen,
      std::function<bool(Lnet::IntfId)> const& isUp) const {
   Forwarded const asked = shadow_.forward(
         {sent.vrfId.value(), sent.source, sent.group, sent.vlan, sent.bytes}, isUp);
   if (asked.result == Forwarding::bridged) {
      // The bridge decides on the copies.
      if (seen.verdict.value_or(Forwarding::bridged) == Forwarding::bridged) return std::nullopt;
   }
   if (asked.entry) {
      auto const* const entry = shadow_.entry(RouteHandle(*asked.entry));
      auto const* const set = entry->set ? shadow_.set(*entry->set) : nullptr;
      if (failed(entry->write) || (set && failed(set->write))) return std::nullopt;
   }
   bool const cpu = asked.entry ? seen.cpu : asked.toCpu;  // of an unknown packet: any
   if (seen.copies == asked.copies && cpu == asked.toCpu) return std::nullopt;
   return text("a packet from ", sent.source, " to ", sent.group, " at ", sent.in, ", ", sent.vlan,
               ":\nby the calls: ", members(asked.copies, asked.toCpu), " (", asked.result,
               ")\non the chip: ", members(seen.copies, cpu), '\n',
               lastCall(asked.entry, [&](Shadow::RouteKey const& key) {
                  return key.source().contains(sent.source) && key.group().contains(sent.group);
               }));
}

// ---- Tables. ----

String ChipComparison::about(RouteHandle handle, Shadow::RouteKey const& key,
                             String const& difference) const {
   bool const live = shadow_.entry(handle) != nullptr;
   return text("entry ", handle, " of ", key, ' ', difference, '\n',
               lastCall(live ? std::optional(handle.value()) : std::nullopt,
                        [&](Shadow::RouteKey const& other) { return other == key; }));
}

std::optional<String> ChipComparison::ofEntry(RouteHandle handle, Shadow::Entry const& asked,
                                              View const& view) const {
   if (failed(asked.write)) return std::nullopt;
   auto const there = view.entry(handle);
   if (!there) return about(handle, asked.key, "is missing on the chip");
   bool const same = there->route.key == asked.key && there->route.vlan == asked.vlan &&
                     there->route.vrfId.value() == asked.vrfId;
   if (!same) {
      return about(handle, asked.key,
                   text("matches ", there->route.key, " in VRF ", there->route.vrfId, ", ",
                        there->route.vlan, " on the chip; by the calls in VRF ", asked.vrfId, ", ",
                        asked.vlan));
   }
   auto const* const set = asked.set ? shadow_.set(*asked.set) : nullptr;
   if (asked.boundary || asked.drops || !set || failed(set->write)) return std::nullopt;
   auto const group = there->group ? view.group(*there->group) : std::nullopt;
   std::vector<PortVlan> const none;
   auto const& have = group ? group->members : none;
   bool const cpu = group && group->cpu;
   if (have == set->members && cpu == set->toCpu) return std::nullopt;
   return about(handle, asked.key,
                text("forwards to ", members(have, cpu), " on the chip; by the calls to ",
                     members(set->members, set->toCpu)));
}

std::optional<String> ChipComparison::ofTables(View const& view) const {
   std::optional<String> first;
   view.forEachEntry([&](View::Entry const& entry) {
      if (first || shadow_.entry(entry.handle)) return;
      first = about(entry.handle, entry.route.key, "is on the chip, and not by the calls");
   });
   shadow_.forEachEntry([&](RouteHandle handle, Shadow::Entry const& entry) {
      if (!first) first = ofEntry(handle, entry, view);
   });
   return first;
}

}  // namespace VelMroute
