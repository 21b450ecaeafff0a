// Delivery: whatever handlers do to reactors and notifiers while one is under way.
#include "Qor/Notifier.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <functional>
#include <memory>
#include <random>
#include <stdexcept>

#include "Qor/Entity.h"

namespace {

using Qor::Ptr;
using Qor::String;

class Source : public Qor::Entity<Source> {
 public:
   class Notifiee : public Qor::NotifieeOf<Source> {
    public:
      virtual void onPulse() {}
   };
   void pulse() { notify<&Notifiee::onPulse>(); }
};

class Ear final : public Source::Notifiee {
 public:
   using Act = std::function<void()>;
   Ear(char name, String& heard) : name_(name), heard_(heard) {}

   Act onPulseDo, onSweepDo;

   void onPulse() override { hear(name_, onPulseDo); }
   void onImmediate() override { hear(static_cast<char>(name_ - 'a' + 'A'), {}); }
   void qorDoZombieReactors(bool) override {
      hear(static_cast<char>(name_ - 'a' + '0'), onSweepDo);
   }

 private:
   void hear(char what, Act const& doThis) {
      heard_ += what;
      Act const act = doThis;  // survives this object
      if (act) act();
   }

   char const name_;
   String& heard_;
};

// Four reactors a, b, c and d of one source. What they hear is written down in order: a letter for
// a pulse, a capital for the immediate form, and a digit for the sweep.
struct Scene {
   Scene() {
      for (char name = 'a'; name <= 'd'; ++name) {
         ears.push_back(std::make_unique<Ear>(name, heard));
         ears.back()->notifierIs(source);
      }
   }
   std::unique_ptr<Ear>& ear(char name) { return ears[static_cast<std::size_t>(name - 'a')]; }
   void add(char name) {
      ears.push_back(std::make_unique<Ear>(name, heard));
      ears.back()->notifierIs(source);
   }
   void leave(char name) { ear(name)->notifierIs(nullptr); }
   void leaveAndReturn(char name) {
      leave(name);
      ear(name)->notifierIs(source);
   }
   void pause(char name, bool on = false) { ear(name)->hasNotificationActiveIs(on); }
   String takeHeard() { return std::exchange(heard, String()); }

   String heard;
   Ptr<Source> source = Qor::make<Source>();
   Ptr<Source> other = Qor::make<Source>();
   std::vector<std::unique_ptr<Ear>> ears;
};

TEST(QorNotifier, DeliverySurvivesEachWayToDisturbIt) {
   struct Disturbance {
      char const* what;
      std::function<void(Scene&)> act;  // what b does, once, when it hears the first pulse
      char const* first;                // what is heard during the first pulse
      char const* second;               // and during another one
   };
   Disturbance const disturbances[] = {
         {"nothing", [](Scene&) {}, "abcd", "abcd"},
         {"unbind itself", [](Scene& s) { s.leave('b'); }, "abcd", "acd"},
         {"unbind an earlier", [](Scene& s) { s.leave('a'); }, "abcd", "bcd"},
         {"unbind the next", [](Scene& s) { s.leave('c'); }, "abd", "abd"},
         {"unbind the last", [](Scene& s) { s.leave('d'); }, "abc", "abc"},
         {"unbind the rest", [](Scene& s) { s.leave('d'), s.leave('c'); }, "ab", "ab"},
         {"destroy itself", [](Scene& s) { s.ear('b') = nullptr; }, "abcd", "acd"},
         {"destroy an earlier", [](Scene& s) { s.ear('a') = nullptr; }, "abcd", "bcd"},
         {"destroy the next", [](Scene& s) { s.ear('c') = nullptr; }, "abd", "abd"},
         {"destroy the last", [](Scene& s) { s.ear('d') = nullptr; }, "abc", "abc"},
         {"destroy all", [](Scene& s) { s.ears.clear(); }, "ab", ""},
         {"pause itself", [](Scene& s) { s.pause('b'); }, "abcd", "acd"},
         {"pause an earlier", [](Scene& s) { s.pause('a'); }, "abcd", "bcd"},
         {"pause the next", [](Scene& s) { s.pause('c'); }, "abd", "abd"},
         {"pause the last", [](Scene& s) { s.pause('d'); }, "abc", "abc"},
         {"resume the next", [](Scene& s) { s.pause('c'), s.pause('c', true); }, "abCcd", "abcd"},
         {"bind another", [](Scene& s) { s.add('e'); }, "abcd", "abcde"},
         {"replace the last", [](Scene& s) { s.leave('d'), s.add('e'); }, "abc", "abce"},
         {"bind another before the last leaves",
          [](Scene& s) { s.ear('c')->onPulseDo = [&] { s.add('e'), s.leave('d'); }; }, "abc",
          "abce"},
         {"rebind itself", [](Scene& s) { s.leaveAndReturn('b'); }, "abcd", "acdb"},
         {"rebind an earlier", [](Scene& s) { s.leaveAndReturn('a'); }, "abcd", "bcda"},
         {"rebind the next", [](Scene& s) { s.leaveAndReturn('c'); }, "abd", "abdc"},
         {"rebind the last", [](Scene& s) { s.leaveAndReturn('d'); }, "abc", "abcd"},
         {"move itself", [](Scene& s) { s.ear('b')->notifierIs(s.other); }, "abBcd", "acd"},
         {"move the last", [](Scene& s) { s.ear('d')->notifierIs(s.other); }, "abDc", "abc"},
         {"destroy the notifier", [](Scene& s) { s.source = nullptr; }, "ab", ""},
         {"start a delivery", [](Scene& s) { s.source->pulse(); }, "ababcdcd", "abcd"},
         {"unbind within a delivery within",
          [](Scene& s) {
             s.ear('c')->onPulseDo = [&] { s.leave('c'), s.leave('d'), s.add('e'); };
             s.source->pulse();
          },
          "ababc", "abe"},
         {"destroy the notifier within a delivery within",
          [](Scene& s) {
             s.ear('a')->onPulseDo = [&] { s.source = nullptr; };
             s.source->pulse();
          },
          "aba", ""},
   };
   for (auto const& disturbance : disturbances) {
      SCOPED_TRACE(disturbance.what);
      Scene s;
      s.ear('b')->onPulseDo = [&] {
         s.ear('b')->onPulseDo = {};
         disturbance.act(s);
      };
      s.source->pulse();
      EXPECT_EQ(s.takeHeard(), disturbance.first);
      if (s.source) s.source->pulse();
      EXPECT_EQ(s.takeHeard(), disturbance.second);
   }
}

TEST(QorNotifier, HandlerThatThrowsEndsItsDeliveryAndHarmsNoLaterOne) {
   Scene s;
   s.ear('a')->onPulseDo = [&] {
      s.ear('a')->onPulseDo = {};
      EXPECT_THROW(s.source->pulse(), std::runtime_error);  // ended inside, goes on outside
      s.ear('b')->onPulseDo = {};
      s.leave('c');
   };
   s.ear('b')->onPulseDo = [] { throw std::runtime_error("b"); };
   s.source->pulse();
   EXPECT_EQ(s.takeHeard(), "aabbd");
   s.source->pulse();
   EXPECT_EQ(s.takeHeard(), "abd");
}

TEST(QorNotifier, ImmediateFormIsRaisedOnMoveAndOnResumeWhileBoundOnly) {
   Scene s;
   Ear ear('x', s.heard);
   ear.notifierIs(s.source);
   ear.notifierIs(s.source);
   ear.hasNotificationActiveIs(true);
   EXPECT_EQ(s.takeHeard(), "") << "a first binding, the same again, and active as before";
   ear.notifierIs(s.other);
   EXPECT_EQ(s.takeHeard(), "X") << "moved";
   ear.hasNotificationActiveIs(false);
   ear.notifierIs(s.source);
   EXPECT_EQ(s.takeHeard(), "") << "moved while paused";
   ear.hasNotificationActiveIs(true);
   EXPECT_EQ(s.takeHeard(), "X") << "resumed";
   ear.notifierIs(nullptr);
   ear.hasNotificationActiveIs(false);
   ear.hasNotificationActiveIs(true);
   ear.notifierIs(s.other);
   EXPECT_EQ(s.takeHeard(), "") << "resumed while unbound, and bound anew";
}

TEST(QorNotifier, SweepTellsEachZombieReactorOnce) {
   Scene s;
   s.source = nullptr;
   for (char name = 'a'; name <= 'd'; ++name)
      EXPECT_EQ(s.ear(name)->notifier(), nullptr);
   s.ear('b')->notifierIs(s.other);  // no zombie any more
   s.ear('c')->onSweepDo = [&] { s.ear('c') = nullptr; };
   s.ear('a')->onSweepDo = [&] {
      s.other = nullptr;  // makes a zombie of b, for the next sweep
      s.ear('d') = nullptr;
   };
   Qor::sweepZombieReactors();
   EXPECT_EQ(s.takeHeard(), "02");
   Qor::sweepZombieReactors();
   EXPECT_EQ(s.takeHeard(), "1");
   Qor::sweepZombieReactors();
   EXPECT_EQ(s.takeHeard(), "");
}

// Random operations, from outside and from within handlers, against a model that knows for each
// delivery in progress whom it has still to visit. A binding is a ticket: leaving tears it up.
class Disturbed {
 public:
   explicit Disturbed(unsigned seed) : random_(seed) {}

   void step() {
      budget_ = 40;
      try {
         disturb();
      } catch (std::runtime_error const&) {
         EXPECT_TRUE(deliveries_.empty());
      }
   }

   Qor::U64 calls = 0;

 private:
   static constexpr std::size_t sources = 2, zombies = sources, ears = 10;

   class Listener final : public Source::Notifiee {
    public:
      Listener(Disturbed& world, std::size_t me) : world_(world), me_(me) {}
      void onPulse() override { world_.told(*this, me_); }
      void onImmediate() override { world_.toldToResync(me_); }
      void qorDoZombieReactors(bool) override { world_.told(*this, me_); }

    private:
      Disturbed& world_;
      std::size_t const me_;
   };
   struct Model {
      Qor::U64 ticket = 0;  // 0 when unbound
      std::size_t list = 0;
      bool active = true;
   };
   struct Delivery {
      Delivery(Disturbed& w, std::size_t l) : world(w), list(l), left(w.lists_[l]) {
         world.deliveries_.push_back(this);
      }
      ~Delivery() { world.deliveries_.pop_back(); }
      Disturbed& world;
      std::size_t const list;
      std::vector<std::pair<Qor::U64, std::size_t>> left;  // (ticket, reactor)
   };

   std::size_t pick(std::size_t n) {
      return std::uniform_int_distribution<std::size_t>(0, n - 1)(random_);
   }

   bool due(Delivery const& d, std::pair<Qor::U64, std::size_t> const& visit) const {
      Model const& m = models_[visit.second];
      return m.ticket == visit.first && (m.active || d.list == zombies);
   }
   void tear(std::size_t e) {
      if (models_[e].ticket) std::erase(lists_[models_[e].list], std::pair(models_[e].ticket, e));
      models_[e].ticket = 0;
   }
   void bindTo(std::size_t e, std::size_t list) {
      models_[e].ticket = ++tickets_;
      models_[e].list = list;
      lists_[list].emplace_back(tickets_, e);
   }
   bool bound(std::size_t e) const { return models_[e].ticket && models_[e].list != zombies; }

   void told(Listener& listener, std::size_t e) {
      ++calls;
      ASSERT_FALSE(deliveries_.empty());
      ASSERT_EQ(ears_[e].get(), &listener);
      Delivery& d = *deliveries_.back();
      auto const next =
            std::find_if(d.left.begin(), d.left.end(), [&](auto& v) { return due(d, v); });
      ASSERT_NE(next, d.left.end()) << "told " << e << ", and nobody was due";
      ASSERT_EQ(next->second, e);
      d.left.erase(d.left.begin(), next + 1);
      if (d.list == zombies) tear(e);
      if (pick(20) == 0) throw std::runtime_error("handler");
      for (auto n = pick(4); n > 0 && budget_ > 0; --n)
         disturb();
   }
   void toldToResync(std::size_t e) {
      ASSERT_EQ(e, resync_);
      resync_ = ears;
      if (pick(4) == 0 && budget_ > 0) disturb();
   }

   void deliver(std::size_t list) {
      if (deliveries_.size() >= 4 || (list < sources && !sources_[list])) return;
      Delivery d(*this, list);
      list == zombies ? Qor::sweepZombieReactors() : sources_[list]->pulse();
      for (auto const& visit : d.left)
         EXPECT_FALSE(due(d, visit)) << visit.second << " was not told";
   }
   void rebind(std::size_t e, std::size_t list) {
      if (!ears_[e] || (list < sources && !sources_[list])) return;
      Source* const target = list < sources ? sources_[list].get() : nullptr;
      bool const moves = bound(e) && target && models_[e].list != list;
      if (moves && models_[e].active) resync_ = e;
      if (target ? !(bound(e) && models_[e].list == list) : bound(e)) {
         tear(e);
         if (target) bindTo(e, list);
      }
      ears_[e]->notifierIs(target);
      EXPECT_TRUE(!moves || resync_ == ears);
   }
   void activate(std::size_t e, bool active) {
      if (!ears_[e]) return;
      if (active && !models_[e].active && bound(e)) resync_ = e;
      models_[e].active = active;
      ears_[e]->hasNotificationActiveIs(active);
      EXPECT_EQ(resync_, ears);
   }
   void replaceEar(std::size_t e) {
      tear(e);
      models_[e].active = true;
      ears_[e] = pick(6) ? std::make_unique<Listener>(*this, e) : nullptr;
   }
   void replaceSource(std::size_t s) {
      for (auto const& [ticket, e] : std::exchange(lists_[s], {}))
         bindTo(e, zombies);
      sources_[s] = pick(6) ? Qor::make<Source>() : nullptr;
   }

   void disturb() {
      --budget_;
      std::size_t const e = pick(ears), list = pick(2 * sources + 1) / 2, what = pick(100);
      if (what < 4) return replaceEar(e);
      if (what < 6) return list < sources ? replaceSource(list) : deliver(zombies);
      if (what < 12) return activate(e, false);
      if (what < 24) return activate(e, true);
      if (what < 60) return rebind(e, list);
      deliver(list);
   }

   std::mt19937 random_;
   int budget_ = 0;
   Qor::U64 tickets_ = 0;
   std::array<Ptr<Source>, sources> sources_;
   std::array<std::unique_ptr<Listener>, ears> ears_;
   std::array<Model, ears> models_;
   std::array<std::vector<std::pair<Qor::U64, std::size_t>>, sources + 1> lists_;
   std::vector<Delivery*> deliveries_;
   std::size_t resync_ = ears;  // who is to be told to bring itself in step
};

TEST(QorNotifier, RandomDisturbancesTellExactlyWhomTheModelNames) {
   for (unsigned seed = 1; seed <= 20 && !HasFailure(); ++seed) {
      SCOPED_TRACE("seed " + std::to_string(seed));
      Disturbed world(seed);
      for (int step = 0; step < 20000 && !HasFailure(); ++step)
         world.step();
      EXPECT_GT(world.calls, 10000u);
   }
}

}  // namespace
