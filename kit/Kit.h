// Finds the mistakes of a platform: the kit runs lives of an agent on the chip of a platform, and
// compares three things after each step.
//
//    compared                        | culprit of a difference
//    --------------------------------+-------------------------------------------------------------
//    a call with the calls before it | the hook; the rules are those of the checked hooks
//                                    | (hooks/HookChecks.h)
//    the chip with the shadow        | the platform. Packets and the tables that are read back show
//                                    | the chip, and the shadow (hooks/Shadow.h) has the tables that
//                                    | the calls asked for. The last call that touched the entry or
//                                    | the set is named
//    the shadow with the wishes      | the library. The kit keeps the wanted routes, and compares
//                                    | those that are in hardware
//
// The checks are numbered (kit/KitReport.h), and each one has lives of its own: a fresh platform, and
// a programmer with a checked gate. A check that needs an ability, a probe, injected faults or a
// restart that the platform does not have is left out, with the reason.
//
// Use. The kit needs no test framework:
//
//    VelMroute::Kit kit([] { return Qor::make<MyPlatform>(); });
//    auto const report = kit.run();
//    VelMroute::print(std::cout, report);
//    return report.passed() ? 0 : 1;
//
// Time. The kit turns the loop through Probe::wait() and Probe::settle(), looks at the chip when no
// write is under way, and sends packets in batches. Only the check "make-before-break" sends packets
// while writes are under way, one by one; its text has the rate and the losses.
//
// Ports. The kit uses the first ports of the probe that have a vlan, at most eight. If the platform
// has none, the kit announces the ports kit1 to kit8 in the vlans 1 to 8 (Platform::portIs()).
// Four ports are enough: two inputs and two outputs.
//
// Room. The checks need a chip with room for 8 sets, 8 entries and 2 boundary entries.
#pragma once

#include "kit/KitOptions.h"
#include "kit/KitReport.h"

namespace VelMroute {

class Kit final {
 public:
   // RangeException "VelMroute::Kit::make null not allowed", and
   // "VelMroute::Kit::only <id> not allowed" for an id that no check has.
   Kit(PlatformMaker make, KitOptions options = {});

   KitOptions const& options() const { return options_; }

   // Runs all checks, in the order of their numbers. Raises the errors of the maker, and
   // RangeException for a platform that the kit cannot use: without hooks, on another time than
   // options().virtualTime says, or with less than four ports. With VEL_NOOP_AGENT in the environment the
   // gates check nothing, so that is such an error, too.
   KitReport run();

 private:
   KitReport runChecks() const;

   PlatformMaker const make_;
   KitOptions const options_;
};

}  // namespace VelMroute
