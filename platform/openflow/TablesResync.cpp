// The tables after a connection: the differences to the bridge, the adoption of found groups and
// entries, and the sweep.
#include <algorithm>
#include <set>
#include <utility>

#include "platform/openflow/Tables.h"

namespace OpenFlow {

using MrouteLib::RouteHandle;
using Qor::String8;
using Qor::U64;

// ---- Connections ----

void Tables::interrupted() {
   writing_ = false;
   for (Write& write : queue_.takeAll()) {
      dirty_ = true;
      if (write.xacts.empty()) continue;
      moveTo(write.kind == WriteKind::routePoint ? entries_[write.number].waiting
                                                 : groups_[indexOf(write.number)].waiting,
             std::move(write.xacts));
   }
}

void Tables::resync(Content const& content) {
   bool const first = untouched();
   connected_ = writing_ = true;
   dirty_ = cleared_ = false;
   groupSize_ = options_.lastGroup - firstId_ + 1;
   routeSize_ = options_.routes;
   if (first && pipeline_.meansTheSame(content.flows, content.groups)) {
      adopt(content);
   } else if (first) {
      // Entries of another meaning must be gone before the interfaces are rewritten.
      note("the interfaces are not those of the tables on the bridge: nothing is adopted");
      deleteFlows(CookieKind::route, kindCookies);
   }
   pipeline_.foundAre(content.flows, content.groups);
   writePipeline(false);
   std::vector<WriteXactPtr> complete;
   resyncGroups(content, complete);
   resyncEntries(content, complete);
   deleteOrphans(content);
   if (!queue_.empty()) {
      // Each may depend on a write that has just been issued.
      Write last;
      last.xacts = std::move(complete);
      return issue(std::move(last));
   }
   for (WriteXactPtr const& xact : complete)
      xact->complete({});
}

void Tables::resyncGroups(Content const& content, std::vector<WriteXactPtr>& complete) {
   std::map<U32, GroupDesc const*> onBridge;
   for (GroupDesc const& group : content.groups)
      onBridge[group.id] = &group;
   for (U32 index = 0; index < groups_.size(); ++index) {
      Group& group = groups_[index];
      U32 const id = firstId_ + index;
      auto const at = onBridge.find(id);
      bool const there = at != onBridge.end();
      thereIs(group, there);
      group.sent = there;
      std::vector<WriteXactPtr> waiting = std::exchange(group.waiting, {});
      String8 reason;
      bool const wanted = (group.allocated || group.found) && !group.opaque;
      bool const same = !wanted || (there && describe(id, reason) == *at->second);
      if (same && reason.empty()) {
         moveTo(complete, std::move(waiting));
      } else {
         issueGroup(id, std::move(waiting), nullptr);
      }
   }
}

void Tables::resyncEntries(Content const& content, std::vector<WriteXactPtr>& complete) {
   std::map<std::string, Flow const*> onBridge;
   for (Flow const& flow : content.flows) {
      if (isOwn(flow.cookie, CookieKind::route)) onBridge[keyOf(flow)] = &flow;
   }
   for (U32 handle = 0; handle < entries_.size(); ++handle) {
      Entry& entry = entries_[handle];
      std::vector<WriteXactPtr> waiting = std::exchange(entry.waiting, {});
      bool const wanted = (entry.allocated || entry.found) && entry.group != invalidMulticastId;
      bool same = !wanted;
      bool there = false;
      if (wanted) {
         Flow const flow = describe(handle, entry);
         auto const at = onBridge.find(keyOf(flow));
         there = at != onBridge.end() && at->second->cookie == flow.cookie;
         same = there && at->second->sameAs(flow);
      }
      entry.written = there;
      thereIs(entry, there);
      if (same) {
         moveTo(complete, std::move(waiting));
      } else {
         issuePoint(handle, std::move(waiting), nullptr);
      }
   }
}

// A deletion names the cookie, so an entry that was written over a found flow stays.
void Tables::deleteOrphans(Content const& content) {
   std::set<std::string> strays;
   for (Flow const& flow : strays_)
      strays.insert(keyOf(flow));
   for (Flow const& flow : content.flows) {
      if (!isOwn(flow.cookie, CookieKind::route)) continue;
      auto const handle = static_cast<U32>(flow.cookie);
      bool const known = handle < entries_.size() &&
                         (entries_[handle].allocated || entries_[handle].found) &&
                         entries_[handle].group != invalidMulticastId &&
                         keyOf(describe(handle, entries_[handle])) == keyOf(flow);
      if (known || strays.contains(keyOf(flow))) continue;
      Write write;
      write.message = deletionOf(flow);
      issue(std::move(write));
   }
   for (GroupDesc const& group : content.groups) {
      if (!isRouteGroup(group.id)) continue;
      Group const& known = groupAt(group.id);
      if (known.allocated || known.found) continue;
      issueGroupDeletion(group.id);
   }
}

void Tables::deleteFlows(CookieKind kind, U64 mask) {
   Flow flows;
   flows.table = allTables;
   flows.cookie = cookieOf(kind);
   Write write;
   write.message = flowMod(FlowCommand::deletion, flows, mask);
   issue(std::move(write));
}

void Tables::clear() {
   deleteFlows(CookieKind::pipeline, ownCookies);
   for (U32 index = 0; index < groups_.size(); ++index) {
      if (groups_[index].sent) issueGroupDeletion(firstId_ + index);
   }
   for (U32 index = 0; index < options_.interfaces; ++index) {
      U32 const id = options_.firstGroup + index;
      if (!pipeline_.memberOf(id)) break;
      Write deletion;
      deletion.message = groupMod(GroupCommand::deletion, {id, GroupType::indirect, {}});
      issue(std::move(deletion));
   }
   writing_ = false;
   cleared_ = true;
}

// ---- Adoption ----

void Tables::adopt(Content const& content) {
   std::map<U32, GroupDesc const*> groups;
   for (GroupDesc const& group : content.groups) {
      if (isRouteGroup(group.id)) groups[group.id] = &group;
   }
   for (auto const& [id, desc] : groups) {
      groupPool_.takeFound(indexOf(id));
      Group& group = groupAt(id);
      group.found = true;
      if (auto members = membersOf(*desc)) {
         group.members = *members;
         found_.groups.add(id, {std::move(*members), false});
      } else {
         group.opaque = true;
         found_.groups.giveBack(id, std::nullopt);
      }
   }
   std::map<U32, Flow const*> flows;  // by handle
   for (Flow const& flow : content.flows) {
      if (!isOwn(flow.cookie, CookieKind::route)) continue;
      auto const handle = static_cast<U32>(flow.cookie);
      auto const group = groupOf(flow);
      if (handle >= options_.routes || !routeOf(flow) || !group || !groups.contains(*group) ||
          !flows.emplace(handle, &flow).second) {
         strays_.push_back(flow);
      }
   }
   for (auto const& [handle, flow] : flows) {
      routePool_.takeFound(handle);
      Entry& entry = entryAt(handle);
      entry.found = true;
      entry.route = *routeOf(*flow);
      entry.group = *groupOf(*flow);
      entry.packets = flow->packets;
      found_.entries.add(handle, entry.route, entry.group,
                         !groups.at(entry.group)->buckets.empty());
   }
}

// Turns a found group into an allocated one.
void Tables::claim(U32 id) {
   found_.groups.take(id);
   Group& group = groups_[indexOf(id)];
   group.found = false;
   group.allocated = true;
   group.xact = done();
}

bool Tables::sweep() {
   for (Flow const& flow : std::exchange(strays_, {})) {
      ++found_.swept;
      if (!writing_) {
         dirty_ = true;
         continue;
      }
      Write write;
      write.message = deletionOf(flow);
      issue(std::move(write));
   }
   auto const entries = found_.entries.left();
   for (U32 const handle : entries) {
      found_.entries.take(handle);
      found_.entries.release(handle);
      deleteEntry(handle);
      ++found_.swept;
   }
   auto const groups = found_.groups.left();
   for (U32 const id : groups) {
      if (found_.entries.holds(id)) continue;
      claim(id);
      deleteGroup(id);
      ++found_.swept;
   }
   return found_.settled();
}

std::optional<U32> Tables::free(VelMroute::Table table) const {
   switch (table) {
      case VelMroute::Table::group:
         return groupSize_ - std::min(groupSize_, groupPool_.taken());
      case VelMroute::Table::entry:
         return routeSize_ - std::min(routeSize_, routePool_.taken());
      default:
         return 0;
   }
}

}  // namespace OpenFlow
