// The control record of the counter status table: how many counters it may hold and holds, and
// whether they are polled. The top-level multicast reactor keeps the two counts with each counter
// it adds, removes, activates or stops; whoever shows counters writes pollingRefCnt, and the
// platform the limit.
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

   // The table is full while limit is not above currSize. No limit unless one is set.
   Qor::U32 limit() const { return limit_; }
   void limitIs(Qor::U32 v) { attrIs<&Notifiee::onLimit>(limit_, v); }

   // Counters in the table, and how many of them are active. A decrement below zero is an
   // assertion.
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

   // How many want to see the counters. The hardware's counters are read only while it is not zero.
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
