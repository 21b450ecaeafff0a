// The facts of a report as one JSON object, which the page shows: docs/schemas/report.schema.json.
//
// Routes are columns of equal length. A column holds numbers, which refer to the lists of strings,
// interfaces, sets and groups, so that the document of 100,000 routes stays small. A number of -1
// stands for none.
#pragma once

#include <map>
#include <nlohmann/json.hpp>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "agent/explain/Explainer.h"
#include "agent/page/Recorder.h"
#include "agent/report/ReportedState.h"
#include "agent/switch/Switch.h"

namespace Agent {

struct ReportHead {
   static constexpr std::size_t maxNotes = 200;

   std::string kind;  // "capture", "scenario" or "live"
   std::string title;
   std::vector<std::string> inputs;  // the names of the files, or of the switch
   std::string result;               // "passed", "failed", "interrupted" or "running"
   std::vector<std::string>
         notes;  // failures and warnings, a line each; the first maxNotes are shown
   nlohmann::ordered_json summary;  // figures of the run; null: none
   // The time of the clock, in seconds since 1970, at which Qor::now() was 0. Nothing in virtual time.
   std::optional<double> epoch = {};
};

class ReportDocument {
 public:
   // Further routes are only counted.
   static constexpr std::size_t maxRoutes = 200'000;
   // The routes whose latest changes are shown: those with the latest events. The changes of a route
   // take a look at all events that the switch has kept.
   static constexpr std::size_t maxHistories = 500;
   static constexpr std::size_t maxChanges = 12;  // the latest ones of a route

   // A route that the switch does not have.
   struct OtherRoute {
      std::string vrf;
      RouteKey key;
      std::string input;  // the name of an interface; empty without one
      std::vector<std::string> outputs;
      ReportedState state = ReportedState::trapped;
      std::string waitsFor;
      std::string reason;
   };

   // `theSwitch` may be null: the page then has other routes alone. Both outlive the document.
   ReportDocument(ReportHead head, Switch const* theSwitch, Recorder const* recorder);

   // Adds all routes of the switch.
   void addRoutes();
   void add(OtherRoute const& route);
   // Completes the document. The caller makes no further call.
   nlohmann::ordered_json json();

 private:
   using Json = nlohmann::ordered_json;
   struct Row {
      std::string vrfName;
      RouteKey key;
      int iif = -1, set = -1, state = -1, reason = -1, waitsFor = -1;
      int group = -1;       // the number of the record's group
      int entryGroup = -1;  // the number of the group at which the entry points
      int handle = -1;
      int flags = 0;
      double since = 0;
      double lastHit = -1;
      std::int64_t packets = -1, bytes = -1;
      int headline = -1;
      std::vector<int> causes;  // all but the first, which is the headline
      bool well = true;         // no cause
      std::vector<TraceEvent> changes;
   };

   bool full();
   using Changed = std::set<std::pair<Vel::VrfId, RouteKey>>;

   void add(RouteView const& route, Explainer const& explainer, Changed const& changed);
   Changed changedLast() const;
   Json history() const;
   // The columns, sorted by VRF, the VRF "default" first, then by group and source.
   Json columns();
   int string(std::string_view text);
   int interface(std::string_view name);
   int setOf(WantedRoute const& wanted);
   void noteGroup(std::optional<Qor::U32> number);
   Json pairs(std::vector<MrouteLib::PortVlan> const& members);

   Json json_;
   Switch const* const switch_;
   Recorder const* const recorder_;
   Json strings_ = Json::array(), interfaces_ = Json::array(), sets_ = Json::array();
   std::vector<Row> rows_;
   std::size_t leftOut_ = 0;
   std::unordered_map<std::string, int> stringNumbers_, interfaceNumbers_;
   std::map<std::pair<VelMroute::Outputs const*, Qor::U32>, int> setNumbers_;
   std::map<Qor::U32, Json> groups_;
};

}  // namespace Agent
