#include "programmer/Outputs.h"

#include <algorithm>
#include <unordered_set>
#include <utility>

#include "Qor/Exception.h"
#include "Qor/Hash.h"

namespace VelMroute {

// The objects in use, found by their members. Each object holds the table, so that it may outlive
// the pool.
class Outputs::Table final : public Qor::RefCounted {
 public:
   struct Hash {
      std::size_t operator()(Outputs const* outputs) const { return outputs->hash_; }
   };
   struct Equal {
      bool operator()(Outputs const* a, Outputs const* b) const { return *a == *b; }
   };

   std::unordered_set<Outputs const*, Hash, Equal> objects;
};

class Outputs::Maker {
 public:
   Qor::Ptr<Table> table;  // null: a candidate, which is only compared
};

namespace {

std::vector<Lnet::IntfId> members(std::vector<Lnet::IntfId> intfs, char const* list) {
   std::sort(intfs.begin(), intfs.end());
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

Outputs::Outputs(Maker const& maker, std::vector<Lnet::IntfId> ports, bool cpu,
                 std::vector<Lnet::IntfId> backup)
      : ports_(std::move(ports)),
        backup_(std::move(backup)),
        cpu_(cpu),
        hash_(Qor::hashFold(hashOf(backup_, Qor::hashMix(hashOf(ports_, 1), cpu)))),
        table_(maker.table) {}

Outputs::~Outputs() {
   if (table_) table_->objects.erase(this);
}

OutputsPool::OutputsPool() : table_(Qor::make<Outputs::Table>()) {}

OutputsPool::~OutputsPool() = default;

OutputsPtr OutputsPool::get(std::vector<Lnet::IntfId> ports, bool cpu,
                            std::vector<Lnet::IntfId> backup) {
   ports = members(std::move(ports), "ports");
   backup = members(std::move(backup), "backup");
   Qor::Ptr<Outputs> const made =
         Qor::make<Outputs>(Outputs::Maker{}, std::move(ports), cpu, std::move(backup));
   auto const [it, isNew] = table_->objects.insert(made.get());
   if (!isNew) return *it;
   made->table_ = table_;
   return made;
}

std::size_t OutputsPool::size() const {
   return table_->objects.size();
}

}  // namespace VelMroute
