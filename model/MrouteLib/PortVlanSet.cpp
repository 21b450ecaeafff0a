#include "MrouteLib/PortVlanSet.h"

#include <sstream>

#include "Qor/Hash.h"

namespace MrouteLib {

namespace {

Qor::U64 memberWord(PortVlan const& pv) {
   return Qor::U64{pv.intfId().id()} << 32 | pv.vlanId().value();
}

Qor::U64 memberWord(Bridging::VlanId vlan) {
   return vlan.value();
}

template <class K>
Qor::U64 mixMembers(Qor::U64 h, FlatFlagMap<K> const& members) {
   h = Qor::hashMix(h, members.size());
   for (auto const& [key, flag] : members) {
      h = Qor::hashMix(h, memberWord(key) << 1 | Qor::U64{flag});
   }
   return h;
}

// Writes the words that make up the pretty form with one blank between them.
class WordList {
 public:
   template <class T>
   void add(T const& word, char const* mark = "") {
      if (out_.size() > 1) out_ += ' ';
      out_ += mark;
      append(word);
   }
   template <class K>
   void addMembers(char const* title, FlatFlagMap<K> const& members) {
      if (*title && !members.empty()) add(title);
      for (auto const& [key, flag] : members) {
         add(key, flag ? "" : "!");
      }
   }
   Qor::String text() { return std::move(out_ += '}'); }

 private:
   void append(char const* word) { out_ += word; }
   void append(Lnet::IntfId intf) { out_ += intf.name(); }
   void append(PortVlan const& pv) { pv.appendTo(out_); }
   void append(Bridging::VlanId vlan) { out_ += std::to_string(vlan.value()); }

   Qor::String out_ = "{";
};

constexpr char typeName[] = "MrouteLib::PortVlanSet";

}  // namespace

Qor::U32 PortVlanSet::computeHash() const {
   Qor::U64 const scalars =
         Qor::U64{currentIif_.id()} << 32 | Qor::U64{toCpu_} << 8 | static_cast<Qor::U64>(type_);
   Qor::U64 h = Qor::hashMix(scalars, 0);
   h = mixMembers(h, portVlan_);
   h = mixMembers(h, portVlanFrr_);
   h = mixMembers(h, natVlan_);
   return Qor::hashFold(h);
}

void PortVlanSet::saveHash() const {
   savedHash_ = SavedHash(hash());
}

Qor::String PortVlanSet::pretty() const {
   WordList words;
   words.addMembers("", portVlan_);
   if (toCpu_) words.add("cpu");
   words.addMembers("frr", portVlanFrr_);
   if (currentIif_) {
      words.add("iif");
      words.add(currentIif_);
   }
   words.addMembers("nat", natVlan_);
   return words.text();
}

Qor::String PortVlanSet::strep() const {
   return Qor::String("Value('") + typeName + "', ** {'portVlan': " + portVlan_.strep() +
          ", 'portVlanFrr': " + portVlanFrr_.strep() + ", 'natVlan': " + natVlan_.strep() +
          ", 'type': " + std::to_string(static_cast<unsigned>(type_)) +
          ", 'currentIif': " + currentIif_.strep() + ", 'toCpu': " + Qor::valueToStrep(toCpu_) +
          "})";
}

PortVlanSet::PortVlanSet(Qor::String const& strep)
      : PortVlanSet(Qor::parseStrep<PortVlanSet>(typeName, strep)) {}

PortVlanSet PortVlanSet::fromStrep(Qor::StrepReader& reader) {
   PortVlanSet set;
   reader.expect("Value('MrouteLib::PortVlanSet', ** {'portVlan': ");
   set.portVlan_ = FlatFlagMap<PortVlan>::fromStrep(reader);
   reader.expect(", 'portVlanFrr': ");
   set.portVlanFrr_ = FlatFlagMap<PortVlan>::fromStrep(reader);
   reader.expect(", 'natVlan': ");
   set.natVlan_ = FlatFlagMap<Bridging::VlanId>::fromStrep(reader);
   reader.expect(", 'type': ");
   auto const last = static_cast<Qor::U64>(Routing::Multicast::Fib::lastRouteKeyType);
   set.type_ = static_cast<RouteKeyType>(reader.number(last));
   reader.expect(", 'currentIif': ");
   set.currentIif_ = Lnet::IntfId::fromStrep(reader);
   reader.expect(", 'toCpu': ");
   set.toCpu_ = reader.boolean();
   reader.expect("})");
   return set;
}

}  // namespace MrouteLib
