#include "agent/input/InterfaceMap.h"

#include <algorithm>
#include <charconv>
#include <utility>

#include "Qor/Assert.h"
#include "agent/input/InputKind.h"
#include "agent/input/LineSource.h"
#include "agent/input/PrintableText.h"
#include "agent/input/RouteFields.h"

namespace Agent {

namespace {

std::string_view nextWord(std::string_view& text) {
   constexpr std::string_view blanks = " \t";
   text.remove_prefix(std::min(text.find_first_not_of(blanks), text.size()));
   std::string_view const word = text.substr(0, text.find_first_of(blanks));
   text.remove_prefix(word.size());
   return word;
}

// The value of "NAME=N", or a reason.
std::string numberOf(std::string_view word, std::string_view name, unsigned max,
                     std::optional<unsigned>& number) {
   std::string_view const text = word.substr(name.size());
   unsigned value = 0;
   auto const [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
   if (error == std::errc::invalid_argument || end != text.data() + text.size()) {
      return "bad number in " + inQuotes(word);
   }
   if (error != std::errc() || value < 1 || value > max) {
      return inQuotes(word) + " is out of range: 1 to " + std::to_string(max);
   }
   if (number) return inQuotes(word) + " is the second of its kind in the line";
   number = value;
   return "";
}

}  // namespace

bool InterfaceMap::isRegisterDevice(std::string_view name) {
   for (std::string_view const device : {"pimreg", "pim6reg"}) {
      if (name.starts_with(device) &&
          name.find_first_not_of("0123456789", device.size()) == std::string_view::npos) {
         return true;
      }
   }
   return false;
}

std::optional<InputError> InterfaceMap::load(std::string const& file) {
   if (auto misused = misusedFile(file, InputUse::interfaceMap)) return misused;
   InterfaceMap loaded;
   LineSource source(file);
   while (true) {
      LineSource::Result const got = source.next();
      if (got == LineSource::Result::end) break;
      std::string reason;
      if (got == LineSource::Result::error) {
         reason = source.reason();
      } else if (got == LineSource::Result::part) {
         reason = "the line is too long";
      } else {
         reason = loaded.enterLine(source.text());
      }
      if (reason.empty()) continue;
      InputError error{{source.name(), source.line()}, "", std::move(reason), true};
      error.textIs(source.text());
      return error;
   }
   *this = std::move(loaded);
   return std::nullopt;
}

std::string InterfaceMap::enterLine(std::string_view line) {
   std::string_view rest = line.substr(0, line.find('#'));
   std::string_view const name = nextWord(rest);
   if (name.empty()) return "";
   Lnet::IntfId id;
   if (auto reason = intfOf(name, id); !reason.empty()) return reason;
   if (find(id)) return "interface " + inQuotes(name) + " occurs twice";
   std::optional<unsigned> port;
   std::optional<unsigned> vlan;
   for (auto word = nextWord(rest); !word.empty(); word = nextWord(rest)) {
      std::string reason;
      if (word.starts_with("port=")) {
         reason = numberOf(word, "port=", lastPort, port);
      } else if (word.starts_with("vlan=")) {
         reason = numberOf(word, "vlan=", lastVlan, vlan);
      } else {
         reason = "unknown word " + inQuotes(word);
      }
      if (!reason.empty()) return reason;
   }
   bool const cpu = isRegisterDevice(name);
   if (cpu && port) return inQuotes(name) + " is a register device and has no port";
   if (!cpu && !port) return "no \"port=N\"";
   if (!vlan) return "no \"vlan=N\"";
   if (port && byPort(*port)) {
      return "port " + std::to_string(*port) + " is taken by " + byPort(*port)->id.name();
   }
   if (byVlan_[*vlan]) {
      return "vlan " + std::to_string(*vlan) + " is taken by " + byVlan_[*vlan]->id.name();
   }
   enter({id, port.value_or(0), Bridging::VlanId(*vlan), cpu});
   return "";
}

Intf const& InterfaceMap::enter(Intf const& intf) {
   intfs_.push_back(std::make_unique<Intf const>(intf));
   Intf const* const entry = intfs_.back().get();
   if (byId_.size() <= intf.id.id()) byId_.resize(intf.id.id() + 1);
   byId_[intf.id.id()] = entry;
   byVlan_[intf.vlan.value()] = entry;
   if (intf.port) byPort_[intf.port] = entry;
   return *entry;
}

Intf const& InterfaceMap::intf(Lnet::IntfId id) {
   QOR_ASSERT(id);
   if (auto const* const known = find(id)) return *known;
   bool const cpu = isRegisterDevice(id.name());
   unsigned const vlan = nextVlan();
   if (!vlan) {
      throw InterfaceMapFull("no internal vlan is left for interface " + id.name() + ": all " +
                             std::to_string(lastVlan) + " are in use");
   }
   return enter({id, cpu ? 0 : nextPort(), Bridging::VlanId(vlan), cpu});
}

unsigned InterfaceMap::nextVlan() {
   if (intfs_.size() >= lastVlan) return 0;
   while (byVlan_[vlanHint_])
      vlanHint_ = vlanHint_ == lastVlan ? 1 : vlanHint_ + 1;
   return vlanHint_;
}

Qor::U32 InterfaceMap::nextPort() {
   while (byPort_.contains(portHint_))
      ++portHint_;
   return portHint_;
}

Intf const* InterfaceMap::byVlan(Bridging::VlanId vlan) const {
   return byVlan_[vlan.value()];
}

Intf const* InterfaceMap::byPort(Qor::U32 port) const {
   auto const found = byPort_.find(port);
   return found == byPort_.end() ? nullptr : found->second;
}

}  // namespace Agent
