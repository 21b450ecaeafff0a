// The messages of OpenFlow 1.5 that the platform sends and understands: flows, groups, ports, and
// the messages of the connection.
//
// The peer is not trusted. A decoder checks each length before it reads, and throws Malformed for a
// message that contradicts itself. Fields, actions and instructions that the platform does not use
// are no error; the decoded flow or group is marked as `other`.
#pragma once

#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "Lnet/IpGenPrefix.h"
#include "platform/openflow/Wire.h"

namespace OpenFlow {

inline constexpr U8 protocolVersion = 6;  // OpenFlow 1.5
inline constexpr std::size_t headerSize = 8;
inline constexpr U8 tablesNeeded = 2;

enum class MessageType : U8 {
   hello = 0,
   error = 1,
   echoRequest = 2,
   echoReply = 3,
   featuresRequest = 5,
   featuresReply = 6,
   setConfig = 9,
   portStatus = 12,
   packetOut = 13,
   flowMod = 14,
   groupMod = 15,
   multipartRequest = 18,
   multipartReply = 19,
   barrierRequest = 20,
   barrierReply = 21,
   roleRequest = 24,
   roleReply = 25,
   roleStatus = 30,
};

enum class Multipart : U16 { flowDesc = 1, aggregateStats = 2, groupDesc = 7, portDesc = 13 };

struct Header {
   U8 version = 0;
   MessageType type{};
   U16 length = 0;  // of the whole message
   U32 xid = 0;
};
// Nothing while the bytes have no whole header. Throws Malformed for a length below that of a
// header.
std::optional<Header> headerOf(Bytes bytes);

// ---- Flows and groups ----

inline constexpr U32 controllerPort = 0xfffffffd;
inline constexpr U32 anyPort = 0xffffffff;
inline constexpr U16 vlanPresent = 0x1000;  // in the value of a vlan field

struct Masked {
   U64 value = 0;
   U64 mask = ~U64{0};
   friend bool operator==(Masked const&, Masked const&) = default;
};

struct Match {
   std::optional<U32> inPort;
   std::optional<Masked> metadata;
   std::optional<U16> ethType;
   std::optional<U16> vlan;  // with vlanPresent; 0 for untagged packets
   std::optional<U8> protocol;
   std::optional<U8> icmp6Type;
   // Null for any. Their family goes with `ethType`.
   Lnet::IpGenPrefix source, destination;
   bool other = false;

   bool matchesAll() const { return *this == Match(); }
   friend bool operator==(Match const&, Match const&) = default;
};

struct Action {
   enum class Kind : U8 {
      output,
      group,
      pushVlan,
      setVlan,  // with vlanPresent
      popVlan,
      decTtl,
      setSource,  // the Ethernet address, as a number
      clearInPort,
      other,
   };
   Kind kind{};
   U64 value = 0;
   friend bool operator==(Action const&, Action const&) = default;
};
using Actions = std::vector<Action>;

struct Flow {
   U8 table = 0;
   U16 priority = 0;
   U64 cookie = 0;
   Match match;
   Actions actions;
   std::optional<Masked> metadata;  // written
   std::optional<U8> next;          // the table of the instruction "goto"
   bool other = false;
   U64 packets = 0, bytes = 0;  // read from the bridge

   // Whether both forward alike; the counts are left out.
   bool sameAs(Flow const& flow) const {
      return table == flow.table && priority == flow.priority && cookie == flow.cookie &&
             match == flow.match && actions == flow.actions && metadata == flow.metadata &&
             next == flow.next && !other && !flow.other;
   }
};

enum class GroupType : U8 { all = 0, indirect = 2, other = 0xff };

struct GroupDesc {
   U32 id = 0;
   GroupType type{};
   std::vector<Actions> buckets;
   bool other = false;
   friend bool operator==(GroupDesc const&, GroupDesc const&) = default;
};

struct PortDesc {
   U32 number = 0;
   std::string name;
   bool up = false;  // neither down by configuration nor without a link
};

// ---- Encoded messages; the xid is set by xidIs(). ----

enum class FlowCommand : U8 { add = 0, deletion = 3, deleteStrict = 4 };
enum class GroupCommand : U16 { add = 0, modify = 1, deletion = 2 };

void xidIs(std::string& message, U32 xid);

std::string helloMessage();
std::string plainMessage(MessageType type);
std::string echoReply(Bytes body);
std::string setConfig(U16 missSendLength);
enum class Role : U32 { noChange = 0, equal = 1, master = 2, slave = 3 };
std::string roleRequest(Role role, U64 generation);
// A deletion takes the flows whose cookie has the cookie of the flow under the mask. Such a flow
// needs a match alone if it is strict.
std::string flowMod(FlowCommand command, Flow const& flow, U64 cookieMask = 0);
std::string groupMod(GroupCommand command, GroupDesc const& group);
std::string packetOut(Bytes packet, U32 port);
// The flows of all tables whose cookie fits.
std::string flowDescRequest(U64 cookie, U64 cookieMask);
std::string aggregateRequest(U64 cookie, U64 cookieMask);
std::string groupDescRequest();
std::string portDescRequest();

// ---- Decoders of bodies: the bytes behind the header. All throw Malformed. ----

// Whether the peer speaks OpenFlow 1.5. `version` is that of the header.
bool helloFits(U8 version, Bytes body);
struct Error {
   U16 type = 0;
   U16 code = 0;
};
Error errorOf(Bytes body);
// "OpenFlow error 6/3 OUT_OF_GROUPS"; the numbers alone for an unknown error.
std::string textOf(Error error);
// The number of tables, of a reply to a question for features.
U8 tablesOf(Bytes body);
struct RoleState {
   Role role{};
   U64 generation = 0;  // all ones: none yet
};
RoleState roleReplyOf(Bytes body);
Role roleStatusOf(Bytes body);
enum class PortReason : U8 { add = 0, deletion = 1, modify = 2 };
std::pair<PortReason, PortDesc> portStatusOf(Bytes body);

struct MultipartReply {
   Multipart type{};
   bool more = false;
   Bytes body;
};
MultipartReply multipartReplyOf(Bytes body);
// Append the records of one reply.
void flowsOf(Bytes body, std::vector<Flow>& flows);
void groupsOf(Bytes body, std::vector<GroupDesc>& groups);
void portsOf(Bytes body, std::vector<PortDesc>& ports);
struct Aggregate {
   U64 packets = 0;
   U32 flows = 0;
   friend bool operator==(Aggregate const&, Aggregate const&) = default;
};
Aggregate aggregateOf(Bytes body);

}  // namespace OpenFlow
