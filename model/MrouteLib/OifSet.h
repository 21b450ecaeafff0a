// Oif sets: immutable, counted objects, each holding one port/vlan set.
//
// The table programmers share a replication group between routes that use the same oif set object;
// they never compare port/vlan sets. Whoever feeds routes to a programmer therefore makes sure that
// equal sets are the same object while anything uses them: MrouteTableColl does that.
#pragma once

#include <ostream>
#include <utility>

#include "MrouteLib/PortVlanSet.h"
#include "Qor/Blip.h"
#include "Qor/Entity.h"
#include "Qor/Export.h"
#include "Qor/HashMap.h"
#include "Qor/Pool.h"
#include "Qor/Ptr.h"

namespace MrouteLib {

class MrouteTableColl;
class OifSet;

// What stands for an oif set in a programmer's table. All that stand for one set, with whatever
// programmer, are a chain that begins in the set itself, the newest first: whoever has the set finds
// them without a table. The set outlives its place in the chain.
class OifSetCarrier {
 public:
   OifSetCarrier(OifSetCarrier const&) = delete;
   OifSetCarrier& operator=(OifSetCarrier const&) = delete;

   // Those of a set, one after the other; null at the end.
   static OifSetCarrier* firstOf(OifSet const& oifSet);
   OifSetCarrier* next() const { return next_; }
   // Tells whose it is; null: nobody's.
   Qor::RefCounted const* programmer() const { return programmer_.get(); }
   // Counts the carriers of the process in the order of their making, from 1: no other ever has the
   // same, whatever has become of its memory.
   Qor::U64 serial() const { return serial_; }

   // Whether it is the one of its programmer's that further routes may share.
   bool inUse() const { return inUse_; }
   void inUseIs(bool inUse) { inUse_ = inUse; }

 protected:
   explicit OifSetCarrier(Qor::Ptr<Qor::RefCounted const> programmer)
         : programmer_(std::move(programmer)), serial_(++lastSerial_), inUse_(false) {}
   ~OifSetCarrier() = default;

   void enter(OifSet const& oifSet);
   void leave(OifSet const& oifSet);

 private:
   static QOR_PUBLIC Qor::U64 lastSerial_;

   Qor::Ptr<Qor::RefCounted const> const programmer_;
   // In one word, as there are many carriers.
   Qor::U64 const serial_ : 63;
   Qor::U64 inUse_ : 1;
   OifSetCarrier* next_ = nullptr;
};

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
   friend class OifSetCarrier;
   ~OifSet() override;

   // What the programmers look at in every set they meet comes first, in one cache line.
   mutable OifSetCarrier* carriers_ = nullptr;
   PortVlanSet const portVlanSet_;
   Qor::Ptr<MrouteTableColl> const tableColl_;
   Qor::U64 const serial_;
};

inline OifSetCarrier* OifSetCarrier::firstOf(OifSet const& oifSet) {
   return oifSet.carriers_;
}

inline void OifSetCarrier::enter(OifSet const& oifSet) {
   next_ = std::exchange(oifSet.carriers_, this);
}

inline void OifSetCarrier::leave(OifSet const& oifSet) {
   OifSetCarrier** link = &oifSet.carriers_;
   while (*link != this)
      link = &(*link)->next_;
   *link = next_;
}

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
