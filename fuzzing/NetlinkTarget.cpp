// The target `netlink`: the messages of a kernel, as the parser and as a monitor reads them.
//
// An input is one datagram. The monitor receives it in the place of the kernel's answers.
#include <linux/netlink.h>

#include <algorithm>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <set>
#include <utility>

#include "Qor/Clock.h"
#include "fuzzing/Target.h"
#include "kernel/Message.h"
#include "kernel/Monitor.h"

namespace Fuzz {

namespace {

using Kernel::Link;
using Kernel::Route;
using Kernel::RouteKey;
using Qor::U32;

constexpr U32 ownPort = 4711;

void checkRoute(Kernel::RouteMessage const& message) {
   require(!message.key.group.isNull() && message.key.source.family() == message.key.group.family(),
           "the key of a route is not complete");
   std::vector<U32> const& outputs = message.route.outputs;
   require(std::adjacent_find(outputs.begin(), outputs.end(), std::greater_equal<>()) ==
                 outputs.end(),
           "the outputs of a route are not ascending");
}

void checkName(std::string const& name) {
   require(!name.empty() && name.size() < 16, "a link has the name '" + name + "'");
}

void runParser(std::span<std::byte const> bytes) {
   Kernel::MessageReader reader(bytes);
   Kernel::Message message;
   std::size_t messages = 0;
   for (auto result = reader.next(message); result != Kernel::MessageReader::Result::end;
        result = reader.next(message)) {
      require(++messages <= bytes.size() / 16 + 1, "more messages than the bytes have room for");
      if (result != Kernel::MessageReader::Result::message) continue;
      if (auto const* route = std::get_if<Kernel::RouteMessage>(&message.content)) {
         checkRoute(*route);
      } else if (auto const* link = std::get_if<Kernel::LinkMessage>(&message.content)) {
         checkName(link->link.name);
      } else if (auto const* address = std::get_if<Kernel::AddressMessage>(&message.content)) {
         require(!address->address.isNull(), "an address is missing");
      } else if (auto const* end = std::get_if<Kernel::EndMessage>(&message.content)) {
         require(end->error >= 0 && end->error <= 4095, "an error has no number");
      }
   }
}

// Answers each request, up to a bound, with the datagram. The messages in it that carry the number of
// the monitor's socket get the number of the request.
class Answering final : public Kernel::Socket {
 public:
   explicit Answering(std::vector<std::byte> const& bytes) : bytes_(bytes) {}
   int fd() const override { return -1; }
   U32 port() const override { return ownPort; }
   bool readable() const { return due_; }
   Result receive(std::span<std::byte const>& datagram) override {
      if (!std::exchange(due_, false)) return Result::empty;
      datagram = bytes_;
      return Result::message;
   }
   bool send(std::span<std::byte const> request) override {
      due_ = ++requests_ <= mostAnswers;
      nlmsghdr asked{}, answer{};
      std::memcpy(&asked, request.data(), sizeof asked);
      for (std::size_t at = 0; at + sizeof answer <= bytes_.size();) {
         std::memcpy(&answer, bytes_.data() + at, sizeof answer);
         if (answer.nlmsg_pid == ownPort) answer.nlmsg_seq = asked.nlmsg_seq;
         std::memcpy(bytes_.data() + at, &answer, sizeof answer);
         at += std::max<std::size_t>(NLMSG_ALIGN(answer.nlmsg_len), sizeof answer);
      }
      return true;
   }

 private:
   static constexpr unsigned mostAnswers = 20;

   std::vector<std::byte> bytes_;
   bool due_ = false;
   unsigned requests_ = 0;
};

// A deletion must follow the notification that it ends, and the monitor must be in step with them.
class Ledger final : public Kernel::Listener {
 public:
   void linkIs(Link const& link) override {
      checkName(link.name);
      links_.insert(link.index);
   }
   void linkDel(U32 index) override {
      require(links_.erase(index) == 1, "an unknown link is gone");
   }
   void routeIs(RouteKey const& key, Route const&) override { routes_.insert(key); }
   void routeDel(RouteKey const& key) override {
      require(routes_.erase(key) == 1, "an unknown route is gone");
   }
   std::size_t routes() const { return routes_.size(); }

 private:
   std::set<U32> links_;
   std::set<RouteKey> routes_;
};

struct OnVirtualTime {
   OnVirtualTime() { Qor::activityManagerIs(time); }
   ~OnVirtualTime() { Qor::activityManagerIs(nullptr); }

   Qor::Ptr<Qor::ActivityManager> const time =
         Qor::make<Qor::ActivityManager>(Qor::ActivityManager::TimeBase::virtualTime);
};

void runNetlink(std::string_view input) {
   // The copy is aligned, and has no byte behind it that the sanitizers would let through.
   std::vector<std::byte> const copy(
         reinterpret_cast<std::byte const*>(input.data()),
         reinterpret_cast<std::byte const*>(input.data()) + input.size());
   runParser(copy);
   OnVirtualTime const clock;
   Answering socket(copy);
   Ledger ledger;
   Kernel::MonitorOptions options;
   options.ipv4Tables = options.ipv6Tables = {100};
   Kernel::Monitor monitor(options, socket, ledger);
   monitor.ask({100, Lnet::IpGenAddr::v4(0x0a000009), Lnet::IpGenAddr::v4(0xe8010101)},
               [](RouteKey const&, Kernel::Monitor::Answer, Route const&) {});
   while (socket.readable()) {
      monitor.ready();
      clock.time->runUntil(Qor::now() + 0.1);
   }
   clock.time->runUntil(Qor::now() + 10);
   require(monitor.routes() == ledger.routes(), "the monitor and its listener differ");
}

// The recorded messages, each alone, and all together, as notifications and as answers.
std::vector<std::string> netlinkSeeds() {
   std::ifstream file(std::filesystem::path(VELMROUTE_EXAMPLES).parent_path() /
                      "tests/netlink/messages.txt");
   std::vector<std::string> seeds;
   std::string notifications, answers;
   for (std::string line; std::getline(file, line);) {
      if (line.empty() || line[0] == '#' || line[0] == '=') continue;
      std::string bytes;
      for (std::size_t at = 0; at + 1 < line.size(); at += 2)
         bytes += static_cast<char>(std::stoi(line.substr(at, 2), nullptr, 16));
      notifications += bytes;
      seeds.push_back(bytes);
      std::memcpy(bytes.data() + offsetof(nlmsghdr, nlmsg_pid), &ownPort, sizeof ownPort);
      answers += bytes;
   }
   require(!seeds.empty(), "there is no recorded message");
   seeds.push_back(std::move(notifications));
   seeds.push_back(std::move(answers));
   return seeds;
}

}  // namespace

Target netlinkTarget() {
   using namespace std::string_literals;
   return {runNetlink,
           netlinkSeeds,
           {"\x18\0"s, "\x19\0"s, "\x03\0"s, "\x02\0"s, "\x10\0\0\0"s, "\x04\0"s, "\xff\xff"s,
            "\x67\x12\0\0"s, "\1\0\0\0"s, "\x80\x20\x20\0"s, "\x81\x80\x80\0"s, "d\0\0\0"s,
            "\x08\0\x0f\0d\0\0\0"s, "\0\0\0\0\0\0\0\0"s}};
}

}  // namespace Fuzz
