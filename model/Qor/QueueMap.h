// The ordered map of the framework for keys that come nearly in their order, as times of expiry do:
// a queue, threaded through a slab of entries (Qor/Slab.h). A key behind all others is appended, and
// the first is taken, at a cost that does not grow with the map, where Qor::OrderedMap would walk and
// rebalance a tree of cold nodes. The keys that come out of order are in a tree beside the queue, at
// a tree's price.
//
// A value that is a pointer to something with queuePlaceIs(U32) is told where its entry is; whoever
// says so before an operation (expect) has its key found there. Any other key than the first and the
// last is found by hash, in an index that is made when it is first needed, and goes with the entries.
//
//  - An entry keeps its address until it is erased. Iterators last until anything changes.
//  - Iteration is in the order of the keys. A position that must survive a change is a key: resume
//    with upperBound(key), which is quick where the key is in the queue, or before most of it, and
//    else walks the queue to the key's place.
//  - Letting go of a key or a value may run code that comes back here: it finds the map without the
//    entry.
#pragma once

#include <cstddef>
#include <functional>
#include <iterator>
#include <map>
#include <new>
#include <optional>
#include <utility>

#include "Qor/HashIndex.h"
#include "Qor/Slab.h"
#include "Qor/Types.h"

namespace Qor {

// `K` has hash() and operator<.
template <class K, class V>
class QueueMap {
   static constexpr U32 none = HashIndex::nowhere;
   using Pair = std::pair<K const, V>;
   struct RawSlot {
      Pair& entry() { return *std::launder(reinterpret_cast<Pair*>(&storage)); }
      K const& key() { return entry().first; }

      alignas(Pair) std::byte storage[sizeof(Pair)];
      U32 previous;  // in the queue
      U32 next;
      U32 nextFree = 0;
      bool straggler;  // in the tree instead
      bool live = false;
   };
   using Slots = Slab<RawSlot>;
   using Stragglers = std::map<K, U32>;  // to the number of the slot
   using StragglerAt = typename Stragglers::const_iterator;

 public:
   using Key = K;
   using Value = V;
   using Entry = Pair;

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
      U32 queued_ = none;  // where it stands in the queue and among the stragglers
      StragglerAt straggler_{};
      U32 number_ = none;  // the earlier of the two; none at the end
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

   // Where the key of the next operation is, if it is anywhere: `place` has been told to its value.
   void expect(U32 place) const { expected_ = place; }

   Entry* find(K const& key) { return const_cast<Entry*>(std::as_const(*this).find(key)); }
   Entry const* find(K const& key) const {
      U32 const number = numberOf(key);
      return number == none ? nullptr : &slots_[number].entry();
   }

   // The first entry with a key not before / strictly behind `key`.
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

   // The entry under `key`, made from `value` if there was none; and whether it was made.
   std::pair<Entry*, bool> insert(K key, V value) {
      RawSlot* const last = last_ == none ? nullptr : &slots_[last_];
      bool const straggles = last && !(last->key() < key);
      // Behind all others it is new.
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
      ::new (&slot.storage) Entry(std::move(key), std::move(value));
      slot.live = true;
      ++size_;
      if constexpr (requires { slot.entry().second->queuePlaceIs(number); }) {
         slot.entry().second->queuePlaceIs(number);
      }
      return {&slot.entry(), true};
   }

   // Erases the entry and hands out its value, so that the caller decides when the value dies.
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

   void clear() { QueueMap const gone(std::move(*this)); }

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
   bool isAt(U32 number, K const& key) const {
      return number < slots_.count() && slots_[number].live && slots_[number].key() == key;
   }
   // The number of the key's slot, or none.
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
   // The first in the queue that comes behind the key.
   U32 queuedBehind(K const& key) const {
      U32 queued = first_;
      while (queued != none && !(key < slots_[queued].key()))
         queued = slots_[queued].next;
      return queued;
   }
   // The one of the queue, none at its end, or the straggler, whichever comes first.
   U32 earlier(U32 queued, StragglerAt straggler) const {
      if (straggler == stragglers_.end()) return queued;
      return queued == none || straggler->first < slots_[queued].key() ? straggler->second : queued;
   }

   Slots slots_;
   mutable HashIndex index_;  // of all, or of none
   mutable bool indexed_ = false;
   mutable U32 expected_ = none;
   Stragglers stragglers_;
   U32 first_ = none, last_ = none;  // of the queue
   U32 size_ = 0;
};

}  // namespace Qor
