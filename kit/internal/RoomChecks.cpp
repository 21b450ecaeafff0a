// The checks of full tables, and of the end of service. Real tables have no declared number of
// places: an IPv6 entry takes two, and groups share the memory of their members. So each check fills
// a table with one kind of things, and only compares its own counts.
#include <algorithm>

#include "Qor/Clock.h"
#include "kit/internal/Check.h"

namespace VelMroute::KitParts {

using MrouteLib::MtableOifSetPtr;
using MrouteLib::RouteHandle;
using Qor::U32;

namespace {

// Fills one table, by the calls of the table programmer.
class Filling {
 public:
   Filling(CheckRun& run, Life& life, Table table) : run_(run), life_(life), table_(table) {
      if (table != Table::entry) return;
      record_ = life.table().newRecord(life.spec(sourceGroup(0)), life.setNumber(0), false).record;
      if (!record_) fail("no set fits into an empty chip");
   }

   // Adds one thing. Returns whether it fits.
   bool add() {
      if (table_ == Table::group) {
         auto record =
               life_.table()
                     .newRecord(life_.spec(sourceGroup(1 + size())), life_.setNumber(size()), false)
                     .record;
         if (!record) return false;
         records_.push_back(std::move(record));
         return true;
      }
      // A key of its own for each, also after a removal from the middle.
      RouteTable::Spec spec = life_.spec(sourceGroup(1 + added_++));
      spec.bridge = table_ == Table::boundary;
      auto const entry = life_.table().newEntry(spec, spec.bridge ? nullptr : record_);
      if (entry.handle.isNull()) return false;
      handles_.push_back(entry.handle);
      return true;
   }
   // Adds things up to the limit of the options. Returns how many fit.
   U32 fill() {
      while (size() < run_.options.room && add())
         settleAtTimes();
      settle();
      return size();
   }
   // Removes one of the middle, so that the platform gets things back in no order of theirs.
   void remove() {
      if (table_ == Table::group) {
         std::swap(records_[records_.size() / 2], records_.back());
         records_.pop_back();
      } else {
         std::swap(handles_[handles_.size() / 2], handles_.back());
         life_.table().deleteEntry(handles_.back());
         handles_.pop_back();
      }
   }
   void removeAll() {
      while (size() > 0) {
         remove();
         settleAtTimes();
      }
      settle();
   }
   void settle() {
      while (life_.table().zombies() > 0)
         life_.table().purgeZombie();
      life_.table().commit();
      life_.settle();
   }
   U32 size() const {
      return static_cast<U32>(table_ == Table::group ? records_.size() : handles_.size());
   }
   [[noreturn]] void fail(Qor::String const& how) const {
      throw Difference{KitCulprit::platform, how};
   }
   // On the synchronous path the platform says whether the table is full.
   void expectFull(bool expected, char const* when) {
      SyncHookGate* const gate = life_.sync();
      if (!gate) return;
      bool const full = table_ == Table::group   ? gate->mtableFull(1)
                        : table_ == Table::entry ? gate->mrouteFull(1)
                                                 : gate->mrouteBoundaryFull(1);
      char const* const hook = table_ == Table::group   ? "mtableFull"
                               : table_ == Table::entry ? "mrouteFull"
                                                        : "mrouteBoundaryFull";
      if (full != expected) fail(text(when, ' ', hook, " returns ", full ? "true" : "false"));
   }
   // Lets go of everything, with the gate still open.
   void end() {
      removeAll();
      record_ = nullptr;
      settle();
   }

 private:
   // A slow chip gets no more writes at once than it can make within the patience of the options.
   void settleAtTimes() {
      if (size() % 32 == 0) settle();
   }

   CheckRun& run_;
   Life& life_;
   Table const table_;
   U32 added_ = 0;
   MtableOifSetPtr record_;  // at which the entries point
   std::vector<MtableOifSetPtr> records_;
   std::vector<RouteHandle> handles_;
};

// Changes that must cost no room in the end.
void churn(Life& life, bool reroute) {
   for (unsigned round = 0; round < 3; ++round) {
      for (unsigned n = 1; n <= 4; ++n) {
         Wish wish{.key = sourceGroup(5000 + n), .outs = {2 + (n + round) % 2}};
         if (reroute && n % 2 == 0) wish.backup = {2 + (n + round + 1) % 2};
         life.want(std::move(wish));
      }
      life.rest();
      life.link(0, false);
      life.rest();
      life.link(0, true);
   }
   life.unwantAll();
}

void checkRoom(CheckRun& run, Table table, char const* things) {
   auto const life = run.life();
   Filling filling(run, *life, table);
   filling.expectFull(false, "on an empty chip");
   U32 const first = filling.fill();
   if (first == 0) filling.fail(text("no ", things, " fit into an empty chip"));
   bool const full = first < run.options.room;
   if (full) filling.expectFull(true, "after a refusal");
   if (full && table == Table::group && life->sync()) {
      // An empty set needs no place.
      auto const empty = Qor::make<MrouteLib::OifSet>(nullptr, life->set({}));
      if (!life->table().newRecord(life->spec(sourceGroup(0)), empty, false).record) {
         filling.fail("an empty set gets no index while the table is full");
      }
      filling.settle();
   }
   filling.remove();
   filling.settle();
   filling.expectFull(false, "after one of all was removed");
   if (!filling.add())
      filling.fail(text("of ", first, ' ', things, " one is removed, and no other fits"));
   filling.settle();
   // The check of the gate has seen a few refusals in a row by now, if the platform has one too few.
   if (full && filling.add()) {
      filling.fail(text(first, ' ', things, " fit at first; of these one is removed, and two fit"));
   }
   for (unsigned round = 0; round < 2; ++round) {
      filling.removeAll();
      if (round == 1) {
         churn(*life, run.abilities.reroute);
         filling.settle();
      }
      filling.expectFull(false, "after all were removed");
      U32 const again = filling.fill();
      if (again != first) {
         filling.fail(text(first, ' ', things, " fit at first; all are removed",
                           round == 1 ? " after other changes" : "", ", and ", again, " fit"));
      }
   }
   filling.end();
   if (!full) {
      throw LeftOut{text("the table is not full after ", first, ' ', things,
                         ", and as many fit again; a smaller chip or a larger limit shows more")};
   }
   run.figures = text(first, ' ', things, " fit");
}

}  // namespace

void roomForSets(CheckRun& run) {
   checkRoom(run, Table::group, "sets");
}

void roomForEntries(CheckRun& run) {
   checkRoom(run, Table::entry, "entries");
}

void roomForBoundaries(CheckRun& run) {
   checkRoom(run, Table::boundary, "boundary entries");
}

// The service ends while routes are on the chip.
void endOfService(CheckRun& run) {
   auto const fill = [&](Life& life) {
      Filling filling(run, life, Table::group);
      filling.settle();
      U32 const fit = filling.fill();
      filling.end();
      return fit;
   };
   auto life = run.life();
   U32 const fit = fill(*life);
   for (unsigned n = 1; n <= 4; ++n)
      life->want({.key = sourceGroup(n), .outs = {2 + n % 2}});
   if (run.abilities.bridging) life->want({.key = sourceGroup(9), .bridge = true});
   life->rest();
   life->sync()->mrouteSwitchInit(1, false);
   life->settle();
   life->compareChip();
   life->shut();
   Life::Options next{.platform = Qor::Ptr<Platform>(&life->platform())};
   life.reset();
   // The chip is as empty for the next service as it was for this one.
   auto const again = run.life(std::move(next));
   for (unsigned n = 1; n <= 4; ++n)
      again->want({.key = sourceGroup(10 + n), .outs = {2 + n % 2}});
   again->rest();
   for (unsigned n = 1; n <= 4; ++n)
      again->unwant(sourceGroup(10 + n));
   again->rest();
   if (U32 const now = fill(*again); now != fit) {
      throw Difference{KitCulprit::platform,
                       text(fit, " sets fit at first; after the end of service ", now, " fit")};
   }
}

}  // namespace VelMroute::KitParts
