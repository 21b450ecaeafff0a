#include "agent/live/KeepAlive.h"

#include <algorithm>
#include <utility>

namespace Agent {

using Lnet::IpGenAddr;
using Qor::Seconds;
using Qor::U16;
using Qor::U32;
using Qor::U8;

namespace {

constexpr Seconds tickTime = 2;
constexpr U16 discardPort = 9;
constexpr U8 udp = 17;
// The kernel may count a few packets of a new route before the switch has its entry.
constexpr Qor::U64 countedBefore = 3;

class Frame {
 public:
   void u8(U8 value) { bytes_.push_back(value); }
   void u16(U16 value) {
      u8(static_cast<U8>(value >> 8));
      u8(static_cast<U8>(value));
   }
   void bytes(std::span<U8 const> more) { bytes_.insert(bytes_.end(), more.begin(), more.end()); }
   void address(IpGenAddr const& address) {
      bytes(std::span(address.bytes()).first(address.bitWidth() / 8));
   }
   void put16(std::size_t at, U16 value) {
      bytes_[at] = static_cast<U8>(value >> 8);
      bytes_[at + 1] = static_cast<U8>(value);
   }
   std::size_t size() const { return bytes_.size(); }
   // The Internet checksum (RFC 1071) of the bytes from `at`, and of a sum from before.
   U16 checksum(std::size_t at, U32 sum = 0) const {
      for (std::size_t i = at; i < bytes_.size(); i += 2)
         sum += static_cast<U32>(bytes_[i] << 8 | bytes_[i + 1]);
      while (sum >> 16)
         sum = (sum & 0xffff) + (sum >> 16);
      return static_cast<U16>(~sum);
   }
   std::vector<U8> take() { return std::move(bytes_); }

 private:
   std::vector<U8> bytes_;
};

void ethernet(Frame& frame, IpGenAddr const& group) {
   auto const& g = group.bytes();
   if (group.isV6()) {
      for (U8 const byte : {U8{0x33}, U8{0x33}, g[12], g[13], g[14], g[15]})
         frame.u8(byte);
   } else {
      for (U8 const byte : {U8{1}, U8{0}, U8{0x5e}, static_cast<U8>(g[1] & 0x7f), g[2], g[3]})
         frame.u8(byte);
   }
   for (U8 const byte : {2, 0, 0, 0, 0, 1})  // a locally administered source
      frame.u8(byte);
   frame.u16(group.isV6() ? 0x86dd : 0x0800);
}

}  // namespace

std::vector<U8> keepAliveFrame(IpGenAddr const& source, IpGenAddr const& group) {
   constexpr U16 udpLength = 8;
   Frame frame;
   ethernet(frame, group);
   std::size_t const ip = frame.size();
   if (group.isV6()) {
      frame.u16(0x6000);
      frame.u16(0);
      frame.u16(udpLength);
      frame.u8(udp);
      frame.u8(1);  // hop limit
      frame.address(source);
      frame.address(group);
   } else {
      frame.u16(0x4500);
      frame.u16(20 + udpLength);
      frame.u16(0);
      frame.u16(0);
      frame.u8(1);  // TTL
      frame.u8(udp);
      frame.u16(0);
      frame.address(source);
      frame.address(group);
      frame.put16(ip + 10, frame.checksum(ip));
   }
   std::size_t const header = frame.size();
   frame.u16(discardPort);
   frame.u16(discardPort);
   frame.u16(udpLength);
   frame.u16(0);  // IPv4: no checksum
   if (group.isV6()) {
      // The pseudo-header: both addresses, which stand before the header, the length, the protocol.
      U32 sum = udpLength + udp;
      Frame addresses;
      addresses.address(source);
      addresses.address(group);
      sum += static_cast<U16>(~addresses.checksum(0));
      U16 const checksum = frame.checksum(header, sum);
      frame.put16(header + 6, checksum == 0 ? 0xffff : checksum);
   }
   return frame.take();
}

// ---- Visits. ----

KeepAlive::KeepAlive(Seconds expiry, Calls calls) : expiry_(expiry), calls_(std::move(calls)) {
   reactor_.notifierIs(clock_);
   clock_->timeMinIs(Qor::now() + tickTime);
}

std::optional<std::string> KeepAlive::fault(Key const& key) const {
   auto const found = visited_.find(key);
   if (found == visited_.end() || found->second.missed <= countedBefore) return std::nullopt;
   return "the kernel counts " + std::to_string(found->second.missed) +
          " packets, and the switch none";
}

void KeepAlive::tick() {
   clock_->timeMinIs(Qor::now() + tickTime);
   std::size_t const routes = calls_.count();
   if (routes == 0) {
      due_ = 0;
      return;
   }
   due_ += static_cast<double>(routes) * tickTime / (expiry_ / 3);
   for (std::size_t visits = 0; due_ >= 1 && visits < routes; ++visits) {
      due_ -= 1;
      auto key = calls_.next(last_);
      if (!key) key = calls_.next(std::nullopt);
      last_ = key;
      if (!key) return;
      visit(*key);
   }
   due_ = std::min(due_, 1.0);
}

void KeepAlive::visit(Key const& key) {
   Visited& visited = visited_[key];
   Seconds const accessed = calls_.lastAccessed(key);
   bool const forwarded = accessed > visited.accessed;
   visited.accessed = accessed;
   if (forwarded) {
      if (calls_.send(key, keepAliveFrame(key.source, key.group))) {
         ++visited.sent;
         ++numbers_.sent;
      } else {
         ++numbers_.unsent;
      }
   }
   calls_.ask(key, [this, forwarded](Key const& asked, Kernel::RouteAnswer answer,
                                     Kernel::Route const& route) {
      compare(asked, answer, route, forwarded);
   });
}

void KeepAlive::compare(Key const& key, Kernel::RouteAnswer answer, Kernel::Route const& route,
                        bool forwarded) {
   auto const found = visited_.find(key);
   if (found == visited_.end() || answer != Kernel::RouteAnswer::present) return;
   Visited& visited = found->second;
   Qor::U64 const before = std::exchange(visited.kernelPackets, route.packets);
   Qor::U64 const sent = std::exchange(visited.sent, 0);
   if (!std::exchange(visited.counted, true) || route.packets < before) return;
   Qor::U64 const counted = route.packets - before;
   visited.missed = forwarded || counted <= sent ? 0 : counted - sent;
}

}  // namespace Agent
