#include "agent/scenario/ScenarioFields.h"

#include <algorithm>

#include "agent/input/InterfaceMap.h"
#include "agent/input/PrintableText.h"
#include "agent/input/RouteFields.h"
#include "agent/input/Suggestion.h"

namespace Agent::Scenario {

void refuse(std::string const& keyPath, std::string const& fault) {
   throw Bad{keyPath.empty() ? fault : keyPath + ": " + fault};
}

Fields::Fields(json const& object, std::string keyPath, std::vector<std::string_view> const& known)
      : object_(object), keyPath_(std::move(keyPath)) {
   if (!object.is_object()) refuse(keyPath_, kindOf(object) + " where an object is expected");
   for (auto const& [key, value] : object.items()) {
      if (std::find(known.begin(), known.end(), key) != known.end()) continue;
      refuse(keyPath_, "unknown key " + inQuotes(key) + knownNames(key, known));
   }
}

json const* Fields::find(std::string const& key) const {
   auto const it = object_.find(key);
   return it == object_.end() ? nullptr : &*it;
}

json const& Fields::get(std::string const& key) const {
   json const* value = find(key);
   if (!value) refuse(at(key), "missing");
   return *value;
}

std::string Fields::text(std::string const& key) const {
   return textAt(get(key), at(key));
}

bool Fields::flag(std::string const& key) const {
   json const& value = get(key);
   if (!value.is_boolean()) refuse(at(key), kindOf(value) + " where true or false is expected");
   return value.get<bool>();
}

double Fields::number(std::string const& key, double min, double max) const {
   json const& value = get(key);
   if (!value.is_number()) refuse(at(key), kindOf(value) + " where a number is expected");
   auto const number = value.get<double>();
   if (!(number >= min && number <= max)) {
      refuse(at(key), value.dump() + " is not from " + numberText(min) + " to " + numberText(max));
   }
   return number;
}

std::uint64_t Fields::whole(std::string const& key, std::uint64_t min, std::uint64_t max) const {
   json const& value = get(key);
   if (!value.is_number_integer()) {
      refuse(at(key), kindOf(value) + " where a whole number is expected");
   }
   bool const negative = !value.is_number_unsigned();
   if (negative || value.get<std::uint64_t>() < min || value.get<std::uint64_t>() > max) {
      refuse(at(key),
             value.dump() + " is not from " + std::to_string(min) + " to " + std::to_string(max));
   }
   return value.get<std::uint64_t>();
}

void Fields::refuseName(std::string const& key, char const* what, std::string const& name,
                        std::vector<std::string> const& known) const {
   refuse(at(key), std::string("unknown ") + what + " " + inQuotes(name) + knownNames(name, known));
}

std::string kindOf(json const& value) {
   if (value.is_string()) return "a text";
   if (value.is_boolean()) return value.get<bool>() ? "true" : "false";
   if (value.is_number()) return "the number " + value.dump();
   if (value.is_array()) return "a list";
   if (value.is_object()) return "an object";
   return "null";
}

std::string textAt(json const& value, std::string const& keyPath) {
   if (!value.is_string()) refuse(keyPath, kindOf(value) + " where a text is expected");
   return value.get<std::string>();
}

json const& listAt(json const& value, std::string const& keyPath) {
   if (!value.is_array()) refuse(keyPath, kindOf(value) + " where a list is expected");
   return value;
}

std::string indexed(std::string const& keyPath, std::size_t i) {
   return keyPath + '[' + std::to_string(i) + ']';
}

Lnet::IntfId intfAt(json const& value, std::string const& keyPath) {
   Lnet::IntfId intf;
   if (auto bad = intfOf(textAt(value, keyPath), intf); !bad.empty()) refuse(keyPath, bad);
   return intf;
}

Lnet::IntfId portAt(json const& value, std::string const& keyPath) {
   Lnet::IntfId const intf = intfAt(value, keyPath);
   if (intf.name() == "cpu" || InterfaceMap::isRegisterDevice(intf.name())) {
      refuse(keyPath, inQuotes(intf.name()) + " is not a port");
   }
   return intf;
}

std::vector<Lnet::IntfId> portsAt(json const& list, std::string const& keyPath) {
   std::vector<Lnet::IntfId> ports;
   for (std::size_t i = 0; i < listAt(list, keyPath).size(); ++i) {
      Lnet::IntfId const port = portAt(list[i], indexed(keyPath, i));
      if (std::find(ports.begin(), ports.end(), port) != ports.end()) {
         refuse(indexed(keyPath, i), inQuotes(port.name()) + " occurs twice");
      }
      ports.push_back(port);
   }
   return ports;
}

Range rangeAt(json const& value, std::string const& keyPath) {
   if (value.is_number()) return Range::exactly(value.get<double>());
   if (!value.is_object()) {
      refuse(keyPath, kindOf(value) + " where a number or {\"min\", \"max\"} is expected");
   }
   Fields const fields(value, keyPath, {"min", "max"});
   Range range;
   constexpr double far = 1e18;
   if (fields.find("min")) range.min = fields.number("min", -far, far);
   if (fields.find("max")) range.max = fields.number("max", -far, far);
   if (value.empty()) refuse(keyPath, "neither \"min\" nor \"max\"");
   if (range.min > range.max) refuse(keyPath, "\"min\" is above \"max\"");
   return range;
}

L3::VrfName vrfField(Fields const& fields) {
   if (!fields.find("vrf")) return L3::VrfName("default");
   std::string const name = fields.text("vrf");
   if (name.empty()) refuse(fields.at("vrf"), "empty VRF name");
   if (name.size() > L3::VrfName::maxBytes) refuse(fields.at("vrf"), "longer than 100 bytes");
   for (char const c : name) {
      if (c <= ' ' || c > '~') {
         refuse(fields.at("vrf"), inQuotes(name) + " is not printable ASCII");
      }
   }
   return L3::VrfName(name);
}

RouteRun runFields(Fields const& fields, bool packets) {
   RouteRun run;
   run.vrf = vrfField(fields);
   std::string const source = fields.text("src");
   std::string const group = fields.text("dst");
   bool const v6 = group.find(':') != std::string::npos;
   std::string_view const any = v6 ? "::" : "0.0.0.0";
   auto const slash = group.find('/');
   if (auto bad = routeKeyOf(source == "*" ? any : source, group.substr(0, slash), run.first);
       !bad.empty()) {
      refuse(fields.keyPath(), bad);
   }
   if (slash != std::string::npos) {
      auto const range = Lnet::IpGenPrefix::parse(group);
      if (!range || range->length() < (v6 ? 8 : 4)) {
         refuse(fields.at("dst"), "bad range of groups " + inQuotes(group));
      }
      if (packets) refuse(fields.at("dst"), "a packet goes to one group");
      if (fields.find("groups"))
         refuse(fields.at("groups"), "a range of groups cannot have this key");
      run.first = RouteKey(run.first.source(), *range);
   }
   if (packets && run.first.source().isAny()) {
      refuse(fields.at("src"), "a packet has one source");
   }
   if (fields.find("groups")) {
      run.groups = fields.whole32("groups", 1, maxGroups);
      if (!run.key(run.groups - 1).group().address().isMulticast()) {
         refuse(fields.at("groups"), std::to_string(run.groups) + " groups from " +
                                           inQuotes(group) + " on are not all multicast");
      }
   }
   return run;
}

std::uint32_t bytesField(Fields const& fields) {
   return fields.find("bytes") ? fields.whole32("bytes", 64, 9216) : 64;
}

std::optional<Range> optionalRange(Fields const& fields, std::string const& key) {
   json const* value = fields.find(key);
   if (!value) return std::nullopt;
   return rangeAt(*value, fields.at(key));
}

}  // namespace Agent::Scenario
