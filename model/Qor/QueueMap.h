// The ordered map of the framework for keys that arrive nearly in their order, such as expiry
// times. The entries are in a slab (Qor/Slab.h) and are linked into a queue. Appending a key
// greater than all others and taking the first key have a cost that does not grow with the map;
// Qor::OrderedMap would walk and rebalance a tree of cold nodes. A key that arrives out of order is
// a straggler. The stragglers are in a tree beside the queue, at the cost of a tree.
//
// If the value points to an object with queuePlaceIs(U32), insert() stores the entry's slot number
// there. Passing that number to expect() lets the next operation find its key without a look-up.
// The first and the last key of the queue need no look-up either. Any other key is found by hash,
// in an index that is built when an operation first needs it and dropped when the map becomes
// empty.
//
//  - An entry keeps its address until it is erased. An iterator is valid until the map changes.
//  - Iteration is in the order of the keys. A position that must survive a change is a key: resume
//    with upperBound(key). Its cost is small if the key is in the queue; otherwise it walks the
//    queue from the first entry to the position of the key.
//  - The destructor of an erased key or value may run code that uses the map. Such code finds the
//    map without the entry.
#pragma once

#include <cstddef>
#include <functional>
#include <iterator>
#include <map>
#include <new>
#include <optional>
#include <utility>

#include "Qor/HashIndex.h"
#include "Qor/Map.h"
#include "Qor/Slab.h"
#include "Qor/Types.h"

namespace Qor {

// `K` has hash(), operator== and operator<.
template <class K, class V>
class QueueMap {
   static constexpr U32 none = HashIndex::nowhere;
   using Pair = std::pair<K const, V>;
   struct RawSlot {
      Pair& entry() { return *std::launder(reinterpret_cast<Pair*>(&storage)); }
      K const& key() { return entry().first; }

      alignas(Pair) std::byte storage[sizeof(Pair)];
      U32 previous;  // neighbours in the queue; unset for a straggler
      U32 next;
      U32 nextFree = 0;
      bool straggler;  // in the tree, not in the queue
      bool live = false;
   };
   using Slots = Slab<RawSlot>;
   using Stragglers = std::map<K, U32>;  // the slot number of each straggler
   using StragglerAt = typename Stragglers::const_iterator;

 public:
   using Key = K;
   using Value = V;
   using Entry = Pair;
   static constexpr bool ordered = true;

   template <class E>
   class Cursor {
    public:
      using iterator_category = std::forward_iterator_tag;
      using value_type = Entry;
      using difference_type = std::ptrdiff_t;
      using pointer = E*;
      using reference = E&;

      Cursor() = default;
      E& operator*() const { return map_->slots_[number_].entry(); }
      E* operator->() const { return &**this; }
      Cursor& operator++() {
         auto& slot = map_->slots_[number_];
         if (slot.straggler) {
            ++straggler_;
         } else {
            queued_ = slot.next;
         }
         number_ = map_->earlier(queued_, straggler_);
         return *this;
      }
      Cursor operator++(int) {
         Cursor const before = *this;
         ++*this;
         return before;
      }
      bool operator==(Cursor const& other) const { return number_ == other.number_; }

    private:
      friend class QueueMap;
      Cursor(QueueMap const* map, U32 queued, StragglerAt straggler)
            : map_(map),
              queued_(queued),
              straggler_(straggler),
              number_(map->earlier(queued, straggler)) {}

      QueueMap const* map_ = nullptr;
      U32 queued_ = none;  // the next entry of the queue, and the next straggler
      StragglerAt straggler_{};
      U32 number_ = none;  // the slot of the lesser of both; none at the end
   };
   using Iterator = Cursor<Entry>;
   using ConstIterator = Cursor<Entry const>;

   QueueMap() = default;
   QueueMap(QueueMap&& other) noexcept { swap(other); }
   QueueMap& operator=(QueueMap&& other) noexcept {
      QueueMap taken(std::move(other));
      swap(taken);
      return *this;
   }
   ~QueueMap() {
      for (Iterator it = begin(); it != end();) {
         Entry& entry = *it++;
         entry.~Entry();
      }
   }

   U32 size() const { return size_; }
   bool empty() const { return size_ == 0; }

   Iterator begin() { return Iterator(this, first_, stragglers_.begin()); }
   Iterator end() { return Iterator(this, none, stragglers_.end()); }
   ConstIterator begin() const { return ConstIterator(this, first_, stragglers_.begin()); }
   ConstIterator end() const { return ConstIterator(this, none, stragglers_.end()); }

   // A hint for the next operation: `place` is the number that insert() stored for its key. A wrong
   // number costs a comparison and does no harm.
   void expect(U32 place) const { expected_ = place; }

   // The entry of `key`, or null.
   Entry* find(K const& key) { return const_cast<Entry*>(std::as_const(*this).find(key)); }
   Entry const* find(K const& key) const {
      U32 const number = numberOf(key);
      return number == none ? nullptr : &slots_[number].entry();
   }

   ConstIterator lowerBound(K const& key) const {
      U32 const there = numberOf(key);
      return ConstIterator(this, isQueued(there) ? there : queuedBehind(key),
                           stragglers_.lower_bound(key));
   }
   ConstIterator upperBound(K const& key) const {
      U32 const there = numberOf(key);
      return ConstIterator(this, isQueued(there) ? slots_[there].next : queuedBehind(key),
                           stragglers_.upper_bound(key));
   }

   // Returns the entry of `key`, made from `value` if there was none, and whether it was made.
   std::pair<Entry*, bool> insert(K key, V value) { return findOrMake(std::move(key), value); }

   bool assign(K const& key, V& value) {
      auto const [entry, made] = findOrMake(key, value);
      return made || exchangeUnequal(entry->second, value);
   }

   std::optional<V> take(K const& key) {
      U32 const number = numberOf(key);
      if (number == none) return std::nullopt;
      RawSlot& slot = slots_[number];
      if (indexed_) index_.vacate(index_.locate(HashIndex::hash(key), number));
      if (slot.straggler) {
         stragglers_.erase(key);
      } else {
         (slot.previous == none ? first_ : slots_[slot.previous].next) = slot.next;
         (slot.next == none ? last_ : slots_[slot.next].previous) = slot.previous;
      }
      if (--size_ == 0 && indexed_) {
         HashIndex().swap(index_);
         indexed_ = false;
      }
      slot.live = false;
      std::optional<V> value(std::move(slot.entry().second));
      slot.entry().~Entry();
      slots_.give(number);
      return value;
   }

   QueueMap takeAll() { return std::move(*this); }
   void clear() { takeAll(); }

   ConstIterator resume(ConstIterator, K const& key) const { return upperBound(key); }

   void swap(QueueMap& other) noexcept {
      slots_.swap(other.slots_);
      index_.swap(other.index_);
      std::swap(indexed_, other.indexed_);
      stragglers_.swap(other.stragglers_);
      std::swap(first_, other.first_);
      std::swap(last_, other.last_);
      std::swap(size_, other.size_);
   }

 private:
   // The entry of `key`, and whether it was made. Moves from `value` only to make the entry.
   template <class L>
   std::pair<Entry*, bool> findOrMake(L&& key, V& value) {
      RawSlot* const last = last_ == none ? nullptr : &slots_[last_];
      bool const straggles = last && !(last->key() < key);
      // A key greater than all others is new, and needs no look-up.
      if (straggles || !stragglers_.empty()) {
         U32 const present = numberOf(key);
         if (present != none) return {&slots_[present].entry(), false};
      }
      U32 const number = slots_.take();
      RawSlot& slot = slots_[number];
      slot.straggler = straggles;
      if (straggles) {
         stragglers_.emplace(key, number);
      } else {
         slot.previous = last_;
         slot.next = none;
         (last ? last->next : first_) = number;
         last_ = number;
      }
      if (indexed_) index_.insert(HashIndex::hash(key), number);
      ::new (&slot.storage) Entry(std::forward<L>(key), std::move(value));
      slot.live = true;
      ++size_;
      if constexpr (requires { slot.entry().second->queuePlaceIs(number); }) {
         slot.entry().second->queuePlaceIs(number);
      }
      return {&slot.entry(), true};
   }
   bool isAt(U32 number, K const& key) const {
      return number < slots_.count() && slots_[number].live && slots_[number].key() == key;
   }
   // The slot number of `key`, or none.
   U32 numberOf(K const& key) const {
      for (U32 const number : {expected_, first_, last_}) {
         if (isAt(number, key)) return number;
      }
      if (empty()) return none;
      if (stragglers_.empty() && (key < slots_[first_].key() || slots_[last_].key() < key)) {
         return none;
      }
      if (!indexed_) {
         for (U32 number = 0; number < slots_.count(); ++number) {
            if (slots_[number].live) index_.insert(HashIndex::hash(slots_[number].key()), number);
         }
         indexed_ = true;
      }
      U32 const position =
            index_.locate(HashIndex::hash(key), [&](U32 n) { return slots_[n].key() == key; });
      return position == none ? none : index_[position];
   }
   bool isQueued(U32 number) const { return number != none && !slots_[number].straggler; }
   // The first entry of the queue with a key greater than `key`.
   U32 queuedBehind(K const& key) const {
      U32 queued = first_;
      while (queued != none && !(key < slots_[queued].key()))
         queued = slots_[queued].next;
      return queued;
   }
   // The slot number of the lesser of two entries: `queued` of the queue (none at its end) and
   // `straggler`.
   U32 earlier(U32 queued, StragglerAt straggler) const {
      if (straggler == stragglers_.end()) return queued;
      return queued == none || straggler->first < slots_[queued].key() ? straggler->second : queued;
   }

   Slots slots_;
   mutable HashIndex index_;  // of all entries if indexed_, else empty
   mutable bool indexed_ = false;
   mutable U32 expected_ = none;
   Stragglers stragglers_;
   U32 first_ = none, last_ = none;  // of the queue
   U32 size_ = 0;
};
static_assert(Map<QueueMap<U32, U32>>);

}  // namespace Qor
