#include "programmer/Outputs.h"

#include <algorithm>
#include <unordered_set>
#include <utility>

#include "Qor/Exception.h"
#include "Qor/Hash.h"

namespace VelMroute {

// The members of outputs.
class Outputs::Maker {
 public:
   std::vector<Lnet::IntfId>& ports;
   std::vector<Lnet::IntfId>& backup;
   bool cpu;
   Qor::U32 hash;
};

// The objects in use, found by their members. Each object holds the table, so that it may outlive
// the pool.
class Outputs::Table final : public Qor::RefCounted {
 public:
   struct Hash {
      using is_transparent = void;
      std::size_t operator()(Outputs const* outputs) const { return outputs->hash_; }
      std::size_t operator()(Maker const& maker) const { return maker.hash; }
   };
   struct Equal {
      using is_transparent = void;
      bool operator()(Outputs const* a, Outputs const* b) const { return a == b; }
      bool operator()(Maker const& a, Outputs const* b) const {
         return a.cpu == b->cpu_ && a.ports == b->ports_ && a.backup == b->backup_;
      }
   };

   std::unordered_set<Outputs const*, Hash, Equal> objects;
};

namespace {

std::vector<Lnet::IntfId> members(std::vector<Lnet::IntfId> intfs, char const* list) {
   // Names are dear to compare, and mostly in order.
   if (!std::is_sorted(intfs.begin(), intfs.end())) std::sort(intfs.begin(), intfs.end());
   intfs.erase(std::unique(intfs.begin(), intfs.end()), intfs.end());
   if (!intfs.empty() && intfs.front().isNull()) {
      Qor::throwRange(Qor::String("VelMroute::Outputs::") + list + " empty interface not allowed");
   }
   return intfs;
}

Qor::U64 hashOf(std::vector<Lnet::IntfId> const& intfs, Qor::U64 hash) {
   for (Lnet::IntfId const intf : intfs)
      hash = Qor::hashMix(hash, intf.id());
   return hash;
}

}  // namespace

Outputs::Outputs(Maker const& maker, Qor::Ptr<Table> table)
      : ports_(std::move(maker.ports)),
        backup_(std::move(maker.backup)),
        cpu_(maker.cpu),
        hash_(maker.hash),
        table_(std::move(table)) {}

Outputs::~Outputs() {
   table_->objects.erase(this);
}

OutputsPool::OutputsPool() : table_(Qor::make<Outputs::Table>()) {}

OutputsPool::~OutputsPool() = default;

OutputsPtr OutputsPool::get(std::vector<Lnet::IntfId> ports, bool cpu,
                            std::vector<Lnet::IntfId> backup) {
   ports = members(std::move(ports), "ports");
   backup = members(std::move(backup), "backup");
   Outputs::Maker const maker{ports, backup, cpu,
                              Qor::hashFold(hashOf(backup, Qor::hashMix(hashOf(ports, 1), cpu)))};
   auto const known = table_->objects.find(maker);
   if (known != table_->objects.end()) return *known;
   OutputsPtr const made = Qor::make<Outputs>(maker, table_);
   table_->objects.insert(made.get());
   return made;
}

std::size_t OutputsPool::size() const {
   return table_->objects.size();
}

}  // namespace VelMroute
