// The key of a multicast route: a source prefix and a group prefix of one address family. A key is
// 40 bytes in five aligned words, and compares and hashes as raw bytes: by source (family, address,
// length), then by group likewise. A default-constructed key is the invalid key, of two null
// prefixes.
#pragma once

#include <array>
#include <bit>
#include <compare>
#include <cstring>
#include <ostream>
#include <type_traits>

#include "Lnet/IpGenPrefix.h"
#include "Routing/Multicast/Fib/RouteKeyType.h"

namespace Routing::Multicast::Fib {

class QOR_PUBLIC IpGenRouteKey final {
 public:
   // The results of kind(). The numbers are fixed, since the programmers treat 2 specially.
   static constexpr Qor::U32 kindInvalid = 0;
   static constexpr Qor::U32 kindGroupRange = 1;   // a range of groups, except the catch-all
   static constexpr Qor::U32 kindCatchAll = 2;     // any source, the whole multicast range
   static constexpr Qor::U32 kindSourceGroup = 3;  // (S,G): one group, from an address or a range
   static constexpr Qor::U32 kindStarGroup = 4;    // (*,G): one group, from any source

   constexpr IpGenRouteKey() = default;
   // Prefixes of two families raise RangeException "IpGenRouteKey::source and group of different
   // families not allowed". The group may be no multicast address: the reader of an input checks
   // that.
   constexpr IpGenRouteKey(Lnet::IpGenPrefix const& source, Lnet::IpGenPrefix const& group)
         : source_(source), group_(group) {
      if (source.family() != group.family()) throwFamilies();
   }
   // The parsing constructor, for a text that strep() returned.
   explicit IpGenRouteKey(Qor::String const& strep);

   // The key of one group; an unspecified source (0.0.0.0 or ::) stands for any source.
   static constexpr IpGenRouteKey fromAddresses(Lnet::IpGenAddr const& source,
                                                Lnet::IpGenAddr const& group) {
      return IpGenRouteKey(source.isUnspecified() ? Lnet::IpGenPrefix::any(source.family())
                                                  : Lnet::IpGenPrefix::host(source),
                           Lnet::IpGenPrefix::host(group));
   }

   constexpr Lnet::IpGenPrefix const& source() const { return source_; }
   constexpr Lnet::IpGenPrefix const& group() const { return group_; }
   constexpr bool isNull() const { return group_.isNull(); }
   constexpr Qor::U32 kind() const {
      if (isNull()) return kindInvalid;
      if (group_.isHost()) return source_.isAny() ? kindStarGroup : kindSourceGroup;
      bool const allGroups = group_ == Lnet::IpGenPrefix::multicast(group_.family());
      return source_.isAny() && allGroups ? kindCatchAll : kindGroupRange;
   }

   // "(10.0.0.2, 239.10.0.7)", "(*, 239.10.0.7)", "(*, 239.0.0.0/8)"; "(invalid)". The stream
   // output is the same.
   Qor::String pretty() const;
   Qor::U32 hash() const { return Qor::hashFold(Qor::hashBytes(this, sizeof *this)); }
   Qor::String strep() const;
   static IpGenRouteKey fromStrep(Qor::StrepReader& reader);

   friend constexpr bool operator==(IpGenRouteKey const& a, IpGenRouteKey const& b) {
      return ((a.word(0) ^ b.word(0)) | (a.word(1) ^ b.word(1)) | (a.word(2) ^ b.word(2)) |
              (a.word(3) ^ b.word(3)) | (a.word(4) ^ b.word(4))) == 0;
   }
   friend constexpr std::strong_ordering operator<=>(IpGenRouteKey const& a,
                                                     IpGenRouteKey const& b) {
      for (std::size_t i = 0; i < wordCount; ++i) {
         Qor::U64 const x = a.word(i);
         Qor::U64 const y = b.word(i);
         if (x != y) return bigEndian(x) <=> bigEndian(y);
      }
      return std::strong_ordering::equal;
   }
   friend std::ostream& operator<<(std::ostream& out, IpGenRouteKey const& key) {
      return out << key.pretty();
   }

 private:
   static constexpr std::size_t wordCount = 5;

   // The i-th eight bytes in memory. At run time each word is loaded on its own, since the compiler
   // copies the whole key for a bit_cast.
   constexpr Qor::U64 word(std::size_t i) const {
      if (std::is_constant_evaluated()) {
         return std::bit_cast<std::array<Qor::U64, wordCount>>(*this)[i];
      }
      Qor::U64 out;
      std::memcpy(&out, reinterpret_cast<char const*>(this) + 8 * i, 8);
      return out;
   }
   static constexpr Qor::U64 bigEndian(Qor::U64 word) {
      return std::endian::native == std::endian::little ? __builtin_bswap64(word) : word;
   }
   [[noreturn]] static void throwFamilies();

   alignas(8) Lnet::IpGenPrefix source_;  // aligned, for the five aligned words of the key
   Lnet::IpGenPrefix group_;
};

static_assert(sizeof(IpGenRouteKey) == 40 && std::is_trivially_copyable_v<IpGenRouteKey> &&
              std::has_unique_object_representations_v<IpGenRouteKey>);

constexpr IpGenRouteKey invalidRouteKey() {
   return IpGenRouteKey();
}

// The key under which the programmers record the catch-all routes of both families:
// (0.0.0.0/0, 224.0.0.0/4).
constexpr IpGenRouteKey canonicalCatchAllKey() {
   return IpGenRouteKey(Lnet::IpGenPrefix::any(Lnet::IpFamily::v4),
                        Lnet::IpGenPrefix::multicast(Lnet::IpFamily::v4));
}

// The type of the port/vlan set of a routed entry with this key. The maker of a set of a bridged
// entry, or of a set that stays out of the hardware, chooses the type, since it does not follow
// from the key.
constexpr RouteKeyType routeKeyType(IpGenRouteKey const& key) {
   switch (key.kind()) {
      case IpGenRouteKey::kindGroupRange:
         return RouteKeyType::groupRange;
      case IpGenRouteKey::kindCatchAll:
         return RouteKeyType::catchAll;
      case IpGenRouteKey::kindSourceGroup:
      case IpGenRouteKey::kindStarGroup:
         return RouteKeyType::routed;
      default:
         return RouteKeyType::invalid;
   }
}

}  // namespace Routing::Multicast::Fib
