#include "agent/live/LiveService.h"

#include <nlohmann/json.hpp>

#include "agent/live/LiveReport.h"
#include "agent/live/LiveViews.h"
#include "agent/page/Page.h"

namespace Agent {

LiveService::LiveService(LiveAgent& agent, EventLoop& loop, LiveLog& log)
      : agent_(agent),
        loop_(loop),
        log_(log),
        control_(
              agent.configuration().control,
              [this](ControlRequest const& request) { return handle(request); },
              [this](ControlClientId client) { watchers_.erase(client); }),
        metrics_([this] { return figures(); }) {
   if (std::string const& address = agent.configuration().metrics; !address.empty()) {
      server_ = std::make_unique<MetricsServer>(address, metrics_, [this] { return report(); });
      loop_.add(*server_);
   }
   loop_.add(control_);
   loop_.add(*this);
   agent_.onProgrammed([this](Qor::Seconds seconds) { metrics_.observeProgramming(seconds); });
}

LiveService::~LiveService() {
   if (timeline_) agent_.theSwitch().timelineIs(nullptr);
   loop_.remove(*this);
   loop_.remove(control_);
   if (server_) loop_.remove(*server_);
   agent_.onProgrammed(nullptr);
}

// ---- Control. ----

ControlAnswer LiveService::handle(ControlRequest const& request) {
   constexpr std::string_view watchWord = "watch ";
   if (request.line.starts_with(watchWord))
      return watch(request, std::string_view(request.line).substr(watchWord.size()));
   bool const ofTables = request.line.starts_with("explain ") ||
                         request.line.starts_with("inspect ") || request.line == "show chip";
   if (!ofTables || !agent_.isConnected()) return answer(request);
   // The tables of the bridge are read first. They may be there before refresh() returns.
   enum class Phase { calling, read, waiting };
   auto const phase = std::make_shared<Phase>(Phase::calling);
   agent_.refresh([this, alive = std::weak_ptr(alive_), phase, request] {
      if (*phase == Phase::calling) {
         *phase = Phase::read;
      } else if (!alive.expired()) {
         control_.answerIs(request.client, answer(request));
      }
   });
   if (*phase == Phase::read) return answer(request);
   *phase = Phase::waiting;
   return ControlAnswer::later();
}

ControlAnswer LiveService::answer(ControlRequest const& request) {
   LiveAnswer made = answerTo(agent_, request.line, request.format);
   if (!made.good) return ControlAnswer::failed(std::move(made.text));
   return {std::move(made.text)};
}

ControlAnswer LiveService::watch(ControlRequest const& request, std::string_view paths) {
   if (!agent_.hasSwitch()) return ControlAnswer::failed(agent_.disconnected());
   Watcher& made = watchers_[request.client];
   made.inspector =
         std::make_unique<Inspector>(agent_, made.text, request.format, Inspector::Rights::reading);
   std::istringstream words{std::string(paths)};
   for (std::string path; words >> path;) {
      if (made.inspector->evaluate("watch " + path) != Inspector::Outcome::failed) continue;
      ControlAnswer refusal = ControlAnswer::failed(made.inspector->error());
      watchers_.erase(request.client);
      return refusal;
   }
   ControlAnswer answer{made.text.str()};
   made.text.str("");
   answer.watching = true;
   return answer;
}

void LiveService::turnEnds() {
   record();
   for (auto& [client, watcher] : watchers_) {
      std::string const text = watcher.text.str();
      if (text.empty()) continue;
      watcher.text.str("");
      control_.push(client, text);  // a client that has left is announced to the handler
   }
   OpenFlow::Bridge const* const bridge = agent_.bridge();
   if (!bridge || bridge->numbers().lastBarrier == lastBarrier_) return;
   lastBarrier_ = bridge->numbers().lastBarrier;
   metrics_.observeWrite(lastBarrier_);
}

// ---- Metrics. ----

LiveFigures LiveService::figures() const {
   LiveFigures figures;
   std::map<std::pair<std::string, std::string>, Qor::U64> counts;
   for (auto const& [key, known] : agent_.routes().routes()) {
      auto const state = agent_.stateOf(key, known);
      ++counts[{std::string(nameOf(state.state)),
                state.waitsFor.empty() ? state.trapReason : state.waitsFor}];
   }
   // The words outlive the figures, which refer to them until the next scrape.
   words_.clear();
   for (auto const& [words, count] : counts) {
      auto const& kept = words_.emplace_back(words);
      figures.routes.push_back({kept.first, kept.second, count});
   }
   auto const& numbers = agent_.numbers();
   figures.connected = agent_.isConnected();
   figures.reconnects = numbers.connections > 0 ? numbers.connections - 1 : 0;
   figures.connectionsLost = numbers.lost;
   figures.connectionsRefused = numbers.refused;
   figures.reroutes = numbers.reroutes;
   figures.netlinkOverruns = agent_.monitor().counts().overruns;
   figures.keepAlivePackets = agent_.keepAlive().numbers().sent;
   figures.controlRefused = control_.refused();
   figures.logLinesSuppressed = log_.suppressed();
   if (OpenFlow::Bridge const* const bridge = agent_.bridge()) {
      figures.openflowErrors = bridge->numbers().errors;
   }
   if (!agent_.hasSwitch()) return figures;
   Switch const& theSwitch = agent_.theSwitch();
   figures.groups = theSwitch.path().recordsInUse().size();
   figures.zombies = theSwitch.path().zombies();
   figures.resurrections = theSwitch.programmer().counters().resurrections;
   static constexpr char const* names[] = {"groups", "entries", "boundaries"};
   for (auto const table : {VelMroute::Table::group, VelMroute::Table::entry}) {
      auto const use = theSwitch.view().use(table);
      figures.tables.push_back(
            {names[static_cast<std::size_t>(table)], use.used, use.size.value_or(0)});
   }
   return figures;
}

// ---- The report. ----

void LiveService::record() {
   if (!server_ || !agent_.hasSwitch()) return;
   if (!timeline_) {
      recorder_.emplace(agent_.theSwitch(), false);
      timeline_.emplace(std::vector<TimelineSink*>{&*recorder_});
      agent_.theSwitch().timelineIs(&*timeline_);
   }
   timeline_->turnEnds();
}

// The work for a page grows with the number of routes, so clients share the page of a second.
MetricsServer::Page LiveService::report() {
   constexpr Qor::Seconds fresh = 1;
   if (page_ && Qor::now() < pageAt_ + fresh) return page_;
   nlohmann::ordered_json const document = liveReport(agent_, recorder_ ? &*recorder_ : nullptr);
   page_ = std::make_shared<std::string const>(reportPage(document));
   pageAt_ = Qor::now();
   return page_;
}

}  // namespace Agent
