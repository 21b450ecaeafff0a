// One path as the programmer needs it: the table programmer of a chip, its reactor, and a gate in
// front of the chip's hooks. AsyncRouteTable and SyncRouteTable implement it. The programmer makes
// all calls, in its passes; a table makes no call on its own but those of the listener.
//
// Errors. A hook that throws ends the call, and the error reaches the programmer. The gate names the
// hook (hookErrors()). Hooks that the library calls inside a destructor cannot report an error; the
// gate counts their errors and goes on.
#pragma once

#include <optional>
#include <set>
#include <utility>
#include <vector>

#include "IntfVlanId/Table.h"
#include "L3/VrfName.h"
#include "MrouteLib/SwitchChip.h"
#include "Routing/Multicast/Fib/Hardware/Status.h"
#include "Vel/VrfId.h"
#include "hooks/HookErrors.h"
#include "programmer/Restart.h"

namespace VelMroute {

class HookFaults;
class Shadow;

using RouteKey = Routing::Multicast::Fib::IpGenRouteKey;

class RouteTable {
 public:
   // The properties of an entry.
   struct Spec {
      L3::VrfName vrf;
      Vel::VrfId vrfId;
      RouteKey key;
      Bridging::VlanIdOrNone vlan;
      bool bridge = false;
      bool noRpf = false;
      bool fastdrop = false;
      bool backup = false;  // the set has a backup, and its group is rewritten in place
      Wisp::Multicast::Fib::RpaIndex rpaId;
      Routing::Multicast::Fib::RouteKeyType type{};
   };
   // The tables in which the route takes a place.
   struct Needs {
      bool group = true;
      std::optional<Table> entry;
      // Why this path takes no such route; empty if it does. Such a route takes no place.
      Qor::String never;
   };
   enum class Refusal : unsigned char { none, noRoom, noVrf, writeFailed };
   struct Record {
      MrouteLib::MtableOifSetPtr record;  // null if refused
      Hux::XactPtr write;                 // null: the group is written
      Qor::U32 failedWrites = 0;          // of a path that tries again at once
   };
   struct Entry {
      MrouteLib::RouteHandle handle;  // invalid if refused
      Refusal refusal = Refusal::none;
      Qor::U32 failedWrites = 0;
   };
   // The record of a route as the hardware has it.
   struct Facts {
      Qor::U32 index = 0;  // the multicast id or the oif set index
      bool dirty = false;
      bool rewriteWaits = false;  // the set waits for a pass of fast reroute
   };
   // Notified of changes outside the programmer, at any time, also inside a call of the table. The
   // handlers only mark.
   class Listener {
    public:
      // The table may have got room, or any table may.
      virtual void roomIs(Table table) = 0;
      virtual void roomAnywhere() = 0;
      // The VRF came, went, or has another number.
      virtual void vrfChanged() = 0;

    protected:
      ~Listener() = default;
   };

   RouteTable() = default;
   // With the gate shut the destructor calls no hook of the platform.
   virtual ~RouteTable() = default;
   RouteTable(RouteTable const&) = delete;
   RouteTable& operator=(RouteTable const&) = delete;

   // The vlans and the hardware status that the reactor of the table uses; null if it has none.
   virtual Qor::Ptr<IntfVlanId::Table const> vlans() const = 0;
   virtual Qor::Ptr<Routing::Multicast::Fib::Hardware::Status> published() const = 0;

   // Not held; null ends the notifications.
   virtual void listenerIs(Listener* listener) = 0;

   virtual Needs needs(Spec const& spec) const = 0;
   // The record for this oif set object: one that is shared, a zombie's, or a new one; null if the
   // chip has no group for it. While `foundLeft` is true the platform may adopt groups that it
   // found, so a refusal is no failed write.
   virtual Record newRecord(Spec const& spec, MrouteLib::OifSetPtr const& oifSet,
                            bool foundLeft) = 0;
   // An entry that will be pointed at the record; `record` is null if the route needs no group.
   virtual Entry newEntry(Spec const& spec, MrouteLib::MtableOifSetPtr const& record) = 0;
   // Points the entry at the record, behind `groupWrite` if that is pending. Returns the transaction
   // of this change, or null if the change is made.
   virtual Hux::XactPtr point(MrouteLib::RouteHandle handle,
                              MrouteLib::MtableOifSetPtr const& record,
                              Hux::XactPtr const& groupWrite) = 0;
   virtual void deleteEntry(MrouteLib::RouteHandle handle) = 0;
   // Whether the table programmer has the entry: after a deletion that threw it may be there or not.
   virtual bool hasEntry(MrouteLib::RouteHandle handle) const = 0;
   // Ends a batch of changes, at the end of a pass that changed something.
   virtual void commit() {}
   // Drops the results of an operation that threw.
   virtual void clearResults() = 0;

   // The number of placements of one wish that may fail before the route is given up.
   virtual Qor::U32 attempts() const = 0;
   // Why the transaction failed, which wrote a group or pointed an entry.
   virtual Qor::String failure(Hux::XactPtr const& xact, bool ofGroup) const = 0;
   // Keeps a record whose write failed from being shared.
   virtual void markDirty(MrouteLib::MtableOifSetPtr const& record) = 0;

   // Whether the record in use for this object, zombies included, may be shared; nothing if there
   // is no record.
   virtual std::optional<bool> sharable(MrouteLib::OifSetPtr const& oifSet) const = 0;
   virtual Qor::U32 zombies() const = 0;
   // Gives up the zombie that would expire next; there is one.
   virtual void purgeZombie() = 0;

   // The number of the VRF; nothing while the VRF is not in the hardware.
   virtual std::optional<Vel::VrfId> vrfId(L3::VrfName const& vrf) const = 0;
   // All VRFs in the hardware.
   virtual std::vector<std::pair<L3::VrfName, Vel::VrfId>> vrfs() const = 0;
   // The interfaces whose failure causes reroutes and that are down at present.
   virtual std::set<Lnet::IntfId> failedInterfaces() const = 0;
   // Rewrites the sets with this input, as the failure of the interface would.
   virtual void reroute(Lnet::IntfId intf) = 0;
   // The platform has removed found groups and entries: tables may have got room.
   virtual void swept() {}

   virtual Facts facts(MrouteLib::MtableOifSetPtr const& record) const = 0;
   // Why the table has no room, and why the VRF is not in the hardware, as sentences for people.
   virtual Qor::String explain(Table table, bool foundLeft) const = 0;
   virtual Qor::String explainVrf(L3::VrfName const& vrf) const = 0;

   // Lets go of the reactor and the switch with the gate open, so that the platform can end its
   // service; then shuts the gate. No other call follows but the destructor.
   virtual void endService() = 0;
   // While the gate is shut no hook reaches the platform.
   virtual void gateIs(bool open) = 0;
   virtual HookErrors const& hookErrors() const = 0;
   // The faults that the checks of the hooks found, and the tables that the calls ask for; null
   // without checks. On the synchronous path the faults are those of all chips of the hooks. Both
   // live as long as the table (hooks/HookFault.h, hooks/Shadow.h).
   virtual HookFaults const* hookFaults() const = 0;
   virtual Shadow const* shadow() const = 0;
};

}  // namespace VelMroute
