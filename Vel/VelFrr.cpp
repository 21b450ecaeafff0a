#include "Vel/VelFrr.h"

namespace {

MrouteLib::PortVlan portVlan(Vel::MemberWord word) {
   return MrouteLib::PortVlan(word.intf, Bridging::VlanIdOrNone(Qor::U64{word.vlan}));
}

// The set that consists of the members of these words.
MrouteLib::PortVlanSet setOf(std::span<Qor::U64 const> words) {
   using Kind = Vel::MemberWord::Kind;
   MrouteLib::PortVlanSet set;
   for (Qor::U64 const bits : words) {
      auto const word = Vel::MemberWord::of(bits);
      switch (word.kind) {
         case Kind::outgoing:
            set.newPortVlan(portVlan(word), word.flag);
            break;
         case Kind::cpu:
            set.toCpuIs(true);
            break;
         case Kind::backup:
            set.newPortVlanFrr(portVlan(word), word.flag);
            break;
         case Kind::incoming:
            set.currentIifIs(word.intf);
            break;
         case Kind::nat:
            set.newNatVlan(Bridging::VlanId(Qor::U64{word.vlan}), word.flag);
            break;
      }
   }
   return set;
}

}  // namespace

namespace Vel {

std::ostream& operator<<(std::ostream& os, BackupMembersOf of) {
   Qor::String text;
   for (auto const& [member, flag] : of.set.portVlanFrr()) {
      if (!text.empty()) text += ' ';
      member.appendTo(text);
   }
   return os << text;
}

}  // namespace Vel

namespace Qor {

void BlipForm<Vel::MembersOf>::print(std::ostream& os, std::span<U64 const> words) {
   os << setOf(words);
}

void BlipForm<Vel::BackupMembersOf>::print(std::ostream& os, std::span<U64 const> words) {
   MrouteLib::PortVlanSet const set = setOf(words);
   os << Vel::BackupMembersOf{set};
}

}  // namespace Qor
