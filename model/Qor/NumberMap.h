// The ordered map of the framework for keys that are 32-bit numbers, as a platform's handles are: a
// radix tree of six bits a level over a pool of entries. Looking a number up costs one node for
// each six bits of the largest number there is, and no comparison; where the numbers are dense, all
// but the last node are in the cache. So it is the map for handles and other numbers that a chip
// gives out, in which Qor::OrderedMap would walk a path of cold nodes.
//
//  - An entry keeps its address until it is erased, and iterators to it stay valid as long.
//  - Iteration is in the order of the numbers. A position that must survive its entry is a key:
//    resume with upperBound(key).
//  - Letting go of a value may run code that comes back here: it finds the map without the entry.
//  - Dense numbers cost 8 bytes each beside the entry; a number far from all others costs a node of
//    520 bytes, or a few.
#pragma once

#include <array>
#include <bit>
#include <cstddef>
#include <iterator>
#include <memory>
#include <new>
#include <optional>
#include <utility>

#include "Qor/Pool.h"
#include "Qor/Types.h"

namespace Qor {

// `K` has value(), its number.
template <class K, class V>
class NumberMap {
 public:
   using Key = K;
   using Value = V;
   using Entry = std::pair<K const, V>;

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
         entry_ = map_->atLeast(U64{entry_->first.value()} + 1);
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

   Entry* find(K const& key) { return const_cast<Entry*>(std::as_const(*this).find(key)); }
   Entry const* find(K const& key) const {
      U32 const number = key.value();
      if (!covers(number)) return nullptr;
      Node const* node = root_;
      for (unsigned level = height_; level > 0; --level) {
         node = node->child(digit(number, level));
         if (!node) return nullptr;
      }
      return node->entry(digit(number, 0));
   }

   // The first entry with a key not before / strictly behind `key`.
   ConstIterator lowerBound(K const& key) const {
      return ConstIterator(this, atLeast(key.value()));
   }
   ConstIterator upperBound(K const& key) const {
      return ConstIterator(this, atLeast(U64{key.value()} + 1));
   }

   // The entry under `key`, made from `value` if there was none; and whether it was made.
   std::pair<Entry*, bool> insert(K key, V value) {
      U32 const number = key.value();
      if (!root_) root_ = new Node;
      while (!covers(number)) {
         Node* const above = new Node;
         above->set(0, root_);
         root_ = above;
         ++height_;
      }
      Node* node = root_;
      for (unsigned level = height_; level > 0; --level) {
         unsigned const at = digit(number, level);
         if (!node->child(at)) node->set(at, new Node);
         node = node->child(at);
      }
      unsigned const at = digit(number, 0);
      if (Entry* const present = node->entry(at)) return {present, false};
      Entry* const made =
            ::new (pool_.allocate(sizeof(Entry))) Entry(std::move(key), std::move(value));
      node->set(at, made);
      ++size_;
      return {made, true};
   }

   // Erases the entry and hands out its value, so that the caller decides when the value dies.
   std::optional<V> take(K const& key) {
      U32 const number = key.value();
      if (!covers(number)) return std::nullopt;
      std::array<Node*, maxHeight + 1> path;
      path[height_] = root_;
      for (unsigned level = height_; level > 0; --level) {
         path[level - 1] = path[level]->child(digit(number, level));
         if (!path[level - 1]) return std::nullopt;
      }
      Entry* const entry = path[0]->entry(digit(number, 0));
      if (!entry) return std::nullopt;
      --size_;
      // Nodes that are empty now go; the root stays.
      path[0]->clear(digit(number, 0));
      for (unsigned level = 0; level < height_ && path[level]->used == 0; ++level) {
         delete path[level];
         path[level + 1]->clear(digit(number, level + 1));
      }
      std::optional<V> value(std::move(entry->second));
      entry->~Entry();
      pool_.deallocate(entry);
      return value;
   }

   void clear() { NumberMap const gone(std::move(*this)); }

   void swap(NumberMap& other) noexcept {
      std::swap(pool_, other.pool_);
      std::swap(root_, other.root_);
      std::swap(height_, other.height_);
      std::swap(size_, other.size_);
   }

 private:
   static constexpr unsigned bits = 6;
   static constexpr unsigned maxHeight = 31 / bits;

   // Nodes below, or entries in a node of level 0; which of them are there is in `used`.
   struct Node {
      U64 used = 0;
      std::array<void*, 1u << bits> below{};

      Node* child(unsigned at) const { return static_cast<Node*>(below[at]); }
      Entry* entry(unsigned at) const { return static_cast<Entry*>(below[at]); }
      void set(unsigned at, void* to) {
         below[at] = to;
         used |= U64{1} << at;
      }
      void clear(unsigned at) {
         below[at] = nullptr;
         used &= ~(U64{1} << at);
      }
      // Those in use from `at` on, which may be one more than there are.
      U64 usedFrom(unsigned at) const { return at >> bits ? 0 : used & (~U64{0} << at); }
   };

   static unsigned digit(U64 number, unsigned level) {
      return static_cast<unsigned>(number >> (bits * level)) & ((1u << bits) - 1);
   }
   // Whether the tree is high enough for the number.
   bool covers(U64 number) const { return root_ && number >> (bits * (height_ + 1)) == 0; }

   // The entry with the lowest number from `number` on, or null.
   Entry* atLeast(U64 number) const {
      return covers(number) ? atLeast(root_, height_, number) : nullptr;
   }
   static Entry* atLeast(Node const* node, unsigned level, U64 number) {
      unsigned const at = digit(number, level);
      if (level == 0) {
         U64 const rest = node->usedFrom(at);
         return rest ? node->entry(static_cast<unsigned>(std::countr_zero(rest))) : nullptr;
      }
      if (Node const* const same = node->child(at)) {
         if (Entry* const found = atLeast(same, level - 1, number)) return found;
      }
      U64 const rest = node->usedFrom(at + 1);
      if (!rest) return nullptr;
      return atLeast(node->child(static_cast<unsigned>(std::countr_zero(rest))), level - 1, 0);
   }

   static void destroy(Node* node, unsigned level) {
      for (U64 rest = node->used; rest != 0; rest &= rest - 1) {
         auto const at = static_cast<unsigned>(std::countr_zero(rest));
         if (level == 0) {
            node->entry(at)->~Entry();
         } else {
            destroy(node->child(at), level - 1);
         }
      }
      delete node;
   }

   NodePool pool_;
   Node* root_ = nullptr;
   unsigned height_ = 0;  // levels above the lowest
   U32 size_ = 0;
};

}  // namespace Qor
