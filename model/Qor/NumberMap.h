// The ordered map of the framework for keys that are 32-bit numbers: a radix tree with six bits per
// level. A look-up visits one node per six bits of the largest number that the map has held, and
// compares nothing. If the numbers are dense, all nodes above the leaf stay cached. The map
// suits handles and other numbers that a chip assigns, for which Qor::OrderedMap would walk a path
// of cold nodes. Entries of up to 16 bytes, such as a counted pointer and its number, are in the
// leaves of the tree; larger entries are in a pool.
//
//  - An entry keeps its address until it is erased, and iterators to it stay valid as long.
//  - Iteration is in the order of the numbers. A position that must survive the erasure of its
//    entry is a key: resume with upperBound(key).
//  - The destructor of an erased value may run code that uses the map. Such code finds the map
//    without the entry.
//  - Dense numbers cost little more memory than their entries; an entry in the pool costs 8 bytes
//    more. A number far from all others costs up to five nodes of 520 bytes and a leaf of up to
//    1032.
#pragma once

#include <array>
#include <bit>
#include <cstddef>
#include <iterator>
#include <memory>
#include <new>
#include <optional>
#include <type_traits>
#include <utility>

#include "Qor/Map.h"
#include "Qor/Pool.h"
#include "Qor/Types.h"

namespace Qor {

// `K` is a U32, or a type whose value() returns its number.
template <class K, class V>
class NumberMap {
   static U32 numberOf(K const& key) {
      if constexpr (std::is_same_v<K, U32>) {
         return key;
      } else {
         return key.value();
      }
   }

 public:
   using Key = K;
   using Value = V;
   using Entry = std::pair<K const, V>;
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
      E& operator*() const { return *entry_; }
      E* operator->() const { return entry_; }
      Cursor& operator++() {
         entry_ = map_->atLeast(U64{numberOf(entry_->first)} + 1);
         return *this;
      }
      Cursor operator++(int) {
         Cursor const before = *this;
         ++*this;
         return before;
      }
      bool operator==(Cursor const& other) const { return entry_ == other.entry_; }

    private:
      friend class NumberMap;
      Cursor(NumberMap const* map, Entry* entry) : map_(map), entry_(entry) {}

      NumberMap const* map_ = nullptr;
      Entry* entry_ = nullptr;  // null at the end
   };
   using Iterator = Cursor<Entry>;
   using ConstIterator = Cursor<Entry const>;

   NumberMap() = default;
   NumberMap(NumberMap&& other) noexcept { swap(other); }
   NumberMap& operator=(NumberMap&& other) noexcept {
      NumberMap taken(std::move(other));
      swap(taken);
      return *this;
   }
   ~NumberMap() {
      if (root_) destroy(root_, height_);
   }

   U32 size() const { return size_; }
   bool empty() const { return size_ == 0; }

   Iterator begin() { return Iterator(this, atLeast(0)); }
   Iterator end() { return Iterator(this, nullptr); }
   ConstIterator begin() const { return ConstIterator(this, atLeast(0)); }
   ConstIterator end() const { return ConstIterator(this, nullptr); }

   // The entry of `key`, or null.
   Entry* find(K const& key) { return const_cast<Entry*>(std::as_const(*this).find(key)); }
   Entry const* find(K const& key) const {
      U32 const number = numberOf(key);
      Leaf* const leaf = leafOf(number);
      return leaf ? leaf->entry(digit(number, 0)) : nullptr;
   }

   ConstIterator lowerBound(K const& key) const {
      return ConstIterator(this, atLeast(numberOf(key)));
   }
   ConstIterator upperBound(K const& key) const {
      return ConstIterator(this, atLeast(U64{numberOf(key)} + 1));
   }

   // Returns the entry of `key`, made from `value` if there was none, and whether it was made.
   std::pair<Entry*, bool> insert(K key, V value) { return findOrMake(std::move(key), value); }

   bool assign(K const& key, V& value) {
      auto const [entry, made] = findOrMake(key, value);
      return made || exchangeUnequal(entry->second, value);
   }

   std::optional<V> take(K const& key) {
      U32 const number = numberOf(key);
      Leaf* const leaf = leafOf(number);
      if (!leaf) return std::nullopt;
      unsigned const slot = digit(number, 0);
      Entry* const entry = leaf->entry(slot);
      if (!entry) return std::nullopt;
      std::optional<V> value(std::move(entry->second));
      entry->~Entry();
      if constexpr (!inLeaf) pool_.deallocate(entry, sizeof(Entry));
      leaf->used &= ~(U64{1} << slot);
      --size_;
      if (leaf->used == 0) [[unlikely]] {
         recent_ = nullptr;
         prune(root_, height_, number);
      }
      return value;
   }

   NumberMap takeAll() { return std::move(*this); }
   void clear() { takeAll(); }

   ConstIterator resume(ConstIterator, K const& key) const { return upperBound(key); }

   void swap(NumberMap& other) noexcept {
      std::swap(pool_, other.pool_);
      std::swap(root_, other.root_);
      std::swap(height_, other.height_);
      std::swap(size_, other.size_);
      recent_ = other.recent_ = nullptr;
   }

 private:
   static constexpr unsigned bits = 6;
   static constexpr bool inLeaf = sizeof(Entry) <= 16;

   // The bits of `used` from bit `at` on. `at` may be 64, behind the last bit.
   static U64 usedFrom(U64 used, unsigned at) { return at >> bits ? 0 : used & (~U64{0} << at); }
   static unsigned lowest(U64 used) { return static_cast<unsigned>(std::countr_zero(used)); }

   // An inner node. Below a node of level 1 are leaves, below the others are nodes.
   struct Node {
      U64 used = 0;
      std::array<void*, 1u << bits> below{};

      void set(unsigned at, void* to) {
         below[at] = to;
         used |= U64{1} << at;
      }
      void clear(unsigned at) {
         below[at] = nullptr;
         used &= ~(U64{1} << at);
      }
   };
   struct Leaf {
      struct Room {
         alignas(Entry) std::byte bytes[sizeof(Entry)];
      };
      U64 used = 0;
      std::array<std::conditional_t<inLeaf, Room, void*>, 1u << bits> slots;

      Entry* entry(unsigned at) {
         if (!(used >> at & 1)) return nullptr;
         if constexpr (inLeaf) {
            return std::launder(reinterpret_cast<Entry*>(&slots[at]));
         } else {
            return static_cast<Entry*>(slots[at]);
         }
      }
      // The memory in which to construct the entry of slot `at`.
      void* room(unsigned at, [[maybe_unused]] NodePool& pool) {
         if constexpr (inLeaf) {
            return &slots[at];
         } else {
            return slots[at] = pool.allocate(sizeof(Entry));
         }
      }
   };

   static unsigned digit(U64 number, unsigned level) {
      return static_cast<unsigned>(number >> (bits * level)) & ((1u << bits) - 1);
   }
   // Whether the tree is high enough to hold `number`.
   bool covers(U64 number) const { return root_ && number >> (bits * (height_ + 1)) == 0; }

   // The entry of `key`, and whether it was made. Moves from `value` only to make the entry.
   template <class L>
   std::pair<Entry*, bool> findOrMake(L&& key, V& value) {
      U32 const number = numberOf(key);
      Leaf* leaf = leafOf(number);
      if (!leaf) [[unlikely]] {
         leaf = makeLeaf(number);
      }
      unsigned const slot = digit(number, 0);
      if (Entry* const present = leaf->entry(slot)) return {present, false};
      Entry* const made =
            ::new (leaf->room(slot, pool_)) Entry(std::forward<L>(key), std::move(value));
      leaf->used |= U64{1} << slot;
      ++size_;
      return {made, true};
   }

   // The entry with the lowest number that is not less than `number`, or null.
   Entry* atLeast(U64 number) const {
      return covers(number) ? atLeast(root_, height_, number) : nullptr;
   }
   static Entry* atLeast(void* at, unsigned level, U64 number) {
      unsigned const slot = digit(number, level);
      if (level == 0) {
         Leaf* const leaf = static_cast<Leaf*>(at);
         U64 const rest = usedFrom(leaf->used, slot);
         return rest ? leaf->entry(lowest(rest)) : nullptr;
      }
      Node const* const node = static_cast<Node*>(at);
      if (void* const same = node->below[slot]) {
         if (Entry* const found = atLeast(same, level - 1, number)) return found;
      }
      U64 const rest = usedFrom(node->used, slot + 1);
      return rest ? atLeast(node->below[lowest(rest)], level - 1, 0) : nullptr;
   }

   // The leaf of `number`, or null. The leaf found last is remembered: an operation on a route
   // looks its handle up several times, and chips assign handles in ascending order.
   Leaf* leafOf(U32 number) const {
      if (recent_ && number >> bits == recentBlock_) return recent_;
      if (!covers(number)) return nullptr;
      void* node = root_;
      for (unsigned level = height_; level > 0; --level) {
         node = static_cast<Node*>(node)->below[digit(number, level)];
         if (!node) return nullptr;
      }
      recentBlock_ = number >> bits;
      return recent_ = static_cast<Leaf*>(node);
   }
   [[gnu::noinline]] Leaf* makeLeaf(U32 number) {
      if (!root_) root_ = new Leaf;
      while (!covers(number)) {
         Node* const above = new Node;
         above->set(0, root_);
         root_ = above;
         ++height_;
      }
      void* at = root_;
      for (unsigned level = height_; level > 0; --level) {
         Node* const node = static_cast<Node*>(at);
         unsigned const slot = digit(number, level);
         if (!node->below[slot]) {
            node->set(slot, level > 1 ? static_cast<void*>(new Node) : new Leaf);
         }
         at = node->below[slot];
      }
      return static_cast<Leaf*>(at);
   }
   // Deletes the nodes on the path from `at` to `number` that have become empty, but not `at`
   // itself, so that the root stays. Returns whether `at` is empty.
   [[gnu::noinline]] static bool prune(void* at, unsigned level, U32 number) {
      if (level == 0) return static_cast<Leaf*>(at)->used == 0;
      Node* const node = static_cast<Node*>(at);
      void* const below = node->below[digit(number, level)];
      if (prune(below, level - 1, number)) {
         destroy(below, level - 1);
         node->clear(digit(number, level));
      }
      return node->used == 0;
   }
   static void destroy(void* at, unsigned level) {
      if (level == 0) {
         Leaf* const leaf = static_cast<Leaf*>(at);
         for (U64 rest = leaf->used; rest != 0; rest &= rest - 1)
            leaf->entry(lowest(rest))->~Entry();
         delete leaf;
      } else {
         Node* const node = static_cast<Node*>(at);
         for (U64 rest = node->used; rest != 0; rest &= rest - 1)
            destroy(node->below[lowest(rest)], level - 1);
         delete node;
      }
   }

   NodePool pool_;
   void* root_ = nullptr;  // a leaf where the height is 0
   unsigned height_ = 0;   // levels above the leaves
   U32 size_ = 0;
   mutable U32 recentBlock_ = 0;
   mutable Leaf* recent_ = nullptr;
};
static_assert(Map<NumberMap<U32, U32>>);

}  // namespace Qor
