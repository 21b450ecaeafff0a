// The fast binary trace: a ring of the most recent events, always on at level 1, cheap enough for
// hot paths. An event stores a pointer to its message descriptor and its arguments in binary form;
// text is made only when the ring is read.
//
//    QOR_BLIP(1, "VelAsyncMrouteSm", " missing mtableOifSet on mcastId %s", id);
//
// Each %s of the format takes one argument, printed as operator<< prints it. An argument is a
// number, a text, another trivially copyable value, or of a type with a function
//    Qor::String blipText(T const&)
// beside it, which returns the argument's text, or of a type with a BlipForm: the ring then keeps
// words instead of a text. Nothing is counted or kept alive by the ring.
//
// The limit: an event keeps BlipRing::room bytes of arguments, 512. A text takes its length, words
// take 8 bytes each, any other argument its size. Where that is more, the longer texts and words
// are cut, and end with "...".
//
// The ring is made of slots of one cache line. An event with a few small arguments takes one slot, a
// larger one as many as it needs; they follow each other in memory, also at the end of the ring,
// where the last event may reach beyond. An event of which a slot has been overwritten is gone.
//
// Equal statements with one small argument, as a scan of a table makes them, go into common slots
// (writeEach()): each of them costs the bytes of its argument alone.
#pragma once

#include <algorithm>
#include <array>
#include <bit>
#include <cstddef>
#include <cstring>
#include <new>
#include <ostream>
#include <span>
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

// The words that an event keeps of a T, for a type whose text would cost too much in a hot path. A
// specialization has
//    static std::size_t size(T const&);                      the number of words
//    static void write(T const&, auto const& put);           calls put(U64) for each of them
//    static void print(std::ostream&, std::span<U64 const>); the text, of the first words if cut
template <class T>
struct BlipForm;

template <class T>
struct BlipWords {
   using BlipWordsOf = T;
   T const& value;
   std::size_t count;
};

// An argument as an event keeps it: its text, its words, or itself.
template <class T>
decltype(auto) blipArgument(T const& value) {
   if constexpr (std::is_convertible_v<T const&, std::string_view>) {
      return std::string_view(value);
   } else if constexpr (requires { BlipForm<T>::size(value); }) {
      return BlipWords<T>{value, BlipForm<T>::size(value)};
   } else if constexpr (requires { blipText(value); }) {
      return blipText(value);
   } else {
      static_assert(std::is_trivially_copyable_v<T> && !std::is_pointer_v<T>);
      return value;
   }
}

class QOR_PUBLIC BlipRing {
 public:
   static constexpr std::size_t capacity = 8192;  // slots
   static constexpr std::size_t room = 512;       // bytes of an event's arguments
   static constexpr std::size_t maxArguments = 8;

   static constexpr bool enabled(unsigned level) { return level <= 1; }

   template <class... Args>
   void write(BlipMessage const& message, Seconds time, Args const&... args) {
      record(message, time, blipArgument(args)...);
   }

   // Writes an event for each of the arguments, in their order.
   template <class T>
   void writeEach(BlipMessage const& message, Seconds time, std::span<T const> arguments) {
      static_assert(std::is_trivially_copyable_v<T> && !std::is_pointer_v<T>);
      while (!arguments.empty()) {
         auto const some = arguments.first(std::min(arguments.size(), room / sizeof(T)));
         put(message, time, static_cast<U32>(some.size()),
             [&](std::byte*& at) { append(at, &printValue<T>, some.data(), some.size_bytes()); });
         arguments = arguments.subspan(some.size());
      }
   }

   // Events written since the process began or clear() was called; the ring holds the last of them.
   U64 written() const { return written_; }
   void clear() { written_ = groups_ = 0; }

   // The text of the event written `back` events ago (0 is the latest); empty when it has gone.
   String text(std::size_t back = 0) const;
   // Oldest first, a line each: <time, 6 decimals> <source>:<line> <text>.
   void dump(std::ostream& os) const;

 private:
   using Printer = void (*)(std::ostream&, std::byte const*, std::size_t);

   // A group of equal statements; mostly a single event.
   struct Header {
      BlipMessage const* message;
      Seconds time;
      U32 size;   // of the whole group, in bytes
      U32 first;  // the number of its first event, which may wrap
   };
   // Before the bytes of each argument.
   static constexpr std::size_t argumentHeader = sizeof(Printer) + sizeof(U16);
   static constexpr std::size_t maxSlots =
         (sizeof(Header) + room + maxArguments * argumentHeader + cacheLine - 1) / cacheLine;

   struct alignas(cacheLine) Slot {
      std::array<std::byte, cacheLine> bytes;
   };

   // The texts and words of an event that are still to be appended.
   struct Texts {
      std::size_t count;
      std::size_t size;  // of all of them
      std::size_t room;  // for all of them
   };

   template <class T>
   static constexpr bool isText = std::is_convertible_v<T const&, std::string_view>;
   template <class T>
   static constexpr bool isWords = requires {
      typename T::BlipWordsOf;
   };
   template <class T>
   static constexpr bool isValue = !isText<T> && !isWords<T>;

   template <class T>
   static constexpr std::size_t valueSize() {
      if constexpr (isValue<T>) {
         return sizeof(T);
      } else {
         return 0;
      }
   }
   template <class T>
   static std::size_t textSize(T const& piece) {
      if constexpr (isText<T>) {
         return std::string_view(piece).size();
      } else if constexpr (isWords<T>) {
         return piece.count * sizeof(U64);
      } else {
         return 0;
      }
   }

   // Nothing is thrown here: an event is written whole.
   template <class... Pieces>
   void record(BlipMessage const& message, Seconds time, Pieces const&... pieces) {
      constexpr std::size_t values = (std::size_t{0} + ... + valueSize<Pieces>());
      static_assert(values <= room && sizeof...(Pieces) <= maxArguments);
      [[maybe_unused]] Texts texts{(std::size_t{0} + ... + !isValue<Pieces>),
                                   (std::size_t{0} + ... + textSize(pieces)), room - values};
      put(message, time, 1, [&](std::byte*& at) { (append(at, texts, pieces), ...); });
   }
   // Writes a group, whose arguments appendAll(at) writes.
   template <class AppendAll>
   [[gnu::always_inline]] void put(BlipMessage const& message, Seconds time, U32 events,
                                   AppendAll const& appendAll) {
      if (slots_.empty()) [[unlikely]]
         makeSlots();
      std::byte* const group = slots_[next_ % capacity].bytes.data();
      std::byte* at = group + sizeof(Header);
      appendAll(at);
      auto const size = static_cast<U32>(at - group);
      // Field by field: a header made elsewhere and copied whole would be waited for.
      auto* const header = new (group) Header;
      header->message = &message;
      header->time = time;
      header->size = size;
      header->first = static_cast<U32>(written_);
      starts_[groups_++ % capacity] = next_;
      written_ += events;
      next_ += (size + cacheLine - 1) / cacheLine;
   }

   template <class Piece>
   static void append(std::byte*& at, Texts& texts, Piece const& piece) {
      if constexpr (isValue<Piece>) {
         append(at, &printValue<Piece>, &piece, sizeof piece);
      } else if (texts.size <= texts.room) [[likely]] {
         appendStart(at, piece, textSize(piece));
      } else {
         // The room that the texts behind it leave, but at least its share.
         std::size_t const behind = texts.size - textSize(piece);
         std::size_t const limit =
               std::max(texts.room / texts.count, texts.room - std::min(texts.room, behind));
         std::size_t const kept = appendStart(at, piece, std::min(textSize(piece), limit));
         texts = {texts.count - 1, behind, texts.room - kept};
      }
   }
   // Append the first bytes of a text, or as many of the words as take no more. Return the number of
   // bytes.
   static std::size_t appendStart(std::byte*& at, std::string_view text, std::size_t size) {
      append(at, size < text.size() ? &printCut : &printText, text.data(), size);
      return size;
   }
   template <class T>
   static std::size_t appendStart(std::byte*& at, BlipWords<T> const& words, std::size_t size) {
      std::size_t left = size / sizeof(U64);
      std::size_t const kept = left * sizeof(U64);
      auto const put = [&at](U64 word) {
         std::memcpy(at, &word, sizeof word);
         at += sizeof word;
      };
      if (left == words.count) [[likely]] {
         appendHeader(at, &printWords<T>, kept);
         BlipForm<T>::write(words.value, put);
      } else {
         appendHeader(at, &printCutWords<T>, kept);
         BlipForm<T>::write(words.value, [&](U64 word) {
            if (left == 0) return;
            --left;
            put(word);
         });
      }
      return kept;
   }
   static void append(std::byte*& at, Printer printer, void const* bytes, std::size_t size) {
      appendHeader(at, printer, size);
      if (size) std::memcpy(at, bytes, size);
      at += size;
   }
   static void appendHeader(std::byte*& at, Printer printer, std::size_t size) {
      auto const size16 = static_cast<U16>(size);
      std::memcpy(at, &printer, sizeof printer);
      std::memcpy(at + sizeof printer, &size16, sizeof size16);
      at += argumentHeader;
   }

   template <class T>
   static void printValue(std::ostream& os, std::byte const* bytes, std::size_t) {
      std::array<std::byte, sizeof(T)> copy;
      std::memcpy(copy.data(), bytes, sizeof copy);
      os << std::bit_cast<T>(copy);
   }
   template <class T>
   static void printWords(std::ostream& os, std::byte const* bytes, std::size_t size) {
      std::array<U64, room / sizeof(U64)> words;
      if (size) std::memcpy(words.data(), bytes, size);
      BlipForm<T>::print(os, std::span<U64 const>(words.data(), size / sizeof(U64)));
   }
   template <class T>
   static void printCutWords(std::ostream& os, std::byte const* bytes, std::size_t size) {
      printWords<T>(os, bytes, size);
      os << "...";
   }
   static void printText(std::ostream& os, std::byte const* bytes, std::size_t size);
   static void printCut(std::ostream& os, std::byte const* bytes, std::size_t size);

   void makeSlots();
   // The bytes of a group by its number, the first being 0; null when it has gone.
   std::byte const* group(U64 number) const;
   static Header headerOf(std::byte const* group);
   // The number of the events of a group that has not gone, and of all later events.
   U32 eventsFrom(U64 number) const;
   // Prints an event of a group of so many. If these are more than one, each has an equal share of
   // the bytes of the one argument.
   static void print(std::ostream& os, std::byte const* group, U32 event, U32 events);

   std::vector<Slot> slots_;  // and as many behind the last as an event may need
   // By the number of a group: in which slot it begins. Slots are numbered on and on, so that it
   // shows which have been overwritten since; the numbers may wrap.
   std::vector<U32> starts_;
   U32 next_ = 0;
   U64 groups_ = 0;
   U64 written_ = 0;
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
      if (::Qor::BlipRing::enabled(level)) {                                 \
         ::Qor::blip().write(qorBlip, time __VA_OPT__(, ) __VA_ARGS__);      \
      }                                                                      \
   } while (false)

// An event with one argument for each element of a span.
#define QOR_BLIP_EACH_AT(time, level, source, format, span)                  \
   do {                                                                      \
      static constexpr ::Qor::BlipMessage qorBlip{source, __LINE__, format}; \
      if (::Qor::BlipRing::enabled(level)) {                                 \
         ::Qor::blip().writeEach(qorBlip, time, span);                       \
      }                                                                      \
   } while (false)
