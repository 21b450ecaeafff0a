#include "Lnet/IpGenAddr.h"

namespace Lnet {

namespace {

int hexValue(char c) {
   if (c >= '0' && c <= '9') return c - '0';
   if (c >= 'a' && c <= 'f') return c - 'a' + 10;
   if (c >= 'A' && c <= 'F') return c - 'A' + 10;
   return -1;
}

// Parses a dotted quad, which must be the whole of `text`, into four bytes.
bool parseQuad(std::string_view text, std::uint8_t* out) {
   std::size_t at = 0;
   for (int octet = 0; octet < 4; ++octet) {
      if (octet && (at >= text.size() || text[at++] != '.')) return false;
      std::size_t const first = at;
      unsigned value = 0;
      while (at < text.size() && at - first < 3 && text[at] >= '0' && text[at] <= '9') {
         value = value * 10 + static_cast<unsigned>(text[at++] - '0');
      }
      bool const leadingZero = at - first > 1 && text[first] == '0';
      if (at == first || leadingZero || value > 255) return false;
      out[octet] = static_cast<std::uint8_t>(value);
   }
   return at == text.size();
}

// Parses an IPv6 text. The groups are written one behind the other; at the end, the groups behind
// "::" move to the end of the address.
bool parseGroups(std::string_view text, IpGenAddr::Bytes& bytes) {
   constexpr std::size_t none = 17;  // greater than any position of a gap
   std::size_t filled = 0;           // bytes written so far
   std::size_t gap = none;           // the position of the zeros that "::" stands for
   std::size_t at = 0;
   if (text.starts_with("::")) {
      gap = 0;
      at = 2;
   }
   while (at < text.size()) {
      std::size_t const first = at;
      unsigned value = 0;
      while (at < text.size() && at - first < 4 && hexValue(text[at]) >= 0) {
         value = value * 16 + static_cast<unsigned>(hexValue(text[at++]));
      }
      if (at < text.size() && text[at] == '.') {
         if (filled > 12 || !parseQuad(text.substr(first), &bytes[filled])) return false;
         filled += 4;
         break;
      }
      if (at == first || filled == bytes.size()) return false;
      bytes[filled++] = static_cast<std::uint8_t>(value >> 8);
      bytes[filled++] = static_cast<std::uint8_t>(value);
      if (at == text.size()) break;
      if (text[at++] != ':' || at == text.size()) return false;
      if (text[at] == ':') {
         if (gap != none) return false;
         gap = filled;
         ++at;
      }
   }
   if (gap == none) return filled == bytes.size();
   // "::" stands for at least one group.
   if (filled == bytes.size()) return false;
   std::size_t const zeros = bytes.size() - filled;
   for (std::size_t i = filled; i-- > gap;) {
      bytes[i + zeros] = bytes[i];
   }
   for (std::size_t i = gap; i < gap + zeros; ++i) {
      bytes[i] = 0;
   }
   return true;
}

void appendQuad(Qor::String& out, std::uint8_t const* bytes) {
   for (int i = 0; i < 4; ++i) {
      if (i) out += '.';
      out += std::to_string(bytes[i]);
   }
}

void appendHex(Qor::String& out, unsigned group) {
   bool started = false;
   for (int shift = 12; shift >= 0; shift -= 4) {
      unsigned const digit = group >> shift & 15;
      started = started || digit || shift == 0;
      if (started) out += "0123456789abcdef"[digit];
   }
}

Qor::String v6Text(IpGenAddr::Bytes const& bytes) {
   auto const group = [&](std::size_t i) { return bytes[2 * i] * 256u + bytes[2 * i + 1]; };
   std::size_t gap = 8;
   std::size_t gapLength = 1;  // a single group of zeros is printed as 0
   for (std::size_t i = 0; i < 8; ++i) {
      std::size_t end = i;
      while (end < 8 && group(end) == 0) {
         ++end;
      }
      if (end - i > gapLength) {
         gap = i;
         gapLength = end - i;
      }
   }
   Qor::String out;
   bool const mapped = gap == 0 && gapLength == 5 && group(5) == 0xffff;
   for (std::size_t i = 0; i < (mapped ? 6u : 8u); ++i) {
      if (i == gap) {
         out += "::";
         i += gapLength - 1;
         continue;
      }
      if (!out.empty() && out.back() != ':') out += ':';
      appendHex(out, group(i));
   }
   if (mapped) {
      out += ':';
      appendQuad(out, &bytes[12]);
   }
   return out;
}

}  // namespace

std::optional<IpGenAddr> IpGenAddr::parse(std::string_view text) {
   Bytes bytes{};
   if (text.find(':') != std::string_view::npos) {
      if (parseGroups(text, bytes)) return v6(bytes);
   } else if (parseQuad(text, bytes.data())) {
      return IpGenAddr(IpFamily::v4, bytes);
   }
   return std::nullopt;
}

Qor::String IpGenAddr::toString() const {
   Qor::String out;
   if (isV4()) appendQuad(out, bytes_.data());
   if (isV6()) out = v6Text(bytes_);
   return out;
}

IpGenAddr::IpGenAddr(Qor::String const& strep)
      : IpGenAddr(Qor::parseStrep<IpGenAddr>("Lnet::IpGenAddr", strep)) {}

IpGenAddr IpGenAddr::fromStrep(Qor::StrepReader& reader) {
   Qor::String const text = reader.quoted();
   if (text.empty()) return IpGenAddr();
   auto const address = parse(text);
   if (!address) reader.fail("an IP address");
   return *address;
}

}  // namespace Lnet
