#include "kit/internal/Life.h"

#include <algorithm>
#include <chrono>
#include <thread>
#include <utility>

#include "Qor/Clock.h"
#include "Qor/Exception.h"
#include "Routing/Multicast/Fib/VrfConfig.h"

namespace VelMroute::KitParts {

using Lnet::IntfId;
using Lnet::IpGenAddr;
using MrouteLib::PortVlan;
using MrouteLib::PortVlanSet;
using MrouteLib::RouteHandle;
using Qor::Seconds;
using Qor::U32;
using TimeBase = Qor::ActivityManager::TimeBase;

namespace {

constexpr unsigned mostPorts = 8;
constexpr Seconds step = 0.002;  // of the waiting for writes

IpGenAddr address(bool v6, U32 number) {
   if (!v6) return IpGenAddr::v4(number);
   IpGenAddr::Bytes bytes{};
   bytes[0] = number >> 28 == 0xE ? 0xFF : 0x20;
   bytes[1] = number >> 28 == 0xE ? 0x0E : 0x01;
   for (unsigned i = 0; i < 4; ++i)
      bytes[12 + i] = static_cast<std::uint8_t>(number >> (24 - 8 * i));
   return IpGenAddr::v6(bytes);
}

// The address of a prefix with its last bit set, which a longer prefix does not match by chance.
IpGenAddr inside(Lnet::IpGenPrefix const& prefix) {
   if (prefix.isHost()) return prefix.address();
   IpGenAddr::Bytes bytes = prefix.address().bytes();
   bytes[prefix.address().isV6() ? 15 : 3] |= 1;
   if (prefix.address().isV6()) return IpGenAddr::v6(bytes);
   U32 number = 0;
   for (unsigned i = 0; i < 4; ++i)
      number = number << 8 | bytes[i];
   return IpGenAddr::v4(number);
}

Qor::Ptr<Platform> newPlatform(PlatformMaker const& make) {
   try {
      return make();
   } catch (...) {
      throw MakerFailed{std::current_exception()};
   }
}

Qor::Ptr<Qor::ActivityManager> newTime(bool isVirtual) {
   if (!isVirtual) return nullptr;
   auto time = Qor::make<Qor::ActivityManager>(TimeBase::virtualTime);
   Qor::activityManagerIs(time);
   return time;
}

}  // namespace

std::ostream& operator<<(std::ostream& os, Wish const& wish) {
   os << wish.key << (wish.otherVrf ? " of the other VRF" : "");
   if (wish.noRpf) {
      os << " from all inputs";
   } else {
      os << " in " << wish.in;
   }
   os << (wish.bridge ? " bridged" : " to");
   for (unsigned const out : wish.outs)
      os << ' ' << out;
   if (wish.cpu) os << " cpu";
   if (!wish.backup.empty()) os << ", backup";
   for (unsigned const out : wish.backup)
      os << ' ' << out;
   return os << (wish.fastdrop ? ", fastdrop" : "");
}

RouteKey sourceGroup(unsigned n, bool v6, unsigned source) {
   return RouteKey::fromAddresses(address(v6, 0x0A000000 + source), address(v6, 0xEF090000 + n));
}

RouteKey starGroup(unsigned n) {
   return RouteKey::fromAddresses(IpGenAddr::v4(0), IpGenAddr::v4(0xEF090000 + n));
}

// ---- The wiring of a life. ----

Life::Life(KitOptions const& options, PlatformMaker const& make, Qor::Ptr<HookFaults> faults)
      : Life(options, make, std::move(faults), Options{}) {}

Life::Life(KitOptions const& options, PlatformMaker const& make, Qor::Ptr<HookFaults> faults,
           Options how)
      : options_(options),
        time_(how.platform ? Qor::Ptr<Qor::ActivityManager>() : newTime(options.virtualTime)),
        platform_(how.platform ? std::move(how.platform) : newPlatform(make)),
        model_(platform_ && platform_->asyncHooks() ? HookPath::async : HookPath::sync) {
   if (!platform_ || (!platform_->asyncHooks() && !platform_->syncHooks())) {
      Qor::throwRange("VelMroute::Kit::make platform without hooks not allowed");
   }
   Probe* const probe = platform_->probe();
   if (probe) ports_ = probe->ports();
   std::erase_if(ports_, [](Probe::Port const& port) { return port.vlan.isNone(); });
   if (ports_.empty()) {
      for (unsigned n = 1; n <= mostPorts; ++n) {
         Probe::Port const port{IntfId("kit" + std::to_string(n)),
                                Bridging::VlanIdOrNone(Qor::U64{n})};
         if (platform_->portIs(port.intf, n, port.vlan)) ports_.push_back(port);
      }
   }
   if (ports_.size() > mostPorts) ports_.resize(mostPorts);
   if (ports_.size() < 4) Qor::throwRange("VelMroute::Kit::make less than four ports not allowed");
   for (Probe::Port const& port : ports_)
      vlans_->intfIdToVlanIdIs(port.intf, Bridging::VlanId(Qor::U64{port.vlan.value()}));
   config_->activityPollingIntervalIs(how.polling);

   HookChecks::Options const checks{.faults = std::move(faults),
                                    .startsEmpty = how.startsEmpty,
                                    .refusals = how.refusals,
                                    .patience = options.patience,
                                    .status = published_};
   std::unique_ptr<RouteTable> table;
   if (auto const hooks = platform_->asyncHooks()) {
      auto const vrfs = Qor::make<Routing::Hardware::RouteStatus>();
      vrfs->newVrfStatus(vrf_, options.vrfId);
      if (options.otherVrfId) vrfs->newVrfStatus(otherVrf_, *options.otherVrfId);
      auto made = std::make_unique<AsyncRouteTable>(AsyncRouteTable::Inputs{.hooks = hooks,
                                                                            .checks = checks,
                                                                            .vrfs = vrfs,
                                                                            .vlans = vlans_,
                                                                            .config = config_,
                                                                            .published = published_,
                                                                            .links = links_});
      async_ = made->gate();
      table = std::move(made);
   } else {
      auto const l3Status = Qor::make<Vel::L3Status>();
      l3Status->vrfNameToVrfIdIs(vrf_.name(), options.vrfId);
      if (options.otherVrfId) l3Status->vrfNameToVrfIdIs(otherVrf_.name(), *options.otherVrfId);
      auto made = std::make_unique<SyncRouteTable>(SyncRouteTable::Inputs{
            .routing = Qor::make<SyncRouting>(SyncRouting::Inputs{.hooks = platform_->syncHooks(),
                                                                  .checks = checks,
                                                                  .l3Status = l3Status,
                                                                  .config = config_,
                                                                  .published = published_}),
            .vlans = vlans_,
            .links = links_});
      sync_ = made->gate();
      table = std::move(made);
   }
   bool const checked = async_ ? async_->checks() != nullptr : sync_->checks() != nullptr;
   if (!checked) Qor::throwRange("VelMroute::Kit VEL_NOOP_AGENT in the environment not allowed");
   Programmer::Options settings;
   settings.retry = 0.5;
   programmer_ = std::make_unique<Programmer>(
         Programmer::Inputs{.table = std::move(table),
                            .vlans = vlans_,
                            .published = published_,
                            .restart = how.restarts ? platform_->restart() : nullptr},
         settings);
}

Life::~Life() = default;

Shadow const& Life::shadow() const {
   static Shadow const none;
   if (async_) return async_->checks()->shadow();
   Shadow const* const shadow = sync_->checks()->shadow(1);
   return shadow ? *shadow : none;
}

void Life::shut() {
   table().gateIs(false);
}

Qor::Ptr<Platform> Life::crash(U32 applied) {
   auto next = platform_->crash(applied);
   programmer_ = nullptr;
   return next;
}

RouteTable::Spec Life::spec(RouteKey const& key, unsigned in) const {
   RouteTable::Spec spec;
   spec.vrf = vrf_;
   spec.vrfId = options_.vrfId;
   spec.key = key;
   spec.vlan = port(in).vlan;
   spec.type = Routing::Multicast::Fib::routeKeyType(key);
   return spec;
}

PortVlanSet Life::set(std::vector<unsigned> const& outs, bool cpu) const {
   PortVlanSet set(Routing::Multicast::Fib::RouteKeyType::routed);
   for (unsigned const out : outs)
      set.newPortVlan(PortVlan(port(out).intf, port(out).vlan), true);
   set.toCpuIs(cpu);
   return set;
}

MrouteLib::OifSetPtr Life::setNumber(unsigned n) const {
   unsigned const mask = 1 + n % ((1u << outs()) - 1);
   std::vector<unsigned> members;
   for (unsigned out = 0; out < outs(); ++out) {
      if (mask >> out & 1) members.push_back(inputs + out);
   }
   return Qor::make<MrouteLib::OifSet>(nullptr, set(members));
}

// ---- Wishes and time. ----

void Life::want(Wish wish) {
   ForwardingModel::Route const asked = route(wish);
   WantedRoute wanted;
   if (!wish.noRpf) wanted.iif = asked.iif;
   wanted.noRpf = wish.noRpf;
   wanted.bridge = wish.bridge;
   if (!wish.bridge) wanted.outputs = pool_.get(asked.oifs, asked.cpu, asked.backup);
   wanted.fastdrop = asked.fastdrop;
   programmer_->routeIs(asked.vrf, asked.key, std::move(wanted));
   model_.wantedIs(asked);
   WishId const id(wish.otherVrf, wish.key);
   known_.insert(id);
   wishes_[id] = std::move(wish);
}

ForwardingModel::Route Life::route(Wish const& wish) const {
   auto const ports = [this](std::vector<unsigned> const& numbers) {
      std::vector<IntfId> list;
      for (unsigned const number : numbers)
         list.push_back(port(number).intf);
      return list;
   };
   return {.vrf = vrf(wish.otherVrf),
           .key = wish.key,
           .iif = port(wish.in).intf,
           .oifs = ports(wish.outs),
           .cpu = wish.cpu,
           .backup = ports(wish.backup),
           .fastdrop = wish.fastdrop ? std::vector{port(1 - wish.in).intf} : std::vector<IntfId>{},
           .noRpf = wish.noRpf,
           .bridge = wish.bridge};
}

void Life::unwant(RouteKey const& key, bool otherVrf) {
   programmer_->routeDel(vrf(otherVrf), key);
   model_.wantedDel({vrf(otherVrf), key});
   wishes_.erase({otherVrf, key});
}

void Life::unwantAll() {
   while (!wishes_.empty())
      unwant(wishes_.begin()->first.second, wishes_.begin()->first.first);
   rest();
}

void Life::link(unsigned in, bool up) {
   using Interface::IntfOperStatus;
   IntfOperStatus const state = up ? IntfOperStatus::up : IntfOperStatus::down;
   links_->newIntfStatus(port(in).intf)->operStatusIs(state);
   if (model_.linkIs(port(in).intf, state)) model_.reroute(port(in).intf, *programmer_);
}

void Life::wait(Seconds seconds) {
   if (options_.interrupted && options_.interrupted()) throw LeftOut{kitInterrupted};
   if (Probe* const probe = platform_->probe()) return probe->wait(seconds);
   auto const loop = Qor::activityManager();
   Seconds const end = Qor::now() + seconds;
   if (options_.virtualTime) return loop->runUntil(end);
   for (;;) {
      loop->runDue();
      Seconds const left = end - Qor::now();
      if (left <= 0) return;
      std::this_thread::sleep_for(std::chrono::duration<double>(std::min(left, step)));
   }
}

void Life::settle() {
   Seconds const end = Qor::now() + 1.2 * options_.patience;
   wait(step);
   while (!programmer_->settled() || platform_->writesPending()) {
      if (Qor::now() > end) {
         // The checks of the gate look at the oldest transaction when a hook is called.
         if (async_) static_cast<void>(async_->mcastIdIsValid(0));
         throw Difference{KitCulprit::platform,
                          text("writes are under way for ", options_.patience, " s")};
      }
      wait(step);
   }
   if (Probe* const probe = platform_->probe()) probe->settle();
}

// ---- Packets. ----

Probe::Packet Life::packet(RouteKey const& key, unsigned in, bool otherVrf) const {
   Probe::Packet packet;
   packet.vrfId = vrfId(otherVrf);
   packet.source = inside(key.source());
   packet.group = inside(key.group());
   bool const v6 = key.group().address().isV6();
   if (key.source().isAny()) packet.source = address(v6, 0x0A000063);
   // The first addresses of the multicast range belong to protocols of the link.
   if (key.group().length() < 8) packet.group = address(v6, 0xE9FC0063);
   packet.in = port(in).intf;
   packet.vlan = port(in).vlan;
   return packet;
}

Probe::Seen Life::send(RouteKey const& key, unsigned in) {
   Probe::Packet const one = packet(key, in);
   return std::move(probe().inject({&one, 1}).front());
}

// ---- The chip against the shadow. ----

void Life::rest(bool all) {
   settle();
   compareChip();
   compareWishes(all);
}

void Life::compareChip() {
   if (platform_->probe()) comparePackets();
   if (platform_->view()) compareTables();
}

void Life::comparePackets() {
   std::vector<Probe::Packet> packets;
   for (auto const& [otherVrf, key] : known_) {
      for (unsigned in = 0; in < inputs; ++in)
         packets.push_back(packet(key, in, otherVrf));
   }
   auto const all = probe().inject(packets);
   if (all.size() != packets.size()) {
      throw Difference{KitCulprit::platform,
                       text("the probe answers ", all.size(), " of ", packets.size(), " packets")};
   }
   ChipComparison const comparison(shadow());
   for (std::size_t i = 0; i < packets.size(); ++i) {
      if (auto how = comparison.ofPacket(packets[i], all[i]))
         throw Difference{KitCulprit::platform, std::move(*how)};
   }
}

void Life::compareTables() {
   View& view = *platform_->view();
   auto const answer = std::make_shared<std::optional<bool>>();
   view.refresh([answer](bool done) { *answer = done; });
   for (Seconds const end = Qor::now() + options_.patience; !*answer;) {
      if (Qor::now() > end) break;
      wait(step);
   }
   if (!answer->value_or(false)) {
      throw Difference{KitCulprit::platform, "the view cannot read the tables"};
   }
   if (auto how = ChipComparison(shadow()).ofTables(view))
      throw Difference{KitCulprit::platform, std::move(*how)};
}

// ---- The shadow against the wishes. ----

void Life::compareWishes(bool all) {
   U32 entries = 0;
   for (auto const& [id, wish] : wishes_)
      checkWish(wish, all, entries);
   U32 const have = shadow().routes() + shadow().boundaries();
   if (have == entries || (programmer_->waiting() > 0 && have > entries)) return;
   throw Difference{KitCulprit::library,
                    text("the calls leave ", have, " entries; the wishes need ", entries)};
}

void Life::checkWish(Wish const& wish, bool all, U32& entries) {
   auto const status = programmer_->route(vrf(wish.otherVrf), wish.key);
   if (!status) throw Difference{KitCulprit::library, text(wish, " is forgotten")};
   if (status->state != RouteState::inHardware) {
      // A hook that refuses without need keeps the route out.
      if (all) {
         throw Difference{KitCulprit::platform,
                          text(wish, " is ", status->state, ": ", status->reason)};
      }
      return;
   }
   RouteTable::Spec wanted = spec(wish.key, wish.in);
   wanted.bridge = wish.bridge;
   if (wish.bridge) wanted.type = Routing::Multicast::Fib::RouteKeyType::bridged;
   if (!table().needs(wanted).entry) {
      if (wish.bridge) return;
      throw Difference{KitCulprit::hook, text("needIngressProgramming returns false for ",
                                              wanted.type, ", so no entry forwards ", wish)};
   }
   expectEntry(wish, wish.in, false, entries);
   if (!wish.fastdrop || programmer_->waiting() > 0) return;
   expectEntry(wish, 1 - wish.in, true, entries);
}

void Life::expectEntry(Wish const& wish, unsigned in, bool drops, U32& entries) {
   auto const vlan = wish.noRpf ? Bridging::VlanIdOrNone() : port(in).vlan;
   auto const wrong = [&](Qor::String const& how) {
      throw Difference{KitCulprit::library,
                       text("wanted: ", wish, "\nby the calls, an entry in ", vlan, ' ', how)};
   };
   Shadow::Entry const* found = nullptr;
   std::optional<U32> handle;
   shadow().forEachEntryOf(vrfId(wish.otherVrf).value(), wish.key,
                           [&](RouteHandle number, Shadow::Entry const& entry) {
                              if (entry.vlan != vlan) return;
                              found = &entry;
                              handle = number.value();
                           });
   if (!found) return wrong("is missing");
   ++entries;
   if (found->boundary || found->bridge) {
      if (!wish.bridge) wrong("bridges");
      return;
   }
   if (wish.bridge) wrong("does not bridge");
   auto const* const to = found->set && !found->drops ? shadow().set(*found->set) : nullptr;
   std::vector<PortVlan> const none;
   auto const& have = to ? to->members : none;
   bool const haveCpu = to && to->toCpu;
   if (drops) {
      if (have.empty() && !haveCpu) return;
   } else {
      RouteId const id{vrf(wish.otherVrf), wish.key};
      auto& known = *model_.find(id);
      auto const held = ForwardingModel::setOf(programmer_->view(id.vrf, id.key));
      auto const same = [&](ForwardingModel::Outputs const& outputs) {
         return haveCpu == outputs.cpu && have == vlansOf(outputs);
      };
      bool const good = std::ranges::any_of(model_.expected(known, held), same);
      ForwardingModel::verified(known, held);
      if (good) return;
   }
   ChipComparison const chip(shadow());
   wrong(text("forwards to ", ChipComparison::members(have, haveCpu), '\n', chip.lastCall(handle)));
}

// The members of a set with these outputs, ascending.
std::vector<PortVlan> Life::vlansOf(ForwardingModel::Outputs const& outputs) const {
   std::vector<PortVlan> members;
   for (IntfId const intf : outputs.ports) {
      auto const port = std::ranges::find(ports_, intf, &Probe::Port::intf);
      members.emplace_back(intf, port->vlan);
   }
   std::ranges::sort(members);
   return members;
}

}  // namespace VelMroute::KitParts
