#include "kernel/LinkControl.h"

#include <libmnl/libmnl.h>
#include <linux/capability.h>
#include <linux/if.h>
#include <linux/rtnetlink.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <memory>
#include <system_error>

namespace Kernel {

namespace {

struct CloseSocket {
   void operator()(mnl_socket* socket) const { mnl_socket_close(socket); }
};

std::string lastError() {
   return std::generic_category().message(errno);
}

}  // namespace

std::string linkEnabledIs(Qor::U32 index, bool enabled) {
   std::unique_ptr<mnl_socket, CloseSocket> const socket(mnl_socket_open(NETLINK_ROUTE));
   if (!socket || mnl_socket_bind(socket.get(), 0, MNL_SOCKET_AUTOPID) < 0) return lastError();
   alignas(nlmsghdr) std::array<char, 8192> buffer{};
   nlmsghdr* const header = mnl_nlmsg_put_header(buffer.data());
   header->nlmsg_type = RTM_NEWLINK;
   header->nlmsg_flags = NLM_F_REQUEST | NLM_F_ACK;
   header->nlmsg_seq = 1;
   auto* const link =
         static_cast<ifinfomsg*>(mnl_nlmsg_put_extra_header(header, sizeof(ifinfomsg)));
   link->ifi_index = static_cast<int>(index);
   link->ifi_change = IFF_UP;
   link->ifi_flags = enabled ? IFF_UP : 0;
   if (mnl_socket_sendto(socket.get(), header, header->nlmsg_len) < 0) return lastError();
   ssize_t const size = mnl_socket_recvfrom(socket.get(), buffer.data(), buffer.size());
   if (size < 0) return lastError();
   unsigned const port = mnl_socket_get_portid(socket.get());
   if (mnl_cb_run(buffer.data(), static_cast<std::size_t>(size), 1, port, nullptr, nullptr) < 0)
      return lastError();
   return {};
}

bool mayAdministerNetwork() {
   __user_cap_header_struct header{_LINUX_CAPABILITY_VERSION_3, 0};
   std::array<__user_cap_data_struct, _LINUX_CAPABILITY_U32S_3> data{};
   if (::syscall(SYS_capget, &header, data.data()) != 0) return false;
   return (data[CAP_TO_INDEX(CAP_NET_ADMIN)].effective & CAP_TO_MASK(CAP_NET_ADMIN)) != 0;
}

}  // namespace Kernel
