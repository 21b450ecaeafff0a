// Compares a chip with the shadow of its tables (hooks/Shadow.h), which has what the calls of the
// hooks asked for. A difference at rest is a fault of the platform. Each text names the last call
// that touched the entry or its set.
//
// A set or an entry whose latest write failed is not compared, because the chip may have the content
// from before.
#pragma once

#include "hooks/Shadow.h"
#include "platform/Probe.h"
#include "platform/View.h"

namespace VelMroute {

class ChipComparison final {
 public:
   // The shadow outlives the comparison.
   explicit ChipComparison(Shadow const& shadow) : shadow_(shadow) {}

   // The difference between the copies of a packet and those that the shadow forwards; nothing if
   // there is none. isUp(interface) returns the state of a link; without it all links are up.
   std::optional<Qor::String> ofPacket(Probe::Packet const& sent, Probe::Seen const& seen,
                                       std::function<bool(Lnet::IntfId)> const& isUp = {}) const;
   // The first difference between the entries and groups that a view has read and those of the
   // shadow; nothing if there is none.
   std::optional<Qor::String> ofTables(View const& view) const;

   // The latest call that touched the live entry and its set. If there is no live entry, the latest
   // one that touched a deleted entry whose key isKey() accepts.
   using IsKey = std::function<bool(Shadow::RouteKey const& key)>;
   Qor::String lastCall(std::optional<Qor::U32> handle, IsKey const& isKey = {}) const;
   // The members of a group, or the copies of a packet: "kit3:3 kit4:4 cpu", "nothing".
   static Qor::String members(std::vector<MrouteLib::PortVlan> const& members, bool cpu);

 private:
   std::optional<Qor::String> ofEntry(MrouteLib::RouteHandle handle, Shadow::Entry const& asked,
                                      View const& view) const;
   Qor::String about(MrouteLib::RouteHandle handle, Shadow::RouteKey const& key,
                     Qor::String const& difference) const;

   Shadow const& shadow_;
};

}  // namespace VelMroute
