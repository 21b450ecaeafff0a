#include "agent/page/ReportDocument.h"

#include <algorithm>
#include <cmath>
#include <tuple>

#include "agent/switch/GroupName.h"
#include "platform/Format.h"

namespace Agent {

namespace {

// Times have microseconds, because the digits behind them take room and have no meaning.
double rounded(double seconds) {
   return std::round(seconds * 1e6) / 1e6;
}

template <class Prefix>
std::string prefixText(Prefix const& prefix) {
   if (prefix.isAny()) return "*";
   std::string text = fmt::format("{}", prefix);
   for (std::string_view const host : {"/32", "/128"}) {
      if (text.ends_with(host)) text.resize(text.size() - host.size());
   }
   return text;
}

constexpr int anyInput = 1, bridged = 2, boundToFastdrop = 4;  // flags of a route

}  // namespace

ReportDocument::ReportDocument(ReportHead head, Switch const* theSwitch, Recorder const* recorder)
      : switch_(theSwitch), recorder_(recorder) {
   std::size_t const notes = head.notes.size();
   head.notes.resize(std::min(notes, ReportHead::maxNotes));
   json_ = {{"version", 1},
            {"kind", std::move(head.kind)},
            {"title", std::move(head.title)},
            {"inputs", std::move(head.inputs)},
            {"result", std::move(head.result)},
            {"notes", std::move(head.notes)},
            {"droppedNotes", notes > ReportHead::maxNotes ? notes - ReportHead::maxNotes : 0},
            {"endedAt", rounded(Qor::now())},
            {"summary", std::move(head.summary)}};
   if (head.epoch) json_["epoch"] = *head.epoch;
   if (!switch_) return;
   json_["startedAt"] = rounded(switch_->startedAt());
   for (auto const& intf : switch_->interfaceMap().intfs()) {
      Json row = {{"name", intf->id.name()}, {"vlan", intf->vlan.value()}, {"port", intf->port}};
      if (auto const up = switch_->view().linkUp(intf->id)) row["up"] = *up;
      interfaceNumbers_.emplace(intf->id.name(), static_cast<int>(interfaces_.size()));
      interfaces_.push_back(std::move(row));
   }
   for (RecordRow const& record : switch_->path().recordsInUse()) {
      noteGroup(record.group);
      if (!record.group) continue;
      groups_[*record.group]["dirty"] = record.dirty;
      groups_[*record.group]["rewriteWaits"] = record.rewriteWaits;
   }
   for (RecordRow const& record : switch_->path().zombieRecords()) {
      noteGroup(record.group);
      if (record.group) groups_[*record.group]["expiresAt"] = rounded(record.expiryTime);
   }
}

int ReportDocument::string(std::string_view text) {
   auto const [it, isNew] =
         stringNumbers_.try_emplace(std::string(text), static_cast<int>(strings_.size()));
   if (isNew) strings_.push_back(text);
   return it->second;
}

int ReportDocument::interface(std::string_view name) {
   auto const [it, isNew] =
         interfaceNumbers_.try_emplace(std::string(name), static_cast<int>(interfaces_.size()));
   if (isNew) interfaces_.push_back({{"name", name}});
   return it->second;
}

// Outputs are one object for all routes that have them, so their address is the key.
int ReportDocument::setOf(WantedRoute const& wanted) {
   Lnet::IntfId const guarded = wanted.protectedIntf ? wanted.protectedIntf : wanted.iif;
   bool const guards = wanted.outputs && !wanted.outputs->backup().empty();
   auto const [it, isNew] = setNumbers_.try_emplace(
         {wanted.outputs.get(), guards ? guarded.id() : 0}, static_cast<int>(sets_.size()));
   if (!isNew) return it->second;
   Json set = {{"oifs", Json::array()}, {"cpu", wanted.outputs && wanted.outputs->cpu()}};
   if (wanted.outputs) {
      for (Lnet::IntfId const intf : wanted.outputs->ports())
         set["oifs"].push_back(interface(intf.name()));
   }
   if (guards) {
      set["backup"] = Json::array();
      for (Lnet::IntfId const intf : wanted.outputs->backup())
         set["backup"].push_back(interface(intf.name()));
      set["protects"] = interface(guarded.name());
   }
   sets_.push_back(std::move(set));
   return it->second;
}

ReportDocument::Json ReportDocument::pairs(std::vector<MrouteLib::PortVlan> const& members) {
   Json list = Json::array();
   for (auto const& member : members)
      list.push_back({interface(member.intfId().name()), member.vlanId().value()});
   return list;
}

void ReportDocument::noteGroup(std::optional<Qor::U32> number) {
   if (!number || groups_.contains(*number)) return;
   VelMroute::View const& view = switch_->view();
   Json row = {{"number", *number}, {"name", groupName(view, number)}};
   if (auto const group = view.group(*number)) {
      row["members"] = pairs(group->members);
      row["cpu"] = group->cpu;
      row["hardWired"] = group->hardWired;
   }
   groups_.emplace(*number, std::move(row));
}

// ---- Routes. ----

bool ReportDocument::full() {
   if (rows_.size() < maxRoutes) return false;
   ++leftOut_;
   return true;
}

void ReportDocument::addRoutes() {
   if (!switch_) return;
   Explainer const explainer(*switch_);
   Changed const changed = changedLast();
   switch_->programmer().forEach([&](RouteView const& route) { add(route, explainer, changed); });
}

// The routes of the latest events.
ReportDocument::Changed ReportDocument::changedLast() const {
   Changed changed;
   if (!switch_->history()) return changed;
   std::vector<HistoryEvent const*> all;
   switch_->history()->forEach([&](HistoryEvent const& event) { all.push_back(&event); });
   for (auto it = all.rbegin(); it != all.rend() && changed.size() < maxHistories; ++it) {
      if (!(*it)->key.isNull()) changed.insert({(*it)->vrfId, (*it)->key});
   }
   return changed;
}

void ReportDocument::add(RouteView const& route, Explainer const& explainer,
                         Changed const& changed) {
   if (full()) return;
   WantedRoute const& wanted = route.wanted();
   Row row;
   row.vrfName = route.vrf().name();
   row.key = route.key();
   if (wanted.iif) row.iif = interface(wanted.iif.name());
   row.set = setOf(wanted);
   ReportedState const state = reportedState(route.state());
   row.state = string(nameOf(state));
   if (state == ReportedState::waiting) row.waitsFor = string(waitsFor(route.state()));
   if (state != ReportedState::offloaded) row.reason = string(route.reason());
   if (auto const record = switch_->path().record(route); record && record->group) {
      noteGroup(record->group);
      row.group = static_cast<int>(*record->group);
   }
   row.flags = (wanted.noRpf ? anyInput : 0) | (wanted.bridge ? bridged : 0) |
               (wanted.fastdrop.empty() ? 0 : boundToFastdrop);
   row.since = route.since();
   if (!route.handle().isNull()) {
      row.handle = static_cast<int>(route.handle().value());
      if (auto const entry = switch_->view().entry(route.handle())) {
         noteGroup(entry->group);
         if (entry->group) row.entryGroup = static_cast<int>(*entry->group);
         if (entry->packets) row.packets = static_cast<std::int64_t>(*entry->packets);
         if (entry->bytes) row.bytes = static_cast<std::int64_t>(*entry->bytes);
      }
   }
   auto const vrfStatus = switch_->mfibHwStatus().vrfStatus(route.vrf());
   if (auto const status = vrfStatus ? vrfStatus->route(route.key()) : nullptr) {
      // A poll time of 0 stands for an unknown time.
      if (status->lastPollTime() > 0) row.lastHit = status->lastPollTime();
   }
   RouteTrace const trace = explainer.route(route, Explainer::Detail::brief);
   row.headline = string(trace.headline());
   row.well = trace.causes.empty();
   for (std::size_t i = 1; i < trace.causes.size(); ++i)
      row.causes.push_back(string(trace.causes[i].text));
   if (auto const vrfId = switch_->vrfId(route.vrf());
       vrfId && changed.contains({*vrfId, route.key()})) {
      row.changes = explainer.events(trace);
      if (row.changes.size() > maxChanges)
         row.changes.erase(row.changes.begin(), row.changes.end() - maxChanges);
   }
   rows_.push_back(std::move(row));
}

void ReportDocument::add(OtherRoute const& route) {
   if (full()) return;
   Row row;
   row.vrfName = route.vrf;
   row.key = route.key;
   if (!route.input.empty()) row.iif = interface(route.input);
   Json oifs = Json::array();
   for (std::string const& output : route.outputs)
      oifs.push_back(interface(output));
   row.set = static_cast<int>(sets_.size());
   sets_.push_back({{"oifs", std::move(oifs)}, {"cpu", true}});
   row.state = string(nameOf(route.state));
   if (!route.waitsFor.empty()) row.waitsFor = string(route.waitsFor);
   if (!route.reason.empty()) row.reason = string(route.reason);
   rows_.push_back(std::move(row));
}

nlohmann::ordered_json ReportDocument::columns() {
   auto const rank = [](Row const& row) {
      return std::tuple(row.vrfName != "default", std::string_view(row.vrfName), row.key.group(),
                        row.key.source());
   };
   std::sort(rows_.begin(), rows_.end(),
             [&](Row const& a, Row const& b) { return rank(a) < rank(b); });
   Json columns = Json::object();
   auto const column = [&](char const* name, auto const& valueOf) {
      auto values = Json::array_t();
      values.reserve(rows_.size());
      for (Row const& row : rows_)
         values.push_back(valueOf(row));
      columns[name] = std::move(values);
   };
   column("vrf", [this](Row const& row) { return string(row.vrfName); });
   column("src", [this](Row const& row) { return string(prefixText(row.key.source())); });
   column("dst", [](Row const& row) { return prefixText(row.key.group()); });
   column("iif", [](Row const& row) { return row.iif; });
   column("set", [](Row const& row) { return row.set; });
   column("state", [](Row const& row) { return row.state; });
   column("waitsFor", [](Row const& row) { return row.waitsFor; });
   column("reason", [](Row const& row) { return row.reason; });
   column("group", [](Row const& row) { return row.group; });
   column("entryGroup", [](Row const& row) { return row.entryGroup; });
   column("handle", [](Row const& row) { return row.handle; });
   column("flags", [](Row const& row) { return row.flags; });
   column("since", [](Row const& row) { return rounded(row.since); });
   column("lastHit", [](Row const& row) { return rounded(row.lastHit); });
   column("packets", [](Row const& row) { return row.packets; });
   column("bytes", [](Row const& row) { return row.bytes; });
   column("headline", [](Row const& row) { return row.headline; });
   column("well", [](Row const& row) { return row.well ? 1 : 0; });
   return columns;
}

ReportDocument::Json ReportDocument::history() const {
   Json rows = Json::array();
   for (std::size_t i = 0; i < rows_.size(); ++i) {
      for (TraceEvent const& event : rows_[i].changes) {
         std::string text = event.text;
         if (event.outcome == HistoryEvent::Outcome::failed) text += ", failed";
         if (event.outcome == HistoryEvent::Outcome::pending) text += ", under way";
         Json row = {{"route", i}, {"at", rounded(event.at)}, {"text", std::move(text)}};
         if (event.doneAt) row["doneAt"] = rounded(*event.doneAt);
         rows.push_back(std::move(row));
      }
   }
   SwitchHistory const& kept = *switch_->history();
   return {{"since", rounded(kept.since())}, {"lost", kept.lost()}, {"rows", std::move(rows)}};
}

nlohmann::ordered_json ReportDocument::json() {
   Json columns = this->columns();
   if (recorder_) recorder_->addTo(json_);
   json_["canRead"] = switch_ && switch_->canRead();
   if (switch_ && switch_->canRead()) json_["readAt"] = rounded(switch_->view().asOf());
   Json groups = Json::array();
   for (auto& [number, group] : groups_)
      groups.push_back(std::move(group));
   json_["strings"] = std::move(strings_);
   json_["interfaces"] = std::move(interfaces_);
   json_["sets"] = std::move(sets_);
   json_["groups"] = std::move(groups);
   json_["routes"] = std::move(columns);
   Json causes = Json::array();
   for (std::size_t i = 0; i < rows_.size(); ++i) {
      if (!rows_[i].causes.empty()) causes.push_back({{"route", i}, {"texts", rows_[i].causes}});
   }
   json_["causes"] = std::move(causes);
   if (switch_ && switch_->history()) json_["history"] = history();
   json_["routesLeftOut"] = leftOut_;
   return std::move(json_);
}

}  // namespace Agent
