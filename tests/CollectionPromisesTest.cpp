// The promises of the programmers' collections on both paths, through the public operations alone.
// Random changes are compared with maps of the standard library. A listener compares the state
// inside each notification, so that a change that is notified early, late, twice or not at all
// fails as well.
#include <array>
#include <deque>
#include <functional>
#include <map>
#include <optional>
#include <random>
#include <utility>
#include <vector>

#include "TestSupport.h"
#include "Vel/VelAsyncMrouteSwitch.h"
#include "Vel/VelSyncMrouteSwitch.h"

namespace {

using namespace testSupport;
using Bridging::VlanIdOrNone;
using MrouteLib::OifSetPtr;
using MrouteLib::RouteHandle;
using Qor::U16;
using Qor::U32;
using Routing::Multicast::Fib::IpGenRouteKey;
using Wisp::Multicast::Fib::RpaIndex;

VlanIdOrNone const vlan(5u);
L3::VrfName const vrf("default");

OifSetPtr oifSet() {
   MrouteLib::PortVlanSet set(Routing::Multicast::Fib::RouteKeyType::routed);
   set.newPortVlan(pv("et1"), true);
   return Qor::make<MrouteLib::OifSet>(nullptr, set);
}

// The n of key(n).
U32 numberOf(IpGenRouteKey const& routeKey) {
   for (U32 n = 0; n < 200; ++n) {
      if (routeKey == key(n)) return n;
   }
   return ~0u;
}

// The records of a platform of either path, and the handle that it gives out next.
struct Chip {
   RouteHandle next;
   std::function<void()> onDelete = [] {};
   std::vector<U32> freed;
};

// Each path names its two collections of routes alike: `forward` is from keys to handles, and
// `backward` from handles to keys or routes. A key is stated by its number.
struct Async {
   using Switch = Vel::Mroute::AsyncMrouteSwitch;
   using Record = Vel::Mroute::AsyncMtableOifSet;
   using ZombieKey = Vel::Mroute::ZombieKey;
   using Key = Vel::Mroute::InUseRouteHandleKey;
   // Whether an allocation changes `forward` before `backward`, and whether backwardIs() replaces
   // the key of a handle in use.
   static constexpr bool forwardFirst = true;
   static constexpr bool replaces = true;

   struct Hooks final : VelHelper::AsyncMrouteHelper {
      explicit Hooks(Chip& c) : AsyncMrouteHelper("hooks", nullptr, nullptr), chip(c) {}
      RouteHandle doAllocateRoute(IpGenRouteKey const&, VlanIdOrNone, bool, RpaIndex,
                                  U32) override {
         return chip.next;
      }
      void doDeleteRoute(RouteHandle) override { chip.onDelete(); }
      void doDeleteOifSet(U32 id) override { chip.freed.push_back(id); }
      Chip& chip;
   };
   struct Ear final : Switch::Notifiee {
      void onInUseRouteHandle(Key const& k) override { route(true, numberOf(k.routeKey())); }
      void onInUseRouteHandleImmediate() override { route(true, std::nullopt); }
      void onInUseRouteHandleKey(RouteHandle const& h) override { route(false, h.value()); }
      void onInUseRouteHandleKeyImmediate() override { route(false, std::nullopt); }
      void onZombieOifSet(ZombieKey const& k) override { zombie(k); }
      void onZombieOifSetImmediate() override { zombie(std::nullopt); }
      std::function<void(bool forward, std::optional<U32>)> route = [](bool, auto) {};
      std::function<void(std::optional<ZombieKey>)> zombie = [](auto) {};
   };
   static Qor::Ptr<Switch> make(Chip& chip) {
      auto const vrfs = Qor::make<Routing::Hardware::RouteStatus>();
      vrfs->newVrfStatus(vrf, Vel::VrfId(3));
      return Vel::Mroute::asyncMrouteSwitchFactory("switch", vrfs, Qor::make<Hooks>(chip));
   }
   static Qor::Ptr<Record> record(U32 id, Switch* sw) {
      return Vel::Mroute::asyncMtableOifSetFactory(oifSet(), false, id, sw);
   }

   static Key keyOf(U32 n) { return {key(n), vlan, Vel::VrfId(3)}; }
   static U32 keyIn(Key const& shown) { return numberOf(shown.routeKey()); }
   static auto const& forward(Switch& sw) { return sw.inUseRouteHandle(); }
   static auto const& backward(Switch& sw) { return sw.inUseRouteHandleKey(); }
   static void forwardIs(Switch& sw, U32 n, RouteHandle h) { sw.inUseRouteHandleIs(keyOf(n), h); }
   static void backwardIs(Switch& sw, RouteHandle h, U32 n) {
      sw.inUseRouteHandleKeyIs(h, keyOf(n));
   }
   static auto forwardDel(Switch& sw, auto at) { return sw.inUseRouteHandleDel(at); }
   static auto backwardDel(Switch& sw, auto at) { return sw.inUseRouteHandleKeyDel(at); }
   static void forwardDelAll(Switch& sw) { sw.inUseRouteHandleDelAll(); }
   static void backwardDelAll(Switch& sw) { sw.inUseRouteHandleKeyDelAll(); }
   static void allocate(Switch& sw, U32 n) {
      sw.doAllocateRoute(key(n), vlan, false, RpaIndex(), vrf);
   }
};

struct Sync {
   using Switch = Vel::MrouteSwitch;
   using Record = Vel::MtableOifSet;
   using ZombieKey = Vel::ZombieKey;
   using Key = Vel::RouteKeyVlanId;
   static constexpr bool forwardFirst = false;
   static constexpr bool replaces = false;

   struct Hooks final : VelHelper::MrouteSmHelper {
      explicit Hooks(Chip& c) : MrouteSmHelper("hooks"), chip(c) {}
      void mrouteSwitchInit(U32, bool) override {}
      RouteHandle doAllocateMroute(U32, U16, IpGenRouteKey const&, VlanIdOrNone, bool, U32, bool,
                                   U16) override {
         return chip.next;
      }
      void doDeleteMroute(U32, U16, RouteHandle, Qor::Ptr<Vel::Route const>) override {}
      void handleFreeMtableOifSet(U32, Qor::Ptr<Record> record) override {
         chip.freed.push_back(record->oifSetIndex());
      }
      Chip& chip;
   };
   struct Ear final : Switch::Notifiee {
      void onRouteKeyToHandle(Key const& k) override { route(true, numberOf(k.route())); }
      void onRouteKeyToHandleImmediate() override { route(true, std::nullopt); }
      void onRoute(RouteHandle const& h) override { route(false, h.value()); }
      void onRouteImmediate() override { route(false, std::nullopt); }
      void onZombieOifSet(ZombieKey const& k) override { zombie(k); }
      void onZombieOifSetImmediate() override { zombie(std::nullopt); }
      std::function<void(bool forward, std::optional<U32>)> route = [](bool, auto) {};
      std::function<void(std::optional<ZombieKey>)> zombie = [](auto) {};
   };
   static Qor::Ptr<Switch> make(Chip& chip) {
      return Vel::mrouteSwitchFactory("switch", 1, nullptr, Qor::make<Vel::L3Status>(),
                                      Qor::make<Hooks>(chip), nullptr, nullptr);
   }
   static Qor::Ptr<Record> record(U32 id, Switch* sw) {
      Qor::Ptr<Record> const made = Vel::mtableOifSetFactory(oifSet(), false, sw);
      made->oifSetIndexIs(id);
      return made;
   }

   static Key keyOf(U32 n) { return {key(n), vlan}; }
   static U32 keyIn(Qor::Ptr<Vel::Route> const& shown) {
      return shown->acceptingVlanId() == vlan ? numberOf(shown->key()) : ~0u;
   }
   static auto const& forward(Switch& sw) { return sw.routeKeyToHandle(); }
   static auto const& backward(Switch& sw) { return sw.route(); }
   static void forwardIs(Switch& sw, U32 n, RouteHandle h) { sw.routeKeyToHandleIs(keyOf(n), h); }
   static void backwardIs(Switch& sw, RouteHandle h, U32 n) { sw.routeIs(h, key(n), vlan); }
   static auto forwardDel(Switch& sw, auto at) { return sw.routeKeyToHandleDel(at); }
   static auto backwardDel(Switch& sw, auto at) { return sw.routeDel(at); }
   static void forwardDelAll(Switch& sw) { sw.routeKeyToHandleDelAll(); }
   static void backwardDelAll(Switch& sw) { sw.routeDelAll(); }
   static void allocate(Switch& sw, U32 n) {
      sw.doAllocateRoute(key(n), vlan, false, nullptr, false, false, RpaIndex(), vrf);
   }
};

template <class Path>
class CollectionPromises : public OnVirtualTime {
 protected:
   Chip chip_;
   Qor::Ptr<typename Path::Switch> const sw_ = Path::make(chip_);
};
using Paths = testing::Types<Async, Sync>;
TYPED_TEST_SUITE(CollectionPromises, Paths);

// The two collections of routes beside two maps, and the changes that are still to be notified.
template <class Path>
class RouteModel {
 public:
   explicit RouteModel(Chip& chip, typename Path::Switch& theSwitch) : sw(theSwitch) {
      ear_.notifierIs(&sw);
      ear_.route = [this](bool inForward, std::optional<U32> key) {
         ASSERT_FALSE(steps_.empty());
         Step const step = std::move(steps_.front());
         steps_.pop_front();
         ASSERT_EQ(inForward, step.forward);
         ASSERT_EQ(key, step.key);
         step.change();
         compare();
      };
      // The asynchronous hook comes behind the notifications.
      chip.onDelete = [this] { EXPECT_TRUE(steps_.empty()); };
   }

   // A change of one collection that is to be notified next.
   void forwardIs(U32 n, U32 h) {
      auto const at = forward.find(n);
      if (at == forward.end() || at->second != h) step(true, n, [=, this] { forward[n] = h; });
   }
   void backwardIs(U32 h, U32 n) {
      auto const at = backward.find(h);
      if (at == backward.end() || at->second != n) step(false, h, [=, this] { backward[h] = n; });
   }
   void forwardDel(U32 n) {
      if (forward.contains(n)) step(true, n, [=, this] { forward.erase(n); });
   }
   void backwardDel(U32 h) {
      if (backward.contains(h)) step(false, h, [=, this] { backward.erase(h); });
   }
   void forwardDelAll() {
      if (!forward.empty()) step(true, std::nullopt, [this] { forward.clear(); });
   }
   void backwardDelAll() {
      if (!backward.empty()) step(false, std::nullopt, [this] { backward.clear(); });
   }
   // All of them have been notified.
   void settled() const {
      ASSERT_TRUE(steps_.empty());
      compare();
   }

   static U32 numberOfKey(typename Path::Key const& k) {
      for (U32 n = 0; n < 200; ++n) {
         if (k == Path::keyOf(n)) return n;
      }
      return ~0u;
   }

   typename Path::Switch& sw;
   std::map<U32, U32> forward, backward;

 private:
   struct Step {
      bool forward;
      std::optional<U32> key;
      std::function<void()> change;
   };
   void step(bool inForward, std::optional<U32> key, std::function<void()> change) {
      steps_.push_back({inForward, key, std::move(change)});
   }
   void compare() const {
      auto const& there = Path::forward(sw);
      auto const& back = Path::backward(sw);
      ASSERT_EQ(there.size(), forward.size());
      ASSERT_EQ(there.empty(), forward.empty());
      std::map<U32, U32> seen;
      for (auto const& [k, h] : there)
         ASSERT_TRUE(seen.emplace(numberOfKey(k), h.value()).second);
      ASSERT_EQ(seen, forward);
      for (auto const& [n, h] : forward) {
         auto const found = there.find(Path::keyOf(n));
         ASSERT_TRUE(found && found->second.value() == h && found->first == Path::keyOf(n));
      }
      ASSERT_EQ(back.size(), backward.size());
      auto at = backward.begin();
      for (auto const& [h, shown] : back) {
         ASSERT_EQ(h.value(), at->first);
         ASSERT_EQ(Path::keyIn(shown), (at++)->second);
      }
      ASSERT_TRUE(at == backward.end());
      for (auto const& [h, n] : backward) {
         auto const found = back.find(RouteHandle(h));
         ASSERT_TRUE(found && Path::keyIn(found->second) == n);
      }
   }
   typename Path::Ear ear_;
   std::deque<Step> steps_;
};

// Each collection changes alone: by key, by iterator and as a whole. Handles are any 32 bits, two
// handles may have one key, and the two collections may contradict each other.
TYPED_TEST(CollectionPromises, CollectionsOfRoutesChangeIndependently) {
   using Path = TypeParam;
   auto& sw = *this->sw_;
   RouteModel<Path> model(this->chip_, sw);
   std::mt19937 random(3);
   auto const pick = [&](U32 n) { return static_cast<U32>(random() % n); };
   std::vector<U32> const handles = {
         0, 1, 2, 15, 16, 63, 64, 4096, 0x7fffffff, 0x80000000, 0xfffffff0, 0xfffffffe, 0xffffffff};
   for (U32 step = 0; step < 6'000 && !this->HasFatalFailure(); ++step) {
      U32 const n = pick(8), h = handles[pick(static_cast<U32>(handles.size()))];
      RouteHandle const handle(h);
      bool const used = model.backward.contains(h);
      switch (pick(12)) {
         case 0:
         case 1:
            model.forwardIs(n, h);
            Path::forwardIs(sw, n, handle);
            break;
         case 2:
         case 3:
            if (!Path::replaces && used && model.backward[h] != n) {
               EXPECT_THROW(Path::backwardIs(sw, handle, n), Qor::ReinstantiationException);
               break;
            }
            model.backwardIs(h, n);
            Path::backwardIs(sw, handle, n);
            break;
         case 4:
            model.forwardDel(n);
            Path::forwardDel(sw, Path::keyOf(n));
            break;
         case 5:
            model.backwardDel(h);
            Path::backwardDel(sw, handle);
            break;
         case 6: {
            auto const& map = Path::forward(sw);
            for (auto at = map.begin(); at != map.end();) {
               U32 const k = model.numberOfKey(at->first);
               if (pick(3) == 0) {
                  model.forwardDel(k);
                  at = Path::forwardDel(sw, at);
               } else {
                  ++at;
               }
            }
            break;
         }
         case 7: {
            auto const& map = Path::backward(sw);
            for (auto at = map.begin(); at != map.end();) {
               if (pick(3) == 0) {
                  model.backwardDel(at->first.value());
                  at = Path::backwardDel(sw, at);
               } else {
                  ++at;
               }
            }
            break;
         }
         case 8:
            if (pick(20) == 0) {
               model.forwardDelAll();
               Path::forwardDelAll(sw);
            } else if (pick(20) == 0) {
               model.backwardDelAll();
               Path::backwardDelAll(sw);
            }
            break;
         case 9:
         case 10:
            if (handle.isNull() || used) break;
            this->chip_.next = handle;
            if (Path::forwardFirst) model.forwardIs(n, h);
            model.backwardIs(h, n);
            if (!Path::forwardFirst) model.forwardIs(n, h);
            Path::allocate(sw, n);
            break;
         default:
            if (!used) break;
            // The key goes also if it is that of another handle by now.
            model.forwardDel(model.backward[h]);
            model.backwardDel(h);
            sw.doDeleteRoute(handle);
      }
      model.settled();
      auto const& back = Path::backward(sw);
      auto const from = back.lowerBound(handle), behind = back.upperBound(handle);
      auto const bound = model.backward.lower_bound(h), above = model.backward.upper_bound(h);
      ASSERT_EQ(from == back.end(), bound == model.backward.end());
      ASSERT_EQ(behind == back.end(), above == model.backward.end());
      ASSERT_TRUE(from == back.end() || from->first.value() == bound->first);
      ASSERT_TRUE(behind == back.end() || behind->first.value() == above->first);
   }
}

// A walk that deletes by iterator reaches each entry that its handlers leave, once, and ends
// although they add entries.
TYPED_TEST(CollectionPromises, AWalkThatDeletesReachesTheRest) {
   using Path = TypeParam;
   auto& sw = *this->sw_;
   typename Path::Ear ear;
   for (bool const inForward : {true, false}) {
      for (U32 n = 0; n < 60; ++n) {
         Path::forwardIs(sw, n, RouteHandle(n * 40));
         Path::backwardIs(sw, RouteHandle(n * 40), n);
      }
      ear.notifierIs(&sw);
      std::map<U32, U32> visited;
      bool busy = false;
      ear.route = [&](bool forward, std::optional<U32> changed) {
         U32 const n = forward ? *changed : *changed / 40;
         if (busy || forward != inForward || n >= 60) return;
         busy = true;
         // The entry returns, and a later entry goes, or an earlier entry is added.
         if (forward) {
            Path::forwardIs(sw, n, RouteHandle(n * 40));
            if (n % 4 == 0) Path::forwardDel(sw, Path::keyOf(n + 1));
            if (n % 4 == 2) Path::forwardIs(sw, n + 100, RouteHandle(n * 40 - 1));
         } else {
            Path::backwardIs(sw, RouteHandle(n * 40), n);
            if (n % 4 == 0) Path::backwardDel(sw, RouteHandle(n * 40 + 40));
            if (n % 4 == 2) Path::backwardIs(sw, RouteHandle(n * 40 - 1), n + 100);
         }
         busy = false;
      };
      auto const walk = [&](auto const& map, auto const& numberAt, auto const& del) {
         unsigned steps = 0;
         for (auto at = map.begin(); at != map.end() && ++steps < 1000;) {
            EXPECT_TRUE(map.find(at->first));
            ++visited[numberAt(*at)];
            at = del(at);
         }
         return steps;
      };
      if (inForward) {
         EXPECT_LT(walk(
                         Path::forward(sw), [](auto const& e) { return e.second.value() / 40; },
                         [&](auto at) { return Path::forwardDel(sw, at); }),
                   1000u);
      } else {
         EXPECT_LT(walk(
                         Path::backward(sw), [](auto const& e) { return e.first.value() / 40; },
                         [&](auto at) { return Path::backwardDel(sw, at); }),
                   1000u);
      }
      ear.notifierIs(nullptr);
      for (U32 n = 0; n < 60; ++n) {
         EXPECT_TRUE(visited[n] == 1 || n % 4 == 1) << inForward << ' ' << n;
      }
      Path::forwardDelAll(sw);
      Path::backwardDelAll(sw);
   }
}

// An entry of zombieOifSet is under the key that its record had at the insertion. A record may
// change its key while it is linked, and be linked more than once and by two switches; a record may
// belong to another switch, or to none.
TYPED_TEST(CollectionPromises, ZombiesAreUnderTheKeyOfTheirInsertion) {
   using Path = TypeParam;
   using Key = typename Path::ZombieKey;
   using Record = typename Path::Record;
   using Model = std::map<std::pair<double, U32>, Record*>;
   Chip otherChip;
   auto const other = Path::make(otherChip);
   std::array<typename Path::Switch*, 2> const switches = {this->sw_.get(), other.get()};
   std::array<Model, 2> models;
   std::mt19937 random(11);
   auto const pick = [&](U32 n) { return static_cast<U32>(random() % n); };
   std::vector<Qor::Ptr<Record>> records;
   for (U32 n = 0; n < 9; ++n)
      records.push_back(Path::record(n, n % 3 == 2 ? nullptr : switches[n % 3]));
   auto const asPair = [](Key const& k) {
      U32 group;
      if constexpr (std::is_same_v<Path, Async>) {
         group = k.multicastId();
      } else {
         group = k.groupId();
      }
      return std::pair(k.expiryTime(), group);
   };
   // The entries of both switches and the references that they hold. `flying` is the record that
   // leaves a collection at this moment.
   Record* flying = nullptr;
   auto const compare = [&] {
      std::map<Record*, U32> references;
      for (unsigned s = 0; s < 2; ++s) {
         auto const& map = switches[s]->zombieOifSet();
         ASSERT_EQ(map.size(), models[s].size());
         auto at = models[s].begin();
         for (auto const& [k, record] : map) {
            ASSERT_EQ(asPair(k), at->first);
            ASSERT_EQ(record.get(), at->second);
            ASSERT_TRUE(map.find(k) && map.find(k)->second == record);
            ++references[record.get()];
            ++at;
         }
         ASSERT_TRUE(at == models[s].end());
      }
      for (auto const& record : records) {
         ASSERT_EQ(record->references(), 1 + references[record.get()] + (record.get() == flying));
      }
   };
   std::array<typename Path::Ear, 2> ears;
   std::deque<std::optional<Key>> expected;
   for (unsigned s = 0; s < 2; ++s) {
      ears[s].notifierIs(switches[s]);
      ears[s].zombie = [&](std::optional<Key> key) {
         ASSERT_FALSE(expected.empty());
         ASSERT_EQ(key, expected.front());
         expected.pop_front();
         if (key) compare();
      };
   }
   double now = 0;
   for (U32 step = 0; step < 6'000 && !this->HasFatalFailure(); ++step) {
      unsigned const s = pick(4) == 0;
      Model& model = models[s];
      auto& sw = *switches[s];
      auto const& record = records[pick(static_cast<U32>(records.size()))];
      auto const del = [&](typename Model::iterator at) {
         flying = at->second;
         expected.push_back(Key(at->first.second, at->first.first));
         model.erase(at);
      };
      switch (pick(8)) {
         case 0:
         case 1:  // mostly later than all others
            record->zombieIs(Key(pick(4), pick(3) == 0 ? now - pick(30) : now += pick(2)));
            break;
         case 2:
            record->zombieIs(pick(4) == 0 ? Key() : records[pick(9)]->zombie());
            break;
         case 3:
         case 4:
         case 5: {
            Record*& there = model[asPair(record->zombie())];
            if (there != record.get()) {
               flying = std::exchange(there, record.get());
               expected.push_back(record->zombie());
            }
            sw.zombieOifSetIs(record);
            break;
         }
         case 6: {
            Key const key = record->zombie();
            if (auto const at = model.find(asPair(key)); at != model.end()) del(at);
            sw.zombieOifSetDel(key);
            break;
         }
         default:
            if (pick(40) == 0) {
               if (!model.empty()) expected.push_back(std::nullopt);
               model.clear();
               sw.zombieOifSetDelAll();
               break;
            }
            for (auto at = sw.zombieOifSet().begin(); at != sw.zombieOifSet().end();) {
               if (pick(6) == 0) {
                  del(model.find(asPair(at->first)));
                  at = sw.zombieOifSetDel(at);
               } else {
                  ++at;
               }
               flying = nullptr;
            }
      }
      flying = nullptr;
      ASSERT_TRUE(expected.empty());
      compare();
      Key const probe = record->zombie();
      auto const& map = sw.zombieOifSet();
      auto const from = map.lowerBound(probe), behind = map.upperBound(probe);
      auto const bound = model.lower_bound(asPair(probe)), above = model.upper_bound(asPair(probe));
      ASSERT_EQ(from == map.end(), bound == model.end());
      ASSERT_EQ(behind == map.end(), above == model.end());
      ASSERT_TRUE(from == map.end() || asPair(from->first) == bound->first);
      ASSERT_TRUE(behind == map.end() || asPair(behind->first) == above->first);
   }
}

// An entry holds its record or its route. A record whose last entry goes is freed by its own
// switch, if it has one.
TYPED_TEST(CollectionPromises, EntriesHoldTheirRecordsAndRoutes) {
   using Path = TypeParam;
   using Lists = std::vector<U32>;
   auto& sw = *this->sw_;
   Chip otherChip;
   auto const other = Path::make(otherChip);
   auto const enter = [&](U32 id, typename Path::Switch* owner, U32 zombie) {
      auto const record = Path::record(id, owner);
      record->zombieIs(typename Path::ZombieKey(zombie, 5));
      sw.zombieOifSetIs(record);
   };
   enter(7, &sw, 1);
   enter(8, nullptr, 2);
   enter(9, other.get(), 3);
   EXPECT_EQ(this->chip_.freed, Lists());
   enter(10, &sw, 1);
   EXPECT_EQ(this->chip_.freed, Lists{7});
   sw.zombieOifSetDelAll();
   EXPECT_EQ(this->chip_.freed, (Lists{7, 10}));
   EXPECT_EQ(otherChip.freed, Lists{9});
   if constexpr (std::is_same_v<Path, Sync>) {
      RouteHandle const handle(4);
      auto const route = sw.routeIs(handle, key(1), vlan);
      sw.routeDel(handle);
      EXPECT_EQ(route->references(), 1u);
      EXPECT_NE(sw.routeIs(handle, key(2), vlan), route);
      EXPECT_EQ(route->key(), key(1));
   }
}

}  // namespace
