// Private header: the common part of the fast reroute of both paths. It has the choice of the sets
// that the failure of an interface affects, their replacement, and the pass over the waiting sets.
//
// The backup members of a set (portVlanFrr) are its complete replacement. The oif set objects stay
// unchanged: the platform receives a new object.
#pragma once

#include <bit>
#include <utility>
#include <vector>

#include "MrouteLib/OifSet.h"
#include "Qor/Blip.h"
#include "Qor/Clock.h"

namespace Vel {

// Returns whether the failure of interface `failed` causes a rewrite of the set: the traffic of the
// set comes in over `failed`, and the set has backup members.
inline bool reroutedOn(MrouteLib::PortVlanSet const& set, Lnet::IntfId failed) {
   return set.currentIif() == failed && !failed.isNull() && !set.portVlanFrr().empty();
}

// Returns the object with which the platform replaces the set: a copy with the backup members as
// outgoing members. Calls `added(member)` for each backup member. The new object stays outside the
// interner, since the routing layer must not share groups by it.
template <class Added>
MrouteLib::OifSetPtr frrReplacement(MrouteLib::PortVlanSet const& set, Added const& added) {
   MrouteLib::PortVlanSet replacement = set;
   replacement.portVlanIs(set.portVlanFrr());
   for (auto const& [member, flag] : set.portVlanFrr())
      added(member);
   return Qor::make<MrouteLib::OifSet>(nullptr, std::move(replacement));
}

// Arguments of the fast binary trace. The ring keeps a word for each member, and no text: a failure
// records these events for each affected set. The first prints all members as PortVlanSet::pretty()
// does, the second the backup members: "rtr5:1009 rtr6:1010".
struct MembersOf {
   MrouteLib::PortVlanSet const& set;
};
struct BackupMembersOf {
   MrouteLib::PortVlanSet const& set;
};
std::ostream& operator<<(std::ostream& os, BackupMembersOf of);

struct MemberWord {
   enum class Kind : Qor::U8 { outgoing, cpu, backup, incoming, nat };

   Lnet::IntfId intf;
   Qor::U16 vlan;
   Kind kind;
   bool flag;

   // By shifts: a word that is stored in parts and read as a whole would be waited for.
   Qor::U64 bits() const {
      return intf.id() | Qor::U64{vlan} << 32 | Qor::U64{static_cast<Qor::U8>(kind)} << 48 |
             Qor::U64{flag} << 56;
   }
   static MemberWord of(Qor::U64 bits) {
      return {std::bit_cast<Lnet::IntfId>(static_cast<Qor::U32>(bits)),
              static_cast<Qor::U16>(bits >> 32), static_cast<Kind>(bits >> 48 & 0xFF),
              (bits >> 56) != 0};
   }
};

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
// does not wait, until no set waits or the deadline is reached. `rewrite(oifSet, record, time)`
// rewrites one oif set and removes it from `waiting`; `record` names its record, and `time` is the
// present time. Returns the oif set with which the next pass begins; null if no set waits.
//
// A listener of a rewrite may change the collection. The walk goes on behind the place of the
// rewritten set; a set that was added before that place follows in the next round.
template <class Waiting, class Rewrite>
MrouteLib::OifSetPtr frrPass(Waiting const& waiting, MrouteLib::OifSetPtr const& from,
                             Qor::Seconds deadline, Rewrite const& rewrite) {
   auto entry = waiting.position(from);
   while (!waiting.empty()) {
      if (entry == waiting.end()) entry = waiting.begin();
      auto const [oifSet, record] = *entry;
      Qor::Seconds const time = Qor::now();
      if (time >= deadline) return oifSet;
      rewrite(oifSet, record, time);
      entry = waiting.resume(entry, oifSet);
   }
   return nullptr;
}

}  // namespace Vel

namespace Qor {

template <>
struct BlipForm<Vel::MembersOf> {
   static std::size_t size(Vel::MembersOf of) {
      MrouteLib::PortVlanSet const& set = of.set;
      return set.portVlan().size() + set.portVlanFrr().size() + set.natVlan().size() +
             std::size_t{set.toCpu()} + std::size_t{!set.currentIif().isNull()};
   }
   template <class Put>
   static void write(Vel::MembersOf of, Put const& put) {
      using Word = Vel::MemberWord;
      MrouteLib::PortVlanSet const& set = of.set;
      for (auto const& [pv, flag] : set.portVlan())
         put(Word{pv.intfId(), pv.vlanId().value(), Word::Kind::outgoing, flag}.bits());
      if (set.toCpu()) put(Word{{}, 0, Word::Kind::cpu, true}.bits());
      for (auto const& [pv, flag] : set.portVlanFrr())
         put(Word{pv.intfId(), pv.vlanId().value(), Word::Kind::backup, flag}.bits());
      if (set.currentIif()) put(Word{set.currentIif(), 0, Word::Kind::incoming, true}.bits());
      for (auto const& [vlan, flag] : set.natVlan())
         put(Word{{}, vlan.value(), Word::Kind::nat, flag}.bits());
   }
   static void print(std::ostream& os, std::span<U64 const> words);
};

template <>
struct BlipForm<Vel::BackupMembersOf> {
   static std::size_t size(Vel::BackupMembersOf of) { return of.set.portVlanFrr().size(); }
   template <class Put>
   static void write(Vel::BackupMembersOf of, Put const& put) {
      using Word = Vel::MemberWord;
      for (auto const& [pv, flag] : of.set.portVlanFrr())
         put(Word{pv.intfId(), pv.vlanId().value(), Word::Kind::backup, flag}.bits());
   }
   static void print(std::ostream& os, std::span<U64 const> words);
};

}  // namespace Qor
