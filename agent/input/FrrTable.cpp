#include "agent/input/FrrTable.h"

#include <algorithm>
#include <optional>
#include <utility>

#include "Lnet/IpGenAddr.h"
#include "agent/input/PrintableText.h"
#include "agent/input/RouteFields.h"

namespace Agent {

namespace {

// FRR's words in place of the name of an interface that it does not know.
bool isUnknown(std::string_view intf) {
   return intf.empty() || intf == "<iif?>" || intf == "<oif?>";
}

class FrrTable final : public TableHandler {
 public:
   using TableHandler::TableHandler;

   bool boolean(bool set) override {
      if (at(Level::source, "installed")) installed_ = set;
      return value("a boolean");
   }
   bool number_unsigned(number_unsigned_t number) override {
      if (at(Level::source, "installed")) installed_ = number != 0;
      return value("a number");
   }
   bool string(std::string& text) override {
      if (at(Level::source, "iif")) {
         iif_ = std::move(text);
         isTable_ = true;
      } else if (at(Level::output, "inboundInterface")) {
         inbound_ = std::move(text);
      } else {
         return value("a text");
      }
      return true;
   }
   bool start_object(std::size_t) override;
   bool end_object() override;
   bool start_array(std::size_t) override {
      if (!value("a list")) return false;
      ++skipped_;
      return true;
   }
   bool end_array() override {
      --skipped_;
      return true;
   }

 private:
   // The object whose members are being read.
   enum class Level { none, top, vrf, group, source, outputs, output };

   bool at(Level level, std::string_view key) const {
      return !skipped_ && level_ == level && key_ == key;
   }
   bool inRoute() const override { return level_ >= Level::source; }
   bool value(char const* kind) override;
   bool startVrf();
   static std::string vrfNamed(std::string const& name, bool v4, L3::VrfName& vrf);
   bool startOutput();
   bool endRoute();
   bool endTable();

   Level level_ = Level::none;
   bool inVrf_ = false;             // the groups are members of vrfs_.back(), and not of the table
   std::vector<std::string> vrfs_;  // those that the text names
   std::string group_, source_;
   bool installed_ = true;
   bool isTable_ = false;  // the route has "iif" or "oil"
   std::string iif_, inbound_;
   std::vector<Lnet::IntfId> oifs_;
};

// FRR may add members to a group, a route and an output, which are ignored.
bool FrrTable::value(char const* kind) {
   if (skipped_ || level_ == Level::group || level_ == Level::output) return true;
   if (level_ == Level::source && key_ != "oil") return true;
   if (level_ == Level::none) return fail(std::string(kind) + " is not a table of routes");
   return fail(inQuotes(key_) + " is " + kind + " where an object is expected");
}

bool FrrTable::start_object(std::size_t) {
   if (skipped_) {
      ++skipped_;
      return true;
   }
   switch (level_) {
      case Level::none:
         level_ = Level::top;
         return true;
      case Level::top:
         if (!Lnet::IpGenAddr::parse(key_)) return startVrf();
         inVrf_ = false;
         [[fallthrough]];
      case Level::vrf:
         group_ = key_;
         level_ = Level::group;
         return true;
      case Level::group:
         source_ = key_;
         level_ = Level::source;
         routeBegins();
         installed_ = true;
         isTable_ = false;
         iif_.clear();
         inbound_.clear();
         oifs_.clear();
         return true;
      case Level::source:
         if (key_ == "oil") {
            level_ = Level::outputs;
            isTable_ = true;
            return true;
         }
         break;
      case Level::outputs:
         return startOutput();
      case Level::output:
         break;
   }
   ++skipped_;
   return true;
}

// The VRF "default" of FRR has the kernel's default table in both address families.
std::string FrrTable::vrfNamed(std::string const& name, bool v4, L3::VrfName& vrf) {
   if (name == "default") return vrfOf(v4, std::nullopt, vrf);
   return vrfOf(v4, name, vrf);
}

bool FrrTable::startVrf() {
   L3::VrfName vrf;
   if (auto bad = vrfNamed(key_, true, vrf); !bad.empty()) return fail(std::move(bad));
   vrfs_.push_back(key_);
   inVrf_ = true;
   level_ = Level::vrf;
   return true;
}

bool FrrTable::startOutput() {
   level_ = Level::output;
   if (isUnknown(key_)) return true;
   Lnet::IntfId intf;
   if (auto bad = intfOf(key_, intf); !bad.empty()) return fail(std::move(bad));
   oifs_.push_back(intf);
   return true;
}

bool FrrTable::end_object() {
   if (skipped_) {
      --skipped_;
      return true;
   }
   switch (level_) {
      case Level::output:
         level_ = Level::outputs;
         return true;
      case Level::outputs:
         level_ = Level::source;
         return true;
      case Level::source:
         return endRoute();
      case Level::group:
         level_ = inVrf_ ? Level::vrf : Level::top;
         return true;
      case Level::vrf:
         level_ = Level::top;
         return true;
      case Level::top:
      case Level::none:
         break;
   }
   return endTable();
}

bool FrrTable::endRoute() {
   MrouteEvent route;
   bool const v6 = group_.find(':') != std::string::npos;
   std::string_view const any = v6 ? "::" : "0.0.0.0";
   if (auto bad = routeKeyOf(source_ == "*" ? any : source_, group_, route.key); !bad.empty()) {
      return fail(std::move(bad));
   }
   // Other tables of FRR have groups and sources, too.
   if (!isTable_) return fail("no \"iif\" and no \"oil\", which `show ip mroute json` prints");
   if (isUnknown(iif_)) iif_ = inbound_;
   if (!isUnknown(iif_)) {
      if (auto bad = intfOf(iif_, route.iif); !bad.empty()) return fail(std::move(bad));
   }
   if (auto bad = vrfNamed(inVrf_ ? vrfs_.back() : "default", !v6, route.vrf); !bad.empty()) {
      return fail(std::move(bad));
   }
   route.resolved = installed_ && route.iif;
   route.oifs = std::move(oifs_);
   add(std::move(route));
   level_ = Level::group;
   return true;
}

// A VRF without routes is known to be empty in the address family of the other VRFs.
bool FrrTable::endTable() {
   level_ = Level::none;
   if (event_.routes.empty()) return true;
   auto const family = event_.routes.front().key.group().family();
   for (std::string const& name : vrfs_) {
      SnapshotEvent::Scope scope{family, {}};
      vrfNamed(name, family == Lnet::IpFamily::v4, scope.vrf);
      if (std::ranges::find(event_.scopes, scope) == event_.scopes.end())
         event_.scopes.push_back(scope);
   }
   return true;
}

}  // namespace

bool looksLikeFrrTable(std::string_view text) {
   std::size_t const first = text.find_first_not_of(" \t\r\n");
   return first != std::string_view::npos && text[first] == '{';
}

std::unique_ptr<TableHandler> newFrrTable(std::string_view text, char const* const& reached,
                                          SnapshotEvent& event) {
   return std::make_unique<FrrTable>(text, reached, event);
}

}  // namespace Agent
