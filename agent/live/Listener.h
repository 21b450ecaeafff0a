// Sockets on which the agent listens for its operators: unix sockets, and TCP on this machine alone.
#pragma once

#include <sys/types.h>

#include <memory>
#include <string>

namespace Agent {

// A listening socket that does not block. Its destruction closes the socket and removes the file of
// a unix socket, unless another program has replaced that file.
class Listener {
 public:
   // Listens at a path with mode 0660. The file of an agent that has died is replaced. Raises
   // std::runtime_error with one line if a live program listens there, if the file is no socket, or
   // if the system refuses.
   static std::unique_ptr<Listener> unixSocket(std::string const& path);
   // Listens at "ADDRESS:PORT". The address must be of 127.0.0.0/8, and port 0 chooses a free port.
   // Raises std::runtime_error as above.
   static std::unique_ptr<Listener> loopback(std::string const& address);

   ~Listener();
   Listener(Listener const&) = delete;
   Listener& operator=(Listener const&) = delete;

   int fd() const { return fd_; }
   // The TCP port; 0 for a unix socket.
   int port() const;

 private:
   explicit Listener(int fd) : fd_(fd) {}
   void bindTo(std::string const& path);

   int const fd_;
   std::string path_;  // empty: no file to remove
   dev_t device_ = 0;
   ino_t inode_ = 0;
};

}  // namespace Agent
