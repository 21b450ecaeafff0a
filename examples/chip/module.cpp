// The platform of the chip of two arrays, with the hooks of one path and a probe, as a module:
//
//    velmroute run --platform ./libarraychip.so FILE
//    velmroute check --platform ./libarraychip-sync.so:mistake=handle-twice
//
// The build makes one module for each path.
#include <map>
#include <string>

#include "ArrayChip.h"
#ifdef SYNCHRONOUS
#include "SyncHooks.h"
using Hooks = SyncHooks;
#else
#include "AsyncHooks.h"
using Hooks = AsyncHooks;
#endif
#include "platform/Module.h"

namespace {

class ArrayPlatform final : public VelMroute::Platform, private VelMroute::Probe {
 public:
   explicit ArrayPlatform(Mistake mistake) : hooks_(Qor::make<Hooks>(chip_, mistake)) {}

   VelMroute::Abilities abilities() const override {
      VelMroute::Abilities all;
      all.ranges = false;  // an entry matches one group
      all.virtualTime = true;
      all.forks = true;
      return all;
   }
#ifdef SYNCHRONOUS
   Qor::Ptr<VelHelper::MrouteSmHelper> syncHooks() override {
      return hooks_;
   }
#else
   Qor::Ptr<VelHelper::AsyncMrouteHelper> asyncHooks() override {
      return hooks_;
   }
   bool writesPending() const override {
      return hooks_->writesPending();
   }
#endif
   VelMroute::Probe* probe() override {
      return this;
   }

   // The agent may use the eight ports for any of its interfaces.
   bool portIs(Lnet::IntfId intf, Qor::U32 number, Bridging::VlanIdOrNone vlan) override {
      if (number == 0 || number > 8) return false;
      ports_[intf] = {vlan, true};
      return true;
   }

 private:
   struct Port {
      Bridging::VlanIdOrNone vlan;
      bool up;
   };

   ~ArrayPlatform() override = default;

   std::vector<VelMroute::Probe::Port> ports() const override {
      std::vector<VelMroute::Probe::Port> all;
      for (auto const& [intf, port] : ports_)
         all.push_back({intf, port.vlan});
      return all;
   }
   std::vector<Seen> inject(std::span<Packet const> packets) override {
      std::vector<Seen> all;
      for (Packet const& packet : packets) {
         Bridging::VlanIdOrNone const vlan =
               packet.vlan.isNone() ? ports_.at(packet.in).vlan : packet.vlan;
         ArrayChip::Group const out =
               chip_.forward({packet.vrfId.value(), packet.source, packet.group, vlan});
         Seen& seen = all.emplace_back();
         seen.cpu = out.cpu;
         for (MrouteLib::PortVlan const& member : out.members) {
            auto const port = ports_.find(member.intfId());
            if (port == ports_.end() || port->second.up) seen.copies.push_back(member);
         }
      }
      return all;
   }
   void settle() override {
      while (writesPending())
         wait(Qor::activityManager()->nextDeadline() - Qor::now());
   }
   void wait(Qor::Seconds seconds) override {
      Qor::activityManager()->runUntil(Qor::now() + seconds);
   }
   bool linkIs(Lnet::IntfId intf, bool up) override {
      auto const port = ports_.find(intf);
      if (port == ports_.end()) return false;
      port->second.up = up;
      return true;
   }

   ArrayChip chip_;
   std::map<Lnet::IntfId, Port> ports_;
   Qor::Ptr<Hooks> const hooks_;
};

Mistake mistakeOf(VelMroute::PlatformOptions const& options) {
   static std::map<std::string, Mistake> const mistakes = {
         {"none", Mistake::none},
         {"handle-twice", Mistake::handleTwice},
         {"rewrite-ignored", Mistake::rewriteIgnored},
         {"free-ignored", Mistake::freeIgnored},
   };
   Mistake mistake = Mistake::none;
   for (auto const& [word, value] : options.words) {
      auto const found = mistakes.find(value);
      if (word != "mistake" || found == mistakes.end()) {
         throw VelMroute::PlatformOptionError(word + "=" + value +
                                              " is not an option (known: mistake=none, "
                                              "handle-twice, rewrite-ignored, free-ignored)");
      }
      mistake = found->second;
   }
   return mistake;
}

}  // namespace

#ifdef SYNCHRONOUS
constexpr auto path = VelMroute::HookPath::sync;
#else
constexpr auto path = VelMroute::HookPath::async;
#endif

VELMROUTE_MODULE("array chip", path, true, [](VelMroute::PlatformOptions const& options) {
   return Qor::make<ArrayPlatform>(mistakeOf(options));
})
