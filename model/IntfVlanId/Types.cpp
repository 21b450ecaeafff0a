// Registers the types of this namespace with the type registry.
#include "IntfVlanId/Table.h"
#include "Qor/Describe.h"

namespace IntfVlanId {

namespace {

constexpr char typeModule[] = "IntfVlanId";

Qor::Type describeTable() {
   Qor::Describe<Table> type(typeModule);
   type.collection<Table::VlanColl::ByKey, Table, &Table::intfIdToVlanId, &Table::intfIdToVlanIdDel,
                   &Table::intfIdToVlanIdDelAll, &Table::intfIdToVlanIdNotify,
                   &Table::intfIdToVlanIdIs>();
   type.collection<Table::VlanColl::ByValue, Table, &Table::vlanIdToIntfId,
                   &Table::vlanIdToIntfIdDel, &Table::vlanIdToIntfIdDelAll,
                   &Table::vlanIdToIntfIdNotify, &Table::vlanIdToIntfIdIs>();
   return type;
}
Qor::TypeRegistration const tableRegistered(describeTable);

}  // namespace

}  // namespace IntfVlanId
