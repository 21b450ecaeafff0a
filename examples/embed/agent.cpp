// The shortest honest agent: one chip, routes through the programmer, and a loop of its own.
//
//    usage: agent async|sync
//
// Each line of standard input is a wish:
//    join SOURCE GROUP INPUT OUTPUT...     want the route, or change its outputs
//    leave SOURCE GROUP                    want it no longer
// The agent prints each change of a route's state. After the end of the input it waits until all
// routes are placed, and leaves the chip forwarding. The chip is the imaginary one of ../chip; an agent of yours has hooks of its own.
#include <poll.h>
#include <unistd.h>

#include <algorithm>
#include <iostream>
#include <memory>
#include <sstream>

#include "../chip/AsyncHooks.h"
#include "../chip/SyncHooks.h"
#include "VelMroute/Programmer.h"

namespace {

// The rest of the agent owns these. The interfaces have vlans, and the VRF a number.
struct Surroundings {
   L3::VrfName const vrf{"default"};
   Qor::Ptr<IntfVlanId::Table> const vlans = Qor::make<IntfVlanId::Table>();
   Qor::Ptr<Interface::EthIntfStatusDir> const links = Qor::make<Interface::EthIntfStatusDir>();
   Qor::Ptr<Routing::Multicast::Fib::Hardware::Status> const published =
         Qor::make<Routing::Multicast::Fib::Hardware::Status>();
};

std::unique_ptr<VelMroute::RouteTable> asyncTable(Surroundings const& s, ArrayChip& chip) {
   auto const vrfs = Qor::make<Routing::Hardware::RouteStatus>();
   vrfs->newVrfStatus(s.vrf, Vel::VrfId());
   return VelMroute::asyncRouteTable({.hooks = Qor::make<AsyncHooks>(chip, Mistake::none),
                                      .vrfs = vrfs,
                                      .vlans = s.vlans,
                                      .published = s.published,
                                      .links = s.links});
}

std::unique_ptr<VelMroute::RouteTable> syncTable(Surroundings const& s, ArrayChip& chip) {
   auto const l3Status = Qor::make<Vel::L3Status>();
   l3Status->vrfNameToVrfIdIs(s.vrf.name(), Vel::VrfId());
   auto const enabled = Qor::make<Routing::Multicast::Fib::VrfEnabledStatus>();
   enabled->vrfIs(s.vrf);
   s.published->hwRoutingIs(true);
   return VelMroute::syncRouteTable(
         {.routing = Qor::make<VelMroute::SyncRouting>(
                VelMroute::SyncRouting::Inputs{.hooks = Qor::make<SyncHooks>(chip, Mistake::none),
                                               .l3Status = l3Status,
                                               .published = s.published,
                                               .enabled = enabled}),
          .vlans = s.vlans,
          .links = s.links});
}

class Agent {
 public:
   explicit Agent(bool sync)
         : programmer_({.table = sync ? syncTable(around_, chip_) : asyncTable(around_, chip_)}) {
      programmer_.onChanges([this] { changed_ = true; });
   }

   // The loop: wait for input or for the next deadline of the library, and let the library work.
   void run() {
      while (!ended_ || !programmer_.settled()) {
         pollfd input{ended_ ? -1 : STDIN_FILENO, POLLIN, 0};
         double const wait = std::min(programmer_.nextDeadline() - Qor::now(), 1.0);
         poll(&input, 1, std::max(0, static_cast<int>(wait * 1000 + 1)));
         if (input.revents != 0) read();
         turn();
      }
      programmer_.end(VelMroute::Programmer::End::leave);
      while (!programmer_.ended())
         turn();
   }

 private:
   void turn() {
      programmer_.runDue();
      if (!std::exchange(changed_, false)) return;
      auto const print = [this](L3::VrfName const& vrf, VelMroute::RouteKey const& key) {
         auto const route = programmer_.route(vrf, key);
         if (!route) {
            std::cout << key << " is gone" << std::endl;
         } else {
            std::cout << key << " is " << route->state
                      << (route->reason.empty() ? "" : ": " + route->reason) << std::endl;
         }
      };
      while (programmer_.changes(100, print)) {
      }
   }

   void read() {
      char part[4096];
      ssize_t const size = ::read(STDIN_FILENO, part, sizeof part);
      ended_ = size <= 0;
      input_.append(part, std::max<ssize_t>(size, 0));
      for (std::size_t end; (end = input_.find('\n')) != std::string::npos;) {
         std::string const line = input_.substr(0, end);
         input_.erase(0, end + 1);
         try {
            obey(line);
         } catch (Qor::RangeException const& error) {
            std::cerr << error.message() << '\n';  // the library names what it does not take
         }
      }
   }

   void obey(std::string const& line) {
      std::istringstream words(line);
      std::string verb, source, group, name;
      words >> verb >> source >> group;
      auto const from = Lnet::IpGenAddr::parse(source), to = Lnet::IpGenAddr::parse(group);
      if (!from || !to) {
         std::cerr << "not understood: " << line << '\n';
         return;
      }
      auto const key = VelMroute::RouteKey::fromAddresses(*from, *to);
      if (verb == "leave") {
         programmer_.routeDel(around_.vrf, key);
         return;
      }
      VelMroute::WantedRoute wanted;
      words >> name;
      wanted.iif = interface(name);
      std::vector<Lnet::IntfId> outputs;
      while (words >> name)
         outputs.push_back(interface(name));
      wanted.outputs = pool_.get(std::move(outputs));
      programmer_.routeIs(around_.vrf, key, wanted);
   }

   // An interface gets a vlan when it is named for the first time.
   Lnet::IntfId interface(std::string const& name) {
      Lnet::IntfId const intf(name);
      if (!around_.vlans->intfIdToVlanId().find(intf)) {
         around_.vlans->intfIdToVlanIdIs(intf, Bridging::VlanId(++vlans_));
         around_.links->newIntfStatus(intf)->operStatusIs(Interface::IntfOperStatus::up);
      }
      return intf;
   }

   ArrayChip chip_;
   Surroundings around_;
   VelMroute::OutputsPool pool_;
   VelMroute::Programmer programmer_;
   unsigned vlans_ = 0;
   bool changed_ = false;
   std::string input_;  // up to the end of the last line that is complete
   bool ended_ = false;
};

}  // namespace

int main(int argc, char** argv) {
   std::string const path = argc == 2 ? argv[1] : "";
   if (path != "async" && path != "sync") {
      std::cerr << "usage: agent async|sync\n";
      return 2;
   }
   Agent(path == "sync").run();
}
