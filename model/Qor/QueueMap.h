// The ordered map of the framework for keys that arrive nearly in their order, such as expiry
// times. The entries are a queue in the order of their keys. An erased entry leaves a hole, so that
// an erasure touches one entry; Qor::OrderedMap would rebalance a tree of cold nodes. A key that
// arrives out of order is a straggler. The stragglers are in a tree beside the queue.
//
// The values point to objects that know their place in the queue: insert() passes it to
// queuePlaceIs(U32), and take(key, value) reads it from queuePlace(). Any other look-up is a binary
// search.
//
//  - An entry keeps its address, and an iterator is valid, until the map changes.
//  - Iteration is in the order of the keys. A position that must survive a change is a key: resume
//    with upperBound(key).
//  - The destructor of an erased value may run code that uses the map. Such code finds the map
//    without the entry.
//  - Holes at either end of the queue go at once. The others go when they outnumber the entries by
//    far, so that the memory is bounded by the number of entries.
#pragma once

#include <algorithm>
#include <cstddef>
#include <deque>
#include <iterator>
#include <map>
#include <optional>
#include <utility>

#include "Qor/Map.h"
#include "Qor/Types.h"

namespace Qor {

// `K` has operator== and operator<. `V` is a counted pointer, and no value is null.
template <class K, class V>
class QueueMap {
   using Pair = std::pair<K const, V>;
   using Queue = std::deque<Pair>;  // the value of a hole is null
   using Stragglers = std::map<K, V>;
   static constexpr std::size_t maxHoles = 4;  // for each entry

 public:
   using Key = K;
   using Value = V;
   using Entry = Pair;
   static constexpr bool ordered = true;

   class ConstIterator {
    public:
      using iterator_category = std::forward_iterator_tag;
      using value_type = Entry;
      using difference_type = std::ptrdiff_t;
      using pointer = Entry const*;
      using reference = Entry const&;

      ConstIterator() = default;
      Entry const& operator*() const { return inQueue() ? *queued_ : *straggler_; }
      Entry const* operator->() const { return &**this; }
      ConstIterator& operator++() {
         if (inQueue()) {
            ++queued_;
            skipHoles();
         } else {
            ++straggler_;
         }
         return *this;
      }
      ConstIterator operator++(int) {
         ConstIterator const before = *this;
         ++*this;
         return before;
      }
      bool operator==(ConstIterator const& other) const {
         return queued_ == other.queued_ && straggler_ == other.straggler_;
      }

    private:
      friend class QueueMap;
      ConstIterator(QueueMap const* map, typename Queue::const_iterator queued,
                    typename Stragglers::const_iterator straggler)
            : map_(map), queued_(queued), straggler_(straggler) {
         skipHoles();
      }
      bool inQueue() const {
         if (queued_ == map_->queue_.end()) return false;
         return straggler_ == map_->stragglers_.end() || queued_->first < straggler_->first;
      }
      void skipHoles() {
         while (queued_ != map_->queue_.end() && !queued_->second)
            ++queued_;
      }

      QueueMap const* map_ = nullptr;
      typename Queue::const_iterator
            queued_;  // the next entry of the queue, and the next straggler
      typename Stragglers::const_iterator straggler_;
   };

   QueueMap() = default;
   QueueMap(QueueMap&& other) { swap(other); }  // NOLINT(performance-noexcept-move-constructor)
   QueueMap& operator=(QueueMap&& other) {      // NOLINT(performance-noexcept-move-constructor)
      QueueMap taken(std::move(other));
      swap(taken);
      return *this;
   }

   U32 size() const { return queued_ + static_cast<U32>(stragglers_.size()); }
   bool empty() const { return size() == 0; }

   ConstIterator begin() const { return {this, queue_.begin(), stragglers_.begin()}; }
   ConstIterator end() const { return {this, queue_.end(), stragglers_.end()}; }

   // The entry of `key`, or null.
   Entry const* find(K const& key) const {
      auto const at = queuedAt(key);
      if (holds(at, key)) return at->second ? &*at : nullptr;
      auto const straggler = stragglers_.find(key);
      return straggler == stragglers_.end() ? nullptr : &*straggler;
   }

   ConstIterator lowerBound(K const& key) const {
      return {this, queuedAt(key), stragglers_.lower_bound(key)};
   }
   ConstIterator upperBound(K const& key) const {
      auto const at = queuedAt(key);
      return {this, holds(at, key) ? std::next(at) : at, stragglers_.upper_bound(key)};
   }

   bool assign(K const& key, V& value) {
      if (stragglers_.empty() && (queue_.empty() || queue_.back().first < key)) {
         append(key, value);
         return true;
      }
      auto const at = queue_.begin() + (queuedAt(key) - queue_.cbegin());
      if (holds(at, key)) {
         // A hole takes its key back.
         bool const fills = !at->second;
         queued_ += fills;
         bool const changes = exchangeUnequal(at->second, value);
         at->second->queuePlaceIs(first_ + static_cast<U32>(at - queue_.begin()));
         return changes;
      }
      auto const straggler = stragglers_.find(key);
      if (straggler != stragglers_.end()) return exchangeUnequal(straggler->second, value);
      if (at == queue_.end()) {
         append(key, value);
      } else {
         stragglers_.emplace(key, std::move(value));
      }
      return true;
   }

   std::optional<V> take(K const& key) {
      auto const at = queuedAt(key);
      if (holds(at, key)) return takeQueued(static_cast<std::size_t>(at - queue_.cbegin()));
      auto const straggler = stragglers_.extract(key);
      if (straggler.empty()) return std::nullopt;
      return std::optional<V>(std::move(straggler.mapped()));
   }
   // As take(key). `value` is the value that the key most likely has: if it knows its place, the
   // operation needs no search.
   std::optional<V> take(K const& key, V const& value) {
      U32 const index = value->queuePlace() - first_;
      if (index < queue_.size() && queue_[index].first == key) return takeQueued(index);
      return take(key);
   }

   QueueMap takeAll() { return std::move(*this); }
   void clear() { takeAll(); }

   ConstIterator resume(ConstIterator, K const& key) const { return upperBound(key); }

   void swap(QueueMap& other) noexcept {
      queue_.swap(other.queue_);
      stragglers_.swap(other.stragglers_);
      std::swap(first_, other.first_);
      std::swap(queued_, other.queued_);
   }

 private:
   // The first entry or hole of the queue whose key is not less than `key`.
   typename Queue::const_iterator queuedAt(K const& key) const {
      // Most keys are the first, or are not in the map any more.
      if (queue_.empty() || !(queue_.front().first < key)) return queue_.begin();
      return std::lower_bound(queue_.begin(), queue_.end(), key,
                              [](Entry const& entry, K const& k) { return entry.first < k; });
   }
   bool holds(typename Queue::const_iterator at, K const& key) const {
      return at != queue_.end() && at->first == key;
   }
   void append(K const& key, V& value) {
      queue_.emplace_back(key, std::move(value));
      ++queued_;
      queue_.back().second->queuePlaceIs(first_ + static_cast<U32>(queue_.size()) - 1);
   }
   std::optional<V> takeQueued(std::size_t index) {
      V value = std::move(queue_[index].second);
      if (!value) return std::nullopt;
      --queued_;
      while (!queue_.empty() && !queue_.back().second)
         queue_.pop_back();
      while (!queue_.empty() && !queue_.front().second) {
         queue_.pop_front();
         ++first_;
      }
      if (queue_.size() > 64 && queue_.size() / (maxHoles + 1) > queued_) closeHoles();
      return value;
   }
   void closeHoles() {
      Queue const before = std::exchange(queue_, {});
      queued_ = 0;
      for (auto const& [key, value] : before) {
         if (V kept = value) append(key, kept);
      }
   }

   Queue queue_;  // neither the first nor the last is a hole
   Stragglers stragglers_;
   U32 first_ = 0;   // the place of the first entry of the queue; places wrap
   U32 queued_ = 0;  // entries of the queue without the holes
};

}  // namespace Qor
