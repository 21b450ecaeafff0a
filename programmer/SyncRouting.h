// The part of the synchronous path that all chips of one hook object share: the agent-wide reactor
// (Vel/VelMrouteSm.h), which turns multicast routing on and keeps the route counters, and a gate in
// front of its hooks. An agent makes one object for all chips of its hook object. Objects with
// different hooks must not share an l3Status: a decision on multicast routing that one reactor has
// published is not passed to the hooks of the others.
#pragma once

#include "Routing/Multicast/Fib/CounterStatus.h"
#include "Vel/VelMrouteSm.h"
#include "hooks/SyncHookGate.h"

namespace VelMroute {

class SyncRouting final : public Qor::RefCounted {
 public:
   struct Inputs {
      Qor::Ptr<VelHelper::MrouteSmHelper> hooks = {};  // required
      // Checks the hooks against their contract, in the gates of this object and of each chip; none:
      // no checks. The gates share a list of faults, and `published` says whether handles of ranges
      // are shared.
      std::optional<HookChecks::Options> checks = {};
      Qor::Ptr<Vel::L3Status> l3Status = {};  // required: the VRFs with their numbers
      // The other inputs are those of the reactor; null has the consequence that its header states.
      // Multicast is routed while `published` says hwRouting and a VRF is in `enabled`.
      Qor::Ptr<Vel::VelCommonSmData> common = {};
      Qor::Ptr<Routing::Multicast::Fib::VrfConfig const> config = {};
      Qor::Ptr<Routing::Multicast::Fib::Hardware::Status> published = {};
      Qor::Ptr<Routing::Multicast::Fib::VrfEnabledStatus const> enabled = {};
      Qor::Ptr<Ip::Status const> ipStatus = {};
      Qor::Ptr<Routing::Multicast::Fib::CounterStatus> counters = {};
      Qor::Ptr<Routing::Multicast::Fib::CounterStatusCtl> counterControl = {};
   };

   // RangeException "VelMroute::SyncRouting::<input> null not allowed" for a missing input.
   explicit SyncRouting(Inputs inputs);

   Inputs const& inputs() const { return inputs_; }
   Qor::Ptr<Vel::MrouteSm> const& reactor() const { return reactor_; }
   Qor::Ptr<SyncHookGate> const& gate() const { return gate_; }

 private:
   // Shuts the gate first: the end calls no hook.
   ~SyncRouting() override;

   Inputs const inputs_;
   Qor::Ptr<SyncHookGate> const gate_;
   Qor::Ptr<Vel::MrouteSm> reactor_;
};

}  // namespace VelMroute
