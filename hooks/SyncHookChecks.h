// The checks of the synchronous path (hooks/HookChecks.h), inside the gate (hooks/SyncHookGate.h).
// Each function is the hook of its name: it makes the call on the platform's hooks, checks it, and
// keeps the shadow of the chip with this number. The hooks that have no function here are not
// checked.
//
// Duties that calls cannot show: whether a write is on the chip when its hook returns, whether a
// rewrite changes the routes of the index without a gap, whether entries accept the right vlan,
// whether hit bits and counters are true and the verification compares anything, and whether the
// chip is cleared at its end. These need packets and a reading of the tables.
#pragma once

#include <array>
#include <map>
#include <set>

#include "Vel/VelSyncMrouteHelper.h"
#include "hooks/HookChecks.h"

namespace VelMroute {

class SyncHookChecks final : public HookChecks {
 public:
   using Hooks = VelHelper::MrouteSmHelper;
   using RouteHandle = MrouteLib::RouteHandle;
   using IpGenRouteKey = Routing::Multicast::Fib::IpGenRouteKey;
   using VlanIdOrNone = Bridging::VlanIdOrNone;

   // The hooks outlive this object.
   SyncHookChecks(Hooks& hooks, Options options);
   ~SyncHookChecks() override;

   // The shadow of a chip; null before the first call for the chip. An index is an oif set index.
   Shadow const* shadow(Qor::U32 switchId) const;

   void mrouteSwitchInit(Qor::U32 switchId, bool start);
   Qor::U32 doAllocateMtableOifSet(Qor::U32 switchId, Qor::U32 oifSetIndex,
                                   MrouteLib::OifSetPtr const& oifSet);
   Qor::U32 doReallocateMtableOifSet(Qor::U32 switchId, Qor::U32 oifSetIndex,
                                     MrouteLib::OifSetPtr const& oifSet);
   void handleFreeMtableOifSet(Qor::U32 switchId, Qor::Ptr<Vel::MtableOifSet> const& record);
   RouteHandle doAllocateMroute(Qor::U32 switchId, Qor::U16 vrfId, IpGenRouteKey const& key,
                                VlanIdOrNone acceptingVlanId, bool bridge, Qor::U32 oifSetIndex,
                                bool fastDrop, Qor::U16 rpaId);
   RouteHandle doAllocateMrouteNoRpf(Qor::U32 switchId, Qor::U16 vrfId, IpGenRouteKey const& key,
                                     bool bridge, Qor::U32 oifSetIndex, bool fastDrop,
                                     Qor::U16 rpaId);
   void doSetMtableOifSet(Qor::U32 switchId, Qor::U16 vrfId, RouteHandle handle,
                          Qor::Ptr<Vel::Route const> const& route, Qor::U32 oifSetIndex);
   void doDeleteMroute(Qor::U32 switchId, Qor::U16 vrfId, RouteHandle handle,
                       Qor::Ptr<Vel::Route const> const& route);
   void doDeleteMrouteBoundary(Qor::U32 switchId, Qor::U16 vrfId, RouteHandle handle,
                               Qor::Ptr<Vel::Boundary const> const& boundary);
   bool mrouteFull(Qor::U32 switchId);
   bool mrouteBoundaryFull(Qor::U32 switchId);
   bool mtableFull(Qor::U32 switchId);
   bool mrouteHitBit(Qor::U32 switchId, Qor::U16 vrfId, IpGenRouteKey const& key,
                     VlanIdOrNone acceptingVlanId, bool boundary);
   Qor::U8 mrouteHitBitCacheRefresh(Qor::U32 switchId);
   void verifyMroute(Qor::U32 switchId, Qor::U16 vrfId, Qor::Ptr<Vel::Route const> const& route);
   void verifyMrouteBoundary(Qor::U32 switchId, Qor::U16 vrfId,
                             Qor::Ptr<Vel::Boundary const> const& boundary);

 private:
   enum Table { sets, routes, boundaries };
   struct Chip {
      Shadow shadow;
      bool inService = false;
      bool hadRoom = false;  // the replication table had room when the service began
      // The owners of the indexes, by index: the serial number of the oif set. The second map has
      // those of the last end of service, which are freed afterwards.
      std::map<Qor::U32, Qor::U64> owners, ended;
      std::array<Qor::U32, 3> refusals{};  // in a row, of each table
   };

   Chip& chip(char const* hook, Qor::U32 switchId);
   Chip& served(char const* hook, Qor::U32 switchId);
   void refused(Chip& chip, Qor::U32 switchId, Table table);
   Qor::U32 rewritten(Chip& chip, Qor::U32 index, Qor::U32 result,
                      MrouteLib::OifSetPtr const& oifSet);
   bool knownSet(Chip const& chip, Qor::U32 index);
   bool knownEntry(Chip const& chip, RouteHandle handle, bool boundary);
   RouteHandle allocated(Chip& chip, Qor::U32 switchId, RouteHandle handle, Shadow::Entry entry);
   bool isShared(Shadow::Entry const& live, Shadow::Entry const& entry) const;
   bool replicationFull(Chip const& chip, Qor::U32 switchId);
   bool fullWhen(bool full, bool empty, char const* what);
   void deleted(Chip& chip, RouteHandle handle, bool known);

   Hooks& hooks_;
   std::map<Qor::U32, Chip> chips_;  // by switchId
};

}  // namespace VelMroute
