// Comparisons of tracing: a trace statement of a disabled level, and an event of the ring.
#include <array>

#include "Comparison.h"
#include "Lnet/IntfId.h"
#include "Qor/Clock.h"
#include "Vel/VelTrace.h"

namespace Bench {

namespace {

constexpr char velTraceSource[] = "Bench";
constexpr unsigned times = 20'000;

// The twin of the ring: each event has a text, a time and two numbers.
struct TwinEvent {
   char const* text;
   double time;
   U32 first, second;
};
struct TwinRing {
   std::array<TwinEvent, 4096> events;
   U64 written = 0;
};

Rounds traceOff() {
   return takeTurns(effort().rounds(0),
                    repeated(times,
                             [function = __func__, n = U32{0}]() mutable {
                                benchmark::DoNotOptimize(++n);
                                VEL_TRACE_IN(function, 8, "number " << n);
                             }),
                    repeated(times, [n = U32{0}]() mutable { benchmark::DoNotOptimize(++n); }));
}

Rounds blip() {
   static TwinRing ring;
   Lnet::IntfId const intf("et1");
   return takeTurns(effort().rounds(0),
                    repeated(times,
                             [&, n = U32{0}]() mutable {
                                benchmark::DoNotOptimize(++n);
                                VEL_BLIP("intf %s, number %s", intf, n);
                             }),
                    repeated(times, [&, n = U32{0}]() mutable {
                       benchmark::DoNotOptimize(++n);
                       ring.events[ring.written++ % ring.events.size()] = {
                             "intf %s, number %s", Qor::now(), intf.id(), n};
                       benchmark::ClobberMemory();
                    }));
}

}  // namespace

void traceComparisons() {
   comparison("trace/statement that is off", Target::added(1), traceOff);
   comparison("trace/event of the ring, real time", Target(), blip);
   comparison("trace/event of the ring, virtual time", Target(), [] {
      Qor::activityManagerIs(
            Qor::make<Qor::ActivityManager>(Qor::ActivityManager::TimeBase::virtualTime));
      Rounds const rounds = blip();
      Qor::activityManagerIs(nullptr);
      return rounds;
   });
}

}  // namespace Bench
