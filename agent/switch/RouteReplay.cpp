#include "agent/switch/RouteReplay.h"

#include <algorithm>
#include <random>
#include <utility>

namespace Agent {

RouteReplay::RouteReplay(Announce announce, Complete complete)
      : announce_(std::move(announce)), complete_(std::move(complete)) {
   clockReactor_.notifierIs(clock_.get());
}

void RouteReplay::start(Routes routes, RestartOptions const& options) {
   left_ = std::move(routes);
   if (options.only) {
      std::erase_if(left_, [&](auto const& route) { return !options.only->contains(route.first); });
   }
   order_.clear();
   for (auto const& [id, wanted] : left_)
      order_.push_back(id);
   if (options.order == RestartOptions::Order::reversed) std::reverse(order_.begin(), order_.end());
   if (options.order == RestartOptions::Order::shuffled) {
      std::mt19937_64 random(options.seed);
      for (std::size_t i = order_.size(); i > 1; --i)
         std::swap(order_[i - 1], order_[random() % i]);
   }
   next_ = 0;
   start_ = Qor::now() + options.begin;
   over_ = options.over;
   completeAt_ = std::max(start_ + over_, Qor::now() + options.complete);
   underWay_ = true;
   clock_->timeMinIs(start_);
}

Qor::Seconds RouteReplay::due(std::size_t i) const {
   if (order_.size() < 2) return start_;
   return start_ + over_ * static_cast<double>(i) / static_cast<double>(order_.size() - 1);
}

void RouteReplay::handleClock() {
   for (; next_ < order_.size() && due(next_) <= Qor::now(); ++next_) {
      if (auto const node = left_.extract(order_[next_])) announce_(node.key(), node.mapped());
   }
   if (next_ < order_.size()) {
      clock_->timeMinIs(due(next_));
      return;
   }
   if (Qor::now() < completeAt_) {
      clock_->timeMinIs(completeAt_);
      return;
   }
   underWay_ = false;
   clock_->timeMinIs(Qor::never);
   complete_();
}

}  // namespace Agent
