// Names of replication groups.
#pragma once

#include <optional>
#include <string>

#include "platform/View.h"

namespace Agent {

// Whether the number is that of a group outside the replication table.
inline bool isHardWired(VelMroute::View const& view, std::optional<Qor::U32> number) {
   auto const group = number ? view.group(*number) : std::nullopt;
   return group && group->hardWired;
}

// "17"; "drop" or "cpu" for a hard-wired group; "none" without a group.
inline std::string groupName(VelMroute::View const& view, std::optional<Qor::U32> number) {
   if (!number) return "none";
   auto const group = view.group(*number);
   if (!group || !group->hardWired) return std::to_string(*number);
   return group->cpu ? "cpu" : "drop";
}

}  // namespace Agent
