// The tables of a bridge, as they were last read.
#pragma once

#include <map>
#include <vector>

#include "platform/View.h"
#include "platform/openflow/Tables.h"

namespace OpenFlow {

class TableView final : public VelMroute::View {
 public:
   // Reads flows and groups, and passes them; null if that fails.
   using Read = std::function<void(std::function<void(Tables::Content const*)>)>;

   TableView(Tables const& tables, Read read) : tables_(tables), read_(std::move(read)) {}

   void refresh(std::function<void(bool read)> const& done) override;
   Qor::Seconds asOf() const override { return asOf_; }
   std::optional<U32> groupOf(U32 index) const override;
   std::optional<Group> group(U32 number) const override;
   std::optional<Entry> entry(MrouteLib::RouteHandle handle) const override;
   void forEachEntry(std::function<void(Entry const&)> const& visit) const override;
   void forEachEntryOf(Vel::VrfId vrfId, RouteKey const& key,
                       std::function<void(Entry const&)> const& visit) const override;
   void forEachGroup(
         std::function<void(U32 number, Group const& group)> const& visit) const override;
   Use use(VelMroute::Table table) const override;
   std::optional<U64> writes(VelMroute::WriteKind kind) const override {
      return tables_.writes(kind);
   }
   std::optional<bool> linkUp(Lnet::IntfId intf) const override {
      return tables_.pipeline().linkUp(intf);
   }
   std::optional<bool> sends(Lnet::IntfId intf) const override {
      return tables_.pipeline().sends(intf);
   }

 private:
   Tables const& tables_;
   Read const read_;
   Qor::Seconds asOf_ = 0;
   std::map<U32, Entry> entries_;  // by number
   std::map<U32, Group> groups_;
   std::multimap<RouteKey, U32> byKey_;
};

}  // namespace OpenFlow
