// Parses the messages of rtnetlink: bytes in, values out. The parser knows no socket, keeps no
// state, and reads nothing beyond the given bytes.
#pragma once

#include <span>
#include <variant>

#include "kernel/Link.h"
#include "kernel/Route.h"
#include "kernel/Rules.h"

namespace Kernel {

struct RouteMessage {
   RouteKey key;
   Route route;
   bool deleted = false;
};

struct LinkMessage {
   Link link;  // without the facts about addresses
   bool deleted = false;
};

struct AddressMessage {
   Qor::U32 link = 0;
   Lnet::IpGenAddr address;
   Qor::U8 length = 0;
   bool deleted = false;
};

struct RuleMessage {
   Lnet::IpFamily family = Lnet::IpFamily::none;
   Rule rule;
   bool deleted = false;
};

// A daemon has begun or ended to route multicast packets, on all or on one interface.
struct ForwardingMessage {
   Lnet::IpFamily family = Lnet::IpFamily::none;
};

// The end of a dump, or the refusal of a request.
struct EndMessage {
   int error = 0;  // a positive number of <cerrno>, or 0
};

struct Message {
   Qor::U32 sequence = 0;     // of the request that the message answers
   Qor::U32 port = 0;         // of the socket that sent the request
   bool interrupted = false;  // the dump that the message belongs to is inconsistent
   // Without a content: a message of no interest.
   std::variant<std::monostate, RouteMessage, LinkMessage, AddressMessage, RuleMessage,
                ForwardingMessage, EndMessage>
         content;
};

// Reads the messages of one datagram. The bytes must be aligned to four bytes.
class MessageReader {
 public:
   enum class Result {
      message,
      malformed,  // one message was skipped, or the rest of the datagram
      end,
   };

   explicit MessageReader(std::span<std::byte const> datagram) : rest_(datagram) {}
   // After Result::message, `message` is the next one. Otherwise its content is unspecified.
   Result next(Message& message);

 private:
   std::span<std::byte const> rest_;
};

}  // namespace Kernel
