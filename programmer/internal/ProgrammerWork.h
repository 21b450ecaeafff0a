// The work behind VelMroute::Programmer (programmer/Programmer.h).
//
//   concern                                             | source
//   ----------------------------------------------------+----------------------------------
//   wishes, views and changes for the owner             | internal/ProgrammerWishes.cpp
//   passes, errors of hooks, lines, looks at all routes | internal/ProgrammerPasses.cpp
//   the placement of one route                          | internal/ProgrammerPlacing.cpp
//   resyncs, restart and end                            | internal/ProgrammerResync.cpp
#pragma once

#include <algorithm>
#include <array>
#include <deque>
#include <map>
#include <utility>

#include "Qor/Clock.h"
#include "programmer/Programmer.h"
#include "programmer/internal/PublishedRoutes.h"
#include "programmer/internal/WaitingLine.h"

namespace VelMroute {

class ProgrammerWork final : private RouteTable::Listener {
 public:
   using Counters = Programmer::Counters;
   using Vrf = ProgrammedRoute::Vrf;

   ProgrammerWork(Programmer::Inputs inputs, Programmer::Options options);
   ~ProgrammerWork();
   ProgrammerWork(ProgrammerWork const&) = delete;
   ProgrammerWork& operator=(ProgrammerWork const&) = delete;

   RouteTable& table() { return *table_; }
   Qor::ActivityManager& loop() { return *loop_; }

   // ---- Wishes. ----

   bool routeIs(L3::VrfName const& vrf, RouteKey const& key, WantedRoute&& wanted);
   bool routeDel(L3::VrfName const& vrf, RouteKey const& key);
   ProgrammedRoute const* find(L3::VrfName const& vrf, RouteKey const& key) const;
   void forEach(std::function<void(ProgrammedRoute const&)> const& visit) const;
   Qor::U32 routes() const { return wantedRoutes_; }
   Qor::U32 waiting() const;
   Counters counters() const;
   bool settled() const;
   bool placedAll() const { return noneMarked() && !lookAgain_ && !looking_; }
   Qor::String reasonOf(ProgrammedRoute const& route) const;
   Wish::Resolved const& resolve(ProgrammedRoute const& route) const {
      return wishes_.resolve(*route.wish, route.wish->typeFor(route.key));
   }
   // The placement of the present wish; null without a wish, and while a vlan is missing.
   PlacementPtr presentPlacement(ProgrammedRoute const& route) const {
      return route.wish ? resolve(route).placement : nullptr;
   }
   std::optional<RouteView::Place> placeInLine(ProgrammedRoute const& route) const;
   bool changes(Qor::U32 most,
                std::function<void(L3::VrfName const&, RouteKey const&)> const& visit);
   void onChanges(std::function<void()> wake);

   void observerIs(Programmer::Observer* observer) { observer_ = observer; }

   // ---- Resync and end. ----

   void resyncBegin();
   void resyncEnd();
   bool resyncing() const { return resync_ != Resync::none; }
   bool recovering() const { return recovering_; }
   void onReroute(std::function<void(Lnet::IntfId)> handler) { rerouting_ = std::move(handler); }
   void end(Programmer::End how);
   bool ended() const { return end_ == Ending::ended; }

   // The route is looked at in the next pass.
   void mark(ProgrammedRoute& route);

 private:
   // A bound of the memory for changes under way, and of the queue in a platform.
   static constexpr Qor::U32 mostUnderWay = 16'384;

   struct Checked {};
   enum class Resync : unsigned char {
      none,
      naming,     // the owner names its routes
      dropping,   // a look at all routes removes those that were not named
      placing,    // the last of the named routes are being placed
      rerouting,  // the sets that come in over failed interfaces are being rewritten
      sweeping,   // found groups and entries without a route are being removed
   };
   enum class Ending : unsigned char { no, clean, leave, ended };
   // The share of one pass, which makes at least one step. The pass ends also when a step as long as
   // its longest one would end behind the budget: with slow hooks a step is a good part of it.
   class Budget {
    public:
      Budget(Qor::ActivityManager const& loop, Programmer::Options const& options)
            : loop_(loop),
              left_(options.routesPerPass),
              seen_(loop.now()),
              until_(seen_ + options.passBudget) {}
      bool spent() {
         if (left_ == 0 || !taken_) return left_ == 0;
         Qor::Seconds const now = loop_.now();
         longestStep_ = std::max(longestStep_, now - std::exchange(seen_, now));
         return now + longestStep_ > until_;
      }
      void take() {
         --left_;
         taken_ = true;
      }

    private:
      Qor::ActivityManager const& loop_;
      Qor::U32 left_;
      Qor::Seconds seen_;  // by the last spent()
      Qor::Seconds longestStep_ = 0;
      Qor::Seconds const until_;
      bool taken_ = false;
   };
   // Raised when the deletion of an entry threw and the table programmer still has the entry.
   struct EntryStays {};
   // The placement that a step of a pass aims at: the wish in the present vlans and VRF. Made once
   // for each change.
   struct Target {
      WishPtr wish;
      PlacementPtr at;  // null if a vlan is missing
      RouteTable::Spec spec;
      RouteTable::Needs needs;
   };
   // An entry that is to be deleted once its replacement is written.
   struct Leaving {
      MrouteLib::RouteHandle handle;
      Table table = Table::entry;
   };
   class QorClock;
   class VlanWatch;

   ProgrammerWork(Programmer::Inputs inputs, Programmer::Options options, Checked);

   // ---- Notifications, which only mark. ----

   void roomIs(Table table) override;
   void roomAnywhere() override;
   void vrfChanged() override;
   void vlanChanged();

   // ---- Passes. ----

   void schedulePass();
   void runPass();
   bool noneMarked() const { return marked_.empty() && held_.empty(); }
   bool mayBegin() const { return programming_ < mostUnderWay || end_ == Ending::leave; }
   RoutePtr nextMarked(Budget& budget);
   // Makes one step of the work on a route. An error fails the route alone.
   template <class Step>
   void guarded(ProgrammedRoute& route, Step const& step);
   void fail(ProgrammedRoute& route, Qor::String trouble, bool entryStays);
   void armRetry();
   void process(ProgrammedRoute& route);
   void remove(ProgrammedRoute& route);
   void forget(ProgrammedRoute& route);
   void serveLine(WaitingLine& line, Budget& budget);
   bool someMayTry() const;
   void tryAgain();
   void handleRetry();
   void lookAtAll();
   void look(Budget& budget);
   void lookAt(ProgrammedRoute& route);
   bool hasMoved(ProgrammedRoute const& route) const;
   void commitPass();

   // ---- Placing. ----

   bool aim(ProgrammedRoute& route, Target& target);
   void place(ProgrammedRoute& route);
   void placeWaiting(ProgrammedRoute& route, WaitingLine& line);
   void placeNew(ProgrammedRoute& route, Target const& target);
   static bool mustLeaveFirst(ProgrammedRoute const& route, Target const& target);
   void stepAside(ProgrammedRoute& route, Target const& target);
   static bool hasWantedSet(ProgrammedRoute const& route, Target const& target);
   static bool hasWantedEntry(ProgrammedRoute const& route, Target const& target);
   bool mustQueue(ProgrammedRoute& route, Target const& target);
   bool sharesGroup(Target const& target) const;
   std::optional<Table> keptForOthers(ProgrammedRoute const& route, Target const& target);
   void queueUp(ProgrammedRoute& route, Table table, Target const& target);
   void wait(ProgrammedRoute& route, RouteState state, Target const& target);
   void waitNoMore(ProgrammedRoute& route);
   void failed(ProgrammedRoute& route, Qor::String trouble, PlacementPtr at);
   RouteTable::Record allocateRecord(ProgrammedRoute& route, Target const& target);
   std::pair<MrouteLib::OifSetPtr, bool> sharedOifSet(Placement const& at);
   void retire(MrouteLib::OifSet const& oifSet);
   RouteTable::Refusal allocateEntry(ProgrammedRoute& route, Target const& target,
                                     MrouteLib::MtableOifSetPtr const& record);
   bool replaceEntry(ProgrammedRoute& route, Target const& target,
                     MrouteLib::MtableOifSetPtr const& record, Leaving& leaving);
   void pointAt(ProgrammedRoute& route, Target const& target, RouteTable::Record fresh);
   void point(ProgrammedRoute& route, Target const& target, RouteWrites& writes);
   // Whether other entries may have the vlan of an entry of the route.
   static bool hasSiblings(ProgrammedRoute const& route) {
      return route.owner() || !route.fastdrops().empty();
   }
   bool mustStandBack(ProgrammedRoute& route, Target const& target);
   void markSiblings(ProgrammedRoute& route);
   bool watchPending(ProgrammedRoute& route, RouteWrites& writes);
   void checkChange(ProgrammedRoute& route, RouteWrites& writes);
   void changeDone(ProgrammedRoute& route, RouteWrites& writes);
   void changeFailed(ProgrammedRoute& route, RouteWrites& writes, Qor::String const& reason);
   RouteChange& keepWrites(ProgrammedRoute& route, RouteWrites& writes);
   static MrouteLib::MtableOifSetPtr endChange(ProgrammedRoute& route, RouteWrites& writes);
   void release(ProgrammedRoute& route);
   void deleteEntry(ProgrammedRoute& route);
   void leaveEntry(Leaving const& leaving);
   bool tryDelete(MrouteLib::RouteHandle handle);
   void leaveRecord(MrouteLib::MtableOifSetPtr& record);
   void publish(ProgrammedRoute& route, Target const& target);
   void publishFastdrop(ProgrammedRoute& drop);
   void withdraw(ProgrammedRoute& route);
   void stateIs(ProgrammedRoute& route, RouteState state);
   void changed(ProgrammedRoute& route);

   static RouteState stateFor(Table table) {
      return static_cast<RouteState>(static_cast<int>(RouteState::waitingGroup) +
                                     static_cast<int>(table));
   }
   WaitingLine& line(Table table) { return lines_[static_cast<std::size_t>(table)]; }

   // ---- Wishes, resync, end. ----

   Vrf* vrfOf(L3::VrfName const& vrf);
   std::optional<Vel::VrfId> vrfIdOf(Vrf& vrf) const;
   void want(ProgrammedRoute& route, WishPtr wish);
   void wantNoMore(ProgrammedRoute& route);
   void recover();
   void goOnWithResync(Budget& budget);
   void goOnWithEnd(Budget& budget);
   void endRecovery();
   bool mayEnd() const;
   void handleSweep();

   std::unique_ptr<RouteTable> const table_;
   Programmer::Options const options_;
   Restart* const restart_;
   Qor::Ptr<PublishedRoutes> const published_;
   Qor::Ptr<Qor::ActivityManager> const loop_;
   Qor::Ptr<MrouteLib::MrouteTableColl> const tableColl_;
   WishPool wishes_;
   std::unique_ptr<VlanWatch> const vlanWatch_;

   std::map<L3::VrfName, Vrf> vrfs_;  // a VRF stays, with its routes or without
   Vrf* lastVrf_ = nullptr;           // the result of the last vrfOf()
   Qor::U64 vrfEpoch_ = 1;            // changes with each notification of VRFs
   Qor::U64 retired_ = 0;             // the number of oif sets that were retired
   // Routes for the next passes. While `mostUnderWay` changes are under way, the routes that would
   // begin another one are held.
   std::deque<RoutePtr> marked_;
   std::deque<RoutePtr> held_;
   std::array<WaitingLine, allTables.size()> lines_;  // by Table
   std::deque<RoutePtr> retried_;                     // routes that failed by an error
   std::vector<Leaving> strays_;                      // entries whose deletion threw
   std::deque<RoutePtr> listed_;                      // changes for the owner
   std::function<void()> wake_;
   Programmer::Observer* observer_ = nullptr;
   std::function<void(Lnet::IntfId)> rerouting_;
   Qor::U32 wantedRoutes_ = 0;
   Qor::U32 records_ = 0;      // routes and fastdrop entries in the tables of the VRFs
   Qor::U32 programming_ = 0;  // of these, in the state programming
   bool wrote_ = false;        // since the last commit
   Counters counters_;

   // The look at all routes: the VRF and the place of the route that is next.
   bool looking_ = false;
   bool lookAgain_ = false;
   std::map<L3::VrfName, Vrf>::iterator lookVrf_;
   Qor::U32 lookNext_ = 0;

   Resync resync_ = Resync::none;
   Lnet::IntfId rerouted_;  // the last failed interface that was rerouted for the resync
   Qor::U32 resyncs_ = 0;   // the number of the present resync
   bool recovering_ = false;
   std::array<Qor::U32, allTables.size()> free_{};  // while recovering, by Table
   std::vector<std::pair<L3::VrfName, RouteKey>> recovered_;
   Ending end_ = Ending::no;

   Qor::Ptr<Qor::Clock> const passClock_;
   Qor::Ptr<Qor::Clock> const retryClock_;  // armed while a route waits for room or failed
   Qor::Ptr<Qor::Clock> const sweepClock_;
   std::array<std::unique_ptr<QorClock>, 3> clockReactors_;
};

}  // namespace VelMroute
