#include "platform/openflow/TableView.h"

namespace OpenFlow {

using MrouteLib::RouteHandle;

void TableView::refresh(std::function<void(bool read)> const& done) {
   read_([this, done](Tables::Content const* content) {
      if (!content) return done(false);
      asOf_ = Qor::now();
      entries_.clear();
      byKey_.clear();
      groups_.clear();
      for (Flow const& flow : content->flows) {
         auto const route = Tables::routeOf(flow);
         if (!route) continue;
         Entry entry;
         entry.number = static_cast<U32>(flow.cookie);
         entry.handle = RouteHandle(entry.number);
         entry.route = *route;
         entry.group = Tables::groupOf(flow);
         entry.packets = flow.packets;
         entry.bytes = flow.bytes;
         byKey_.emplace(route->key, entry.number);
         entries_.insert_or_assign(entry.number, entry);
      }
      for (GroupDesc const& group : content->groups) {
         if (!tables_.groupKnown(group.id)) continue;
         groups_[group.id].members =
               tables_.membersOf(group).value_or(std::vector<MrouteLib::PortVlan>());
      }
      done(true);
   });
}

std::optional<U32> TableView::groupOf(U32 index) const {
   if (!tables_.groupKnown(index)) return std::nullopt;
   return index;
}

std::optional<VelMroute::View::Group> TableView::group(U32 number) const {
   auto const at = groups_.find(number);
   if (at == groups_.end()) return std::nullopt;
   return at->second;
}

std::optional<VelMroute::View::Entry> TableView::entry(RouteHandle handle) const {
   auto const at = entries_.find(handle.value());
   if (at == entries_.end()) return std::nullopt;
   return at->second;
}

void TableView::forEachEntry(std::function<void(Entry const&)> const& visit) const {
   for (auto const& [number, entry] : entries_)
      visit(entry);
}

void TableView::forEachEntryOf(Vel::VrfId vrfId, RouteKey const& key,
                               std::function<void(Entry const&)> const& visit) const {
   auto const [first, last] = byKey_.equal_range(key);
   for (auto at = first; at != last; ++at) {
      Entry const& entry = entries_.at(at->second);
      if (entry.route.vrfId == vrfId) visit(entry);
   }
}

void TableView::forEachGroup(
      std::function<void(U32 number, Group const& group)> const& visit) const {
   for (auto const& [number, group] : groups_)
      visit(number, group);
}

VelMroute::View::Use TableView::use(VelMroute::Table table) const {
   switch (table) {
      case VelMroute::Table::group:
         return {tables_.groupsThere(), tables_.groupSize(), tables_.groupsAllocated(), {}};
      case VelMroute::Table::entry:
         return {tables_.routesThere(), tables_.routeSize(), tables_.routesAllocated(), {}};
      default:
         return {0, 0, 0, {}};
   }
}

}  // namespace OpenFlow
