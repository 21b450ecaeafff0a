// Hashing for the framework's maps. A hash is 64 bits inside the maps; value types of the model
// that promise a 32-bit hash() are widened by mixing. Pointers are hashed by address for look-up
// only: the maps iterate in an order that does not depend on it.
#pragma once

#include <concepts>
#include <cstddef>
#include <cstring>
#include <string_view>
#include <type_traits>

#include "Qor/Types.h"

namespace Qor {

// Mixes two words into one: a 64 by 64 bit multiplication folded in half. Every input bit reaches
// the low bits of the result, which is what a power-of-two table needs.
inline U64 hashMix(U64 a, U64 b) {
   __extension__ using U128 = unsigned __int128;
   U128 const product = static_cast<U128>(a ^ 0x9E3779B97F4A7C15u) * (b ^ 0xD6E8FEB86659FD93u);
   return static_cast<U64>(product) ^ static_cast<U64>(product >> 64);
}

inline U64 hashBytes(void const* data, std::size_t size, U64 seed = 0) {
   auto const* p = static_cast<unsigned char const*>(data);
   U64 h = hashMix(seed, size);
   while (size >= 8) {
      U64 word;
      std::memcpy(&word, p, 8);
      h = hashMix(h, word);
      p += 8;
      size -= 8;
   }
   if (size) {
      U64 word = 0;
      std::memcpy(&word, p, size);
      h = hashMix(h, word);
   }
   return h;
}

// The 32-bit form that value types publish as hash().
inline U32 hashFold(U64 h) {
   return static_cast<U32>(h ^ (h >> 32));
}

// The hash of a map's key.
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
      return hashMix(key.hash(), 0);
   } else {
      return hashMix(reinterpret_cast<U64>(key.get()), 0);  // a counted pointer
   }
}

}  // namespace Qor
