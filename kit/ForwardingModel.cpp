#include "kit/ForwardingModel.h"

#include <algorithm>
#include <utility>

namespace VelMroute {

using Interface::IntfOperStatus;
using Lnet::IntfId;

namespace {

std::set<IntfId> asSet(std::vector<IntfId> const& list) {
   return {list.begin(), list.end()};
}

bool isDown(IntfOperStatus state) {
   return state == IntfOperStatus::down || state == IntfOperStatus::lowerLayerDown;
}

}  // namespace

// A no-RPF route uses its input only to detect the failure that its backup covers.
bool ForwardingModel::Route::asks(Route const& other) const {
   bool const anyInput = noRpf && backup.empty();
   return (iif == other.iif || anyInput) && cpu == other.cpu && noRpf == other.noRpf &&
          bridge == other.bridge && fastdrop == other.fastdrop &&
          asSet(oifs) == asSet(other.oifs) && asSet(backup) == asSet(other.backup);
}

std::string ForwardingModel::Outputs::toString() const {
   std::string text;
   for (IntfId const port : ports)
      text += (text.empty() ? "" : " ") + port.name();
   if (cpu) text += text.empty() ? "cpu" : " cpu";
   return text.empty() ? "nowhere" : text;
}

// ---- Operations. ----

ForwardingModel::Known* ForwardingModel::find(RouteId const& id) {
   auto const it = routes_.find(id);
   return it == routes_.end() ? nullptr : &it->second;
}

ForwardingModel::Known& ForwardingModel::wantedIs(Route const& route, std::uint64_t failures) {
   Known& known = routes_[{route.vrf, route.key}];
   if (known.wanted && known.wanted->asks(route)) return known;
   if (known.wanted) known.before.push_back(*known.wanted);
   known.wanted = route;
   known.failuresAtChange = failures;
   known.unverified = true;
   return known;
}

ForwardingModel::Known* ForwardingModel::wantedDel(RouteId const& id, std::uint64_t failures) {
   Known* const known = find(id);
   if (!known || !known->wanted) return nullptr;
   known->before.push_back(*known->wanted);
   known->wanted.reset();
   known->uninterrupted = false;
   known->failuresAtChange = failures;
   known->unverified = true;
   return known;
}

bool ForwardingModel::linkIs(IntfId intf, IntfOperStatus state) {
   IntfOperStatus& known = links_.try_emplace(intf.id(), IntfOperStatus::up).first->second;
   bool const changed = std::exchange(known, state) != state;
   return changed && isDown(state);
}

bool ForwardingModel::bfdIs(Bfd::Peer const& peer, std::optional<Bfd::OperState> state) {
   if (!state) {
      sessions_.erase(peer);
      return false;
   }
   auto& known = sessions_.try_emplace(peer, Bfd::OperState::adminDown).first->second;
   bool const changed = std::exchange(known, *state) != *state;
   return changed && *state == Bfd::OperState::down && peer.type() == Bfd::SessionType::singleHop;
}

// On the synchronous path, sets without outputs share a hard-wired group, which has no backup.
bool ForwardingModel::reroutes(IntfId failed, MrouteLib::PortVlanSet const& set) const {
   return set.currentIif() == failed && !set.portVlanFrr().empty() &&
          (path_ == HookPath::async || !set.portVlan().empty());
}

void ForwardingModel::reroute(
      IntfId failed, Programmer const& programmer,
      std::function<void(RouteId const& id, Known& known)> const& rerouted) {
   // A route that is being withdrawn may be announced again before it has left its group.
   for (auto& [id, known] : routes_)
      known.mayGoBack = known.mayGoBack || !programmer.view(id.vrf, id.key);
   programmer.forEach([&](RouteView const& route) {
      RouteId const id{route.vrf(), route.key()};
      Known* const known = find(id);
      if (!known || !route.record()) return;
      known->mayGoBack = known->mayGoBack || route.state() != RouteState::inHardware;
      auto const oifSet = route.record()->oifSet();
      if (!reroutes(failed, oifSet->portVlanSet())) return;
      setRewritten(oifSet->serial());
      known->rerouted.insert(oifSet->serial());
      known->uninterrupted = false;
      if (rerouted) rerouted(id, *known);
      known->unverified = true;
   });
}

// ---- Forwarding. ----

std::optional<Qor::U64> ForwardingModel::setOf(std::optional<RouteView> const& route) {
   if (!route || !route->record()) return std::nullopt;
   return route->record()->oifSet()->serial();
}

ForwardingModel::Outputs ForwardingModel::outputs(Route const& route, bool backup) const {
   Outputs out;
   if (route.bridge) return out;
   out.cpu = route.cpu;
   for (IntfId const port : backup ? route.backup : route.oifs) {
      if (linkUp(port)) out.ports.push_back(port);
   }
   std::ranges::sort(out.ports, {}, &IntfId::id);
   return out;
}

std::vector<ForwardingModel::Outputs> ForwardingModel::expected(Known& known,
                                                                std::optional<Qor::U64> set,
                                                                bool rewritesFail) const {
   if (known.mayGoBack && set && rewritten_.contains(*set)) known.rerouted.insert(*set);
   bool const backup = set && known.rerouted.contains(*set);
   std::vector<Outputs> list{outputs(*known.wanted, backup)};
   // A failed rewrite leaves the group unchanged, and the hook has no way to report the failure.
   if (backup && rewritesFail) list.push_back(outputs(*known.wanted, false));
   return list;
}

std::vector<ForwardingModel::Outputs> ForwardingModel::permitted(Known const& known) const {
   std::vector<Outputs> list;
   if (!known.rerouted.empty()) list.push_back(outputs(*known.wanted, false));
   for (Route const& before : known.before) {
      list.push_back(outputs(before, false));
      list.push_back(outputs(before, true));
   }
   if (!known.uninterrupted) {
      list.push_back(outputs(*known.wanted, true));
      list.emplace_back();
   }
   return list;
}

void ForwardingModel::verified(Known& known, std::optional<Qor::U64> set) {
   known.unverified = false;
   known.uninterrupted = false;
   known.mayGoBack = false;
   known.before.clear();
   std::erase_if(known.rerouted, [set](Qor::U64 other) { return other != set; });
}

bool ForwardingModel::linkUp(IntfId intf) const {
   auto const it = links_.find(intf.id());
   return it == links_.end() || it->second == IntfOperStatus::up ||
          it->second == IntfOperStatus::unknown;
}

bool ForwardingModel::failed(IntfId intf) const {
   auto const it = links_.find(intf.id());
   if (it != links_.end() && isDown(it->second)) return true;
   return std::ranges::any_of(sessions_, [intf](auto const& session) {
      return session.first.intfId() == intf && session.second == Bfd::OperState::down &&
             session.first.type() == Bfd::SessionType::singleHop;
   });
}

}  // namespace VelMroute
