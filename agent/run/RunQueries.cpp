#include "agent/run/RunQueries.h"

#include <iostream>
#include <nlohmann/json.hpp>

#include "agent/explain/ExplainJson.h"
#include "agent/report/ErrorOutput.h"
#include "agent/report/JsonOutput.h"
#include "agent/report/Output.h"

namespace Agent {

InspectResult query(InspectedRun& run, RunOptions const& options) {
   if (!options.question) return inspect(run, options.inspected());
   InspectResult result;
   try {
      auto const answer = explainJson(Explainer(run.theSwitch()).answer(*options.question));
      if (options.format.json) {
         printJson(std::cout, answer, options.format.style);
      } else {
         printExplanation(std::cout, answer);
      }
   } catch (QuestionError const& error) {
      printError(error.what());
      result.good = false;
   }
   result.good = outputWritten() && result.good;
   return result;
}

}  // namespace Agent
