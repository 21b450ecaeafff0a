// The connection to a bridge: a unix socket, the version, the role, the liveness of the peer, and
// the framing of messages. Nothing here blocks.
//
// Opening. The peer must speak OpenFlow 1.5 alone. The connection then asks for the generation id
// that the bridge knows and takes the role of the master with a higher one. From then on the bridge
// refuses the writes of all earlier masters, also those under way. Another master ends the
// connection for good, since two agents would otherwise take the bridge from each other in turn.
#pragma once

#include <string>
#include <vector>

#include "Qor/Clock.h"
#include "platform/openflow/Message.h"
#include "platform/openflow/Options.h"

namespace OpenFlow {

class Connection {
 public:
   class Owner {
    public:
      virtual void opened() = 0;  // the role is taken
      virtual void received(Header const& header, Bytes body) = 0;
      virtual void closed(std::string const& reason) = 0;  // a new attempt follows
      virtual void replaced() = 0;                         // another master; no attempt follows

    protected:
      ~Owner() = default;
   };

   Connection(Options const& options, Owner& owner);
   ~Connection();
   Connection(Connection const&) = delete;
   Connection& operator=(Connection const&) = delete;

   void start();
   void stop();
   // Closes the connection; a new attempt follows. The owner is notified.
   void fail(std::string const& reason);
   // The connection is of use: the time between attempts is short again.
   void proved() { retry_ = options_.retryMin; }

   bool open() const { return state_ == State::open; }
   // Appends the message to the output, and returns the xid that it got.
   U32 send(std::string message);
   U32 nextXid() { return nextXid_++; }
   void flush();
   std::size_t unsent() const { return output_.size() - outputSent_; }

   int fd() const { return fd_; }
   bool wantsWrite() const { return fd_ >= 0 && unsent() > 0; }
   void ready(bool readable, bool writable);

 private:
   enum class State { stopped, waiting, hello, features, roleQuery, roleRequest, open };
   class QorClock final : public Qor::Clock::Notifiee {
    public:
      QorClock(Connection* connection, void (Connection::*handle)(), Qor::Clock const& clock)
            : connection_(connection), handle_(handle) {
         notifierIs(&clock);
      }
      void onTime() override { (connection_->*handle_)(); }

    private:
      Connection* const connection_;
      void (Connection::*const handle_)();
   };

   void connect();
   void close();
   void handleRetry();
   void handleEcho();
   void read();
   bool handleInput();
   void handleMessage(Header const& header, Bytes body);
   void handleOpening(Header const& header, Bytes body);

   Options const& options_;
   Owner& owner_;
   State state_ = State::stopped;
   int fd_ = -1;
   U32 life_ = 0;  // changes with each close
   U32 nextXid_ = 1;
   std::vector<U8> input_;
   std::size_t inputUsed_ = 0;
   std::string output_;
   std::size_t outputSent_ = 0;
   Qor::Seconds retry_;
   U32 silent_ = 0;  // the intervals without a byte of the peer
   bool heard_ = false;
   Qor::Ptr<Qor::Clock> const retryClock_;
   Qor::Ptr<Qor::Clock> const echoClock_;
   QorClock retryReactor_;
   QorClock echoReactor_;
};

}  // namespace OpenFlow
