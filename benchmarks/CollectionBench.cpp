// Comparisons of the framework's maps with the key types of the tables. The twin of the hash map is
// an open-addressing index over a flat array. The twin of the ordered maps is the tree of the
// standard library, because a flat array has no order.
#include <algorithm>
#include <map>
#include <memory>
#include <numeric>
#include <random>
#include <vector>

#include "Comparison.h"
#include "Qor/HashMap.h"
#include "Qor/NumberMap.h"
#include "Qor/OrderedMap.h"
#include "RouteSides.h"
#include "Vel/VelAsyncMrouteKeys.h"
#include "Vel/VelSyncMrouteKeys.h"

namespace Bench {

namespace {

template <class K>
K makeKey(std::size_t n) {
   Bridging::VlanIdOrNone const vlan(U64{acceptingVlan});
   if constexpr (std::is_same_v<K, MrouteLib::OifSetPtr>) {
      return oifSet(n);
   } else if constexpr (std::is_same_v<K, Vel::Mroute::InUseRouteHandleKey>) {
      return K(keyOf(n), vlan, Vel::VrfId(vrfId));
   } else if constexpr (std::is_same_v<K, Vel::RouteKeyVlanId>) {
      return K(keyOf(n), vlan);
   } else if constexpr (std::is_same_v<K, Vel::Mroute::ZombieKey>) {
      return K(static_cast<U32>(n * 7919 % 1'000'003), changeTime * static_cast<double>(n));
   } else if constexpr (std::is_same_v<K, IpGenRouteKey>) {
      return keyOf(n);
   } else {
      return K(static_cast<U32>(n));
   }
}

// The twin of the hash map: an index over a flat array of keys and values.
template <class K>
class TwinHash {
 public:
   void insert(K const& key, U64 value) {
      U32 slot = free_;
      if (slot == TwinIndex::none) {
         slot = static_cast<U32>(records_.size());
         records_.push_back({key, value, 0, true});
      } else {
         free_ = records_[slot].nextFree;
         records_[slot] = {key, value, 0, true};
      }
      index_.insert(hash(key), slot);
   }
   bool find(K const& key) const { return locate(key) != TwinIndex::none; }
   void erase(K const& key) {
      U32 const slot = locate(key);
      index_.erase(hash(key), slot);
      records_[slot].live = false;
      records_[slot].nextFree = std::exchange(free_, slot);
   }
   U64 sum() const {
      U64 total = 0;
      for (Record const& record : records_)
         total += record.live ? record.value : 0;
      return total;
   }

 private:
   struct Record {
      K key;
      U64 value;
      U32 nextFree;
      bool live;
   };
   static U32 hash(K const& key) { return Qor::hashFold(Qor::hashOf(key)); }
   U32 locate(K const& key) const {
      return index_.find(hash(key), [&](U32 n) { return records_[n].key == key; });
   }

   TwinIndex index_;
   std::vector<Record> records_;
   U32 free_ = TwinIndex::none;
};

template <class K>
struct TwinTree {
   std::map<K, U64> map;
   void insert(K const& key, U64 value) { map.emplace(key, value); }
   bool find(K const& key) const { return map.find(key) != map.end(); }
   void erase(K const& key) { map.erase(key); }
   U64 sum() const {
      return std::accumulate(map.begin(), map.end(), U64{0},
                             [](U64 total, auto const& entry) { return total + entry.second; });
   }
};

template <class Map>
struct Ours {
   Map map;
   void insert(typename Map::Key const& key, U64 value) { map.insert(key, value); }
   bool find(typename Map::Key const& key) const { return map.find(key) != nullptr; }
   void erase(typename Map::Key const& key) { map.take(key); }
   U64 sum() const {
      U64 total = 0;
      for (auto const& [key, value] : map)
         total += value;
      return total;
   }
};

template <class K>
struct Keys {
   explicit Keys(std::size_t count) {
      for (std::size_t n = 0; n < count; ++n)
         ordered.push_back(makeKey<K>(n));
      shuffled = ordered;
      std::shuffle(shuffled.begin(), shuffled.end(), std::mt19937(5));
   }
   std::vector<K> ordered, shuffled;
};

template <class Map, class K>
std::vector<double> oneRound(Keys<K> const& keys) {
   Map map;
   auto const each = [](auto const& some, auto const& operation) {
      return nanoseconds([&] {
                for (K const& key : some)
                   operation(key);
             }) /
             static_cast<double>(some.size());
   };
   std::vector<double> times;
   times.push_back(each(keys.ordered, [&](K const& key) { map.insert(key, 1); }));
   times.push_back(
         each(keys.shuffled, [&](K const& key) { benchmark::DoNotOptimize(map.find(key)); }));
   times.push_back(nanoseconds([&] { benchmark::DoNotOptimize(map.sum()); }) /
                   static_cast<double>(keys.ordered.size()));
   times.push_back(each(keys.shuffled, [&](K const& key) { map.erase(key); }));
   return times;
}

template <class K, class Map, class TwinMap>
void comparisonsOf(std::string const& name) {
   for (std::size_t const count : {1'000, 100'000}) {
      auto const joint = std::make_shared<JointRounds>(effort().rounds(count), [count] {
         auto const keys = std::make_shared<Keys<K>>(count);
         return std::pair<JointRounds::OneRound, JointRounds::OneRound>(
               [keys] { return oneRound<Ours<Map>>(*keys); },
               [keys] { return oneRound<TwinMap>(*keys); });
      });
      constexpr char const* operations[] = {"insert", "find", "iterate", "erase"};
      for (std::size_t n = 0; n < std::size(operations); ++n) {
         comparison(
               "collections/" + name + ", " + std::to_string(count / 1000) + "k/" + operations[n],
               Target(), [joint, n] { return joint->of(n); });
      }
   }
}

template <class K>
void hashed(std::string const& name) {
   comparisonsOf<K, Qor::HashMap<K, U64>, TwinHash<K>>("hash, " + name);
}
template <class K>
void ordered(std::string const& name) {
   comparisonsOf<K, Qor::OrderedMap<K, U64>, TwinTree<K>>("ordered, " + name);
}

}  // namespace

void collectionComparisons() {
   hashed<U32>("group number");
   hashed<MrouteLib::OifSetPtr>("oif set");
   hashed<Vel::Mroute::InUseRouteHandleKey>("route in use");
   hashed<Vel::RouteKeyVlanId>("route and vlan");
   comparisonsOf<MrouteLib::RouteHandle, Qor::NumberMap<MrouteLib::RouteHandle, U64>,
                 TwinTree<MrouteLib::RouteHandle>>("by number, route handle");
   ordered<Vel::Mroute::ZombieKey>("zombie");
   ordered<IpGenRouteKey>("route key");
}

}  // namespace Bench
