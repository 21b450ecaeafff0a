// Registers the types of this namespace with the type registry.
#include "Qor/Describe.h"
#include "Routing/Multicast/Fib/CounterStatus.h"
#include "Routing/Multicast/Fib/CounterStatusCtl.h"
#include "Routing/Multicast/Fib/VrfConfig.h"
#include "Routing/Multicast/Fib/VrfEnabledStatus.h"

namespace Routing::Multicast::Fib {

namespace {

constexpr char typeModule[] = "Routing::Multicast::Fib";

Qor::Type describeConfig() {
   Qor::Describe<Config> type(typeModule);
   type.collection<Config::CounterRouteColl, Config, &Config::counterRoute,
                   &Config::counterRouteDel, &Config::counterRouteDelAll,
                   &Config::counterRouteNotify, &Config::counterRouteIs>();
   type.collection<Config::ClearCounterRouteColl, Config, &Config::clearCounterRoute,
                   &Config::clearCounterRouteDel, &Config::clearCounterRouteDelAll,
                   &Config::clearCounterRouteNotify, &Config::clearCounterRouteIs,
                   &Config::clearCounterRouteInc>();
   return type;
}
Qor::TypeRegistration const configRegistered(describeConfig);

Qor::Type describeVrfConfig() {
   Qor::Describe<VrfConfig> type(typeModule);
   type.collection<VrfConfig::ConfigColl, VrfConfig, &VrfConfig::config, &VrfConfig::configDel,
                   &VrfConfig::configDelAll, &VrfConfig::configNotify>();
   type.operation<&VrfConfig::newConfig>("vrfName");
   type.attribute<&VrfConfig::activityPollingInterval, &VrfConfig::activityPollingIntervalIs,
                  &VrfConfig::Notifiee::onActivityPollingInterval>();
   type.attribute<&VrfConfig::counterMode, &VrfConfig::counterModeIs,
                  &VrfConfig::Notifiee::onCounterMode>();
   type.attribute<&VrfConfig::allCounter, &VrfConfig::allCounterIs,
                  &VrfConfig::Notifiee::onAllCounter>();
   return type;
}
Qor::TypeRegistration const vrfConfigRegistered(describeVrfConfig);

Qor::Type describeVrfEnabledStatus() {
   Qor::Describe<VrfEnabledStatus> type(typeModule);
   type.collection<VrfEnabledStatus::VrfColl, VrfEnabledStatus, &VrfEnabledStatus::vrf,
                   &VrfEnabledStatus::vrfDel, &VrfEnabledStatus::vrfDelAll,
                   &VrfEnabledStatus::vrfNotify, &VrfEnabledStatus::vrfIs>();
   return type;
}
Qor::TypeRegistration const vrfEnabledStatusRegistered(describeVrfEnabledStatus);

Qor::Type describeCounterStatus() {
   Qor::Describe<CounterStatus> type(typeModule);
   type.collection<CounterStatus::CounterColl, CounterStatus, &CounterStatus::counter,
                   &CounterStatus::counterDel, &CounterStatus::counterDelAll,
                   &CounterStatus::counterNotify>();
   return type;
}
Qor::TypeRegistration const counterStatusRegistered(describeCounterStatus);

Qor::Type describeCounterStatusCtl() {
   Qor::Describe<CounterStatusCtl> type(typeModule);
   type.attribute<&CounterStatusCtl::limit, &CounterStatusCtl::limitIs,
                  &CounterStatusCtl::Notifiee::onLimit>();
   type.attribute<&CounterStatusCtl::currSize, nullptr, &CounterStatusCtl::Notifiee::onCurrSize>();
   type.attribute<&CounterStatusCtl::currActive, nullptr,
                  &CounterStatusCtl::Notifiee::onCurrActive>();
   type.attribute<&CounterStatusCtl::pollingRefCnt, &CounterStatusCtl::pollingRefCntIs,
                  &CounterStatusCtl::Notifiee::onPollingRefCnt>();
   return type;
}
Qor::TypeRegistration const counterStatusCtlRegistered(describeCounterStatusCtl);

}  // namespace

}  // namespace Routing::Multicast::Fib
