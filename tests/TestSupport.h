// Support for the tests of all parts: virtual time, the text of an error, values read from text.
#pragma once

#include <gtest/gtest.h>

#include <string>
#include <string_view>
#include <vector>

#include "MrouteLib/PortVlan.h"
#include "Qor/Clock.h"
#include "Qor/Exception.h"
#include "Qor/Pool.h"
#include "Routing/Multicast/Fib/IpGenRouteKey.h"

namespace testSupport {

using Lines = std::vector<std::string>;

// Time is virtual while the test runs.
class OnVirtualTime : public testing::Test {
 protected:
   OnVirtualTime() { Qor::activityManagerIs(time_); }
   ~OnVirtualTime() override { Qor::activityManagerIs(nullptr); }

   Qor::Ptr<Qor::ActivityManager> const time_ =
         Qor::make<Qor::ActivityManager>(Qor::ActivityManager::TimeBase::virtualTime);
};

// The memory of a record that has gone is the next one's, under the sanitizers too.
struct ReusedMemory {
   ReusedMemory() { Qor::Pooled::reuseIs(true); }
   ~ReusedMemory() { Qor::Pooled::reuseIs(false); }
};

// The text of the error that `call` throws, or "no error".
template <class Error = Qor::RangeException, class Call>
std::string errorText(Call const& call) {
   try {
      call();
   } catch (Error const& e) {
      return e.what();
   }
   return "no error";
}

inline Lnet::IpGenAddr addr(std::string_view text) {
   return Lnet::IpGenAddr::parse(text).value();
}

inline Lnet::IpGenPrefix prefix(std::string_view text) {
   return Lnet::IpGenPrefix::parse(text).value();
}

inline Routing::Multicast::Fib::IpGenRouteKey key(char const* source, char const* group) {
   return Routing::Multicast::Fib::IpGenRouteKey(prefix(source), prefix(group));
}

// (10.0.0.1, 239.0.0.0 + n)
inline Routing::Multicast::Fib::IpGenRouteKey key(unsigned n) {
   return Routing::Multicast::Fib::IpGenRouteKey::fromAddresses(
         addr("10.0.0.1"), Lnet::IpGenAddr::v4(0xef000000 + n));
}

inline MrouteLib::PortVlan pv(char const* intf, unsigned vlan = 0) {
   return MrouteLib::PortVlan(Lnet::IntfId(intf), Bridging::VlanIdOrNone(vlan));
}

// The words of a file of the tree, each behind one blank, without the signs of comments.
std::string sourceText(std::string const& path);

}  // namespace testSupport
