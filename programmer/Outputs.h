// The outputs of multicast routes, by interface name. Equal outputs are one object, which any
// number of routes of any number of programmers may use. The programmer turns names into port/vlan
// pairs; the identity of an object has no meaning for the chip.
#pragma once

#include <vector>

#include "Lnet/IntfId.h"
#include "Qor/Ptr.h"
#include "Qor/Types.h"

namespace VelMroute {

class OutputsPool;

class Outputs final : public Qor::RefCounted {
 public:
   // The interfaces that get a copy of each packet: in ascending order, each interface once.
   std::vector<Lnet::IntfId> const& ports() const { return ports_; }
   // The interfaces that replace `ports` when the input of the route fails, likewise. Empty: no
   // fast reroute.
   std::vector<Lnet::IntfId> const& backup() const { return backup_; }
   // Whether the CPU gets a copy.
   bool cpu() const { return cpu_; }
   bool empty() const { return ports_.empty() && !cpu_; }

   Qor::U32 hash() const { return hash_; }
   // Compares the members, so that objects of two pools may be equal.
   friend bool operator==(Outputs const& a, Outputs const& b) {
      return a.cpu_ == b.cpu_ && a.ports_ == b.ports_ && a.backup_ == b.backup_;
   }

   // For Qor::make alone, as OutputsPool::get() calls it.
   class Maker;
   class Table;
   Outputs(Maker const& maker, Qor::Ptr<Table> table);

 private:
   friend class OutputsPool;

   ~Outputs() override;

   std::vector<Lnet::IntfId> const ports_, backup_;
   bool const cpu_;
   Qor::U32 const hash_;
   Qor::Ptr<Table> const table_;
};

using OutputsPtr = Qor::Ptr<Outputs const>;

// Makes outputs and finds equal ones. The pool holds no object: an object that no route and no
// caller holds is deleted. Objects may outlive their pool. All calls come from the thread of the
// activity loop.
class OutputsPool final {
 public:
   OutputsPool();
   ~OutputsPool();
   OutputsPool(OutputsPool const&) = delete;
   OutputsPool& operator=(OutputsPool const&) = delete;

   // The order of `ports` and of `backup`, and repeated members, have no meaning. The empty
   // interface raises RangeException "VelMroute::Outputs::ports empty interface not allowed", or
   // "...::backup ...".
   OutputsPtr get(std::vector<Lnet::IntfId> ports, bool cpu = false,
                  std::vector<Lnet::IntfId> backup = {});
   // The number of objects that are in use.
   std::size_t size() const;

 private:
   Qor::Ptr<Outputs::Table> const table_;
};

}  // namespace VelMroute
