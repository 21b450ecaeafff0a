#include "Routing/Multicast/Fib/Hardware/Status.h"

namespace Routing::Multicast::Fib::Hardware {

Status::Status(Qor::Name name) : Entity(std::move(name)) {}

Status::~Status() {
   // The VRF statuses may outlive this object, and with it the count that they update.
   for (auto const& [vrfName, status] : vrfStatus_.map())
      status->countEnd();
}

Status::VrfStatusPtr Status::vrfStatusIs(L3::VrfName vrfName) {
   return vrfStatus_.instantiate(*this, vrfName,
                                 [&] { return Qor::make<VrfStatus>(vrfName, routes_); });
}

void Status::vrfStatusDel(L3::VrfName vrfName) {
   auto const* const entry = vrfStatus_.map().find(vrfName);
   if (!entry) return;
   entry->second->countEnd();
   vrfStatus_.del(*this, vrfName);
}

Status::VrfStatusColl::Iterator Status::vrfStatusDel(VrfStatusColl::Iterator it) {
   it->second->countEnd();
   return vrfStatus_.del(*this, it);
}

void Status::vrfStatusDelAll() {
   for (auto const& [vrfName, status] : vrfStatus_.map())
      status->countEnd();
   vrfStatus_.delAll(*this);
}

}  // namespace Routing::Multicast::Fib::Hardware
