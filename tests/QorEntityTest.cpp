// Attributes and collections of entities: which handlers are notified, and when values die.
#include "Qor/Entity.h"

#include <gtest/gtest.h>

#include <functional>

#include "Qor/Collection.h"

namespace {

using Qor::Ptr;
using Qor::String;

// Reports its end.
struct Item : Qor::RefCounted {
   Item(int s, String& h) : size(s), history(h) {}
   ~Item() override { history += "~" + std::to_string(size) + " "; }
   int const size;
   String& history;
};
using ItemPtr = Ptr<Item>;

template <template <class, class> class Map>
class Box : public Qor::Entity<Box<Map>> {
 public:
   class Notifiee : public Qor::NotifieeOf<Box<Map>> {
    public:
      virtual void onLabel() {}
      virtual void onStamp() {}
      virtual void onCover() {}
      virtual void onItem(int const&) {}
      virtual void onItemImmediate() {}

    protected:
      void onImmediate() override { onItemImmediate(); }
   };
   explicit Box(String& history) : history_(history) {}
   ~Box() override {
      item_.clear();
      history_ += "~box ";
   }

   void labelIs(String v) { this->template attrIs<&Notifiee::onLabel>(label_, v); }
   void stampIs(int v) { this->template attrStore<&Notifiee::onStamp>(stamp_, v); }
   void coverIs(ItemPtr v) { this->template attrIs<&Notifiee::onCover>(cover_, v); }

   using ItemColl =
         Qor::Collection<Map<int, ItemPtr>, &Notifiee::onItem, &Notifiee::onItemImmediate>;
   typename ItemColl::Map const& item() const { return item_.map(); }
   ItemPtr item(int key) const { return item_.value(key); }
   ItemPtr newItem(int key, int size) {
      return item_.instantiate(*this, key, [&] { return Qor::make<Item>(size, history_); });
   }
   void itemIs(int key, ItemPtr value) { item_.is(*this, key, value); }
   void itemDel(int key) { item_.del(*this, key); }
   auto itemDel(typename ItemColl::Iterator it) { return item_.del(*this, it); }
   void itemDelAll() { item_.delAll(*this); }
   void itemNotify(int key) { item_.notify(*this, key); }

 private:
   String& history_;
   String label_;
   int stamp_ = 0;
   ItemPtr cover_;
   ItemColl item_;
};

template <class B>
class QorEntity : public testing::Test {
 protected:
   class Reactor final : public B::Notifiee {
    public:
      explicit Reactor(QorEntity& test) : test_(test) {}
      void onLabel() override { test_.told("label"); }
      void onStamp() override { test_.told("stamp"); }
      void onCover() override { test_.told("cover"); }
      void onItem(int const& key) override { test_.told("item " + std::to_string(key)); }
      void onItemImmediate() override { test_.told("items"); }

    private:
      QorEntity& test_;
   };

   QorEntity() { reactor.notifierIs(box_); }
   void told(String const& what) {
      history += what + " ";
      if (auto const act = std::exchange(onceTold, {})) act();
   }
   ItemPtr make(int size) { return Qor::make<Item>(size, history); }
   // The notifications and the ends of items while `act` runs.
   String heard(std::function<void()> const& act) {
      history.clear();
      act();
      return history;
   }

   String history;
   std::function<void()> onceTold;  // runs inside the next notification
   Ptr<B> box_ = Qor::make<B>(history);
   Reactor reactor{*this};
};
using Boxes = testing::Types<Box<Qor::HashMap>, Box<Qor::OrderedMap>>;
TYPED_TEST_SUITE(QorEntity, Boxes);

TYPED_TEST(QorEntity, CollectionsNotifyOfTheChangedKeyAndReleaseValuesAfterwards) {
   auto& box = this->box_;
   EXPECT_EQ(this->heard([&] { box->newItem(1, 10); }), "item 1 ");
   EXPECT_EQ(this->heard([&] { box->newItem(1, 10); }), "");
   EXPECT_EQ(this->heard([&] { box->itemIs(1, box->item(1)); }), "");
   EXPECT_EQ(this->heard([&] { box->itemIs(1, this->make(11)); }), "item 1 ~10 ");
   EXPECT_EQ(this->heard([&] { box->itemNotify(1), box->itemNotify(2); }), "item 1 item 2 ");
   EXPECT_EQ(this->heard([&] { box->itemDel(2); }), "");
   EXPECT_EQ(this->heard([&] { box->itemDel(1); }), "item 1 ~11 ");
   box->newItem(3, 30);
   EXPECT_EQ(this->heard([&] { box->itemDelAll(), box->itemDelAll(); }), "items ~30 ");
   box->newItem(4, 40);
   EXPECT_EQ(this->heard([&] { box = nullptr; }), "~40 ~box ");
}

TYPED_TEST(QorEntity, HandlersMayDestroyTheEntityInEachOperation) {
   using Act = void (*)(TypeParam&, Ptr<Item> const&);
   std::pair<Act, char const*> const operations[] = {
         {[](auto& b, auto&) { b.labelIs("a"); }, "label ~1 ~box "},
         {[](auto& b, auto&) { b.stampIs(1); }, "stamp ~1 ~box "},
         {[](auto& b, auto& item) { b.itemIs(3, item); }, "item 3 ~1 ~box "},
         {[](auto& b, auto& item) { b.itemIs(1, item); }, "item 1 ~box ~1 "},
         {[](auto& b, auto&) { b.itemDel(b.item().begin()->first); }, "item 1 ~box ~1 "},
         {[](auto& b, auto&) { b.itemDelAll(); }, "items ~box ~1 "}};
   for (auto const& [operation, expected] : operations) {
      ItemPtr const item = this->make(9);
      this->box_ = Qor::make<TypeParam>(this->history);
      this->box_->newItem(1, 1);
      this->reactor.notifierIs(this->box_);
      this->onceTold = [&] { this->box_ = nullptr; };
      EXPECT_EQ(this->heard([&, act = operation] { act(*this->box_, item); }), expected);
      EXPECT_EQ(this->reactor.notifier(), nullptr);
   }
}

}  // namespace
