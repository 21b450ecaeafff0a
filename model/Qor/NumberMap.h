// The ordered map of the framework for keys that are 32-bit numbers: a radix tree whose lowest
// blocks hold the entries of 16 numbers side by side. A look-up visits one node per six further
// bits of the largest number that the map has held, and compares nothing. If the numbers are dense,
// all nodes stay cached, and a look-up misses the cache for its entry alone. The map suits handles
// and other numbers that a chip assigns, for which Qor::OrderedMap would walk a path of cold nodes.
//
//  - An entry keeps its address until it is erased, and iterators to it stay valid as long.
//  - Iteration is in the order of the numbers. A position that must survive the erasure of its
//    entry is a key: resume with upperBound(key).
//  - The destructor of an erased value may run code that uses the map. Such code finds the map
//    without the entry.
//  - Dense numbers cost one byte more memory than their entries. A number far from all others costs
//    a block of 16 entries, a node of 1032 bytes, and up to four nodes of 520 bytes.
//
// A number may also have a mark, a value of a second type that lies beside its entry. The entry and
// the mark of a number are independent: either may be there alone (Qor/RecordTable.h).
#pragma once

#include <array>
#include <bit>
#include <cstddef>
#include <iterator>
#include <new>
#include <optional>
#include <type_traits>
#include <utility>

#include "Qor/Map.h"
#include "Qor/Pool.h"
#include "Qor/Types.h"

namespace Qor {

struct NoMark {};

// `K` is a U32, or a type whose value() returns its number. With a mark, `V` has a default value.
template <class K, class V, class Mark = NoMark>
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

 private:
   static constexpr bool hasMarks = !std::is_same_v<Mark, NoMark>;

   // The memory of one number. The entry is constructed while the number has an entry or a mark.
   struct RawSlot {
      Entry& entry() { return *std::launder(reinterpret_cast<Entry*>(&storage)); }
      Entry const& entry() const { return const_cast<RawSlot*>(this)->entry(); }
      alignas(Entry) std::byte storage[sizeof(Entry)];
      [[no_unique_address]] Mark mark;
   };  // NOLINTBEGIN(misc-redundant-expression): the sizes of some slots are equal
   static constexpr std::size_t alignment =
         std::has_single_bit(sizeof(RawSlot)) && sizeof(RawSlot) <= cacheLine ? sizeof(RawSlot)
                                                                              : alignof(RawSlot);
   // NOLINTEND(misc-redundant-expression)
 public:
   struct alignas(alignment) Slot : RawSlot {};

 private:
   static constexpr unsigned blockBits = 4;
   static constexpr unsigned nodeBits = 6;
   static constexpr U32 blockSize = 1u << blockBits;
   static constexpr U32 nodeSize = 1u << nodeBits;

   struct Block {
      Slot* slots = nullptr;  // null while no number of the block is in the map
      U16 entries = 0;        // the slots with an entry, and those with a mark, one bit each
      U16 marks = 0;
   };
   using Side = U16 Block::*;
   // A node of the lowest level has blocks as children, the others have nodes. `used` has a bit for
   // each child.
   template <class Child>
   struct NodeOf {
      U64 used = 0;
      std::array<Child, nodeSize> children{};
   };
   using Blocks = NodeOf<Block>;
   using Node = NodeOf<void*>;

   // The child on the path to `number` in a node whose children are `shift` bits apart.
   static unsigned digit(U64 number, unsigned shift) {
      return static_cast<unsigned>(number >> shift) & (nodeSize - 1);
   }
   static unsigned lowest(U64 bits) { return static_cast<unsigned>(std::countr_zero(bits)); }
   // The bits of `bits` from bit `at` on.
   static U64 from(U64 bits, unsigned at) { return bits & (~U64{0} << at); }

 public:
   template <class E>
   class Cursor {
    public:
      using iterator_category = std::forward_iterator_tag;
      using value_type = Entry;
      using difference_type = std::ptrdiff_t;
      using pointer = E*;
      using reference = E&;

      Cursor() = default;
      E& operator*() const { return slot_->entry(); }
      E* operator->() const { return &**this; }
      Cursor& operator++() {
         slot_ = map_->atLeast(&Block::entries, U64{numberOf((*this)->first)} + 1);
         return *this;
      }
      Cursor operator++(int) {
         Cursor const before = *this;
         ++*this;
         return before;
      }
      bool operator==(Cursor const& other) const { return slot_ == other.slot_; }

    private:
      friend class NumberMap;
      Cursor(NumberMap const* map, Slot* slot) : map_(map), slot_(slot) {}

      NumberMap const* map_ = nullptr;
      Slot* slot_ = nullptr;  // null at the end
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
      if (root_) destroy(root_, shift_);
   }

   U32 size() const { return size_; }
   bool empty() const { return size_ == 0; }

   Iterator begin() { return Iterator(this, atLeast(&Block::entries, 0)); }
   Iterator end() { return Iterator(this, nullptr); }
   ConstIterator begin() const { return ConstIterator(this, atLeast(&Block::entries, 0)); }
   ConstIterator end() const { return ConstIterator(this, nullptr); }

   // The entry of `key`, or null.
   Entry* find(K const& key) { return const_cast<Entry*>(std::as_const(*this).find(key)); }
   Entry const* find(K const& key) const {
      Place const place = placeOf(numberOf(key));
      return place.has(&Block::entries) ? &place.slot().entry() : nullptr;
   }

   ConstIterator lowerBound(K const& key) const {
      return ConstIterator(this, atLeast(&Block::entries, numberOf(key)));
   }
   ConstIterator upperBound(K const& key) const {
      return ConstIterator(this, atLeast(&Block::entries, U64{numberOf(key)} + 1));
   }

   // Returns the entry of `key`, made from `value` if there was none, and whether it was made.
   std::pair<Entry*, bool> insert(K key, V value) { return findOrMake(key, value); }

   bool assign(K const& key, V& value) {
      auto const [entry, made] = findOrMake(key, value);
      return made || exchangeUnequal(entry->second, value);
   }

   std::optional<V> take(K const& key) {
      Place const place = placeOf(numberOf(key));
      if (!place.has(&Block::entries)) return std::nullopt;
      place.remove(&Block::entries);
      --size_;
      std::optional<V> value(std::move(place.slot().entry().second));
      release(place);
      return value;
   }

   // Removes all entries and returns an owner of their values. The marks stay; values beside marks
   // are plain and need no owner.
   auto takeAll() {
      if constexpr (hasMarks) {
         static_assert(std::is_trivially_destructible_v<V>);
         Slot* slot = atLeast(&Block::entries, 0);
         for (U64 number = 0; slot; slot = atLeast(&Block::entries, number + 1)) {
            number = numberOf(slot->entry().first);
            take(K(slot->entry().first));
         }
         return NoMark();
      } else {
         return NumberMap(std::move(*this));
      }
   }
   void clear() { takeAll(); }

   ConstIterator resume(ConstIterator, K const& key) const { return upperBound(key); }

   void swap(NumberMap& other) noexcept {
      pool_.swap(other.pool_);
      std::swap(root_, other.root_);
      std::swap(shift_, other.shift_);
      std::swap(limit_, other.limit_);
      std::swap(size_, other.size_);
   }

   // The slot of a number with a mark; null without one.
   Slot* marked(U32 number) const {
      Place const place = placeOf(number);
      return place.has(&Block::marks) ? &place.slot() : nullptr;
   }
   // The first slot with a mark whose number is not less than `number`; null without one.
   Slot* markedAtLeast(U64 number) const { return atLeast(&Block::marks, number); }
   // Gives a mark to `key` unless it has one, or its entry does not satisfy fits(entry). Without an
   // entry, `value` is the value of the slot's entry. Returns whether the mark was given.
   template <class Fits>
   bool mark(K const& key, V const& value, Mark const& mark, Fits const& fits) {
      Place const place = makePlace(numberOf(key));
      if (place.has(&Block::marks)) return false;
      if (!place.has(&Block::entries)) {
         ::new (&place.slot().storage) Entry(key, value);
      } else if (!fits(place.slot().entry())) {
         return false;
      }
      ::new (&place.slot().mark) Mark(mark);
      place.add(&Block::marks);
      return true;
   }
   // Removes the mark of a number if there is one that satisfies goes(slot). Returns whether it was
   // removed.
   template <class Goes>
   bool unmark(U32 number, Goes const& goes) {
      Place const place = placeOf(number);
      if (!place.has(&Block::marks) || !goes(place.slot())) return false;
      place.remove(&Block::marks);
      release(place);
      return true;
   }

 private:
   // Where the slot of a number is: `block` is null if the tree has none.
   struct Place {
      bool has(Side side) const { return block && (block->*side & bit()); }
      void add(Side side) const { block->*side = static_cast<U16>(block->*side | bit()); }
      void remove(Side side) const { block->*side = static_cast<U16>(block->*side & ~bit()); }
      Slot& slot() const { return block->slots[number & (blockSize - 1)]; }
      U32 bit() const { return 1u << (number & (blockSize - 1)); }

      Block* block;
      U32 number;
   };
   [[gnu::always_inline]] Place placeOf(U32 number) const {
      if (number >= limit_) return {nullptr, number};
      void* node = root_;
      for (unsigned shift = shift_; shift > blockBits; shift -= nodeBits) {
         node = static_cast<Node*>(node)->children[digit(number, shift)];
         if (!node) return {nullptr, number};
      }
      return {&static_cast<Blocks*>(node)->children[digit(number, blockBits)], number};
   }
   // As placeOf(); the block has memory for its slots.
   [[gnu::always_inline]] Place makePlace(U32 number) {
      Place const place = placeOf(number);
      return place.block && place.block->slots ? place : Place{growTo(number), number};
   }

   // The entry of `key`, and whether it was made. Moves from `value` only to make the entry.
   std::pair<Entry*, bool> findOrMake(K const& key, V& value) {
      Place const place = makePlace(numberOf(key));
      Slot& slot = place.slot();
      if (place.has(&Block::entries)) return {&slot.entry(), false};
      if (hasMarks && place.has(&Block::marks)) {
         slot.entry().second = std::move(value);
      } else {
         ::new (&slot.storage) Entry(key, std::move(value));
      }
      place.add(&Block::entries);
      ++size_;
      return {&slot.entry(), true};
   }

   // The first slot of a side whose number is not less than `number`, or null.
   Slot* atLeast(Side side, U64 number) const {
      return number < limit_ ? atLeast(side, root_, shift_, number) : nullptr;
   }
   static Slot* atLeast(Side side, void* at, unsigned shift, U64 number) {
      unsigned const first = digit(number, shift);
      if (shift == blockBits) {
         auto& blocks = *static_cast<Blocks*>(at);
         for (U64 rest = from(blocks.used, first); rest != 0; rest &= rest - 1) {
            Block const& block = blocks.children[lowest(rest)];
            unsigned const slot = lowest(rest) == first ? number & (blockSize - 1) : 0;
            if (U64 const found = from(block.*side, slot)) return &block.slots[lowest(found)];
         }
         return nullptr;
      }
      auto const& node = *static_cast<Node*>(at);
      for (U64 rest = from(node.used, first); rest != 0; rest &= rest - 1) {
         U64 const within = lowest(rest) == first ? number : 0;
         Slot* const found = atLeast(side, node.children[lowest(rest)], shift - nodeBits, within);
         if (found) return found;
      }
      return nullptr;
   }

   // Makes the nodes on the path to `number`, and its block with memory for the slots.
   [[gnu::noinline]] Block* growTo(U32 number) {
      if (!root_) {
         root_ = new Blocks;
         limit_ = U64{1} << (shift_ + nodeBits);
      }
      for (; number >= limit_; limit_ <<= nodeBits) {
         Node* const above = new Node;
         above->children[0] = root_;
         above->used = 1;
         root_ = above;
         shift_ += nodeBits;
      }
      void* at = root_;
      for (unsigned shift = shift_; shift > blockBits; shift -= nodeBits) {
         Node& node = *static_cast<Node*>(at);
         void*& child = node.children[digit(number, shift)];
         if (!child) {
            child = shift > blockBits + nodeBits ? static_cast<void*>(new Node) : new Blocks;
            node.used |= U64{1} << digit(number, shift);
         }
         at = child;
      }
      Blocks& blocks = *static_cast<Blocks*>(at);
      Block& block = blocks.children[digit(number, blockBits)];
      block.slots = static_cast<Slot*>(pool_.allocate(sizeof(Slot) * blockSize));
      blocks.used |= U64{1} << digit(number, blockBits);
      return &block;
   }

   // Frees the slot of a number that has neither an entry nor a mark any more.
   void release(Place const& place) {
      Block const& block = *place.block;
      if ((block.entries | block.marks) & place.bit()) return;
      place.slot().entry().~Entry();
      if (!(block.entries | block.marks)) [[unlikely]] {
         prune(root_, shift_, place.number);
      }
   }
   // Frees the slots of an empty block and the nodes on its path that have become empty, but not
   // `at` itself, so that the root stays. Returns whether `at` is empty.
   [[gnu::noinline]] bool prune(void* at, unsigned shift, U32 number) {
      unsigned const child = digit(number, shift);
      if (shift == blockBits) {
         auto& blocks = *static_cast<Blocks*>(at);
         pool_.deallocate(std::exchange(blocks.children[child].slots, nullptr),
                          sizeof(Slot) * blockSize);
         return (blocks.used &= ~(U64{1} << child)) == 0;
      }
      auto& node = *static_cast<Node*>(at);
      if (prune(node.children[child], shift - nodeBits, number)) {
         destroy(std::exchange(node.children[child], nullptr), shift - nodeBits);
         node.used &= ~(U64{1} << child);
      }
      return node.used == 0;
   }
   static void destroy(void* at, unsigned shift) {
      if (shift == blockBits) {
         auto* const blocks = static_cast<Blocks*>(at);
         for (U64 rest = blocks->used; rest != 0; rest &= rest - 1) {
            Block const& block = blocks->children[lowest(rest)];
            for (U64 live = block.entries | block.marks; live != 0; live &= live - 1)
               block.slots[lowest(live)].entry().~Entry();
         }
         delete blocks;
      } else {
         auto* const node = static_cast<Node*>(at);
         for (U64 rest = node->used; rest != 0; rest &= rest - 1)
            destroy(node->children[lowest(rest)], shift - nodeBits);
         delete node;
      }
   }

   NodePool pool_;  // the slots of the blocks
   void* root_ = nullptr;
   U64 limit_ = 0;               // of the numbers that the tree is high enough for
   unsigned shift_ = blockBits;  // of the root
   U32 size_ = 0;                // entries
};
static_assert(Map<NumberMap<U32, U32>>);

}  // namespace Qor
