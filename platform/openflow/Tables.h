// The routes' part of the tables, behind the hooks of the asynchronous path.
//
// Groups and entries that a hook has allocated, and found ones that no hook has taken yet, are kept
// here with their content. After each connection the content is compared with the bridge, and the
// differences are written. A hook that is called in between changes the content alone.
//
// A route is one flow with the action "group". The flow is added when the route is first pointed,
// and each pointing adds it again: the bridge then keeps its counts. A deletion names the cookie,
// so that it does not take the flow of a later route with the same match.
//
// Room. If the bridge reports a full table, the present use becomes the size of the table. The size
// returns to the configured one with the next connection.
#pragma once

#include <array>
#include <string>
#include <vector>

#include "Vel/VelAsyncMrouteHelper.h"
#include "platform/IdPool.h"
#include "platform/openflow/Pipeline.h"
#include "platform/openflow/WriteQueue.h"
#include "programmer/Found.h"

namespace OpenFlow {

class Tables final : public VelHelper::AsyncMrouteHelper,
                     public VelMroute::Restart,
                     private WriteQueue::Owner {
 public:
   // The connection, as the writes need it.
   class Sender {
    public:
      virtual U32 send(std::string message) = 0;
      virtual U32 nextXid() = 0;
      virtual std::size_t unsent() const = 0;
      virtual bool sends() const = 0;
      virtual void flush() = 0;
      virtual void differs() = 0;  // a write failed that no transaction reports

    protected:
      ~Sender() = default;
   };

   explicit Tables(Options const& options);
   void senderIs(Sender* sender) { sender_ = sender; }  // null at the end of the bridge

   Pipeline& pipeline() { return pipeline_; }
   Pipeline const& pipeline() const { return pipeline_; }
   WriteQueue& queue() { return queue_; }
   WriteQueue const& queue() const { return queue_; }

   // ---- Connections ----

   // The tables of the bridge, as they were read. Groups outside the range and foreign flows are
   // left out.
   struct Content {
      std::vector<Flow> flows;
      std::vector<GroupDesc> groups;
   };
   // The connection has ended. The writes under way stay pending, and resync() makes them good.
   void interrupted();
   bool writesPending() const { return (dirty_ && !cleared_) || !queue_.empty(); }
   // Compares, issues the differences, and lets the hooks write again.
   void resync(Content const& content);
   // Issues the changes of the pipeline; `first`: ahead of all other writes.
   void writePipeline(bool first);
   // Issues the deletion of everything, and holds all later writes.
   void clear();

   // ---- Readings ----

   // The packet count of the entry's flow at this time.
   void countIs(U32 handle, U64 packets, Qor::Seconds at);
   U32 groupsThere() const { return groupsThere_; }
   U32 routesThere() const { return routesThere_; }
   // The flows with the cookie of a route, found ones of no usable form included.
   U32 routeFlowsThere() const { return routesThere_ + static_cast<U32>(strays_.size()); }
   U32 groupsAllocated() const { return groupPool_.taken(); }
   U32 routesAllocated() const { return routePool_.taken(); }
   U32 groupSize() const { return groupSize_; }
   U32 routeSize() const { return routeSize_; }
   U64 writes(VelMroute::WriteKind kind) const { return writes_[static_cast<std::size_t>(kind)]; }
   bool groupKnown(U32 id) const { return isRouteGroup(id) && indexOf(id) < groups_.size(); }
   U64 groupWrites() const { return groupWrites_; }
   U64 flowWrites() const { return flowWrites_; }
   // The entry that a flow stands for; nothing for a flow of another form.
   static std::optional<Route> routeOf(Flow const& flow);
   static std::optional<U32> groupOf(Flow const& flow);
   // The members of a group; nothing if it has another form, or names an unknown interface.
   std::optional<std::vector<MrouteLib::PortVlan>> membersOf(GroupDesc const& group) const;

   std::vector<std::string> const& violations() const { return violations_; }
   std::vector<std::string> const& notes() const { return notes_; }
   void note(std::string text);  // for the audit

   // ---- Restart ----
   std::vector<Route> found() const override { return found_.listed(); }
   bool isFound(Route const& route) const override { return found_.isFound(route); }
   std::optional<U32> free(VelMroute::Table table) const override;
   bool sweep() override;
   U64 adopted() const override { return found_.adopted; }
   U64 swept() const override { return found_.swept; }

   // ---- The hooks ----
   U32 doAllocateSharableMulticastGroup(MrouteLib::RouteKeyInfo const& route,
                                        MrouteLib::OifSetPtr oifSet, Hux::XactPtr blockingXact,
                                        bool excludeEmptyMcid) override;
   U32 doAllocateFixedMulticastGroup(MrouteLib::OifSetPtr oifSet, Hux::XactPtr blockingXact,
                                     U32 mcastId) override;
   void doUpdateMulticastGroupInPlace(MrouteLib::OifSetPtr oifSet, U32 mcastId) override;
   Hux::XactPtr doGetXactForOifSet(U32 mcastId) override;
   Qor::String8 doGetXactFailureReason(Hux::XactPtr xact, VelHelper::MrouteXactType type) override;
   void doDeleteOifSet(U32 mcastId) override;
   MrouteLib::RouteHandle doAllocateRoute(Routing::Multicast::Fib::IpGenRouteKey const& routeKey,
                                          Bridging::VlanIdOrNone acceptingVlanId, bool bridgeAction,
                                          Wisp::Multicast::Fib::RpaIndex rpaId, U32 vrfId) override;
   void doSetMtableOifSet(MrouteLib::RouteHandle handle, U32 mcastId,
                          Hux::XactPtr blockingXact) override;
   Hux::XactPtr doGetXactForIngress(MrouteLib::RouteHandle handle) override;
   void doDeleteRoute(MrouteLib::RouteHandle handle) override;
   Qor::Seconds routeLastAccessedTime(MrouteLib::RouteHandle handle) override;
   double doGetAdjustedPollingInterval(double const& interval) override;
   double doGetAdjustedActivityPollInterval(double const& interval) override;

 private:
   using WriteKind = VelMroute::WriteKind;
   struct Group {
      bool allocated = false;
      bool found = false;   // on the bridge without an owner
      bool there = false;   // on the bridge, by the writes that have completed
      bool sent = false;    // likewise, by those that were sent
      bool opaque = false;  // found with a content that no request can have
      bool cpu = false;     // an output that the bridge cannot have
      std::vector<MrouteLib::PortVlan> members;
      WriteXactPtr xact;
      std::vector<WriteXactPtr> waiting;  // for the next connection
   };
   struct Entry {
      bool allocated = false;
      bool found = false;
      bool written = false;  // the flow has been sent, or was found
      bool there = false;    // on the bridge, by the writes that have completed
      Route route;
      U32 group = invalidMulticastId;      // where the entry points; none: it was never pointed
      U32 adoptedAt = invalidMulticastId;  // the group of an adopted entry until its first pointing
      WriteXactPtr point;
      std::vector<WriteXactPtr> waiting;  // for the next connection
      U64 packets = 0;
      Qor::Seconds lastHit = 0;
   };

   ~Tables() override;

   // ---- WriteQueue::Owner ----
   U32 send(std::string const& message) override;
   U32 sendBarrier() override;
   U32 nextXid() override { return sender_->nextXid(); }
   std::size_t unsent() const override { return sender_ ? sender_->unsent() : 0; }
   bool sends() const override { return sender_ && sender_->sends(); }
   void flush() override { sender_->flush(); }
   void completes(Write& write) override;

   bool isRouteGroup(U32 id) const { return id >= firstId_ && id <= options_.lastGroup; }
   U32 indexOf(U32 id) const { return id - firstId_; }
   Group& groupAt(U32 id);
   Entry& entryAt(U32 handle);
   bool groupAllocated(U32 id) const {
      return isRouteGroup(id) && indexOf(id) < groups_.size() && groups_[indexOf(id)].allocated;
   }
   bool routeAllocated(MrouteLib::RouteHandle handle) const {
      return handle.value() < entries_.size() && entries_[handle.value()].allocated;
   }
   void misused(char const* hook, char const* what, U32 number);
   GroupDesc describe(U32 id, Qor::String8& reason) const;
   static Flow describe(U32 handle, Entry const& entry);
   static WriteXactPtr done();  // a transaction of a change that needs no write
   static void moveTo(std::vector<WriteXactPtr>& to, std::vector<WriteXactPtr> from);
   void issue(Write write, bool first = false);
   void writeGroup(U32 id, MrouteLib::PortVlanSet const& set, Hux::XactPtr blocking);
   void issueGroup(U32 id, std::vector<WriteXactPtr> xacts, Hux::XactPtr blocking);
   void issuePoint(U32 handle, std::vector<WriteXactPtr> xacts, Hux::XactPtr blocking);
   void issueGroupDeletion(U32 id);
   void claim(U32 id);
   void deleteGroup(U32 id);
   void deleteEntry(U32 handle);
   void thereIs(Group& group, bool there);
   void thereIs(Entry& entry, bool there);
   void adopt(Content const& content);
   bool untouched() const { return !connected_ && groups_.empty() && entries_.empty(); }
   void resyncGroups(Content const& content, std::vector<WriteXactPtr>& complete);
   void resyncEntries(Content const& content, std::vector<WriteXactPtr>& complete);
   void deleteOrphans(Content const& content);
   // Deletes the flows of all tables whose cookies are those of the kind in the bits of the mask.
   void deleteFlows(CookieKind kind, Qor::U64 mask);

   Options const options_;
   U32 const firstId_;  // of the groups of routes
   Sender* sender_ = nullptr;
   Pipeline pipeline_;
   WriteQueue queue_{*this};
   VelMroute::IdPool groupPool_;
   VelMroute::IdPool routePool_;
   U32 groupSize_, routeSize_;   // as far as the bridge has shown
   std::vector<Group> groups_;   // by index, up to the highest used so far
   std::vector<Entry> entries_;  // by handle, likewise
   U32 groupsThere_ = 0, routesThere_ = 0;
   bool connected_ = false;  // once
   bool writing_ = false;    // there is a connection, and its resync() was called
   bool dirty_ = false;      // the content has changed without a connection
   bool cleared_ = false;    // for good, as far as this connection is concerned
   VelMroute::Found found_;
   std::vector<Flow> strays_;  // found flows of no usable form, until the sweep
   std::array<U64, VelMroute::writeKinds> writes_{};
   U64 groupWrites_ = 0, flowWrites_ = 0;
   std::vector<std::string> violations_, notes_;
};

}  // namespace OpenFlow
