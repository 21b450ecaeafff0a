#include "agent/live/ControlSocket.h"

#include <fmt/format.h>
#include <sys/epoll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <exception>
#include <iterator>
#include <system_error>
#include <utility>

#include "agent/input/NumberText.h"

namespace Agent {

namespace {

constexpr Qor::Seconds descriptorGap = 1;  // until accept() is tried again
constexpr std::size_t writtenAtOnce = 1 << 20;

int newEpoll() {
   int const fd = ::epoll_create1(EPOLL_CLOEXEC);
   if (fd < 0) throw std::system_error(errno, std::generic_category(), "epoll");
   return fd;
}

std::string framed(ControlAnswer const& answer) {
   if (answer.watching) return "watching\n" + answer.text;
   return fmt::format("{} {}\n{}", answer.good ? "done" : "failed", answer.text.size(),
                      answer.text);
}

bool isControl(char c) {
   auto const byte = static_cast<unsigned char>(c);
   return (byte < ' ' && c != '\t') || byte == 0x7f;
}

}  // namespace

struct ControlSocket::Client {
   enum class State { sendsLine, awaitsAnswer, takesAnswer, watches, dropped };

   std::size_t waiting() const { return output.size() - sent; }

   ControlClientId id;
   int fd;
   Qor::Seconds deadline;
   State state = State::sendsLine;
   bool announce = false;  // the owner learns of its end
   std::string input = {};
   std::string output = {};
   std::size_t sent = 0;  // bytes of the output
};

ControlSocket::ControlSocket(std::string const& path, Handler handler, Ended ended)
      : handler_(std::move(handler)),
        ended_(std::move(ended)),
        listener_(Listener::unixSocket(path)),
        epoll_(newEpoll()),
        timer_("control socket", [this] { checkTimes(); }) {
   listens(true);
}

ControlSocket::~ControlSocket() {
   for (Client const& client : clients_) {
      if (client.state != Client::State::dropped) ::close(client.fd);
   }
   ::close(epoll_);
}

std::size_t ControlSocket::clients() const {
   return static_cast<std::size_t>(std::count_if(
         clients_.begin(), clients_.end(),
         [](Client const& client) { return client.state != Client::State::dropped; }));
}

// A client is asked for input until its line is complete; a client that watches, to see it leave.
void ControlSocket::watchDescriptor(Client const& client, int operation) const {
   epoll_event event{};
   event.data.ptr = const_cast<Client*>(&client);
   bool const reads =
         client.state == Client::State::sendsLine || client.state == Client::State::watches;
   if (reads) event.events |= EPOLLIN;
   if (client.waiting() > 0) event.events |= EPOLLOUT;
   ::epoll_ctl(epoll_, operation, client.fd, &event);
}

void ControlSocket::listens(bool on) {
   epoll_event event{};
   event.events = EPOLLIN;
   ::epoll_ctl(epoll_, on ? EPOLL_CTL_ADD : EPOLL_CTL_DEL, listener_->fd(), &event);
}

void ControlSocket::ready(bool, bool) {
   answered_ = false;
   std::array<epoll_event, maxClients + 1> events;
   int const count = ::epoll_wait(epoll_, events.data(), static_cast<int>(events.size()), 0);
   bool connecting = false;
   for (int i = 0; i < count; ++i) {
      epoll_event const& event = events[static_cast<std::size_t>(i)];
      if (event.data.ptr) {
         serve(*static_cast<Client*>(event.data.ptr), event.events);
      } else {
         connecting = true;
      }
   }
   removeDropped();
   if (connecting) accept();
   setTimer();
}

void ControlSocket::accept() {
   for (std::size_t i = 0; i < maxClients; ++i) {
      int const fd = ::accept4(listener_->fd(), nullptr, nullptr, SOCK_CLOEXEC | SOCK_NONBLOCK);
      if (fd >= 0) {
         admit(fd);
      } else if (errno == EMFILE || errno == ENFILE || errno == ENOBUFS || errno == ENOMEM) {
         // The listener stays readable, and the loop would turn without a pause.
         listens(false);
         acceptAgain_ = Qor::now() + descriptorGap;
         return;
      } else if (errno != ECONNABORTED && errno != EINTR) {
         return;
      }
   }
}

void ControlSocket::admit(int fd) {
   Client& client = clients_.emplace_back(Client{++lastId_, fd, Qor::now() + lineTime});
   watchDescriptor(client, EPOLL_CTL_ADD);
   if (clients() <= maxClients) return;
   refuse(replaceable(), "too many clients are connected");
}

// The client that leaves its place to another one: at worst the one that has just connected.
ControlSocket::Client& ControlSocket::replaceable() {
   Qor::Seconds const slow = Qor::now() + answerTime - slowTime;
   return *std::find_if(clients_.begin(), std::prev(clients_.end()), [&](Client const& client) {
      return client.state == Client::State::sendsLine ||
             (client.state == Client::State::takesAnswer && client.deadline <= slow);
   });
}

void ControlSocket::serve(Client& client, unsigned events) {
   if (client.state == Client::State::dropped) return;
   // Input stays in the socket while a command of this turn has been answered.
   if ((events & EPOLLIN) != 0) {
      if (answered_ && client.state == Client::State::sendsLine) return;
      read(client);
   } else if ((events & (EPOLLERR | EPOLLHUP)) != 0) {
      drop(client);
   }
   if (client.state != Client::State::dropped && (events & EPOLLOUT) != 0) write(client);
}

void ControlSocket::read(Client& client) {
   std::array<char, longestLine> bytes;
   ssize_t const size = ::recv(client.fd, bytes.data(), bytes.size(), MSG_DONTWAIT);
   if (size < 0 && (errno == EAGAIN || errno == EINTR)) return;
   if (size <= 0 || client.state == Client::State::watches) return drop(client);
   std::string_view const text(bytes.data(), static_cast<std::size_t>(size));
   std::size_t const end = text.find('\n');
   client.input += text.substr(0, end);
   if (client.input.size() > longestLine) return refuse(client, "the command is too long");
   if (end == std::string_view::npos) {
      if (std::any_of(text.begin(), text.end(), isControl))
         refuse(client, "the command has control characters");
      return;
   }
   if (end + 1 != text.size()) return refuse(client, "a connection takes one command");
   if (!client.input.empty() && client.input.back() == '\r') client.input.pop_back();
   if (std::any_of(client.input.begin(), client.input.end(), isControl))
      return refuse(client, "the command has control characters");
   answer(client, std::exchange(client.input, {}));
}

void ControlSocket::answer(Client& client, std::string line) {
   answered_ = true;
   ControlRequest request{std::move(line), {}, client.id};
   if (request.line.starts_with("-j ")) {
      request.format.json = true;
      request.line.erase(0, 3);
   }
   constexpr std::string_view widthOption = "-w ";
   if (request.line.starts_with(widthOption)) {
      std::size_t const end =
            std::min(request.line.find(' ', widthOption.size()), request.line.size() - 1);
      std::string const width = request.line.substr(widthOption.size(), end - widthOption.size());
      if (!parseNumber(width, request.format.width))
         return give(client, ControlAnswer::failed("\"-w\" needs a number of columns"));
      request.line.erase(0, end + 1);
   }
   ControlAnswer answer;
   try {
      answer = handler_(request);
   } catch (std::exception const& error) {
      answer = ControlAnswer::failed(error.what());
   }
   if (answer.follows) {
      client.state = Client::State::awaitsAnswer;
      client.deadline = Qor::now() + answerTime;
      watchDescriptor(client, EPOLL_CTL_MOD);
   } else {
      give(client, std::move(answer));
   }
}

bool ControlSocket::answerIs(ControlClientId id, ControlAnswer answer) {
   auto const client = std::find_if(clients_.begin(), clients_.end(), [&](Client const& other) {
      return other.id == id && other.state == Client::State::awaitsAnswer;
   });
   if (client == clients_.end()) return false;
   give(*client, std::move(answer));
   setTimer();
   return true;
}

void ControlSocket::give(Client& client, ControlAnswer answer) {
   client.announce = answer.watching;
   if (answer.text.size() > maxOutput)
      answer = ControlAnswer::failed("the answer is too long for the control socket: select less");
   auto const watching = std::count_if(clients_.begin(), clients_.end(), [](Client const& other) {
      return other.state == Client::State::watches;
   });
   if (answer.watching && static_cast<std::size_t>(watching) >= maxWatching)
      answer = ControlAnswer::failed("too many clients watch");
   if (!makeRoom(client, answer.text.size()))
      answer = ControlAnswer::failed("other clients do not read their answers; try again later");
   client.state = answer.watching ? Client::State::watches : Client::State::takesAnswer;
   append(client, framed(answer));
   write(client);
}

// Drops the clients for which more waits than for this one, until there is room.
bool ControlSocket::makeRoom(Client const& client, std::size_t bytes) {
   while (waiting_ + bytes > maxAllOutput) {
      auto const most = std::max_element(
            clients_.begin(), clients_.end(),
            [](Client const& a, Client const& b) { return a.waiting() < b.waiting(); });
      if (most->waiting() <= client.waiting() + bytes) return false;
      refuse(*most, "the client does not read");
   }
   return true;
}

// Returns false if the client reads too slowly.
bool ControlSocket::append(Client& client, std::string_view text) {
   constexpr std::size_t header = 64;
   if (client.waiting() + text.size() > maxOutput + header) return false;
   if (client.waiting() == 0) client.deadline = Qor::now() + answerTime;
   client.output += text;
   waiting_ += text.size();
   return true;
}

void ControlSocket::write(Client& client) {
   std::size_t const before = client.sent;
   while (client.waiting() > 0 && client.sent - before < writtenAtOnce) {
      ssize_t const size = ::send(client.fd, client.output.data() + client.sent, client.waiting(),
                                  MSG_DONTWAIT | MSG_NOSIGNAL);
      if (size < 0 && errno == EINTR) continue;
      if (size < 0 && errno == EAGAIN) break;
      if (size <= 0) return drop(client);
      client.sent += static_cast<std::size_t>(size);
      waiting_ -= static_cast<std::size_t>(size);
   }
   bool const watches = client.state == Client::State::watches;
   if (client.waiting() == 0) {
      if (!watches) return drop(client);
      client.output.clear();
      client.sent = 0;
      client.deadline = Qor::never;
   } else if (client.sent > before && watches) {
      // Half of the output is erased at a time, so that a slow reader costs no long moves.
      if (client.sent > client.output.size() / 2) {
         client.output.erase(0, client.sent);
         client.sent = 0;
      }
      client.deadline = Qor::now() + answerTime;
   }
   watchDescriptor(client, EPOLL_CTL_MOD);
}

bool ControlSocket::push(ControlClientId id, std::string_view text) {
   auto const client = std::find_if(clients_.begin(), clients_.end(), [&](Client const& other) {
      return other.id == id && other.state == Client::State::watches;
   });
   if (client == clients_.end()) return false;
   bool const room = makeRoom(*client, text.size()) && append(*client, text);
   if (room) {
      write(*client);
   } else {
      ++refused_;
      drop(*client);
   }
   setTimer();
   return client->state == Client::State::watches;
}

// The reason is sent if the socket has room for it.
void ControlSocket::refuse(Client& client, std::string const& reason) {
   ++refused_;
   if (client.state == Client::State::sendsLine || client.state == Client::State::awaitsAnswer) {
      std::string const text = framed(ControlAnswer::failed(reason));
      static_cast<void>(::send(client.fd, text.data(), text.size(), MSG_DONTWAIT | MSG_NOSIGNAL));
   }
   drop(client);
}

// The descriptor is closed at once, and the client is removed when nothing refers to it.
void ControlSocket::drop(Client& client) {
   ::close(client.fd);
   waiting_ -= client.waiting();
   client.output = {};
   client.sent = 0;
   client.state = Client::State::dropped;
}

void ControlSocket::removeDropped() {
   for (auto client = clients_.begin(); client != clients_.end();) {
      if (client->state != Client::State::dropped) {
         ++client;
         continue;
      }
      ControlClientId const id = client->id;
      bool const announce = client->announce;
      client = clients_.erase(client);
      if (announce && ended_) ended_(id);
   }
}

void ControlSocket::checkTimes() {
   Qor::Seconds const now = Qor::now();
   if (acceptAgain_ <= now) {
      acceptAgain_ = Qor::never;
      listens(true);
   }
   for (Client& client : clients_) {
      if (client.state != Client::State::dropped && client.deadline <= now)
         refuse(client, client.state == Client::State::sendsLine ? "no command came in time"
                                                                 : "the agent has no answer yet");
   }
   removeDropped();
   setTimer();
}

void ControlSocket::setTimer() {
   Qor::Seconds next = acceptAgain_;
   for (Client const& client : clients_) {
      if (client.state != Client::State::dropped) next = std::min(next, client.deadline);
   }
   timer_.at(next);
}

}  // namespace Agent
