// Comparisons of the memory of a route and of a group: the growth of a process's resident size
// while its tables are filled. Each kind runs in a process of its own, so that no other tables have
// shaped the heap.
#include <unistd.h>

#include <array>
#include <cstdio>
#include <fstream>
#include <iostream>
#include <memory>
#include <stdexcept>

#include "Comparison.h"
#include "ReactorSides.h"

namespace Bench {

namespace {

double residentBytes() {
   std::ifstream statm("/proc/self/statm");
   long total = 0, resident = 0;
   statm >> total >> resident;
   return static_cast<double>(resident) * static_cast<double>(sysconf(_SC_PAGESIZE));
}

template <class Fill>
double bytesPerEntry(std::size_t entries, Fill const& fill) {
   double const before = residentBytes();
   fill();
   return (residentBytes() - before) / static_cast<double>(entries);
}

constexpr std::size_t routeCount = 1'000'000;
constexpr std::size_t setCount = 100'000;

// The bytes of a route. The routes use 1,000 sets whose groups exist already.
template <class Side>
double routeBytes() {
   Plan const plan(routeCount, 1000);
   Side side(plan);
   for (std::size_t n = 0; n < plan.sets.size(); ++n)
      side.hold(n);
   return bytesPerEntry(routeCount, [&] {
      for (std::size_t n = 0; n < routeCount; ++n)
         side.add(n);
   });
}

template <class Side>
double groupBytes() {
   Plan const plan(0, setCount);
   Side side(plan);
   return bytesPerEntry(setCount, [&] {
      for (std::size_t n = 0; n < setCount; ++n)
         side.hold(n);
   });
}

double statusBytes() {
   Plan const plan(routeCount, 1);
   ReactorInputs inputs;
   return bytesPerEntry(routeCount, [&] { inputs.publish(plan); });
}

struct TwinStatus {
   IpGenRouteKey key;
   U32 intf;
   double lastPollTime;
};
double twinStatusBytes() {
   Plan const plan(routeCount, 1);
   std::vector<TwinStatus> statuses;
   return bytesPerEntry(routeCount, [&] {
      for (IpGenRouteKey const& key : plan.keys)
         statuses.push_back({key, 1, 0});
   });
}

struct Kind {
   char const* name;
   double (*bytes)();
};
constexpr std::array<Kind, 8> kinds = {{{"async-route", routeBytes<AsyncSide>},
                                        {"sync-route", routeBytes<SyncSide>},
                                        {"twin-route", routeBytes<TwinSide>},
                                        {"async-group", groupBytes<AsyncSide>},
                                        {"sync-group", groupBytes<SyncSide>},
                                        {"twin-group", groupBytes<TwinSide>},
                                        {"status", statusBytes},
                                        {"twin-status", twinStatusBytes}}};

// Runs this program with --resident and returns the printed number of bytes.
double measuredApart(std::string const& kind) {
   std::array<char, 4096> self{};
   if (readlink("/proc/self/exe", self.data(), self.size() - 1) < 0) return 0;
   std::string const command = "'" + std::string(self.data()) + "' --resident " + kind;
   std::unique_ptr<FILE, int (*)(FILE*)> const pipe(popen(command.c_str(), "r"), pclose);
   double bytes = 0;
   if (!pipe || std::fscanf(pipe.get(), "%lf", &bytes) != 1) {
      throw std::runtime_error("no number printed by " + command);
   }
   return bytes;
}

Rounds resident(std::string const& kind, std::string const& twin) {
   return {{measuredApart(kind)}, {measuredApart(twin)}};
}

}  // namespace

bool printResident(std::string const& kind) {
   for (Kind const& k : kinds) {
      if (kind != k.name) continue;
      std::cout << k.bytes() << '\n';
      return true;
   }
   return false;
}

void memoryComparisons() {
   for (char const* const path : {"async", "sync"}) {
      std::string const name = path;
      comparison(
            "memory/" + name + "/a route on a shared set", Target::library(320),
            [name] { return resident(name + "-route", "twin-route"); }, "B");
      comparison(
            "memory/" + name + "/a group", Target(),
            [name] { return resident(name + "-group", "twin-group"); }, "B");
   }
   comparison(
         "memory/published status/a route", Target(),
         [] { return resident("status", "twin-status"); }, "B");
}

}  // namespace Bench
