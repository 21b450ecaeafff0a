#include "agent/switch/Switch.h"

#include <algorithm>
#include <chrono>
#include <set>
#include <thread>
#include <unordered_set>
#include <utility>
#include <vector>

#include "agent/input/CaptureState.h"
#include "agent/process/Signals.h"
#include "agent/switch/SwitchPathFactory.h"
#include "platform/Format.h"

namespace Agent {

namespace {

using TimeBase = Qor::ActivityManager::TimeBase;

// In real time, the longest wait for work of other threads, which no clock announces.
constexpr Qor::Seconds longestWait = 0.01;

Qor::Ptr<Qor::ActivityManager> newTime(bool isVirtual) {
   auto manager =
         Qor::make<Qor::ActivityManager>(isVirtual ? TimeBase::virtualTime : TimeBase::real);
   Qor::activityManagerIs(manager);
   return manager;
}

// A process that takes over the tables of an earlier one knows no state of it.
Crashed const noCrash;

// The view of a platform that cannot read its tables back.
class NoView final : public VelMroute::View {
 public:
   void refresh(std::function<void(bool read)> const& done) override { done(false); }
   Qor::Seconds asOf() const override { return 0; }
   std::optional<Qor::U32> groupOf(Qor::U32) const override { return std::nullopt; }
   std::optional<Group> group(Qor::U32) const override { return std::nullopt; }
   std::optional<Entry> entry(MrouteLib::RouteHandle) const override { return std::nullopt; }
   void forEachEntry(std::function<void(Entry const&)> const&) const override {}
   void forEachGroup(std::function<void(Qor::U32, Group const&)> const&) const override {}
   Use use(Table) const override { return {}; }
   std::optional<bool> linkUp(Lnet::IntfId) const override { return std::nullopt; }
};

}  // namespace

bool carriesTraffic(Interface::IntfOperStatus status) {
   return status == Interface::IntfOperStatus::up || status == Interface::IntfOperStatus::unknown;
}

Switch::Switch(PlatformChoice const& platform, InterfaceMap intfMap)
      : intfMap_(std::move(intfMap)),
        activity_(platform.live ? Qor::activityManager() : newTime(platform.virtualTime)),
        pathKind_(platform.path),
        virtualTime_(platform.virtualTime),
        checksHooks_(platform.checksHooks),
        history_(platform.explains ? Qor::make<SwitchHistory>() : nullptr),
        surroundings_{platform.make(),
                      platform.checksHooks || platform.explains ? Qor::make<VelMroute::HookFaults>()
                                                                : nullptr,
                      platform.checksHooks, history_,
                      // Without checks a scenario may refuse room on purpose.
                      platform.checksHooks ? platform.refusals : 0,
                      Qor::make<Routing::Multicast::Fib::VrfConfig>(),
                      Qor::make<Routing::Multicast::Fib::Hardware::Status>(),
                      Qor::make<IntfVlanId::Table>(), Qor::make<Interface::EthIntfStatusDir>(),
                      Qor::make<Bfd::AppStatus>()},
        replay_([this](RouteId const& id,
                       WantedRoute const& wanted) { programmer().routeIs(id.vrf, id.key, wanted); },
                [this] { programmer().resyncEnd(); }) {
   pathIs(newSwitchPath(surroundings_, platform.live ? &noCrash : nullptr));
   learnVrf(L3::VrfName("default"));
}

void Switch::pathIs(std::unique_ptr<SwitchPath> path) {
   path_ = std::move(path);
   programmer().observerIs(history_.get());
}

Switch::~Switch() = default;

void Switch::apply(CaptureEvent const& event) {
   // A capture without time stamps has all its events at one instant of virtual time, at which a
   // clock may fire only so often (Qor/Clock.h). Later events of the instant are applied together.
   constexpr Qor::U32 apart = 1000;
   Qor::Seconds const time = timeOf(event).time;
   eventsNow_ = virtualTime_ && time <= Qor::now() ? eventsNow_ + 1 : 0;
   if (eventsNow_ < apart) runUntil(time);
   learn(event);
   std::visit([this](auto const& e) { apply(e); }, event);
}

// The wait for a chip in real time, which an interrupt shortens.
class Switch::Patience {
 public:
   bool ends() {
      constexpr Qor::Seconds afterInterrupt = 1;
      if (interrupted()) end_ = std::min(end_, Qor::now() + afterInterrupt);
      return Qor::now() >= end_;
   }

 private:
   Qor::Seconds end_ = Qor::never;
};

bool Switch::settle() {
   Patience patience;
   while (!programmer().settled() || platform().writesPending() || recovering()) {
      if (virtualTime_) {
         runTurns();
      } else if (patience.ends()) {
         return false;
      } else {
         wait(Qor::now() + longestWait);
      }
   }
   if (VelMroute::Probe* const probe = platform().probe(); probe && !virtualTime_) probe->settle();
   readBack();
   return true;
}

void Switch::runUntil(Qor::Seconds time) {
   // The caller's changes are complete, and time has not moved since.
   if (timeline_) timeline_->turnEnds();
   if (virtualTime_) {
      // From deadline to deadline, because the span may have millions of them.
      while (!interrupted() && nextDeadline() < Qor::never && nextDeadline() <= time)
         runTurns();
      if (!interrupted()) activity_->runUntil(time);
      return;
   }
   activity_->runDue();
   while (!interrupted() && Qor::now() < time)
      wait(time);
}

// Virtual time only: runs all that is due at the next deadline.
void Switch::runTurns() {
   activity_->runUntil(nextDeadline());
   if (timeline_) timeline_->turnEnds();
}

// Real time only: waits until `time`, the next deadline or the longest wait, and runs the due clocks.
// A probe knows how to turn the loop of its platform, which may have descriptors of its own.
void Switch::wait(Qor::Seconds time) {
   Qor::Seconds const now = Qor::now();
   Qor::Seconds const step =
         std::min({time, std::max(nextDeadline(), now), now + longestWait}) - now;
   if (VelMroute::Probe* const probe = platform().probe()) {
      probe->wait(step);
   } else {
      std::this_thread::sleep_for(std::chrono::duration<double>(step));
   }
   activity_->runDue();
   if (timeline_) timeline_->turnEnds();
}

VelMroute::View const& Switch::view() const {
   static NoView const none;
   if (!canRead()) return none;
   return *surroundings_.platform->view();
}

void Switch::readBack() {
   VelMroute::View* const view = platform().view();
   if (!view) return;
   // The platform may call back after this function has ended by an error.
   auto const done = std::make_shared<bool>(false);
   view->refresh([done](bool) { *done = true; });
   for (Patience patience; !*done && (virtualTime_ || !patience.ends());) {
      if (virtualTime_) {
         runTurns();
      } else {
         wait(Qor::now() + longestWait);
      }
   }
}

VelMroute::Probe::Seen Switch::send(VelMroute::Probe::Packet packet) {
   packet.vlan = intf(packet.in).vlan;
   return std::move(platform().probe()->inject({&packet, 1}).front());
}

std::optional<Vel::VrfId> Switch::vrfId(L3::VrfName const& vrf) const {
   auto const it = vrfIds_.find(vrf);
   if (it == vrfIds_.end()) return std::nullopt;
   return it->second;
}

Intf const& Switch::intf(Lnet::IntfId id) const {
   return intfMap_.intf(id);
}

Bridging::VlanIdOrNone Switch::vlanOf(WantedRoute const& wanted) const {
   if (wanted.noRpf) return {};
   return intf(wanted.iif).vlan;
}

TreeRoots Switch::roots() const {
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
void Switch::learn(CaptureEvent const& event) {
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

Intf const& Switch::learnIntf(Lnet::IntfId id) {
   Intf const& known = intfMap_.intf(id);
   while (portsMade_ < intfMap_.intfs().size()) {
      Intf const& intf = *intfMap_.intfs()[portsMade_++];
      surroundings_.intfVlanIdTable->intfIdToVlanIdIs(intf.id, intf.vlan);
      if (intf.port == 0 || !platform().portIs(intf.id, intf.port, intf.vlan)) continue;
      ported_.insert(intf.id.id());
      auto const link = links_.find(intf.id);
      portLinkIs(intf.id,
                 link == links_.end() ? Interface::IntfOperStatus::up : link->second.status);
   }
   if (known.port != 0 && !ported_.contains(id.id())) {
      throw InterfaceMapFull("the chip has no port " + std::to_string(known.port) + " for " +
                             id.name());
   }
   return known;
}

void Switch::learnVrf(L3::VrfName const& vrf) {
   auto const [it, isNew] = vrfIds_.try_emplace(vrf, vrfIds_.size());
   if (!isNew) return;
   if (history_) history_->vrfIs(vrf, it->second);
   path_->vrfIs(vrf, it->second);
}

void Switch::apply(MrouteEvent const& event) {
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

void Switch::apply(LinkEvent const& event) {
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

void Switch::linkIs(Lnet::IntfId intf, Interface::IntfOperStatus status) {
   if (!ported_.contains(intf.id())) return;
   if (timeline_) {
      timeline_->link(fmt::format("link {} {}", intf, status), intf.name(),
                      !carriesTraffic(status));
   }
   portLinkIs(intf, status);
}

// The port changes before the reactors are notified, as in hardware.
void Switch::portLinkIs(Lnet::IntfId intf, Interface::IntfOperStatus status) {
   VelMroute::Probe* const probe = platform().probe();
   bool const up = carriesTraffic(status);
   auto const known = surroundings_.ethIntfStatusDir->intfStatus(intf);
   bool const wasUp = !known || carriesTraffic(known->operStatus());
   if (history_ && up != wasUp) history_->link(intf, up);
   if (!probe || !probe->linkIs(intf, up)) fixedLinks_.insert(intf);
   surroundings_.ethIntfStatusDir->newIntfStatus(intf)->operStatusIs(status);
}

std::optional<bool> Switch::linkUp(Lnet::IntfId intf) const {
   if (auto const up = view().linkUp(intf)) return up;
   auto const status = surroundings_.ethIntfStatusDir->intfStatus(intf);
   if (!status || canRead()) return std::nullopt;
   if (!linkFollows(intf)) return true;  // as ports are whose links nobody changes
   return carriesTraffic(status->operStatus());
}

void Switch::apply(SnapshotEvent const& event) {
   // The list of a first snapshot, which ends no route, would only take memory.
   std::unordered_set<RouteId, VelMroute::RouteIdHash> listed;
   bool const mayEnd = programmer().routes() > 0 || !replay_.left().empty();
   for (MrouteEvent const& route : event.routes) {
      if (mayEnd) listed.insert({route.vrf, route.key});
   }
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
