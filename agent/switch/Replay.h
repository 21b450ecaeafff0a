// The routing layer after a restart of the agent: it tells the new agent, over some time, the routes
// that it wants, and then that these are all.
//
// What is wanted afresh or no more in the meantime is told at once, by whoever does so, and is not
// told here any more (drop()).
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
#include "agent/programmer/WantedRoute.h"

namespace Agent {

struct RestartOptions {
   // By VRF and key; backwards; or as the seed has it.
   enum class Order : unsigned char { sorted, reversed, shuffled };

   std::optional<std::set<RouteId>> only;  // the routes that are told again; absent: all
   Order order = Order::sorted;
   std::uint64_t seed = 1;
   Qor::Seconds begin = 0;     // until the first route is told
   Qor::Seconds over = 0;      // from the first route to the last, evenly
   Qor::Seconds complete = 0;  // until they are said to be all; not before the last
   Qor::U32 applied = 0;       // of the writes under way at the crash, those that reach the chip
};

class Replay {
 public:
   using Routes = std::map<RouteId, WantedRoute>;
   using Tell = std::function<void(RouteId const&, WantedRoute const&)>;
   // Called once all are told; called again after the time that it returns, unless that is nothing.
   using Complete = std::function<std::optional<Qor::Seconds>()>;

   Replay(Tell tell, Complete complete);

   // Begins, in the next turn of the loop, in place of what is under way.
   void start(Routes routes, RestartOptions const& options);
   // From start() until complete() has returned nothing.
   bool underWay() const { return underWay_; }
   Routes const& left() const { return left_; }
   void drop(RouteId const& id) { left_.erase(id); }

 private:
   class QorClock final : public Qor::Clock::Notifiee {
    public:
      explicit QorClock(Replay& owner) : owner_(owner) {}
      void onTime() override { owner_.handleClock(); }

    private:
      Replay& owner_;
   };

   void handleClock();
   Qor::Seconds due(std::size_t i) const;

   Tell const tell_;
   Complete const complete_;
   bool underWay_ = false;
   Routes left_;
   std::vector<RouteId> order_;  // of all, also those that were dropped
   std::size_t next_ = 0;
   Qor::Seconds start_ = 0;
   Qor::Seconds over_ = 0;
   Qor::Seconds completeAt_ = 0;
   Qor::Ptr<Qor::Clock> const clock_ = Qor::make<Qor::Clock>("replay");
   QorClock clockReactor_{*this};
};

}  // namespace Agent
