#include "Qor/Blip.h"

#include <cstdio>
#include <sstream>

#include "Qor/Clock.h"

namespace Qor {

namespace {

using Printer = void (*)(std::ostream&, std::byte const*, std::size_t);

void printArgument(std::ostream& os, std::byte const*& at) {
   Printer printer;
   std::memcpy(&printer, at, sizeof printer);
   at += sizeof printer;
   U16 size;
   std::memcpy(&size, at, sizeof size);
   at += sizeof size;
   printer(os, at, size);
   at += size;
}

void print(std::ostream& os, BlipEvent const& event) {
   std::byte const* at = event.arguments.data();
   unsigned left = event.count;
   std::string_view rest(event.message->format);
   for (auto hole = rest.find("%s"); hole != std::string_view::npos; hole = rest.find("%s")) {
      os << rest.substr(0, hole);
      if (left) {
         printArgument(os, at);
         --left;
      } else {
         os << "...";
      }
      rest.remove_prefix(hole + 2);
   }
   os << rest;
}

}  // namespace

String BlipRing::text(std::size_t back) const {
   if (back >= std::min<U64>(written_, capacity)) return {};
   std::ostringstream os;
   print(os, events_[(written_ - 1 - back) % capacity]);
   return os.str();
}

void BlipRing::dump(std::ostream& os) const {
   for (U64 n = written_ - std::min<U64>(written_, capacity); n < written_; ++n) {
      BlipEvent const& event = events_[n % capacity];
      char time[32];
      std::snprintf(time, sizeof time, "%.6f", event.time);
      os << time << ' ' << event.message->source << ':' << event.message->line << ' ';
      print(os, event);
      os << '\n';
   }
}

BlipRing& blip() {
   static BlipRing* const ring = new BlipRing;
   return *ring;
}

}  // namespace Qor
