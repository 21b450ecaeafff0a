// The options for JSON, as all commands have them.
#pragma once

#include <CLI/CLI.hpp>
#include <string>

#include "agent/report/OutputFormat.h"

namespace Agent {

// Adds -j and -p, which exclude `other`. -p alone is enough for JSON that is indented.
inline void addJsonOptions(CLI::App& command, OutputFormat& format, std::string const& help,
                           CLI::Option* other = nullptr) {
   CLI::Option* const json = command.add_flag("-j,--json", format.json, help);
   CLI::Option* const pretty = command.add_flag_callback(
         "-p,--pretty",
         [&format] {
            format.json = true;
            format.style = JsonStyle::pretty;
         },
         "as -j, with indentation");
   if (!other) return;
   json->excludes(other);
   pretty->excludes(other);
}

}  // namespace Agent
