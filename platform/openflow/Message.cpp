#include "platform/openflow/Message.h"

#include "Qor/Assert.h"

namespace OpenFlow {

namespace {

// A message of at most 65,535 bytes; the groups of routes stay far below.
class Message {
 public:
   explicit Message(MessageType type) {
      out.u8(protocolVersion);
      out.u8(static_cast<U8>(type));
      out.u16(0);
      out.u32(0);
   }
   std::string end() {
      QOR_ASSERT(out.size() <= 0xffff);
      out.put16(2, out.size());
      return out.take();
   }

   Writer out;
};

void putField(Writer& out, OxmField field, bool masked, std::size_t length) {
   out.u16(oxmBasic);
   out.u8(static_cast<U8>(static_cast<unsigned>(field) << 1 | (masked ? 1 : 0)));
   out.u8(static_cast<U8>(length));
}

void putAddress(Writer& out, OxmField v4, OxmField v6, Lnet::IpGenPrefix const& prefix) {
   if (prefix.isNull() || prefix.isAny()) return;
   bool const isV4 = prefix.address().isV4();
   std::size_t const size = isV4 ? 4 : 16;
   putField(out, isV4 ? v4 : v6, !prefix.isHost(), prefix.isHost() ? size : 2 * size);
   out.raw({prefix.address().bytes().data(), size});
   if (prefix.isHost()) return;
   for (unsigned i = 0; i < size; ++i) {
      unsigned const bits = prefix.length() > i * 8 ? prefix.length() - i * 8 : 0;
      out.u8(bits >= 8 ? 0xff : static_cast<U8>(0xff00 >> bits));
   }
}

// The order of the fields is that of their prerequisites.
void putMatch(Writer& out, Match const& match) {
   std::size_t const start = out.size();
   out.u16(1);
   out.u16(0);
   if (match.inPort) {
      putField(out, OxmField::inPort, false, 4);
      out.u32(*match.inPort);
   }
   if (match.metadata) {
      bool const masked = match.metadata->mask != ~U64{0};
      putField(out, OxmField::metadata, masked, masked ? 16 : 8);
      out.u64(match.metadata->value);
      if (masked) out.u64(match.metadata->mask);
   }
   if (match.ethType) {
      putField(out, OxmField::ethType, false, 2);
      out.u16(*match.ethType);
   }
   if (match.vlan) {
      putField(out, OxmField::vlan, false, 2);
      out.u16(*match.vlan);
   }
   if (match.protocol) {
      putField(out, OxmField::protocol, false, 1);
      out.u8(*match.protocol);
   }
   putAddress(out, OxmField::source4, OxmField::source6, match.source);
   putAddress(out, OxmField::destination4, OxmField::destination6, match.destination);
   if (match.icmp6Type) {
      putField(out, OxmField::icmp6Type, false, 1);
      out.u8(*match.icmp6Type);
   }
   out.put16(start + 2, out.size() - start);
   out.padTo8(start);
}

void putAction(Writer& out, Action const& action) {
   std::size_t const start = out.size();
   auto const begin = [&](ActionType type) {
      out.u16(static_cast<U16>(type));
      out.u16(0);
   };
   switch (action.kind) {
      case Action::Kind::output:
         begin(ActionType::output);
         out.u32(static_cast<U32>(action.value));
         out.u16(0);
         break;
      case Action::Kind::group:
         begin(ActionType::group);
         out.u32(static_cast<U32>(action.value));
         break;
      case Action::Kind::pushVlan:
         begin(ActionType::pushVlan);
         out.u16(static_cast<U16>(action.value));
         break;
      case Action::Kind::popVlan:
         begin(ActionType::popVlan);
         break;
      case Action::Kind::decTtl:
         begin(ActionType::decTtl);
         break;
      case Action::Kind::setVlan:
         begin(ActionType::setField);
         putField(out, OxmField::vlan, false, 2);
         out.u16(static_cast<U16>(action.value));
         break;
      case Action::Kind::setSource:
         begin(ActionType::setField);
         putField(out, OxmField::ethSource, false, 6);
         out.u16(static_cast<U16>(action.value >> 32));
         out.u32(static_cast<U32>(action.value));
         break;
      case Action::Kind::clearInPort:
         begin(ActionType::setField);
         out.u32(nxmInPort);
         out.u16(0);
         break;
      case Action::Kind::other:
         QOR_ASSERT(action.kind != Action::Kind::other);
   }
   out.padTo8(start);
   out.put16(start + 2, out.size() - start);
}

void putMultipart(Writer& out, Multipart type) {
   out.u16(static_cast<U16>(type));
   out.zeros(6);
}

std::string flowRequest(Multipart type, U64 cookie, U64 cookieMask) {
   Message message(MessageType::multipartRequest);
   putMultipart(message.out, type);
   message.out.u8(allTables);
   message.out.zeros(3);
   message.out.u32(anyPort);
   message.out.u32(anyGroup);
   message.out.zeros(4);
   message.out.u64(cookie);
   message.out.u64(cookieMask);
   putMatch(message.out, {});
   return message.end();
}

}  // namespace

void xidIs(std::string& message, U32 xid) {
   for (unsigned i = 0; i < 4; ++i)
      message[4 + i] = static_cast<char>(xid >> (24 - 8 * i));
}

std::string helloMessage() {
   Message message(MessageType::hello);
   message.out.u16(helloVersions);
   message.out.u16(8);
   message.out.u32(1u << protocolVersion);
   return message.end();
}

std::string plainMessage(MessageType type) {
   return Message(type).end();
}

std::string echoReply(Bytes body) {
   Message message(MessageType::echoReply);
   message.out.raw(body);
   return message.end();
}

std::string setConfig(U16 missSendLength) {
   Message message(MessageType::setConfig);
   message.out.u16(0);
   message.out.u16(missSendLength);
   return message.end();
}

std::string roleRequest(Role role, U64 generation) {
   Message message(MessageType::roleRequest);
   message.out.u32(static_cast<U32>(role));
   message.out.zeros(4);
   message.out.u64(generation);
   return message.end();
}

std::string flowMod(FlowCommand command, Flow const& flow, U64 cookieMask) {
   bool const adds = command == FlowCommand::add;
   Message message(MessageType::flowMod);
   Writer& out = message.out;
   out.u64(flow.cookie);
   out.u64(cookieMask);
   out.u8(flow.table);
   out.u8(static_cast<U8>(command));
   out.zeros(4);  // no timeouts
   out.u16(flow.priority);
   out.u32(noBuffer);
   out.u32(anyPort);
   out.u32(anyGroup);
   out.zeros(4);  // no flags
   putMatch(out, flow.match);
   if (adds && !flow.actions.empty()) {
      std::size_t const start = out.size();
      out.u16(static_cast<U16>(InstructionType::applyActions));
      out.u16(0);
      out.zeros(4);
      for (Action const& action : flow.actions)
         putAction(out, action);
      out.put16(start + 2, out.size() - start);
   }
   if (adds && flow.metadata) {
      out.u16(static_cast<U16>(InstructionType::writeMetadata));
      out.u16(24);
      out.zeros(4);
      out.u64(flow.metadata->value);
      out.u64(flow.metadata->mask);
   }
   if (adds && flow.next) {
      out.u16(static_cast<U16>(InstructionType::gotoTable));
      out.u16(8);
      out.u8(*flow.next);
      out.zeros(3);
   }
   return message.end();
}

std::string groupMod(GroupCommand command, GroupDesc const& group) {
   Message message(MessageType::groupMod);
   Writer& out = message.out;
   out.u16(static_cast<U16>(command));
   out.u8(static_cast<U8>(group.type));
   out.zeros(1);
   out.u32(group.id);
   std::size_t const length = out.size();
   out.zeros(4);
   out.u32(allBuckets);
   std::size_t const start = out.size();
   U32 number = 0;
   for (Actions const& actions : group.buckets) {
      std::size_t const bucket = out.size();
      out.zeros(4);
      out.u32(number++);
      for (Action const& action : actions)
         putAction(out, action);
      out.put16(bucket, out.size() - bucket);
      out.put16(bucket + 2, out.size() - bucket - 8);
   }
   out.put16(length, out.size() - start);
   return message.end();
}

std::string packetOut(Bytes packet, U32 port) {
   Message message(MessageType::packetOut);
   Writer& out = message.out;
   out.u32(noBuffer);
   out.u16(16);  // the length of the actions
   out.zeros(2);
   Match match;
   match.inPort = controllerPort;
   putMatch(out, match);
   putAction(out, {Action::Kind::output, port});
   out.raw(packet);
   return message.end();
}

std::string flowDescRequest(U64 cookie, U64 cookieMask) {
   return flowRequest(Multipart::flowDesc, cookie, cookieMask);
}

std::string aggregateRequest(U64 cookie, U64 cookieMask) {
   return flowRequest(Multipart::aggregateStats, cookie, cookieMask);
}

std::string groupDescRequest() {
   Message message(MessageType::multipartRequest);
   putMultipart(message.out, Multipart::groupDesc);
   message.out.u32(allGroups);
   message.out.zeros(4);
   return message.end();
}

std::string portDescRequest() {
   Message message(MessageType::multipartRequest);
   putMultipart(message.out, Multipart::portDesc);
   message.out.u32(anyPort);
   message.out.zeros(4);
   return message.end();
}

}  // namespace OpenFlow
