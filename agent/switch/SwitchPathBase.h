// The operations of SwitchPath that read the records of a table programmer. Both table programmers
// have the same collections of records and differ in the types, so this is a template.
#pragma once

#include <algorithm>
#include <utility>

#include "agent/switch/SwitchPath.h"
#include "platform/sim/Format.h"

namespace Agent {

template <class Switch>
class SwitchPathBase : public SwitchPath {
 public:
   std::optional<RecordRow> record(RouteProgrammer::Route const& route) const override {
      if (auto const record = Qor::ptrCast<Record>(route.record())) return row(*record);
      return std::nullopt;
   }
   std::vector<RecordRow> recordsInUse() const override {
      std::vector<RecordRow> rows;
      for (auto const& entry : mrouteSwitch_->inUseOifSet()) {
         auto const record = mrouteSwitch_->inUseRecord(entry.first);
         if (record && !record->zombie().isZombie()) rows.push_back(row(*record));
      }
      std::sort(rows.begin(), rows.end(),
                [](RecordRow const& a, RecordRow const& b) { return a.group < b.group; });
      return rows;
   }
   std::vector<RecordRow> zombieRecords() const override {
      std::vector<RecordRow> rows;
      for (auto const& entry : mrouteSwitch_->zombieOifSet())
         rows.push_back(row(*entry.second));
      return rows;
   }
   std::size_t zombies() const override { return mrouteSwitch_->zombieOifSet().size(); }
   std::size_t rerouting() const override { return mrouteSwitch_->frrProcessingOifSet().size(); }

 protected:
   using Record = typename Switch::RecordPtr::element_type;

   explicit SwitchPathBase(Qor::Ptr<Switch> mrouteSwitch)
         : mrouteSwitch_(std::move(mrouteSwitch)) {}

   Qor::Ptr<Switch> const& mrouteSwitch() const { return mrouteSwitch_; }

   // The faults of the collections that both paths have.
   std::vector<Qor::String> auditRecords() const {
      std::vector<Qor::String> faults;
      auto const fault = [&](auto const& oifSet, char const* what) {
         faults.push_back(fmt::format("{} {} {}", oifSet, oifSet->portVlanSet(), what));
      };
      for (auto const& [oifSet, named] : mrouteSwitch_->inUseOifSet()) {
         auto const record = mrouteSwitch_->record(oifSet, named);
         if (!record || record->deleted()) {
            fault(oifSet, "is in inUseOifSet, but its record is deleted");
         } else if (!record->dirty() && !record->zombie().isZombie() &&
                    !oifSet->portVlanSet().currentIif().isNull() &&
                    mrouteSwitch_->record(oifSet, mrouteSwitch_->frrMtableOifSet(oifSet)) !=
                          record) {
            fault(oifSet, "has a backup, but is not in frrMtableOifSet");
         }
      }
      for (auto const& [oifSet, named] : mrouteSwitch_->frrMtableOifSet()) {
         if (!mrouteSwitch_->record(oifSet, named)) {
            fault(oifSet, "is in frrMtableOifSet, but its record is deleted");
         }
      }
      for (auto const& [key, record] : mrouteSwitch_->zombieOifSet()) {
         if (!(record->zombie() == key) || record->deleted()) {
            fault(record->oifSet(), "is in zombieOifSet under the key of another record");
         }
      }
      return faults;
   }

   // A row with the members that depend on the path.
   virtual RecordRow rowOf(Record const& record) const = 0;

 private:
   RecordRow row(Record const& record) const {
      RecordRow row = rowOf(record);
      row.oifSet = record.oifSet();
      row.dirty = record.dirty();
      row.rewriteWaits = mrouteSwitch_->frrProcessingOifSet().find(record.oifSet()) != nullptr;
      row.expiryTime = record.zombie().expiryTime();
      return row;
   }

   Qor::Ptr<Switch> const mrouteSwitch_;
};

}  // namespace Agent
