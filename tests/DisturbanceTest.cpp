// Notifications and lifetimes of entities while handlers bind, unbind, throw and destroy: random
// operations against a model.
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <iterator>
#include <map>
#include <memory>
#include <optional>
#include <random>
#include <stdexcept>

#include "Qor/Collection.h"
#include "Qor/Describe.h"
#include "Qor/Entity.h"
#include "Qor/TwoWayCollection.h"

namespace disturbance {

using Qor::Ptr;
using Qor::U32;
using Qor::U64;

class Play;

// One notification: of an attribute, of one key of a collection, or of the whole collection.
struct Event {
   std::string member;
   std::optional<U32> key;
   bool operator==(Event const&) const = default;
};

class Source : public Qor::Entity<Source> {
 public:
   class Notifiee : public Qor::NotifieeOf<Source> {
    public:
      virtual void told(Event const&) {}
      void onLabel() { told({"label", {}}); }
      void onStamp() { told({"stamp", {}}); }
      void onItem(U32 const& key) { told({"item", key}); }
      void onItemImmediate() { told({"item", {}}); }
      void onMark(U32 const& key) { told({"mark", key}); }
      void onMarkImmediate() { told({"mark", {}}); }
      void onLeft(U32 const& key) { told({"left", key}); }
      void onLeftImmediate() { told({"left", {}}); }
      void onRight(U32 const& key) { told({"right", key}); }
      void onRightImmediate() { told({"right", {}}); }
   };
   using Hashed = Qor::HashMap<U32, U32>;
   using Ordered = Qor::OrderedMap<U32, U32>;
   using ItemColl = Qor::Collection<Hashed, &Notifiee::onItem, &Notifiee::onItemImmediate>;
   using MarkColl = Qor::Collection<Ordered, &Notifiee::onMark, &Notifiee::onMarkImmediate>;
   using PairColl =
         Qor::TwoWayCollection<Hashed, Ordered, &Notifiee::onLeft, &Notifiee::onLeftImmediate,
                               &Notifiee::onRight, &Notifiee::onRightImmediate>;

   Source(Play& play, U64 id, bool keptByReactors)
         : play_(play), id_(id), keptByReactors_(keptByReactors) {}
   ~Source() override;

   U32 label() const { return label_; }
   void labelIs(U32 v) { attrIs<&Notifiee::onLabel>(label_, v); }
   U32 stamp() const { return stamp_; }
   void stampIs(U32 v) { attrStore<&Notifiee::onStamp>(stamp_, v); }
   Hashed const& item() const { return item_.map(); }
   void itemIs(U32 key, U32 value) { item_.is(*this, key, value); }
   void itemDel(U32 key) { item_.del(*this, key); }
   auto itemDel(ItemColl::Iterator it) { return item_.del(*this, it); }
   void itemDelAll() { item_.delAll(*this); }
   void itemNotify(U32 key) { item_.notify(*this, key); }
   Ordered const& mark() const { return mark_.map(); }
   void markIs(U32 key, U32 value) { mark_.is(*this, key, value); }
   void markDel(U32 key) { mark_.del(*this, key); }
   auto markDel(MarkColl::Iterator it) { return mark_.del(*this, it); }
   void markDelAll() { mark_.delAll(*this); }
   Hashed const& left() const { return pair_.forward(); }
   Ordered const& right() const { return pair_.backward(); }
   void leftIs(U32 key, U32 value) { pair_.is(*this, key, value); }
   void leftDel(U32 key) { pair_.del(*this, key); }
   auto leftDel(PairColl::Iterator it) { return pair_.delAt(*this, it); }
   void leftDelAll() { pair_.delAll(*this); }
   void rightDel(U32 value) { pair_.delValue(*this, value); }
   auto rightDel(PairColl::ValueIterator it) { return pair_.delValueAt(*this, it); }

 protected:
   void zeroReferencesIs(bool) override;
   bool heldByNotifiees() const override { return keptByReactors_ && hasNotifiees(); }

 private:
   Play& play_;
   U64 const id_;
   bool const keptByReactors_;
   U32 label_ = 0;
   U32 stamp_ = 0;
   ItemColl item_;
   MarkColl mark_;
   PairColl pair_;
};

Qor::Type describeSource() {
   Qor::Describe<Source> type("disturbance");
   type.attribute<&Source::label, &Source::labelIs, &Source::Notifiee::onLabel>();
   type.attribute<&Source::stamp, &Source::stampIs, &Source::Notifiee::onStamp>();
   type.collection<Source::ItemColl, Source, &Source::item, &Source::itemDel>();
   type.collection<Source::MarkColl, Source, &Source::mark, &Source::markDel>();
   type.collection<Source::PairColl::ByKey, Source, &Source::left, &Source::leftDel>();
   type.collection<Source::PairColl::ByValue, Source, &Source::right, &Source::rightDel>();
   return type;
}
Qor::TypeRegistration const sourceRegistered(describeSource);

// Random operations, from outside and from within handlers, beside a model of each source. The
// model holds the members of the source, its holders, and the notifiees that each delivery in
// progress has still to visit.
class Play {
 public:
   explicit Play(unsigned seed) : random_(seed) {}
   ~Play() {
      ending_ = true;
      for (std::size_t e = 0; e < ears; ++e)
         earIs(e, {});
      for (std::size_t s = 0; s < slots; ++s)
         hold(s, nullptr);
      EXPECT_TRUE(models_.empty());
   }

   void step() {
      budget_ = 40;
      quietly([&] { disturb(); });
      EXPECT_TRUE(deliveries_.empty());
      for (auto const& [id, m] : models_) {
         EXPECT_TRUE(kept(m)) << "a source outlived its last holder";
         EXPECT_EQ(m.source->hasNotifiees(), reactorsOf(m) != 0);
         compare(m);
      }
      for (std::size_t e = 0; e < ears; ++e) {
         if (!ears_[e].listener) continue;
         Model const* const m = boundTo(e);
         EXPECT_EQ(ears_[e].listener->notifier(), m ? m->source : nullptr);
      }
   }

   // A source lost its last reference; the play may take a new one.
   void lost(U64 id) {
      EXPECT_EQ(models_.at(id).held, 0);
      for (Delivery* const d : deliveries_) {
         if (d->list != id || !d->holds) continue;
         EXPECT_TRUE(std::uncaught_exceptions() || !d->next()) << "a delivery is incomplete";
         d->at = d->events.size();
      }
      if (!ending_ && pick(4) == 0) hold(pick(slots), models_.at(id).source);
   }
   // A source is being destroyed, with its notifiees still bound.
   void ends(U64 id) {
      Model& m = models_.at(id);
      EXPECT_FALSE(kept(m)) << "a source ended before its time";
      m.dying = true;
      if (pick(2)) quietly([&] { disturb(); });
      auto const watching = std::exchange(m.bound, {});
      models_.erase(id);
      for (auto const& [ticket, e] : watching)
         bindTo(e, zombies);
   }

   U64 calls = 0;
   U64 follows = 0;

 private:
   static constexpr std::size_t slots = 3, ears = 12;
   static constexpr U64 zombies = 0;           // the list of notifiees without a source
   using Visit = std::pair<U64, std::size_t>;  // (ticket, ear); leaving tears up the ticket

   class Listener final : public Source::Notifiee {
    public:
      Listener(Play& play, std::size_t me) : play_(play), me_(me) {}
      void told(Event const& event) override {
         EXPECT_EQ(play_.ears_[me_].listener.get(), this);
         play_.told(me_, event);
      }
      void onImmediate() override { play_.toldToResync(me_); }
      void qorDoZombieReactors(bool) override { told({"gone", {}}); }

    private:
      Play& play_;
      std::size_t const me_;
   };
   // A notifiee: a reactor or a follower.
   struct Ear {
      std::unique_ptr<Listener> listener;
      std::unique_ptr<Qor::Following> following;
   };
   struct Binding {
      U64 ticket = 0;  // 0 when unbound
      U64 list = zombies;
      bool active = true;
      bool follower = false;
   };
   struct Model {
      Source* source = nullptr;
      bool keptByReactors = false;
      bool dying = false;
      int held = 0;
      U32 label = 0, stamp = 0;
      std::map<U32, U32> item, mark, left, right;
      std::vector<Visit> bound;
   };
   // The notifications of one operation on a source, or of the sweep.
   struct Delivery {
      Delivery(Play& p, U64 l, std::vector<Event> e)
            : play(p), list(l), events(std::move(e)), left(p.listOf(l)) {
         play.deliveries_.push_back(this);
      }
      ~Delivery() { play.deliveries_.pop_back(); }
      // The next notifiee to notify; null at the end of the delivery.
      Visit const* next() {
         for (; at < events.size(); ++at, left = play.listOf(list)) {
            auto const found = std::ranges::find_if(left, [&](Visit const& v) {
               Binding const& b = play.bindings_[v.second];
               return b.ticket == v.first && (b.active || list == zombies);
            });
            left.erase(left.begin(), found);
            if (!left.empty()) return &left.front();
         }
         return nullptr;
      }
      Play& play;
      U64 const list;
      std::vector<Event> const events;
      std::vector<Visit> left;
      std::size_t at = 0;
      bool holds = false;  // the operation keeps its source until the delivery ends
   };
   // A reference that an operation keeps for itself.
   struct Held {
      Held(Play& p, U64 i) : play(p), id(i), reference(p.models_.at(i).source) {
         ++play.models_.at(id).held;
      }
      ~Held() { --play.models_.at(id).held; }
      Play& play;
      U64 const id;
      Ptr<Source> const reference;
   };

   std::size_t pick(std::size_t n) {
      return std::uniform_int_distribution<std::size_t>(0, n - 1)(random_);
   }
   U32 number() { return static_cast<U32>(pick(5)); }
   template <class Act>
   void quietly(Act const& act) {
      try {
         act();
      } catch (std::runtime_error const&) {
      }
   }

   // ---- The model. ----

   std::vector<Visit>& listOf(U64 list) {
      static std::vector<Visit> none;
      if (list == zombies) return zombies_;
      auto const found = models_.find(list);
      return found == models_.end() ? none : found->second.bound;
   }
   long reactorsOf(Model const& m) const {
      return std::ranges::count_if(m.bound,
                                   [&](Visit const& v) { return !bindings_[v.second].follower; });
   }
   bool kept(Model const& m) const { return m.held > 0 || (m.keptByReactors && reactorsOf(m) > 0); }
   Model const* boundTo(std::size_t e) const {
      Binding const& b = bindings_[e];
      return b.ticket && b.list != zombies ? &models_.at(b.list) : nullptr;
   }
   void tear(std::size_t e) {
      Binding& b = bindings_[e];
      if (b.ticket) std::erase(listOf(b.list), Visit(b.ticket, e));
      b.ticket = 0;
   }
   void bindTo(std::size_t e, U64 list) {
      bindings_[e].ticket = ++tickets_;
      bindings_[e].list = list;
      listOf(list).emplace_back(tickets_, e);
   }
   void compare(Model const& m) {
      auto const same = [](auto const& map, std::map<U32, U32> const& expected) {
         return map.size() == expected.size() && std::ranges::all_of(expected, [&](auto const& e) {
                   auto const* const entry = map.find(e.first);
                   return entry && entry->second == e.second;
                });
      };
      Source const& s = *m.source;
      EXPECT_TRUE(s.label() == m.label && s.stamp() == m.stamp && same(s.item(), m.item) &&
                  same(s.mark(), m.mark) && same(s.left(), m.left) && same(s.right(), m.right))
            << "a source differs from the model";
   }

   // ---- Notifications. ----

   void told(std::size_t e, Event const& event) {
      ++calls;
      ASSERT_FALSE(deliveries_.empty());
      Delivery& d = *deliveries_.back();
      Visit const* const due = d.next();
      ASSERT_TRUE(due) << e << " was notified of " << event.member << " though none was due";
      ASSERT_EQ(due->second, e) << "notified of " << event.member;
      ASSERT_EQ(event, d.events[d.at]) << event.member << ", not " << d.events[d.at].member;
      d.left.erase(d.left.begin());
      if (d.list == zombies) {
         tear(e);
         EXPECT_TRUE(!ears_[e].following || !ears_[e].following->alive());
      } else {
         compare(models_.at(d.list));
      }
      if (pick(20) == 0) throw std::runtime_error("handler");
      for (auto n = pick(4); n > 0 && budget_ > 0; --n) {
         try {
            disturb();
         } catch (std::runtime_error const&) {
            if (pick(2)) throw;  // ends the deliveries inside, and perhaps this one too
         }
      }
   }
   void toldToResync(std::size_t e) {
      ASSERT_EQ(e, resync_);
      resync_ = ears;
      if (pick(4) == 0 && budget_ > 0) disturb();
   }
   void follow(std::size_t e, Qor::Change const& change) {
      Event event{change.gone ? "gone" : change.member, {}};
      if (change.key) event.key = static_cast<U32>(std::stoul(change.key->text()));
      told(e, event);
   }

   // ---- Operations. ----

   template <class Act>
   void deliver(U64 list, std::vector<Event> events, Act const& act, bool holds = false) {
      Delivery d(*this, list, std::move(events));
      d.holds = holds;
      act();
      Visit const* const due = d.next();
      EXPECT_FALSE(due) << due->second << " was not notified of " << d.events[d.at].member;
   }
   void sweep() {
      deliver(zombies, {{"gone", {}}}, [] { Qor::sweepZombieReactors(); });
   }
   void rebind(std::size_t e, U64 list) {
      Listener* const listener = ears_[e].listener.get();
      if (!listener) return;
      Source* const target = list == zombies ? nullptr : models_.at(list).source;
      bool const same = boundTo(e) && boundTo(e)->source == target;
      bool const moves = boundTo(e) && target && !same && bindings_[e].active;
      if (moves) resync_ = e;
      if (target ? !same : boundTo(e) != nullptr) {
         tear(e);
         if (target) bindTo(e, list);
      }
      listener->notifierIs(target);
      EXPECT_TRUE(!moves || resync_ == ears) << e << " moved without onImmediate()";
   }
   void activate(std::size_t e, bool active) {
      if (!ears_[e].listener) return;
      if (active && !bindings_[e].active && boundTo(e)) resync_ = e;
      bindings_[e].active = active;
      ears_[e].listener->hasNotificationActiveIs(active);
      EXPECT_EQ(resync_, ears) << e << " was turned on without onImmediate()";
   }
   void earIs(std::size_t e, Ear ear) {
      tear(e);
      bindings_[e] = Binding();
      bindings_[e].follower = ear.following != nullptr;
      std::swap(ears_[e], ear);
   }
   void replaceEar(std::size_t e, U64 list) {
      Ear ear;
      if (list == zombies || pick(3)) {
         if (pick(6)) ear.listener = std::make_unique<Listener>(*this, e);
         return earIs(e, std::move(ear));
      }
      earIs(e, {});
      if (!models_.contains(list) || models_.at(list).dying) return;
      Held const held(*this, list);
      ear.following = std::make_unique<Qor::Following>(
            Qor::toGeneric(held.reference), [this, e](Qor::Change const& c) {
               follow(e, c);
               ++follows;  // safe: the callback outlives the Following that it ended
            });
      earIs(e, std::move(ear));
      bindTo(e, list);
   }
   void hold(std::size_t slot, Source* source) {
      U64 id = 0;
      for (auto& [i, m] : models_) {
         if (m.source == source) id = i;
      }
      if (id) ++models_.at(id).held;
      if (U64 const before = std::exchange(slots_[slot].first, id)) --models_.at(before).held;
      slots_[slot].second = source;
   }
   void newSource(std::size_t slot) {
      U64 const id = ++ids_;
      Model& m = models_[id];
      m.keptByReactors = pick(2) != 0;
      auto const made = Qor::make<Source>(*this, id, m.keptByReactors);
      m.source = made.get();
      Held const held(*this, id);
      hold(slot, m.source);
   }
   // A source that is not being destroyed, or `zombies` if there is none.
   U64 anySource() {
      std::vector<U64> living;
      for (auto const& [id, m] : models_) {
         if (!m.dying) living.push_back(id);
      }
      return living.empty() ? zombies : living[pick(living.size())];
   }

   // Erases some members on the way through a collection.
   template <class Get, class Erase>
   void walk(U64 id, std::map<U32, U32> Model::*members, char const* name, Get const& get,
             Erase const& erase) {
      Held const held(*this, id);
      Model& m = models_.at(id);
      int rest = 30;
      for (auto it = get().begin(); it != get().end() && --rest > 0;) {
         if (pick(2)) {
            ++it;
            continue;
         }
         U32 const key = it->first;
         (m.*members).erase(key);
         deliver(id, {{name, key}}, [&] { it = erase(it); });
         if (std::remove_cvref_t<decltype(get())>::ordered) {
            auto const behind = (m.*members).upper_bound(key);
            ASSERT_EQ(it == get().end(), behind == (m.*members).end());
            ASSERT_TRUE(it == get().end() || it->first == behind->first);
         }
      }
   }
   void pairs(U64 id, U32 key, U32 value, std::size_t what) {
      Model& m = models_.at(id);
      Source& s = *m.source;
      std::vector<Event> events;
      auto const left = m.left.find(key);
      bool const there = left != m.left.end();
      auto const erase = [&](U32 k) {
         auto const pair = m.left.find(k);
         if (pair == m.left.end()) return;
         events = {{"left", k}, {"right", pair->second}};
         m.right.erase(pair->second);
         m.left.erase(pair);
      };
      auto const change = [&](auto const& act) { deliver(id, events, act, true); };
      switch (what) {
         case 0:
            if (!m.left.empty()) events = {{"left", {}}, {"right", {}}};
            m.left.clear();
            m.right.clear();
            return change([&] { s.leftDelAll(); });
         case 1:
            erase(key);
            return change([&] { s.leftDel(key); });
         case 2:
            if (m.right.contains(value)) erase(m.right.at(value));
            return change([&] { s.rightDel(value); });
         case 3:
         case 4: {
            Held const held(*this, id);
            if (m.left.empty()) return;
            U32 const first = s.left().begin()->first, lowest = s.right().begin()->first;
            erase(what == 3 ? first : m.right.at(lowest));
            if (what == 3) return change([&] { s.leftDel(s.left().begin()); });
            return change([&] {
               auto const next = s.rightDel(s.right().begin());
               EXPECT_TRUE(next == s.right().end() || next->first > lowest);
            });
         }
      }
      if (!there || left->second != value) {
         if (auto const right = m.right.find(value); right != m.right.end()) {
            events.push_back({"left", right->second});
            m.left.erase(right->second);
         }
         events.push_back({"left", key});
         if (there) {
            events.push_back({"right", left->second});
            m.right.erase(left->second);
         }
         events.push_back({"right", value});
         m.left[key] = value;
         m.right[value] = key;
      }
      change([&] { s.leftIs(key, value); });
   }
   void change(U64 id) {
      if (deliveries_.size() >= 4) return;
      Model& m = models_.at(id);
      Source& s = *m.source;
      U32 const key = number(), value = number();
      auto const put = [&](std::map<U32, U32>& map) {
         return std::exchange(map.try_emplace(key, value + 1).first->second, value) != value;
      };
      auto const told = [](bool is, Event event) {
         return is ? std::vector<Event>{std::move(event)} : std::vector<Event>();
      };
      switch (pick(17)) {
         case 0:
         case 1: {
            bool const differs = std::exchange(m.label, value) != value;
            return deliver(id, told(differs, {"label", {}}), [&] { s.labelIs(value); });
         }
         case 2:
            m.stamp = value;
            return deliver(id, {{"stamp", {}}}, [&] { s.stampIs(value); });
         case 3:
         case 4:
            return deliver(id, told(put(m.item), {"item", key}), [&] { s.itemIs(key, value); });
         case 5:
            return deliver(id, told(m.item.erase(key), {"item", key}), [&] { s.itemDel(key); });
         case 6:
            return deliver(id, {{"item", key}}, [&] { s.itemNotify(key); });
         case 7:
            return deliver(id, told(!std::exchange(m.item, {}).empty(), {"item", {}}),
                           [&] { s.itemDelAll(); });
         case 8:
            return walk(
                  id, &Model::item, "item", [&]() -> auto& { return s.item(); },
                  [&](auto it) { return s.itemDel(it); });
         case 9:
         case 10:
            return deliver(id, told(put(m.mark), {"mark", key}), [&] { s.markIs(key, value); });
         case 11:
            return deliver(id, told(m.mark.erase(key), {"mark", key}), [&] { s.markDel(key); });
         case 12:
            return deliver(id, told(!std::exchange(m.mark, {}).empty(), {"mark", {}}),
                           [&] { s.markDelAll(); });
         case 13:
            return walk(
                  id, &Model::mark, "mark", [&]() -> auto& { return s.mark(); },
                  [&](auto it) { return s.markDel(it); });
         default:
            return pairs(id, key, value, pick(9));
      }
   }

   void disturb() {
      --budget_;
      if (ending_) return;
      std::size_t const e = pick(ears), slot = pick(slots), what = pick(100);
      U64 const source = anySource();
      if (what < 6) return replaceEar(e, source);
      if (what < 8) return newSource(slot);
      if (what < 10) return hold(slot, pick(2) && source ? models_.at(source).source : nullptr);
      if (what < 15) return activate(e, false);
      if (what < 26) return activate(e, true);
      if (what < 56) return rebind(e, pick(8) ? source : zombies);
      if (what < 60) return sweep();
      if (source) change(source);
   }

   std::mt19937 random_;
   int budget_ = 0;
   bool ending_ = false;
   U64 tickets_ = 0;
   U64 ids_ = 0;
   std::map<U64, Model> models_;
   std::vector<Visit> zombies_;
   std::array<std::pair<U64, Ptr<Source>>, slots> slots_;
   std::array<Ear, ears> ears_;
   std::array<Binding, ears> bindings_;
   std::vector<Delivery*> deliveries_;
   std::size_t resync_ = ears;  // the notifiee whose onImmediate() is due
};

Source::~Source() {
   play_.ends(id_);
}

void Source::zeroReferencesIs(bool) {
   play_.lost(id_);
}

TEST(Disturbance, NotificationsAndLifetimesFollowTheModel) {
   U64 calls = 0, follows = 0;
   for (unsigned seed = 1; seed <= 300 && !testing::Test::HasFailure(); ++seed) {
      Play play(seed);
      for (int step = 0; step < 1000 && !testing::Test::HasFailure(); ++step) {
         SCOPED_TRACE("seed " + std::to_string(seed) + ", step " + std::to_string(step));
         play.step();
      }
      calls += play.calls;
      follows += play.follows;
   }
   EXPECT_GT(calls, 300'000u);
   EXPECT_GT(follows, 30'000u);
}

}  // namespace disturbance
