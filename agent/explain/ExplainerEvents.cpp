// The events of one route, picked from the ring of all routes.
#include <algorithm>
#include <set>

#include "agent/explain/Explainer.h"
#include "agent/explain/TraceWords.h"

namespace Agent {

namespace {

using Kind = HistoryEvent::Kind;
using Action = VelMroute::HookWrite::Action;

// A time in which entries of the route forwarded by a set, as places in the ring: from the making of
// the set, or from the pointing if the ring no longer has the making, to the end.
struct Use {
   Qor::U32 set;
   std::size_t begin, end;
};

constexpr std::size_t open = ~std::size_t{0};

std::vector<Use> usesOf(std::vector<HistoryEvent const*> const& events, auto const& isOwn) {
   std::vector<Use> uses;
   std::map<Qor::U32, std::size_t> made;  // by set, the latest making
   std::map<Qor::U32, std::size_t> at;    // by handle, the use that is open
   auto const ends = [&](Qor::U32 handle, std::size_t end) {
      auto const use = at.find(handle);
      if (use == at.end()) return;
      uses[use->second].end = end;
      at.erase(use);
   };
   for (std::size_t i = 0; i < events.size(); ++i) {
      HistoryEvent const& event = *events[i];
      if (event.kind == Kind::restart) {
         for (auto const& [handle, use] : at)
            uses[use].end = i;
         at.clear();
         made.clear();
      }
      if (event.kind != Kind::write) continue;
      if (event.action == Action::makeSet) made[event.number] = i;
      if (!event.ofEntry() || !isOwn(event)) continue;
      auto const begins = [&](Qor::U32 set, std::size_t otherwise) {
         auto const making = made.find(set);
         return making == made.end() ? otherwise : making->second;
      };
      // The ring has lost the event that pointed the entry at its set before.
      bool const deletes = event.action == Action::deleteEntry;
      bool const hadSet = deletes ? event.hasSet : event.hasBefore;
      if (hadSet && !at.contains(event.number)) {
         Qor::U32 const set = deletes ? event.set : event.before;
         uses.push_back({set, begins(set, 0), i});
      }
      ends(event.number, i);
      if (deletes || !event.hasSet) continue;
      at[event.number] = uses.size();
      uses.push_back({event.set, begins(event.set, i), open});
   }
   return uses;
}

}  // namespace

std::vector<TraceEvent> Explainer::events(RouteTrace const& trace) const {
   SwitchHistory const* const history = switch_.history();
   auto const vrfId = switch_.vrfId(trace.id.vrf);
   if (!history || !vrfId) return {};
   std::vector<HistoryEvent const*> all;
   history->forEach([&](HistoryEvent const& event) { all.push_back(&event); });

   auto const isOwn = [&](HistoryEvent const& event) {
      return event.vrfId == *vrfId && event.key == trace.id.key;
   };
   auto uses = usesOf(all, isOwn);
   bool const unknown = std::ranges::none_of(
         all, [&](HistoryEvent const* event) { return event->ofEntry() && isOwn(*event); });
   if (trace.record && unknown) uses.push_back({trace.record->index, 0, open});
   auto const isUsed = [&](HistoryEvent const& event, std::size_t i) {
      return std::ranges::any_of(uses, [&](Use const& use) {
         return use.set == event.number && use.begin <= i && i < use.end;
      });
   };
   std::set<Lnet::IntfId> intfs{trace.wanted.iif, trace.wanted.protectedIntf};
   if (trace.wanted.outputs) {
      intfs.insert(trace.wanted.outputs->ports().begin(), trace.wanted.outputs->ports().end());
      intfs.insert(trace.wanted.outputs->backup().begin(), trace.wanted.outputs->backup().end());
   }
   std::vector<TraceEvent> events;
   for (std::size_t i = 0; i < all.size(); ++i) {
      HistoryEvent const& event = *all[i];
      bool const picked = event.kind == Kind::restart ? true
                          : event.kind == Kind::link  ? intfs.contains(event.intf)
                          : event.kind == Kind::write && !event.ofEntry() ? isUsed(event, i)
                                                                          : isOwn(event);
      if (!picked) continue;
      TraceEvent& out = events.emplace_back();
      out.at = event.at;
      out.text = wordsOf(event, switch_.pathKind());
      out.outcome = event.outcome;
      bool const completes = event.doneAt > 0 && event.kind == Kind::write;
      if (completes) out.doneAt = event.doneAt;
   }
   return events;
}

}  // namespace Agent
