#include "agent/live/ControlClient.h"

#include <fmt/format.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <stdexcept>

#include "agent/input/NumberText.h"
#include "agent/process/Signals.h"

namespace Agent {

namespace {

constexpr time_t patience = 75;  // seconds; the agent gives up an answer of its own before that

std::runtime_error failure(std::string const& path, std::string const& what) {
   return std::runtime_error(fmt::format("{}: {}", path, what));
}

std::string reasonOf(int error) {
   switch (error) {
      case ENOENT:
      case ECONNREFUSED:
         return "no agent listens there";
      case EACCES:
         return "permission denied; the owner and the group of the socket have access";
      case EINTR:
         return "interrupted";
      case EAGAIN:
         return "the agent does not answer";
      default:
         return std::strerror(error);
   }
}

class Connection {
 public:
   explicit Connection(std::string const& path)
         : path_(path), fd_(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
      if (fd_ < 0) throw failure(path, std::strerror(errno));
   }
   ~Connection() {
      if (fd_ >= 0) ::close(fd_);
   }
   Connection(Connection const&) = delete;
   Connection& operator=(Connection const&) = delete;

   void connect() {
      sockaddr_un address{};
      address.sun_family = AF_UNIX;
      if (path_.empty() || path_.size() >= sizeof address.sun_path)
         throw failure(path_, "the path is too long for a socket");
      path_.copy(address.sun_path, path_.size());
      waitAtMost(patience);
      void const* const generic = &address;
      if (::connect(fd_, static_cast<sockaddr const*>(generic), sizeof address) != 0)
         throw failure(path_, reasonOf(errno));
   }
   // 0: for any time.
   void waitAtMost(time_t seconds) const {
      timeval time{};
      time.tv_sec = seconds;
      ::setsockopt(fd_, SOL_SOCKET, SO_RCVTIMEO, &time, sizeof time);
      ::setsockopt(fd_, SOL_SOCKET, SO_SNDTIMEO, &time, sizeof time);
   }
   // An agent that refuses the client ends the connection early, and its reason is still read.
   void send(std::string_view text) const {
      while (!text.empty()) {
         ssize_t const size = ::send(fd_, text.data(), text.size(), MSG_NOSIGNAL);
         if (size < 0 && errno == EINTR) continue;
         if (size < 0 && (errno == EPIPE || errno == ECONNRESET)) return;
         if (size < 0) throw failure(path_, reasonOf(errno));
         text.remove_prefix(static_cast<std::size_t>(size));
      }
   }
   // Empty at the end.
   std::string_view receive() {
      ssize_t size = 0;
      do {
         awaitAnswer();
         size = ::recv(fd_, bytes_.data(), bytes_.size(), 0);
      } while (size < 0 && errno == EINTR);
      if (size < 0 && errno == ECONNRESET) size = 0;
      if (size < 0) throw failure(path_, reasonOf(errno));
      return {bytes_.data(), static_cast<std::size_t>(size)};
   }

 private:
   // Waits for bytes. The time limit of the socket holds here, too.
   void awaitAnswer() const {
      pollfd waits[] = {{fd_, POLLIN, 0}, {interruptFd(), POLLIN, 0}};
      timeval time{};
      socklen_t size = sizeof time;
      ::getsockopt(fd_, SOL_SOCKET, SO_RCVTIMEO, &time, &size);
      int const milliseconds = time.tv_sec ? static_cast<int>(time.tv_sec) * 1000 : -1;
      while (::poll(waits, std::size(waits), milliseconds) < 0 && errno == EINTR) {
      }
      if (interrupted()) throw failure(path_, reasonOf(EINTR));
      if (waits[0].revents == 0) throw failure(path_, reasonOf(EAGAIN));
   }

   std::string const path_;
   int const fd_;
   std::array<char, 65536> bytes_{};
};

}  // namespace

bool askAgent(std::string const& path, std::string const& command, OutputFormat format,
              TextSink const& out, TextSink const& fault) {
   if (command.find('\n') != std::string::npos) throw std::runtime_error("a command is one line");
   Connection agent(path);
   agent.connect();
   std::string const options = format.json        ? "-j "
                               : format.width > 0 ? fmt::format("-w {} ", format.width)
                                                  : "";
   agent.send(options + command + '\n');

   constexpr std::size_t longestHeader = 64;
   std::string header;
   std::string_view text;
   std::size_t end = std::string::npos;
   while (end == std::string::npos && header.size() < longestHeader) {
      text = agent.receive();
      if (text.empty()) throw failure(path, "the agent has ended the connection");
      end = text.find('\n');
      header += text.substr(0, end);
   }
   text = end == std::string::npos ? std::string_view() : text.substr(end + 1);
   bool const watching = header == "watching";
   bool const done = header.starts_with("done ");
   std::size_t left = SIZE_MAX;
   if (watching) {
      agent.waitAtMost(0);
   } else if (!(done || header.starts_with("failed ")) ||
              !parseNumber(header.substr(header.find(' ') + 1), left)) {
      throw failure(path, "no agent listens there, but another program");
   }
   TextSink const& sink = done || watching ? out : fault;
   while (true) {
      text = text.substr(0, left);
      if (!text.empty() && !sink(text)) return false;
      if (!watching) left -= text.size();
      if (left == 0) return done;
      text = agent.receive();
      if (text.empty()) throw failure(path, "the agent has ended the connection");
   }
}

}  // namespace Agent
