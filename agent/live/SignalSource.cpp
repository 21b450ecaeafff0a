#include "agent/live/SignalSource.h"

#include <utility>

namespace Agent {

void SignalSource::ready(bool, bool) {
   if (signals_.takeHangup()) reload_();
   if (!interrupted()) return;
   if (auto const stop = std::exchange(stop_, nullptr)) stop();
}

}  // namespace Agent
