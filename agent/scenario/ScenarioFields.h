// Reads the members of the JSON objects in the lines of a scenario, with their rules. Only the
// sources of the scenario parser include this header (ScenarioParser.cpp, ScenarioEvents.cpp,
// ScenarioExpectations.cpp).
//
// A fault is thrown as a Bad, whose reason begins with the path of the key at fault.
// ScenarioParser::parse() catches it.
#pragma once

#include <initializer_list>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "agent/scenario/Scenario.h"
#include "platform/Format.h"

namespace Agent::Scenario {

using nlohmann::json;

struct Bad {
   std::string reason;
};

// Throws Bad "PATH: FAULT", or "FAULT" if the key path is empty.
[[noreturn]] void refuse(std::string const& keyPath, std::string const& fault);

// The names of an enumeration with their values, in the order in which a reason lists them.
template <class E>
using Names = std::vector<std::pair<std::string, E>>;

// The names that an enumeration prints, from `first` to `last`.
template <class E>
Names<E> namesOf(E first, E last) {
   Names<E> names;
   for (auto i = static_cast<unsigned>(first); i <= static_cast<unsigned>(last); ++i)
      names.emplace_back(fmt::format("{}", static_cast<E>(i)), static_cast<E>(i));
   return names;
}

// One JSON object. `keyPath` leads to it from the top of the line: "route", "expect.forward[1]".
class Fields {
 public:
   // Refuses a value that is not an object, and a key that is not among `known`.
   Fields(json const& object, std::string keyPath, std::vector<std::string_view> const& known);

   std::string const& keyPath() const { return keyPath_; }
   std::string at(std::string const& key) const {
      return keyPath_.empty() ? key : keyPath_ + "." + key;
   }

   // Null if the object has no such key.
   json const* find(std::string const& key) const;
   // The operations below refuse an object without the key.
   json const& get(std::string const& key) const;
   std::string text(std::string const& key) const;
   bool flag(std::string const& key) const;
   double number(std::string const& key, double min, double max) const;
   std::uint64_t whole(std::string const& key, std::uint64_t min, std::uint64_t max) const;
   std::uint32_t whole32(std::string const& key, std::uint32_t min, std::uint32_t max) const {
      return static_cast<std::uint32_t>(whole(key, min, max));
   }
   // `what` is the name of the enumeration in a reason: "link state".
   template <class E>
   E named(std::string const& key, char const* what, Names<E> const& names) const {
      std::string const name = text(key);
      std::vector<std::string> known;
      for (auto const& [candidate, value] : names) {
         if (candidate == name) return value;
         known.push_back(candidate);
      }
      refuseName(key, what, name, known);
   }

 private:
   [[noreturn]] void refuseName(std::string const& key, char const* what, std::string const& name,
                                std::vector<std::string> const& known) const;

   json const& object_;
   std::string const keyPath_;
};

// ---- Values at a key path. ----

std::string kindOf(json const& value);  // "a list", "the number 3"
std::string textAt(json const& value, std::string const& keyPath);
json const& listAt(json const& value, std::string const& keyPath);
std::string indexed(std::string const& keyPath, std::size_t i);  // "keyPath[i]"
Lnet::IntfId intfAt(json const& value, std::string const& keyPath);
// An interface with a port: neither "cpu" nor a register device.
Lnet::IntfId portAt(json const& value, std::string const& keyPath);
std::vector<Lnet::IntfId> portsAt(json const& list, std::string const& keyPath);  // each once
Range rangeAt(json const& value, std::string const& keyPath);

// ---- Members that several kinds of events share. ----

L3::VrfName vrfField(Fields const& fields);
// The keys vrf, src, dst and groups. The source of packets is a single address.
RouteRun runFields(Fields const& fields, bool packets = false);
std::uint32_t bytesField(Fields const& fields);
std::optional<Range> optionalRange(Fields const& fields, std::string const& key);

// ---- Events. ----

// The event from the value of the key `kind`, which is one of eventKinds, at the time `at`.
Event eventFrom(std::string const& kind, json const& value, double at);
inline constexpr char const* eventKinds[] = {"scenario", "route",  "withdraw", "link",  "bfd",
                                             "traffic",  "config", "counter",  "fault", "restart",
                                             "mark",     "show",   "expect"};

Expect expectFrom(json const& value);

}  // namespace Agent::Scenario
