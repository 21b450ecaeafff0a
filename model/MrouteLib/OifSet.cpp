#include "MrouteLib/OifSet.h"

#include <utility>

#include "Qor/Describe.h"

namespace MrouteLib {

namespace {

Qor::U64 lastSerial = 0;

// An oif set is looked up often and never changes, so its hash is computed once.
PortVlanSet withSavedHash(PortVlanSet set) {
   set.saveHash();
   return set;
}

}  // namespace

Qor::U64 OifSetCarrier::lastSerial_ = 0;

OifSet::OifSet(Qor::Ptr<MrouteTableColl> tableColl, PortVlanSet portVlanSet)
      : portVlanSet_(withSavedHash(std::move(portVlanSet))),
        tableColl_(std::move(tableColl)),
        serial_(++lastSerial) {}

OifSet::~OifSet() {
   // The interner's key points into this object.
   if (tableColl_) tableColl_->oifSetRetire(*this);
}

std::ostream& operator<<(std::ostream& os, OifSet const& oifSet) {
   return os << "OifSet#" << oifSet.serial();
}

std::ostream& operator<<(std::ostream& os, OifSetPtr const& oifSet) {
   return oifSet ? os << *oifSet : os << "null";
}

Qor::String blipText(OifSetPtr const& oifSet) {
   return oifSet ? "OifSet#" + std::to_string(oifSet->serial()) : "null";
}

MrouteTableColl::MrouteTableColl(Qor::Name name) : NamedEntity(std::move(name)) {}

MrouteTableColl::~MrouteTableColl() = default;

OifSetPtr MrouteTableColl::newOifSet(PortVlanSet const& portVlanSet) {
   if (OifSetPtr existing = oifSet(portVlanSet)) return existing;
   auto const made = Qor::make<OifSet>(Qor::Ptr<MrouteTableColl>(this), portVlanSet);
   oifSets_.insert(SetKey{&made->portVlanSet()}, made.get());
   return made;
}

OifSetPtr MrouteTableColl::oifSet(PortVlanSet const& portVlanSet) const {
   auto const* entry = oifSets_.find(SetKey{&portVlanSet});
   return entry ? entry->second : nullptr;
}

void MrouteTableColl::oifSetRetire(OifSet const& oifSet) {
   SetKey const key{&oifSet.portVlanSet()};
   auto const* entry = oifSets_.find(key);
   // The entry may be that of a newer set of equal value, made after this one was retired.
   if (entry && entry->second == &oifSet) oifSets_.take(key);
}

namespace {

Qor::Type describeOifSet() {
   Qor::Describe<OifSet> type("MrouteLib");
   type.attribute<&OifSet::portVlanSet>();
   type.attribute<&OifSet::serial>();
   return type;
}
Qor::TypeRegistration const oifSetRegistered(describeOifSet);

}  // namespace

}  // namespace MrouteLib
