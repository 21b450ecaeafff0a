#include "agent/programmer/SyncRouteProgrammer.h"

namespace Agent {

using MrouteLib::MtableOifSetPtr;
using MrouteLib::OifSetPtr;
using Wisp::Multicast::Fib::RpaIndex;

namespace {

// Why the switch programs this route in no case; null if it may.
char const* whyNever(ProgrammedRoute const& route) {
   if (route.target()->bridgeAction) {
      return route.target()->acceptingVlan.isNone() ? "a boundary entry needs a vlan" : nullptr;
   }
   if (route.key().source().address().isMulticast()) return "the source is a multicast address";
   if (route.target()->rpaId == RpaIndex::notProgrammed()) {
      return "its rendezvous point has no index in the hardware";
   }
   return nullptr;
}

}  // namespace

SyncRouteProgrammer::SyncRouteProgrammer(
      Qor::Ptr<Vel::MrouteSwitch> mrouteSwitch, Qor::Ptr<MrouteLib::MrouteTableColl> tableColl,
      Qor::Ptr<Routing::Multicast::Fib::Hardware::Status> mfibHwStatus)
      : SwitchRouteProgrammer(std::move(mrouteSwitch), std::move(tableColl),
                              std::move(mfibHwStatus)) {
   chipReactor_.notifierIs(&this->mrouteSwitch());
}

// Whoever hears of room has nobody left to try.
SyncRouteProgrammer::~SyncRouteProgrammer() {
   chipReactor_.notifierIs(nullptr);
   releaseAll();
}

bool SyncRouteProgrammer::needsGroup(Route const& route) const {
   return !route.isFastdrop() && !route.target()->bridgeAction && !whyNever(route);
}

std::optional<Table> SyncRouteProgrammer::entryTable(Route const& route) const {
   return route.target()->bridgeAction ? Table::boundary : Table::entry;
}

MtableOifSetPtr SyncRouteProgrammer::newRecord(Route&, OifSetPtr const& set) {
   for (Qor::U32 attempt = 0; attempt < maxAttempts; ++attempt) {
      mrouteSwitch().doAllocateMtableOifSet(set);
      MtableOifSetPtr record = mrouteSwitch().takeMtableOifSet();
      // While there are groups that may be taken over, the table never calls itself full.
      if (record || recovering() || !mrouteSwitch().mtableFree()) return record;
      writeFailed();
   }
   return nullptr;
}

SyncRouteProgrammer::Entry SyncRouteProgrammer::newEntry(Route& route,
                                                         MtableOifSetPtr const& record) {
   WantedRoute const& wanted = *route.target();
   Table const table = *entryTable(route);
   if (whyNever(route)) return {{}, State::failed};
   if (!mrouteSwitch().l3Status()->vrfNameToVrfId().find(route.vrf().name())) {
      return {{}, State::waitingVrf};
   }
   for (Qor::U32 attempt = 0; attempt < maxAttempts; ++attempt) {
      mrouteSwitch().doAllocateRoute(route.key(), wanted.acceptingVlan, wanted.bridgeAction, record,
                                     route.isFastdrop(), wanted.noRpf, wanted.rpaId, route.vrf());
      MrouteLib::RouteHandle const handle = mrouteSwitch().routeHandle();
      if (!handle.isNull()) return {handle, State::inHardware, table};
      bool const room = table == Table::boundary ? mrouteSwitch().boundaryTcamFree()
                                                 : mrouteSwitch().mrouteTcamFree();
      if (!room) {
         return {{}, table == Table::boundary ? State::waitingBoundary : State::waitingEntry};
      }
      writeFailed();
   }
   return {{}, State::failed};
}

void SyncRouteProgrammer::point(Route& route) {
   mrouteSwitch().doSetMtableOifSet(route.handle(), route.record());
}

Qor::String SyncRouteProgrammer::reason(Route const& route) const {
   switch (route.state()) {
      case State::waitingGroup:
         return mrouteSwitch().mtableFree() && !recovering()
                      ? "the replication table could not be written; waits for the next review"
                      : "no free multicast group; waits for a deletion";
      case State::waitingEntry:
         return "no free route entry; waits for a deletion";
      case State::waitingBoundary:
         return "no free boundary entry; waits for a deletion";
      case State::waitingVrf:
         return "VRF " + route.vrf().name() + " has no id";
      default:
         if (char const* const why = whyNever(route)) return why;
         return "write failed " + std::to_string(maxAttempts) + " times";
   }
}

}  // namespace Agent
