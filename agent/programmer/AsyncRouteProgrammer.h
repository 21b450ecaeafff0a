// The route programmer of the asynchronous path, whose duties Vel/VelAsyncMrouteSwitch.h states.
//
// A change is under way until its transactions are complete; the programmer watches the one it
// waits for. A new set's transaction comes before that of the entry that is pointed at it.
//
// Failed writes. When a transaction fails, the route's record is marked dirty and let go, its oif
// set is retired from sharing, and the route is placed anew, up to maxAttempts times for one wanted
// state; then it stays out of hardware, with the transaction's reason, until it changes.
#pragma once

#include <functional>

#include "Vel/VelAsyncMrouteSwitch.h"
#include "agent/programmer/SwitchRouteProgrammer.h"

namespace Agent {

class AsyncRouteProgrammer final : public SwitchRouteProgrammer<Vel::Mroute::AsyncMrouteSwitch> {
 public:
   static constexpr Qor::U32 maxAttempts = 3;  // placements of one wanted state

   // All three are held. Everything the programmer placed is taken out again by its destructor.
   AsyncRouteProgrammer(Qor::Ptr<Vel::Mroute::AsyncMrouteSwitch> mrouteSwitch,
                        Qor::Ptr<MrouteLib::MrouteTableColl> tableColl,
                        Qor::Ptr<Routing::Multicast::Fib::Hardware::Status> mfibHwStatus)
         : SwitchRouteProgrammer(std::move(mrouteSwitch), std::move(tableColl),
                                 std::move(mfibHwStatus)) {}
   ~AsyncRouteProgrammer() override { releaseAll(); }

   // Told of every transaction that a change waits for, when it is begun: what it does, for people.
   using XactObserver = std::function<void(Qor::String const&, Hux::XactPtr const&)>;
   void xactObserverIs(XactObserver observer) { xactObserver_ = std::move(observer); }

 private:
   class AsyncRoute;

   RoutePtr newRoute(L3::VrfName const& vrf, RouteKey const& key,
                     Bridging::VlanIdOrNone fastdropVlan) override;
   std::optional<Table> entryTable(Route const& route) const override;
   MrouteLib::MtableOifSetPtr newRecord(Route& route, MrouteLib::OifSetPtr const& set) override;
   Entry newEntry(Route& route, MrouteLib::MtableOifSetPtr const& record) override;
   void point(Route& route) override;
   void checkChange(Route& route) override;
   void dropChange(Route& route) override;
   Qor::String reason(Route const& route) const override;
   void changeFailed(AsyncRoute& route);

   XactObserver xactObserver_;
};

}  // namespace Agent
