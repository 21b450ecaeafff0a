// The concept of a map: all that a collection (Qor/Collection.h, Qor/TwoWayCollection.h) and the
// description of a type (Qor/Describe.h) need of the map behind them. Each map of the framework
// asserts the concept beside its definition and documents the promises of its own: HashMap.h,
// OrderedMap.h, NumberMap.h, ObjectMap.h, QueueMap.h, RecordIndex.h, RecordTable.h.
//
//  - ordered: whether iteration is in the order of the keys. The map then has lowerBound(key) and
//    upperBound(key): the first entry with a key not less than `key`, or greater than it; else
//    end().
//  - find(key): a pointer to the entry, null without one, or an optional entry. Callers test both
//    and read both alike: entry->first, entry->second.
//  - assign(key, value): inserts an entry or replaces the value of the present one, and returns
//    true. The value is moved into the map, and `value` then holds the replaced value, if any. If
//    the map holds an equal value already, nothing changes and the result is false.
//  - take(key): erases the entry and returns its value, or nothing without an entry.
//  - takeAll(): erases all entries and returns an owner of their values.
//  - resume(at, key): the entry at which a walk continues after the entry at `at`, under `key`, was
//    erased. Further changes of the map between the erasure and the call do no harm.
//
// No operation destroys a value that leaves the map: a collection notifies first and then releases
// the value.
//
// Two classes with similar names are no such maps. MrouteLib::FlatFlagMap is a plain value: no
// collection has it, and each change ends its iterators. Qor::TwoWayCollection is a collection
// and has two maps.
#pragma once

#include <concepts>
#include <optional>
#include <type_traits>
#include <utility>

#include "Qor/Types.h"

namespace Qor {

// A result of find().
template <class F, class Entry>
concept FoundEntry = std::same_as<F, Entry const*> || std::same_as<F, std::optional<Entry>>;

// A result of find(), or an iterator.
template <class At, class M>
concept ShowsEntryOf = requires(At const at) {
   { at->first } -> std::same_as<typename M::Key const&>;
   { at->second } -> std::same_as<typename M::Value const&>;
};

// An ordered map.
template <class M>
concept HasBounds = requires(M const map, typename M::Key const key) {
   { map.lowerBound(key) } -> std::same_as<typename M::ConstIterator>;
   { map.upperBound(key) } -> std::same_as<typename M::ConstIterator>;
};

template <class M>
concept Map = requires(M map, M const read, typename M::Key const key, typename M::Value value,
                       typename M::ConstIterator at) {
   typename std::bool_constant<M::ordered>;
   requires !M::ordered || HasBounds<M>;
   { read.size() } -> std::same_as<U32>;
   { read.empty() } -> std::same_as<bool>;
   { read.begin() } -> std::same_as<typename M::ConstIterator>;
   { read.end() } -> std::same_as<typename M::ConstIterator>;
   { ++at } -> std::same_as<typename M::ConstIterator&>;
   { at == read.end() } -> std::same_as<bool>;
   requires ShowsEntryOf<typename M::ConstIterator, M>;
   { read.find(key) } -> FoundEntry<typename M::Entry>;
   { read.find(key) } -> ShowsEntryOf<M>;
   { map.assign(key, value) } -> std::same_as<bool>;
   { map.take(key) } -> std::same_as<std::optional<typename M::Value>>;
   { map.takeAll() } -> std::destructible;
   { read.resume(at, key) } -> std::same_as<typename M::ConstIterator>;
};

// References to the key and the value of an entry that a map does not keep as a pair.
template <class K, class V>
struct EntryRef {
   K const& first;
   V const& second;
   EntryRef const* operator->() const { return this; }
};

// The part of assign() for a present value.
template <class V>
bool exchangeUnequal(V& present, V& value) {
   if (present == value) return false;
   std::swap(present, value);
   return true;
}

}  // namespace Qor
