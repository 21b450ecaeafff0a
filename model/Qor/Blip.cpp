#include "Qor/Blip.h"

#include <cstdio>
#include <sstream>

#include "Qor/Clock.h"

namespace Qor {

static_assert(std::has_single_bit(BlipRing::capacity), "slot numbers wrap");

void BlipRing::makeSlots() {
   slots_.resize(capacity + maxSlots - 1);
   starts_.resize(capacity);
}

std::byte const* BlipRing::group(U64 number) const {
   if (number >= groups_ || groups_ - number > capacity) return nullptr;
   U32 const start = starts_[number % capacity];
   return next_ - start > capacity ? nullptr : slots_[start % capacity].bytes.data();
}

BlipRing::Header BlipRing::headerOf(std::byte const* group) {
   Header header;
   std::memcpy(&header, group, sizeof header);
   return header;
}

void BlipRing::printText(std::ostream& os, std::byte const* bytes, std::size_t size) {
   os.write(reinterpret_cast<char const*>(bytes), static_cast<std::streamsize>(size));
}

void BlipRing::printCut(std::ostream& os, std::byte const* bytes, std::size_t size) {
   printText(os, bytes, size);
   os << "...";
}

U32 BlipRing::eventsFrom(U64 number) const {
   U32 const first = number < groups_ ? headerOf(group(number)).first : static_cast<U32>(written_);
   return static_cast<U32>(written_) - first;
}

void BlipRing::print(std::ostream& os, std::byte const* group, U32 event, U32 events) {
   Header const header = headerOf(group);
   std::byte const* at = group + sizeof header;
   std::byte const* const end = group + header.size;
   std::string_view rest(header.message->format);
   for (auto hole = rest.find("%s"); hole != std::string_view::npos; hole = rest.find("%s")) {
      os << rest.substr(0, hole);
      rest.remove_prefix(hole + 2);
      if (at == end) continue;
      Printer printer;
      U16 size;
      std::memcpy(&printer, at, sizeof printer);
      std::memcpy(&size, at + sizeof printer, sizeof size);
      std::size_t const share = size / events;
      printer(os, at + argumentHeader + event * share, share);
      at += argumentHeader + size;
   }
   os << rest;
}

String BlipRing::text(std::size_t back) const {
   // The last group that begins at the event or before it; the groups that have gone come first.
   U64 before = groups_ - std::min<U64>(groups_, capacity), after = groups_;
   while (before < after) {
      U64 const middle = before + (after - before) / 2;
      if (!group(middle) || eventsFrom(middle) > back) {
         before = middle + 1;
      } else {
         after = middle;
      }
   }
   std::ostringstream os;
   if (back >= written_ || !group(before - 1)) return os.str();
   U32 const from = eventsFrom(before - 1);
   print(os, group(before - 1), from - 1 - static_cast<U32>(back), from - eventsFrom(before));
   return os.str();
}

void BlipRing::dump(std::ostream& os) const {
   for (U64 number = groups_ - std::min<U64>(groups_, capacity); number < groups_; ++number) {
      std::byte const* const found = group(number);
      if (!found) continue;
      Header const header = headerOf(found);
      char time[32];
      std::snprintf(time, sizeof time, "%.6f", header.time);
      U32 const events = eventsFrom(number) - eventsFrom(number + 1);
      for (U32 event = 0; event < events; ++event) {
         os << time << ' ' << header.message->source << ':' << header.message->line << ' ';
         print(os, found, event, events);
         os << '\n';
      }
   }
}

BlipRing& blip() {
   static BlipRing* const ring = new BlipRing;
   return *ring;
}

}  // namespace Qor
