// The routing layer after a restart of the agent: it announces its wanted routes to the new agent
// again, over some time, and then the end of the replay.
//
// A route that changes during the replay is announced at once by the caller of drop(), and the
// replay omits it.
#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <vector>

#include "Qor/Clock.h"
#include "agent/input/CaptureState.h"
#include "programmer/WantedRoute.h"

namespace Agent {

struct RestartOptions {
   // By VRF and key; the reverse of that; or a random order that follows from the seed.
   enum class Order : unsigned char { sorted, reversed, shuffled };

   std::optional<std::set<RouteId>> only;  // the routes that are replayed; absent: all
   Order order = Order::sorted;
   std::uint64_t seed = 1;
   Qor::Seconds begin = 0;     // from the crash to the first route
   Qor::Seconds over = 0;      // from the first route to the last, at equal distances
   Qor::Seconds complete = 0;  // from the crash to the end of the replay; not before the last route
   Qor::U32 applied = 0;       // writes under way at the crash that still reach the chip
};

class RouteReplay {
 public:
   using Routes = std::map<RouteId, VelMroute::WantedRoute>;
   using Announce = std::function<void(RouteId const&, VelMroute::WantedRoute const&)>;
   // Called once, at the end of the replay.
   using Complete = std::function<void()>;

   RouteReplay(Announce announce, Complete complete);

   // Begins a replay in the next turn of the loop, in place of the one that is under way.
   void start(Routes routes, RestartOptions const& options);
   // True from start() until the end of the replay.
   bool underWay() const { return underWay_; }
   Routes const& left() const { return left_; }
   void drop(L3::VrfName const& vrf, Routing::Multicast::Fib::IpGenRouteKey const& key) {
      if (!left_.empty()) left_.erase({vrf, key});
   }

 private:
   class QorClock final : public Qor::Clock::Notifiee {
    public:
      explicit QorClock(RouteReplay& owner) : owner_(owner) {}
      void onTime() override { owner_.handleClock(); }

    private:
      RouteReplay& owner_;
   };

   void handleClock();
   Qor::Seconds due(std::size_t i) const;

   Announce const announce_;
   Complete const complete_;
   bool underWay_ = false;
   Routes left_;
   std::vector<RouteId> order_;  // all routes of the replay, the dropped ones included
   std::size_t next_ = 0;
   Qor::Seconds start_ = 0;
   Qor::Seconds over_ = 0;
   Qor::Seconds completeAt_ = 0;
   Qor::Ptr<Qor::Clock> const clock_ = Qor::make<Qor::Clock>("replay");
   QorClock clockReactor_{*this};
};

}  // namespace Agent
