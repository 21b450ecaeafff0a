// The fast binary trace: a ring of the most recent events, always on at level 1, cheap enough for
// hot paths. An event stores a pointer to its message descriptor and its arguments in binary form;
// text is made only when the ring is dumped.
//
//    QOR_BLIP(1, "VelAsyncMrouteSm", " missing mtableOifSet on mcastId %s", id);
//
// Each %s of the format takes one argument, printed as operator<< prints it. An argument is a
// number, a text (cut at BlipWriter::maxText bytes), a trivially copyable value, or a type with a
// function
//    void blipEncode(Qor::BlipWriter&, T const&)
// found beside it, which writes the argument's parts as one text. What does not fit an event's
// room prints as "...". Nothing is counted or kept alive by the ring.
#pragma once

#include <algorithm>
#include <array>
#include <bit>
#include <cstddef>
#include <cstring>
#include <ostream>
#include <string_view>
#include <type_traits>
#include <vector>

#include "Qor/Export.h"
#include "Qor/Pool.h"
#include "Qor/Types.h"

namespace Qor {

// Static storage, one per statement.
struct BlipMessage {
   char const* source;
   unsigned line;
   char const* format;
};

// The present time, as Qor/Clock.h has it.
QOR_PUBLIC Seconds now();

// In whole cache lines, of which an event with a few small arguments takes the first alone.
struct alignas(cacheLine) BlipEvent {
   static constexpr std::size_t room = 108;

   BlipMessage const* message = nullptr;
   Seconds time = 0;
   U16 used = 0;   // bytes of `arguments`
   U16 count = 0;  // complete arguments in them
   std::array<std::byte, room> arguments;
};

class BlipWriter {
 public:
   static constexpr std::size_t maxText = 64;

   explicit BlipWriter(BlipEvent& event) : event_(event), at_(event.arguments.data()) {}
   ~BlipWriter() {
      event_.used = static_cast<U16>(at_ - event_.arguments.data());
      event_.count = count_;
   }
   BlipWriter(BlipWriter const&) = delete;
   BlipWriter& operator=(BlipWriter const&) = delete;

   template <class T>
   void argument(T const& value) {
      if constexpr (std::is_convertible_v<T const&, std::string_view>) {
         text(std::string_view(value));
      } else if constexpr (requires { blipEncode(*this, value); }) {
         blipEncode(*this, value);
      } else {
         static_assert(std::is_trivially_copyable_v<T> && !std::is_pointer_v<T>);
         raw(&printValue<T>, &value, sizeof value);
      }
   }

   void text(std::string_view value) {
      raw(&printText, value.data(), std::min(value.size(), maxText));
   }

 private:
   friend class BlipRing;
   using Printer = void (*)(std::ostream&, std::byte const*, std::size_t);

   template <class T>
   static void printValue(std::ostream& os, std::byte const* bytes, std::size_t) {
      std::array<std::byte, sizeof(T)> copy;
      std::memcpy(copy.data(), bytes, sizeof copy);
      os << std::bit_cast<T>(copy);
   }
   static void printText(std::ostream& os, std::byte const* bytes, std::size_t size) {
      os.write(reinterpret_cast<char const*>(bytes), static_cast<std::streamsize>(size));
   }

   void raw(Printer printer, void const* bytes, std::size_t size) {
      auto const size16 = static_cast<U16>(size);
      std::byte* const end = event_.arguments.data() + BlipEvent::room;
      if (sizeof printer + sizeof size16 + size > static_cast<std::size_t>(end - at_)) {
         at_ = end;  // later, smaller arguments must not take its place
         return;
      }
      append(&printer, sizeof printer);
      append(&size16, sizeof size16);
      append(bytes, size);
      ++count_;
   }
   void append(void const* bytes, std::size_t size) {
      if (size) std::memcpy(at_, bytes, size);
      at_ += size;
   }

   BlipEvent& event_;
   std::byte* at_;  // where the next argument goes
   U16 count_ = 0;  // complete arguments so far
};

class QOR_PUBLIC BlipRing {
 public:
   static constexpr std::size_t capacity = 4096;  // events

   bool enabled(unsigned level) const { return level <= level_; }
   unsigned level() const { return level_; }
   void levelIs(unsigned level) { level_ = level; }

   template <class... Args>
   void write(BlipMessage const& message, Seconds time, Args const&... args) {
      if (events_.empty()) [[unlikely]] {
         events_.resize(capacity);
      }
      BlipEvent& event = events_[written_++ % capacity];
      event.message = &message;
      event.time = time;
      [[maybe_unused]] BlipWriter writer(event);
      (writer.argument(args), ...);
   }

   // Events written since the process began or clear() was called; the ring holds the last of them.
   U64 written() const { return written_; }
   void clear() { written_ = 0; }

   // The text of the event written `back` events ago (0 is the latest); empty when it has gone.
   String text(std::size_t back = 0) const;
   // Oldest first, a line each: <time, 6 decimals> <source>:<line> <text>.
   void dump(std::ostream& os) const;

 private:
   std::vector<BlipEvent> events_;
   U64 written_ = 0;
   unsigned level_ = 1;
};

// The process's ring.
QOR_PUBLIC BlipRing& blip();

}  // namespace Qor

#define QOR_BLIP(level, source, format, ...) \
   QOR_BLIP_AT(::Qor::now(), level, source, format __VA_OPT__(, ) __VA_ARGS__)

// The same of a given time, for many events of one moment: reading a clock costs more than the rest.
#define QOR_BLIP_AT(time, level, source, format, ...)                        \
   do {                                                                      \
      static constexpr ::Qor::BlipMessage qorBlip{source, __LINE__, format}; \
      if (::Qor::blip().enabled(level)) {                                    \
         ::Qor::blip().write(qorBlip, time __VA_OPT__(, ) __VA_ARGS__);      \
      }                                                                      \
   } while (false)
