// The two paths on which an agent can program its chip.
#pragma once

#include <optional>
#include <string_view>

#include "hooks/HookFault.h"

namespace Agent {

// async: operations return transactions that complete later. sync: operations are complete when they
// return.
using PathKind = VelMroute::HookPath;

constexpr std::string_view nameOf(PathKind path) {
   return path == PathKind::async ? "async" : "sync";
}

// The path with this name, or nothing.
constexpr std::optional<PathKind> pathKindNamed(std::string_view name) {
   for (PathKind const path : {PathKind::async, PathKind::sync}) {
      if (nameOf(path) == name) return path;
   }
   return std::nullopt;
}

}  // namespace Agent
