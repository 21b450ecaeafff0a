#include "programmer/SyncRouting.h"

#include <utility>

#include "Qor/Exception.h"

namespace VelMroute {

namespace {

SyncRouting::Inputs checked(SyncRouting::Inputs inputs) {
   if (!inputs.hooks) Qor::throwRange("VelMroute::SyncRouting::hooks null not allowed");
   if (!inputs.l3Status) Qor::throwRange("VelMroute::SyncRouting::l3Status null not allowed");
   if (inputs.checks && !inputs.checks->faults) inputs.checks->faults = Qor::make<HookFaults>();
   if (inputs.checks && !inputs.checks->status) inputs.checks->status = inputs.published;
   return inputs;
}

}  // namespace

SyncRouting::SyncRouting(Inputs inputs)
      : inputs_(checked(std::move(inputs))),
        gate_(Qor::make<SyncHookGate>(inputs_.hooks, inputs_.checks)) {
   reactor_ = Vel::MrouteSmIs(inputs_.common, inputs_.l3Status, inputs_.config, inputs_.published,
                              inputs_.ipStatus, gate_, inputs_.enabled);
   if (inputs_.counters) reactor_->mfibCounterStatusIs(inputs_.counters);
   if (inputs_.counterControl) reactor_->mfibCounterStatusCtlIs(inputs_.counterControl);
}

SyncRouting::~SyncRouting() {
   gate_->openIs(false);
}

}  // namespace VelMroute
