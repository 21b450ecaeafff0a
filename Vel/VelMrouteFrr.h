// What the fast reroute of both paths has in common: which sets a failed interface hits, what they
// are rewritten to, and the pass over those that wait.
//
// A set's backup members (portVlanFrr) are its complete replacement. The oif set objects stay as
// they are: the platform is given a new one.
#pragma once

#include <algorithm>
#include <vector>

#include "Interface/IntfOperStatus.h"
#include "MrouteLib/OifSet.h"
#include "Qor/Clock.h"
#include "Qor/Export.h"

namespace Vel {

// A pass stops when it has lasted this long, tested before each rewrite.
inline constexpr Qor::Seconds frrPassBudget = 0.1;

// Whether the interface carries nothing any more.
inline bool startsReroute(Interface::IntfOperStatus status) {
   return status == Interface::IntfOperStatus::down ||
          status == Interface::IntfOperStatus::lowerLayerDown;
}

// Whether the failure of `failed` has the set rewritten: its traffic comes in there, and it has
// backup members.
inline bool reroutedOn(MrouteLib::PortVlanSet const& set, Lnet::IntfId failed) {
   return set.currentIif() == failed && !failed.isNull() && !set.portVlanFrr().empty();
}

// The backup members: "rtr5:1009 rtr6:1010".
QOR_PUBLIC Qor::String frrMembers(MrouteLib::PortVlanSet const& set);

// The set with its backup members in the place of the outgoing ones. `added` is told each.
template <class Added>
MrouteLib::PortVlanSet frrReplacement(MrouteLib::PortVlanSet const& set, Added const& added) {
   MrouteLib::PortVlanSet replacement = set;
   replacement.portVlanIs(set.portVlanFrr());
   for (auto const& [member, flag] : set.portVlanFrr())
      added(member);
   return replacement;
}

// Where the last pass of any reactor of the path stopped, and the reactor: one for the process,
// since passes never overlap. It holds the oif set, and goes with its reactor.
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

// One pass over what waits: from `from` on, or from the beginning where that does not wait, and
// round, until nothing waits or the deadline has come. `rewrite` deals with one oif set, and has it
// wait no more. Returns the next oif set; null when none waits. By key, since whoever is told of a
// rewrite may change the collection.
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
