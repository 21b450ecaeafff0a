// Builds the requests of rtnetlink that a Monitor sends.
#pragma once

#include <cstddef>
#include <vector>

#include "kernel/Route.h"

struct nlmsghdr;

namespace Kernel {

// Requests behind each other, as one datagram takes them.
class Requests {
 public:
   std::vector<std::byte> const& bytes() const { return bytes_; }
   bool empty() const { return bytes_.empty(); }

   void dumpLinks(Qor::U32 sequence);
   void dumpAddresses(Qor::U32 sequence);
   void dumpRules(Qor::U32 sequence, Lnet::IpFamily family);
   // Of one table. A kernel older than 4.20 dumps all tables of the family.
   void dumpRoutes(Qor::U32 sequence, Lnet::IpFamily family, Qor::U32 table);
   // The kernel answers with the route or with ENOENT, which also stands for an unresolved route.
   void getRoute(Qor::U32 sequence, RouteKey const& key);

 private:
   template <class Header>
   nlmsghdr* begin(Qor::U32 sequence, unsigned type, bool dump, Header const& header);
   void end();

   std::vector<std::byte> bytes_;
   std::size_t begun_ = 0;
};

}  // namespace Kernel
