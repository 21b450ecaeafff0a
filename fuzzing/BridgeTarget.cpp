// The target `bridge`: the messages of a software bridge, as the platform decodes them.
//
// An input is a stream of messages with their headers, as the bridge sends it.
#include "fuzzing/Target.h"
#include "platform/openflow/Pipeline.h"
#include "platform/openflow/Tables.h"

namespace Fuzz {

namespace {

using namespace OpenFlow;

Bytes bytesOf(std::string_view text) {
   return {reinterpret_cast<Qor::U8 const*>(text.data()), text.size()};
}

// The message of a flow or group, as the record of an answer.
std::string flowRecord(Flow const& flow) {
   std::string const message = flowMod(FlowCommand::add, flow);
   std::size_t const match = (static_cast<Qor::U8>(message[51]) + 7u) / 8 * 8;
   Writer out;
   out.u32(0);
   out.u8(flow.table);
   out.u8(0);
   out.u16(flow.priority);
   out.zeros(8);
   out.u64(flow.cookie);
   out.raw(bytesOf(message).subspan(48, match));
   out.u16(0);
   out.u16(16);
   out.u32(0x80020808);
   out.u64(flow.packets);
   out.raw(bytesOf(message).subspan(48 + match));
   out.put16(0, out.size());
   return out.take();
}

// A flow that was understood is written as the same flow.
void checkFlow(Flow const& flow) {
   keyOf(flow);
   deletionOf(flow);
   if (auto const route = Tables::routeOf(flow)) {
      require(!route->key.isNull() && Tables::groupOf(flow), "a route has no key or no group");
   }
   if (flow.other || flow.match.other) return;
   std::vector<Flow> again;
   flowsOf(bytesOf(flowRecord(flow)), again);
   require(again.size() == 1 && again[0].sameAs(flow) && again[0].packets == flow.packets,
           "a flow is written and read as a different flow");
}

void readAnswer(Bytes body, Tables::Content& content, std::vector<PortDesc>& ports) {
   MultipartReply const reply = multipartReplyOf(body);
   switch (reply.type) {
      case Multipart::flowDesc:
         flowsOf(reply.body, content.flows);
         break;
      case Multipart::groupDesc:
         groupsOf(reply.body, content.groups);
         break;
      case Multipart::portDesc:
         portsOf(reply.body, ports);
         break;
      case Multipart::aggregateStats:
         aggregateOf(reply.body);
         break;
      default:
         break;
   }
}

class Sender final : public Tables::Sender {
 public:
   U32 send(std::string message) override {
      require(headerOf(bytesOf(message))->length == message.size(), "a message has a wrong length");
      return ++xid_;
   }
   U32 nextXid() override { return ++xid_; }
   std::size_t unsent() const override { return 0; }
   bool sends() const override { return true; }
   void flush() override {}
   void differs() override {}

 private:
   U32 xid_ = 0;
};

// Tables are adopted, read again, and swept.
void checkTables(Tables::Content const& content, std::vector<PortDesc> const& ports) {
   for (Flow const& flow : content.flows)
      checkFlow(flow);
   Options options;
   options.lastGroup = options.firstGroup + 1023;
   options.routes = 64;
   auto const tables = Qor::make<Tables>(options);
   Sender sender;
   tables->senderIs(&sender);
   tables->pipeline().interfaceIs({Lnet::IntfId("rtr0"), "of-p0", "of-c0"});
   tables->pipeline().interfaceIs({Lnet::IntfId("rtr1"), "of-p1", "of-c1"});
   tables->pipeline().portsAre(ports);
   tables->resync(content);
   require(tables->found().size() <= content.flows.size(), "more entries are found than flows");
   tables->interrupted();
   tables->resync(content);
   tables->sweep();
   require(tables->found().empty(), "an entry remains after the sweep");
   tables->queue().turnEnds();
   tables->interrupted();
   tables->senderIs(nullptr);
}

void runBridge(std::string_view input) {
   Tables::Content content;
   std::vector<PortDesc> ports;
   try {
      while (auto const header = headerOf(bytesOf(input))) {
         if (input.size() < header->length) break;
         Bytes const body = bytesOf(input).subspan(headerSize, header->length - headerSize);
         switch (header->type) {
            case MessageType::hello:
               helloFits(header->version, body);
               break;
            case MessageType::error:
               require(textOf(errorOf(body)).starts_with("OpenFlow error "),
                       "an error has no text");
               break;
            case MessageType::featuresReply:
               tablesOf(body);
               break;
            case MessageType::roleReply:
               roleReplyOf(body);
               break;
            case MessageType::roleStatus:
               roleStatusOf(body);
               break;
            case MessageType::portStatus:
               portStatusOf(body);
               break;
            case MessageType::multipartReply:
               readAnswer(body, content, ports);
               break;
            default:
               break;
         }
         input.remove_prefix(header->length);
      }
   } catch (Malformed const& error) {
      require(*error.what() != 0, "the error has no text");
   }
   checkTables(content, ports);
}

std::string messageOf(MessageType type, std::string const& body) {
   Writer out;
   out.u8(protocolVersion);
   out.u8(static_cast<Qor::U8>(type));
   out.u16(static_cast<Qor::U16>(headerSize + body.size()));
   out.u32(1);
   return out.take() + body;
}

std::string answerOf(Multipart type, std::string const& body) {
   Writer out;
   out.u16(static_cast<Qor::U16>(type));
   out.zeros(6);
   return messageOf(MessageType::multipartReply, out.take() + body);
}

std::vector<std::string> bridgeSeeds() {
   using Kind = Action::Kind;
   Flow classifier;
   classifier.match.inPort = 3;
   classifier.match.vlan = vlanPresent | 7;
   classifier.actions = {{Kind::popVlan}, {Kind::clearInPort}};
   classifier.metadata = Masked{1007};
   classifier.next = routeTable;
   Flow mld;
   mld.match.ethType = ethTypeV6;
   mld.match.protocol = 58;
   mld.match.icmp6Type = 143;
   mld.match.destination = *Lnet::IpGenPrefix::parse("ff02::/16");
   mld.actions = {{Kind::output, 4}};
   Flow route;
   route.table = routeTable;
   route.priority = 100 + (32 * 129 + 32) * 2 + 1;
   route.cookie = cookieOf(CookieKind::route, 5);
   route.match.metadata = Masked{1007};
   route.match.ethType = ethTypeV4;
   route.match.source = *Lnet::IpGenPrefix::parse("10.0.0.2");
   route.match.destination = *Lnet::IpGenPrefix::parse("239.0.0.1");
   route.actions = {{Kind::decTtl}, {Kind::group, 1008}};
   route.packets = 77;

   Writer group;
   group.u16(16 + 16);
   group.u16(0);
   group.u32(1008);
   group.u16(16);
   group.zeros(6);
   group.u16(16);
   group.u16(8);
   group.u32(0);
   group.u16(22);
   group.u16(8);
   group.u32(1000);
   Writer port;
   port.u32(3);
   port.u16(40);
   port.zeros(10);
   port.raw(bytesOf(std::string("p0") + std::string(14, '\0')));
   port.u64(1);
   std::string const portBytes = port.take();
   Writer sum;
   sum.u16(0);
   sum.u16(4 + 12 + 8);
   sum.u32(0x80020808);
   sum.u64(77);
   sum.u32(0x80020604);
   sum.u32(1);
   return {helloMessage() + messageOf(MessageType::roleReply, std::string(16, '\1')),
           messageOf(MessageType::error, std::string("\0\6\0\3", 4)),
           messageOf(MessageType::featuresReply, std::string(24, '\2')),
           messageOf(MessageType::roleStatus, std::string("\0\0\0\3", 4)),
           messageOf(MessageType::portStatus, std::string(8, '\0') + portBytes),
           answerOf(Multipart::portDesc, portBytes + portBytes),
           answerOf(Multipart::groupDesc, group.take()),
           answerOf(Multipart::aggregateStats, sum.take()),
           answerOf(Multipart::flowDesc,
                    flowRecord(classifier) + flowRecord(mld) + flowRecord(route))};
}

}  // namespace

Target bridgeTarget() {
   auto const raw = [](char const* text, std::size_t size) { return std::string(text, size); };
   return {runBridge,
           bridgeSeeds,
           {raw("\0", 1), raw("\0\0", 2), raw("\0\4", 2), raw("\0\10", 2), raw("\0\20", 2),
            raw("\0\30", 2), raw("\377\377", 2), raw("\200\0", 2), raw("\200\2", 2),
            raw("\0\26\0\10", 4), raw("\0\31\0\20", 4), raw("\0\4\0\10\0\0\0\0", 8),
            raw("\0\1\0\4\0\0\0\0", 8), raw("\377\377\377\377", 4), raw("\6\23", 2),
            raw("\0\1\0\0\0\0\0\0", 8), raw("\0\7\0\0\0\0\0\0", 8)}};
}

}  // namespace Fuzz
