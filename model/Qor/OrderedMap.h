// The ordered map of the framework: a red-black tree whose nodes come from a pool that the map
// owns.
//
//  - An entry keeps its address until it is erased, and iterators to it stay valid as long.
//  - Iteration is in the order of the keys. A position that must survive the erasure of its entry
//    is a key: resume with upperBound(key).
//  - The destructor of an erased key or value may run code that uses the map. Such code finds the
//    map without the entry.
#pragma once

#include <algorithm>
#include <cstddef>
#include <iterator>
#include <map>
#include <memory>
#include <optional>
#include <utility>

#include "Qor/Map.h"
#include "Qor/Pool.h"
#include "Qor/Types.h"

namespace Qor {

// Lets the tree take its nodes from a pool. Allocates one object at a time.
template <class T>
struct PoolAllocator {
   using value_type = T;
   using propagate_on_container_move_assignment = std::true_type;
   using propagate_on_container_swap = std::true_type;
   static_assert(alignof(T) <= __STDCPP_DEFAULT_NEW_ALIGNMENT__);

   explicit PoolAllocator(NodePool* p) : pool(p) {}
   template <class U>
   PoolAllocator(PoolAllocator<U> const& other) : pool(other.pool) {}

   T* allocate(std::size_t) { return static_cast<T*>(pool->allocate(sizeof(T))); }
   void deallocate(T* memory, std::size_t) { pool->deallocate(memory, sizeof(T)); }
   bool operator==(PoolAllocator const& other) const { return pool == other.pool; }

   NodePool* pool;
};

template <class K, class V>
class OrderedMap {
   using Tree = std::map<K, V, std::less<K>, PoolAllocator<std::pair<K const, V>>>;

 public:
   using Key = K;
   using Value = V;
   using Entry = std::pair<K const, V>;
   static constexpr bool ordered = true;
   using Iterator = typename Tree::iterator;
   using ConstIterator = typename Tree::const_iterator;

   OrderedMap() = default;
   OrderedMap(OrderedMap&& other) noexcept { swap(other); }
   OrderedMap& operator=(OrderedMap&& other) noexcept {
      OrderedMap taken(std::move(other));
      swap(taken);
      return *this;
   }

   U32 size() const { return static_cast<U32>(tree_.size()); }
   // A number that changes with each insertion, erasure, clear() and swap(). While it is unchanged,
   // all iterators are valid and have the same neighbours.
   U64 changes() const { return changes_; }
   bool empty() const { return tree_.empty(); }

   Iterator begin() { return tree_.begin(); }
   Iterator end() { return tree_.end(); }
   ConstIterator begin() const { return tree_.begin(); }
   ConstIterator end() const { return tree_.end(); }

   // The entry of `key`, or null.
   Entry* find(K const& key) { return const_cast<Entry*>(std::as_const(*this).find(key)); }
   Entry const* find(K const& key) const {
      auto const it = tree_.find(key);
      return it == tree_.end() ? nullptr : &*it;
   }

   ConstIterator lowerBound(K const& key) const { return tree_.lower_bound(key); }
   ConstIterator upperBound(K const& key) const { return tree_.upper_bound(key); }

   // Returns the entry of `key`, made from `value` if there was none, and whether it was made.
   std::pair<Entry*, bool> insert(K key, V value) { return findOrMake(std::move(key), value); }

   bool assign(K const& key, V& value) {
      auto const [entry, made] = findOrMake(key, value);
      return made || exchangeUnequal(entry->second, value);
   }

   std::optional<V> take(K const& key) {
      auto const it = tree_.find(key);
      if (it == tree_.end()) return std::nullopt;
      auto node = tree_.extract(it);
      ++changes_;
      return std::optional<V>(std::move(node.mapped()));
   }

   OrderedMap takeAll() { return std::move(*this); }
   void clear() { takeAll(); }

   ConstIterator resume(ConstIterator, K const& key) const { return upperBound(key); }

   void swap(OrderedMap& other) noexcept {
      pool_.swap(other.pool_);
      tree_.swap(other.tree_);
      changes_ = other.changes_ = std::max(changes_, other.changes_) + 1;
   }

 private:
   // The entry of `key`, and whether it was made. Moves from `value` only to make the entry.
   template <class L>
   std::pair<Entry*, bool> findOrMake(L&& key, V& value) {
      // Keys often arrive in their order. Such a key is appended without a walk down the tree.
      if (tree_.empty() || std::prev(tree_.end())->first < key) {
         ++changes_;
         return {&*tree_.try_emplace(tree_.end(), std::forward<L>(key), std::move(value)), true};
      }
      auto const [it, made] = tree_.try_emplace(std::forward<L>(key), std::move(value));
      changes_ += made;
      return {&*it, made};
   }

   std::unique_ptr<NodePool> pool_ = std::make_unique<NodePool>();
   Tree tree_{PoolAllocator<Entry>(pool_.get())};
   U64 changes_ = 0;
};
static_assert(Map<OrderedMap<U32, U32>>);

}  // namespace Qor
