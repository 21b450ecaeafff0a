// Private header: the common parts of the descriptions of the library's types, for the type
// registry (Qor/Type.h).
#pragma once

#include "MrouteLib/SwitchChip.h"
#include "Qor/Describe.h"

namespace Vel {

// The module of the library's types.
inline constexpr char typeModule[] = "VelMroute";

// Describes the collections of records.
template <class Switch, class Tables>
void describeOifSetTables(Qor::Describe<Switch>& type) {
   using InUse = typename Tables::InUseOifSetColl;
   using Zombie = typename Tables::ZombieOifSetColl;
   using Frr = typename Tables::FrrMtableOifSetColl;
   using FrrProcessing = typename Tables::FrrProcessingOifSetColl;
   type.template collection<InUse, Tables, &Tables::inUseOifSet, &Tables::inUseOifSetDel,
                            &Tables::inUseOifSetDelAll, &Tables::inUseOifSetNotify,
                            &Tables::inUseOifSetIs>();
   type.template collection<Zombie, Tables, &Tables::zombieOifSet, &Tables::zombieOifSetDel,
                            &Tables::zombieOifSetDelAll, &Tables::zombieOifSetNotify,
                            &Tables::zombieOifSetIs>();
   type.template collection<Frr, Tables, &Tables::frrMtableOifSet, &Tables::frrMtableOifSetDel,
                            &Tables::frrMtableOifSetDelAll, &Tables::frrMtableOifSetNotify,
                            &Tables::frrMtableOifSetIs>();
   type.template collection<FrrProcessing, Tables, &Tables::frrProcessingOifSet,
                            &Tables::frrProcessingOifSetDel, &Tables::frrProcessingOifSetDelAll,
                            &Tables::frrProcessingOifSetNotify, &Tables::frrProcessingOifSetIs>();
   type.template operation<&Tables::newZombieOifSet>("record");
}

// Describes the attributes and operations of every record.
template <class Record>
void describeOifSetRecord(Qor::Describe<Record>& type) {
   using Told = typename Record::Notifiee;
   type.template base<MrouteLib::MtableOifSet>();
   type.template attribute<&Record::toCpu>();
   type.template attribute<&Record::mrouteSwitch>();
   type.template attribute<&Record::deleted, &Record::deletedIs, &Told::onDeleted>();
   type.template attribute<&Record::zombie, &Record::zombieIs, &Told::onZombie>();
   type.template attribute<&Record::dirty, &Record::dirtyIs, &Told::onDirty>();
   type.template operation<&Record::doCleanup>();
}

}  // namespace Vel
