// The hardware counter of each counted multicast route.
//
// The platform writes the table when it assigns a counter to a route and when it withdraws the
// counter. A publisher of route counters looks the hardware counter of a route up. The library does
// not read the table: VelHelper::AsyncMrouteHelper holds it for the platform.
#pragma once

#include <utility>

#include "FlexCounters/CounterKeyTable.h"
#include "MrouteLib/MrouteCounterKey.h"
#include "Qor/Collection.h"
#include "Qor/Entity.h"

namespace MrouteLib {

class MrouteCounterKeyMapTable final
      : public Qor::Entity<MrouteCounterKeyMapTable, Qor::NamedEntity> {
 public:
   class Notifiee : public Qor::NotifieeOf<MrouteCounterKeyMapTable> {
    public:
      // The route gained a counter, lost its counter, or has another one.
      virtual void onCounterKey(MrouteCounterKey const&) {}
      virtual void onCounterKeyImmediate() {}

    protected:
      void onImmediate() override { onCounterKeyImmediate(); }
   };
   using CounterKeyColl =
         Qor::Collection<Qor::HashMap<MrouteCounterKey, Qor::U32>, &Notifiee::onCounterKey,
                         &Notifiee::onCounterKeyImmediate>;

   explicit MrouteCounterKeyMapTable(Qor::Name name = "mrouteCounterKeyMapTable")
         : Entity(std::move(name)) {}

   // The values are keys of FlexCounters::CounterKeyTable.
   CounterKeyColl::Map const& counterKey() const { return counterKey_.map(); }
   // Returns FlexCounters::noCounterKey for a route without a counter.
   Qor::U32 counterKey(MrouteCounterKey const& route) const {
      auto const* entry = counterKey_.map().find(route);
      return entry ? entry->second : FlexCounters::noCounterKey;
   }
   void counterKeyIs(MrouteCounterKey route, Qor::U32 key) { counterKey_.is(*this, route, key); }
   void counterKeyDel(MrouteCounterKey route) { counterKey_.del(*this, route); }
   CounterKeyColl::Iterator counterKeyDel(CounterKeyColl::Iterator it) {
      return counterKey_.del(*this, it);
   }
   void counterKeyDelAll() { counterKey_.delAll(*this); }
   void counterKeyNotify(MrouteCounterKey route) { counterKey_.notify(*this, route); }

 private:
   ~MrouteCounterKeyMapTable() override = default;

   CounterKeyColl counterKey_;
};

}  // namespace MrouteLib
