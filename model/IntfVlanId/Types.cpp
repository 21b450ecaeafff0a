// Registers the types of this namespace with the type registry.
#include "IntfVlanId/Table.h"
#include "Qor/Describe.h"

namespace IntfVlanId {

namespace {

constexpr char typeModule[] = "IntfVlanId";

Qor::Type describeTable() {
   Qor::Describe<Table> type(typeModule);
   type.map<Table::VlanColl::Forward, Table, &Table::intfIdToVlanId, &Table::intfIdToVlanIdIs,
            &Table::intfIdToVlanIdDel, &Table::intfIdToVlanIdDelAll,
            &Table::intfIdToVlanIdNotify>();
   type.told<&Table::Notifiee::onIntfIdToVlanId, &Table::Notifiee::onIntfIdToVlanIdImmediate>();
   type.map<Table::VlanColl::Backward, Table, &Table::vlanIdToIntfId>();
   type.told<&Table::Notifiee::onVlanIdToIntfId, &Table::Notifiee::onVlanIdToIntfIdImmediate>();
   return type;
}
Qor::TypeRegistration const tableRegistered(describeTable);

}  // namespace

}  // namespace IntfVlanId
