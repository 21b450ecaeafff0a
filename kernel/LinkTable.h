// The links that a Monitor knows, with the addresses of each.
//
// The kernel notifies each change of a link and of an address, and marks a dump that is not
// consistent. So a record of a dump is ignored if the link was notified since the dump was
// requested, and a complete dump is believed about the links that it lacks.
#pragma once

#include <map>
#include <optional>
#include <set>
#include <utility>

#include "kernel/Listener.h"
#include "kernel/Message.h"

namespace Kernel {

class LinkTable {
 public:
   // A message about a link, or the record of a dump. Returns whether the link is new, has gone, or
   // has another name or MAC address.
   bool linkIs(LinkMessage const& message, bool listed);
   void addressIs(AddressMessage const& message, bool listed);

   // Between the two come the records of a dump. With `complete`, the links or addresses that the
   // dump lacked have gone; linksEnd() returns whether there were any.
   void dumpBegin() {
      ++dump_;
      dumping_ = true;
   }
   bool linksEnd(bool complete);
   void addressesEnd(bool complete);
   // The dump ends without a result.
   void dumpAbandon() { dumping_ = false; }

   Link const* find(Qor::U32 index) const;
   Link const* find(std::string const& name) const;
   std::set<Qor::U32> vrfTables() const;
   template <class Visit>
   void forEach(Visit const& visit) const {
      for (auto const& [index, entry] : entries_) {
         if (entry.mark.present) visit(entry.link);
      }
   }

   // Notifies the listener of all changes since the last call.
   void notify(Listener& listener);

 private:
   struct Mark {
      Qor::U32 notifiedIn = 0;
      Qor::U32 listedIn = 0;
      bool present = false;

      bool fresh(Qor::U32 dump) const { return notifiedIn == dump || listedIn == dump; }
   };
   using Address = std::pair<Lnet::IpGenAddr, Qor::U8>;
   struct Entry {
      Link link;
      Mark mark;
      std::optional<Link> shown;
      std::map<Address, Mark> addresses;
   };

   bool remove(Qor::U32 index, Entry& entry);
   void countAddresses(Qor::U32 index, Entry& entry);

   std::map<Qor::U32, Entry> entries_;
   std::set<Qor::U32> changed_;
   Qor::U32 dump_ = 1;
   bool dumping_ = false;
};

}  // namespace Kernel
