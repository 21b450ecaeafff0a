// The form in which a command prints its results.
#pragma once

#include <cstddef>

#include "agent/report/JsonOutput.h"

namespace Agent {

struct OutputFormat {
   // Text in lines of any length, or compact JSON. The conversion is meant to be implicit: most
   // callers choose no more than that.
   OutputFormat(bool asJson = false) : json(asJson) {}  // NOLINT(google-explicit-constructor)
   explicit OutputFormat(JsonStyle jsonStyle) : json(true), style(jsonStyle) {}

   bool json;
   JsonStyle style = JsonStyle::compact;
   std::size_t width = 0;  // of tables in text; 0: lines may have any length
};

// The width of the terminal on standard output: the variable COLUMNS if it has a number, otherwise
// the width of the terminal. 0 if standard output is no terminal, so that scripts read lines of one
// form.
std::size_t terminalWidth();

}  // namespace Agent
