// The two ways in which a switch agent may program its chip.
#pragma once

#include <optional>
#include <string_view>

namespace Agent {

enum class Path {
   async,  // operations return transactions that complete later
   sync,   // operations program at once
};

constexpr std::string_view nameOf(Path path) {
   return path == Path::async ? "async" : "sync";
}

// The path of that name, or nothing.
constexpr std::optional<Path> pathNamed(std::string_view name) {
   for (Path const path : {Path::async, Path::sync}) {
      if (nameOf(path) == name) return path;
   }
   return std::nullopt;
}

}  // namespace Agent
