#include "agent/live/MetricsServer.h"

#include <fcntl.h>
#include <microhttpd.h>
#include <unistd.h>

#include <cerrno>
#include <exception>
#include <stdexcept>
#include <string_view>
#include <system_error>
#include <utility>

#include "agent/page/Page.h"

namespace Agent {

namespace {

std::unique_ptr<Listener> listenerAt(std::string const& address) {
   constexpr std::string_view path = "unix:";
   return address.starts_with(path) ? Listener::unixSocket(address.substr(path.size()))
                                    : Listener::loopback(address);
}

using Response = std::unique_ptr<MHD_Response, decltype(&MHD_destroy_response)>;

MHD_Result respond(MHD_Connection* connection, unsigned status, std::string const& text) {
   Response const response(
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

// A slow reader keeps the page alive, and not a copy of it.
MHD_Result respond(MHD_Connection* connection, MetricsServer::Page page) {
   auto* const held = new MetricsServer::Page(std::move(page));
   Response const response(
         MHD_create_response_from_buffer_with_free_callback_cls(
               (*held)->size(), const_cast<char*>((*held)->data()),
               [](void* cls) { delete static_cast<MetricsServer::Page*>(cls); }, held),
         MHD_destroy_response);
   if (!response) {
      delete held;
      return MHD_NO;
   }
   std::string const policy(reportPolicy());
   for (auto const& [name, value] :
        {std::pair(MHD_HTTP_HEADER_CONTENT_TYPE, "text/html; charset=utf-8"),
         std::pair(MHD_HTTP_HEADER_CACHE_CONTROL, "no-store"),
         std::pair("Content-Security-Policy", policy.c_str()),
         std::pair("X-Content-Type-Options", "nosniff"),
         std::pair("Referrer-Policy", "no-referrer")})
      MHD_add_response_header(response.get(), name, value);
   return MHD_queue_response(connection, MHD_HTTP_OK, response.get());
}

MHD_Result handle(void* object, MHD_Connection* connection, char const* url, char const* method,
                  char const*, char const*, std::size_t*, void** state) {
   // The first call comes before a body. A request with a body is answered there, and ends.
   std::string_view const verb = method;
   if (verb != MHD_HTTP_METHOD_GET && verb != MHD_HTTP_METHOD_HEAD)
      return respond(connection, MHD_HTTP_METHOD_NOT_ALLOWED, "only GET is served\n");
   if (!*state) {
      *state = object;
      return MHD_YES;
   }
   auto const& server = *static_cast<MetricsServer const*>(object);
   std::string_view const path = url;
   try {
      if (path == "/metrics") return respond(connection, MHD_HTTP_OK, server.metrics());
      if (path == "/report") return respond(connection, server.report());
   } catch (std::exception const& error) {
      return respond(connection, MHD_HTTP_INTERNAL_SERVER_ERROR, error.what() + std::string("\n"));
   }
   return respond(connection, MHD_HTTP_NOT_FOUND, "only /metrics and /report are served\n");
}

}  // namespace

void MetricsServer::Stop::operator()(MHD_Daemon* daemon) const {
   MHD_stop_daemon(daemon);
}

MetricsServer::MetricsServer(std::string const& address, Metrics const& metrics,
                             std::function<Page()> report)
      : metrics_(metrics),
        report_(std::move(report)),
        listener_(listenerAt(address)),
        timer_("metrics server", [this] { run(); }) {
   int const copy = ::fcntl(listener_->fd(), F_DUPFD_CLOEXEC, 0);  // the daemon closes its own
   if (copy < 0) throw std::system_error(errno, std::generic_category(), "metrics");
   daemon_.reset(MHD_start_daemon(
         MHD_USE_EPOLL, 0, nullptr, nullptr, &handle, this, MHD_OPTION_LISTEN_SOCKET, copy,
         MHD_OPTION_CONNECTION_LIMIT, maxConnections, MHD_OPTION_CONNECTION_TIMEOUT, idleSeconds,
         MHD_OPTION_CONNECTION_MEMORY_LIMIT, connectionMemory, MHD_OPTION_END));
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
