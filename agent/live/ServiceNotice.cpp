#include "agent/live/ServiceNotice.h"

#include <systemd/sd-daemon.h>

#include <algorithm>
#include <cstdint>

namespace Agent {

ServiceNotice::ServiceNotice() : timer_("watchdog", [this] { keepAlive(); }) {
   std::uint64_t microseconds = 0;
   if (sd_watchdog_enabled(0, &microseconds) <= 0) return;
   period_ = static_cast<Qor::Seconds>(microseconds) / 1e6 / 2;
   keepAlive();
}

void ServiceNotice::ready() {
   sd_notify(0, "READY=1");
}

void ServiceNotice::status(std::string const& line) {
   // A line break would begin another assignment.
   std::string text = "STATUS=" + line;
   std::replace(text.begin(), text.end(), '\n', ' ');
   sd_notify(0, text.c_str());
}

void ServiceNotice::reloading() {
   sd_notify(0, "RELOADING=1");
}

void ServiceNotice::stopping() {
   sd_notify(0, "STOPPING=1");
}

void ServiceNotice::keepAlive() {
   sd_notify(0, "WATCHDOG=1");
   timer_.in(period_);
}

}  // namespace Agent
