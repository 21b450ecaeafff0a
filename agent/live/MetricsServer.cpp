#include "agent/live/MetricsServer.h"

#include <fcntl.h>
#include <microhttpd.h>
#include <unistd.h>

#include <cerrno>
#include <exception>
#include <stdexcept>
#include <string_view>
#include <system_error>

namespace Agent {

namespace {

std::unique_ptr<Listener> listenerAt(std::string const& address) {
   constexpr std::string_view path = "unix:";
   return address.starts_with(path) ? Listener::unixSocket(address.substr(path.size()))
                                    : Listener::loopback(address);
}

MHD_Result respond(MHD_Connection* connection, unsigned status, std::string const& text) {
   std::unique_ptr<MHD_Response, decltype(&MHD_destroy_response)> const response(
         MHD_create_response_from_buffer(text.size(), const_cast<char*>(text.data()),
                                         MHD_RESPMEM_MUST_COPY),
         MHD_destroy_response);
   if (!response) return MHD_NO;
   bool const good = status == MHD_HTTP_OK;
   MHD_add_response_header(response.get(), MHD_HTTP_HEADER_CONTENT_TYPE,
                           good ? "text/plain; version=0.0.4; charset=utf-8" : "text/plain");
   if (status == MHD_HTTP_METHOD_NOT_ALLOWED)
      MHD_add_response_header(response.get(), MHD_HTTP_HEADER_ALLOW, "GET, HEAD");
   return MHD_queue_response(connection, status, response.get());
}

MHD_Result handle(void* metrics, MHD_Connection* connection, char const* url, char const* method,
                  char const*, char const*, std::size_t*, void** state) {
   // The first call comes before a body. A request with a body is answered there, and ends.
   std::string_view const verb = method;
   if (verb != MHD_HTTP_METHOD_GET && verb != MHD_HTTP_METHOD_HEAD)
      return respond(connection, MHD_HTTP_METHOD_NOT_ALLOWED, "only GET is served\n");
   if (!*state) {
      *state = metrics;
      return MHD_YES;
   }
   if (std::string_view(url) != "/metrics")
      return respond(connection, MHD_HTTP_NOT_FOUND, "only /metrics is served\n");
   try {
      return respond(connection, MHD_HTTP_OK, static_cast<Metrics const*>(metrics)->text());
   } catch (std::exception const& error) {
      return respond(connection, MHD_HTTP_INTERNAL_SERVER_ERROR, error.what() + std::string("\n"));
   }
}

}  // namespace

void MetricsServer::Stop::operator()(MHD_Daemon* daemon) const {
   MHD_stop_daemon(daemon);
}

MetricsServer::MetricsServer(std::string const& address, Metrics const& metrics)
      : metrics_(metrics),
        listener_(listenerAt(address)),
        timer_("metrics server", [this] { run(); }) {
   int const copy = ::fcntl(listener_->fd(), F_DUPFD_CLOEXEC, 0);  // the daemon closes its own
   if (copy < 0) throw std::system_error(errno, std::generic_category(), "metrics");
   daemon_.reset(MHD_start_daemon(
         MHD_USE_EPOLL, 0, nullptr, nullptr, &handle, const_cast<Metrics*>(&metrics_),
         MHD_OPTION_LISTEN_SOCKET, copy, MHD_OPTION_CONNECTION_LIMIT, maxConnections,
         MHD_OPTION_CONNECTION_TIMEOUT, idleSeconds, MHD_OPTION_CONNECTION_MEMORY_LIMIT,
         connectionMemory, MHD_OPTION_END));
   MHD_DaemonInfo const* const info =
         daemon_ ? MHD_get_daemon_info(daemon_.get(), MHD_DAEMON_INFO_EPOLL_FD) : nullptr;
   if (!info) {
      if (!daemon_) ::close(copy);
      throw std::runtime_error("cannot serve metrics at " + address);
   }
   epoll_ = info->epoll_fd;
}

MetricsServer::~MetricsServer() = default;

void MetricsServer::ready(bool, bool) {
   run();
}

unsigned MetricsServer::connections() const {
   return MHD_get_daemon_info(daemon_.get(), MHD_DAEMON_INFO_CURRENT_CONNECTIONS)->num_connections;
}

// A full daemon listens no more, and listens again in the call behind the one that ended a
// connection. The daemon has work left, or a connection whose time ends, when it states a time-out.
void MetricsServer::run() {
   bool const full = connections() >= maxConnections;
   MHD_run(daemon_.get());
   if (full && connections() < maxConnections) MHD_run(daemon_.get());
   MHD_UNSIGNED_LONG_LONG milliseconds = 0;
   if (MHD_get_timeout(daemon_.get(), &milliseconds) == MHD_YES) {
      timer_.in(static_cast<Qor::Seconds>(milliseconds) / 1000);
   } else {
      timer_.off();
   }
}

}  // namespace Agent
