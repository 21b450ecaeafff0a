// Where the packets of a multicast route go: the outgoing port/vlan pairs, the backup pairs that
// replace them when the route's incoming interface fails, the incoming interface, the type and the
// CPU flag. A value: copies are independent, and two sets are equal when all their members are.
//
// The flag of a member belongs to the routing layer: it is carried and takes part in equality and
// hash, and nothing below the routing layer acts on it.
//
// The hash is computed on demand. The owner of a table saves the hash of each set in it once the
// set is complete; a later mutation of the set, or a move from it, drops the saved hash. Equality
// does not depend on whether a hash is saved.
#pragma once

#include <ostream>
#include <utility>

#include "Bridging/VlanId.h"
#include "Lnet/IntfId.h"
#include "MrouteLib/FlatFlagMap.h"
#include "MrouteLib/PortVlan.h"
#include "Qor/Export.h"
#include "Routing/Multicast/Fib/RouteKeyType.h"

namespace MrouteLib {

class QOR_PUBLIC PortVlanSet final {
 public:
   using RouteKeyType = Routing::Multicast::Fib::RouteKeyType;

   PortVlanSet() = default;
   explicit PortVlanSet(RouteKeyType type) : type_(type) {}
   // The parsing constructor, of the form that strep() writes.
   explicit PortVlanSet(Qor::String const& strep);

   // Each of the three collections is an ordered map. A second new...() of the same key gives the
   // member the new flag; deleting an absent key does nothing.

   // The outgoing pairs.
   FlatFlagMap<PortVlan> const& portVlan() const { return portVlan_; }
   void newPortVlan(PortVlan const& pv, bool flag) { changed().portVlan_.set(pv, flag); }
   void portVlanDel(PortVlan const& pv) { changed().portVlan_.erase(pv); }
   void portVlanDelAll() { changed().portVlan_.clear(); }
   // Replaces all outgoing pairs.
   void portVlanIs(FlatFlagMap<PortVlan> const& members) { changed().portVlan_ = members; }

   // The backup pairs of fast reroute.
   FlatFlagMap<PortVlan> const& portVlanFrr() const { return portVlanFrr_; }
   void newPortVlanFrr(PortVlan const& pv, bool flag) { changed().portVlanFrr_.set(pv, flag); }
   void portVlanFrrDel(PortVlan const& pv) { changed().portVlanFrr_.erase(pv); }
   void portVlanFrrDelAll() { changed().portVlanFrr_.clear(); }

   // The vlans subject to address translation.
   FlatFlagMap<Bridging::VlanId> const& natVlan() const { return natVlan_; }
   void newNatVlan(Bridging::VlanId vlan, bool flag) { changed().natVlan_.set(vlan, flag); }
   void natVlanDel(Bridging::VlanId vlan) { changed().natVlan_.erase(vlan); }
   void natVlanDelAll() { changed().natVlan_.clear(); }

   RouteKeyType type() const { return type_; }
   void typeIs(RouteKeyType type) { changed().type_ = type; }

   // The incoming interface whose failure the backup pairs cover; empty: no fast reroute.
   Lnet::IntfId currentIif() const { return currentIif_; }
   void currentIifIs(Lnet::IntfId intf) { changed().currentIif_ = intf; }

   // Whether the CPU gets a copy.
   bool toCpu() const { return toCpu_; }
   void toCpuIs(bool toCpu) { changed().toCpu_ = toCpu; }

   // Whether a packet goes nowhere: no outgoing pair and no copy to the CPU.
   bool empty() const { return portVlan_.empty() && !toCpu_; }

   // Over all members; the same for equal sets however they were filled, within one process.
   Qor::U32 hash() const { return savedHash_ ? savedHash_.hash : computeHash(); }
   void saveHash() const;

   // The members that are there, in order: "{rtr3:1007 rtr4:1008 cpu frr rtr5:1009 iif rtr1 nat
   // 7}". A member whose flag is false is marked: "!rtr3:1007". The stream output is the same.
   Qor::String pretty() const;
   Qor::String strep() const;
   static PortVlanSet fromStrep(Qor::StrepReader& reader);

   friend bool operator==(PortVlanSet const& a, PortVlanSet const& b) {
      if (a.savedHash_ && b.savedHash_ && a.savedHash_.hash != b.savedHash_.hash) return false;
      return a.type_ == b.type_ && a.toCpu_ == b.toCpu_ && a.currentIif_ == b.currentIif_ &&
             a.portVlan_ == b.portVlan_ && a.portVlanFrr_ == b.portVlanFrr_ &&
             a.natVlan_ == b.natVlan_;
   }
   friend std::ostream& operator<<(std::ostream& out, PortVlanSet const& set) {
      return out << set.pretty();
   }

 private:
   // The hash, if it is saved. A set that was moved from has none: its members are gone.
   struct SavedHash {
      SavedHash() = default;
      explicit SavedHash(Qor::U32 h) : saved(true), hash(h) {}
      SavedHash(SavedHash const&) = default;
      SavedHash(SavedHash&& other) noexcept
            : saved(std::exchange(other.saved, false)), hash(other.hash) {}
      SavedHash& operator=(SavedHash const&) = default;
      SavedHash& operator=(SavedHash&& other) noexcept {
         saved = std::exchange(other.saved, false);
         hash = other.hash;
         return *this;
      }
      explicit operator bool() const { return saved; }

      bool saved = false;
      Qor::U32 hash = 0;
   };

   // Every mutator goes through here.
   PortVlanSet& changed() {
      savedHash_.saved = false;
      return *this;
   }
   Qor::U32 computeHash() const;

   // The members that the programmers read of every set come first.
   Lnet::IntfId currentIif_;
   RouteKeyType type_ = RouteKeyType::invalid;
   bool toCpu_ = false;
   mutable SavedHash savedHash_;
   FlatFlagMap<PortVlan> portVlan_;
   FlatFlagMap<PortVlan> portVlanFrr_;
   FlatFlagMap<Bridging::VlanId> natVlan_;
};

}  // namespace MrouteLib
