// The map of counted objects that hold their own keys. An object has a place in an array as long as
// the map holds the object, and the index of hashes (Qor/HashIndex.h) leads from a key to the place.
//
//  - Iteration is in the order of the places, which depends on the history of insertions and
//    erasures alone. An insertion takes the place that was freed last.
//  - An iterator is a place: it stays valid while the map changes, and steps on to the next place
//    that has an object. A walk in slices keeps the place and resumes with from(place).
//  - A look-up reads cells of the index (8 bytes each, adjacent, mostly one), the pointer in the
//    array, and the key in the object.
#pragma once

#include <cstddef>
#include <functional>
#include <iterator>
#include <optional>
#include <type_traits>
#include <utility>
#include <vector>

#include "Qor/HashIndex.h"
#include "Qor/Map.h"
#include "Qor/Ptr.h"
#include "Qor/TableMemory.h"
#include "Qor/Types.h"

namespace Qor {

// `KeyOf` is the member of T with the key of an object, which never changes: an attribute or an
// accessor. The key can be hashed (Qor/Hash.h).
template <class T, auto KeyOf>
class ObjectMap {
   static constexpr U32 nowhere = HashIndex::nowhere;

 public:
   using Key = std::remove_cvref_t<std::invoke_result_t<decltype(KeyOf), T const&>>;
   using Value = Ptr<T>;
   static constexpr bool ordered = false;
   using Entry = EntryRef<Key, Value>;

   class ConstIterator {
    public:
      using iterator_category = std::input_iterator_tag;
      using value_type = Entry;
      using difference_type = std::ptrdiff_t;
      using pointer = Entry;
      using reference = Entry;

      ConstIterator() = default;
      Entry operator*() const { return entryOf(map_->objects_[place_]); }
      Entry operator->() const { return **this; }
      ConstIterator& operator++() {
         ++place_;
         skipFree();
         return *this;
      }
      U32 place() const { return place_; }
      bool operator==(ConstIterator const& other) const { return place_ == other.place_; }

    private:
      friend class ObjectMap;
      ConstIterator(ObjectMap const* map, U32 place) : map_(map), place_(place) { skipFree(); }
      void skipFree() {
         auto const& objects = map_->objects_;
         while (place_ < objects.size() && !objects[place_])
            ++place_;
         if (place_ >= objects.size()) place_ = nowhere;
      }

      ObjectMap const* map_ = nullptr;
      U32 place_ = nowhere;  // `nowhere` is the end, however the map grows
   };

   ObjectMap() = default;
   ObjectMap(ObjectMap&& other) noexcept { swap(other); }
   ObjectMap& operator=(ObjectMap&& other) noexcept {
      ObjectMap taken(std::move(other));
      swap(taken);
      return *this;
   }

   U32 size() const { return index_.size(); }
   bool empty() const { return size() == 0; }
   ConstIterator begin() const { return from(0); }
   ConstIterator end() const { return {}; }
   // The first object at this place or behind it.
   ConstIterator from(U32 place) const { return {this, place}; }

   std::optional<Entry> find(Key const& key) const {
      U32 const position = locate(key, HashIndex::hash(key));
      if (position == nowhere) return std::nullopt;
      return entryOf(objects_[index_[position]]);
   }
   // The position of the object of `key`; end() without one.
   ConstIterator position(Key const& key) const {
      U32 const position = locate(key, HashIndex::hash(key));
      return {this, position == nowhere ? nowhere : index_[position]};
   }
   // The object of `key`, which make() returns if there was none, and whether it was made.
   template <class Make>
   std::pair<Value const&, bool> findOrMake(Key const& key, Make const& make) {
      U32 const hash = HashIndex::hash(key);
      U32 const position = locate(key, hash);
      if (position != nowhere) return {objects_[index_[position]], false};
      return {enter(hash, make()), true};
   }

   // `value` has the key.
   bool assign(Key const& key, Value& value) {
      U32 const hash = HashIndex::hash(key);
      U32 const position = locate(key, hash);
      if (position != nowhere) return exchangeUnequal(objects_[index_[position]], value);
      enter(hash, std::exchange(value, nullptr));
      return true;
   }

   std::optional<Value> take(Key const& key) {
      U32 const position = locate(key, HashIndex::hash(key));
      if (position == nowhere) return std::nullopt;
      return leave(position);
   }
   // Erases the object and returns true, unless the map has another object of its key, or none.
   bool remove(T const& object) {
      Key const& key = std::invoke(KeyOf, object);
      U32 const position = locate(key, HashIndex::hash(key));
      if (position == nowhere || objects_[index_[position]].get() != &object) return false;
      Value const last = leave(position);
      return true;
   }

   ObjectMap takeAll() { return std::move(*this); }

   // The position counts, not the key.
   ConstIterator resume(ConstIterator at, Key const&) const { return ++at; }

   void swap(ObjectMap& other) noexcept {
      objects_.swap(other.objects_);
      index_.swap(other.index_);
      free_.swap(other.free_);
   }

 private:
   static Entry entryOf(Value const& object) { return {std::invoke(KeyOf, *object.get()), object}; }
   U32 locate(Key const& key, U32 hash) const {
      return index_.locate(
            hash, [&](U32 place) { return std::invoke(KeyOf, *objects_[place].get()) == key; });
   }
   // Removes the object at a position of the index.
   Value leave(U32 position) {
      U32 const place = index_[position];
      index_.vacate(position);
      free_.push_back(place);
      return std::move(objects_[place]);
   }
   // Enters an object whose key is not in the map.
   Value const& enter(U32 hash, Value object) {
      auto place = static_cast<U32>(objects_.size());
      if (free_.empty()) {
         objects_.push_back(std::move(object));
      } else {
         place = free_.back();
         free_.pop_back();
         objects_[place] = std::move(object);
      }
      index_.insert(hash, place);
      return objects_[place];
   }

   std::vector<Value, TableAllocator<Value>> objects_;  // by place; null at a free place
   HashIndex index_;                                    // the places by key
   std::vector<U32> free_;                              // places
};

}  // namespace Qor
