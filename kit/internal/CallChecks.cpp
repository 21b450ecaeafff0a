// The checks that call the hooks themselves, through the gate of a life.
#include "Qor/Clock.h"
#include "kit/internal/Check.h"

namespace VelMroute::KitParts {

using Hux::Xact;
using Hux::XactPtr;
using MrouteLib::RouteHandle;
using Qor::Seconds;
using Qor::U32;

namespace {

constexpr Seconds poll = 0.05;     // between two readings of hits
constexpr Seconds rounding = 1.0;  // of the times of hits

MrouteLib::OifSetPtr newSet(Life const& life, unsigned out) {
   return Qor::make<MrouteLib::OifSet>(nullptr, life.set({out}));
}

// The calls of the asynchronous path, as its switch makes them.
class Calls {
 public:
   explicit Calls(Life& life) : life_(life), gate_(*life.async()) {}

   AsyncHookGate& gate() { return gate_; }
   U32 group(unsigned out, XactPtr const& blocking = nullptr) {
      RouteTable::Spec const spec = life_.spec(sourceGroup(1));
      U32 const id = gate_.doAllocateSharableMulticastGroup(
            {spec.key, spec.vrf, spec.vlan, spec.type}, newSet(life_, out), blocking, false);
      if (gate_.mcastIdIsValid(id)) return id;
      throw Difference{KitCulprit::platform, "no group is free on a chip that has hardly any"};
   }
   RouteHandle entry(RouteKey const& key) {
      RouteTable::Spec const spec = life_.spec(key);
      RouteHandle const handle =
            gate_.doAllocateRoute(key, spec.vlan, false, spec.rpaId, spec.vrfId.value());
      if (!handle.isNull()) return handle;
      throw Difference{KitCulprit::platform, "no entry is free on a chip that has hardly any"};
   }
   // Returns whether the transaction completes within the patience of the options.
   bool completes(XactPtr const& xact, Seconds patience) {
      for (Seconds const end = Qor::now() + patience; xact && xact->pending();) {
         if (Qor::now() > end) return false;
         life_.wait(0.002);
      }
      return true;
   }

 private:
   Life& life_;
   AsyncHookGate& gate_;
};

void expectCopies(Life& life, RouteKey const& key, std::vector<unsigned> const& outs,
                  Qor::String const& when) {
   Probe::Seen const seen = life.send(key);
   std::vector<MrouteLib::PortVlan> expected;
   for (unsigned const out : outs)
      expected.emplace_back(life.port(out).intf, life.port(out).vlan);
   if (seen.copies == expected) return;
   throw Difference{KitCulprit::platform,
                    text(when, ", a packet of ", key, " goes to ",
                         ChipComparison::members(seen.copies, seen.cpu),
                         ", expected: ", ChipComparison::members(expected, false))};
}

}  // namespace

// A transaction of the kit blocks a group write, and then a pointing.
void blockingTransaction(CheckRun& run) {
   auto const life = run.life();
   Calls calls(*life);
   auto& gate = calls.gate();
   RouteKey const key = sourceGroup(1);
   U32 const first = calls.group(2), second = calls.group(3);
   RouteHandle const handle = calls.entry(key);
   gate.doSetMtableOifSet(handle, first, gate.doGetXactForOifSet(first));
   life->settle();
   expectCopies(*life, key, {2}, "before the blocked change");
   auto const ofPointing = Qor::make<Xact>();
   gate.doSetMtableOifSet(handle, second, ofPointing);
   XactPtr const pointing = gate.doGetXactForIngress(handle);
   life->wait(0.5);
   expectCopies(*life, key, {2}, "behind a pending transaction, the entry is pointed already");
   ofPointing->stateIs(Xact::State::succeeded);
   if (!calls.completes(pointing, run.options.patience)) {
      throw Difference{KitCulprit::platform,
                       text("doSetMtableOifSet behind a blocking transaction: its own does not "
                            "complete within ",
                            run.options.patience, " s after the blocking one")};
   }
   life->settle();
   expectCopies(*life, key, {3}, "after the blocked change");
   auto const ofGroup = Qor::make<Xact>();
   U32 const third = calls.group(2, ofGroup);
   XactPtr const write = gate.doGetXactForOifSet(third);
   life->wait(0.5);
   if (write && !write->pending()) {
      throw Difference{KitCulprit::platform,
                       "the write of a group completes before its blocking transaction"};
   }
   ofGroup->stateIs(Xact::State::succeeded);
   if (!calls.completes(write, run.options.patience)) {
      throw Difference{KitCulprit::platform, text("a group write behind a blocking transaction "
                                                  "does not complete within ",
                                                  run.options.patience, " s after it")};
   }
   gate.doDeleteRoute(handle);
   for (U32 const id : {first, second, third})
      gate.doDeleteOifSet(id);
   life->settle();
   expectCopies(*life, key, {}, "after the deletion");
}

// An entry is pointed behind a group write that fails: no packet is forwarded, and the pointing fails.
void failedSet(CheckRun& run) {
   auto const life = run.life();
   Calls calls(*life);
   auto& gate = calls.gate();
   RouteKey const key = sourceGroup(1);
   life->faults().failNext(WriteKind::groupCreate, "planned by the kit");
   U32 const id = calls.group(2);
   RouteHandle const handle = calls.entry(key);
   XactPtr const write = gate.doGetXactForOifSet(id);
   gate.doSetMtableOifSet(handle, id, write);
   XactPtr const pointing = gate.doGetXactForIngress(handle);
   life->settle();
   if (!write || write->state() != Xact::State::failed) {
      throw LeftOut{"the planned failure of a group write does not fail its transaction"};
   }
   if (!pointing || pointing->state() != Xact::State::failed) {
      throw Difference{KitCulprit::platform,
                       text("the write of group ", id, " has failed, and the pointing of entry ",
                            handle, " at it has not")};
   }
   expectCopies(*life, key, {}, "behind a failed group");
   for (auto const& [xact, type] : {std::pair{write, VelHelper::MrouteXactType::oifSet},
                                    std::pair{pointing, VelHelper::MrouteXactType::ingress}})
      static_cast<void>(gate.doGetXactFailureReason(xact, type));  // checked by the gate
   gate.doDeleteRoute(handle);
   gate.doDeleteOifSet(id);
   life->settle();
}

// On the asynchronous path the transaction of a later group shows that the deletion is applied.
void deletions(CheckRun& run) {
   auto const life = run.life();
   RouteKey const key = sourceGroup(1), other = sourceGroup(2);
   if (run.path == HookPath::async) {
      Calls calls(*life);
      auto& gate = calls.gate();
      for (unsigned round = 0; round < 3; ++round) {
         U32 const id = calls.group(2), more = calls.group(3);
         RouteHandle const handle = calls.entry(key), kept = calls.entry(other);
         gate.doSetMtableOifSet(handle, id, gate.doGetXactForOifSet(id));
         gate.doSetMtableOifSet(kept, more, gate.doGetXactForOifSet(more));
         life->settle();
         expectCopies(*life, key, {2}, "before the deletion");
         gate.doDeleteRoute(handle);
         gate.doDeleteOifSet(id);
         U32 const fence = calls.group(2);
         if (!calls.completes(gate.doGetXactForOifSet(fence), run.options.patience)) {
            throw Difference{KitCulprit::platform, "a group write does not complete"};
         }
         expectCopies(*life, key, {}, "behind its deletion and a later group that is written");
         expectCopies(*life, other, {3}, "after the deletion of another entry");
         gate.doDeleteRoute(kept);
         for (U32 const left : {more, fence})
            gate.doDeleteOifSet(left);
         life->settle();
      }
   }
   for (unsigned round = 0; round < 3; ++round) {
      life->want({.key = key, .outs = {2}});
      life->want({.key = other, .outs = {3}});
      life->rest();
      life->unwant(key);
      life->rest();
   }
}

// ---- Hits. ----

namespace {

[[noreturn]] void wrongHit(Qor::String const& how) {
   throw Difference{KitCulprit::platform, how};
}

void asyncHits(CheckRun& run, Life& life, RouteKey const& key) {
   auto& gate = *life.async();
   RouteHandle const handle = life.programmer().route(life.vrf(), key)->handle;
   auto const read = [&] { return gate.routeLastAccessedTime(handle); };
   RouteHandle const idle = life.programmer().route(life.vrf(), sourceGroup(2))->handle;
   Seconds last = read();
   if (last != 0.0) wrongHit(text("the last hit is at ", last, " s before any packet"));
   for (unsigned round = 0; round < 2; ++round) {
      Seconds const sent = Qor::now();
      life.send(key);
      Seconds hit = read();
      for (Seconds const end = sent + run.options.patience; hit <= last && Qor::now() < end;) {
         life.wait(poll);
         hit = read();
      }
      if (hit <= last) wrongHit(text("a packet at ", sent, " s, and the last hit stays at ", last));
      if (hit < sent - rounding || hit > Qor::now()) {
         wrongHit(text("a packet at ", sent, " s, and the last hit is at ", hit, " s"));
      }
      // The reading may come from a cache, so a first one is let through.
      life.wait(1);
      last = read();
      life.wait(1);
      if (Seconds const again = read(); again != last) {
         wrongHit(text("no packet, and the last hit moves from ", last, " s to ", again, " s"));
      }
      if (gate.routeLastAccessedTime(idle) != 0.0) {
         wrongHit("a hit is reported for an entry that no packet has hit");
      }
   }
}

void syncHits(CheckRun& run, Life& life, RouteKey const& key) {
   auto& gate = *life.sync();
   auto const vrfId = static_cast<Qor::U16>(run.options.vrfId.value());
   auto const bit = [&](RouteKey const& of) {
      return gate.mrouteHitBit(1, vrfId, of, life.port(0).vlan, false);
   };
   // Both entries are asked in each review, so that a bit for all entries shows.
   bool idle = false;
   auto const review = [&] {
      Seconds const end = Qor::now() + run.options.patience;
      while (gate.mrouteHitBitCacheRefresh(1) == VelHelper::MrouteSmHelper::hitBitCacheBusy) {
         if (Qor::now() > end) wrongHit("the hit bits are busy all the time");
         life.wait(Qor::Clock::retryGap);
      }
      bool const hit = bit(key);
      idle = bit(sourceGroup(2)) || idle;
      gate.mrouteHitBitCacheClear(1);
      return hit;
   };
   if (review()) wrongHit("a hit is reported before any packet");
   for (unsigned round = 0; round < 2; ++round) {
      life.send(key);
      bool hit = review();
      for (Seconds const end = Qor::now() + run.options.patience; !hit && Qor::now() < end;) {
         life.wait(poll);
         hit = review();
      }
      if (!hit) wrongHit("a packet hits the entry, and no review reports it");
      if (review()) wrongHit("a review reports a hit again, without a packet in between");
      if (idle) wrongHit("a hit is reported for an entry that no packet has hit");
   }
}

}  // namespace

void hitTimes(CheckRun& run) {
   auto const life = run.life();
   RouteKey const key = sourceGroup(1);
   life->want({.key = key, .outs = {2}});
   life->want({.key = sourceGroup(2), .outs = {3}});
   life->settle();  // no packet is sent before the first reading
   life->compareWishes(true);
   if (life->async()) {
      asyncHits(run, *life, key);
   } else {
      syncHits(run, *life, key);
   }
}

}  // namespace VelMroute::KitParts
