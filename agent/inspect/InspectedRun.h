// A run that the inspector queries and continues: the replay of a capture or the play of a scenario
// (agent/run/CaptureRun.h, agent/run/ScenarioRun.h).
#pragma once

#include "agent/switch/Switch.h"

namespace Agent {

class InspectedRun {
 public:
   virtual ~InspectedRun() = default;

   // The reference is valid until the run is continued.
   virtual Switch& theSwitch() = 0;
   // Continues up to and including `time`: applies the input, and runs everything that is due.
   // Returns false if the input has an error, which has been reported; the run then ends.
   virtual bool runUntil(Qor::Seconds time) = 0;
   // Applies the rest of the input, and runs until the switch is settled.
   virtual bool runToEnd() = 0;
   // The time of the next input; never if no input is left.
   virtual Qor::Seconds nextInput() = 0;
   // Whether the rest of the input is in memory, so that the run can be continued in a copy of the
   // process.
   virtual bool inMemory() const = 0;
};

}  // namespace Agent
