#include "agent/soak/SoakModel.h"

#include <algorithm>
#include <ranges>

#include "Qor/Clock.h"

namespace Agent {

using Interface::IntfOperStatus;

namespace {

template <class List>
std::set<Lnet::IntfId> asSet(List const& list) {
   return {list.begin(), list.end()};
}

}  // namespace

std::string Outputs::toString() const {
   std::string text;
   for (Lnet::IntfId const port : ports)
      text += (text.empty() ? "" : " ") + port.name();
   if (cpu) text += text.empty() ? "cpu" : " cpu";
   return text.empty() ? "nowhere" : text;
}

// A no-RPF route uses its input only to detect the failure that its backup covers.
bool sameWish(Testbed::Route const& a, Testbed::Route const& b) {
   bool const anyInput = a.noRpf && a.backup.empty();
   return (a.iif == b.iif || anyInput) && a.cpu == b.cpu && a.noRpf == b.noRpf &&
          a.bridge == b.bridge && a.fastdrop == b.fastdrop && asSet(a.oifs) == asSet(b.oifs) &&
          asSet(a.backup) == asSet(b.backup);
}

SoakModel::Known* SoakModel::find(RouteId const& id) {
   auto const it = routes_.find(id);
   return it == routes_.end() ? nullptr : &it->second;
}

SoakModel::Known& SoakModel::wantedIs(Route const& route, std::uint64_t failures) {
   Known& known = routes_[{route.vrf, route.key}];
   if (known.wanted && sameWish(*known.wanted, route)) return known;
   if (known.wanted) known.before.push_back(*known.wanted);
   known.wanted = route;
   known.failuresAtChange = failures;
   known.changedAt = Qor::now();
   known.unverified = true;
   return known;
}

SoakModel::Known* SoakModel::wantedDel(RouteId const& id, std::uint64_t failures) {
   Known* const known = find(id);
   if (!known || !known->wanted) return nullptr;
   known->before.push_back(*known->wanted);
   known->wanted.reset();
   known->uninterrupted = false;
   known->failuresAtChange = failures;
   known->unverified = true;
   return known;
}

bool SoakModel::linkIs(Lnet::IntfId intf, IntfOperStatus state) {
   IntfOperStatus& known = links_.try_emplace(intf.id(), IntfOperStatus::up).first->second;
   bool const changed = std::exchange(known, state) != state;
   return changed && (state == IntfOperStatus::down || state == IntfOperStatus::lowerLayerDown);
}

bool SoakModel::bfdIs(Bfd::Peer const& peer, std::optional<Bfd::OperState> state) {
   if (!state) {
      sessions_.erase(peer);
      return false;
   }
   auto& known = sessions_.try_emplace(peer, Bfd::OperState::adminDown).first->second;
   bool const changed = std::exchange(known, *state) != *state;
   return changed && *state == Bfd::OperState::down && peer.type() == Bfd::SessionType::singleHop;
}

void SoakModel::intervalIs(double seconds) {
   intervals_.emplace_back(Qor::now(), seconds);
}

bool SoakModel::linkUp(Lnet::IntfId intf) const {
   auto const it = links_.find(intf.id());
   return it == links_.end() || it->second == IntfOperStatus::up ||
          it->second == IntfOperStatus::unknown;
}

Outputs SoakModel::outputs(Route const& route, bool backup) const {
   Outputs out;
   if (route.bridge) return out;
   out.cpu = route.cpu;
   for (Lnet::IntfId const port : backup ? route.backup : route.oifs) {
      if (linkUp(port)) out.ports.push_back(port);
   }
   std::sort(out.ports.begin(), out.ports.end(),
             [](Lnet::IntfId a, Lnet::IntfId b) { return a.id() < b.id(); });
   return out;
}

bool SoakModel::failed(Lnet::IntfId intf) const {
   auto const it = links_.find(intf.id());
   if (it != links_.end() &&
       (it->second == IntfOperStatus::down || it->second == IntfOperStatus::lowerLayerDown)) {
      return true;
   }
   return std::any_of(sessions_.begin(), sessions_.end(), [intf](auto const& session) {
      return session.first.intfId() == intf && session.second == Bfd::OperState::down &&
             session.first.type() == Bfd::SessionType::singleHop;
   });
}

// The interval that was in force at `since` is included.
double SoakModel::longestInterval(double since) const {
   double longest = 0;
   for (auto const& [begin, interval] : intervals_ | std::views::reverse) {
      longest = std::max(longest, interval);
      if (begin < since) break;
   }
   return longest;
}

}  // namespace Agent
