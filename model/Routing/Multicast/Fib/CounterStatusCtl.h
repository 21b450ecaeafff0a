// The control record of the counter status table: its limit, its present size, and whether the
// counters are polled. The top-level multicast reactor updates currSize and currActive with each
// counter that it adds, removes, starts or stops. A view of the counters writes pollingRefCnt; the
// platform writes the limit.
#pragma once

#include <limits>
#include <utility>

#include "Qor/Assert.h"
#include "Qor/Entity.h"

namespace Routing::Multicast::Fib {

class CounterStatusCtl final : public Qor::Entity<CounterStatusCtl, Qor::NamedEntity> {
 public:
   class Notifiee : public Qor::NotifieeOf<CounterStatusCtl> {
    public:
      virtual void onLimit() {}
      virtual void onCurrSize() {}
      virtual void onCurrActive() {}
      virtual void onPollingRefCnt() {}
   };

   explicit CounterStatusCtl(Qor::Name name = "mfibCounterStatusCtl") : Entity(std::move(name)) {}

   // The most counters in the table, which is full while currSize has reached the limit. Initially
   // the largest number, which means no limit.
   Qor::U32 limit() const { return limit_; }
   void limitIs(Qor::U32 v) { attrIs<&Notifiee::onLimit>(limit_, v); }

   // The number of counters in the table, and the number of active ones among them. A decrement
   // below zero fails an assertion.
   Qor::U32 currSize() const { return currSize_; }
   void currSizeInc() { currSizeIs(currSize_ + 1); }
   void currSizeDec() {
      QOR_ASSERT(currSize_ > 0);
      currSizeIs(currSize_ - 1);
   }
   Qor::U32 currActive() const { return currActive_; }
   void currActiveInc() { currActiveIs(currActive_ + 1); }
   void currActiveDec() {
      QOR_ASSERT(currActive_ > 0);
      currActiveIs(currActive_ - 1);
   }

   // The number of views that show the counters. The counters are polled only while it is not zero.
   Qor::U32 pollingRefCnt() const { return pollingRefCnt_; }
   void pollingRefCntIs(Qor::U32 v) { attrIs<&Notifiee::onPollingRefCnt>(pollingRefCnt_, v); }

 private:
   ~CounterStatusCtl() override = default;

   void currSizeIs(Qor::U32 v) { attrIs<&Notifiee::onCurrSize>(currSize_, v); }
   void currActiveIs(Qor::U32 v) { attrIs<&Notifiee::onCurrActive>(currActive_, v); }

   Qor::U32 limit_ = std::numeric_limits<Qor::U32>::max();
   Qor::U32 currSize_ = 0;
   Qor::U32 currActive_ = 0;
   Qor::U32 pollingRefCnt_ = 0;
};

}  // namespace Routing::Multicast::Fib
