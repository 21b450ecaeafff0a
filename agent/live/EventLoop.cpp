#include "agent/live/EventLoop.h"

#include <poll.h>

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <system_error>

#include "Qor/Clock.h"

namespace Agent {

namespace {

constexpr Qor::Seconds longestWait = 3600;

timespec durationOf(Qor::Seconds seconds) {
   seconds = std::clamp(seconds, 0.0, longestWait);
   double const whole = std::floor(seconds);
   timespec duration{};
   duration.tv_sec = static_cast<time_t>(whole);
   duration.tv_nsec = static_cast<long>((seconds - whole) * 1e9);
   return duration;
}

}  // namespace

void EventLoop::remove(EventSource& source) {
   std::replace(sources_.begin(), sources_.end(), &source, static_cast<EventSource*>(nullptr));
}

// Sources that are added during the calls wait for the next turn.
template <class Call>
void EventLoop::forEach(Call const& call) {
   for (std::size_t i = 0, end = sources_.size(); i < end; ++i) {
      if (sources_[i]) call(*sources_[i], i);
   }
}

void EventLoop::run() {
   stopped_ = false;
   while (!stopped_)
      turn(longestWait);
}

void EventLoop::turn(Qor::Seconds longest) {
   std::erase(sources_, nullptr);
   std::vector<pollfd> polled;
   forEach([&](EventSource& source, std::size_t) {
      short const events = static_cast<short>(source.wantsWrite() ? POLLIN | POLLOUT : POLLIN);
      polled.push_back({source.fd(), events, 0});  // a negative descriptor is ignored
   });
   Qor::Seconds const next = Qor::activityManager()->nextDeadline() - Qor::now();
   timespec const wait = durationOf(std::min(next, longest));
   int const ready = ::ppoll(polled.data(), polled.size(), &wait, nullptr);
   if (ready < 0 && errno != EINTR) throw std::system_error(errno, std::generic_category(), "poll");
   ++turns_;
   if (ready > 0) {
      forEach([&](EventSource& source, std::size_t i) {
         short const events = i < polled.size() ? polled[i].revents : short{0};
         if (events != 0) source.ready((events & ~POLLOUT) != 0, (events & POLLOUT) != 0);
      });
   }
   Qor::activityManager()->runDue();
   forEach([](EventSource& source, std::size_t) { source.turnEnds(); });
}

}  // namespace Agent
