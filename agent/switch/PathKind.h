// The two ways in which a switch agent may program its chip.
#pragma once

#include <optional>
#include <string_view>

namespace Agent {

enum class PathKind {
   async,  // operations return transactions that complete later
   sync,   // operations program at once
};

constexpr std::string_view nameOf(PathKind path) {
   return path == PathKind::async ? "async" : "sync";
}

// The path of that name, or nothing.
constexpr std::optional<PathKind> pathKindNamed(std::string_view name) {
   for (PathKind const path : {PathKind::async, PathKind::sync}) {
      if (nameOf(path) == name) return path;
   }
   return std::nullopt;
}

}  // namespace Agent
