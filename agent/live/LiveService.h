// The surroundings of a live agent in operation: the control socket and its watching clients, the metrics
// and their server, and the notices to the service manager.
#pragma once

#include <deque>
#include <map>
#include <memory>
#include <optional>
#include <sstream>

#include "agent/inspect/Inspector.h"
#include "agent/live/ControlSocket.h"
#include "agent/live/LiveAgent.h"
#include "agent/live/Metrics.h"
#include "agent/live/MetricsServer.h"
#include "agent/live/ServiceNotice.h"
#include "agent/page/Recorder.h"

namespace Agent {

class LiveService final : private EventSource {
 public:
   // Listens where the configuration of the agent says. Raises std::runtime_error if that is
   // impossible. Agent, loop and log outlive the service.
   LiveService(LiveAgent& agent, EventLoop& loop, LiveLog& log);
   ~LiveService() override;

   void ready() { notice_.ready(); }
   void reloading() { notice_.reloading(); }
   void stopping() { notice_.stopping(); }

 private:
   // The watches of one client of the control socket.
   struct Watcher {
      std::ostringstream text;
      std::unique_ptr<Inspector> inspector;
   };

   ControlAnswer handle(ControlRequest const& request);
   ControlAnswer answer(ControlRequest const& request);
   ControlAnswer watch(ControlRequest const& request, std::string_view paths);
   LiveFigures figures() const;
   MetricsServer::Page report();
   // Records the switch for the report from now on, once it is there.
   void record();

   // The service has no descriptor of its own, and passes on what a turn has caused.
   int fd() const override { return -1; }
   void ready(bool, bool) override {}
   void turnEnds() override;

   LiveAgent& agent_;
   EventLoop& loop_;
   LiveLog& log_;
   std::map<ControlClientId, Watcher> watchers_;
   ControlSocket control_;
   Metrics metrics_;
   std::unique_ptr<MetricsServer> server_;
   std::optional<Recorder> recorder_;
   std::optional<Timeline> timeline_;
   MetricsServer::Page page_;  // the latest one
   Qor::Seconds pageAt_ = 0;
   ServiceNotice notice_;
   std::shared_ptr<int> const alive_ = std::make_shared<int>(0);  // for calls after the end
   Qor::Seconds lastBarrier_ = 0;
   mutable std::deque<std::pair<std::string, std::string>> words_;  // of the latest scrape
};

}  // namespace Agent
