// The schemas of docs/schemas, and the validation of documents by them.
#pragma once

#include <string>

namespace testSupport {

// The first fault of a JSON text, with its place; empty for a text that fits the schema of
// docs/schemas/NAME.schema.json.
std::string schemaFault(std::string const& name, std::string const& text);
// The same for a text of several lines, each of which is a document.
std::string schemaFaultOfLines(std::string const& name, std::string const& text);

}  // namespace testSupport
