#include "kernel/Socket.h"

#include <libmnl/libmnl.h>
#include <linux/netlink.h>
#include <linux/rtnetlink.h>
#include <sys/socket.h>

#include <array>
#include <cerrno>
#include <system_error>

namespace Kernel {

namespace {

class NetlinkSocket final : public Socket {
 public:
   explicit NetlinkSocket(int receiveBuffer)
         : socket_(mnl_socket_open2(NETLINK_ROUTE, SOCK_NONBLOCK | SOCK_CLOEXEC)) {
      if (!socket_) fail("netlink socket");
      try {
         open(receiveBuffer);
      } catch (...) {
         mnl_socket_close(socket_);
         throw;
      }
   }
   ~NetlinkSocket() override { mnl_socket_close(socket_); }
   NetlinkSocket(NetlinkSocket const&) = delete;
   NetlinkSocket& operator=(NetlinkSocket const&) = delete;

   int fd() const override { return mnl_socket_get_fd(socket_); }
   Qor::U32 port() const override { return mnl_socket_get_portid(socket_); }

   Result receive(std::span<std::byte const>& datagram) override {
      sockaddr_nl sender{};
      iovec piece{buffer_.data(), buffer_.size()};
      msghdr header{};
      header.msg_name = &sender;
      header.msg_namelen = sizeof sender;
      header.msg_iov = &piece;
      header.msg_iovlen = 1;
      ssize_t size = 0;
      do {
         size = recvmsg(fd(), &header, 0);
      } while (size < 0 && errno == EINTR);
      if (size < 0) {
         return errno == ENOBUFS                          ? Result::overrun
                : errno == EAGAIN || errno == EWOULDBLOCK ? Result::empty
                                                          : Result::failed;
      }
      // The kernel makes no datagram of this size today. Its end is lost.
      if (header.msg_flags & MSG_TRUNC) return Result::overrun;
      // Only the kernel is believed.
      datagram = {buffer_.data(), sender.nl_pid == 0 ? static_cast<std::size_t>(size) : 0};
      return Result::message;
   }

   bool send(std::span<std::byte const> requests) override {
      return mnl_socket_sendto(socket_, requests.data(), requests.size()) ==
             static_cast<ssize_t>(requests.size());
   }

 private:
   [[noreturn]] static void fail(char const* where) {
      throw std::system_error(errno, std::system_category(), where);
   }

   void open(int receiveBuffer) {
      // Without the first option the kernel ignores the table of a request for a dump.
      int yes = 1;
      (void)setsockopt(fd(), SOL_NETLINK, NETLINK_GET_STRICT_CHK, &yes, sizeof yes);
      if (setsockopt(fd(), SOL_SOCKET, SO_RCVBUFFORCE, &receiveBuffer, sizeof receiveBuffer) != 0) {
         (void)setsockopt(fd(), SOL_SOCKET, SO_RCVBUF, &receiveBuffer, sizeof receiveBuffer);
      }
      if (mnl_socket_bind(socket_, 0, MNL_SOCKET_AUTOPID) != 0) fail("bind of a netlink socket");
      // The rules of multicast routing have the groups of the other rules. The groups *_NETCONF
      // notify when an interface is taken into multicast routing or out of it.
      for (int group : {RTNLGRP_LINK, RTNLGRP_IPV4_IFADDR, RTNLGRP_IPV4_MROUTE, RTNLGRP_IPV4_RULE,
                        RTNLGRP_IPV4_NETCONF, RTNLGRP_IPV6_IFADDR, RTNLGRP_IPV6_MROUTE,
                        RTNLGRP_IPV6_RULE, RTNLGRP_IPV6_NETCONF}) {
         if (mnl_socket_setsockopt(socket_, NETLINK_ADD_MEMBERSHIP, &group, sizeof group) != 0) {
            fail("group of a netlink socket");
         }
      }
   }

   mnl_socket* const socket_;
   alignas(nlmsghdr) std::array<std::byte, 1 << 16> buffer_{};
};

}  // namespace

std::unique_ptr<Socket> newSocket(int receiveBuffer) {
   return std::make_unique<NetlinkSocket>(receiveBuffer);
}

}  // namespace Kernel
