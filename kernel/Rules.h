// The rules that select the multicast routing table of a packet (`ip mrule`).
//
// The kernel tries the rules in the order of their priority. A packet is routed by the first table
// that a matching rule names and that exists. That table decides alone: a route of the same source
// and group in another table forwards nothing, also if the table that decides has no such route. A
// table comes into existence when a daemon first selects it, and stays until the network namespace
// ends.
#pragma once

#include <functional>
#include <string>
#include <vector>

#include "Qor/Types.h"

namespace Kernel {

struct Rule {
   enum class Action { table, jump, none, refuse };

   Qor::U32 priority = 0;
   Action action = Action::table;
   Qor::U32 table = 0;      // with Action::table; 0 if vrf is set
   Qor::U32 target = 0;     // with Action::jump: the priority of the next rule
   bool vrf = false;        // the table is that of the VRF of the input interface
   std::string input = {};  // the rule is for packets of this interface; empty: of all
   bool output = false;     // the rule is for packets that the router sends itself
   Qor::U32 mark = 0;       // the rule is for packets whose mark, under the mask, is this one
   Qor::U32 markMask = 0;
   bool inverted = false;  // the rule is for the packets that do not match

   friend bool operator==(Rule const&, Rule const&) = default;
};

// The facts about an input interface on which the choice of a table depends.
struct RuleInput {
   std::string name;
   std::string vrf;        // the name of its VRF, or empty
   Qor::U32 vrfTable = 0;  // the table of its VRF, or 0
};

// Returns the table that routes packets without a mark which arrive at `input`, or 0 if there is
// none. `rules` are in the order of their priority.
Qor::U32 selectedTable(std::vector<Rule> const& rules, RuleInput const& input,
                       std::function<bool(Qor::U32)> const& exists);

}  // namespace Kernel
