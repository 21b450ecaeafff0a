// Comparisons of notification: an attribute of an entity with 0 to 64 reactors, beside a vector of
// pointers to objects with a virtual function; and binding and unbinding a reactor.
#include <memory>
#include <vector>

#include "Comparison.h"
#include "Qor/Entity.h"

namespace Bench {

namespace {

class Counter : public Qor::Entity<Counter> {
 public:
   class Notifiee : public Qor::NotifieeOf<Counter> {
    public:
      virtual void onValue() {}
   };
   U64 value() const { return value_; }
   void valueIs(U64 v) { attrIs<&Notifiee::onValue>(value_, v); }

 private:
   U64 value_ = 0;
};

class Reader final : public Counter::Notifiee {
 public:
   void onValue() override { benchmark::DoNotOptimize(++notifications_); }

 private:
   U64 notifications_ = 0;
};

class TwinReader {
 public:
   virtual ~TwinReader() = default;
   virtual void onValue() = 0;
};

class CountingTwinReader final : public TwinReader {
 public:
   void onValue() override { benchmark::DoNotOptimize(++notifications_); }

 private:
   U64 notifications_ = 0;
};

// The twin of an entity without reactors.
struct TwinOfNone {
   void valueIs(U64 v) {
      if (value == v) return;
      value = v;
      benchmark::DoNotOptimize(value);
   }
   U64 value = 0;
};

// The twin of an entity with one reactor: a pointer to the reader.
struct TwinOfOne {
   void valueIs(U64 v) {
      if (value == v) return;
      value = v;
      reader->onValue();
   }
   U64 value = 0;
   TwinReader* reader = nullptr;
};

// The twin of an entity with several reactors: a vector of pointers.
struct TwinOfMany {
   void valueIs(U64 v) {
      if (value == v) return;
      value = v;
      for (TwinReader* const reader : readers)
         reader->onValue();
   }
   U64 value = 0;
   std::vector<TwinReader*> readers;
};

constexpr unsigned times = 20'000;

template <class C>
auto notifying(C& counter) {
   return repeated(times, [&counter, value = U64{0}]() mutable {
      counter.valueIs(++value);
      benchmark::ClobberMemory();
   });
}

Rounds notify(std::size_t count) {
   auto const counter = Qor::make<Counter>();
   std::vector<std::unique_ptr<Reader>> readers;
   std::vector<std::unique_ptr<CountingTwinReader>> twinReaders;
   TwinOfOne one;
   TwinOfMany many;
   for (std::size_t n = 0; n < count; ++n) {
      readers.push_back(std::make_unique<Reader>());
      readers.back()->notifierIs(counter);
      twinReaders.push_back(std::make_unique<CountingTwinReader>());
      many.readers.push_back(twinReaders.back().get());
      one.reader = twinReaders.back().get();
   }
   unsigned const rounds = effort().rounds(0);
   benchmark::DoNotOptimize(&one);
   benchmark::DoNotOptimize(&many);
   TwinOfNone none;
   if (count == 0) return takeTurns(rounds, notifying(*counter), notifying(none));
   return count == 1 ? takeTurns(rounds, notifying(*counter), notifying(one))
                     : takeTurns(rounds, notifying(*counter), notifying(many));
}

// Binds and unbinds a reactor at an entity with `others` bound reactors.
Rounds attachAndDetach(std::size_t others) {
   auto const counter = Qor::make<Counter>();
   std::vector<std::unique_ptr<Reader>> readers;
   CountingTwinReader twinReader;
   TwinOfMany many;
   for (std::size_t n = 0; n < others; ++n) {
      readers.push_back(std::make_unique<Reader>());
      readers.back()->notifierIs(counter);
      many.readers.push_back(&twinReader);
   }
   Reader reader;
   return takeTurns(effort().rounds(0),
                    repeated(times,
                             [&] {
                                reader.notifierIs(counter);
                                benchmark::ClobberMemory();
                                reader.notifierIs(nullptr);
                             }),
                    repeated(times, [&] {
                       many.readers.push_back(&twinReader);
                       benchmark::ClobberMemory();
                       many.readers.pop_back();
                    }));
}

}  // namespace

void notificationComparisons() {
   for (std::size_t const count : {0, 1, 2, 8, 64}) {
      comparison("notification/" + std::to_string(count) + " reactors",
                 count == 0   ? Target::added(2)
                 : count == 1 ? Target::ratio(1.3)
                              : Target(),
                 [count] { return notify(count); });
   }
   for (std::size_t const others : {0, 8}) {
      comparison("notification/attach and detach, beside " + std::to_string(others), Target(),
                 [others] { return attachAndDetach(others); });
   }
}

}  // namespace Bench
