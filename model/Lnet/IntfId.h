// The identity of an interface: its name, interned to a 32-bit id. An IntfId copies, compares for
// equality and hashes as that number.
//
// The names are in one table of the process, which only grows. A name keeps its address until the
// process ends: a caller may keep the reference that name() returns, and the destructor of a static
// object may use an IntfId. The table is meant for the interfaces of one switch (thousands of
// names), not for texts that a peer can choose without limit. It is not locked: only the thread of
// the activity loop may use it.
//
// The order is that of the names, with runs of digits compared as numbers (rtr2 before rtr10). It
// does not depend on the ids, and so is the same in every process. The empty id is the least.
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
   // The empty id, which means no interface.
   constexpr IntfId() = default;
   // The id of a name. A new name is added to the table; the empty name has the empty id.
   explicit IntfId(std::string_view name);

   Qor::String const& name() const;
   // The number of the name in the table: 0 for the empty id, then in the order in which the names
   // were added, which differs from process to process.
   constexpr Qor::U32 id() const { return id_; }
   constexpr bool isNull() const { return id_ == 0; }
   explicit constexpr operator bool() const { return id_ != 0; }

   // A hash of id(), and so different from process to process.
   Qor::U32 hash() const { return Qor::hashFold(Qor::hashMix(id_, 0)); }
   // The quoted name. There is no parsing constructor, since the constructor takes a text as a
   // name. Qor::parseStrep parses a quoted name.
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
