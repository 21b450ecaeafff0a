// The hardware counters that a platform has allocated, keyed by the platform's numbers for them.
//
// The platform writes the table: it adds an entry with each hardware counter and removes it with
// the counter. A publisher of counter values watches the table. The library does not read it:
// VelHelper::AsyncMrouteHelper holds it for the platform.
#pragma once

#include <limits>
#include <utility>

#include "Qor/Collection.h"
#include "Qor/Entity.h"

namespace FlexCounters {

// A counter key that means "no counter".
inline constexpr Qor::U32 noCounterKey = std::numeric_limits<Qor::U32>::max();

class CounterKeyTable final : public Qor::Entity<CounterKeyTable, Qor::NamedEntity> {
 public:
   class Notifiee : public Qor::NotifieeOf<CounterKeyTable> {
    public:
      // A counter was added or removed, or started or stopped counting.
      virtual void onCounterKey(Qor::U32) {}
      virtual void onCounterKeyImmediate() {}

    protected:
      void onImmediate() override { onCounterKeyImmediate(); }
   };
   using CounterKeyColl = Qor::Collection<Qor::HashMap<Qor::U32, bool>, &Notifiee::onCounterKey,
                                          &Notifiee::onCounterKeyImmediate>;

   explicit CounterKeyTable(Qor::Name name = "counterKeyTable") : Entity(std::move(name)) {}

   // The values: true for a counter that counts, false for a reserved one.
   CounterKeyColl::Map const& counterKey() const { return counterKey_.map(); }
   // Returns false for an unknown key too.
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
