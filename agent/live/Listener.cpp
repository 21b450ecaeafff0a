#include "agent/live/Listener.h"

#include <arpa/inet.h>
#include <fmt/format.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <stdexcept>

#include "agent/input/NumberText.h"

namespace Agent {

namespace {

constexpr int backlog = 16;

[[noreturn]] void fail(std::string const& path, int error) {
   throw std::runtime_error(fmt::format("cannot listen at {}: {}", path, std::strerror(error)));
}

int newSocket(int family, std::string const& path) {
   int const fd = ::socket(family, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
   if (fd < 0) fail(path, errno);
   return fd;
}

sockaddr const* generic(void const* address) {
   return static_cast<sockaddr const*>(address);
}

// Removes the socket file of a program that has ended.
void removeStale(std::string const& path, sockaddr_un const& address) {
   struct stat found {};
   if (::lstat(path.c_str(), &found) != 0) {
      if (errno == ENOENT) return;
      fail(path, errno);
   }
   if (!S_ISSOCK(found.st_mode))
      throw std::runtime_error(fmt::format("cannot listen at {}: it is not a socket", path));
   int const probe = newSocket(AF_UNIX, path);
   // A listener that does not accept, and one with a full queue, is a live one, too.
   int const error = ::connect(probe, generic(&address), sizeof address) == 0 ? 0 : errno;
   ::close(probe);
   if (error != ECONNREFUSED && error != ENOENT)
      throw std::runtime_error(fmt::format("cannot listen at {}: another agent does", path));
   if (::unlink(path.c_str()) != 0 && errno != ENOENT) fail(path, errno);
}

}  // namespace

void Listener::bindTo(std::string const& path) {
   sockaddr_un address{};
   address.sun_family = AF_UNIX;
   if (path.empty() || path.size() >= sizeof address.sun_path) fail(path, ENAMETOOLONG);
   path.copy(address.sun_path, path.size());
   removeStale(path, address);
   // bind() takes the mode of the socket and the mask, so that nobody else connects before chmod().
   constexpr mode_t mode = 0660;
   ::fchmod(fd_, mode);
   if (::bind(fd_, generic(&address), sizeof address) != 0) fail(path, errno);
   struct stat bound {};
   if (::lstat(path.c_str(), &bound) != 0) fail(path, errno);
   path_ = path;
   device_ = bound.st_dev;
   inode_ = bound.st_ino;
   if (::chmod(path.c_str(), mode) != 0 || ::listen(fd_, backlog) != 0) fail(path, errno);
}

std::unique_ptr<Listener> Listener::unixSocket(std::string const& path) {
   std::unique_ptr<Listener> listener(new Listener(newSocket(AF_UNIX, path)));
   listener->bindTo(path);
   return listener;
}

std::unique_ptr<Listener> Listener::loopback(std::string const& address) {
   std::size_t const colon = address.rfind(':');
   sockaddr_in name{};
   name.sin_family = AF_INET;
   std::uint16_t port = 0;
   if (colon == std::string::npos || !parseNumber(address.substr(colon + 1), port) ||
       ::inet_pton(AF_INET, address.substr(0, colon).c_str(), &name.sin_addr) != 1) {
      throw std::runtime_error(
            fmt::format("cannot listen at {}: it is not an IPv4 ADDRESS:PORT", address));
   }
   if (ntohl(name.sin_addr.s_addr) >> IN_CLASSA_NSHIFT != IN_LOOPBACKNET) {
      throw std::runtime_error(
            fmt::format("cannot listen at {}: the address is not of this machine alone", address));
   }
   name.sin_port = htons(port);
   std::unique_ptr<Listener> listener(new Listener(newSocket(AF_INET, address)));
   int const on = 1;
   ::setsockopt(listener->fd_, SOL_SOCKET, SO_REUSEADDR, &on, sizeof on);
   if (::bind(listener->fd_, generic(&name), sizeof name) != 0 ||
       ::listen(listener->fd_, backlog) != 0) {
      fail(address, errno);
   }
   return listener;
}

Listener::~Listener() {
   ::close(fd_);
   struct stat found {};
   if (!path_.empty() && ::lstat(path_.c_str(), &found) == 0 && found.st_dev == device_ &&
       found.st_ino == inode_) {
      ::unlink(path_.c_str());
   }
}

int Listener::port() const {
   sockaddr_in name{};
   socklen_t size = sizeof name;
   void* const address = &name;
   if (::getsockname(fd_, static_cast<sockaddr*>(address), &size) != 0) return 0;
   return name.sin_family == AF_INET ? ntohs(name.sin_port) : 0;
}

}  // namespace Agent
