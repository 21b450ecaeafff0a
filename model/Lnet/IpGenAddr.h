// An IP address of either version. Seventeen significant bytes and no others: the family, and the
// address in network order (an IPv4 address in the first four of sixteen bytes, the rest zero), so
// that values compare and hash as raw bytes. The order is IPv4 before IPv6, then numeric.
//
// A default-constructed address is the null address: of neither family, with the empty text.
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
   // The address whose first octet is the most significant of the number.
   static constexpr IpGenAddr v4(Qor::U32 number) {
      return IpGenAddr(
            IpFamily::v4,
            {static_cast<std::uint8_t>(number >> 24), static_cast<std::uint8_t>(number >> 16),
             static_cast<std::uint8_t>(number >> 8), static_cast<std::uint8_t>(number)});
   }
   static constexpr IpGenAddr v6(Bytes const& bytes) { return IpGenAddr(IpFamily::v6, bytes); }

   // Reads a dotted quad (four decimal octets without leading zeros) or an IPv6 text: up to four
   // hexadecimal digits a group, one "::" for one or more groups of zeros, and a dotted quad in
   // place of the last two groups. Nothing may precede or follow; zones and ports are refused.
   static std::optional<IpGenAddr> parse(std::string_view text);

   // The parsing constructor: the quoted text of the address, '' for the null address.
   explicit IpGenAddr(Qor::String const& strep);

   constexpr IpFamily family() const { return family_; }
   constexpr bool isNull() const { return family_ == IpFamily::none; }
   constexpr bool isV4() const { return family_ == IpFamily::v4; }
   constexpr bool isV6() const { return family_ == IpFamily::v6; }
   // 224.0.0.0/4 and ff00::/8.
   constexpr bool isMulticast() const {
      return isV4() ? (bytes_[0] & 0xf0) == 0xe0 : isV6() && bytes_[0] == 0xff;
   }
   // 0.0.0.0 and ::, but not the null address.
   constexpr bool isUnspecified() const { return !isNull() && bytes_ == Bytes{}; }
   constexpr Bytes const& bytes() const { return bytes_; }
   // 32, 128, or 0 for the null address.
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

   // IPv6 in its one recommended form: lower case, no leading zeros, the first longest run of two
   // or more zero groups as "::", IPv4-mapped addresses with a dotted quad.
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
