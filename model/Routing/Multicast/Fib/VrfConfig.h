// The multicast forwarding configuration of all VRFs, and that of the switch as a whole. The
// routing layer writes the configuration. The per-switch reactors of both paths and the top-level
// multicast reactor watch it.
#pragma once

#include <limits>
#include <utility>

#include "Qor/Exception.h"
#include "Routing/Multicast/Fib/Config.h"
#include "Routing/Multicast/Fib/CounterMode.h"

namespace Routing::Multicast::Fib {

class VrfConfig final : public Qor::Entity<VrfConfig, Qor::NamedEntity> {
 public:
   class Notifiee : public Qor::NotifieeOf<VrfConfig> {
    public:
      // The configuration of a VRF was added or removed, or is another entity. A change in that
      // entity notifies the entity's own notifiees alone.
      virtual void onConfig(Qor::Name const&) {}
      virtual void onConfigImmediate() {}
      virtual void onActivityPollingInterval() {}
      virtual void onCounterMode() {}
      virtual void onAllCounter() {}

    protected:
      void onImmediate() override { onConfigImmediate(); }
   };
   using ConfigPtr = Qor::Ptr<Config>;
   using ConfigColl = Qor::Collection<Qor::OrderedMap<Qor::Name, ConfigPtr>, &Notifiee::onConfig,
                                      &Notifiee::onConfigImmediate>;

   explicit VrfConfig(Qor::Name name = "mfibConfig") : Entity(std::move(name)) {}

   // Keyed by the name of the VRF.
   ConfigColl::Map const& config() const { return config_.map(); }
   // Returns null for a VRF without a configuration.
   ConfigPtr config(Qor::Name const& vrfName) const { return config_.value(vrfName); }
   // Makes the VRF's configuration, or returns the present one.
   ConfigPtr newConfig(Qor::Name vrfName) {
      return config_.instantiate(*this, vrfName, [&] { return Qor::make<Config>(vrfName); });
   }
   // Inserts or replaces the configuration of the VRF with its name. A null pointer raises
   // RangeException "null _config parameter to mutator for
   // Routing::Multicast::Fib::VrfConfig::config not allowed"".
   void configIs(ConfigPtr config) {
      if (!config) Qor::throwNullParameter("Routing::Multicast::Fib::VrfConfig", "config");
      config_.is(*this, config->name(), config);
   }
   void configDel(Qor::Name vrfName) { config_.del(*this, vrfName); }
   ConfigColl::Iterator configDel(ConfigColl::Iterator it) { return config_.del(*this, it); }
   void configDelAll() { config_.delAll(*this); }
   void configNotify(Qor::Name vrfName) { config_.notify(*this, vrfName); }

   // The time between two polls of the hardware for the activity of routes: 1 to 255 seconds.
   // Another value raises RangeException "VrfConfig::activityPollingInterval < 1 or > 255 not
   // allowed". The mutator takes 64 bits and checks the range before it narrows the value.
   Qor::U8 activityPollingInterval() const { return activityPollingInterval_; }
   void activityPollingIntervalIs(Qor::U64 seconds) {
      if (seconds < 1 || seconds > std::numeric_limits<Qor::U8>::max()) {
         Qor::throwRange("VrfConfig::activityPollingInterval < 1 or > 255 not allowed");
      }
      attrIs<&Notifiee::onActivityPollingInterval>(activityPollingInterval_,
                                                   static_cast<Qor::U8>(seconds));
   }

   // The unit of the route counters, on all chips.
   CounterMode counterMode() const { return counterMode_; }
   void counterModeIs(CounterMode v) { attrIs<&Notifiee::onCounterMode>(counterMode_, v); }

   // Whether all routes are counted (the wildcard counter), and not only those in the counterRoute
   // of a VRF.
   bool allCounter() const { return allCounter_; }
   void allCounterIs(bool v) { attrIs<&Notifiee::onAllCounter>(allCounter_, v); }

 private:
   ~VrfConfig() override = default;

   ConfigColl config_;
   Qor::U8 activityPollingInterval_ = 60;
   CounterMode counterMode_ = CounterMode::disabled;
   bool allCounter_ = false;
};

}  // namespace Routing::Multicast::Fib
