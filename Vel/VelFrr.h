// Private header: the common part of the fast reroute of both paths. It has the choice of the sets
// that the failure of an interface affects, their replacement, and the pass over the waiting sets.
//
// The backup members of a set (portVlanFrr) are its complete replacement. The oif set objects stay
// unchanged: the platform receives a new object.
#pragma once

#include <algorithm>
#include <vector>

#include "MrouteLib/OifSet.h"
#include "Qor/Clock.h"

namespace Vel {

// Returns whether the failure of interface `failed` causes a rewrite of the set: the traffic of the
// set comes in over `failed`, and the set has backup members.
inline bool reroutedOn(MrouteLib::PortVlanSet const& set, Lnet::IntfId failed) {
   return set.currentIif() == failed && !failed.isNull() && !set.portVlanFrr().empty();
}

// Returns the backup members as text: "rtr5:1009 rtr6:1010".
Qor::String frrMembers(MrouteLib::PortVlanSet const& set);

// Returns a copy of the set with the backup members as outgoing members. Calls `added(member)` for
// each backup member.
template <class Added>
MrouteLib::PortVlanSet frrReplacement(MrouteLib::PortVlanSet const& set, Added const& added) {
   MrouteLib::PortVlanSet replacement = set;
   replacement.portVlanIs(set.portVlanFrr());
   for (auto const& [member, flag] : set.portVlanFrr())
      added(member);
   return replacement;
}

// The place where the last pass of any reactor of the path stopped, and this reactor. The process
// has one position for each path, since passes never overlap. The position holds its oif set; the
// destructor of the reactor clears it.
template <class Reactor>
struct FrrPosition {
   MrouteLib::OifSetPtr oifSet;
   Reactor const* reactor = nullptr;

   static FrrPosition& ofProcess() {
      static auto* const position = new FrrPosition;
      return *position;
   }
   static void clear(Reactor const* reactor) {
      if (ofProcess().reactor == reactor) ofProcess() = {};
   }
};

// One pass over the waiting oif sets, in a circle from `from` on, or from the beginning if `from`
// does not wait, until no set waits or the deadline is reached. `rewrite` rewrites one oif set and
// removes it from `waiting`. Returns the oif set with which the next pass begins; null if no set
// waits. The pass looks each set up again, since a listener of a rewrite may change the collection.
template <class Waiting, class Rewrite>
MrouteLib::OifSetPtr frrPass(Waiting const& waiting, MrouteLib::OifSetPtr const& from,
                             Qor::Seconds deadline, Rewrite const& rewrite) {
   while (!waiting.empty()) {
      std::vector<MrouteLib::OifSetPtr> order;
      for (auto const& [oifSet, record] : waiting)
         order.push_back(oifSet);
      auto const first = std::find(order.begin(), order.end(), from);
      if (first != order.end()) std::rotate(order.begin(), first, order.end());
      for (MrouteLib::OifSetPtr const& oifSet : order) {
         if (!waiting.find(oifSet)) continue;
         if (Qor::now() >= deadline) return oifSet;
         rewrite(oifSet);
      }
   }
   return nullptr;
}

}  // namespace Vel
