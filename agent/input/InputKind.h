// Recognises an input by the beginning of its text, so that an error says what a wrong file is and
// which command takes it.
#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "agent/input/InputError.h"

namespace Agent {

enum class InputKind {
   unknown,      // text of another form; the parser of the expected form knows the fault
   empty,        // no line but comments
   monitor,      // lines of `ip -ts -o monitor`
   unstamped,    // lines of `ip mroute show`, or of `ip monitor` without -ts
   ipTable,      // `ip -j mroute show`
   frrTable,     // FRR's `show ip mroute json`
   frrText,      // FRR's `show ip mroute`
   otherIpJson,  // `ip -j link`, `ip -j address`
   scenario,
   timeline,  // the output of --timeline
   interfaceMap,
   configuration,  // of the live agent
   otherJson,      // an object over several lines
   html,
   packets,  // pcap and pcapng
   gzip,
   compressed,  // by another program
   binary,
};

// The kind of a text by its beginning, which has at least the first line that is neither empty nor
// a comment.
InputKind kindOf(std::string_view beginning);

// The kind of a regular file, whose gzip compression is undone. Nothing for a file that cannot be
// read, and for standard input and pipes, which cannot be read again.
std::optional<InputKind> kindOfFile(std::string const& file);

enum class InputUse { capture, scenario, interfaceMap, configuration };

// "this is a scenario, not a capture: ...": the reason why an input of this kind cannot be used, with
// the command that takes it. Empty if the kind suits or is unknown. An empty input suits every use.
std::string refusal(InputKind kind, InputUse use);

// The error for a file that cannot be used, or nothing.
std::optional<InputError> misusedFile(std::string const& file, InputUse use);

}  // namespace Agent
