// The identity of an interface: its name, interned to 32 bits so that it copies, compares for
// equality and hashes as a number.
//
// Names are kept in one process-wide table that only grows. A name lives, at the same address,
// until the process ends: the reference that name() returns may be kept for ever, and an id may be
// used from the destructor of a static object. The table is meant for the interfaces of one
// switch, thousands of names; it is not for text that a peer can choose without bound. As all of
// the agent's model it belongs to the one activity loop and takes no lock.
//
// The order is by name with runs of digits compared as numbers (rtr2 before rtr10), so it is the
// same in every process whatever names were seen first. The empty id orders before all others.
#pragma once

#include <compare>
#include <ostream>
#include <string_view>

#include "Qor/Export.h"
#include "Qor/Hash.h"
#include "Qor/Strep.h"

namespace Lnet {

class QOR_PUBLIC IntfId final {
 public:
   // The empty id: no interface.
   constexpr IntfId() = default;
   // The id of a name, entered in the table on first sight; the empty name has the empty id.
   explicit IntfId(std::string_view name);

   Qor::String const& name() const;
   // The name's number in the table: dense, 0 for the empty id, different from process to process.
   constexpr Qor::U32 id() const { return id_; }
   constexpr bool isNull() const { return id_ == 0; }
   explicit constexpr operator bool() const { return id_ != 0; }

   // Stable within the process only, as id() is.
   Qor::U32 hash() const { return Qor::hashFold(Qor::hashMix(id_, 0)); }
   // The quoted name. A text given to a constructor is a name, so there is no parsing constructor;
   // Qor::parseStrep reads a whole string form.
   Qor::String strep() const { return Qor::quotedStrep(name()); }
   static IntfId fromStrep(Qor::StrepReader& reader) { return IntfId(reader.quoted()); }

   friend constexpr bool operator==(IntfId a, IntfId b) { return a.id_ == b.id_; }
   friend std::strong_ordering operator<=>(IntfId a, IntfId b) {
      return a.id_ == b.id_ ? std::strong_ordering::equal : compareNames(a, b);
   }
   friend std::ostream& operator<<(std::ostream& out, IntfId i) { return out << i.name(); }

 private:
   static std::strong_ordering compareNames(IntfId a, IntfId b);

   Qor::U32 id_ = 0;
};

}  // namespace Lnet
