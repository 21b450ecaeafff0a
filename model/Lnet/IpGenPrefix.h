// An IP prefix of either version: an address and the number of its leading bits that matter. A
// prefix is 20 bytes (family, 16 address bytes, length, two zero bytes), is trivially copyable, and
// compares and hashes as raw bytes: by family, then address, then length.
//
// A default-constructed prefix is the null prefix, which has no family, prints as "" and contains
// no address.
#pragma once

#include <array>
#include <compare>
#include <cstdint>
#include <optional>
#include <ostream>
#include <string_view>
#include <type_traits>

#include "Lnet/IpGenAddr.h"

namespace Lnet {

class QOR_PUBLIC IpGenPrefix final {
 public:
   constexpr IpGenPrefix() = default;

   // Raises RangeException for a length above the width of the address, and for a bit set beyond
   // the length:
   //    "IpGenPrefix::length > 32 not allowed"   (128 for IPv6, 0 for the null address)
   //    "IpGenPrefix::address 10.0.0.1 has bits set beyond length 8"
   constexpr IpGenPrefix(IpGenAddr const& address, unsigned length)
         : address_(address), length_(static_cast<std::uint8_t>(length)) {
      if (length > address.bitWidth()) throwLength(address.bitWidth());
      if (address.masked(length) != address) throwHostBits(address, length);
   }
   // The parsing constructor, for the quoted text of the prefix; '' is the null prefix.
   explicit IpGenPrefix(Qor::String const& strep);

   // The prefix of this one address.
   static constexpr IpGenPrefix host(IpGenAddr const& address) {
      return IpGenPrefix(address, address.bitWidth());
   }
   // The prefix of all addresses of the family: 0.0.0.0/0 or ::/0.
   static constexpr IpGenPrefix any(IpFamily family) {
      return family == IpFamily::v4   ? IpGenPrefix(IpGenAddr::v4(0), 0)
             : family == IpFamily::v6 ? IpGenPrefix(IpGenAddr::v6({}), 0)
                                      : IpGenPrefix();
   }
   // The prefix of all multicast addresses of the family: 224.0.0.0/4 or ff00::/8.
   static constexpr IpGenPrefix multicast(IpFamily family) {
      return family == IpFamily::v4   ? IpGenPrefix(IpGenAddr::v4(0xe0000000), 4)
             : family == IpFamily::v6 ? IpGenPrefix(IpGenAddr::v6({0xff}), 8)
                                      : IpGenPrefix();
   }

   // Parses an address, or an address, "/" and a length without leading zeros. Any other text gives
   // nullopt, and so does a prefix for which the constructor raises an error.
   static std::optional<IpGenPrefix> parse(std::string_view text);

   constexpr IpGenAddr const& address() const { return address_; }
   constexpr unsigned length() const { return length_; }
   constexpr IpFamily family() const { return address_.family(); }
   constexpr bool isNull() const { return address_.isNull(); }
   constexpr bool isHost() const { return !isNull() && length_ == address_.bitWidth(); }
   // Whether this is the prefix of all addresses of its family.
   constexpr bool isAny() const { return !isNull() && length_ == 0; }
   constexpr bool contains(IpGenAddr const& address) const {
      return !isNull() && address.masked(length_) == address_;
   }

   // "10.0.0.0/8"; the text of a host prefix is that of its address.
   Qor::String toString() const;
   Qor::U32 hash() const { return Qor::hashFold(Qor::hashBytes(this, sizeof *this)); }
   Qor::String strep() const { return Qor::quotedStrep(toString()); }
   static IpGenPrefix fromStrep(Qor::StrepReader& reader);

   friend constexpr bool operator==(IpGenPrefix const&, IpGenPrefix const&) = default;
   friend constexpr std::strong_ordering operator<=>(IpGenPrefix const&,
                                                     IpGenPrefix const&) = default;
   friend std::ostream& operator<<(std::ostream& out, IpGenPrefix const& p) {
      return out << p.toString();
   }

 private:
   [[noreturn]] static void throwLength(unsigned width);
   [[noreturn]] static void throwHostBits(IpGenAddr const& address, unsigned length);

   IpGenAddr address_;
   std::uint8_t length_ = 0;
   std::array<std::uint8_t, 2> zero_{};
};

static_assert(sizeof(IpGenPrefix) == 20 && std::is_trivially_copyable_v<IpGenPrefix> &&
              std::has_unique_object_representations_v<IpGenPrefix>);

}  // namespace Lnet
