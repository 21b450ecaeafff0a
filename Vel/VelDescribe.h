// Private header: the common parts of the descriptions of the library's types, for the type
// registry (Qor/Type.h).
#pragma once

#include "MrouteLib/SwitchChip.h"
#include "Qor/Describe.h"

namespace Vel {

template <class Sm, class Path>
class PerSwitchSm;

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

// Describes the inputs that the reactors of both paths have from the switch to the directory of
// interfaces.
template <class Sm>
void describePerSwitchInputs(Qor::Describe<Sm>& type) {
   using Told = typename Sm::Notifiee;
   type.template attribute<&Sm::mrouteSwitch, &Sm::mrouteSwitchIs, &Told::onMrouteSwitch>();
   type.template attribute<&Sm::intfVlanIdTable>();
   type.template attribute<&Sm::mfibConfig, &Sm::mfibConfigIs, &Told::onMfibConfig>();
   type.template operation<&Sm::mfibConfigDel>();
   type.template attribute<&Sm::mfibHwStatus>();
   type.template attribute<&Sm::mrouteHelper>();
   type.template attribute<&Sm::zombieClock, &Sm::zombieClockIs, &Told::onZombieClock>();
   type.template operation<&Sm::zombieClockDel>();
   type.template attribute<&Sm::agingClock, &Sm::agingClockIs, &Told::onAgingClock>();
   type.template operation<&Sm::agingClockDel>();
   type.template attribute<&Sm::ethIntfStatusDir, &Sm::ethIntfStatusDirIs,
                           &Told::onEthIntfStatusDir>();
   type.template operation<&Sm::ethIntfStatusDirDel>();
}

// Describes the further inputs of both paths, and the nested reactors of the interfaces.
template <class Sm>
void describePerSwitchClock(Qor::Describe<Sm>& type) {
   using Told = typename Sm::Notifiee;
   type.template attribute<&Sm::allIntfStatusDir>();
   type.template attribute<&Sm::allIntfStatusLocalDir>();
   type.template attribute<&Sm::clock, &Sm::clockIs, &Told::onClock>();
   type.template operation<&Sm::clockDel>();
}

template <class Sm, class Path>
void describeEthIntfStatus(Qor::Describe<Sm>& type) {
   using Common = PerSwitchSm<Sm, Path>;
   type.template collection<typename Common::EthIntfStatusColl, Common, &Common::ethIntfStatus,
                            &Common::ethIntfStatusDel, &Common::ethIntfStatusDelAll,
                            &Common::ethIntfStatusNotify, &Common::ethIntfStatusIs>();
}

}  // namespace Vel
