#include "platform/openflow/Connection.h"

#include <fmt/format.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <system_error>

namespace OpenFlow {

namespace {

// A bridge that sends without end does not keep the thread from its other work.
constexpr std::size_t readPerTurn = 1 << 18;
constexpr U32 silenceAllowed = 3;

std::string errorText(int error) {
   return std::generic_category().message(error);
}

}  // namespace

Connection::Connection(Options const& options, Owner& owner)
      : options_(options),
        owner_(owner),
        retry_(options.retryMin),
        retryClock_(Qor::make<Qor::Clock>("bridge retry")),
        echoClock_(Qor::make<Qor::Clock>("bridge echo")),
        retryReactor_(this, &Connection::handleRetry, *retryClock_),
        echoReactor_(this, &Connection::handleEcho, *echoClock_) {}

Connection::~Connection() {
   close();
}

void Connection::start() {
   if (state_ != State::stopped) return;
   state_ = State::waiting;
   retry_ = options_.retryMin;
   retryClock_->timeMinIs(Qor::now());
}

void Connection::stop() {
   close();
   state_ = State::stopped;
   retryClock_->timeMinIs(Qor::never);
}

void Connection::close() {
   if (fd_ >= 0) ::close(fd_);
   fd_ = -1;
   ++life_;
   input_.clear();
   inputUsed_ = 0;
   output_.clear();
   outputSent_ = 0;
   echoClock_->timeMinIs(Qor::never);
}

void Connection::fail(std::string const& reason) {
   close();
   state_ = State::waiting;
   retryClock_->timeMinIs(Qor::now() + retry_);
   retry_ = std::min(retry_ * 2, options_.retryMax);
   owner_.closed(reason);
}

void Connection::handleRetry() {
   retryClock_->timeMinIs(Qor::never);
   connect();
}

void Connection::connect() {
   sockaddr_un address{};
   address.sun_family = AF_UNIX;
   if (options_.socket.empty() || options_.socket.size() >= sizeof address.sun_path) {
      return fail(fmt::format("the path \"{}\" is no socket's", options_.socket));
   }
   std::copy(options_.socket.begin(), options_.socket.end(), address.sun_path);
   fd_ = ::socket(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0);
   if (fd_ < 0 ||
       ::connect(fd_, reinterpret_cast<sockaddr const*>(&address), sizeof address) != 0) {
      return fail(fmt::format("cannot connect to {}: {}", options_.socket, errorText(errno)));
   }
   state_ = State::hello;
   silent_ = 0;
   heard_ = false;
   echoClock_->timeMinIs(Qor::now() + options_.echoInterval);
   send(helloMessage());
   flush();
}

// A peer that is silent is asked; one that opens without end is given up as well.
void Connection::handleEcho() {
   bool const alive = heard_ && open();
   heard_ = false;
   silent_ = alive ? 0 : silent_ + 1;
   if (silent_ >= silenceAllowed) {
      return fail(fmt::format("no answer for {:g} s", silenceAllowed * options_.echoInterval));
   }
   echoClock_->timeMinIs(Qor::now() + options_.echoInterval);
   if (!open() || alive) return;
   send(plainMessage(MessageType::echoRequest));
   flush();
}

U32 Connection::send(std::string message) {
   U32 const xid = nextXid_++;
   xidIs(message, xid);
   output_ += message;
   return xid;
}

void Connection::flush() {
   while (fd_ >= 0 && unsent() > 0) {
      ssize_t const sent =
            ::send(fd_, output_.data() + outputSent_, unsent(), MSG_NOSIGNAL | MSG_DONTWAIT);
      if (sent < 0 && errno == EINTR) continue;
      if (sent < 0 && (errno == EAGAIN || errno == EWOULDBLOCK)) break;
      // The reading side reports the reason of the end, and the messages before it.
      if (sent < 0) outputSent_ = output_.size();
      if (sent > 0) outputSent_ += static_cast<std::size_t>(sent);
   }
   if (unsent() == 0) {
      output_.clear();
      outputSent_ = 0;
   } else if (outputSent_ > (1 << 16)) {
      output_.erase(0, outputSent_);
      outputSent_ = 0;
   }
}

void Connection::ready(bool readable, bool writable) {
   if (writable) flush();
   if (readable && fd_ >= 0) read();
}

void Connection::read() {
   U32 const life = life_;
   for (std::size_t total = 0; total < readPerTurn;) {
      std::size_t const had = input_.size();
      constexpr std::size_t piece = 1 << 16;
      input_.resize(had + piece);
      ssize_t const got = ::recv(fd_, input_.data() + had, piece, MSG_DONTWAIT);
      int const error = errno;
      input_.resize(had + static_cast<std::size_t>(std::max<ssize_t>(got, 0)));
      if (got < 0 && error == EINTR) continue;
      if (got < 0 && (error == EAGAIN || error == EWOULDBLOCK)) return;
      if (got < 0) return fail("the connection broke: " + errorText(error));
      if (got == 0) return fail("the bridge closed the connection");
      total += static_cast<std::size_t>(got);
      heard_ = true;
      if (!handleInput() || life != life_) return;
   }
}

// Returns false if the connection has ended.
bool Connection::handleInput() {
   U32 const life = life_;
   try {
      while (true) {
         Bytes const bytes = Bytes(input_).subspan(inputUsed_);
         auto const header = headerOf(bytes);
         if (!header || bytes.size() < header->length) break;
         inputUsed_ += header->length;
         handleMessage(*header, bytes.subspan(headerSize, header->length - headerSize));
         if (life != life_) return false;
      }
   } catch (Malformed const& error) {
      fail(fmt::format("malformed message: {}", error.what()));
      return false;
   }
   input_.erase(input_.begin(), input_.begin() + static_cast<std::ptrdiff_t>(inputUsed_));
   inputUsed_ = 0;
   return true;
}

void Connection::handleMessage(Header const& header, Bytes body) {
   if (header.type != MessageType::hello && header.type != MessageType::error &&
       header.version != protocolVersion) {
      return fail(fmt::format("message of version {}", header.version));
   }
   if (header.type == MessageType::echoRequest) {
      std::string reply = echoReply(body);
      xidIs(reply, header.xid);
      // A peer that asks without end and reads nothing is silent for all other purposes.
      if (unsent() > (1 << 20)) return fail("the bridge does not read");
      output_ += reply;
      return flush();
   }
   if (header.type == MessageType::roleStatus && roleStatusOf(body) == Role::slave) {
      stop();
      return owner_.replaced();
   }
   if (open()) return owner_.received(header, body);
   handleOpening(header, body);
}

void Connection::handleOpening(Header const& header, Bytes body) {
   if (header.type == MessageType::error) return fail(textOf(errorOf(body)));
   switch (state_) {
      case State::hello:
         if (header.type != MessageType::hello) return fail("the bridge does not begin with hello");
         if (!helloFits(header.version, body)) return fail("the bridge has no OpenFlow 1.5");
         state_ = State::features;
         send(plainMessage(MessageType::featuresRequest));
         break;
      case State::features:
         if (header.type != MessageType::featuresReply) return;
         if (tablesOf(body) < tablesNeeded) return fail("the bridge has too few tables");
         state_ = State::roleQuery;
         send(roleRequest(Role::noChange, 0));
         break;
      case State::roleQuery: {
         if (header.type != MessageType::roleReply) return;
         U64 const known = roleReplyOf(body).generation;
         U64 generation = options_.generation();
         if (known != ~U64{0}) generation = std::max(generation, known + 1);
         state_ = State::roleRequest;
         send(roleRequest(Role::master, generation));
         break;
      }
      case State::roleRequest:
         if (header.type != MessageType::roleReply) return;
         if (roleReplyOf(body).role != Role::master) return fail("the bridge refuses the role");
         state_ = State::open;
         // Without a length, the bridge would not send the changes of ports.
         send(setConfig(128));
         owner_.opened();
         break;
      default:
         break;
   }
   flush();
}

}  // namespace OpenFlow
