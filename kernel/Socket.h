// A socket that speaks rtnetlink, behind an interface, so that tests play the kernel.
#pragma once

#include <cstddef>
#include <memory>
#include <span>

#include "Qor/Types.h"

namespace Kernel {

class Socket {
 public:
   enum class Result {
      message,  // a datagram was received
      empty,    // nothing is there
      overrun,  // the kernel dropped notifications or answers, since the receive buffer was full
      failed,   // the socket is of no use any more
   };

   virtual ~Socket() = default;

   // For poll(): readable while receive() has something to return.
   virtual int fd() const = 0;
   // The number by which the kernel marks the answers to requests of this socket.
   virtual Qor::U32 port() const = 0;
   // Receives one datagram, and never blocks. `datagram` is aligned to four bytes, and valid until
   // the next call.
   virtual Result receive(std::span<std::byte const>& datagram) = 0;
   // Sends requests. False: the kernel did not take them.
   virtual bool send(std::span<std::byte const> requests) = 0;
};

// A socket of the kernel in the present network namespace that receives the notifications which a
// Monitor needs. The kernel limits `receiveBuffer` (in bytes) unless the process has CAP_NET_ADMIN.
// Throws std::system_error.
std::unique_ptr<Socket> newSocket(int receiveBuffer);

}  // namespace Kernel
