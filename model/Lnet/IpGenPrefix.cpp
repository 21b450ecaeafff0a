#include "Lnet/IpGenPrefix.h"

#include <charconv>

namespace Lnet {

void IpGenPrefix::throwLength(unsigned width) {
   Qor::throwRange("IpGenPrefix::length > " + std::to_string(width) + " not allowed");
}

void IpGenPrefix::throwHostBits(IpGenAddr const& address, unsigned length) {
   Qor::throwRange("IpGenPrefix::address " + address.toString() + " has bits set beyond length " +
                   std::to_string(length));
}

std::optional<IpGenPrefix> IpGenPrefix::parse(std::string_view text) {
   auto const slash = text.find('/');
   auto const address = IpGenAddr::parse(text.substr(0, slash));
   if (!address) return std::nullopt;
   if (slash == std::string_view::npos) return host(*address);

   std::string_view const digits = text.substr(slash + 1);
   unsigned length = 0;
   char const* const end = digits.data() + digits.size();
   auto const [stop, error] = std::from_chars(digits.data(), end, length);
   bool const leadingZero = digits.size() > 1 && digits[0] == '0';
   if (error != std::errc() || stop != end || leadingZero || length > address->bitWidth() ||
       address->masked(length) != *address) {
      return std::nullopt;
   }
   return IpGenPrefix(*address, length);
}

Qor::String IpGenPrefix::toString() const {
   if (isNull() || isHost()) return address_.toString();
   return address_.toString() + "/" + std::to_string(length_);
}

IpGenPrefix::IpGenPrefix(Qor::String const& strep)
      : IpGenPrefix(Qor::parseStrep<IpGenPrefix>("Lnet::IpGenPrefix", strep)) {}

IpGenPrefix IpGenPrefix::fromStrep(Qor::StrepReader& reader) {
   Qor::String const text = reader.quoted();
   if (text.empty()) return IpGenPrefix();
   auto const prefix = parse(text);
   if (!prefix) reader.fail("an IP prefix");
   return *prefix;
}

}  // namespace Lnet
