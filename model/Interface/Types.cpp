// Registers the types of this namespace with the type registry.
#include "Interface/AllIntfStatusDir.h"
#include "Interface/EthIntfStatusDir.h"
#include "Qor/Describe.h"

namespace Interface {

namespace {

constexpr char typeModule[] = "Interface";

Qor::Type describeIntfStatus() {
   Qor::Describe<IntfStatus> type(typeModule);
   type.attribute<&IntfStatus::intfId>();
   type.attribute<&IntfStatus::operStatus, &IntfStatus::operStatusIs,
                  &IntfStatus::Notifiee::onOperStatus>();
   return type;
}
Qor::TypeRegistration const intfStatusRegistered(describeIntfStatus);

Qor::Type describeEthIntfStatus() {
   Qor::Describe<EthIntfStatus> type(typeModule);
   type.base<IntfStatus>();
   return type;
}
Qor::TypeRegistration const ethIntfStatusRegistered(describeEthIntfStatus);

Qor::Type describeEthIntfStatusDir() {
   Qor::Describe<EthIntfStatusDir> type(typeModule);
   using Dir = IntfStatusDir<EthIntfStatusDir, EthIntfStatus>;
   type.collection<Dir::IntfStatusColl, Dir, &Dir::intfStatus, &Dir::intfStatusDel,
                   &Dir::intfStatusDelAll, &Dir::intfStatusNotify>();
   return type;
}
Qor::TypeRegistration const ethIntfStatusDirRegistered(describeEthIntfStatusDir);

Qor::Type describeAllIntfStatusDir() {
   Qor::Describe<AllIntfStatusDir> type(typeModule);
   using Dir = IntfStatusDir<AllIntfStatusDir, IntfStatus>;
   type.collection<Dir::IntfStatusColl, Dir, &Dir::intfStatus, &Dir::intfStatusDel,
                   &Dir::intfStatusDelAll, &Dir::intfStatusNotify>();
   return type;
}
Qor::TypeRegistration const allIntfStatusDirRegistered(describeAllIntfStatusDir);

}  // namespace

}  // namespace Interface
