// Two keyed collections of an entity that are each other's inverse: every key has one value, and
// every value one key. Each direction has handlers of its own. The entity spells the operations as
// one-line members, as with Qor::Collection.
//
// A change is made in both directions before anybody is told, so that a handler never finds the
// two at odds.
#pragma once

#include <optional>
#include <type_traits>
#include <utility>

#include "Qor/HashMap.h"
#include "Qor/OrderedMap.h"
#include "Qor/Ptr.h"

namespace Qor {

template <class F, class B, auto EachKey, auto ImmediateKey, auto EachValue, auto ImmediateValue>
class TwoWayCollection {
 public:
   using Forward = F;
   using Backward = B;
   using Key = typename F::Key;
   using Value = typename F::Value;
   static_assert(std::is_same_v<typename B::Key, Value> && std::is_same_v<typename B::Value, Key>);

   Forward const& forward() const { return forward_; }
   Backward const& backward() const { return backward_; }

   // Pairs `key` with `value`; a pair that is there already does nothing. The former partner of
   // either is left without one. Tells each key and each value that gained, changed or lost.
   template <class E>
   void is(E& entity, Key key, Value value) {
      auto const* const entry = forward_.find(key);
      if (entry && entry->second == value) return;
      Ptr<E> const held(&entity);
      std::optional<Value> const formerValue = forward_.take(key);
      std::optional<Key> const formerKey = backward_.take(value);
      if (formerValue) backward_.take(*formerValue);
      if (formerKey) forward_.take(*formerKey);
      forward_.insert(key, value);
      backward_.insert(value, key);
      if (formerKey) entity.template notify<EachKey>(*formerKey);
      entity.template notify<EachKey>(key);
      if (formerValue) entity.template notify<EachValue>(*formerValue);
      entity.template notify<EachValue>(value);
   }

   // Removes the pair of `key`, if there is one, and tells the key and its value.
   template <class E>
   void del(E& entity, Key key) {
      std::optional<Value> const value = forward_.take(key);
      if (!value) return;
      backward_.take(*value);
      Ptr<E> const held(&entity);
      entity.template notify<EachKey>(key);
      entity.template notify<EachValue>(*value);
   }

   // Removes everything and raises both immediate forms, once, unless it was empty.
   template <class E>
   void delAll(E& entity) {
      if (forward_.empty()) return;
      Forward const keys(std::exchange(forward_, Forward()));
      Backward const values(std::exchange(backward_, Backward()));
      Ptr<E> const held(&entity);
      entity.template notify<ImmediateKey>();
      entity.template notify<ImmediateValue>();
   }

 private:
   Forward forward_;
   Backward backward_;
};

}  // namespace Qor
