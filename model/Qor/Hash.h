// Hash functions for the keys of the framework's maps. hashOf() computes 64 bits, and the index of
// a map folds them to the 32 bits that its cells hold (Qor/HashIndex.h). A pointer is hashed by its
// address; this affects look-up alone, since no map iterates in the order of hashes.
#pragma once

#include <concepts>
#include <cstddef>
#include <cstring>
#include <string_view>
#include <type_traits>

#include "Qor/Types.h"

namespace Qor {

// Mixes two words into one: their product of 128 bits, folded in half. Every bit of both words
// affects the low bits of the result, which select the cell in a table of a power-of-two size.
inline U64 hashMix(U64 a, U64 b) {
   __extension__ using U128 = unsigned __int128;
   U128 const product = static_cast<U128>(a ^ 0x9E3779B97F4A7C15u) * (b ^ 0xD6E8FEB86659FD93u);
   return static_cast<U64>(product) ^ static_cast<U64>(product >> 64);
}

// The hash of `size` bytes at `data`. `seed` is hashed too, such as another part of the key. Each
// product takes in two words, because the products wait for one another.
inline U64 hashBytes(void const* data, std::size_t size, U64 seed = 0) {
   auto const* p = static_cast<unsigned char const*>(data);
   auto const next = [&](std::size_t bytes) {
      U64 word = 0;
      std::memcpy(&word, p, bytes);
      p += bytes;
      size -= bytes;
      return word;
   };
   U64 h = (seed + size) * 0xA0761D6478BD642Fu;
   while (size >= 16) {
      U64 const first = next(8);
      h = hashMix(first, next(8) ^ h);
   }
   if (size >= 8) h = hashMix(next(8), h);
   return hashMix(size ? next(size) : 0, h);
}

// A 64-bit hash folded to 32 bits: the result type of hash() of the value types.
inline U32 hashFold(U64 h) {
   return static_cast<U32>(h ^ (h >> 32));
}

// The hash of a map's key: a number, an enumerator, a pointer, a text, a value type whose hash() is
// well mixed, or a counted pointer, which is hashed by its address as a plain pointer is.
template <class K>
U64 hashOf(K const& key) {
   if constexpr (std::is_enum_v<K> || std::is_integral_v<K>) {
      return hashMix(static_cast<U64>(key), 0);
   } else if constexpr (std::is_pointer_v<K>) {
      return hashMix(reinterpret_cast<U64>(key), 0);
   } else if constexpr (std::convertible_to<K const&, std::string_view>) {
      std::string_view const text(key);
      return hashBytes(text.data(), text.size());
   } else if constexpr (requires {
                           { key.hash() } -> std::convertible_to<U64>;
                        }) {
      return key.hash();
   } else {
      return hashMix(reinterpret_cast<U64>(key.get()), 0);
   }
}

}  // namespace Qor
