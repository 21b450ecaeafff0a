// An answer of the explainer as a document (docs/schemas/explain.schema.json), and as text. The text
// is made from the document, so both have the same content.
#pragma once

#include <nlohmann/json_fwd.hpp>
#include <ostream>

#include "agent/explain/Explainer.h"

namespace Agent {

nlohmann::ordered_json explainJson(RouteAnswer const& answer);
// A trace within the document, for example for a page of all routes.
nlohmann::ordered_json traceJson(RouteTrace const& trace);
// A sentence with the answer, and below it a line for each step of a packet and for each concern.
void printExplanation(std::ostream& os, nlohmann::ordered_json const& explanation);

}  // namespace Agent
