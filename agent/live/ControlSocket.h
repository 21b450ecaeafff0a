// The control socket of a live agent: a unix stream socket on which operators send commands.
//
// A client sends one line, at most longestLine bytes: a command, with options in front: "-j " for an
// answer in compact JSON, and "-w N " for tables in lines of N columns. The agent sends a header line and the text of the answer, and ends the connection:
//    done N      the command succeeded; N bytes of text follow
//    failed N    the command failed; N bytes of text say why
//    watching    text follows as things change, until one side ends the connection
// The length shows a client whether the text is complete.
//
// Clients are not trusted. At most maxClients are connected, and maxWatching of them watch. When all
// places are in use, a further client takes the place of the longest connected one that has sent no
// complete line, or has not read its answer for slowTime; if there is none, it is refused. A client
// is dropped if its line does not come within lineTime, if the line is too long or has control
// characters, if an answer is not read within answerTime, and if more than maxOutput bytes wait for
// it. If more than maxAllOutput bytes wait for all clients, the client with the most is dropped. A
// turn of the loop answers one command, so that many clients do not stop the agent. No client delays
// another client for longer than its command takes.
//
// All clients are behind one epoll descriptor, so that the loop of the agent sees one source.
#pragma once

#include <functional>
#include <list>
#include <memory>
#include <string>
#include <string_view>

#include "agent/live/EventLoop.h"
#include "agent/live/Listener.h"
#include "agent/live/Timer.h"
#include "agent/report/OutputFormat.h"

namespace Agent {

// Identifies a connection for the life of the agent.
using ControlClientId = Qor::U64;

struct ControlRequest {
   std::string line;  // without its options and the end of the line
   OutputFormat format;
   ControlClientId client = 0;
};

struct ControlAnswer {
   std::string text;  // whole lines
   bool good = true;
   // The connection stays, and the agent pushes further text. Only a good answer can watch.
   bool watching = false;
   // The answer follows by answerIs(); the text is ignored.
   bool follows = false;

   static ControlAnswer failed(std::string reason) { return {std::move(reason) + '\n', false}; }
   static ControlAnswer later() { return {{}, true, false, true}; }
};

class ControlSocket final : public EventSource {
 public:
   static constexpr std::size_t longestLine = 65536;
   static constexpr std::size_t maxClients = 16;
   static constexpr std::size_t maxWatching = 12;
   static constexpr std::size_t maxOutput = 64 << 20;     // waiting for one client
   static constexpr std::size_t maxAllOutput = 96 << 20;  // waiting for all clients
   static constexpr Qor::Seconds lineTime = 10;
   static constexpr Qor::Seconds answerTime = 60;
   static constexpr Qor::Seconds slowTime = 5;

   // Answers a command. An exception of the handler becomes a failed answer with its text. Calls of
   // answerIs() and push() for the client of the request have no effect before the handler returns.
   using Handler = std::function<ControlAnswer(ControlRequest const&)>;
   // A client whose answer was `watching` has left, or was dropped or refused. Called from the loop,
   // never from push().
   using Ended = std::function<void(ControlClientId)>;

   // Listens at the path. Raises std::runtime_error (agent/live/Listener.h).
   ControlSocket(std::string const& path, Handler handler, Ended ended = {});
   ~ControlSocket() override;

   // Gives the answer that follows a request, within answerTime. Returns false if the client is not
   // connected any more.
   bool answerIs(ControlClientId client, ControlAnswer answer);
   // Sends text to a watching client. Returns false if that client is not connected any more, or is
   // dropped because it does not read.
   bool push(ControlClientId client, std::string_view text);

   std::size_t clients() const;
   // Clients that were refused or dropped so far.
   Qor::U64 refused() const { return refused_; }

   int fd() const override { return epoll_; }
   void ready(bool readable, bool writable) override;
   void turnEnds() override { removeDropped(); }

 private:
   struct Client;

   void accept();
   void admit(int fd);
   Client& replaceable();
   void serve(Client& client, unsigned events);
   void read(Client& client);
   void answer(Client& client, std::string line);
   void give(Client& client, ControlAnswer answer);
   void write(Client& client);
   bool makeRoom(Client const& client, std::size_t bytes);
   bool append(Client& client, std::string_view text);
   void refuse(Client& client, std::string const& reason);
   void drop(Client& client);
   void watchDescriptor(Client const& client, int operation) const;
   void listens(bool on);
   void removeDropped();
   void checkTimes();
   void setTimer();

   Handler const handler_;
   Ended const ended_;
   std::unique_ptr<Listener> const listener_;
   int const epoll_;
   std::list<Client> clients_;  // in the order of their connection
   ControlClientId lastId_ = 0;
   std::size_t waiting_ = 0;  // bytes of output that wait for all clients
   Qor::U64 refused_ = 0;
   Qor::Seconds acceptAgain_ = Qor::never;  // the system had no descriptors
   bool answered_ = false;                  // a command in this turn
   Timer timer_;
};

}  // namespace Agent
