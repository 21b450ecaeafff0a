// Oif sets: immutable, counted objects, each of which holds one port/vlan set.
//
// The table programmers share a replication group among the routes that use the same oif set
// object; they never compare port/vlan sets. The routing layer must therefore represent equal sets
// by one object while any route, record or zombie uses it. MrouteTableColl does this.
#pragma once

#include <array>
#include <ostream>
#include <utility>

#include "MrouteLib/PortVlanSet.h"
#include "Qor/Entity.h"
#include "Qor/Export.h"
#include "Qor/HashMap.h"
#include "Qor/Pool.h"
#include "Qor/Ptr.h"

namespace MrouteLib {

class MrouteTableColl;
class OifSet;

// The base of the oif set records of both programmers. The records of one oif set, of all
// programmers, form a chain that begins in the set, the newest record first, so that a programmer
// finds the records of a set without a table. A record holds its set while it is in the chain.
class OifSetCarrier {
 public:
   OifSetCarrier(OifSetCarrier const&) = delete;
   OifSetCarrier& operator=(OifSetCarrier const&) = delete;

   // The first record of a set, and the record behind this one; null at the end of the chain.
   static OifSetCarrier* firstOf(OifSet const& oifSet);
   OifSetCarrier* next() const { return next_; }
   // Identifies the programmer that made the record; null for a record made without a programmer.
   Qor::RefCounted const* programmer() const { return programmer_.get(); }

   // The place of the record in its programmer's inUseOifSet; `nowhere` for other records.
   static constexpr Qor::U32 nowhere = 0xFFFFFFFF;
   Qor::U32 inUsePlace() const { return inUsePlace_; }
   void inUsePlaceIs(Qor::U32 place) { inUsePlace_ = place; }
   // The numbers of the set's entries in its programmer's frrMtableOifSet and frrProcessingOifSet,
   // if these maps find the set by this record (Vel/VelSetIndex.h); else `nowhere`.
   enum class FrrMap : Qor::U8 { armed, waiting };
   Qor::U32& frrEntry(FrrMap map) { return frrEntries_[static_cast<std::size_t>(map)]; }
   // The place of the record in the queue of its programmer's zombieOifSet (Qor/QueueMap.h); of no
   // meaning while the record is not a zombie.
   Qor::U32 queuePlace() const { return queuePlace_; }
   void queuePlaceIs(Qor::U32 place) { queuePlace_ = place; }

 protected:
   explicit OifSetCarrier(Qor::Ptr<Qor::RefCounted const> programmer)
         : programmer_(std::move(programmer)) {}
   ~OifSetCarrier() = default;

   // Counts the records of the process in the order of their making, from 1.
   static Qor::U64 nextSerial() { return ++lastSerial_; }
   // Put the record into the chain of its set, and remove it.
   void enter(OifSet const& oifSet);
   void leave(OifSet const& oifSet);

 private:
   static QOR_PUBLIC Qor::U64 lastSerial_;

   Qor::Ptr<Qor::RefCounted const> const programmer_;
   Qor::U32 inUsePlace_ = nowhere;
   Qor::U32 queuePlace_ = 0;
   std::array<Qor::U32, 2> frrEntries_{nowhere, nowhere};
   OifSetCarrier* next_ = nullptr;
};

class QOR_PUBLIC OifSet final : public Qor::RefCounted, public Qor::Pooled {
 public:
   // `tableColl` is the interner of the set, or null. The constructor does not enter the set there:
   // two sets constructed from equal port/vlan sets are two oif sets. Callers that share groups use
   // MrouteTableColl::newOifSet().
   OifSet(Qor::Ptr<MrouteTableColl> tableColl, PortVlanSet portVlanSet);

   PortVlanSet const& portVlanSet() const { return portVlanSet_; }
   // The number of the set among the oif sets of the process, in the order of construction, from 1.
   // Traces print it as the name of the set, since it is the same in each run, unlike an address.
   Qor::U64 serial() const { return serial_; }

 private:
   friend class MrouteTableColl;
   friend class OifSetCarrier;
   ~OifSet() override;

   // The members that the programmers read of every set come first, in one cache line.
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

// Compares by identity: two pointers are equal if they point to the same oif set object.
using OifSetPtr = Qor::Ptr<OifSet const>;

// Printed as "OifSet#<serial>", or "null".
QOR_PUBLIC std::ostream& operator<<(std::ostream& os, OifSet const& oifSet);
QOR_PUBLIC std::ostream& operator<<(std::ostream& os, OifSetPtr const& oifSet);
QOR_PUBLIC Qor::String blipText(OifSetPtr const& oifSet);

// The interner of equal oif sets, shared by all multicast tables. It holds no reference to the
// sets: it has an oif set as long as a route, a record or a zombie keeps the set alive. A route
// that returns while its group is a zombie therefore receives the oif set object of that zombie.
class QOR_PUBLIC MrouteTableColl final : public Qor::NamedEntity {
 public:
   explicit MrouteTableColl(Qor::Name name = "mrouteTableColl");

   // Returns the oif set of an equal port/vlan set, or makes a new one.
   OifSetPtr newOifSet(PortVlanSet const& portVlanSet);
   // Returns the oif set of an equal port/vlan set, or null.
   OifSetPtr oifSet(PortVlanSet const& portVlanSet) const;
   // Removes an oif set whose record must not be shared with further routes. The next newOifSet()
   // of an equal port/vlan set makes another object. Does nothing for a set that is not in the
   // interner.
   void oifSetRetire(OifSet const& oifSet);

 private:
   friend class OifSet;
   ~MrouteTableColl() override;

   // A port/vlan set, compared and hashed by value. The key of an entry points into its oif set.
   struct SetKey {
      PortVlanSet const* set;
      Qor::U32 hash() const { return set->hash(); }
      bool operator==(SetKey const& other) const { return *set == *other.set; }
   };

   Qor::HashMap<SetKey, OifSet const*> oifSets_;
};

}  // namespace MrouteLib
