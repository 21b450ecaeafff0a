// The framework's maps compared with std::map, with keys that collide and values that own memory.
#include <gtest/gtest.h>

#include <functional>
#include <map>
#include <memory>
#include <random>
#include <set>

#include "Qor/HashMap.h"
#include "Qor/NumberMap.h"
#include "Qor/ObjectMap.h"
#include "Qor/OrderedMap.h"
#include "Qor/Ptr.h"

namespace {

using Qor::U32;
using Qor::U64;

struct CollidingKey {
   U32 number;
   U32 hash() const { return number % 3; }
   auto operator<=>(CollidingKey const&) const = default;
};

// A key with a number, as a handle is.
struct Number {
   U32 number;
   U32 value() const { return number; }
   auto operator<=>(Number const&) const = default;
};

U32 numberOf(U64 key) {
   return static_cast<U32>(key);
}
template <class K>
U32 numberOf(K const& key) {
   return key.number;
}

// Owns memory and has no default value, so that the sanitizer reports a leaked or a dead value.
struct Owning {
   explicit Owning(U32 n) : number(std::make_unique<U32>(n)) {}
   bool operator==(Owning const& other) const { return *number == *other.number; }
   std::unique_ptr<U32> number;
};

template <class Map>
class QorMap : public testing::Test {};
using Maps = testing::Types<Qor::HashMap<U64, Owning>, Qor::HashMap<CollidingKey, Owning>,
                            Qor::OrderedMap<U64, Owning>, Qor::NumberMap<Number, Owning>>;
TYPED_TEST_SUITE(QorMap, Maps);

TYPED_TEST(QorMap, AgreesWithAPlainMapThroughRandomOperations) {
   using Key = typename TypeParam::Key;
   bool const collides = std::is_same_v<Key, CollidingKey>;
   std::mt19937 random(7);
   auto const pick = [&](U32 n) { return static_cast<U32>(random() % n); };
   TypeParam map;
   std::map<U32, std::pair<U32, typename TypeParam::Entry*>> expected;
   for (int step = 0; step < (collides ? 6'000 : 60'000); ++step) {
      // The map grows to the whole range of keys and shrinks to nothing, in turns.
      U32 const range = collides ? 150 : 5'000, number = pick(range);
      bool const grows = step / (collides ? 600 : 10'000) % 2 == 0;
      auto const known = expected.find(number);
      U32 const what = pick(100);
      if (what < (grows ? 20u : 10u)) {
         bool const present = known != expected.end();
         U32 const former = present ? known->second.first : 0;
         U32 const next = pick(4) == 0 ? former : static_cast<U32>(step) + 1;
         Owning value(next);
         ASSERT_EQ(map.assign(Key{number}, value), !present || next != former);
         ASSERT_TRUE(!present || *value.number == former);
         auto* const entry = map.find(Key{number});
         ASSERT_TRUE(!present || entry == known->second.second);
         expected[number] = {next, entry};
      } else if (what < (grows ? 60u : 20u)) {
         auto const [entry, made] = map.insert(Key{number}, Owning(static_cast<U32>(step)));
         ASSERT_EQ(made, known == expected.end());
         if (made) expected[number] = {step, entry};
      } else if (what < 80) {
         auto const taken = map.take(Key{number});
         ASSERT_EQ(taken.has_value(), known != expected.end());
         if (taken) {
            ASSERT_EQ(*taken->number, known->second.first);
            expected.erase(known);
         }
      } else if (what < 99) {
         auto* const entry = map.find(Key{number});
         ASSERT_EQ(entry, known == expected.end() ? nullptr : known->second.second);
         ASSERT_TRUE(!entry || *entry->second.number == known->second.first);
      } else if (pick(10) == 0) {
         TypeParam moved(std::move(map));
         ASSERT_TRUE(map.empty() && map.begin() == map.end() && !map.find(Key{number}));
         map = std::move(moved);
      } else if (pick(50) == 0) {
         map.clear();
         expected.clear();
      }
      ASSERT_EQ(map.size(), expected.size());
      if (step % 500 != 0) continue;
      std::set<U32> seen;
      for (auto const& [key, value] : map) {
         auto const it = expected.find(numberOf(key));
         ASSERT_TRUE(it != expected.end() && it->second.first == *value.number);
         ASSERT_TRUE(seen.insert(it->first).second);
      }
      ASSERT_EQ(seen.size(), expected.size());
   }
}

struct Keyed : Qor::RefCounted {
   explicit Keyed(CollidingKey k) : key(k) {}
   CollidingKey const key;
};

// A walk in slices, between which objects come and go, reaches each object that stays.
TEST(QorMaps, ObjectsAreFoundByTheirKeysAndAWalkResumesAtAPlace) {
   Qor::ObjectMap<Keyed, &Keyed::key> map;
   std::map<CollidingKey, Qor::Ptr<Keyed>> expected;
   std::mt19937 random(7);
   auto const change = [&] {
      CollidingKey const key{static_cast<U32>(random() % 100)};
      auto const known = expected.find(key);
      if (random() % 2 == 0) {
         auto const [object, made] = map.findOrMake(key, [&] { return Qor::make<Keyed>(key); });
         ASSERT_EQ(made, known == expected.end());
         ASSERT_TRUE(made || object == known->second);
         expected[key] = object;
      } else if (random() % 2 == 0) {
         auto const taken = map.take(key);
         ASSERT_EQ(taken.has_value(), known != expected.end());
         if (taken) expected.erase(known);
      } else if (known != expected.end()) {
         auto const stranger = Qor::make<Keyed>(key);
         ASSERT_FALSE(map.remove(*stranger));
         ASSERT_TRUE(map.remove(*known->second) && !map.remove(*known->second));
         expected.erase(known);
      }
      ASSERT_EQ(map.size(), expected.size());
      ASSERT_EQ(map.find(key).has_value(), expected.contains(key));
   };
   for (int walk = 0; walk < 200; ++walk) {
      auto stay = expected;
      for (auto at = map.begin(); at != map.end(); at = map.from(at.place() + 1)) {
         ASSERT_EQ(map.position(at->first), at);
         stay.erase(at->first);
         change();
         std::erase_if(stay, [&](auto const& s) {
            auto const now = expected.find(s.first);
            return now == expected.end() || now->second != s.second;
         });
      }
      ASSERT_TRUE(stay.empty());
      change();
   }
   ASSERT_EQ(map.takeAll().size(), expected.size());
   ASSERT_TRUE(map.empty() && map.begin() == map.end());
}

struct Member : Qor::RefCounted {
   explicit Member(std::function<void()> handler) : onZero(std::move(handler)) {}
   void zeroReferencesIs(bool) override { onZero(); }
   std::function<void()> onZero;
};

// The destructors of a key and a value run handlers, which look at the map without the entry.
template <class Map>
void showEmptyMapToTheLeaving() {
   Map map;
   int left = 0;
   auto const look = [&] { left += map.empty() && map.begin() == map.end(); };
   auto const fill = [&] { map.insert(Qor::make<Member>(look), Qor::make<Member>(look)); };
   fill();
   map.take(map.begin()->first);
   fill();
   map.clear();
   EXPECT_EQ(left, 4);
}

TEST(QorMaps, HandlersOfAnErasedEntryFindTheMapWithoutIt) {
   showEmptyMapToTheLeaving<Qor::HashMap<Qor::Ptr<Member>, Qor::Ptr<Member>>>();
   showEmptyMapToTheLeaving<Qor::OrderedMap<Qor::Ptr<Member>, Qor::Ptr<Member>>>();
}

// With adjacent keys, and with keys spread over the whole range of numbers.
template <class Map>
void isOrderedAndResumesBehindAKey() {
   for (U32 const step : {2u, 400'000'000u}) {
      Map map;
      auto const key = [&](U32 n) { return typename Map::Key{n * step}; };
      for (U32 n = 0; n < 10; ++n)
         map.insert(key(n * 7 % 10), n);
      U32 next = 0;
      for (auto const& entry : map)
         EXPECT_EQ(entry.first, key(next++));
      map.take(key(3));
      EXPECT_EQ(map.lowerBound(key(2))->first, key(2));
      EXPECT_EQ(map.upperBound(key(2))->first, key(4));
      EXPECT_EQ(map.lowerBound(key(3))->first, key(4));
      EXPECT_TRUE(map.upperBound(key(9)) == std::as_const(map).end());
      map.insert(typename Map::Key{0xFFFFFFFF}, 0);
      EXPECT_EQ(numberOf(map.upperBound(key(9))->first), 0xFFFFFFFF);
      EXPECT_TRUE(++map.upperBound(key(9)) == std::as_const(map).end());
   }
}

TEST(QorMaps, OrderedMapsIterateInKeyOrderAndResumeBehindAKey) {
   isOrderedAndResumesBehindAKey<Qor::OrderedMap<U64, U32>>();
   isOrderedAndResumesBehindAKey<Qor::NumberMap<Number, U32>>();
}

}  // namespace
