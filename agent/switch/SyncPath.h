// The synchronous path of a switch. The per-switch reactor purges zombies, polls activity
// and is notified of links. The reactor above all switches enables routing with the first VRF and
// keeps the counters, which are polled all the time. The verifier requests the comparison of tables
// and hardware.
#pragma once

#include "agent/switch/SwitchPathBase.h"
#include "agent/switch/Verifier.h"
#include "programmer/SyncRouteTable.h"

namespace Agent {

class SyncPath final : public SwitchPathBase<VelMroute::SyncRouteTable> {
 public:
   // `crashed` is null at the first start of the agent.
   SyncPath(Surroundings const& s, Crashed const* crashed);

   void vrfIs(L3::VrfName const& vrf, Vel::VrfId id) override { inputs_.vrfIs(vrf, id); }

   std::vector<Qor::String> faults() const override;
   void verify() const override { verifier_->verify(); }
   bool bridges() const override { return true; }
   std::optional<Qor::U64> counter(RouteKey const& key) const override;

   std::vector<Qor::String> auditTables() const override;
   TreeRoots roots() const override;
   void timelineIs(Timeline* timeline) override;

 private:
   using CounterStatus = Routing::Multicast::Fib::CounterStatus;

   // The entities that only the reactors of the synchronous path read and write.
   struct Inputs {
      explicit Inputs(Surroundings const& s);

      void vrfIs(L3::VrfName const& vrf, Vel::VrfId id) const;

      Qor::Ptr<Vel::VerifyData> verifyData = Qor::make<Vel::VerifyData>();
      Qor::Ptr<Vel::VelCommonSmData> acsd = Qor::make<Vel::VelCommonSmData>();
      Qor::Ptr<Vel::L3Status> l3Status = Qor::make<Vel::L3Status>();
      Qor::Ptr<Routing::Multicast::Fib::VrfEnabledStatus> mcastEnabledStatus =
            Qor::make<Routing::Multicast::Fib::VrfEnabledStatus>();
      Qor::Ptr<CounterStatus> counterStatus = Qor::make<CounterStatus>();
   };

   static constexpr Qor::U32 switchId = 1;

   SyncPath(Surroundings const& s, Crashed const* crashed, Inputs inputs);
   static std::unique_ptr<VelMroute::SyncRouteTable> newTable(Surroundings const& s,
                                                              Crashed const* crashed,
                                                              Inputs const& inputs);
   RecordRow rowOf(Vel::MtableOifSet const& record) const override;

   Qor::Ptr<VelHelper::MrouteSmHelper> const hooks_;
   Inputs const inputs_;
   std::unique_ptr<Verifier> const verifier_;
};

}  // namespace Agent
