// Numbered packets. Each group has its own sequence of numbers, so that the receiver counts lost
// and duplicated packets for each group by itself. Both commands run until standard input ends, and
// then print one JSON object.
// usage: traffic send INTERFACE PORT GROUP COUNT STEP RATE
//        traffic receive INTERFACE[,INTERFACE...] PORT GROUP COUNT STEP SOURCE PAUSE
// The flow has COUNT groups, from GROUP in steps of STEP. RATE counts the packets a second of all
// groups together. The receiver joins from any source if SOURCE is "-", pauses PAUSE microseconds
// between two joins, and prints "ready" once it has joined.
#include <arpa/inet.h>
#include <net/if.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <sstream>
#include <string>
#include <vector>

namespace {

constexpr uint32_t kMagic = 0x6c616231;
constexpr size_t kBatch = 64;
constexpr int kHops = 16;
constexpr int kBuffer = 64 << 20;
constexpr double kPause = 0.002;  // shorter times without a packet are not listed

struct Packet {
   uint32_t magic;
   uint32_t group;
   uint32_t number;
   std::array<char, 52> padding;
};

struct Flow {
   std::vector<unsigned> interfaces;
   uint16_t port;
   std::vector<sockaddr_storage> groups;
   int family;
   socklen_t addressSize;
   int level;
};

void require(bool ok, char const* what) {
   if (!ok) {
      std::perror(what);
      std::exit(1);
   }
}

double now() {
   timespec time{};
   clock_gettime(CLOCK_REALTIME, &time);
   return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_nsec) * 1e-9;
}

void optionIs(int socket, int level, int name, int value, char const* what) {
   require(setsockopt(socket, level, name, &value, sizeof value) == 0, what);
}

// The address `text` with `offset` added to its last 32 bits.
sockaddr_storage address(std::string const& text, uint16_t port, uint32_t offset) {
   sockaddr_storage storage{};
   if (text.find(':') != std::string::npos) {
      auto& a = reinterpret_cast<sockaddr_in6&>(storage);
      a.sin6_family = AF_INET6;
      a.sin6_port = htons(port);
      require(inet_pton(AF_INET6, text.c_str(), &a.sin6_addr) == 1, "address");
      uint32_t low = 0;
      std::memcpy(&low, &a.sin6_addr.s6_addr[12], sizeof low);
      low = htonl(ntohl(low) + offset);
      std::memcpy(&a.sin6_addr.s6_addr[12], &low, sizeof low);
   } else {
      auto& a = reinterpret_cast<sockaddr_in&>(storage);
      a.sin_family = AF_INET;
      a.sin_port = htons(port);
      require(inet_pton(AF_INET, text.c_str(), &a.sin_addr) == 1, "address");
      a.sin_addr.s_addr = htonl(ntohl(a.sin_addr.s_addr) + offset);
   }
   return storage;
}

Flow readFlow(char** argument) {
   Flow flow{};
   std::istringstream names(argument[0]);
   for (std::string name; std::getline(names, name, ',');) {
      flow.interfaces.push_back(if_nametoindex(name.c_str()));
      require(flow.interfaces.back() != 0, "interface");
   }
   flow.port = static_cast<uint16_t>(std::atoi(argument[1]));
   auto const count = static_cast<uint32_t>(std::atoi(argument[3]));
   auto const step = static_cast<uint32_t>(std::atoi(argument[4]));
   for (uint32_t i = 0; i < count; ++i) {
      flow.groups.push_back(address(argument[2], flow.port, i * step));
   }
   flow.family = flow.groups.at(0).ss_family;
   flow.addressSize = flow.family == AF_INET6 ? sizeof(sockaddr_in6) : sizeof(sockaddr_in);
   flow.level = flow.family == AF_INET6 ? IPPROTO_IPV6 : IPPROTO_IP;
   return flow;
}

int openSocket(Flow const& flow) {
   int const fd = socket(flow.family, SOCK_DGRAM, 0);
   require(fd >= 0, "socket");
   return fd;
}

template <typename T>
void printArray(char const* name, std::vector<T> const& values) {
   std::printf("\"%s\": [", name);
   for (size_t i = 0; i < values.size(); ++i) {
      std::printf("%s%.16g", i == 0 ? "" : ",", static_cast<double>(values[i]));
   }
   std::printf("]");
}

int send(Flow const& flow, double rate) {
   int const fd = openSocket(flow);
   int const index = static_cast<int>(flow.interfaces.at(0));
   if (flow.family == AF_INET6) {
      optionIs(fd, flow.level, IPV6_MULTICAST_IF, index, "IPV6_MULTICAST_IF");
      optionIs(fd, flow.level, IPV6_MULTICAST_HOPS, kHops, "IPV6_MULTICAST_HOPS");
   } else {
      ip_mreqn request{};
      request.imr_ifindex = index;
      require(setsockopt(fd, flow.level, IP_MULTICAST_IF, &request, sizeof request) == 0,
              "IP_MULTICAST_IF");
      optionIs(fd, flow.level, IP_MULTICAST_TTL, kHops, "IP_MULTICAST_TTL");
   }
   optionIs(fd, SOL_SOCKET, SO_SNDBUFFORCE, kBuffer, "SO_SNDBUFFORCE");

   std::vector<uint32_t> sent(flow.groups.size());
   std::array<Packet, kBatch> packets{};
   std::array<iovec, kBatch> parts{};
   std::array<mmsghdr, kBatch> messages{};
   uint64_t done = 0;
   double const start = now();
   for (;;) {
      auto const due = static_cast<uint64_t>((now() - start) * rate) + 1;
      while (done < due) {
         // The packets of one batch go to different groups: sending one takes its number.
         auto const size = static_cast<unsigned>(
               std::min({due - done, uint64_t{kBatch}, uint64_t{flow.groups.size()}}));
         for (unsigned i = 0; i < size; ++i) {
            auto const group = static_cast<uint32_t>((done + i) % flow.groups.size());
            packets[i] = {kMagic, group, sent[group], {}};
            parts[i] = {&packets[i], sizeof(Packet)};
            messages[i].msg_hdr = {};
            messages[i].msg_hdr.msg_name = const_cast<sockaddr_storage*>(&flow.groups[group]);
            messages[i].msg_hdr.msg_namelen = flow.addressSize;
            messages[i].msg_hdr.msg_iov = &parts[i];
            messages[i].msg_hdr.msg_iovlen = 1;
         }
         int const accepted = sendmmsg(fd, messages.data(), size, 0);
         for (int i = 0; i < accepted; ++i) {
            ++sent[packets[static_cast<size_t>(i)].group];
         }
         done += accepted > 0 ? static_cast<uint64_t>(accepted) : 1;  // a refused packet is skipped
      }
      // Batches at most 0.5 ms apart keep the outage exact and the load low.
      double const pause = std::max(start + static_cast<double>(done) / rate - now(), 0.0005);
      timespec const wait{static_cast<time_t>(pause),
                          static_cast<long>((pause - std::floor(pause)) * 1e9)};
      pollfd input{STDIN_FILENO, POLLIN, 0};
      if (ppoll(&input, 1, &wait, nullptr) > 0) {
         break;
      }
   }
   std::printf("{\"ended\": %.16g, ", now());
   printArray("sent", sent);
   std::printf("}\n");
   return 0;
}

// Arrivals of one flow, for each group.
class Arrivals {
 public:
   explicit Arrivals(size_t groups)
         : seen_(groups),
           first_(groups, -1),
           latency_(groups, -1),
           lastAt_(groups),
           distinct_(groups),
           outage_(groups),
           began_(groups) {}

   void join(size_t group, double time) { lastAt_[group] = time; }

   void arrive(Packet const& packet, double time) {
      size_t const group = packet.group;
      ++received_;
      if (anyAt_ > 0 && time - anyAt_ > kPause) {
         pauses_.push_back(anyAt_);
         pauses_.push_back(time);
      }
      anyAt_ = time;
      bool const heard = first_[group] >= 0;
      // The first packets of a route that moves into hardware may overtake each other.
      first_[group] = heard ? std::min(first_[group], int64_t{packet.number}) : packet.number;
      if (!heard) {
         latency_[group] = (time - lastAt_[group]) * 1e3;
      } else {
         if (double const outage = (time - lastAt_[group]) * 1e3; outage > outage_[group]) {
            outage_[group] = outage;
            began_[group] = lastAt_[group];
         }
      }
      lastAt_[group] = time;
      auto& seen = seen_[group];
      if (seen.size() <= packet.number) {
         seen.resize(packet.number + 1000);
      }
      if (seen[packet.number]) {
         ++duplicated_;
      } else {
         seen[packet.number] = true;
         ++distinct_[group];
      }
   }

   size_t groups() const { return seen_.size(); }

   void print(unsigned overflow) const {
      std::printf("{\"received\": %lu, \"duplicated\": %lu, \"overflow\": %u, ", received_,
                  duplicated_, overflow);
      printArray("first", first_);
      std::printf(", ");
      printArray("latency", latency_);
      std::printf(", ");
      printArray("distinct", distinct_);
      std::printf(", ");
      printArray("outage", outage_);
      std::printf(", ");
      printArray("began", began_);
      std::printf(", ");
      printArray("last", lastAt_);
      std::printf(", ");
      printArray("pauses", pauses_);
      std::printf("}\n");
   }

 private:
   std::vector<std::vector<bool>> seen_;
   std::vector<int64_t> first_;
   std::vector<double> latency_;
   std::vector<double> lastAt_;  // of the last packet, or of the join
   std::vector<uint32_t> distinct_;
   std::vector<double> outage_;
   std::vector<double> began_;
   std::vector<double> pauses_;  // begins and ends of the times without a packet of any group
   uint64_t received_ = 0;
   uint64_t duplicated_ = 0;
   double anyAt_ = 0;
};

// The memberships are held by sockets of their own. The socket that receives has none, since the
// kernel would search them for each packet.
void join(Flow const& flow, std::string const& source, useconds_t pause, Arrivals& arrivals) {
   for (unsigned const interface : flow.interfaces) {
      int const fd = openSocket(flow);
      for (size_t i = 0; i < flow.groups.size(); ++i) {
         arrivals.join(i, now());
         int result = 0;
         if (source != "-") {
            group_source_req request{interface, flow.groups[i], address(source, 0, 0)};
            result = setsockopt(fd, flow.level, MCAST_JOIN_SOURCE_GROUP, &request, sizeof request);
         } else {
            group_req request{interface, flow.groups[i]};
            result = setsockopt(fd, flow.level, MCAST_JOIN_GROUP, &request, sizeof request);
         }
         require(result == 0, "join");
         usleep(pause);
      }
   }
}

int receive(Flow const& flow, std::string const& source, useconds_t pause) {
   int const fd = openSocket(flow);
   optionIs(fd, SOL_SOCKET, SO_RCVBUFFORCE, kBuffer, "SO_RCVBUFFORCE");
   optionIs(fd, SOL_SOCKET, SO_TIMESTAMPNS, 1, "SO_TIMESTAMPNS");
   optionIs(fd, SOL_SOCKET, SO_RXQ_OVFL, 1, "SO_RXQ_OVFL");
   auto const any = address(flow.family == AF_INET6 ? "::" : "0.0.0.0", flow.port, 0);
   require(bind(fd, reinterpret_cast<sockaddr const*>(&any), flow.addressSize) == 0, "bind");
   Arrivals arrivals(flow.groups.size());
   join(flow, source, pause, arrivals);
   std::printf("ready\n");
   std::fflush(stdout);

   std::array<Packet, kBatch> packets{};
   std::array<std::array<char, 128>, kBatch> controls{};
   std::array<iovec, kBatch> parts{};
   std::array<mmsghdr, kBatch> messages{};
   unsigned overflow = 0;
   for (bool open = true; open;) {
      std::array<pollfd, 2> polled{{{STDIN_FILENO, POLLIN, 0}, {fd, POLLIN, 0}}};
      if (poll(polled.data(), polled.size(), -1) < 0 && errno == EINTR) {
         continue;
      }
      open = polled[0].revents == 0;
      int count = 0;
      do {
         for (size_t i = 0; i < kBatch; ++i) {
            parts[i] = {&packets[i], sizeof(Packet)};
            messages[i].msg_hdr = {};
            messages[i].msg_hdr.msg_iov = &parts[i];
            messages[i].msg_hdr.msg_iovlen = 1;
            messages[i].msg_hdr.msg_control = controls[i].data();
            messages[i].msg_hdr.msg_controllen = controls[i].size();
         }
         count = recvmmsg(fd, messages.data(), kBatch, MSG_DONTWAIT, nullptr);
         for (int i = 0; i < count; ++i) {
            auto& message = messages[static_cast<size_t>(i)];
            auto const& packet = packets[static_cast<size_t>(i)];
            double time = now();
            for (cmsghdr* c = CMSG_FIRSTHDR(&message.msg_hdr); c;
                 c = CMSG_NXTHDR(&message.msg_hdr, c)) {
               if (c->cmsg_type == SCM_TIMESTAMPNS) {
                  timespec stamp{};
                  std::memcpy(&stamp, CMSG_DATA(c), sizeof stamp);
                  time = static_cast<double>(stamp.tv_sec) +
                         static_cast<double>(stamp.tv_nsec) * 1e-9;
               } else if (c->cmsg_type == SO_RXQ_OVFL) {
                  std::memcpy(&overflow, CMSG_DATA(c), sizeof overflow);
               }
            }
            if (message.msg_len == sizeof(Packet) && packet.magic == kMagic &&
                packet.group < arrivals.groups()) {
               arrivals.arrive(packet, time);
            }
         }
      } while (count == static_cast<int>(kBatch));
   }
   arrivals.print(overflow);
   return 0;
}

}  // namespace

int main(int count, char** arguments) {
   std::string const command = count > 1 ? arguments[1] : "";
   if (command == "send" && count == 8) {
      return send(readFlow(arguments + 2), std::atof(arguments[7]));
   }
   if (command == "receive" && count == 9) {
      return receive(readFlow(arguments + 2), arguments[7],
                     static_cast<useconds_t>(std::atoi(arguments[8])));
   }
   std::fputs("usage: traffic send|receive ...\n", stderr);
   return 2;
}
