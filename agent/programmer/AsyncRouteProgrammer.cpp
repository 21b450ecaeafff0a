#include "agent/programmer/AsyncRouteProgrammer.h"

#include <string>

namespace Agent {

using MrouteLib::MrouteFailureReason;
using MrouteLib::MtableOifSetPtr;
using MrouteLib::OifSetPtr;
using Vel::Mroute::AsyncMtableOifSet;

class AsyncRouteProgrammer::AsyncRoute final : public ProgrammedRoute {
 public:
   AsyncRoute(AsyncRouteProgrammer& programmer, L3::VrfName const& vrf, RouteKey const& key,
              Bridging::VlanIdOrNone fastdropVlan)
         : ProgrammedRoute(programmer, vrf, key, fastdropVlan), xactReactor(programmer, *this) {}

   // Watches the transaction that the route's change waits for.
   class QorXact final : public Hux::Xact::Notifiee {
    public:
      QorXact(AsyncRouteProgrammer& programmer, AsyncRoute& route)
            : programmer_(programmer), route_(route) {}
      void onState() override { programmer_.mark(route_); }

    private:
      AsyncRouteProgrammer& programmer_;
      AsyncRoute& route_;
   };

   static AsyncRoute& of(Route& route) { return static_cast<AsyncRoute&>(route); }
   static AsyncRoute const& of(Route const& route) { return static_cast<AsyncRoute const&>(route); }

   Hux::XactPtr oifSetXact;
   Hux::XactPtr ingressXact;
   QorXact xactReactor;
   Qor::String8 failure;

 private:
   ~AsyncRoute() override = default;
};

AsyncRouteProgrammer::RoutePtr AsyncRouteProgrammer::newRoute(L3::VrfName const& vrf,
                                                              RouteKey const& key,
                                                              Bridging::VlanIdOrNone fastdropVlan) {
   return Qor::make<AsyncRoute>(*this, vrf, key, fastdropVlan);
}

std::optional<Table> AsyncRouteProgrammer::entryTable(Route const& route) const {
   if (!mrouteSwitch().needIngressProgramming(route.target()->set.type())) return std::nullopt;
   return Table::entry;
}

MtableOifSetPtr AsyncRouteProgrammer::newRecord(Route& base, OifSetPtr const& set) {
   AsyncRoute& route = AsyncRoute::of(base);
   WantedRoute const& wanted = *route.target();
   MrouteLib::RouteKeyInfo const info(route.key(), route.vrf(), wanted.acceptingVlan,
                                      wanted.set.type());
   bool const frrRoute = !wanted.set.currentIif().isNull();
   route.oifSetXact = mrouteSwitch().doAllocateMtableOifSet(info, set, nullptr, 0, frrRoute);
   if (mrouteSwitch().mrouteFailureReason() != MrouteFailureReason::none) return nullptr;
   MtableOifSetPtr const record = mrouteSwitch().takeMtableOifSet();
   bool const isNew = record->references() == 1;
   if (xactObserver_ && isNew && route.oifSetXact && route.oifSetXact->pending()) {
      xactObserver_("group " + std::to_string(mrouteSwitch().doGetMulticastId(record)),
                    route.oifSetXact);
   }
   return record;
}

AsyncRouteProgrammer::Entry AsyncRouteProgrammer::newEntry(Route& route, MtableOifSetPtr const&) {
   WantedRoute const& wanted = *route.target();
   mrouteSwitch().doAllocateRoute(route.key(), wanted.acceptingVlan, wanted.bridgeAction,
                                  wanted.rpaId, route.vrf());
   switch (mrouteSwitch().mrouteFailureReason()) {
      case MrouteFailureReason::none:
         return {mrouteSwitch().routeHandle()};
      case MrouteFailureReason::noVrfStatus:
         return {{}, State::waitingVrf};
      default:
         return {{}, State::waitingEntry};
   }
}

void AsyncRouteProgrammer::point(Route& base) {
   AsyncRoute& route = AsyncRoute::of(base);
   route.ingressXact =
         mrouteSwitch().doSetMtableOifSet(route.handle(), route.record(), route.oifSetXact);
   if (xactObserver_ && route.ingressXact) {
      xactObserver_("point " + route.key().pretty(), route.ingressXact);
   }
}

// Looks at the transactions of the change under way, and watches the one it waits for.
void AsyncRouteProgrammer::checkChange(Route& base) {
   AsyncRoute& route = AsyncRoute::of(base);
   for (Hux::XactPtr const& xact : {route.oifSetXact, route.ingressXact}) {
      if (!xact) continue;
      if (xact->pending()) {
         route.xactReactor.notifierIs(xact);
         return;
      }
      if (xact->state() == Hux::Xact::State::failed) {
         route.failure = xact == route.oifSetXact
                               ? mrouteSwitch().doGetOifSetXactFailureReason(xact)
                               : mrouteSwitch().doGetIngressXactFailureReason(xact);
         changeFailed(route);
         return;
      }
   }
   dropChange(route);
   changeDone(route);
}

// The record must not be shared any more.
void AsyncRouteProgrammer::changeFailed(AsyncRoute& route) {
   bool const givenUp = countFailure(route) >= maxAttempts;
   if (auto const record = Qor::ptrCast<AsyncMtableOifSet>(route.record())) {
      record->dirtyIs(true);
      retire(record->oifSet());
   }
   if (givenUp) {
      giveUp(route);
   } else {
      placeAgain(route);
   }
}

void AsyncRouteProgrammer::dropChange(Route& base) {
   AsyncRoute& route = AsyncRoute::of(base);
   route.xactReactor.notifierIs(nullptr);
   route.oifSetXact = route.ingressXact = nullptr;
}

Qor::String AsyncRouteProgrammer::reason(Route const& route) const {
   switch (route.state()) {
      case State::waitingGroup:
         return "no free multicast group (failure code 8); waits for a deletion";
      case State::waitingEntry:
         return "no free route entry (failure code 1024); waits for a deletion";
      case State::waitingVrf:
         return "VRF " + route.vrf().name() + " has no hardware status (failure code 4096)";
      case State::failed:
         return "write failed " + std::to_string(route.attempts()) +
                " times: " + AsyncRoute::of(route).failure;
      default:
         return "transactions under way";
   }
}

}  // namespace Agent
