// The configuration file of the live agent. A line has one directive, and a '#' begins a comment:
//
//    switch unix:/run/openvswitch/br0.mgmt   # the OpenFlow socket of the bridge; required
//    table 254                     # a multicast table of the kernel to follow, once for each; default:
//                                  # those that the kernel uses without rules
//    control /run/velmroute/control.sock
//    metrics 127.0.0.1:9464        # or unix:PATH; default: no metrics
//    expiry 210                    # seconds after which a daemon gives up a source without packets
//    hold-on-daemon-restart 0      # seconds for which routes stay when their table empties at once
//    standby-hold 10               # seconds of a restored link before it carries packets again
//    groups 1048576-1114111        # the group ids on the bridge that belong to the agent
//    log notice                    # error, warning, notice, info or debug
//    interface rtr0 port p0 cpu c0 [vlan 100] [standby p9]
//    reroute rtr1 rtr2             # when rtr1 fails, its routes send to rtr2 instead
//
// An interface of the kernel has a front port of the bridge, with the vlan of its packets there, and
// a CPU port of the bridge, which is the other end of the interface. Nothing is derived from equal
// names, because the port of that name may be another one.
#pragma once

#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

#include "Lnet/IntfId.h"
#include "agent/input/InputError.h"

namespace Agent {

struct LiveInterface {
   Lnet::IntfId intf;
   std::string port;  // the front port
   std::string cpu;   // the CPU port
   std::optional<Qor::U16> vlan;
   std::string standby;  // the port that replaces the front port while that is down; or empty
   unsigned line = 0;    // of the file

   bool sameAs(LiveInterface const& other) const {
      return intf == other.intf && port == other.port && cpu == other.cpu && vlan == other.vlan &&
             standby == other.standby;
   }
};

struct Configuration {
   std::string switchSocket;      // a path
   std::vector<Qor::U32> tables;  // empty: the defaults of both families
   std::string control = "/run/velmroute/control.sock";
   std::string metrics;  // "127.0.0.1:9464", "unix:/path"; empty: none
   Qor::Seconds expiry = 210;
   Qor::Seconds holdOnDaemonRestart = 0;
   Qor::Seconds standbyHold = 10;
   Qor::U32 firstGroup = 0x100000, lastGroup = 0x10ffff;
   std::string log = "notice";
   std::vector<LiveInterface> interfaces;          // in the order of the file
   std::map<Lnet::IntfId, Lnet::IntfId> reroutes;  // by the protected interface

   LiveInterface const* interface(Lnet::IntfId intf) const;

   // The configuration of a text. `file` names it in errors. All faults of the text are returned if
   // it has any: an unknown directive or word, a value out of range, a directive that occurs twice,
   // a port or an interface of two lines, a missing switch, a reroute of an unknown interface.
   static std::variant<Configuration, std::vector<InputError>> parse(std::string_view text,
                                                                     std::string const& file);
   // The same of a file. A file that cannot be read is one fault.
   static std::variant<Configuration, std::vector<InputError>> load(std::string const& file);
};

}  // namespace Agent
