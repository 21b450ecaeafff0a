// The programmer of a path, and the operations of SwitchPath that read the records of its table
// programmer. Both table programmers have the same collections of records and differ in the types,
// so this is a template over the route table of the path.
#pragma once

#include <algorithm>
#include <type_traits>
#include <utility>

#include "agent/switch/SwitchPath.h"
#include "platform/Format.h"

namespace Agent {

template <class RouteTable>
class SwitchPathBase : public SwitchPath {
 public:
   Programmer& programmer() override { return programmer_; }
   Programmer const& programmer() const override { return programmer_; }

   std::optional<RecordRow> record(RouteView const& route) const override {
      if (auto const record = Qor::ptrCast<Record>(route.record())) return row(*record);
      return std::nullopt;
   }
   std::vector<RecordRow> recordsInUse() const override {
      std::vector<RecordRow> rows;
      for (auto const& entry : mrouteSwitch()->inUseOifSet()) {
         auto const record = mrouteSwitch()->inUseRecord(entry.first);
         if (record && !record->zombie().isZombie()) rows.push_back(row(*record));
      }
      std::sort(rows.begin(), rows.end(),
                [](RecordRow const& a, RecordRow const& b) { return a.group < b.group; });
      return rows;
   }
   std::vector<RecordRow> zombieRecords() const override {
      std::vector<RecordRow> rows;
      for (auto const& entry : mrouteSwitch()->zombieOifSet())
         rows.push_back(row(*entry.second));
      return rows;
   }
   std::size_t zombies() const override { return mrouteSwitch()->zombieOifSet().size(); }
   std::size_t rerouting() const override { return mrouteSwitch()->frrProcessingOifSet().size(); }

 protected:
   using SwitchPtr = std::remove_cvref_t<decltype(std::declval<RouteTable>().mrouteSwitch())>;
   using Record = typename SwitchPtr::element_type::RecordPtr::element_type;

   // `recovers`: an earlier agent left groups and entries on the chip.
   SwitchPathBase(Surroundings const& s, std::unique_ptr<RouteTable> table, bool recovers)
         : table_(*table),
           platform_(s.platform),
           programmer_({.table = std::move(table),
                        .vlans = s.intfVlanIdTable,
                        .published = s.mfibHwStatus,
                        .restart = recovers ? platform_->restart() : nullptr}) {}

   RouteTable& table() { return table_; }
   RouteTable const& table() const { return table_; }
   SwitchPtr const& mrouteSwitch() const { return table_.mrouteSwitch(); }
   VelMroute::View const* view() const { return platform_->view(); }
   // The number of places that the platform has given out; nothing if it does not know.
   std::optional<Qor::U32> allocated(Table table) const {
      return view() ? view()->use(table).allocated : std::nullopt;
   }

   // The faults of the collections that both paths have.
   std::vector<Qor::String> auditRecords() const {
      std::vector<Qor::String> faults;
      auto const fault = [&](auto const& oifSet, char const* what) {
         faults.push_back(fmt::format("{} {} {}", oifSet, oifSet->portVlanSet(), what));
      };
      for (auto const& [oifSet, named] : mrouteSwitch()->inUseOifSet()) {
         auto const record = mrouteSwitch()->record(oifSet, named);
         if (!record || record->deleted()) {
            fault(oifSet, "is in inUseOifSet, but its record is deleted");
         } else if (!record->dirty() && !record->zombie().isZombie() &&
                    !oifSet->portVlanSet().currentIif().isNull() &&
                    mrouteSwitch()->record(oifSet, mrouteSwitch()->frrMtableOifSet(oifSet)) !=
                          record) {
            fault(oifSet, "has a backup, but is not in frrMtableOifSet");
         }
      }
      for (auto const& [oifSet, named] : mrouteSwitch()->frrMtableOifSet()) {
         if (!mrouteSwitch()->record(oifSet, named)) {
            fault(oifSet, "is in frrMtableOifSet, but its record is deleted");
         }
      }
      for (auto const& [key, record] : mrouteSwitch()->zombieOifSet()) {
         if (!(record->zombie() == key) || record->deleted()) {
            fault(record->oifSet(), "is in zombieOifSet under the key of another record");
         }
      }
      return faults;
   }

   // A row with the members that depend on the path: index and usedInHw.
   virtual RecordRow rowOf(Record const& record) const = 0;

 private:
   RecordRow row(Record const& record) const {
      RecordRow row = rowOf(record);
      row.group = view() ? view()->groupOf(row.index) : std::nullopt;
      row.oifSet = record.oifSet();
      row.dirty = record.dirty();
      row.rewriteWaits = mrouteSwitch()->frrProcessingOifSet().find(record.oifSet()) != nullptr;
      row.expiryTime = record.zombie().expiryTime();
      return row;
   }

   RouteTable& table_;  // owned by the programmer
   Qor::Ptr<VelMroute::Platform> const platform_;
   Programmer programmer_;
};

}  // namespace Agent
