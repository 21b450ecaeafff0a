// Numbers in network order, and the codes of OpenFlow 1.5 that encoder and decoder share.
#pragma once

#include <span>
#include <stdexcept>
#include <string>
#include <utility>

#include "Qor/Types.h"

namespace OpenFlow {

using Qor::U16;
using Qor::U32;
using Qor::U64;
using Qor::U8;

using Bytes = std::span<U8 const>;

class Malformed final : public std::runtime_error {
 public:
   using std::runtime_error::runtime_error;
};

// Appends to a message.
class Writer {
 public:
   std::size_t size() const { return bytes_.size(); }
   void u8(U8 value) { bytes_.push_back(static_cast<char>(value)); }
   void u16(U16 value) {
      u8(static_cast<U8>(value >> 8));
      u8(static_cast<U8>(value));
   }
   void u32(U32 value) {
      u16(static_cast<U16>(value >> 16));
      u16(static_cast<U16>(value));
   }
   void u64(U64 value) {
      u32(static_cast<U32>(value >> 32));
      u32(static_cast<U32>(value));
   }
   void zeros(std::size_t count) { bytes_.append(count, '\0'); }
   void raw(Bytes bytes) {
      bytes_.append(reinterpret_cast<char const*>(bytes.data()), bytes.size());
   }
   // Overwrites an earlier place.
   void put16(std::size_t at, std::size_t value) {
      bytes_[at] = static_cast<char>(value >> 8);
      bytes_[at + 1] = static_cast<char>(value);
   }
   void padTo8(std::size_t start) { zeros((8 - (size() - start) % 8) % 8); }
   std::string take() { return std::move(bytes_); }

 private:
   std::string bytes_;
};

// Reads from a message, and throws Malformed at its end.
class Reader {
 public:
   explicit Reader(Bytes bytes) : bytes_(bytes) {}

   std::size_t left() const { return bytes_.size(); }
   Bytes take(std::size_t size) {
      if (size > bytes_.size()) throw Malformed("a message ends within a field");
      Bytes const taken = bytes_.first(size);
      bytes_ = bytes_.subspan(size);
      return taken;
   }
   // The rest of a record whose start has been read.
   Reader rest(std::size_t length, std::size_t read) {
      if (length < read) throw Malformed("a length is shorter than its own field");
      return Reader(take(length - read));
   }
   void skip(std::size_t size) { take(size); }
   U64 number(std::size_t size) {
      U64 value = 0;
      for (U8 const byte : take(size))
         value = value << 8 | byte;
      return value;
   }
   U8 u8() { return static_cast<U8>(number(1)); }
   U16 u16() { return static_cast<U16>(number(2)); }
   U32 u32() { return static_cast<U32>(number(4)); }
   U64 u64() { return number(8); }

 private:
   Bytes bytes_;
};

inline constexpr U16 oxmBasic = 0x8000;
inline constexpr U16 oxsBasic = 0x8002;
// The header of the writable form of the input port; the standard one cannot be set.
inline constexpr U32 nxmInPort = 0x00000002;
enum class OxmField : U8 {
   inPort = 0,
   metadata = 2,
   ethSource = 4,
   ethType = 5,
   vlan = 6,
   protocol = 10,
   source4 = 11,
   destination4 = 12,
   source6 = 26,
   destination6 = 27,
   icmp6Type = 29,
};
enum class OxsField : U8 { flows = 3, packets = 4, bytes = 5 };
enum class ActionType : U16 {
   output = 0,
   pushVlan = 17,
   popVlan = 18,
   group = 22,
   decTtl = 24,
   setField = 25,
};
enum class InstructionType : U16 { gotoTable = 1, writeMetadata = 2, applyActions = 4 };
inline constexpr U16 helloVersions = 1;
inline constexpr U8 allTables = 0xff;
inline constexpr U32 anyGroup = 0xffffffff;
inline constexpr U32 allGroups = 0xfffffffc;
inline constexpr U32 allBuckets = 0xffffffff;
inline constexpr U32 noBuffer = 0xffffffff;
inline constexpr U16 ethTypeV4 = 0x0800;
inline constexpr U16 ethTypeV6 = 0x86dd;

}  // namespace OpenFlow
