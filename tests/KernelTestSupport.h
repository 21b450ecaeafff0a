// A kernel for the tests of kernel/: it answers the requests of a Monitor from its own tables, and
// loses, delays and interrupts answers as the real one does.
#pragma once

#include <linux/fib_rules.h>
#include <linux/if_addr.h>
#include <linux/netconf.h>
#include <linux/rtnetlink.h>
#include <net/if.h>

#include <cerrno>
#include <cstring>
#include <deque>
#include <functional>
#include <map>
#include <set>

#include "TestSupport.h"
#include "kernel/Monitor.h"

namespace kernelTest {

using Kernel::Link;
using Kernel::Route;
using Kernel::RouteKey;
using Kernel::Rule;
using Lnet::IpFamily;
using Qor::U32;

using Bytes = std::vector<std::byte>;

// One message of rtnetlink, as it is built.
class Builder {
 public:
   template <class Header>
   Builder(unsigned type, U32 sequence, U32 port, Header const& header, unsigned flags = 0) {
      nlmsghdr const first{0, static_cast<__u16>(type), static_cast<__u16>(flags), sequence, port};
      append(&first, sizeof first);
      append(&header, sizeof header);
   }
   Builder& attribute(unsigned type, void const* data, std::size_t size) {
      rtattr const header{static_cast<unsigned short>(RTA_LENGTH(size)),
                          static_cast<unsigned short>(type)};
      append(&header, sizeof header);
      append(data, size);
      return *this;
   }
   Builder& number(unsigned type, U32 value) { return attribute(type, &value, sizeof value); }
   Builder& text(unsigned type, std::string const& value) {
      return attribute(type, value.c_str(), value.size() + 1);
   }
   Bytes bytes() {
      U32 const size = static_cast<U32>(bytes_.size());
      std::memcpy(bytes_.data(), &size, sizeof size);
      return bytes_;
   }

 private:
   void append(void const* data, std::size_t size) {
      auto const* at = static_cast<std::byte const*>(data);
      if (size != 0) bytes_.insert(bytes_.end(), at, at + size);
      bytes_.resize(NLMSG_ALIGN(bytes_.size()));
   }

   Bytes bytes_;
};

class FakeKernel final : public Kernel::Socket {
 public:
   static constexpr U32 ownPort = 4711;

   // ---- The tables. A change through a method is notified, unless silent. ----
   std::map<RouteKey, Route> routes;
   std::map<U32, Link> links;
   std::map<U32, std::set<Lnet::IpGenAddr>> addresses;
   std::vector<Rule> rules[2];
   std::set<std::pair<IpFamily, U32>> tables = {{IpFamily::v4, 253}, {IpFamily::v6, 254}};

   void routeIs(RouteKey const& key, Route const& route) {
      routes[key] = route;
      push(routeMessage(RTM_NEWROUTE, key, route, 0, 0));
   }
   void routeDel(RouteKey const& key) {
      push(routeMessage(RTM_DELROUTE, key, routes[key], 0, 0));
      routes.erase(key);
   }
   void linkIs(Link const& link) {
      links[link.index] = link;
      push(linkMessage(RTM_NEWLINK, link, 0, 0));
   }
   void linkDel(U32 index) {
      push(linkMessage(RTM_DELLINK, links[index], 0, 0));
      links.erase(index);
   }
   void addressIs(U32 link, char const* address, bool present) {
      Lnet::IpGenAddr const value = testSupport::addr(address);
      if (present)
         addresses[link].insert(value);
      else
         addresses[link].erase(value);
      push(addressMessage(present ? RTM_NEWADDR : RTM_DELADDR, link, value, 0, 0));
   }
   void ruleAdd(IpFamily family, Rule const& rule) {
      rules[family == IpFamily::v6].push_back(rule);
      push(ruleMessage(family, rule, 99, 12345));  // the numbers of the program that added it
   }
   void forwardingIs(IpFamily family) {
      netconfmsg const header{static_cast<__u8>(family == IpFamily::v6 ? AF_INET6 : AF_INET)};
      push(Builder(RTM_NEWNETCONF, 0, 0, header)
                 .number(NETCONFA_IFINDEX, 3)
                 .number(NETCONFA_MC_FORWARDING, 1)
                 .bytes());
   }
   void push(Bytes const& datagram) { queue.push_back(datagram); }

   // ---- Faults. ----
   std::set<RouteKey> unlisted;  // dumps lack these routes
   U32 interruptions = 0;        // so many dumps are marked as inconsistent, and lack a link
   std::deque<int> dumpErrors;   // of the next dumps
   bool singleRequests[2] = {true, true};
   std::function<void()>
         beforeRecords;              // called in the next dump of routes, after it has read them
   std::function<void()> beforeEnd;  // likewise, behind its records
   bool overrun = false;             // the next datagram is lost
   bool broken = false;
   std::vector<std::string> requests;  // "dump routes 253", "get 239.0.0.1"
   std::deque<Bytes> queue;

   // ---- The socket. ----
   // A loop needs a descriptor that is always readable, and polls it while something is there.
   int descriptor = -1;
   int fd() const override { return readable() ? descriptor : -1; }
   U32 port() const override { return ownPort; }
   bool readable() const { return !queue.empty() || overrun || broken; }
   Result receive(std::span<std::byte const>& datagram) override {
      if (broken) return Result::failed;
      if (std::exchange(overrun, false)) return Result::overrun;
      if (queue.empty()) return Result::empty;
      received_ = std::move(queue.front());
      queue.pop_front();
      datagram = received_;
      return Result::message;
   }
   bool send(std::span<std::byte const> requested) override {
      while (!requested.empty()) {
         nlmsghdr header{};
         std::memcpy(&header, requested.data(), sizeof header);
         answer(header, requested.subspan(sizeof header, header.nlmsg_len - sizeof header));
         requested = requested.subspan(NLMSG_ALIGN(header.nlmsg_len));
      }
      return true;
   }

   static Bytes routeMessage(unsigned type, RouteKey const& key, Route const& route, U32 sequence,
                             unsigned flags) {
      rtmsg header{};
      header.rtm_family = key.group.isV6() ? RTNL_FAMILY_IP6MR : RTNL_FAMILY_IPMR;
      header.rtm_type = RTN_MULTICAST;
      header.rtm_table = static_cast<unsigned char>(key.table < 256 ? key.table : RT_TABLE_COMPAT);
      header.rtm_flags = route.unresolved ? RTNH_F_UNRESOLVED : 0;
      std::size_t const size = key.group.bitWidth() / 8;
      Builder message(type, sequence, sequence ? ownPort : 0, header, flags);
      message.number(RTA_TABLE, key.table).attribute(RTA_SRC, key.source.bytes().data(), size);
      message.attribute(RTA_DST, key.group.bytes().data(), size);
      if (route.input != 0) message.number(RTA_IIF, route.input);
      std::vector<rtnexthop> hops;
      for (U32 output : route.outputs)
         hops.push_back({sizeof(rtnexthop), 0, 1, static_cast<int>(output)});
      if (!route.unresolved) {
         message.attribute(RTA_MULTIPATH, hops.data(), hops.size() * sizeof hops[0]);
      }
      rta_mfc_stats const statistics{route.packets, route.bytes, route.wrongInterface};
      return message.attribute(RTA_MFC_STATS, &statistics, sizeof statistics).bytes();
   }

 private:
   static Bytes linkMessage(unsigned type, Link const& link, U32 sequence, unsigned flags) {
      ifinfomsg header{};
      header.ifi_index = static_cast<int>(link.index);
      header.ifi_flags = link.adminUp ? IFF_UP | IFF_RUNNING | 1u << 16 : 0;
      Builder message(type, sequence, sequence ? ownPort : 0, header, flags);
      message.text(IFLA_IFNAME, link.name).attribute(IFLA_ADDRESS, link.mac.data(), 6);
      if (link.master != 0) message.number(IFLA_MASTER, link.master);
      if (link.kind.empty()) return message.bytes();
      // The attributes of a VRF are nested: the header of the message stands for no attribute.
      Bytes const data = Builder(0, 0, 0, Empty{}).number(1, link.vrfTable).bytes();
      Bytes const info =
            Builder(0, 0, 0, Empty{})
                  .text(IFLA_INFO_KIND, link.kind)
                  .attribute(IFLA_INFO_DATA, data.data() + nested, data.size() - nested)
                  .bytes();
      return message.attribute(IFLA_LINKINFO, info.data() + nested, info.size() - nested).bytes();
   }
   static Bytes addressMessage(unsigned type, U32 link, Lnet::IpGenAddr const& address,
                               U32 sequence, unsigned flags) {
      ifaddrmsg header{};
      header.ifa_family = address.isV6() ? AF_INET6 : AF_INET;
      header.ifa_index = link;
      return Builder(type, sequence, sequence ? ownPort : 0, header, flags)
            .attribute(IFA_ADDRESS, address.bytes().data(), address.bitWidth() / 8)
            .bytes();
   }
   static Bytes ruleMessage(IpFamily family, Rule const& rule, U32 sequence, U32 port) {
      fib_rule_hdr header{};
      header.family = family == IpFamily::v6 ? RTNL_FAMILY_IP6MR : RTNL_FAMILY_IPMR;
      header.action = FR_ACT_TO_TBL;
      Builder message(RTM_NEWRULE, sequence, port, header);
      message.number(FRA_PRIORITY, rule.priority).number(FRA_TABLE, rule.table);
      if (!rule.input.empty()) message.text(FRA_IIFNAME, rule.input);
      __u8 const vrf = rule.vrf;
      if (rule.vrf) message.attribute(FRA_L3MDEV, &vrf, 1);
      return message.bytes();
   }

   void answer(nlmsghdr const& request, std::span<std::byte const> rest) {
      rtmsg header{};  // which begins as the headers of the other requests
      std::memcpy(&header, rest.data(), std::min(rest.size(), sizeof header));
      bool const v6 = header.rtm_family == RTNL_FAMILY_IP6MR;
      std::map<int, std::span<std::byte const>> found;
      auto attributes = rest.subspan(std::min(rest.size(), sizeof header));
      while (request.nlmsg_type == RTM_GETROUTE && attributes.size() >= sizeof(rtattr)) {
         rtattr attribute{};
         std::memcpy(&attribute, attributes.data(), sizeof attribute);
         found[attribute.rta_type] = attributes.subspan(4, attribute.rta_len - 4u);
         attributes = attributes.subspan(
               std::min<std::size_t>(RTA_ALIGN(attribute.rta_len), attributes.size()));
      }
      U32 table = 0;
      if (found.count(RTA_TABLE)) std::memcpy(&table, found[RTA_TABLE].data(), sizeof table);
      IpFamily const family = v6 ? IpFamily::v6 : IpFamily::v4;
      if (!(request.nlmsg_flags & NLM_F_DUMP)) {
         return answerGet(request.nlmsg_seq,
                          {table, address(v6, found[RTA_SRC]), address(v6, found[RTA_DST])});
      }
      dump(request, family, table);
   }
   static Lnet::IpGenAddr address(bool v6, std::span<std::byte const> bytes) {
      Lnet::IpGenAddr::Bytes value{};
      std::memcpy(value.data(), bytes.data(), bytes.size());
      return v6 ? Lnet::IpGenAddr::v6(value)
                : Lnet::IpGenAddr::v4(U32{value[0]} << 24 | U32{value[1]} << 16 |
                                      U32{value[2]} << 8 | value[3]);
   }

   void answerGet(U32 sequence, RouteKey const& key) {
      requests.push_back("get " + key.group.toString());
      auto const route = routes.find(key);
      bool const known = singleRequests[key.group.isV6()];
      if (known && route != routes.end() && !route->second.unresolved) {
         return push(routeMessage(RTM_NEWROUTE, key, route->second, sequence, 0));
      }
      push(end(NLMSG_ERROR, sequence, known ? ENOENT : EOPNOTSUPP, 0));
   }
   static Bytes end(unsigned type, U32 sequence, int error, unsigned flags) {
      return Builder(type, sequence, ownPort, -error, flags).bytes();
   }

   void dump(nlmsghdr const& request, IpFamily family, U32 table) {
      U32 const sequence = request.nlmsg_seq;
      unsigned const flags = NLM_F_MULTI | (interruptions != 0 ? NLM_F_DUMP_INTR : 0u);
      if (interruptions != 0) --interruptions;
      int error = 0;
      if (!dumpErrors.empty()) {
         error = dumpErrors.front();
         dumpErrors.pop_front();
      }
      if (request.nlmsg_type == RTM_GETLINK) {
         requests.emplace_back("dump links");
         for (auto const& [index, link] : links) {
            bool const missed = (flags & NLM_F_DUMP_INTR) != 0 && index == links.begin()->first;
            if (!missed) push(linkMessage(RTM_NEWLINK, link, sequence, flags));
         }
      } else if (request.nlmsg_type == RTM_GETADDR) {
         requests.emplace_back("dump addresses");
         for (auto const& [index, list] : addresses) {
            for (Lnet::IpGenAddr const& value : list)
               push(addressMessage(RTM_NEWADDR, index, value, sequence, flags));
         }
      } else if (request.nlmsg_type == RTM_GETRULE) {
         requests.emplace_back("dump rules");
         for (Rule const& rule : rules[family == IpFamily::v6])
            push(ruleMessage(family, rule, sequence, ownPort));
      } else {
         requests.push_back("dump routes " + std::to_string(table));
         if (error == 0 && !tables.count({family, table})) error = ENOENT;
         if (error == 0) dumpRoutes(family, table, sequence, flags);
      }
      push(end(error == 0 || error == ENOENT ? NLMSG_DONE : NLMSG_ERROR, sequence, error, flags));
   }
   void dumpRoutes(IpFamily family, U32 table, U32 sequence, unsigned flags) {
      std::vector<Bytes> records;
      for (auto const& [key, route] : routes) {
         if (key.table != table || key.family() != family || unlisted.count(key)) continue;
         records.push_back(routeMessage(RTM_NEWROUTE, key, route, sequence, flags));
      }
      if (auto const call = std::exchange(beforeRecords, nullptr)) call();
      for (Bytes const& record : records)
         push(record);
      if (auto const call = std::exchange(beforeEnd, nullptr)) call();
   }

   struct Empty {};
   static constexpr std::size_t nested = sizeof(nlmsghdr) + NLMSG_ALIGN(sizeof(Empty));
   Bytes received_;
};

}  // namespace kernelTest
