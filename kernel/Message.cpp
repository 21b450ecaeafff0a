#include "kernel/Message.h"

#include <libmnl/libmnl.h>
#include <linux/fib_rules.h>
#include <linux/if.h>
#include <linux/if_addr.h>
#include <linux/if_link.h>
#include <linux/netconf.h>
#include <linux/rtnetlink.h>
#include <unistd.h>

#include <algorithm>
#include <cstring>
#include <utility>

namespace Kernel {

using Interface::IntfOperStatus;
using Lnet::IpFamily;
using Qor::U32;
using Qor::U64;
using Qor::U8;

namespace {

constexpr std::size_t nameSize = 16;

// The attributes between two addresses. The functions of libmnl that walk over the attributes of a
// message round the end of the message up, which may be beyond the end of the datagram.
template <class Handle>
bool forEachAttribute(std::byte const* at, std::byte const* end, Handle const& handle) {
   while (at < end) {
      auto const* attribute = reinterpret_cast<nlattr const*>(at);
      if (!mnl_attr_ok(attribute, static_cast<int>(end - at))) return false;
      if (!handle(*attribute)) return false;
      std::size_t const size = MNL_ALIGN(attribute->nla_len);
      if (size >= static_cast<std::size_t>(end - at)) return true;
      at += size;
   }
   return true;
}

std::byte const* payload(nlattr const& attribute) {
   return static_cast<std::byte const*>(mnl_attr_get_payload(&attribute));
}

template <class T>
bool read(nlattr const& attribute, T& value) {
   if (mnl_attr_get_payload_len(&attribute) < sizeof value) return false;
   std::memcpy(&value, payload(attribute), sizeof value);
   return true;
}

bool readName(nlattr const& attribute, std::string& name) {
   auto const* text = reinterpret_cast<char const*>(payload(attribute));
   name.assign(text, strnlen(text, mnl_attr_get_payload_len(&attribute)));
   return !name.empty() && name.size() < nameSize;
}

bool readAddress(nlattr const& attribute, IpFamily family, Lnet::IpGenAddr& address) {
   Lnet::IpGenAddr::Bytes bytes{};
   std::size_t const size = family == IpFamily::v4 ? 4 : 16;
   if (mnl_attr_get_payload_len(&attribute) != size) return false;
   std::memcpy(bytes.data(), payload(attribute), size);
   address = family == IpFamily::v6
                   ? Lnet::IpGenAddr::v6(bytes)
                   : Lnet::IpGenAddr::v4(U32{bytes[0]} << 24 | U32{bytes[1]} << 16 |
                                         U32{bytes[2]} << 8 | U32{bytes[3]});
   return true;
}

IpFamily multicastFamily(int family) {
   return family == RTNL_FAMILY_IPMR    ? IpFamily::v4
          : family == RTNL_FAMILY_IP6MR ? IpFamily::v6
                                        : IpFamily::none;
}

IpFamily unicastFamily(int family) {
   return family == AF_INET ? IpFamily::v4 : family == AF_INET6 ? IpFamily::v6 : IpFamily::none;
}

// A message type's fixed header, behind which the attributes begin. Null: the message is too short.
template <class Header>
Header const* headerOf(nlmsghdr const& message) {
   if (mnl_nlmsg_get_payload_len(&message) < sizeof(Header)) return nullptr;
   return static_cast<Header const*>(mnl_nlmsg_get_payload(&message));
}

template <class Header, class Handle>
bool forEachAttribute(nlmsghdr const& message, Handle const& handle) {
   auto const* begin = reinterpret_cast<std::byte const*>(&message);
   return forEachAttribute(begin + MNL_NLMSG_HDRLEN + MNL_ALIGN(sizeof(Header)),
                           begin + message.nlmsg_len, handle);
}

bool readOutputs(nlattr const& attribute, std::vector<U32>& outputs) {
   std::byte const* at = payload(attribute);
   std::size_t left = mnl_attr_get_payload_len(&attribute);
   while (left > 0) {
      rtnexthop hop{};
      if (left < sizeof hop) return false;
      std::memcpy(&hop, at, sizeof hop);
      if (hop.rtnh_len < sizeof hop || hop.rtnh_len > left || hop.rtnh_ifindex <= 0) return false;
      outputs.push_back(static_cast<U32>(hop.rtnh_ifindex));
      std::size_t const size = std::min<std::size_t>(MNL_ALIGN(hop.rtnh_len), left);
      at += size;
      left -= size;
   }
   std::sort(outputs.begin(), outputs.end());
   outputs.erase(std::unique(outputs.begin(), outputs.end()), outputs.end());
   return true;
}

bool readStatistics(nlattr const& attribute, Route& route) {
   rta_mfc_stats statistics{};
   if (!read(attribute, statistics)) return false;
   route.packets = statistics.mfcs_packets;
   route.bytes = statistics.mfcs_bytes;
   route.wrongInterface = statistics.mfcs_wrong_if;
   return true;
}

bool readIdle(nlattr const& attribute, Route& route) {
   static long const ticksPerSecond = sysconf(_SC_CLK_TCK);
   U64 ticks = 0;
   if (!read(attribute, ticks)) return false;
   route.idle = static_cast<double>(ticks) / static_cast<double>(ticksPerSecond);
   return true;
}

// `of` is the content of the message; false: the message is malformed.
bool parseRoute(nlmsghdr const& message, Message& of) {
   auto const* header = headerOf<rtmsg>(message);
   if (!header) return false;
   IpFamily const family = multicastFamily(header->rtm_family);
   if (family == IpFamily::none || header->rtm_type != RTN_MULTICAST) return true;
   RouteMessage result;
   result.deleted = message.nlmsg_type == RTM_DELROUTE;
   result.key.table = header->rtm_table;
   result.key.source = family == IpFamily::v4 ? Lnet::IpGenAddr::v4(0) : Lnet::IpGenAddr::v6({});
   result.route.unresolved = (header->rtm_flags & RTNH_F_UNRESOLVED) != 0;
   bool const good = forEachAttribute<rtmsg>(message, [&](nlattr const& attribute) {
      switch (mnl_attr_get_type(&attribute)) {
         case RTA_TABLE:
            return read(attribute, result.key.table);
         case RTA_SRC:
            return readAddress(attribute, family, result.key.source);
         case RTA_DST:
            return readAddress(attribute, family, result.key.group);
         case RTA_IIF:
            return read(attribute, result.route.input);
         case RTA_MULTIPATH:
            return readOutputs(attribute, result.route.outputs);
         case RTA_MFC_STATS:
            return readStatistics(attribute, result.route);
         case RTA_EXPIRES:
            return readIdle(attribute, result.route);
         default:
            return true;
      }
   });
   if (!good || result.key.group.isNull()) return false;
   of.content = std::move(result);
   return true;
}

IntfOperStatus statusOf(unsigned flags, U8 state) {
   static constexpr IntfOperStatus states[] = {
         IntfOperStatus::unknown, IntfOperStatus::notPresent,
         IntfOperStatus::down,    IntfOperStatus::lowerLayerDown,
         IntfOperStatus::testing, IntfOperStatus::dormant,
         IntfOperStatus::up};
   IntfOperStatus const status = state < std::size(states) ? states[state] : states[0];
   if (status == IntfOperStatus::notPresent) return status;
   if (!(flags & IFF_UP)) return IntfOperStatus::down;
   if (status == IntfOperStatus::up || status == IntfOperStatus::unknown) {
      if (!(flags & IFF_RUNNING)) return IntfOperStatus::down;
      if (flags & IFF_LOWER_UP) return IntfOperStatus::up;
   }
   return status;
}

bool readLinkInfo(nlattr const& info, Link& link) {
   nlattr const* data = nullptr;
   auto const range = [](nlattr const& attribute, auto const& handle) {
      return forEachAttribute(payload(attribute),
                              payload(attribute) + mnl_attr_get_payload_len(&attribute), handle);
   };
   bool good = range(info, [&](nlattr const& attribute) {
      int const type = mnl_attr_get_type(&attribute);
      if (type == IFLA_INFO_DATA) data = &attribute;
      return type != IFLA_INFO_KIND || readName(attribute, link.kind);
   });
   if (good && data && link.kind == "vrf") {
      good = range(*data, [&](nlattr const& attribute) {
         return mnl_attr_get_type(&attribute) != IFLA_VRF_TABLE || read(attribute, link.vrfTable);
      });
   }
   return good;
}

bool parseLink(nlmsghdr const& message, Message& of) {
   auto const* header = headerOf<ifinfomsg>(message);
   if (!header) return false;
   // A message of another family is about the part of the link in a bridge.
   if (header->ifi_family != AF_UNSPEC) return true;
   if (header->ifi_index <= 0) return false;
   LinkMessage result;
   Link& link = result.link;
   result.deleted = message.nlmsg_type == RTM_DELLINK;
   link.index = static_cast<U32>(header->ifi_index);
   link.adminUp = (header->ifi_flags & IFF_UP) != 0;
   U8 state = 0;
   bool const good = forEachAttribute<ifinfomsg>(message, [&](nlattr const& attribute) {
      switch (mnl_attr_get_type(&attribute)) {
         case IFLA_IFNAME:
            return readName(attribute, link.name);
         case IFLA_ADDRESS:
            return mnl_attr_get_payload_len(&attribute) != link.mac.size() ||
                   read(attribute, link.mac);
         case IFLA_OPERSTATE:
            return read(attribute, state);
         case IFLA_MASTER:
            return read(attribute, link.master);
         case IFLA_LINKINFO:
            return readLinkInfo(attribute, link);
         default:
            return true;
      }
   });
   if (!good || link.name.empty()) return false;
   link.status = statusOf(header->ifi_flags, state);
   of.content = std::move(result);
   return true;
}

bool parseAddress(nlmsghdr const& message, Message& of) {
   auto const* header = headerOf<ifaddrmsg>(message);
   if (!header) return false;
   IpFamily const family = unicastFamily(header->ifa_family);
   if (family == IpFamily::none) return true;
   AddressMessage result;
   result.deleted = message.nlmsg_type == RTM_DELADDR;
   result.link = header->ifa_index;
   result.length = header->ifa_prefixlen;
   Lnet::IpGenAddr local;  // differs from the address if the link is point-to-point
   bool const good = forEachAttribute<ifaddrmsg>(message, [&](nlattr const& attribute) {
      int const type = mnl_attr_get_type(&attribute);
      if (type == IFA_ADDRESS) return readAddress(attribute, family, result.address);
      return type != IFA_LOCAL || readAddress(attribute, family, local);
   });
   if (!local.isNull()) result.address = local;
   if (!good || result.address.isNull()) return false;
   of.content = result;
   return true;
}

Rule::Action actionOf(U8 action) {
   return action == FR_ACT_TO_TBL ? Rule::Action::table
          : action == FR_ACT_GOTO ? Rule::Action::jump
          : action == FR_ACT_NOP  ? Rule::Action::none
                                  : Rule::Action::refuse;
}

bool parseRule(nlmsghdr const& message, Message& of) {
   auto const* header = headerOf<fib_rule_hdr>(message);
   if (!header) return false;
   RuleMessage result;
   result.family = multicastFamily(header->family);
   if (result.family == IpFamily::none) return true;
   Rule& rule = result.rule;
   result.deleted = message.nlmsg_type == RTM_DELRULE;
   rule.action = actionOf(header->action);
   rule.table = header->table;
   rule.inverted = (header->flags & FIB_RULE_INVERT) != 0;
   bool masked = false;
   bool const good = forEachAttribute<fib_rule_hdr>(message, [&](nlattr const& attribute) {
      U8 vrf = 0;
      switch (mnl_attr_get_type(&attribute)) {
         case FRA_PRIORITY:
            return read(attribute, rule.priority);
         case FRA_TABLE:
            return read(attribute, rule.table);
         case FRA_GOTO:
            return read(attribute, rule.target);
         case FRA_IIFNAME:
            return readName(attribute, rule.input);
         case FRA_OIFNAME:
            return rule.output = true;
         case FRA_L3MDEV:
            if (!read(attribute, vrf)) return false;
            rule.vrf = vrf != 0;
            return true;
         case FRA_FWMARK:
            return read(attribute, rule.mark);
         case FRA_FWMASK:
            return masked = read(attribute, rule.markMask);
         default:
            return true;
      }
   });
   if (!masked && rule.mark != 0) rule.markMask = 0xffffffff;
   if (rule.action != Rule::Action::table || rule.vrf) rule.table = 0;
   if (good) of.content = std::move(result);
   return good;
}

bool parseForwarding(nlmsghdr const& message, Message& of) {
   auto const* header = headerOf<netconfmsg>(message);
   if (!header) return false;
   ForwardingMessage result{unicastFamily(header->ncm_family)};
   if (result.family == IpFamily::none) return true;
   bool forwarding = false;
   bool others = false;
   bool const good = forEachAttribute<netconfmsg>(message, [&](nlattr const& attribute) {
      int const type = mnl_attr_get_type(&attribute);
      (type == NETCONFA_MC_FORWARDING ? forwarding : others) |= type != NETCONFA_IFINDEX;
      return true;
   });
   // A message with the other settings, too, is about a new interface.
   if (good && forwarding && !others) of.content = result;
   return good;
}

bool parseEnd(nlmsghdr const& message, Message& of) {
   auto const* error = headerOf<int>(message);
   // A dump of an older kernel ends without a number.
   if (!error && message.nlmsg_type == NLMSG_ERROR) return false;
   of.content = EndMessage{error && *error < 0 ? -std::max(*error, -4095) : 0};
   return true;
}

bool parse(nlmsghdr const& message, Message& of) {
   switch (message.nlmsg_type) {
      case RTM_NEWROUTE:
      case RTM_DELROUTE:
         return parseRoute(message, of);
      case RTM_NEWLINK:
      case RTM_DELLINK:
         return parseLink(message, of);
      case RTM_NEWADDR:
      case RTM_DELADDR:
         return parseAddress(message, of);
      case RTM_NEWRULE:
      case RTM_DELRULE:
         return parseRule(message, of);
      case RTM_NEWNETCONF:
         return parseForwarding(message, of);
      case NLMSG_ERROR:
      case NLMSG_DONE:
         return parseEnd(message, of);
      default:
         return true;
   }
}

}  // namespace

MessageReader::Result MessageReader::next(Message& message) {
   if (rest_.empty()) return Result::end;
   auto const* header = reinterpret_cast<nlmsghdr const*>(rest_.data());
   if (rest_.size() < sizeof *header || header->nlmsg_len < sizeof *header ||
       header->nlmsg_len > rest_.size()) {
      rest_ = {};
      return Result::malformed;
   }
   rest_ = rest_.subspan(std::min<std::size_t>(MNL_ALIGN(header->nlmsg_len), rest_.size()));
   message.sequence = header->nlmsg_seq;
   message.port = header->nlmsg_pid;
   message.interrupted = (header->nlmsg_flags & NLM_F_DUMP_INTR) != 0;
   message.content = {};
   return parse(*header, message) ? Result::message : Result::malformed;
}

}  // namespace Kernel
