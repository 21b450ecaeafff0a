#include "platform/openflow/Pipeline.h"

#include <algorithm>
#include <utility>

namespace OpenFlow {

using Bridging::VlanIdOrNone;
using Lnet::IntfId;
using Kind = Action::Kind;

namespace {

constexpr std::size_t mostPorts = 1 << 16;  // a bridge may name ports without end
constexpr U16 fromCpuPriority = 30;
constexpr U16 controlPriority = 20;
constexpr U16 classifierPriority = 10;
constexpr U16 toCpuPriority = 1;

// The packets that the routing protocols of the kernel need, in addition to all routes.
std::vector<Match> controlPackets() {
   constexpr U8 igmp = 2, icmp6 = 58, pim = 103;
   std::vector<Match> all;
   auto const add = [&](U16 ethType) -> Match& {
      all.emplace_back().ethType = ethType;
      return all.back();
   };
   add(ethTypeV4).protocol = igmp;
   add(ethTypeV4).protocol = pim;
   add(ethTypeV6).protocol = pim;
   add(ethTypeV4).destination = *Lnet::IpGenPrefix::parse("224.0.0.0/24");
   add(ethTypeV6).destination = *Lnet::IpGenPrefix::parse("ff02::/16");
   for (U8 const mld : {130, 131, 132, 143}) {
      Match& match = add(ethTypeV6);
      match.protocol = icmp6;
      match.icmp6Type = mld;
   }
   return all;
}

void pushVlan(Actions& actions, std::optional<U16> vlan) {
   constexpr U16 ethTypeVlan = 0x8100;
   if (!vlan) return;
   actions.push_back({Kind::pushVlan, ethTypeVlan});
   actions.push_back({Kind::setVlan, U64{vlanPresent} | *vlan});
}

}  // namespace

std::string keyOf(Flow const& flow) {
   Flow key;
   key.table = flow.table;
   key.priority = flow.priority;
   key.match = flow.match;
   // The bytes of a match do not show fields that the platform does not know.
   return flowMod(FlowCommand::deleteStrict, key) + (key.match.other ? "?" : "");
}

// ---- Interfaces ----

Pipeline::Interface const* Pipeline::find(IntfId intf) const {
   auto const at = std::find_if(interfaces_.begin(), interfaces_.end(),
                                [&](Interface const& i) { return i.port.intf == intf; });
   return at == interfaces_.end() ? nullptr : &*at;
}

Pipeline::Interface* Pipeline::find(IntfId intf) {
   return const_cast<Interface*>(std::as_const(*this).find(intf));
}

bool Pipeline::interfaceIs(Port const& port) {
   Interface* interface = find(port.intf);
   if (!interface) {
      if (interfaces_.size() >= options_.interfaces) return false;
      interface = &interfaces_.emplace_back();
   }
   interface->port = port;
   if (auto const vlan = vlans_.find(port.intf); vlan != vlans_.end())
      interface->vlan = vlan->second;
   interface->there = true;
   return true;
}

void Pipeline::interfaceDel(IntfId intf) {
   Interface* const interface = find(intf);
   if (!interface) return;
   interface->there = interface->onStandby = interface->up = false;
}

void Pipeline::vlanIs(IntfId intf, VlanIdOrNone vlan) {
   vlans_[intf] = vlan;
   if (Interface* const interface = find(intf)) interface->vlan = vlan;
}

std::optional<U32> Pipeline::groupOf(IntfId intf) const {
   Interface const* const interface = find(intf);
   if (!interface) return std::nullopt;
   return options_.firstGroup + static_cast<U32>(interface - interfaces_.data());
}

std::optional<MrouteLib::PortVlan> Pipeline::memberOf(U32 group) const {
   U32 const index = group - options_.firstGroup;
   if (group < options_.firstGroup || index >= interfaces_.size()) return std::nullopt;
   return MrouteLib::PortVlan(interfaces_[index].port.intf, interfaces_[index].vlan);
}

// ---- Ports ----

PortDesc const* Pipeline::port(std::string const& name) const {
   auto const at = ports_.find(name);
   return at == ports_.end() ? nullptr : &at->second;
}

bool Pipeline::up(std::string const& name) const {
   PortDesc const* const found = port(name);
   return found && found->up;
}

std::vector<Pipeline::Change> Pipeline::portsAre(std::vector<PortDesc> const& ports) {
   ports_.clear();
   for (PortDesc const& port : ports)
      ports_[port.name] = port;
   return refresh();
}

std::vector<Pipeline::Change> Pipeline::portIs(PortDesc const& port) {
   std::erase_if(ports_, [&](auto const& p) { return p.second.number == port.number; });
   if (ports_.size() < mostPorts || ports_.contains(port.name)) ports_[port.name] = port;
   return refresh();
}

// A port that was added again under another number may be in the table already.
std::vector<Pipeline::Change> Pipeline::portDel(PortDesc const& port) {
   auto const at = ports_.find(port.name);
   if (at != ports_.end() && at->second.number == port.number) ports_.erase(at);
   return refresh();
}

std::vector<Pipeline::Change> Pipeline::refresh() {
   std::vector<Change> changes;
   for (Interface& interface : interfaces_) {
      if (!interface.there) continue;
      Change change{interface.port.intf, {}, {}};
      bool const front = up(interface.port.front);
      bool const standby = !interface.port.standby.empty() && up(interface.port.standby);
      if (front != interface.up) {
         interface.up = front;
         interface.upSince = Qor::now();
         change.link = front;
      }
      if (!front) interface.released = false;
      bool const held = interface.onStandby && !interface.released &&
                        Qor::now() < interface.upSince + options_.standbyHold;
      bool const wanted = standby && (!front || held);
      // Without any link, a change would help nobody.
      bool const onStandby = front || standby ? wanted : interface.onStandby;
      if (onStandby != interface.onStandby) change.onStandby = interface.onStandby = onStandby;
      if (change.link || change.onStandby) changes.push_back(change);
   }
   return changes;
}

std::vector<Pipeline::Change> Pipeline::protectionEnds(IntfId intf) {
   Interface* const interface = find(intf);
   if (interface && interface->up) interface->released = true;
   return refresh();
}

Qor::Seconds Pipeline::nextHoldEnd() const {
   Qor::Seconds next = Qor::never;
   for (Interface const& interface : interfaces_) {
      if (interface.there && interface.onStandby && interface.up) {
         next = std::min(next, interface.upSince + options_.standbyHold);
      }
   }
   return next;
}

std::optional<bool> Pipeline::linkUp(IntfId intf) const {
   Interface const* const interface = find(intf);
   if (!interface || !interface->there) return std::nullopt;
   return interface->up;
}

bool Pipeline::onStandby(IntfId intf) const {
   Interface const* const interface = find(intf);
   return interface && interface->onStandby;
}

std::optional<bool> Pipeline::sends(IntfId intf) const {
   Interface const* const interface = find(intf);
   if (!interface || !interface->there) return std::nullopt;
   return interface->onStandby ? up(interface->port.standby) : interface->up;
}

std::optional<U32> Pipeline::cpuPort(IntfId intf) const {
   Interface const* const interface = find(intf);
   PortDesc const* const cpu = interface && interface->there ? port(interface->port.cpu) : nullptr;
   if (!cpu) return std::nullopt;
   return cpu->number;
}

// ---- Tables ----

// An indirect group has exactly one bucket. A bucket without an action drops.
GroupDesc Pipeline::groupFor(U32 index) const {
   Interface const& interface = interfaces_[index];
   GroupDesc group;
   group.id = options_.firstGroup + index;
   group.type = GroupType::indirect;
   Actions& actions = group.buckets.emplace_back();
   PortDesc const* const out =
         port(interface.onStandby ? interface.port.standby : interface.port.front);
   if (!interface.there || !out) return group;
   U64 source = 0;
   for (U8 const byte : interface.port.mac)
      source = source << 8 | byte;
   actions.push_back({Kind::setSource, source});
   pushVlan(actions, interface.port.vlan);
   actions.push_back({Kind::output, out->number});
   return group;
}

void Pipeline::addFlows(U32 index, std::string const& frontName,
                        std::map<std::string, Flow>& flows) const {
   Interface const& interface = interfaces_[index];
   PortDesc const* const front = port(frontName);
   PortDesc const* const cpu = port(interface.port.cpu);
   std::optional<U16> const vlan = interface.port.vlan;
   Masked const metadata{metadataOf(interface.port.vrfId, interface.vlan)};
   auto const flow = [&](U8 table, U16 priority) {
      Flow made;
      made.table = table;
      made.priority = priority;
      made.cookie = cookieOf(CookieKind::pipeline, index);
      return made;
   };
   // Of two interfaces with one port and vlan, the first has the flow.
   auto const add = [&](Flow made) {
      std::string key = keyOf(made);
      flows.emplace(std::move(key), std::move(made));
   };
   if (cpu) {
      Flow toCpu = flow(routeTable, toCpuPriority);
      toCpu.match.metadata = metadata;
      toCpu.actions = {{Kind::output, cpu->number}};
      add(std::move(toCpu));
   }
   if (cpu && front) {
      Flow fromCpu = flow(classifierTable, fromCpuPriority);
      fromCpu.match.inPort = cpu->number;
      pushVlan(fromCpu.actions, vlan);
      fromCpu.actions.push_back({Kind::output, front->number});
      add(std::move(fromCpu));
   }
   if (!front) return;
   auto const fromFront = [&](Match match, U16 priority) {
      Flow made = flow(classifierTable, priority);
      made.match = std::move(match);
      made.match.inPort = front->number;
      made.match.vlan = vlan ? static_cast<U16>(vlanPresent | *vlan) : U16{0};
      if (vlan) made.actions.push_back({Kind::popVlan});
      return made;
   };
   if (cpu) {
      static std::vector<Match> const control = controlPackets();
      for (Match const& match : control) {
         Flow made = fromFront(match, controlPriority);
         made.actions.push_back({Kind::output, cpu->number});
         add(std::move(made));
      }
   }
   Flow classifier = fromFront({}, classifierPriority);
   classifier.actions.push_back({Kind::clearInPort});
   classifier.metadata = metadata;
   classifier.next = routeTable;
   add(std::move(classifier));
}

std::map<std::string, Flow> Pipeline::wantedFlows() const {
   std::map<std::string, Flow> flows;
   for (U32 index = 0; index < interfaces_.size(); ++index) {
      Interface const& interface = interfaces_[index];
      if (!interface.there) continue;
      addFlows(index, interface.onStandby ? interface.port.standby : interface.port.front, flows);
   }
   return flows;
}

bool Pipeline::meansTheSame(std::vector<Flow> const& flows,
                            std::vector<GroupDesc> const& groups) const {
   auto const wanted = wantedFlows();
   for (Flow const& found : flows) {
      if (!isOwn(found.cookie, CookieKind::pipeline) || !found.metadata) continue;
      auto const at = wanted.find(keyOf(found));
      if (at != wanted.end() && at->second.metadata != found.metadata) return false;
   }
   auto const nameOf = [&](U64 number) {
      auto const at = std::find_if(ports_.begin(), ports_.end(),
                                   [&](auto const& port) { return port.second.number == number; });
      return at == ports_.end() ? std::string() : at->first;
   };
   for (GroupDesc const& found : groups) {
      U32 const index = found.id - options_.firstGroup;
      if (!isInterfaceGroup(found.id) || index >= interfaces_.size()) continue;
      Port const& port = interfaces_[index].port;
      std::optional<U16> vlan;
      std::string name;
      for (Actions const& actions : found.buckets) {
         for (Action const& action : actions) {
            if (action.kind == Kind::setVlan) vlan = static_cast<U16>(action.value & 0xfff);
            if (action.kind == Kind::output) name = nameOf(action.value);
         }
      }
      // The port may have been deleted in the meantime.
      if (!name.empty() && (vlan != port.vlan || (name != port.front && name != port.standby))) {
         return false;
      }
   }
   return true;
}

void Pipeline::foundAre(std::vector<Flow> const& flows, std::vector<GroupDesc> const& groups) {
   flows_.clear();
   groups_.clear();
   for (Flow const& flow : flows) {
      if (isOwn(flow.cookie, CookieKind::pipeline)) flows_[keyOf(flow)] = flow;
   }
   for (GroupDesc const& group : groups) {
      if (isInterfaceGroup(group.id)) groups_[group.id] = group;
   }
   // A flow that is not understood is deleted by its cookie, and so are all others of that cookie.
   for (Flow const& flow : flows) {
      if (!flow.match.other) continue;
      std::erase_if(flows_, [&](auto const& f) {
         return f.second.cookie == flow.cookie && !f.second.match.other;
      });
   }
}

// Additions come first, and groups before the flows behind which they stand.
std::vector<Write> Pipeline::writes() {
   std::vector<Write> all;
   auto const write = [&](std::string message) { all.emplace_back().message = std::move(message); };
   for (U32 index = 0; index < interfaces_.size(); ++index) {
      GroupDesc group = groupFor(index);
      auto const [at, added] = groups_.emplace(group.id, group);
      if (!added && at->second == group) continue;
      write(groupMod(added ? GroupCommand::add : GroupCommand::modify, group));
      at->second = std::move(group);
   }
   for (auto const& [key, flow] : flows_) {
      if (flow.match.other) write(deletionOf(flow));
   }
   std::map<std::string, Flow> wanted = wantedFlows();
   for (auto const& [key, flow] : wanted) {
      auto const at = flows_.find(key);
      if (at == flows_.end() || !at->second.sameAs(flow)) write(flowMod(FlowCommand::add, flow));
   }
   for (auto const& [key, flow] : flows_) {
      if (!flow.match.other && !wanted.contains(key)) write(deletionOf(flow));
   }
   flows_ = std::move(wanted);
   for (auto at = groups_.begin(); at != groups_.end();) {
      bool const known = at->first - options_.firstGroup < interfaces_.size();
      if (!known) write(groupMod(GroupCommand::deletion, {at->first, GroupType::indirect, {}}));
      at = known ? std::next(at) : groups_.erase(at);
   }
   return all;
}

// A flow with a match that is not understood is deleted by its cookie.
std::string deletionOf(Flow const& flow) {
   Flow deleted;
   deleted.table = flow.table;
   deleted.priority = flow.priority;
   deleted.cookie = flow.cookie;
   if (flow.match.other) return flowMod(FlowCommand::deletion, deleted, ~U64{0});
   deleted.match = flow.match;
   return flowMod(FlowCommand::deleteStrict, deleted, ~U64{0});
}

}  // namespace OpenFlow
