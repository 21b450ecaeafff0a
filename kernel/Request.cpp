#include "kernel/Request.h"

#include <libmnl/libmnl.h>
#include <linux/fib_rules.h>
#include <linux/if_addr.h>
#include <linux/if_link.h>
#include <linux/rtnetlink.h>

#include <cstring>

namespace Kernel {

using Lnet::IpFamily;
using Qor::U32;
using Qor::U8;

namespace {

constexpr std::size_t longest = 128;  // bytes of one request
constexpr U32 withoutStatistics = 1 << 3;

U8 multicastFamily(IpFamily family) {
   return family == IpFamily::v6 ? RTNL_FAMILY_IP6MR : RTNL_FAMILY_IPMR;
}

}  // namespace

template <class Header>
nlmsghdr* Requests::begin(U32 sequence, unsigned type, bool dump, Header const& header) {
   begun_ = bytes_.size();
   bytes_.resize(begun_ + longest);
   nlmsghdr* const message = mnl_nlmsg_put_header(bytes_.data() + begun_);
   message->nlmsg_type = static_cast<std::uint16_t>(type);
   message->nlmsg_flags = static_cast<std::uint16_t>(NLM_F_REQUEST | (dump ? NLM_F_DUMP : 0));
   message->nlmsg_seq = sequence;
   std::memcpy(mnl_nlmsg_put_extra_header(message, sizeof header), &header, sizeof header);
   return message;
}

void Requests::end() {
   auto const* message = reinterpret_cast<nlmsghdr const*>(bytes_.data() + begun_);
   bytes_.resize(begun_ + MNL_ALIGN(message->nlmsg_len));
}

void Requests::dumpLinks(U32 sequence) {
   nlmsghdr* const message = begin(sequence, RTM_GETLINK, true, ifinfomsg{});
   mnl_attr_put_u32(message, IFLA_EXT_MASK, withoutStatistics);
   end();
}

void Requests::dumpAddresses(U32 sequence) {
   begin(sequence, RTM_GETADDR, true, ifaddrmsg{});
   end();
}

void Requests::dumpRules(U32 sequence, IpFamily family) {
   fib_rule_hdr header{};
   header.family = multicastFamily(family);
   begin(sequence, RTM_GETRULE, true, header);
   end();
}

void Requests::dumpRoutes(U32 sequence, IpFamily family, U32 table) {
   rtmsg header{};
   header.rtm_family = multicastFamily(family);
   nlmsghdr* const message = begin(sequence, RTM_GETROUTE, true, header);
   mnl_attr_put_u32(message, RTA_TABLE, table);
   end();
}

void Requests::getRoute(U32 sequence, RouteKey const& key) {
   rtmsg header{};
   header.rtm_family = multicastFamily(key.family());
   header.rtm_src_len = header.rtm_dst_len = static_cast<U8>(key.group.bitWidth());
   std::size_t const size = key.group.bitWidth() / 8;
   nlmsghdr* const message = begin(sequence, RTM_GETROUTE, false, header);
   mnl_attr_put(message, RTA_SRC, size, key.source.bytes().data());
   mnl_attr_put(message, RTA_DST, size, key.group.bytes().data());
   // The IPv6 tables have no default in this request.
   mnl_attr_put_u32(message, RTA_TABLE, key.table);
   end();
}

}  // namespace Kernel
