#include "kit/internal/Check.h"

namespace VelMroute {

namespace KitParts {

namespace {

constexpr char const* pointsGroup =
      "Points the route at the group, in place of the group that it points at now.";
constexpr char const* setsOif = "Points the entry at `oifSetIndex`.";
constexpr char const* matches =
      "The entry forwards the packets that arrive in the accepting vlan by `oifSetIndex` (0: to no "
      "port), or drops them if `fastDrop` is set.";
constexpr char const* anyVlan =
      "The accepting vlan is none for a routed entry that accepts from any interface.";
constexpr char const* starts =
      "Chooses a free multicast id, starts programming its group with `oifSet` and returns the id; "
      "returns an invalid id if no group is free.";
constexpr char const* reserves =
      "Reserves an entry for the route and returns its handle; returns the invalid handle if no "
      "entry is free.";
constexpr char const* full = "True if the route, boundary or replication table has no room.";
constexpr char const* manual = "This header is the platform's manual.";
constexpr char const* beforeReturn = "A hook programs the chip before it returns.";

constexpr Check checks[] = {
      {{1, "calls", manual, manual}, 0, nullptr},
      {{2, "forwarding", pointsGroup, setsOif}, chip, forwarding},
      {{3, "shared-sets", "Returns whether one more route may share the group.",
        "An oif set index stands for the chip's replication of one oif set."},
       chip,
       sharedSets},
      {{4, "make-before-break",
        "The library issues its changes in an order that is safe for the chip: a group exists "
        "before a route points at it, and no route points at a group that is deleted.",
        beforeReturn},
       packets,
       makeBeforeBreak},
      {{5, "ipv6", reserves, matches}, chip | ipv6, ipv6Routes},
      {{6, "star-groups", reserves, matches}, chip | wildcards, starGroups},
      {{7, "group-ranges", reserves, matches}, chip | wildcards | ranges, groupRanges},
      {{8, "vrfs", "`vrfId` is the route's VRF.", "`vrfId` is the VRF of the route."},
       packets,
       vrfs},
      {{9, "input-vlan", anyVlan, matches}, chip, inputVlan},
      {{10, "cpu-copies", pointsGroup, "Programs the replication of `oifSet`."},
       chip | cpu,
       copiesToCpu},
      {{11, "fastdrop", pointsGroup, matches}, chip | fastdrop, fastdropEntries},
      {{12, "boundaries", "`bridgeAction` marks an entry that bridges.",
        "With `bridge` the hook programs a boundary entry in the boundary table; then the vlan is "
        "1 to 4094, and the last three arguments are 0 and false."},
       chip | bridging,
       boundaries},
      {{13, "any-input", anyVlan,
        "Programs a route entry that accepts packets from every vlan; `bridge` is false."},
       chip | noRpf,
       anyInput},
      {{14, "rewrite-in-place",
        "Rewrites the members of a group in place: each route that points at the group forwards to "
        "`oifSet` afterwards.",
        "With any other `oifSetIndex` it rewrites the index in place, so that every route with "
        "that index forwards to `oifSet` from then on, and returns the same index."},
       chip | reroute,
       rewriteInPlace},
      {{15, "empty-sets",
        "`excludeEmptyMcid` is true for a fast-reroute route: the group of such a route is "
        "rewritten in place, so it must not be a group that all empty sets share.",
        "An empty set has no outgoing ports and does not count against the replication table: each "
        "empty set gets an index of its own outside the table, and never the invalid index."},
       chip,
       emptySets},
      {{16, "blocking-transaction",
        "A blocking transaction, where one is passed, must complete before the new change is "
        "applied.",
        nullptr},
       packets,
       blockingTransaction},
      {{17, "failed-set",
        "This holds if the platform applies the changes, deletions included, in the order of the "
        "calls.",
        nullptr},
       packets | faults,
       failedSet},
      {{18, "deletions",
        "Deletes the route's entry; the platform may give out its handle again from then on.",
        "The platform deletes the entry."},
       packets,
       deletions},
      {{19, "hits",
        "Returns the time at which a packet last hit the entry, in seconds on the Qor::now() time "
        "base; 0.0 for an entry that no packet has hit.",
        "True if packets have hit the route since the review before, by the hit bits cached for "
        "this review."},
       packets | hits,
       hitTimes},
      {{20, "room-for-sets", starts, full}, 0, roomForSets},
      {{21, "room-for-entries", reserves, full}, 0, roomForEntries},
      {{22, "room-for-boundaries", nullptr, full}, bridging, roomForBoundaries},
      {{23, "failed-writes",
        "A change that fails later is reported by the state of its transaction; "
        "doGetXactFailureReason returns the text.",
        "The hook returns invalidOifSetIndex if it could not program the set."},
       chip | faults,
       failedWrites},
      {{24, "random-lives", manual, manual}, chip, randomLives},
      {{25, "adoption",
        "The library issues its changes in an order that is safe for the chip: a group exists "
        "before a route points at it, and no route points at a group that is deleted.",
        beforeReturn},
       packets | restart,
       adoption},
      {{26, "end-of-service", nullptr, "At the end the platform clears the chip."},
       chip,
       endOfService},
};

}  // namespace

std::span<Check const> allChecks() {
   return checks;
}

char const* lacking(unsigned needs, Platform& platform) {
   Abilities const can = platform.abilities();
   bool const probe = platform.probe() != nullptr, view = platform.view() != nullptr;
   struct Part {
      unsigned need;
      bool has;
      char const* reason;
   };
   Part const parts[] = {
         {chip, probe || view, "the platform has neither a probe nor a view"},
         {packets, probe, "the platform has no probe"},
         {ipv6, can.ipv6, "the platform takes no IPv6 routes"},
         {wildcards, can.wildcards, "the platform takes no (*,G) routes"},
         {ranges, can.ranges, "the platform takes no group ranges"},
         {cpu, can.cpu, "the platform sends no copies to the CPU"},
         {fastdrop, can.fastdrop, "the platform has no fastdrop entries"},
         {bridging, can.bridging, "the platform has no boundary entries"},
         {noRpf, can.noRpf, "each entry of the platform checks its input"},
         {reroute, can.reroute, "the platform cannot rewrite a group in place"},
         {hits, can.hits, "the platform cannot read the activity of entries"},
         {faults, platform.faults() != nullptr, "the platform has no faults that can be planned"},
         {restart, platform.restart() != nullptr, "the platform finds nothing after a restart"},
   };
   for (Part const& part : parts) {
      if ((needs & part.need) != 0 && !part.has) return part.reason;
   }
   return nullptr;
}

}  // namespace KitParts

std::vector<KitCheck const*> kitChecks() {
   std::vector<KitCheck const*> all;
   for (KitParts::Check const& check : KitParts::allChecks())
      all.push_back(&check.about);
   return all;
}

}  // namespace VelMroute
