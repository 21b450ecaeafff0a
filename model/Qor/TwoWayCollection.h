// Two keyed collections of an entity that are each other's inverse: every key has one value, and
// every value one key. Each direction has handlers of its own, and all operations of a collection
// (Qor/Collection.h), which the entity spells as one-line members. Those that start from a value
// have it in their name here.
//
// A change is made in both directions before any notification, so that a handler never finds the
// two at odds.
#pragma once

#include <optional>
#include <type_traits>
#include <utility>

#include "Qor/Collection.h"
#include "Qor/Ptr.h"

namespace Qor {

template <Map F, Map B, auto EachKey, auto ImmediateKey, auto EachValue, auto ImmediateValue>
class TwoWayCollection {
 public:
   using Forward = F;
   using Backward = B;
   using Key = typename F::Key;
   using Value = typename F::Value;
   static_assert(std::is_same_v<typename B::Key, Value> && std::is_same_v<typename B::Value, Key>);

   // The two directions, for the type's description.
   struct ByKey {
      using Map = Forward;
      using Key = typename F::Key;
      static constexpr auto each = EachKey;
      static constexpr auto immediate = ImmediateKey;
   };
   struct ByValue {
      using Map = Backward;
      using Key = typename B::Key;
      static constexpr auto each = EachValue;
      static constexpr auto immediate = ImmediateValue;
   };
   using Iterator = typename F::ConstIterator;
   using ValueIterator = typename B::ConstIterator;

   Forward const& forward() const { return forward_; }
   Backward const& backward() const { return backward_; }

   // Pairs `key` with `value`; a pair that is there already does nothing. The former partner of
   // either is left without one. Notifies of each key and each value that gained, changed or lost.
   template <class E>
   void is(E& entity, Key key, Value value) {
      auto const entry = forward_.find(key);
      if (entry && entry->second == value) return;
      Ptr<E> const held(&entity);
      std::optional<Value> const formerValue = forward_.take(key);
      std::optional<Key> const formerKey = backward_.take(value);
      if (formerValue) backward_.take(*formerValue);
      if (formerKey) forward_.take(*formerKey);
      Key there = key;
      Value back = value;
      forward_.assign(key, back);
      backward_.assign(value, there);
      if (formerKey) entity.template notify<EachKey>(*formerKey);
      entity.template notify<EachKey>(key);
      if (formerValue) entity.template notify<EachValue>(*formerValue);
      entity.template notify<EachValue>(value);
   }

   // Removes the pair of `key`, if there is one, and notifies of the key and its value.
   template <class E>
   void del(E& entity, Key key) {
      std::optional<Value> const value = forward_.take(key);
      if (!value) return;
      backward_.take(*value);
      Ptr<E> const held(&entity);
      entity.template notify<EachKey>(key);
      entity.template notify<EachValue>(*value);
   }

   template <class E>
   void delValue(E& entity, Value value) {
      if (auto const entry = backward_.find(value)) del(entity, entry->second);
   }

   // Removes the pair at the iterator and returns where the walk goes on. The caller keeps the
   // entity alive.
   template <class E>
   Iterator delAt(E& entity, Iterator it) {
      Key const key = it->first;
      del(entity, key);
      return forward_.resume(it, key);
   }
   template <class E>
   ValueIterator delValueAt(E& entity, ValueIterator it) {
      Value const value = it->first;
      del(entity, it->second);
      return backward_.resume(it, value);
   }

   // For `new<Name>(key, value)`: the value of `key`, which is `value` if there was none.
   template <class E>
   Value instantiate(E& entity, Key key, Value value) {
      if (auto const entry = forward_.find(key)) return entry->second;
      is(entity, std::move(key), value);
      return value;
   }
   template <class E>
   Key instantiateValue(E& entity, Value value, Key key) {
      if (auto const entry = backward_.find(value)) return entry->second;
      is(entity, key, std::move(value));
      return key;
   }

   // Raises the notification of one key, or of one value; nothing changes.
   template <class E>
   void notify(E& entity, Key key) {
      entity.template notify<EachKey>(key);
   }
   template <class E>
   void notifyValue(E& entity, Value value) {
      entity.template notify<EachValue>(value);
   }

   // Removes everything and raises both immediate forms, once, unless it was empty.
   template <class E>
   void delAll(E& entity) {
      if (forward_.empty()) return;
      [[maybe_unused]] auto const keys = forward_.takeAll();
      [[maybe_unused]] auto const values = backward_.takeAll();
      Ptr<E> const held(&entity);
      entity.template notify<ImmediateKey>();
      entity.template notify<ImmediateValue>();
   }

 private:
   Forward forward_;
   Backward backward_;
};

}  // namespace Qor
