// The numbers of the interfaces on the switch. Every interface has an internal vlan, and every
// interface but the CPU has a port number of the chip.
//
// An interface gets its numbers when its name first occurs, so the same input gives the same
// numbers in every run. Ports count from 1. Internal vlans count from 1006 to 4094 and then from 1
// to 1005, because configured vlans usually have low numbers. A map file may fix the numbers of
// some interfaces; the others take the numbers that are left.
//
// The register devices of the kernel (pimreg and pim6reg, also followed by the number of a table)
// are no ports. As an output, a register device stands for a copy to the CPU. As an input, it has
// an internal vlan, but no packet from a wire arrives there.
//
// A line of the map file has one interface. A '#' begins a comment:
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

// No internal vlan or no port is left for an interface; what() names it.
class InterfaceMapFull final : public std::runtime_error {
 public:
   using std::runtime_error::runtime_error;
};

struct Intf {
   Lnet::IntfId id;
   Qor::U32 port;  // 0: the interface has no port
   Bridging::VlanId vlan;
   bool cpu;
};

class InterfaceMap {
 public:
   static constexpr unsigned firstVlan = 1006;
   static constexpr unsigned lastVlan = 4094;
   static constexpr Qor::U32 lastPort = 65535;  // the largest port number of a map file

   // Reads a map file ("-" is standard input), before the first call of intf(). An error is
   // returned, and leaves the map unchanged: the file is missing, a name, port or vlan occurs twice
   // or is out of range, a word is unknown or missing.
   std::optional<InputError> load(std::string const& file);

   // The interface of a name, which is not empty. The reference stays valid. Raises
   // InterfaceMapFull if the name is new and no vlan is left.
   Intf const& intf(Lnet::IntfId id);

   // Null for an unknown name.
   Intf const* find(Lnet::IntfId id) const {
      return id.id() < byId_.size() ? byId_[id.id()] : nullptr;
   }
   // Null if no interface has this vlan or port. Register devices have no port.
   Intf const* byVlan(Bridging::VlanId vlan) const;
   Intf const* byPort(Qor::U32 port) const;

   // The interfaces of the map file, in its order, and then the others in the order of intf().
   std::vector<std::unique_ptr<Intf const>> const& intfs() const { return intfs_; }

   static bool isRegisterDevice(std::string_view name);

 private:
   // The reason why a line cannot be entered, or empty.
   std::string enterLine(std::string_view line);
   Intf const& enter(Intf const& intf);
   unsigned nextVlan();  // 0 when none is left
   Qor::U32 nextPort();

   std::vector<std::unique_ptr<Intf const>> intfs_;
   std::vector<Intf const*> byId_;  // by IntfId::id()
   std::unordered_map<Qor::U32, Intf const*> byPort_;
   std::vector<Intf const*> byVlan_ = std::vector<Intf const*>(lastVlan + 1);
   unsigned vlanHint_ = firstVlan;  // the next vlan to try; the ones before it are taken
   Qor::U32 portHint_ = 1;
};

}  // namespace Agent
