// Wishes of routes, interned by value, and their present meaning in vlans. Many routes have one
// wish, so a change of a vlan is worked out once for all of them.
#pragma once

#include <unordered_set>
#include <utility>
#include <vector>

#include "IntfVlanId/Table.h"
#include "MrouteLib/OifSet.h"
#include "Routing/Multicast/Fib/IpGenRouteKey.h"
#include "programmer/WantedRoute.h"

namespace VelMroute {

// A wish with vlans in place of names. Never changes.
struct Placement final : public Qor::RefCounted {
   Placement(Bridging::VlanIdOrNone inputVlan, MrouteLib::PortVlanSet outputs)
         : vlan(inputVlan), set(std::move(outputs)) {
      set.saveHash();
   }

   Bridging::VlanIdOrNone const vlan;  // of the input; none without an input check
   MrouteLib::PortVlanSet set;
   // The oif set of `set` that routes share, and the number of retired oif sets at the time of its
   // look-up: the oif set may be one of those that were retired since.
   mutable MrouteLib::OifSetPtr oifSet;
   mutable Qor::U64 retired = 0;
};
using PlacementPtr = Qor::Ptr<Placement const>;

class WishPool;

// A wish of a route or of one of its fastdrop entries. In memory once for all routes that have it.
class Wish final : public Qor::RefCounted {
 public:
   using RouteKeyType = Routing::Multicast::Fib::RouteKeyType;

   // For WishPool::get() alone.
   Wish(WishPool& pool, WantedRoute wanted, bool fastdrop, Qor::U32 hash);

   WantedRoute const& wanted() const { return wanted_; }
   // Whether this is a fastdrop entry; the input of `wanted` is its interface then.
   bool fastdrop() const { return fastdrop_; }
   Qor::U32 hash() const { return hash_; }
   // The type of the set of a route with this key.
   RouteKeyType typeFor(Routing::Multicast::Fib::IpGenRouteKey const& key) const;

   // The wish in vlans, for routes of one type. The placement is the same object until a vlan of the
   // wish changes.
   struct Resolved {
      RouteKeyType type;
      Qor::U64 epoch = 0;
      PlacementPtr placement = {};  // null if the vlan of `missing` is missing
      Lnet::IntfId missing = {};
   };

 private:
   friend class WishPool;
   ~Wish() override;

   WishPool& pool_;
   WantedRoute const wanted_;
   bool const fastdrop_;
   Qor::U32 const hash_;
   mutable std::vector<Resolved> resolved_;  // one for each type of a route with this wish
};
using WishPtr = Qor::Ptr<Wish const>;

// Outlives its wishes.
class WishPool {
 public:
   explicit WishPool(Qor::Ptr<IntfVlanId::Table const> vlans) : vlans_(std::move(vlans)) {}

   Qor::Ptr<IntfVlanId::Table const> const& vlans() const { return vlans_; }
   WishPtr get(WantedRoute&& wanted, bool fastdrop);
   // A vlan has changed: the next resolve() of each wish reads the table again.
   void vlansChanged() { ++epoch_; }
   // The wish in the present vlans. Valid until the wish is resolved for another type.
   Wish::Resolved const& resolve(Wish const& wish, Wish::RouteKeyType type) const;

 private:
   friend class Wish;
   // The value of a wish that is looked up.
   struct Candidate {
      WantedRoute const& wanted;
      bool fastdrop;
      Qor::U32 hash;
   };
   struct Hash {
      using is_transparent = void;
      std::size_t operator()(Wish const* wish) const { return wish->hash(); }
      std::size_t operator()(Candidate const& candidate) const { return candidate.hash; }
   };
   struct Equal {
      using is_transparent = void;
      bool operator()(Wish const* a, Wish const* b) const { return a == b; }
      bool operator()(Candidate const& a, Wish const* b) const {
         return a.hash == b->hash() && a.fastdrop == b->fastdrop() && a.wanted == b->wanted();
      }
   };

   Wish::Resolved read(Wish const& wish, Wish::RouteKeyType type) const;

   Qor::Ptr<IntfVlanId::Table const> const vlans_;
   std::unordered_set<Wish const*, Hash, Equal> wishes_;
   Qor::U64 epoch_ = 1;
};

}  // namespace VelMroute
