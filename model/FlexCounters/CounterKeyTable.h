// The hardware counters that a platform has taken into use, by the platform's own numbers for them.
//
// The platform writes the table: an entry appears with a hardware counter and goes with it. Who
// publishes counter values watches it. The multicast programmers only keep it alive for their
// platform.
#pragma once

#include <limits>
#include <utility>

#include "Qor/Collection.h"
#include "Qor/Entity.h"

namespace FlexCounters {

// Stands for no counter where a counter key is expected.
inline constexpr Qor::U32 noCounterKey = std::numeric_limits<Qor::U32>::max();

class CounterKeyTable final : public Qor::Entity<CounterKeyTable, Qor::NamedEntity> {
 public:
   class Notifiee : public Qor::NotifieeOf<CounterKeyTable> {
    public:
      // A counter key was added or removed, or began or ceased to count.
      virtual void onCounterKey(Qor::U32) {}
      virtual void onCounterKeyImmediate() {}

    protected:
      void onImmediate() override { onCounterKeyImmediate(); }
   };
   using CounterKeyColl = Qor::Collection<Qor::HashMap<Qor::U32, bool>, &Notifiee::onCounterKey,
                                          &Notifiee::onCounterKeyImmediate>;

   explicit CounterKeyTable(Qor::Name name = "counterKeyTable") : Entity(std::move(name)) {}

   // The value says whether the counter counts (true) or is only reserved (false).
   CounterKeyColl::Map const& counterKey() const { return counterKey_.map(); }
   // False for an unknown key, too.
   bool counterKey(Qor::U32 key) const { return counterKey_.value(key); }
   void counterKeyIs(Qor::U32 key, bool active) { counterKey_.is(*this, key, active); }
   void counterKeyDel(Qor::U32 key) { counterKey_.del(*this, key); }
   CounterKeyColl::Iterator counterKeyDel(CounterKeyColl::Iterator it) {
      return counterKey_.del(*this, it);
   }
   void counterKeyDelAll() { counterKey_.delAll(*this); }
   void counterKeyNotify(Qor::U32 key) { counterKey_.notify(*this, key); }

 private:
   ~CounterKeyTable() override = default;

   CounterKeyColl counterKey_;
};

}  // namespace FlexCounters
