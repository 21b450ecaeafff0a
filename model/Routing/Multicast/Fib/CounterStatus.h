// The published route counters. The top-level multicast reactor writes them each time it polls the
// hardware. A view of the counters reads and watches them. CounterStatusCtl has the size of the
// table and controls the polling.
#pragma once

#include <ostream>
#include <utility>

#include "Qor/Collection.h"
#include "Qor/Entity.h"
#include "Routing/Multicast/Fib/IpGenRouteKey.h"

namespace Routing::Multicast::Fib {

class CounterStatus final : public Qor::Entity<CounterStatus, Qor::NamedEntity> {
 public:
   struct Entry final {
      Qor::U64 value = 0;          // in packets or bytes, by the counter mode
      Qor::Seconds timeStamp = 0;  // of the last write of the entry, on the Qor::now() time base
      bool active = false;         // the hardware counts the route at present

      friend bool operator==(Entry const&, Entry const&) = default;
      // "1500 at 3.5 s", or "1500 at 3.5 s, counting" for an active counter.
      friend std::ostream& operator<<(std::ostream& out, Entry const& e) {
         return out << e.value << " at " << e.timeStamp << " s" << (e.active ? ", counting" : "");
      }
   };

   class Notifiee : public Qor::NotifieeOf<CounterStatus> {
    public:
      // A route's counter was added or removed, or a field of its entry changed.
      virtual void onCounter(IpGenRouteKey const&) {}
      virtual void onCounterImmediate() {}

    protected:
      void onImmediate() override { onCounterImmediate(); }
   };
   using CounterColl = Qor::Collection<Qor::HashMap<IpGenRouteKey, Entry>, &Notifiee::onCounter,
                                       &Notifiee::onCounterImmediate>;

   explicit CounterStatus(Qor::Name name = "mfibCounterStatus") : Entity(std::move(name)) {}

   CounterColl::Map const& counter() const { return counter_.map(); }
   // Returns an entry of zeros for a route without a counter.
   Entry counter(IpGenRouteKey const& key) const { return counter_.value(key); }
   void counterIs(IpGenRouteKey key, Entry entry) { counter_.is(*this, key, entry); }
   void counterDel(IpGenRouteKey key) { counter_.del(*this, key); }
   CounterColl::Iterator counterDel(CounterColl::Iterator it) { return counter_.del(*this, it); }
   void counterDelAll() { counter_.delAll(*this); }
   void counterNotify(IpGenRouteKey key) { counter_.notify(*this, key); }

 private:
   ~CounterStatus() override = default;

   CounterColl counter_;
};

}  // namespace Routing::Multicast::Fib
