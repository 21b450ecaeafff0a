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

std::byte const* BlipRing::event(U64 number) const {
   if (number >= written_ || written_ - number > capacity) return nullptr;
   U32 const start = starts_[number % capacity];
   return next_ - start > capacity ? nullptr : slots_[start % capacity].bytes.data();
}

BlipRing::Header BlipRing::headerOf(std::byte const* event) {
   Header header;
   std::memcpy(&header, event, sizeof header);
   return header;
}

void BlipRing::printText(std::ostream& os, std::byte const* bytes, std::size_t size) {
   os.write(reinterpret_cast<char const*>(bytes), static_cast<std::streamsize>(size));
}

void BlipRing::printCut(std::ostream& os, std::byte const* bytes, std::size_t size) {
   printText(os, bytes, size);
   os << "...";
}

void BlipRing::print(std::ostream& os, std::byte const* event) {
   Header const header = headerOf(event);
   std::byte const* at = event + sizeof header;
   std::byte const* const end = event + header.size;
   std::string_view rest(header.message->format);
   for (auto hole = rest.find("%s"); hole != std::string_view::npos; hole = rest.find("%s")) {
      os << rest.substr(0, hole);
      rest.remove_prefix(hole + 2);
      if (at == end) continue;
      Printer printer;
      U16 size;
      std::memcpy(&printer, at, sizeof printer);
      std::memcpy(&size, at + sizeof printer, sizeof size);
      printer(os, at + argumentHeader, size);
      at += argumentHeader + size;
   }
   os << rest;
}

String BlipRing::text(std::size_t back) const {
   std::ostringstream os;
   if (back < written_) {
      if (std::byte const* const found = event(written_ - 1 - back)) print(os, found);
   }
   return os.str();
}

void BlipRing::dump(std::ostream& os) const {
   for (U64 number = written_ - std::min<U64>(written_, capacity); number < written_; ++number) {
      std::byte const* const found = event(number);
      if (!found) continue;
      Header const header = headerOf(found);
      char time[32];
      std::snprintf(time, sizeof time, "%.6f", header.time);
      os << time << ' ' << header.message->source << ':' << header.message->line << ' ';
      print(os, found);
      os << '\n';
   }
}

BlipRing& blip() {
   static BlipRing* const ring = new BlipRing;
   return *ring;
}

}  // namespace Qor
