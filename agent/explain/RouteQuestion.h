// A question about a route, as an operator types it.
#pragma once

#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>

#include "L3/VrfName.h"
#include "Lnet/IntfId.h"
#include "Routing/Multicast/Fib/IpGenRouteKey.h"

namespace Agent {

// A text that is no question. The text of the error is the reason, in one line.
class QuestionError final : public std::runtime_error {
 public:
   using std::runtime_error::runtime_error;
};

struct RouteQuestion {
   std::optional<L3::VrfName> vrf = {};  // none: all VRFs
   Routing::Multicast::Fib::IpGenRouteKey key = {};
   bool ofGroup = false;                  // all routes of the key's group are asked for
   std::optional<Lnet::IntfId> iif = {};  // by which the packets come in; none: the route's input

   // "(10.0.0.2, 239.1.1.1)", or the group.
   std::string name() const;
};

// Parses "10.0.0.2,239.1.1.1", "(10.0.0.2, 239.1.1.1)" or "10.0.0.2 239.1.1.1", with "*" for any
// source, and a group alone, in either address family. "vrf NAME" and "iif NAME" may stand before or
// behind the route. Raises QuestionError for other texts.
RouteQuestion routeQuestion(std::string_view text);

}  // namespace Agent
