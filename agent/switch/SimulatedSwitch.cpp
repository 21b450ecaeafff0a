#include "agent/switch/SimulatedSwitch.h"

#include <algorithm>
#include <set>
#include <utility>
#include <vector>

#include "agent/input/CaptureState.h"
#include "agent/switch/SwitchPathFactory.h"

namespace Agent {

namespace {

Qor::Ptr<Qor::ActivityManager> newVirtualTime() {
   auto manager = Qor::make<Qor::ActivityManager>(Qor::ActivityManager::TimeBase::virtualTime);
   Qor::activityManagerIs(manager);
   return manager;
}

}  // namespace

bool carriesTraffic(Interface::IntfOperStatus status) {
   return status == Interface::IntfOperStatus::up || status == Interface::IntfOperStatus::unknown;
}

SimulatedSwitch::SimulatedSwitch(PathKind path, Sim::ChipConfig const& config, InterfaceMap intfMap,
                                 PathConfig const& pathConfig)
      : intfMap_(std::move(intfMap)),
        activity_(newVirtualTime()),
        pathKind_(path),
        pathConfig_(pathConfig),
        surroundings_{Qor::make<Sim::Chip>(config),
                      Qor::make<Routing::Multicast::Fib::VrfConfig>(),
                      Qor::make<Routing::Multicast::Fib::Hardware::Status>(),
                      Qor::make<IntfVlanId::Table>(),
                      Qor::make<Interface::EthIntfStatusDir>(),
                      Qor::make<Bfd::AppStatus>()},
        path_(newSwitchPath(pathKind_, surroundings_, pathConfig_)),
        replay_([this](RouteId const& id,
                       WantedRoute const& wanted) { programmer().routeIs(id.vrf, id.key, wanted); },
                [this] { programmer().resyncEnd(); }) {
   learnVrf(L3::VrfName("default"));
}

SimulatedSwitch::~SimulatedSwitch() = default;

void SimulatedSwitch::apply(CaptureEvent const& event) {
   activity_->runUntil(timeOf(event).time);
   learn(event);
   std::visit([this](auto const& e) { apply(e); }, event);
}

void SimulatedSwitch::settle() {
   while (!programmer().settled() || path_->writesPending() || recovering()) {
      activity_->runUntil(activity_->nextDeadline());
   }
}

std::optional<Vel::VrfId> SimulatedSwitch::vrfId(L3::VrfName const& vrf) const {
   auto const it = vrfIds_.find(vrf);
   if (it == vrfIds_.end()) return std::nullopt;
   return it->second;
}

Intf const& SimulatedSwitch::intf(Lnet::IntfId id) const {
   return intfMap_.intf(id);
}

Bridging::VlanIdOrNone SimulatedSwitch::vlanOf(WantedRoute const& wanted) const {
   if (wanted.noRpf) return {};
   return intf(wanted.iif).vlan;
}

TreeRoots SimulatedSwitch::roots() const {
   TreeRoots roots = path_->roots();
   roots.push_back({"config", Qor::toGeneric(surroundings_.mfibConfig)});
   roots.push_back({"hwStatus", Qor::toGeneric(surroundings_.mfibHwStatus)});
   roots.push_back({"interfaces", Qor::toGeneric(surroundings_.ethIntfStatusDir)});
   roots.push_back({"intfVlanId", Qor::toGeneric(surroundings_.intfVlanIdTable)});
   std::sort(roots.begin(), roots.end(),
             [](TreeRoot const& a, TreeRoot const& b) { return a.name < b.name; });
   return roots;
}

// All interfaces of the event are registered before the event is applied, so that an interface
// without a vlan refuses the whole event.
void SimulatedSwitch::learn(CaptureEvent const& event) {
   auto const learnRoute = [this](MrouteEvent const& route) {
      learnVrf(route.vrf);
      if (route.iif) learnIntf(route.iif);
      for (Lnet::IntfId const oif : route.oifs)
         learnIntf(oif);
   };
   if (auto const* route = std::get_if<MrouteEvent>(&event)) {
      learnRoute(*route);
   } else if (auto const* snapshot = std::get_if<SnapshotEvent>(&event)) {
      for (MrouteEvent const& r : snapshot->routes)
         learnRoute(r);
   }
}

Intf const& SimulatedSwitch::learnIntf(Lnet::IntfId id) {
   Intf const& known = intfMap_.intf(id);
   for (; portsMade_ < intfMap_.intfs().size(); ++portsMade_) {
      Intf const& intf = *intfMap_.intfs()[portsMade_];
      surroundings_.intfVlanIdTable->intfIdToVlanIdIs(intf.id, intf.vlan);
      if (intf.port == 0) continue;
      Sim::Refusal const refusal = chip().portAdd(intf.id, intf.port, intf.vlan);
      QOR_ASSERT(refusal.empty());
      auto const link = links_.find(intf.id);
      linkIs(intf.id, link == links_.end() ? Interface::IntfOperStatus::up : link->second.status);
   }
   return known;
}

void SimulatedSwitch::learnVrf(L3::VrfName const& vrf) {
   auto const [it, isNew] = vrfIds_.try_emplace(vrf, vrfIds_.size());
   if (!isNew) return;
   path_->vrfIs(vrf, it->second);
}

void SimulatedSwitch::apply(MrouteEvent const& event) {
   if (event.deleted || !event.resolved || !event.iif) {
      routeDel(event.vrf, event.key);
      return;
   }
   WantedRoute wanted;
   wanted.iif = event.iif;
   std::vector<Lnet::IntfId> ports;
   bool cpu = false;
   for (Lnet::IntfId const oif : event.oifs) {
      if (intf(oif).cpu) {
         cpu = true;
      } else {
         ports.push_back(oif);
      }
   }
   wanted.outputs = outputs_.get(std::move(ports), cpu);
   routeIs(event.vrf, event.key, std::move(wanted));
}

void SimulatedSwitch::apply(LinkEvent const& event) {
   // If the link was renamed, its former name is no longer the name of any link.
   Lnet::IntfId const before = std::exchange(linkNames_[event.ifindex], event.intf);
   auto const renamed = before == event.intf ? links_.end() : links_.find(before);
   if (renamed != links_.end() && renamed->second.ifindex == event.ifindex) {
      links_.erase(renamed);
      linkIs(before, Interface::IntfOperStatus::up);
   }
   links_[event.intf] = {event.ifindex, event.status};
   linkIs(event.intf, event.status);
}

// The port changes before the reactors are notified, as in hardware.
void SimulatedSwitch::linkIs(Lnet::IntfId intf, Interface::IntfOperStatus status) {
   if (!chip().port(intf)) return;
   Sim::Refusal const refusal = chip().linkIs(intf, carriesTraffic(status));
   QOR_ASSERT(refusal.empty());
   surroundings_.ethIntfStatusDir->newIntfStatus(intf)->operStatusIs(status);
}

void SimulatedSwitch::apply(SnapshotEvent const& event) {
   std::set<RouteId> listed;
   for (MrouteEvent const& route : event.routes)
      listed.insert({route.vrf, route.key});
   std::vector<RouteId> gone;
   auto const look = [&](RouteId const& id) {
      if (event.covers(id.vrf, id.key) && !listed.contains(id)) gone.push_back(id);
   };
   programmer().forEach([&](RouteView const& route) { look({route.vrf(), route.key()}); });
   for (auto const& [id, wanted] : replay_.left())
      look(id);
   for (RouteId const& id : gone)
      routeDel(id.vrf, id.key);
   for (MrouteEvent const& route : event.routes)
      apply(route);
}

}  // namespace Agent
