// The interfaces of the input on the switch: every interface name has an internal vlan and, unless
// it is the CPU, a port number of the chip.
//
// Names get their numbers when they are first asked for, so the same input gives the same numbers
// in every run: ports count from 1, internal vlans from 1006 to 4094 and then, since most switches
// have less use for the low ones, on from 1 to 1005. A map file may fix both for some names; the
// others then take the numbers that are left.
//
// The register devices of the kernel (pimreg, pim6reg, and with the number of a table behind it)
// are no ports. Such an output means "a copy to the CPU", as an input it has an internal vlan but
// nothing on the wire arrives there.
//
// The map file has one interface a line, and comments from '#' to the end of a line:
//    rtr0 port=1 vlan=1006
//    pimreg vlan=1010          # a register device has no port
#pragma once

#include <cstddef>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "Bridging/VlanId.h"
#include "Lnet/IntfId.h"
#include "agent/input/InputError.h"

namespace Agent {

// No internal vlan is left for an interface; what() names it.
class InterfaceMapFull final : public std::runtime_error {
 public:
   using std::runtime_error::runtime_error;
};

struct Intf {
   Lnet::IntfId id;
   Qor::U32 port;  // 0: none
   Bridging::VlanId vlan;
   bool cpu;
};

class InterfaceMap {
 public:
   static constexpr unsigned firstVlan = 1006;
   static constexpr unsigned lastVlan = 4094;
   static constexpr Qor::U32 lastPort = 65535;  // the largest a map file may give

   // Reads a map file ("-" is standard input) before any name has been asked for. On an error,
   // which is returned, the map is as it was: the file is missing, a name, port or vlan occurs
   // twice or is out of range, a word is unknown or missing.
   std::optional<InputError> load(std::string const& file);

   // The interface of a name, which is not empty; the reference stays valid. Raises
   // InterfaceMapFull when the name is new and no vlan is left.
   Intf const& intf(Lnet::IntfId id);

   // Null when no interface has it. Register devices have no port.
   Intf const* byVlan(Bridging::VlanId vlan) const;
   Intf const* byPort(Qor::U32 port) const;

   // In the order of first sight; those of the map file come first, in its order.
   std::vector<std::unique_ptr<Intf const>> const& intfs() const { return intfs_; }

   static bool isRegisterDevice(std::string_view name);

 private:
   // The reason why a line cannot be entered, or empty.
   std::string enterLine(std::string_view line);
   Intf const& enter(Intf const& intf);
   unsigned nextVlan();  // 0 when none is left
   Qor::U32 nextPort();

   std::vector<std::unique_ptr<Intf const>> intfs_;
   std::unordered_map<Qor::U32, Intf const*> byId_;  // keyed by IntfId::id()
   std::unordered_map<Qor::U32, Intf const*> byPort_;
   std::vector<Intf const*> byVlan_ = std::vector<Intf const*>(lastVlan + 1);
   unsigned vlanHint_ = firstVlan;  // the next to try; those before it are taken
   Qor::U32 portHint_ = 1;
};

}  // namespace Agent
