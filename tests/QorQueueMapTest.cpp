// The maps behind the programmers' tables, compared with std::map: the queue of zombies, and the
// two maps that share their pairs.
#include <gtest/gtest.h>

#include <iterator>
#include <map>
#include <memory>
#include <random>
#include <utility>

#include "Qor/PairTable.h"
#include "Qor/QueueMap.h"

namespace {

using Qor::U32;

struct Moment {
   U32 time;
   U32 hash() const { return time % 7; }
   auto operator<=>(Moment const&) const = default;
};

// Stores the slot number of its entry.
struct Waiting {
   explicit Waiting(U32 n) : number(n) {}
   void queuePlaceIs(U32 p) { place = p; }
   U32 number, place = 0;
};

TEST(QorQueueMap, AgreesWithAPlainMapForKeysInAndOutOfOrder) {
   for (U32 const disorder : {0u, 3u, 400u}) {
      std::mt19937 random(disorder + 1);
      auto const pick = [&](U32 n) { return static_cast<U32>(random() % n); };
      Qor::QueueMap<Moment, std::shared_ptr<Waiting>> map;
      std::map<U32, std::shared_ptr<Waiting>> expected;
      auto const check = [&] {
         ASSERT_EQ(map.size(), expected.size());
         auto at = expected.begin();
         for (auto const& [key, value] : map) {
            ASSERT_EQ(key.time, at->first);
            ASSERT_EQ(value, (at++)->second);
         }
      };
      for (U32 step = 0; step < 6'000; ++step) {
         U32 const time = step + pick(disorder + 1), what = pick(100);
         bool const grows = step / 1'500 % 2 == 0;
         if (what < (grows ? 60u : 20u)) {
            auto const value = std::make_shared<Waiting>(step);
            ASSERT_EQ(map.insert({time}, value).second, expected.emplace(time, value).second);
         } else if (!expected.empty()) {
            // The first key, a key with its slot number, a present key, or any key.
            U32 const way = pick(4);
            auto at = expected.begin();
            if (way != 0) std::advance(at, pick(static_cast<U32>(expected.size())));
            U32 const key = way == 3 ? step - pick(std::min(step, 500u) + 1) : at->first;
            if (way == 1) map.expect(at->second->place);
            auto const known = expected.find(key);
            auto const taken = map.take({key});
            ASSERT_EQ(taken.value_or(nullptr), known == expected.end() ? nullptr : known->second);
            if (taken) expected.erase(known);
            auto const above = expected.upper_bound(key), bound = expected.lower_bound(key);
            auto const behind = map.upperBound({key}), from = map.lowerBound({key});
            ASSERT_EQ(behind == std::as_const(map).end(), above == expected.end());
            ASSERT_EQ(from == std::as_const(map).end(), bound == expected.end());
            ASSERT_TRUE(above == expected.end() || behind->first.time == above->first);
            ASSERT_TRUE(bound == expected.end() || from->first.time == bound->first);
         }
         if (step % 500 == 0) check();
      }
      check();
      auto const moved = std::move(map);
      EXPECT_TRUE(map.empty());
      EXPECT_EQ(moved.size(), expected.size());
   }
}

struct Handle {
   U32 number;
   U32 value() const { return number; }
   bool operator==(Handle const&) const = default;
};

// The maps change independently: sometimes they hold the same pairs, sometimes different ones.
TEST(QorPairTable, BothMapsAgreeWithPlainMaps) {
   std::mt19937 random(5);
   auto const pick = [&](U32 n) { return static_cast<U32>(random() % n); };
   using Table = Qor::PairTable<Moment, Handle>;
   Table table;
   Table::Forward forward(&table);
   Table::Backward backward(&table);
   std::map<U32, U32> there, back;
   auto const assign = [&](U32 key, U32 handle) {
      Handle value{handle};
      auto const [known, added] = there.emplace(key, handle);
      ASSERT_EQ(forward.assign({key}, value), added || known->second != handle);
      ASSERT_EQ(value.number, std::exchange(known->second, handle));
   };
   auto const assignBack = [&](U32 handle, U32 key) {
      Moment value{key};
      auto const [known, added] = back.emplace(handle, key);
      ASSERT_EQ(backward.assign({handle}, value), added || known->second != key);
      ASSERT_EQ(value.time, std::exchange(known->second, key));
   };
   auto const take = [&](Moment key) {
      auto const taken = forward.take(key);
      auto const known = there.extract(key.time);
      ASSERT_EQ(taken.has_value(), !known.empty());
      ASSERT_TRUE(!taken || taken->number == known.mapped());
   };
   auto const takeBack = [&](Handle handle) {
      auto const taken = backward.take(handle);
      auto const known = back.extract(handle.number);
      ASSERT_EQ(taken.has_value(), !known.empty());
      ASSERT_TRUE(!taken || taken->time == known.mapped());
   };
   for (U32 step = 0; step < 20'000; ++step) {
      U32 const key = pick(60), handle = pick(60) * 50;
      switch (pick(8)) {
         case 0:
            assign(key, handle);
            break;
         case 1:
            assignBack(handle, key);
            break;
         case 2:
            assign(key, handle);
            assignBack(handle, key);
            break;
         case 3:
            assignBack(handle, key);
            assign(key, handle);
            break;
         case 4:
         case 5:
            if (auto const found = backward.find({handle}); found && pick(2)) {
               Moment const named = found->second;
               take(named);
            }
            takeBack({handle});
            break;
         default:
            take({key});
      }
      if (step % 5'000 == 4'999) {
         forward.takeAll();
         there.clear();
      } else if (step % 3'000 == 2'999) {
         backward.takeAll();
         back.clear();
      }
      auto const found = forward.find({key});
      ASSERT_EQ(found ? found->second.number : ~0u, there.contains(key) ? there[key] : ~0u);
      auto const foundBack = backward.find({handle});
      ASSERT_EQ(foundBack ? foundBack->second.time : ~0u,
                back.contains(handle) ? back[handle] : ~0u);
      if (step % 100 != 0) continue;
      std::map<U32, U32> seen;
      for (auto const& [k, h] : forward)
         seen[k.time] = h.number;
      ASSERT_EQ(seen, there);
      ASSERT_EQ(forward.size(), there.size());
      auto at = back.begin();
      for (auto const& [h, k] : backward) {
         ASSERT_EQ(h.number, at->first);
         ASSERT_EQ(k.time, (at++)->second);
      }
      ASSERT_TRUE(at == back.end());
   }
}

}  // namespace
