// A run that is looked at while it stands still, and can be told to go on: the replay of a capture
// or the play of a scenario (agent/run/RunCommand.h, agent/run/ScenarioRun.h).
#pragma once

#include "agent/switch/SimulatedSwitch.h"

namespace Agent {

class InspectedRun {
 public:
   virtual ~InspectedRun() = default;

   // To be asked anew after the run has gone on.
   virtual SimulatedSwitch& simulated() = 0;
   // Goes on with the input and with all that is due, up to and including `time`, at which it then
   // stands. False when the input has an error, which has been reported; the run goes no further.
   virtual bool runUntil(Qor::Seconds time) = 0;
   // Takes in what is left of the input, and runs until all is done that it has set going.
   virtual bool runToEnd() = 0;
   // When the input goes on; never when there is none left.
   virtual Qor::Seconds nextInput() = 0;
   // Whether going on takes nothing from a file.
   virtual bool inMemory() const = 0;
};

}  // namespace Agent
