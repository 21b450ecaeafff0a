// Counted pointers: the life cycle of a counted object, point by point.
#include "Qor/Ptr.h"

#include <gtest/gtest.h>

#include <array>
#include <functional>
#include <map>
#include <memory>
#include <set>
#include <stdexcept>
#include <utility>
#include <vector>

#include "MrouteLib/OifSet.h"
#include "Qor/Entity.h"
#include "Qor/OrderedMap.h"
#include "TestSupport.h"

namespace {

using Qor::Ptr;

class Object : public Qor::RefCounted {
 public:
   Object() { alive.insert(this); }
   ~Object() override {
      Object* const owned = child.get();
      child = nullptr;
      if (onDestruction) onDestruction(owned);
      alive.erase(this);
   }

   static inline std::set<Object*> alive;

   Ptr<Object> child;
   std::function<void()> onZero;
   std::function<void(Object* formerChild)> onDestruction;
   int losses = 0;

 protected:
   void zeroReferencesIs(bool) override {
      ++losses;
      if (onZero) onZero();
   }
};

class QorPtr : public testing::Test {
 protected:
   void TearDown() override { EXPECT_TRUE(Object::alive.empty()); }
};

TEST_F(QorPtr, HandlerOfTheLastReferenceMayUseTemporariesAndStoreTheObject) {
   Ptr<Object> stored;
   auto object = Qor::make<Object>();
   Object* const raw = object.get();
   raw->onZero = [&] {
      for (int i = 0; i < 3; ++i) {
         Ptr<Object> const temporary(raw);
         EXPECT_EQ(raw->references(), 2u);
      }
      if (raw->losses < 3) stored = Ptr<Object>(raw);
   };
   object = nullptr;
   for (int losses = 1; losses < 3; ++losses) {
      ASSERT_EQ(stored.get(), raw);
      EXPECT_EQ(raw->references(), 1u);
      EXPECT_EQ(raw->losses, losses);
      stored = nullptr;
   }
   EXPECT_TRUE(Object::alive.empty());
}

// Only make() may.
template <class T>
concept MadeByNew = requires {
   new T();
};
static_assert(!MadeByNew<Object> && !MadeByNew<MrouteLib::MrouteTableColl>);

// Refers to itself during its construction, as hooks do that it calls; on request it keeps a reference.
class Referred final : public Object {
 public:
   explicit Referred(Ptr<Referred>* keep, bool fails = false) {
      { auto const self = hold(); }
      { Ptr<Referred> const other(this); }
      EXPECT_EQ(losses, 0);
      if (keep) *keep = this;
      if (fails) throw std::runtime_error("no");
   }
};

TEST_F(QorPtr, AnObjectIsHeldByItsMakerWhileItIsMade) {
   auto object = Qor::make<Referred>(nullptr);
   EXPECT_EQ(object->references(), 1u);
   Ptr<Referred> kept;
   object = Qor::make<Referred>(&kept);
   EXPECT_EQ(object, kept);
   EXPECT_EQ(object->references(), 2u);
   EXPECT_THROW(Qor::make<Referred>(nullptr, true), std::runtime_error);
   EXPECT_DEATH(
         try { Qor::make<Referred>(&kept, true); } catch (std::exception const&){},
         "Assertion `references_ == 1' failed");
   // Storage is a maker, too.
   Referred member(nullptr);
   { Ptr<Referred> const reference(&member); }
   EXPECT_EQ(member.losses, 0);
}

TEST_F(QorPtr, AssignmentShowsTheNewObjectToTheHandlerOfTheOldAndMayBeReentered) {
   auto p = Qor::make<Object>();
   auto const next = Qor::make<Object>(), afterwards = Qor::make<Object>();
   p->onZero = [&] {
      EXPECT_EQ(p, next);
      p = afterwards;
   };
   p = next;
   EXPECT_EQ(p, afterwards);
   EXPECT_EQ(next->references(), 1u);
   p = *&p;
   EXPECT_EQ(afterwards->references(), 2u);
}

// A reactor reaches its notifier through a plain pointer, also while the notifier is being deleted
// or waits for its deletion at the end of a long chain.
TEST_F(QorPtr, LongChainIsDeletedInBoundedStackAndTemporariesDeleteNothingTwice) {
   int waiting = 0, deletions = 0;
   Ptr<Object> chain;
   int const objects = 100'000;
   for (int i = 0; i < objects; ++i) {
      auto owner = Qor::make<Object>();
      owner->child = std::move(chain);
      owner->onDestruction = [&, raw = owner.get()](Object* formerChild) {
         ++deletions;
         Ptr<Object> const dying(raw);
         if (!Object::alive.contains(formerChild)) return;
         ++waiting;
         Ptr<Object> const temporary(formerChild);
         EXPECT_EQ(formerChild->losses, 1);
      };
      chain = std::move(owner);
   }
   chain = nullptr;
   EXPECT_EQ(deletions, objects);
   EXPECT_GT(waiting, 0);
}

class Watched : public Qor::Entity<Watched> {
 public:
   class Notifiee : public Qor::NotifieeOf<Watched> {};
   explicit Watched(std::vector<char const*>& history) : history_(history) {}
   ~Watched() override { history_.push_back("deleted"); }

 protected:
   void zeroReferencesIs(bool) override { history_.push_back("lost"); }
   bool heldByNotifiees() const override { return hasNotifiees(); }

 private:
   std::vector<char const*>& history_;
};

TEST_F(QorPtr, ObjectHeldByNotifieesMayBeReferencedAgainAndDiesWhenTheLastOneLeaves) {
   using History = std::vector<char const*>;
   using Leave = std::function<void(std::unique_ptr<Watched::Notifiee>&, Ptr<Watched> const&)>;
   std::pair<char const*, Leave> const ways[] = {
         {"unbound", [](auto& n, auto&) { n->notifierIs(nullptr); }},
         {"bound to another", [](auto& n, auto& other) { n->notifierIs(other); }},
         {"destroyed", [](auto& n, auto&) { n = nullptr; }}};
   for (auto const& [way, leave] : ways) {
      SCOPED_TRACE(way);
      History history, otherHistory;
      auto const other = Qor::make<Watched>(otherHistory);
      auto first = std::make_unique<Watched::Notifiee>();
      auto last = std::make_unique<Watched::Notifiee>();
      auto object = Qor::make<Watched>(history);
      first->notifierIs(object);
      last->notifierIs(object);
      object = nullptr;
      EXPECT_EQ(history, History{"lost"});
      Ptr<Watched const> again(last->notifier());
      EXPECT_FALSE(again->livesUnreferenced());
      again = nullptr;
      EXPECT_TRUE(last->notifier()->livesUnreferenced());
      leave(first, other);
      EXPECT_EQ(history, (History{"lost", "lost"}));
      leave(last, other);
      EXPECT_EQ(history, (History{"lost", "lost", "lost", "deleted"}));
   }
}

template <std::size_t size>
struct Sized final : Qor::RefCounted, Qor::Pooled {
   std::array<char, size> bytes;
};

// Holds objects of many sizes, and finds them at places of their own.
class Places {
 public:
   template <std::size_t... n>
   void fill(std::index_sequence<n...>) {
      (add(Qor::make<Sized<8 * n + 1>>()), ...);
   }
   void releaseEvery(std::size_t step) {
      std::size_t number = 0;
      std::erase_if(objects_, [&](auto const&) { return number++ % step == 0; });
   }
   void expectApart() const {
      std::uintptr_t end = 0;
      for (auto const& [begin, object] : objects_) {
         ASSERT_GE(begin, end);
         end = begin + object.second;
      }
   }

 private:
   template <class T>
   void add(Ptr<T> const& object) {
      objects_[reinterpret_cast<std::uintptr_t>(object.get())] = {object, sizeof(T)};
   }
   std::map<std::uintptr_t, std::pair<Ptr<Qor::RefCounted>, std::size_t>> objects_;
};

TEST_F(QorPtr, PooledObjectsOfAllSizesHaveTheirMemoryToThemselves) {
   Places places;
   for (std::size_t round = 0; round < 60; ++round) {
      places.fill(std::make_index_sequence<70>());
      places.expectApart();
      places.releaseEvery(2 + round % 3);
   }
}

#ifdef QOR_ADDRESS_SANITIZER
class Recycled final : public Qor::RefCounted, public Qor::Pooled {
 public:
   int content = 7;
};

TEST_F(QorPtr, TheSanitizerSeesAUseOfMemoryThatWaitsInAPool) {
   testSupport::ReusedMemory const reused;
   auto object = Qor::make<Recycled>();
   Recycled* const address = object.get();
   object = nullptr;
   EXPECT_DEATH(address->content = 8, "use-after-poison");
   object = Qor::make<Recycled>();
   EXPECT_EQ(object.get(), address);
   EXPECT_EQ(address->content, 7);
   Qor::OrderedMap<int, int> map;
   int* const value = &map.insert(1, 2).first->second;
   map.take(1);
   EXPECT_DEATH(*value = 3, "use-after-poison");
}
#endif

TEST_F(QorPtr, ValidPtrIsNeverNull) {
   Qor::ValidPtr<Object> valid(Qor::make<Object>());
   Qor::ValidPtr<Object> const moved(std::move(valid));
   EXPECT_EQ(valid, moved);
   EXPECT_THROW(Qor::ValidPtr<Object>{Ptr<Object>()}, Qor::RangeException);
   EXPECT_DEATH(*Ptr<Object>(), "Ptr.h:[0-9]+: .*: Assertion `object_ != nullptr' failed\\.\n");
}

}  // namespace
