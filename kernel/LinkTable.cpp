#include "kernel/LinkTable.h"

namespace Kernel {

using Qor::U32;

bool LinkTable::linkIs(LinkMessage const& message, bool listed) {
   U32 const index = message.link.index;
   if (message.deleted && !entries_.count(index)) return false;
   Entry& entry = entries_[index];
   if (listed && entry.mark.notifiedIn == dump_) return false;
   (listed ? entry.mark.listedIn : entry.mark.notifiedIn) = dump_;
   if (message.deleted) return remove(index, entry);
   Link link = message.link;
   link.hasIpv4 = entry.link.hasIpv4;
   link.hasIpv6 = entry.link.hasIpv6;
   bool const other =
         !entry.mark.present || entry.link.name != link.name || entry.link.mac != link.mac;
   entry.mark.present = true;
   entry.link = std::move(link);
   changed_.insert(index);
   return other;
}

bool LinkTable::remove(U32 index, Entry& entry) {
   bool const was = std::exchange(entry.mark.present, false);
   entry.link = {};
   entry.addresses.clear();
   changed_.insert(index);
   return was;
}

void LinkTable::addressIs(AddressMessage const& message, bool listed) {
   auto const found = entries_.find(message.link);
   if (found == entries_.end() || !found->second.mark.present) return;
   Mark& mark = found->second.addresses[{message.address, message.length}];
   if (listed && mark.notifiedIn == dump_) return;
   (listed ? mark.listedIn : mark.notifiedIn) = dump_;
   mark.present = !message.deleted;
   // During a dump the entry shows that a record of the dump is older.
   if (message.deleted && !dumping_) {
      found->second.addresses.erase({message.address, message.length});
   }
   countAddresses(found->first, found->second);
}

void LinkTable::countAddresses(U32 index, Entry& entry) {
   bool v4 = false;
   bool v6 = false;
   for (auto const& [address, mark] : entry.addresses)
      (address.first.isV4() ? v4 : v6) |= mark.present;
   entry.link.hasIpv4 = v4;
   entry.link.hasIpv6 = v6;
   changed_.insert(index);
}

bool LinkTable::linksEnd(bool complete) {
   bool gone = false;
   dumping_ = false;
   for (auto& [index, entry] : entries_) {
      if (complete && entry.mark.present && !entry.mark.fresh(dump_)) gone |= remove(index, entry);
   }
   return gone;
}

void LinkTable::addressesEnd(bool complete) {
   dumping_ = false;
   for (auto& [index, entry] : entries_) {
      std::erase_if(entry.addresses, [&](auto const& address) {
         return !address.second.present || (complete && !address.second.fresh(dump_));
      });
      countAddresses(index, entry);
   }
}

Link const* LinkTable::find(U32 index) const {
   auto const found = entries_.find(index);
   return found != entries_.end() && found->second.mark.present ? &found->second.link : nullptr;
}

Link const* LinkTable::find(std::string const& name) const {
   for (auto const& [index, entry] : entries_) {
      if (entry.mark.present && entry.link.name == name) return &entry.link;
   }
   return nullptr;
}

std::set<U32> LinkTable::vrfTables() const {
   std::set<U32> tables;
   for (auto const& [index, entry] : entries_) {
      if (entry.mark.present && entry.link.vrfTable != 0) tables.insert(entry.link.vrfTable);
   }
   return tables;
}

// Removed links come first, so that a name is free when another link takes it.
void LinkTable::notify(Listener& listener) {
   std::set<U32> const changed = std::exchange(changed_, {});
   for (U32 index : changed) {
      auto const found = entries_.find(index);
      if (found == entries_.end() || found->second.mark.present) continue;
      bool const shown = found->second.shown.has_value();
      entries_.erase(found);
      if (shown) listener.linkDel(index);
   }
   for (U32 index : changed) {
      auto const found = entries_.find(index);
      if (found == entries_.end()) continue;
      Entry& entry = found->second;
      if (entry.shown == entry.link) continue;
      entry.shown = entry.link;
      listener.linkIs(*entry.shown);
   }
}

}  // namespace Kernel
