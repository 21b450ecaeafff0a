#include "platform/openflow/Tables.h"

#include <fmt/format.h>

#include <algorithm>
#include <map>
#include <set>
#include <utility>

#include "platform/Format.h"

namespace OpenFlow {

using Hux::XactPtr;
using MrouteLib::OifSetPtr;
using MrouteLib::PortVlan;
using MrouteLib::RouteHandle;
using Qor::String8;
using Kind = Action::Kind;

namespace {

constexpr std::size_t mostNotes = 100;
constexpr Error tableFull{5, 1}, outOfGroups{6, 3}, unknownGroup{6, 8}, badOutGroup{2, 9};

// Longer groups win over shorter ones, then longer sources, then a named input.
U16 priorityOf(VelMroute::Restart::Route const& route) {
   unsigned const lengths = route.key.group().length() * 129 + route.key.source().length();
   return static_cast<U16>(lowestRoutePriority + lengths * 2 + (route.vlan.isNone() ? 0 : 1));
}

bool changesGroup(std::string const& message) {
   return message[1] == static_cast<char>(MessageType::groupMod);
}

}  // namespace

Tables::Tables(Options const& options)
      : AsyncMrouteHelper("bridge", nullptr, nullptr),
        options_(options),
        firstId_(options.firstGroup + options.interfaces),
        pipeline_(options_),
        groupPool_(options.lastGroup - firstId_ + 1),
        routePool_(options.routes),
        groupSize_(options.lastGroup - firstId_ + 1),
        routeSize_(options.routes) {}

Tables::~Tables() = default;

WriteXactPtr Tables::done() {
   return Qor::make<WriteXact>(Hux::Xact::State::succeeded);
}

void Tables::moveTo(std::vector<WriteXactPtr>& to, std::vector<WriteXactPtr> from) {
   std::move(from.begin(), from.end(), std::back_inserter(to));
}

void Tables::note(std::string text) {
   if (notes_.size() < mostNotes) notes_.push_back(std::move(text));
}

void Tables::misused(char const* hook, char const* what, U32 number) {
   if (violations_.size() >= mostNotes) return;
   violations_.push_back(fmt::format("{}: {} {} is not allocated", hook, what, number));
}

Tables::Group& Tables::groupAt(U32 id) {
   if (indexOf(id) >= groups_.size()) groups_.resize(indexOf(id) + 1);
   return groups_[indexOf(id)];
}

Tables::Entry& Tables::entryAt(U32 handle) {
   if (handle >= entries_.size()) entries_.resize(handle + 1);
   return entries_[handle];
}

void Tables::thereIs(Group& group, bool there) {
   if (group.there != there) there ? ++groupsThere_ : --groupsThere_;
   group.there = there;
}

void Tables::thereIs(Entry& entry, bool there) {
   if (entry.there != there) there ? ++routesThere_ : --routesThere_;
   entry.there = there;
}

// ---- Content as flows and groups ----

// The reason is empty if the group can be written.
GroupDesc Tables::describe(U32 id, String8& reason) const {
   Group const& group = groups_[indexOf(id)];
   GroupDesc desc{id, GroupType::all, {}};
   if (group.cpu) reason = "the bridge has no copies to the CPU";
   for (PortVlan const& member : group.members) {
      auto const output = pipeline_.groupOf(member.intfId());
      if (!output) {
         reason = fmt::format("interface {} has no port on the bridge", member.intfId());
         break;
      }
      desc.buckets.push_back({{Kind::group, *output}});
   }
   return desc;
}

std::optional<std::vector<PortVlan>> Tables::membersOf(GroupDesc const& group) const {
   if (group.other || group.type != GroupType::all) return std::nullopt;
   std::vector<PortVlan> members;
   for (Actions const& actions : group.buckets) {
      if (actions.size() != 1 || actions[0].kind != Kind::group) return std::nullopt;
      auto const member = pipeline_.memberOf(static_cast<U32>(actions[0].value));
      if (!member) return std::nullopt;
      members.push_back(*member);
   }
   std::sort(members.begin(), members.end());
   return members;
}

Flow Tables::describe(U32 handle, Entry const& entry) {
   Route const& route = entry.route;
   Flow flow;
   flow.table = routeTable;
   flow.priority = priorityOf(route);
   flow.cookie = cookieOf(CookieKind::route, handle);
   flow.match.metadata = Masked{metadataOf(route.vrfId.value(), route.vlan)};
   if (route.vlan.isNone()) flow.match.metadata->mask = ~U64{0xffff};
   flow.match.ethType = route.key.group().address().isV4() ? ethTypeV4 : ethTypeV6;
   if (!route.key.source().isAny()) flow.match.source = route.key.source();
   if (!route.key.group().isAny()) flow.match.destination = route.key.group();
   flow.actions = {{Kind::decTtl}, {Kind::group, entry.group}};
   return flow;
}

std::optional<U32> Tables::groupOf(Flow const& flow) {
   if (flow.actions.size() != 2 || flow.actions[1].kind != Kind::group) return std::nullopt;
   return static_cast<U32>(flow.actions[1].value);
}

std::optional<VelMroute::Restart::Route> Tables::routeOf(Flow const& flow) {
   Match const& match = flow.match;
   if (!isOwn(flow.cookie, CookieKind::route) || !match.metadata || !match.ethType ||
       (match.metadata->value & 0xffff) > 4094 || match.metadata->value >> 48 != 0) {
      return std::nullopt;
   }
   auto const family = match.ethType == ethTypeV4 ? Lnet::IpFamily::v4 : Lnet::IpFamily::v6;
   auto const prefix = [&](Lnet::IpGenPrefix const& given) {
      return given.isNull() ? Lnet::IpGenPrefix::any(family) : given;
   };
   Lnet::IpGenPrefix const source = prefix(match.source), group = prefix(match.destination);
   if (source.family() != family || group.family() != family) return std::nullopt;
   Entry entry;
   entry.route = {Vel::VrfId(static_cast<U32>(match.metadata->value >> 16)),
                  {source, group},
                  Bridging::VlanIdOrNone(match.metadata->value & 0xffff)};
   auto const to = groupOf(flow);
   if (!to) return std::nullopt;
   entry.group = *to;
   if (!describe(static_cast<U32>(flow.cookie), entry).sameAs(flow)) return std::nullopt;
   return entry.route;
}

// ---- Writes ----

U32 Tables::send(std::string const& message) {
   return sender_->send(message);
}

U32 Tables::sendBarrier() {
   return sender_->send(plainMessage(MessageType::barrierRequest));
}

void Tables::issue(Write write, bool first) {
   if (!write.message.empty()) ++(changesGroup(write.message) ? groupWrites_ : flowWrites_);
   if (first) {
      queue_.issueFirst(std::move(write));
   } else {
      queue_.issue(std::move(write));
   }
}

void Tables::writePipeline(bool first) {
   if (!writing_) return;
   for (Write& write : pipeline_.writes())
      issue(std::move(write), first);
}

void Tables::issueGroup(U32 id, std::vector<WriteXactPtr> xacts, XactPtr blocking) {
   Group& group = groups_[indexOf(id)];
   if (!writing_) {
      dirty_ = true;
      return moveTo(group.waiting, std::move(xacts));
   }
   Write write;
   GroupDesc const desc = describe(id, write.reason);
   write.kind = group.sent ? WriteKind::groupUpdate : WriteKind::groupCreate;
   write.number = id;
   write.xacts = std::move(xacts);
   write.blocking = std::move(blocking);
   if (write.reason.empty()) {
      write.message = groupMod(group.sent ? GroupCommand::modify : GroupCommand::add, desc);
      group.sent = true;
   }
   issue(std::move(write));
}

void Tables::issueGroupDeletion(U32 id) {
   if (!writing_) {
      dirty_ = true;
      return;
   }
   Write write;
   write.kind = WriteKind::groupDelete;
   write.number = id;
   write.message = groupMod(GroupCommand::deletion, {id, GroupType::all, {}});
   issue(std::move(write));
}

void Tables::issuePoint(U32 handle, std::vector<WriteXactPtr> xacts, XactPtr blocking) {
   Entry& entry = entries_[handle];
   if (!writing_) {
      dirty_ = true;
      return moveTo(entry.waiting, std::move(xacts));
   }
   Write write;
   write.kind = WriteKind::routePoint;
   write.number = handle;
   write.group = entry.group;
   write.message = flowMod(FlowCommand::add, describe(handle, entry));
   write.xacts = std::move(xacts);
   write.blocking = std::move(blocking);
   entry.written = true;
   issue(std::move(write));
}

// Writes complete in their order, so `there` is the state in which the bridge applied this write.
void Tables::completes(Write& write) {
   bool const good = write.reason.empty();
   auto const is = [&](Error const& error) {
      return write.error && write.error->type == error.type && write.error->code == error.code;
   };
   auto const notCreated = [](U32 id) { return fmt::format("multicast group {} not created", id); };
   if (!write.kind) {
      if (good) return;
      note("the pipeline: " + write.reason);
      return sender_->differs();
   }
   if (good) ++writes_[static_cast<std::size_t>(*write.kind)];
   switch (*write.kind) {
      case WriteKind::groupCreate:
      case WriteKind::groupUpdate: {
         Group& group = groups_[indexOf(write.number)];
         if (good) {
            thereIs(group, true);
            break;
         }
         if (is(outOfGroups)) groupSize_ = std::max(groupsThere_, 1u);
         if (is(unknownGroup)) {
            thereIs(group, false);
            write.reason = notCreated(write.number);
         }
         // A later owner of the id has writes of its own.
         if (!write.xacts.empty() && write.xacts.back() == group.xact) group.sent = group.there;
         break;
      }
      case WriteKind::groupDelete:
         if (good) thereIs(groups_[indexOf(write.number)], false);
         break;
      case WriteKind::routePoint:
         if (good) thereIs(entries_[write.number], true);
         if (is(tableFull)) routeSize_ = std::max(routesThere_, 1u);
         if (is(badOutGroup) && !groups_[indexOf(write.group)].there) {
            write.reason = notCreated(write.group);
         }
         break;
      case WriteKind::routeDelete:
         if (good) thereIs(entries_[write.number], false);
         break;
      default:
         break;
   }
   if (good || !write.xacts.empty()) return;
   note(fmt::format("{} {}: {}", *write.kind, write.number, write.reason));
   sender_->differs();
}

// ---- Hooks: groups ----

void Tables::writeGroup(U32 id, MrouteLib::PortVlanSet const& set, XactPtr blocking) {
   Group& group = groupAt(id);
   group.allocated = true;
   group.opaque = false;
   group.cpu = set.toCpu();
   group.members.clear();
   for (auto const& [member, flag] : set.portVlan())
      group.members.push_back(member);
   group.xact = Qor::make<WriteXact>();
   issueGroup(id, {group.xact}, std::move(blocking));
}

U32 Tables::doAllocateSharableMulticastGroup(MrouteLib::RouteKeyInfo const& route, OifSetPtr oifSet,
                                             XactPtr blockingXact, bool) {
   auto const preferred = found_.entries.groupOf(route.routeKey(), route.acceptingVlanId());
   // The group of a set with backup pairs may be rewritten soon, which must not change the routes
   // whose found entries point at an equal group.
   bool const reroutable = !oifSet->portVlanSet().portVlanFrr().empty();
   auto const usable = [&](U32 id) { return !(reroutable && found_.entries.awaits(id)); };
   if (auto const found = found_.groups.like(
             VelMroute::FoundGroups::contentOf(oifSet->portVlanSet()), preferred, usable)) {
      claim(*found);
      ++found_.adopted;
      return *found;
   }
   if (groupPool_.taken() >= groupSize_) return invalidMulticastId;
   auto const index = groupPool_.take();
   if (!index) return invalidMulticastId;
   writeGroup(firstId_ + *index, oifSet->portVlanSet(), std::move(blockingXact));
   return firstId_ + *index;
}

U32 Tables::doAllocateFixedMulticastGroup(OifSetPtr, XactPtr, U32) {
   return invalidMulticastId;
}

void Tables::doUpdateMulticastGroupInPlace(OifSetPtr oifSet, U32 mcastId) {
   if (!groupAllocated(mcastId)) return misused("doUpdateMulticastGroupInPlace", "group", mcastId);
   writeGroup(mcastId, oifSet->portVlanSet(), nullptr);
}

XactPtr Tables::doGetXactForOifSet(U32 mcastId) {
   if (groupAllocated(mcastId)) return groups_[indexOf(mcastId)].xact;
   misused("doGetXactForOifSet", "group", mcastId);
   return nullptr;
}

String8 Tables::doGetXactFailureReason(XactPtr xact, VelHelper::MrouteXactType) {
   if (!xact || xact->state() != Hux::Xact::State::failed) return {};
   auto const* const own = dynamic_cast<WriteXact const*>(xact.get());
   return own ? own->failureReason() : "a transaction of another platform";
}

void Tables::doDeleteOifSet(U32 mcastId) {
   if (!groupAllocated(mcastId)) return misused("doDeleteOifSet", "group", mcastId);
   deleteGroup(mcastId);
}

// The bridge deletes the flows of a group with it. A found entry that still points there therefore
// keeps the group.
void Tables::deleteGroup(U32 id) {
   Group& group = groups_[indexOf(id)];
   group.allocated = false;
   if (found_.entries.holds(id)) {
      bool const certain = !group.xact->pending();
      group.found = true;
      group.xact = nullptr;
      std::optional<VelMroute::FoundGroups::Content> content;
      if (certain) content = {group.members, group.cpu};
      return found_.groups.giveBack(id, std::move(content));
   }
   bool const sent = group.sent;
   group.xact = nullptr;
   group.waiting.clear();
   group.sent = false;
   groupPool_.give(indexOf(id));
   if (sent) issueGroupDeletion(id);
}

// ---- Hooks: entries ----

RouteHandle Tables::doAllocateRoute(Routing::Multicast::Fib::IpGenRouteKey const& routeKey,
                                    Bridging::VlanIdOrNone acceptingVlanId, bool bridgeAction,
                                    Wisp::Multicast::Fib::RpaIndex, U32 vrfId) {
   if (bridgeAction) return RouteHandle();
   if (auto const found = found_.entries.find(Vel::VrfId(vrfId), routeKey, acceptingVlanId)) {
      found_.entries.take(*found);
      Entry& entry = entries_[*found];
      entry.found = false;
      entry.allocated = true;
      entry.adoptedAt = entry.group;
      ++found_.adopted;
      return RouteHandle(*found);
   }
   if (routePool_.taken() >= routeSize_) return RouteHandle();
   auto const handle = routePool_.take();
   if (!handle) return RouteHandle();
   Entry& entry = entryAt(*handle);
   bool const there = entry.there;  // a deletion may be under way
   entry = {};
   entry.there = there;
   entry.allocated = true;
   entry.route = {Vel::VrfId(vrfId), routeKey, acceptingVlanId};
   return RouteHandle(*handle);
}

void Tables::doSetMtableOifSet(RouteHandle handle, U32 mcastId, XactPtr blockingXact) {
   if (!routeAllocated(handle)) return misused("doSetMtableOifSet", "route", handle.value());
   if (!groupAllocated(mcastId)) return misused("doSetMtableOifSet", "group", mcastId);
   Entry& entry = entries_[handle.value()];
   found_.entries.release(handle.value());
   if (std::exchange(entry.adoptedAt, invalidMulticastId) == mcastId) {
      entry.point = done();
      return;
   }
   entry.group = mcastId;
   entry.point = Qor::make<WriteXact>();
   issuePoint(handle.value(), {entry.point}, std::move(blockingXact));
}

XactPtr Tables::doGetXactForIngress(RouteHandle handle) {
   if (routeAllocated(handle)) return entries_[handle.value()].point;
   misused("doGetXactForIngress", "route", handle.value());
   return nullptr;
}

void Tables::doDeleteRoute(RouteHandle handle) {
   if (!routeAllocated(handle)) return misused("doDeleteRoute", "route", handle.value());
   found_.entries.release(handle.value());
   deleteEntry(handle.value());
}

void Tables::deleteEntry(U32 handle) {
   Entry& entry = entries_[handle];
   bool const written = entry.written;
   Write write;
   write.kind = WriteKind::routeDelete;
   write.number = handle;
   if (written) write.message = deletionOf(describe(handle, entry));
   bool const there = entry.there;
   entry = {};
   entry.there = there;
   routePool_.give(handle);
   if (!written) return;
   if (!writing_) {
      dirty_ = true;
      return;
   }
   issue(std::move(write));
}

Qor::Seconds Tables::routeLastAccessedTime(RouteHandle handle) {
   if (routeAllocated(handle)) return entries_[handle.value()].lastHit;
   misused("routeLastAccessedTime", "route", handle.value());
   return 0;
}

// The flow of an earlier owner of the handle may be counted while it is deleted.
void Tables::countIs(U32 handle, U64 packets, Qor::Seconds at) {
   if (!routeAllocated(RouteHandle(handle))) return;
   Entry& entry = entries_[handle];
   if (!entry.point || entry.point->state() != Hux::Xact::State::succeeded) return;
   if (packets > 0 && packets != entry.packets) entry.lastHit = std::max(entry.lastHit, at);
   entry.packets = packets;
}

double Tables::doGetAdjustedPollingInterval(double const& interval) {
   return std::max(interval, options_.readingInterval);
}

double Tables::doGetAdjustedActivityPollInterval(double const& interval) {
   return std::max(interval, options_.readingInterval);
}

}  // namespace OpenFlow
