#include "Hux/Xact.h"

#include "Qor/Describe.h"
#include "Qor/EnumText.h"

namespace Hux {

Xact::~Xact() = default;

static std::ostream& operator<<(std::ostream& out, Xact::State state) {
   static constexpr char const* names[] = {"pending", "succeeded", "failed"};
   return Qor::printEnum(out, state, names);
}

namespace {

Qor::Type describeXact() {
   Qor::Describe<Xact> type("Hux");
   type.attribute<&Xact::state, nullptr, &Xact::Notifiee::onState>();
   return type;
}
Qor::TypeRegistration const xactRegistered(describeXact);

}  // namespace

}  // namespace Hux
