// Serves the metrics and the report by HTTP: GET /metrics and GET /report, and nothing else.
//
// The server has no thread of its own. Its connections are bounded in number, memory and idle time.
#pragma once

#include <functional>
#include <memory>
#include <string>

#include "agent/live/EventLoop.h"
#include "agent/live/Listener.h"
#include "agent/live/Metrics.h"
#include "agent/live/Timer.h"

struct MHD_Daemon;

namespace Agent {

class MetricsServer final : public EventSource {
 public:
   static constexpr unsigned maxConnections = 16;
   static constexpr unsigned idleSeconds = 10;
   static constexpr std::size_t connectionMemory = 16384;

   // The page of a report. Answers that are being sent hold it.
   using Page = std::shared_ptr<std::string const>;

   // Listens at "127.0.0.1:PORT" or "unix:PATH". The metrics outlive the server. `report` makes the
   // page when a client asks for it. Raises std::runtime_error with one line if that is impossible.
   MetricsServer(std::string const& address, Metrics const& metrics, std::function<Page()> report);
   ~MetricsServer() override;

   int port() const { return listener_->port(); }
   std::string metrics() const { return metrics_.text(); }
   Page report() const { return report_(); }

   int fd() const override { return epoll_; }
   void ready(bool readable, bool writable) override;

 private:
   struct Stop {
      void operator()(MHD_Daemon* daemon) const;
   };

   unsigned connections() const;
   void run();

   Metrics const& metrics_;
   std::function<Page()> const report_;
   std::unique_ptr<Listener> const listener_;
   std::unique_ptr<MHD_Daemon, Stop> daemon_;
   int epoll_ = -1;
   Timer timer_;
};

}  // namespace Agent
