// An IP address of either version: 17 bytes without padding, which compare and hash as raw bytes.
// The first byte is the family. The others are the address in network order; an IPv4 address is in
// the first four of them, and the rest are zero. The order is IPv4 before IPv6, then numeric.
//
// A default-constructed address is the null address, which has no family and prints as "".
#pragma once

#include <array>
#include <compare>
#include <cstdint>
#include <optional>
#include <ostream>
#include <string_view>

#include "Qor/Export.h"
#include "Qor/Hash.h"
#include "Qor/Strep.h"

namespace Lnet {

enum class IpFamily : std::uint8_t { none = 0, v4 = 4, v6 = 6 };

class QOR_PUBLIC IpGenAddr final {
 public:
   using Bytes = std::array<std::uint8_t, 16>;

   constexpr IpGenAddr() = default;
   // The first octet of the address is the most significant byte of `number`.
   static constexpr IpGenAddr v4(Qor::U32 number) {
      return IpGenAddr(
            IpFamily::v4,
            {static_cast<std::uint8_t>(number >> 24), static_cast<std::uint8_t>(number >> 16),
             static_cast<std::uint8_t>(number >> 8), static_cast<std::uint8_t>(number)});
   }
   static constexpr IpGenAddr v6(Bytes const& bytes) { return IpGenAddr(IpFamily::v6, bytes); }

   // Parses a dotted quad (four decimal octets without leading zeros) or an IPv6 text. A group of
   // an IPv6 text has one to four hexadecimal digits; "::" may stand once for one or more groups of
   // zeros; a dotted quad may stand for the last two groups. Any other text, with a zone or a port
   // too, gives nullopt.
   static std::optional<IpGenAddr> parse(std::string_view text);

   // The parsing constructor, for the quoted text of the address; '' is the null address.
   explicit IpGenAddr(Qor::String const& strep);

   constexpr IpFamily family() const { return family_; }
   constexpr bool isNull() const { return family_ == IpFamily::none; }
   constexpr bool isV4() const { return family_ == IpFamily::v4; }
   constexpr bool isV6() const { return family_ == IpFamily::v6; }
   // Whether the address is in 224.0.0.0/4 or ff00::/8.
   constexpr bool isMulticast() const {
      return isV4() ? (bytes_[0] & 0xf0) == 0xe0 : isV6() && bytes_[0] == 0xff;
   }
   // True for 0.0.0.0 and ::, false for the null address.
   constexpr bool isUnspecified() const { return !isNull() && bytes_ == Bytes{}; }
   constexpr Bytes const& bytes() const { return bytes_; }
   // In bits: 32, 128, or 0 for the null address.
   constexpr unsigned bitWidth() const { return isV4() ? 32 : isV6() ? 128 : 0; }
   // The address with all bits beyond the first `length` cleared.
   constexpr IpGenAddr masked(unsigned length) const {
      Bytes out{};
      for (unsigned i = 0; i < out.size() && i * 8 < length; ++i) {
         unsigned const bits = length - i * 8;
         out[i] = bits >= 8 ? bytes_[i] : static_cast<std::uint8_t>(bytes_[i] & (0xff00 >> bits));
      }
      return IpGenAddr(family_, out);
   }

   // The text of an IPv6 address is in the form of RFC 5952: lower case, no leading zeros, "::" for
   // the first of the longest runs of two or more zero groups, and a dotted quad in an IPv4-mapped
   // address.
   Qor::String toString() const;
   Qor::U32 hash() const { return Qor::hashFold(Qor::hashBytes(this, sizeof *this)); }
   Qor::String strep() const { return Qor::quotedStrep(toString()); }
   static IpGenAddr fromStrep(Qor::StrepReader& reader);

   friend constexpr bool operator==(IpGenAddr const&, IpGenAddr const&) = default;
   friend constexpr std::strong_ordering operator<=>(IpGenAddr const&, IpGenAddr const&) = default;
   friend std::ostream& operator<<(std::ostream& out, IpGenAddr const& a) {
      return out << a.toString();
   }

 private:
   constexpr IpGenAddr(IpFamily family, Bytes const& bytes) : family_(family), bytes_(bytes) {}

   IpFamily family_ = IpFamily::none;
   Bytes bytes_{};
};

static_assert(sizeof(IpGenAddr) == 17);

}  // namespace Lnet
