// A bridge for the tests of the OpenFlow platform, at the other end of a unix socket: it keeps
// flows and groups as they are sent, and misbehaves on demand. The thread of the test drives it.
#pragma once

#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <map>
#include <set>
#include <string>
#include <vector>

#include "platform/openflow/Message.h"

namespace testSupport {

class FakeOpenFlowPeer {
 public:
   using U8 = Qor::U8;
   using U16 = Qor::U16;
   using U32 = Qor::U32;
   using U64 = Qor::U64;

   struct Flow {
      U64 cookie = 0;
      U8 table = 0;
      U16 priority = 0;
      std::string match, instructions;  // as they were sent
      U64 packets = 0;
   };
   struct Port {
      U32 number = 0;
      bool up = true;
   };

   explicit FakeOpenFlowPeer(std::string path) : path_(std::move(path)) { listen(); }
   ~FakeOpenFlowPeer() {
      disconnect();
      stopListening();
   }
   FakeOpenFlowPeer(FakeOpenFlowPeer const&) = delete;
   FakeOpenFlowPeer& operator=(FakeOpenFlowPeer const&) = delete;

   // ---- State, free to change. ----
   std::map<std::string, Port> ports;
   std::vector<Flow> flows;
   std::map<U32, std::string> groups;  // the type, and the buckets as they were sent
   std::size_t mostFlows = ~std::size_t{0}, mostGroups = ~std::size_t{0};
   bool barriersHeld = false;  // no barrier is answered
   bool readingsHeld = false;  // no question for tables is answered
   bool silent = false;        // nothing is answered
   U8 version = OpenFlow::protocolVersion;
   U64 generation = ~U64{0};

   // ---- Messages of the platform. ----
   std::vector<std::string> writes;  // "add group 17", "delete flow 1", "barrier", in order
   std::vector<std::string> packetsOut;
   U32 groupQuestion = 0, lastBarrier = 0;  // the xids of the latest ones
   U32 echoes = 0, connections = 0, flowReadings = 0;

   std::string const& path() const { return path_; }
   bool connected() const { return fd_ >= 0; }
   void listen() {
      ::unlink(path_.c_str());
      sockaddr_un address{};
      address.sun_family = AF_UNIX;
      path_.copy(address.sun_path, sizeof address.sun_path - 1);
      listener_ = ::socket(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0);
      if (::bind(listener_, reinterpret_cast<sockaddr const*>(&address), sizeof address) != 0 ||
          ::listen(listener_, 4) != 0) {
         throw std::runtime_error("cannot listen at " + path_);
      }
   }
   void stopListening() {
      if (listener_ >= 0) ::close(listener_);
      listener_ = -1;
      ::unlink(path_.c_str());
   }
   void disconnect() {
      if (fd_ >= 0) ::close(fd_);
      fd_ = -1;
      input_.clear();
   }

   // Handles all that has come. Returns whether that was anything.
   bool serve() {
      bool served = false;
      if (int const fd =
                listener_ >= 0 ? ::accept4(listener_, nullptr, nullptr, SOCK_NONBLOCK) : -1;
          fd >= 0) {
         disconnect();
         fd_ = fd;
         ++connections;
         served = true;
      }
      char piece[65536];
      for (ssize_t got; fd_ >= 0 && (got = ::recv(fd_, piece, sizeof piece, MSG_DONTWAIT)) >= 0;) {
         served = true;
         if (got == 0) {
            disconnect();
            break;
         }
         input_.append(piece, static_cast<std::size_t>(got));
      }
      while (auto const header = OpenFlow::headerOf(bytes(input_))) {
         if (input_.size() < header->length) break;
         std::string const body = input_.substr(8, header->length - 8);
         input_.erase(0, header->length);
         if (!silent) handle(*header, body);
      }
      return served;
   }

   void send(U8 type, U32 xid, std::string const& body) {
      OpenFlow::Writer out;
      out.u8(version);
      out.u8(type);
      out.u16(static_cast<U16>(8 + body.size()));
      out.u32(xid);
      sendRaw(out.take() + body);
   }
   void sendRaw(std::string const& raw) {
      for (std::size_t sent = 0; fd_ >= 0 && sent < raw.size();) {
         ssize_t const n = ::send(fd_, raw.data() + sent, raw.size() - sent, MSG_NOSIGNAL);
         if (n > 0) sent += static_cast<std::size_t>(n);
         if (n <= 0) return;
      }
   }

   // Changes a port, and reports that.
   void portIs(std::string const& name, Port const& port) {
      bool const added = !ports.contains(name);
      ports[name] = port;
      send(12, 0, std::string(1, added ? '\0' : '\2') + std::string(7, '\0') + portBytes(name));
   }
   void portDel(std::string const& name) {
      std::string const gone = portBytes(name);
      ports.erase(name);
      send(12, 0, '\1' + std::string(7, '\0') + gone);
   }

   // ---- The tables as the codec of the platform reads them. ----
   std::vector<OpenFlow::Flow> decoded() const {
      std::vector<OpenFlow::Flow> all;
      for (Flow const& flow : flows)
         OpenFlow::flowsOf(bytes(flowBytes(flow)), all);
      return all;
   }
   OpenFlow::GroupDesc decodedGroup(U32 id) const {
      std::vector<OpenFlow::GroupDesc> all;
      OpenFlow::groupsOf(bytes(groupBytes(id, groups.at(id))), all);
      return all.at(0);
   }
   // The number of recorded writes that begin with these words.
   std::size_t count(std::string_view begin) const {
      return static_cast<std::size_t>(
            std::count_if(writes.begin(), writes.end(),
                          [&](std::string const& write) { return write.starts_with(begin); }));
   }

   static std::span<U8 const> bytes(std::string const& text) {
      return {reinterpret_cast<U8 const*>(text.data()), text.size()};
   }

 private:
   static std::string flowBytes(Flow const& flow) {
      OpenFlow::Writer out;
      out.u16(0);
      out.u16(0);
      out.u8(flow.table);
      out.u8(0);
      out.u16(flow.priority);
      out.zeros(8);
      out.u64(flow.cookie);
      out.raw(bytes(flow.match));
      out.u16(0);
      out.u16(16);
      out.u32(0x80020808);
      out.u64(flow.packets);
      out.raw(bytes(flow.instructions));
      out.put16(0, out.size());
      return out.take();
   }
   static std::string groupBytes(U32 id, std::string const& group) {
      OpenFlow::Writer out;
      out.u16(static_cast<U16>(16 + group.size() - 1));
      out.raw(bytes(group.substr(0, 1)));
      out.u8(0);
      out.u32(id);
      out.u16(static_cast<U16>(group.size() - 1));
      out.zeros(6);
      out.raw(bytes(group.substr(1)));
      return out.take();
   }
   std::string portBytes(std::string const& name) const {
      Port const& port = ports.at(name);
      OpenFlow::Writer out;
      out.u32(port.number);
      out.u16(40);
      out.zeros(2 + 6 + 2);
      out.raw(bytes((name + std::string(16, '\0')).substr(0, 16)));
      out.u32(0);
      out.u32(port.up ? 0 : 1);
      return out.take();
   }

   // Sends the records in answers of at most 60 KB.
   void answer(U32 xid, U16 type, std::vector<std::string> const& records) {
      std::string body;
      auto const part = [&](bool more) {
         OpenFlow::Writer out;
         out.u16(type);
         out.u16(more ? 1 : 0);
         out.u32(0);
         send(19, xid, out.take() + body);
         body.clear();
      };
      for (std::string const& record : records) {
         if (body.size() + record.size() > 60000) part(true);
         body += record;
      }
      part(false);
   }
   void error(U32 xid, U16 type, U16 code) {
      OpenFlow::Writer out;
      out.u16(type);
      out.u16(code);
      send(1, xid, out.take());
   }

   // The group of the flow's action; 0 for none.
   static U32 groupOf(std::string const& instructions) {
      auto const all = bytes(instructions);
      for (std::size_t at = 0; at + 8 <= all.size(); at += 8) {
         if (all[at] == 0 && all[at + 1] == 22 && all[at + 3] == 8) {
            OpenFlow::Reader in(all.subspan(at + 4));
            return in.u32();
         }
      }
      return 0;
   }

   void flowMod(U32 xid, std::string const& body) {
      OpenFlow::Reader in(bytes(body));
      Flow flow;
      flow.cookie = in.u64();
      U64 const mask = in.u64();
      flow.table = in.u8();
      U8 const command = in.u8();
      in.skip(4);
      flow.priority = in.u16();
      in.skip(16);
      std::size_t const start = body.size() - in.left();
      OpenFlow::Reader match(bytes(body).subspan(start));
      match.skip(2);
      std::size_t const length = (match.u16() + 7u) / 8 * 8;
      flow.match = body.substr(start, length);
      flow.instructions = body.substr(start + length);
      auto const number = std::to_string(static_cast<U32>(flow.cookie));
      char const* const kind = flow.cookie >> 32 & 1 ? "route " : "flow ";
      writes.push_back((command == 0 ? "add " : "delete ") + (kind + number));
      auto const same = [&](Flow const& f) {
         return f.table == flow.table && f.priority == flow.priority && f.match == flow.match;
      };
      if (command == 0) {
         U32 const group = groupOf(flow.instructions);
         if (group != 0 && !groups.contains(group)) return error(xid, 2, 9);
         auto const at = std::find_if(flows.begin(), flows.end(), same);
         if (at == flows.end() && flows.size() >= mostFlows) return error(xid, 5, 1);
         if (at == flows.end()) {
            flows.push_back(flow);
         } else {
            flow.packets = at->packets;
            *at = flow;
         }
         return;
      }
      std::erase_if(flows, [&](Flow const& f) {
         if ((f.cookie & mask) != (flow.cookie & mask)) return false;
         return command == 4 ? same(f) : flow.table == 0xff || flow.table == f.table;
      });
   }

   void groupMod(U32 xid, std::string const& body) {
      OpenFlow::Reader in(bytes(body));
      U16 const command = in.u16();
      std::string const type = body.substr(2, 1);
      in.skip(2);
      U32 const id = in.u32();
      char const* const names[] = {"add group ", "modify group ", "delete group "};
      writes.push_back(names[std::min<U16>(command, 2)] + std::to_string(id));
      if (command == 2) {
         groups.erase(id);
         std::erase_if(flows, [&](Flow const& f) { return groupOf(f.instructions) == id; });
         return;
      }
      if (command == 0 && groups.contains(id)) return error(xid, 6, 0);
      if (command == 0 && groups.size() >= mostGroups) return error(xid, 6, 3);
      if (command == 1 && !groups.contains(id)) return error(xid, 6, 8);
      groups[id] = type + body.substr(16);
   }

   void multipart(U32 xid, std::string const& body) {
      OpenFlow::Reader in(bytes(body));
      U16 const type = in.u16();
      in.skip(6);
      if (type == 7) groupQuestion = xid;
      if (readingsHeld && type != 13) return;
      std::vector<std::string> records;
      if (type == 13) {
         for (auto const& [name, port] : ports)
            records.push_back(portBytes(name));
      } else if (type == 7) {
         for (auto const& [id, group] : groups)
            records.push_back(groupBytes(id, group));
      } else {
         in.skip(16);
         U64 const cookie = in.u64(), mask = in.u64();
         U64 packets = 0;
         for (Flow const& flow : flows) {
            if ((flow.cookie & mask) != (cookie & mask)) continue;
            records.push_back(flowBytes(flow));
            packets += flow.packets;
         }
         flowReadings += type == 1;
         if (type == 2) {
            OpenFlow::Writer out;
            out.u16(0);
            out.u16(4 + 12 + 8);
            out.u32(0x80020808);
            out.u64(packets);
            out.u32(0x80020604);
            out.u32(static_cast<U32>(records.size()));
            records = {out.take()};
         }
      }
      answer(xid, type, records);
   }

   void handle(OpenFlow::Header const& header, std::string const& body) {
      using Type = OpenFlow::MessageType;
      switch (header.type) {
         case Type::hello:
            return send(0, header.xid, {});
         case Type::echoRequest:
            ++echoes;
            return send(3, header.xid, body);
         case Type::featuresRequest:
            return send(6, header.xid, std::string(12, '\0') + "\xfe" + std::string(11, '\0'));
         case Type::roleRequest: {
            OpenFlow::Reader in(bytes(body));
            U32 const role = in.u32();
            in.skip(4);
            U64 const given = in.u64();
            if (role == 2) generation = given;
            OpenFlow::Writer out;
            out.u32(role == 0 ? 1 : role);
            out.u32(0);
            out.u64(generation);
            return send(25, header.xid, out.take());
         }
         case Type::flowMod:
            return flowMod(header.xid, body);
         case Type::groupMod:
            return groupMod(header.xid, body);
         case Type::packetOut:
            packetsOut.push_back(body);
            return;
         case Type::multipartRequest:
            return multipart(header.xid, body);
         case Type::barrierRequest:
            writes.push_back("barrier");
            lastBarrier = header.xid;
            if (!barriersHeld) send(21, header.xid, {});
            return;
         default:
            return;
      }
   }

   std::string const path_;
   int listener_ = -1;
   int fd_ = -1;
   std::string input_;
};

}  // namespace testSupport
