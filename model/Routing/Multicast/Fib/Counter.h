// The key that orders the published route counters: by the time at which the counter was last
// written, then by route. The first counter of an ordered map is thus the one that has been idle
// for longest, which is removed when the table is full. A counter that counts moves to the end.
//
// The hardware identifies a counter by its route key alone, without the VRF.
#pragma once

#include <compare>
#include <ostream>

#include "Routing/Multicast/Fib/IpGenRouteKey.h"

namespace Routing::Multicast::Fib {

class Counter final {
 public:
   static constexpr char const* typeName = "Routing::Multicast::Fib::Counter";

   constexpr Counter() = default;
   // `timeStamp` is that of the route's entry in CounterStatus, on the Qor::now() time base.
   constexpr Counter(Qor::Seconds timeStamp, IpGenRouteKey const& key)
         : timeStamp_(timeStamp), key_(key) {}
   // The parsing constructor, for a text that strep() returned.
   explicit Counter(Qor::String const& strep)
         : Counter(Qor::parseStrep<Counter>(typeName, strep)) {}

   constexpr Qor::Seconds timeStamp() const { return timeStamp_; }
   constexpr IpGenRouteKey const& key() const { return key_; }

   Qor::String strep() const {
      return Qor::String("Value('Routing::Multicast::Fib::Counter', ** {'timeStamp': ") +
             Qor::realStrep(timeStamp_) + ", 'key': " + key_.strep() + "})";
   }
   static Counter fromStrep(Qor::StrepReader& reader) {
      reader.expect("Value('Routing::Multicast::Fib::Counter', ** {'timeStamp': ");
      Qor::Seconds const timeStamp = reader.real();
      reader.expect(", 'key': ");
      auto const key = IpGenRouteKey::fromStrep(reader);
      reader.expect("})");
      return Counter(timeStamp, key);
   }

   friend constexpr bool operator==(Counter const&, Counter const&) = default;
   // The order is total, since no time stamp is NaN.
   friend constexpr std::weak_ordering operator<=>(Counter const& a, Counter const& b) {
      if (a.timeStamp_ < b.timeStamp_) return std::weak_ordering::less;
      if (a.timeStamp_ > b.timeStamp_) return std::weak_ordering::greater;
      return a.key_ <=> b.key_;
   }
   // "(10.0.0.2, 239.10.0.7) at 12.5"
   friend std::ostream& operator<<(std::ostream& out, Counter const& c) {
      return out << c.key_ << " at " << c.timeStamp_;
   }

 private:
   Qor::Seconds timeStamp_ = 0;
   IpGenRouteKey key_;
};

}  // namespace Routing::Multicast::Fib
