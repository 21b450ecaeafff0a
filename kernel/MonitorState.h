// The state of a Monitor: the reading of the kernel's tables, and the changes that each message causes.
//
// A unit is something that one dump reads: all links, all addresses, the rules of a family, or one
// table. One dump is under way at a time. A unit is wanted until a dump of it has been complete.
#pragma once

#include <list>
#include <optional>

#include "Qor/Clock.h"
#include "kernel/LinkTable.h"
#include "kernel/Listener.h"
#include "kernel/Message.h"
#include "kernel/MonitorOptions.h"
#include "kernel/Request.h"
#include "kernel/RouteAsks.h"
#include "kernel/RouteTable.h"

namespace Kernel {

class MonitorState {
 public:
   MonitorState(MonitorOptions options, Socket& socket, Listener& listener);

   void ready();
   void refresh();
   void ask(RouteKey const& key, RouteAnswered answered);

   Socket& socket() const { return socket_; }
   bool synced() const { return synced_; }
   RouteTable const& routes() const { return routes_; }
   LinkTable const& links() const { return links_; }
   std::vector<Rule> const& rules(Lnet::IpFamily family) const { return rules_[isV6(family)]; }
   Qor::U32 selectedTable(Lnet::IpFamily family, Qor::U32 input) const;
   MonitorCounts const& counts() const { return counts_; }

 private:
   struct Unit {
      enum class Kind { links, addresses, rules, existence, routes };

      Kind kind;
      Lnet::IpFamily family = Lnet::IpFamily::none;
      Qor::U32 table = 0;
      bool wanted = true;
      bool blocked = false;  // wanted again at the retry time, since the kernel refused the dump
      bool later = false;    // likewise, since the latest dump left routes unconfirmed
      bool exists = false;   // the table
      Qor::U32 round = 0;    // dumps since the unit was wanted, without the first

      bool ofTable() const { return kind == Kind::routes || kind == Kind::existence; }
   };
   struct Dump {
      Unit* unit;
      Qor::U32 sequence;
      bool interrupted = false;
      bool notified = false;  // notifications about the family arrived
      bool deleted = false;   // some of which were deletions
      bool revealed = false;  // the dump had a route that was unknown
   };
   class QorClock final : public Qor::Clock::Notifiee {
    public:
      explicit QorClock(MonitorState& owner) : owner_(owner) {}
      void onTime() override { owner_.handleClock(); }

    private:
      MonitorState& owner_;
   };

   static constexpr Qor::Seconds soon = 0.02;  // until the kernel has room again

   static bool isV6(Lnet::IpFamily family) { return family == Lnet::IpFamily::v6; }

   // Messages.
   void handle(Message& message);
   void handleNotification(Message& message);
   void handleRecord(Message& message);
   void handleAnswer(RouteAsks::Ask& ask, Message& message);
   bool handleRefusal(RouteAsks::Ask const& ask, int error);
   void notifiedRoute(RouteMessage const& message);
   void listedRoute(RouteMessage const& message);
   void handleOverrun();
   void fail();

   // The reading.
   void wantAll();
   void wantTables(Lnet::IpFamily family);
   void tablesChanged(Lnet::IpFamily family);
   void probeTables(Lnet::IpFamily family);
   void startNext();
   void sendDump(Unit& unit);
   void endDump(int error);
   void abandonDump();
   bool endRoutes(Dump const& dump, int error);
   void endRules(Dump const& dump);
   void retryAfter(Qor::Seconds delay);
   Unit const* unitOf(Lnet::IpFamily family, Qor::U32 table) const;
   Unit* unitOf(Lnet::IpFamily family, Qor::U32 table);
   bool followed(RouteKey const& key) const;
   bool reading() const;
   bool readingLinks() const;

   // The turn.
   void handleClock();
   void work();
   void send();
   void notifyLinks();
   void notifyProgress();

   MonitorOptions const options_;
   Socket& socket_;
   Listener& listener_;
   RouteTable routes_;
   LinkTable links_;
   RouteAsks asks_;
   std::vector<Rule> rules_[2];          // IPv4, IPv6
   std::vector<Rule> listedRules_;       // of the dump under way
   bool rulesChanged_[2] = {};           // and not yet notified
   bool withoutRequest_[2] = {};         // the kernel has no request for a single route
   bool staleTables_[2] = {};            // changed without a notification
   Qor::Seconds staleFirst_ = 0;         // the first time since the last reading
   Qor::Seconds staleDue_ = Qor::never;  // when the reading begins
   std::list<Unit> units_;               // in the order of reading
   std::optional<Dump> dump_;
   Qor::U32 sequence_ = 0;
   Qor::Seconds retryAt_ = Qor::never;
   bool started_ = false;  // the first reading is complete, so that routes are notified
   bool synced_ = false;
   bool announce_ = true;  // synced() is to be called
   Qor::Seconds completeAt_ = Qor::never;
   bool draining_ = false;  // from an overrun until the receive buffer is empty
   bool failed_ = false;
   bool busy_ = false;  // within a call of the listener, or about to work
   MonitorCounts counts_;
   Qor::Ptr<Qor::Clock> const clock_ = Qor::make<Qor::Clock>("kernel monitor");
   QorClock clockReactor_{*this};
};

}  // namespace Kernel
