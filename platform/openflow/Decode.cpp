#include <algorithm>
#include <bit>
#include <iterator>

#include "platform/openflow/Message.h"

namespace OpenFlow {

namespace {

// The prefix of an address field; null if the mask is no prefix.
Lnet::IpGenPrefix prefixOf(Reader& value, bool v4, bool masked) {
   std::size_t const size = v4 ? 4 : 16;
   Lnet::IpGenAddr::Bytes bytes{};
   Bytes const taken = value.take(size);
   std::copy(taken.begin(), taken.end(), bytes.begin());
   unsigned length = static_cast<unsigned>(size) * 8;
   if (masked) {
      length = 0;
      bool ended = false;
      for (U8 const byte : value.take(size)) {
         auto const ones = static_cast<unsigned>(std::countl_one(byte));
         if (ended ? byte != 0 : static_cast<U8>(byte << ones) != 0) return {};
         length += ones;
         ended = ended || ones < 8;
      }
   }
   auto const address = v4 ? Lnet::IpGenAddr::v4(static_cast<U32>(bytes[0]) << 24 |
                                                 static_cast<U32>(bytes[1]) << 16 |
                                                 static_cast<U32>(bytes[2]) << 8 | bytes[3])
                           : Lnet::IpGenAddr::v6(bytes);
   return {address.masked(length), length};
}

// The value of a field of the given size, if it has no mask.
template <class T>
bool plain(Reader& value, bool masked, std::optional<T>& field) {
   if (masked || value.left() != sizeof(T)) return false;
   field = static_cast<T>(value.number(sizeof(T)));
   return true;
}

bool readField(Match& match, unsigned field, bool masked, Reader value) {
   auto const address = [&](bool v4, Lnet::IpGenPrefix& prefix) {
      if (value.left() != (v4 ? 4u : 16u) * (masked ? 2 : 1)) return false;
      prefix = prefixOf(value, v4, masked);
      return !prefix.isNull();
   };
   switch (static_cast<OxmField>(field)) {
      case OxmField::inPort:
         return plain(value, masked, match.inPort);
      case OxmField::metadata:
         if (value.left() != (masked ? 16u : 8u)) return false;
         match.metadata = Masked{value.u64()};
         if (masked) match.metadata->mask = value.u64();
         return true;
      case OxmField::ethType:
         return plain(value, masked, match.ethType);
      case OxmField::vlan:
         return plain(value, masked, match.vlan);
      case OxmField::protocol:
         return plain(value, masked, match.protocol);
      case OxmField::icmp6Type:
         return plain(value, masked, match.icmp6Type);
      case OxmField::source4:
         return address(true, match.source);
      case OxmField::destination4:
         return address(true, match.destination);
      case OxmField::source6:
         return address(false, match.source);
      case OxmField::destination6:
         return address(false, match.destination);
      default:
         return false;
   }
}

// Reads a match with its padding.
Match matchOf(Reader& in) {
   Match match;
   U16 const type = in.u16();
   std::size_t const length = in.u16();
   Reader fields = in.rest(length, 4);
   in.skip(std::min<std::size_t>((8 - length % 8) % 8, in.left()));
   if (type != 1) match.other = true;
   while (type == 1 && fields.left() > 0) {
      U16 const oxmClass = fields.u16();
      U8 const field = fields.u8();
      Reader value(fields.take(fields.u8()));
      if (oxmClass != oxmBasic || !readField(match, field >> 1, field & 1, value)) {
         match.other = true;
      }
   }
   return match;
}

Action actionOf(U16 type, Reader in) {
   using Kind = Action::Kind;
   switch (static_cast<ActionType>(type)) {
      case ActionType::output:
         return {Kind::output, in.u32()};
      case ActionType::group:
         return {Kind::group, in.u32()};
      case ActionType::pushVlan:
         return {Kind::pushVlan, in.u16()};
      case ActionType::popVlan:
         return {Kind::popVlan};
      case ActionType::decTtl:
         return {Kind::decTtl};
      case ActionType::setField: {
         U32 const header = in.u32();
         Reader value(in.take(header & 0xff));
         auto const is = [&](OxmField field, std::size_t size) {
            return header ==
                   (U32{oxmBasic} << 16 | static_cast<U32>(field) << 9 | static_cast<U32>(size));
         };
         if (is(OxmField::vlan, 2)) return {Kind::setVlan, value.u16()};
         if (is(OxmField::ethSource, 6)) return {Kind::setSource, value.number(6)};
         if (header == nxmInPort && value.u16() == 0) return {Kind::clearInPort};
         return {Kind::other};
      }
      default:
         return {Kind::other};
   }
}

Actions actionsOf(Reader in) {
   Actions actions;
   while (in.left() > 0) {
      U16 const type = in.u16();
      actions.push_back(actionOf(type, in.rest(in.u16(), 4)));
   }
   return actions;
}

bool hasOther(Actions const& actions) {
   return std::any_of(actions.begin(), actions.end(),
                      [](Action const& action) { return action.kind == Action::Kind::other; });
}

void readInstructions(Reader in, Flow& flow) {
   while (in.left() > 0) {
      U16 const type = in.u16();
      Reader rest = in.rest(in.u16(), 4);
      switch (static_cast<InstructionType>(type)) {
         case InstructionType::applyActions:
            rest.skip(4);
            flow.actions = actionsOf(rest);
            if (hasOther(flow.actions)) flow.other = true;
            break;
         case InstructionType::writeMetadata:
            rest.skip(4);
            flow.metadata = Masked{rest.u64()};
            flow.metadata->mask = rest.u64();
            break;
         case InstructionType::gotoTable:
            flow.next = rest.u8();
            break;
         default:
            flow.other = true;
      }
   }
}

// Calls read(field, value) for each field of the basic statistics, and reads the padding.
template <class Read>
void readStats(Reader& in, Read const& read) {
   in.skip(2);
   std::size_t const length = in.u16();
   Reader fields = in.rest(length, 4);
   in.skip(std::min<std::size_t>((8 - length % 8) % 8, in.left()));
   while (fields.left() > 0) {
      U16 const oxsClass = fields.u16();
      U8 const field = fields.u8();
      Reader value(fields.take(fields.u8()));
      if (oxsClass == oxsBasic) read(static_cast<OxsField>(field >> 1), value);
   }
}

PortDesc portOf(Reader in) {
   PortDesc port;
   port.number = in.u32();
   in.skip(2 + 2 + 6 + 2);  // length, padding, address
   Bytes const name = in.take(16);
   port.name.assign(name.begin(), std::find(name.begin(), name.end(), 0));
   port.up = (in.u32() & 1) == 0;   // of the configuration
   port.up &= (in.u32() & 1) == 0;  // of the state
   return port;
}

// Calls read(record) for each record of a reply; `at` is the place of its length.
template <class Read>
void readRecords(Bytes body, std::size_t at, Read const& read) {
   Reader in(body);
   while (in.left() > 0) {
      Reader ahead = in;
      ahead.skip(at);
      std::size_t const length = ahead.u16();
      if (length < at + 2) throw Malformed("a length is shorter than its own field");
      read(Reader(in.take(length)));
   }
}

struct ErrorName {
   U16 type, code;
   char const* name;
};
constexpr ErrorName errorNames[] = {
      {0, 0, "INCOMPATIBLE"},   {1, 1, "BAD_TYPE"},
      {1, 2, "BAD_MULTIPART"},  {1, 5, "EPERM"},
      {1, 10, "IS_SLAVE"},      {2, 4, "BAD_OUT_PORT"},
      {2, 9, "BAD_OUT_GROUP"},  {4, 6, "BAD_FIELD"},
      {4, 7, "BAD_VALUE"},      {4, 9, "BAD_PREREQ"},
      {5, 0, "UNKNOWN"},        {5, 1, "TABLE_FULL"},
      {5, 2, "BAD_TABLE_ID"},   {5, 3, "OVERLAP"},
      {5, 4, "EPERM"},          {6, 0, "GROUP_EXISTS"},
      {6, 1, "INVALID_GROUP"},  {6, 3, "OUT_OF_GROUPS"},
      {6, 4, "OUT_OF_BUCKETS"}, {6, 5, "CHAINING_UNSUPPORTED"},
      {6, 7, "LOOP"},           {6, 8, "UNKNOWN_GROUP"},
      {6, 9, "CHAINED_GROUP"},  {6, 10, "BAD_TYPE"},
      {6, 12, "BAD_BUCKET"},    {6, 14, "EPERM"},
      {11, 0, "STALE"},
};

}  // namespace

std::optional<Header> headerOf(Bytes bytes) {
   if (bytes.size() < headerSize) return std::nullopt;
   Reader in(bytes);
   Header header;
   header.version = in.u8();
   header.type = static_cast<MessageType>(in.u8());
   header.length = in.u16();
   header.xid = in.u32();
   if (header.length < headerSize) throw Malformed("a message is shorter than its header");
   return header;
}

bool helloFits(U8 version, Bytes body) {
   Reader in(body);
   while (in.left() > 0) {
      U16 const type = in.u16();
      std::size_t const length = in.u16();
      Reader element = in.rest(length, 4);
      in.skip(std::min<std::size_t>((8 - length % 8) % 8, in.left()));
      if (type == helloVersions) return (element.u32() >> protocolVersion & 1) != 0;
   }
   return version >= protocolVersion;
}

Error errorOf(Bytes body) {
   Reader in(body);
   U16 const type = in.u16();
   return {type, in.u16()};
}

std::string textOf(Error error) {
   std::string text =
         "OpenFlow error " + std::to_string(error.type) + '/' + std::to_string(error.code);
   for (ErrorName const& known : errorNames) {
      if (known.type == error.type && known.code == error.code) return text + ' ' + known.name;
   }
   return text;
}

U8 tablesOf(Bytes body) {
   Reader in(body);
   in.skip(8 + 4);  // datapath id, buffers
   return in.u8();
}

RoleState roleReplyOf(Bytes body) {
   Reader in(body);
   auto const role = static_cast<Role>(in.u32());
   in.skip(4);
   return {role, in.u64()};
}

Role roleStatusOf(Bytes body) {
   return static_cast<Role>(Reader(body).u32());
}

std::pair<PortReason, PortDesc> portStatusOf(Bytes body) {
   Reader in(body);
   auto const reason = static_cast<PortReason>(in.u8());
   in.skip(7);
   return {reason, portOf(in)};
}

MultipartReply multipartReplyOf(Bytes body) {
   Reader in(body);
   MultipartReply reply;
   reply.type = static_cast<Multipart>(in.u16());
   reply.more = (in.u16() & 1) != 0;
   in.skip(4);
   reply.body = in.take(in.left());
   return reply;
}

void flowsOf(Bytes body, std::vector<Flow>& flows) {
   readRecords(body, 0, [&](Reader in) {
      Flow flow;
      in.skip(4);
      flow.table = in.u8();
      in.skip(1);
      flow.priority = in.u16();
      in.skip(8);  // timeouts, flags, importance
      flow.cookie = in.u64();
      flow.match = matchOf(in);
      readStats(in, [&](OxsField field, Reader& value) {
         if (field == OxsField::packets) flow.packets = value.u64();
         if (field == OxsField::bytes) flow.bytes = value.u64();
      });
      readInstructions(in, flow);
      flows.push_back(std::move(flow));
   });
}

void groupsOf(Bytes body, std::vector<GroupDesc>& groups) {
   readRecords(body, 0, [&](Reader in) {
      GroupDesc group;
      in.skip(2);
      U8 const type = in.u8();
      group.type = type == 0 || type == 2 ? static_cast<GroupType>(type) : GroupType::other;
      in.skip(1);
      group.id = in.u32();
      std::size_t const length = in.u16();
      in.skip(6);
      readRecords(in.take(length), 0, [&](Reader bucket) {
         bucket.skip(2);
         std::size_t const actions = bucket.u16();
         bucket.skip(4);
         group.buckets.push_back(actionsOf(Reader(bucket.take(actions))));
         if (hasOther(group.buckets.back())) group.other = true;
      });
      if (group.type == GroupType::other) group.other = true;
      groups.push_back(std::move(group));
   });
}

void portsOf(Bytes body, std::vector<PortDesc>& ports) {
   readRecords(body, 4, [&](Reader in) { ports.push_back(portOf(in)); });
}

Aggregate aggregateOf(Bytes body) {
   Reader in(body);
   Aggregate aggregate;
   readStats(in, [&](OxsField field, Reader& value) {
      if (field == OxsField::packets) aggregate.packets = value.u64();
      if (field == OxsField::flows) aggregate.flows = value.u32();
   });
   return aggregate;
}

}  // namespace OpenFlow
