// Oif sets: immutable, counted objects, each holding one port/vlan set.
//
// The table programmers share a replication group between routes that use the same oif set object;
// they never compare port/vlan sets. Whoever feeds routes to a programmer therefore makes sure that
// equal sets are the same object while anything uses them: MrouteTableColl does that.
#pragma once

#include <ostream>

#include "MrouteLib/PortVlanSet.h"
#include "Qor/Blip.h"
#include "Qor/Entity.h"
#include "Qor/Export.h"
#include "Qor/HashMap.h"
#include "Qor/Pool.h"
#include "Qor/Ptr.h"

namespace MrouteLib {

class MrouteTableColl;

class QOR_PUBLIC OifSet final : public Qor::RefCounted, public Qor::Pooled {
 public:
   // `tableColl` is the collection of tables the set belongs to, and may be null. The set is not
   // interned by being constructed: two sets made here are two sets, even when they are equal.
   OifSet(Qor::Ptr<MrouteTableColl> tableColl, PortVlanSet portVlanSet);

   PortVlanSet const& portVlanSet() const { return portVlanSet_; }
   // Counts the oif sets of the process in the order of their making, from 1. It is their name in
   // traces, where an address would say less and differ from run to run.
   Qor::U64 serial() const { return serial_; }

 private:
   friend class MrouteTableColl;
   ~OifSet() override;

   Qor::Ptr<MrouteTableColl> const tableColl_;
   PortVlanSet const portVlanSet_;
   Qor::U64 const serial_;
};

// Compares by identity: the same oif set is the same object.
using OifSetPtr = Qor::Ptr<OifSet const>;

// "OifSet#<serial>", or "null".
QOR_PUBLIC std::ostream& operator<<(std::ostream& os, OifSet const& oifSet);
QOR_PUBLIC std::ostream& operator<<(std::ostream& os, OifSetPtr const& oifSet);
QOR_PUBLIC void blipEncode(Qor::BlipWriter& writer, OifSetPtr const& oifSet);

// The multicast tables that share their oif sets: the interner of equal sets. It holds no reference
// to them: an oif set is known here exactly as long as something else (a route, a record, a
// zombie) keeps it alive, so that a route that returns while its group still waits as a zombie gets
// the very object the zombie carries.
class QOR_PUBLIC MrouteTableColl final : public Qor::NamedEntity {
 public:
   explicit MrouteTableColl(Qor::Name name = "mrouteTableColl");

   // The one living oif set of this value, made if there is none.
   OifSetPtr newOifSet(PortVlanSet const& portVlanSet);
   // The living oif set of this value, or null.
   OifSetPtr oifSet(PortVlanSet const& portVlanSet) const;
   // Stops handing out this object, whose record may not be shared any more: the next newOifSet()
   // of its value makes a fresh one, which is shared anew. Does nothing for a set that is not
   // handed out.
   void oifSetRetire(OifSet const& oifSet);

   // How many sets are known.
   Qor::U32 oifSets() const { return oifSets_.size(); }

 private:
   friend class OifSet;
   ~MrouteTableColl() override;

   // A set looked up by value; the key of an entry points into the oif set itself.
   struct SetKey {
      PortVlanSet const* set;
      Qor::U32 hash() const { return set->hash(); }
      bool operator==(SetKey const& other) const { return *set == *other.set; }
   };

   Qor::HashMap<SetKey, OifSet const*> oifSets_;
};

}  // namespace MrouteLib
