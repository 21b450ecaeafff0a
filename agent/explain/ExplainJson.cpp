#include "agent/explain/ExplainJson.h"

#include <nlohmann/json.hpp>

#include "agent/explain/TraceWords.h"
#include "agent/input/PrintableText.h"
#include "agent/report/ReportedState.h"
#include "platform/Format.h"

namespace Agent {

using nlohmann::ordered_json;

namespace {

std::string prefixText(Lnet::IpGenPrefix const& prefix) {
   return prefix.isAny() ? "*" : prefix.toString();
}

template <class T>
ordered_json orNull(std::optional<T> const& value) {
   return value ? ordered_json(*value) : ordered_json();
}

ordered_json vlanJson(Bridging::VlanIdOrNone vlan) {
   return vlan.isNone() ? ordered_json() : ordered_json(vlan.value());
}

ordered_json intfJson(Lnet::IntfId intf) {
   return intf.isNull() ? ordered_json() : ordered_json(intf.name());
}

ordered_json memberJson(MrouteLib::PortVlan const& member) {
   ordered_json json = {{"oif", member.intfId().name()}};
   if (!member.vlanId().isNone()) json["vlan"] = member.vlanId().value();
   return json;
}

char const* nameOf(Basis basis) {
   static constexpr char const* names[] = {"recorded", "read", "seen"};
   return names[static_cast<std::size_t>(basis)];
}

ordered_json idJson(RouteId const& id) {
   return {{"src", prefixText(id.key.source())},
           {"dst", prefixText(id.key.group())},
           {"vrf", id.vrf.name()}};
}

ordered_json someJson(SomeRoutes const& routes) {
   ordered_json some = ordered_json::array();
   for (RouteId const& id : routes.some)
      some.push_back(idJson(id));
   return {{"routes", routes.count}, {"some", std::move(some)}};
}

// A time at which nothing was ever seen is null.
ordered_json hitJson(std::optional<Qor::Seconds> const& hit) {
   return hit && *hit > 0 ? ordered_json(*hit) : ordered_json();
}

ordered_json packetJson(PacketTrace const& trace) {
   ordered_json json = {
         {"src", trace.packet.source.toString()},
         {"dst", trace.packet.group.toString()},
         {"iif", intfJson(trace.packet.in)},
         {"vlan", vlanJson(trace.packet.vlan)},
         {"iifUp", orNull(trace.inputUp)},
         {"basis", trace.basis ? ordered_json(nameOf(*trace.basis)) : ordered_json()},
         {"verdict", fmt::format("{}", trace.verdict)}};
   json["entry"] = nullptr;
   if (auto const& entry = trace.entry) {
      json["entry"] = {{"src", prefixText(entry->key.source())},
                       {"dst", prefixText(entry->key.group())},
                       {"handle", entry->handle.value()},
                       {"vlan", vlanJson(entry->vlan)},
                       {"boundary", entry->boundary},
                       {"drops", entry->drops}};
   }
   ordered_json outputs = ordered_json::array();
   for (TraceOutput const& output : trace.outputs) {
      ordered_json one = memberJson(output.to);
      one["up"] = orNull(output.up);
      one["copy"] = output.copy;
      outputs.push_back(std::move(one));
   }
   json["outputs"] = std::move(outputs);
   json["cpu"] = trace.toCpu;
   if (trace.toCpu) json["cpuReason"] = trace.missed ? "noEntry" : "member";
   json["fate"] = fateOf(trace);
   return json;
}

ordered_json membersJson(std::vector<MrouteLib::PortVlan> const& members, bool cpu) {
   ordered_json list = ordered_json::array();
   for (auto const& member : members)
      list.push_back(memberJson(member));
   if (cpu) list.push_back({{"oif", "cpu"}});
   return list;
}

ordered_json rerouteJson(RouteTrace::Reroute const& reroute) {
   static constexpr char const* states[] = {"ready", "waiting", "rerouted"};
   return {{"to", membersJson(reroute.to, reroute.cpu)},
           {"whenFails", reroute.whenFails.name()},
           {"linkUp", orNull(reroute.linkUp)},
           {"state", states[static_cast<std::size_t>(reroute.state)]}};
}

void addPlace(ordered_json& json, RouteTrace const& trace) {
   if (!trace.handle.isNull()) json["handle"] = trace.handle.value();
   if (!trace.record) return;
   json["group"] = {{"name", trace.group},
                    {"index", trace.record->index},
                    {"oifSet", trace.record->oifSet->serial()},
                    {"sharedWith", someJson(trace.sharedWith)}};
   if (trace.sharedWithFound.count > 0)
      json["group"]["sharedWithFound"] = someJson(trace.sharedWithFound);
}

ordered_json eventJson(TraceEvent const& event) {
   static constexpr char const* outcomes[] = {"done", "pending", "failed"};
   ordered_json json = {{"at", event.at}, {"text", event.text}};
   if (event.outcome != HistoryEvent::Outcome::done || event.doneAt)
      json["outcome"] = outcomes[static_cast<std::size_t>(event.outcome)];
   if (event.doneAt) json["doneAt"] = *event.doneAt;
   return json;
}

ordered_json nearJson(RouteAnswer::Near const& near) {
   ordered_json otherVrfs = ordered_json::array(), takers = ordered_json::array();
   for (L3::VrfName const& vrf : near.otherVrfs)
      otherVrfs.push_back(vrf.name());
   for (auto const& taker : near.takers) {
      ordered_json one = {{"vrf", taker.vrf.name()}, {"packet", packetJson(taker.packet)}};
      if (!taker.group.empty()) one["group"] = taker.group;
      if (taker.groupOf.count > 0) one["groupOf"] = someJson(taker.groupOf);
      takers.push_back(std::move(one));
   }
   return {{"sameGroup", someJson(near.sameGroup)},
           {"nearest", near.nearest},
           {"otherVrfs", std::move(otherVrfs)},
           {"takenBy", std::move(takers)}};
}

}  // namespace

ordered_json traceJson(RouteTrace const& trace) {
   ordered_json json = idJson(trace.id);
   json["headline"] = trace.headline();
   ordered_json causes = ordered_json::array();
   for (Cause const& cause : trace.causes)
      causes.push_back({{"kind", cause.kind}, {"text", cause.text}});
   json["causes"] = std::move(causes);
   json["state"] = nameOf(reportedState(trace.state));
   if (auto const waits = waitsFor(trace.state); !waits.empty()) json["waitsFor"] = waits;
   json["stateSince"] = trace.since;
   if (!trace.reason.empty()) json["reason"] = trace.reason;
   if (trace.place)
      json["line"] = {{"before", trace.place->before}, {"waiting", trace.place->waiting}};
   if (trace.foundGroup)
      json["foundEntry"] = {{"group", *trace.foundGroup},
                            {"groupOf", someJson(trace.foundGroupOf)}};
   json["iif"] = trace.wanted.noRpf ? ordered_json() : intfJson(trace.wanted.iif);
   json["bridged"] = trace.wanted.bridge;
   json["wanted"] =
         trace.expected ? membersJson(*trace.expected, trace.expectedCpu) : ordered_json();
   json["packet"] = packetJson(trace.packet);
   json["ownEntry"] = trace.ownEntry;
   addPlace(json, trace);
   json["lastHitAt"] = hitJson(trace.lastHit);
   if (trace.packets) json["packets"] = *trace.packets;
   if (trace.bytes) json["bytes"] = *trace.bytes;
   if (trace.counter) json["counter"] = *trace.counter;
   ordered_json drops = ordered_json::array();
   for (auto const& drop : trace.fastdrops) {
      drops.push_back({{"iif", drop.intf.name()},
                       {"vlan", vlanJson(drop.vlan)},
                       {"inHardware", drop.inHardware},
                       {"lastHitAt", hitJson(drop.lastHit)}});
   }
   json["fastdrop"] = std::move(drops);
   if (trace.reroute) json["reroute"] = rerouteJson(*trace.reroute);
   json["chipDiffers"] = trace.compared ? ordered_json(trace.differences) : ordered_json();
   json["hookFaults"] = trace.hookFaults;
   return json;
}

ordered_json explainJson(RouteAnswer const& answer) {
   RouteQuestion const& question = answer.question;
   ordered_json json = {{"at", answer.at}, {"readAt", orNull(answer.readAt)}};
   ordered_json& asked = json["question"];
   asked["dst"] = prefixText(question.key.group());
   if (!question.ofGroup) asked["src"] = prefixText(question.key.source());
   if (question.vrf) asked["vrf"] = printable(question.vrf->name());
   if (question.iif) asked["iif"] = question.iif->name();
   ordered_json routes = ordered_json::array();
   for (auto const& traced : answer.routes) {
      ordered_json one = traceJson(traced.trace);
      if (!question.ofGroup) {
         ordered_json events = ordered_json::array();
         for (TraceEvent const& event : traced.events)
            events.push_back(eventJson(event));
         one["events"] = std::move(events);
         one["eventsLeftOut"] = traced.eventsLeftOut;
      }
      routes.push_back(std::move(one));
   }
   json["routes"] = std::move(routes);
   if (answer.near) json["near"] = nearJson(*answer.near);
   if (answer.historySince) json["historySince"] = *answer.historySince;
   json["recovering"] = answer.recovering;
   static constexpr char const* names[] = {"groups", "routes", "boundaries"};
   ordered_json& tables = json["tables"];
   for (std::size_t i = 0; i < answer.tables.size(); ++i) {
      tables[names[i]] = {{"used", orNull(answer.tables[i].used)},
                          {"size", orNull(answer.tables[i].size)}};
   }
   tables["zombies"] = answer.zombies;
   if (answer.nextExpiry) tables["nextExpiryAt"] = *answer.nextExpiry;
   return json;
}

}  // namespace Agent
