#include "kernel/Rules.h"

namespace Kernel {

namespace {

bool matches(Rule const& rule, RuleInput const& input) {
   // A packet of a VRF arrives at the VRF's interface, as the rules see it.
   std::string const& arrival = input.vrf.empty() ? input.name : input.vrf;
   bool const matched = (rule.input.empty() || rule.input == arrival) && !rule.output &&
                        (rule.mark & rule.markMask) == 0 && (!rule.vrf || input.vrfTable != 0);
   return matched != rule.inverted;
}

}  // namespace

Qor::U32 selectedTable(std::vector<Rule> const& rules, RuleInput const& input,
                       std::function<bool(Qor::U32)> const& exists) {
   Qor::U32 from = 0;  // rules of a lower priority number are skipped by a jump
   for (Rule const& rule : rules) {
      if (rule.priority < from || !matches(rule, input)) continue;
      if (rule.action == Rule::Action::refuse) return 0;
      if (rule.action == Rule::Action::jump) from = rule.target;
      if (rule.action != Rule::Action::table) continue;
      Qor::U32 const table = rule.vrf ? input.vrfTable : rule.table;
      if (exists(table)) return table;
   }
   return 0;
}

}  // namespace Kernel
