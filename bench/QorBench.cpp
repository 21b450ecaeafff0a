// What the framework costs: telling notifiees, and its hash map beside the standard library's in
// the same run, so that the figures to look at are ratios.
#include <benchmark/benchmark.h>

#include <algorithm>
#include <array>
#include <memory>
#include <random>
#include <unordered_map>
#include <vector>

#include "Qor/Entity.h"
#include "Qor/HashMap.h"

namespace {

using Qor::U32;
using Qor::U64;

class Counter : public Qor::Entity<Counter> {
 public:
   class Notifiee : public Qor::NotifieeOf<Counter> {
    public:
      virtual void onValue() {}
   };
   U64 value() const { return value_; }
   void valueIs(U64 v) { attrIs<&Notifiee::onValue>(value_, v); }

 private:
   U64 value_ = 0;
};

class Reader final : public Counter::Notifiee {
 public:
   void onValue() override { benchmark::DoNotOptimize(this); }
};

void notify(benchmark::State& state) {
   auto const counter = Qor::make<Counter>();
   std::vector<std::unique_ptr<Reader>> readers;
   for (auto n = state.range(0); n > 0; --n) {
      readers.push_back(std::make_unique<Reader>());
      readers.back()->notifierIs(counter);
   }
   U64 value = 0;
   for (auto _ : state) {
      counter->valueIs(++value);
      benchmark::ClobberMemory();
   }
}
BENCHMARK(notify)->Arg(0)->Arg(1)->Arg(2)->Arg(8);

struct LongKey {
   std::array<U64, 5> words;  // 40 bytes, as a route key
   bool operator==(LongKey const&) const = default;
   U32 hash() const { return Qor::hashFold(Qor::hashBytes(words.data(), sizeof words)); }
};

template <class K>
struct Hash {
   std::size_t operator()(K const& key) const { return Qor::hashOf(key); }
};

// The two maps behind one face.
template <class K>
struct Ours {
   Qor::HashMap<K, U64> map;
   void insert(K const& k, U64 v) { map.insert(k, v); }
   bool find(K const& k) const { return map.find(k) != nullptr; }
   bool take(K const& k) { return map.take(k).has_value(); }
};
template <class K>
struct Standard {
   std::unordered_map<K, U64, Hash<K>> map;
   void insert(K const& k, U64 v) { map.try_emplace(k, v); }
   bool find(K const& k) const { return map.find(k) != map.end(); }
   bool take(K const& k) { return map.erase(k) != 0; }
};

template <class K>
std::vector<K> keysFor(benchmark::State const& state) {
   std::mt19937_64 random(11);
   std::vector<K> keys(static_cast<std::size_t>(state.range(0)));
   for (K& key : keys) {
      if constexpr (std::is_same_v<K, U64>) {
         key = random();
      } else {
         key = {{random() % 16, 0, random() % 256, 0, random()}};
      }
   }
   return keys;
}

// The map with all keys, which are then put in an order that is not that of insertion.
template <class Map, class K>
Map filled(std::vector<K>& keys) {
   Map map;
   for (K const& key : keys)
      map.insert(key, 1);
   std::shuffle(keys.begin(), keys.end(), std::mt19937(5));
   return map;
}

template <class Map, class K>
void insert(benchmark::State& state) {
   auto const keys = keysFor<K>(state);
   for (auto _ : state) {
      Map map;
      for (K const& key : keys)
         map.insert(key, 1);
      benchmark::DoNotOptimize(&map);
   }
   state.SetItemsProcessed(state.iterations() * state.range(0));
}

template <class Map, class K>
void find(benchmark::State& state) {
   auto keys = keysFor<K>(state);
   Map const map = filled<Map>(keys);
   for (auto _ : state) {
      for (K const& key : keys)
         benchmark::DoNotOptimize(map.find(key));
   }
   state.SetItemsProcessed(state.iterations() * state.range(0));
}

// Each entry is taken and put back at once.
template <class Map, class K>
void takeAndReturn(benchmark::State& state) {
   auto keys = keysFor<K>(state);
   Map map = filled<Map>(keys);
   for (auto _ : state) {
      for (K const& key : keys) {
         benchmark::DoNotOptimize(map.take(key));
         map.insert(key, 1);
      }
   }
   state.SetItemsProcessed(state.iterations() * state.range(0));
}

template <class Map, class K>
void iterate(benchmark::State& state) {
   auto keys = keysFor<K>(state);
   Map const map = filled<Map>(keys);
   for (auto _ : state) {
      U64 sum = 0;
      for (auto const& entry : map.map)
         sum += entry.second;
      benchmark::DoNotOptimize(sum);
   }
   state.SetItemsProcessed(state.iterations() * state.range(0));
}

#define BOTH_MAPS(what, key)                                  \
   BENCHMARK(what<Ours<key>, key>)->Arg(1'000)->Arg(100'000); \
   BENCHMARK(what<Standard<key>, key>)->Arg(1'000)->Arg(100'000)

BOTH_MAPS(insert, U64);
BOTH_MAPS(find, U64);
BOTH_MAPS(takeAndReturn, U64);
BOTH_MAPS(iterate, U64);
BOTH_MAPS(insert, LongKey);
BOTH_MAPS(find, LongKey);
BOTH_MAPS(takeAndReturn, LongKey);

}  // namespace
