// Delivery, rebinding, pausing and the sweep, whatever handlers do while one is under way.
#include "Qor/Notifier.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <memory>
#include <random>
#include <stdexcept>

#include "Qor/Entity.h"

namespace {

using Qor::Ptr;

class Source : public Qor::Entity<Source> {
 public:
   class Notifiee : public Qor::NotifieeOf<Source> {
    public:
      virtual void onPulse() {}
   };
   void pulse() { notify<&Notifiee::onPulse>(); }
};

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
