#include "agent/live/Configuration.h"

#include <sys/un.h>

#include <algorithm>
#include <cmath>
#include <fstream>
#include <iterator>
#include <set>
#include <sstream>
#include <utility>

#include "agent/input/InputKind.h"
#include "agent/input/LineSource.h"
#include "agent/input/NumberText.h"
#include "agent/input/PrintableText.h"
#include "agent/input/Suggestion.h"

namespace Agent {

namespace {

using Lnet::IntfId;
using Words = std::vector<std::string>;

constexpr std::size_t longestInterfaceName = 15;  // bytes, in the kernel and on the bridge
constexpr std::size_t longestSocketPath = sizeof(sockaddr_un::sun_path) - 1;
constexpr Qor::Seconds longestTime = 86400;

Words wordsOf(std::string_view line) {
   Words words;
   std::istringstream text{std::string(line.substr(0, line.find('#')))};
   for (std::string word; text >> word;)
      words.push_back(word);
   return words;
}

// Reads the lines one after another. Each function for a directive returns the fault of the line, or
// an empty text.
class Reader {
 public:
   explicit Reader(std::string const& file) : file_(file) {}

   void line(std::string_view text) {
      ++line_;
      Words const words = wordsOf(text);
      if (words.empty()) return;
      std::string fault = directive(words);
      if (!fault.empty()) add(line_, std::string(text), std::move(fault));
   }

   void end() {
      if (!seen_.contains("switch")) add(0, "", "there is no line \"switch unix:PATH\"");
      if (!seen_.contains("interface")) {
         add(0, "", "there is no line \"interface NAME port PORT cpu PORT\"");
      }
      for (auto const& [intf, backup] : made_.reroutes) {
         for (IntfId const named : {intf, backup}) {
            if (made_.interface(named)) continue;
            Suggestion suggestion(named.name());
            for (LiveInterface const& interface : made_.interfaces)
               suggestion.offer(interface.intf.name());
            add(rerouteLines_[intf], "",
                inQuotes(named.name()) + " is no interface of this file" + suggestion.text());
         }
      }
   }

   std::variant<Configuration, std::vector<InputError>> result() {
      if (faults_.empty()) return std::move(made_);
      return std::move(faults_);
   }

 private:
   void add(unsigned line, std::string const& text, std::string reason) {
      InputError error{{file_, line}, "", std::move(reason)};
      error.textIs(text);
      faults_.push_back(std::move(error));
   }

   std::string directive(Words const& words) {
      std::string const& name = words[0];
      if (name == "interface") return interface(words);
      if (name == "reroute") return reroute(words);
      struct Value {
         char const* name;
         std::string (Reader::*read)(std::string const& text);
         bool repeats;
      };
      static constexpr Value values[] = {
            {"switch", &Reader::switchSocket, false},
            {"table", &Reader::table, true},
            {"control", &Reader::control, false},
            {"metrics", &Reader::metrics, false},
            {"expiry", &Reader::expiry, false},
            {"hold-on-daemon-restart", &Reader::hold, false},
            {"standby-hold", &Reader::standbyHold, false},
            {"groups", &Reader::groups, false},
            {"log", &Reader::log, false},
      };
      auto const value = std::ranges::find(values, name, &Value::name);
      if (value == std::end(values)) {
         std::vector<std::string> names{"interface", "reroute"};
         for (Value const& known : values)
            names.emplace_back(known.name);
         return inQuotes(name) + " is not a directive" + knownNames(name, names);
      }
      if (words.size() != 2) return inQuotes(name) + " needs one value";
      if (!value->repeats && !seen_.insert(name).second) return inQuotes(name) + " occurs twice";
      return (this->*value->read)(words[1]);
   }

   // ---- Values. ----

   static std::string pathFault(std::string const& path) {
      if (path.empty() || path[0] != '/') return inQuotes(path) + " is not an absolute path";
      if (path.size() > longestSocketPath) {
         return "the path has more than " + std::to_string(longestSocketPath) + " bytes";
      }
      return {};
   }
   static std::string seconds(std::string const& text, Qor::Seconds least, Qor::Seconds& value) {
      double number = 0;
      if (!parseNumber(text, number) || !std::isfinite(number)) {
         return inQuotes(text) + " is not a number of seconds";
      }
      if (number < least || number > longestTime) {
         std::ostringstream range;
         range << inQuotes(text) << " is out of range: " << least << " to " << longestTime
               << " seconds";
         return range.str();
      }
      value = number;
      return {};
   }

   std::string switchSocket(std::string const& text) {
      if (!text.starts_with("unix:")) return inQuotes(text) + " is not of the form unix:PATH";
      made_.switchSocket = text.substr(5);
      return pathFault(made_.switchSocket);
   }
   std::string table(std::string const& text) {
      Qor::U32 number = 0;
      if (!parseNumber(text, number) || number == 0) {
         return inQuotes(text) + " is not the number of a table";
      }
      if (std::ranges::count(made_.tables, number) > 0) return "table " + text + " occurs twice";
      made_.tables.push_back(number);
      return {};
   }
   std::string control(std::string const& text) {
      made_.control = text;
      return pathFault(text);
   }
   std::string metrics(std::string const& text) {
      made_.metrics = text;
      if (text.starts_with("unix:")) return pathFault(text.substr(5));
      Qor::U16 port = 0;
      constexpr std::string_view local = "127.0.0.1:";
      if (text.starts_with(local) && parseNumber(text.substr(local.size()), port) && port > 0)
         return {};
      return inQuotes(text) + " is not of the form 127.0.0.1:PORT or unix:PATH";
   }
   std::string expiry(std::string const& text) { return seconds(text, 3, made_.expiry); }
   std::string hold(std::string const& text) { return seconds(text, 0, made_.holdOnDaemonRestart); }
   std::string standbyHold(std::string const& text) { return seconds(text, 0, made_.standbyHold); }
   std::string groups(std::string const& text) {
      auto const dash = text.find('-');
      constexpr Qor::U32 lastId = 0xffffff00;  // the largest group id of OpenFlow
      bool const numbers = dash != std::string::npos &&
                           parseNumber(text.substr(0, dash), made_.firstGroup) &&
                           parseNumber(text.substr(dash + 1), made_.lastGroup);
      if (!numbers) return inQuotes(text) + " is not of the form FIRST-LAST";
      if (made_.lastGroup > lastId || made_.lastGroup < made_.firstGroup + 511) {
         return inQuotes(text) + " is not a range of at least 512 ids up to 4294967040";
      }
      return {};
   }
   std::string log(std::string const& text) {
      made_.log = text;
      constexpr std::string_view levels[] = {"error", "warning", "notice", "info", "debug"};
      if (std::ranges::find(levels, text) != std::end(levels)) return {};
      return inQuotes(text) + " is not a level" + knownNames(text, levels);
   }

   // ---- Interfaces. ----

   static std::string nameFault(std::string const& name) {
      if (name.size() <= longestInterfaceName) return {};
      return inQuotes(name) + " is longer than the name of an interface";
   }

   std::string interface(Words const& words) {
      seen_.insert(words[0]);
      if (words.size() < 2) return "\"interface\" needs a name";
      LiveInterface made;
      made.intf = IntfId(words[1]);
      made.line = line_;
      for (std::size_t i = 2; i < words.size(); i += 2) {
         std::string const& word = words[i];
         if (i + 1 == words.size()) return inQuotes(word) + " needs a value";
         if (std::string fault = property(made, word, words[i + 1]); !fault.empty()) return fault;
      }
      if (made.port.empty()) return "the interface has no \"port\"";
      if (made.cpu.empty()) return "the interface has no \"cpu\"";
      if (made.port == made.cpu || made.port == made.standby || made.cpu == made.standby) {
         return "two of the ports are the same";
      }
      if (std::string fault = nameFault(words[1]); !fault.empty()) return fault;
      if (std::string fault = otherFault(made); !fault.empty()) return fault;
      made_.interfaces.push_back(std::move(made));
      return {};
   }

   static std::string property(LiveInterface& made, std::string const& word,
                               std::string const& value) {
      if (word == "vlan") {
         Qor::U16 vlan = 0;
         if (made.vlan) return "\"vlan\" occurs twice";
         if (!parseNumber(value, vlan) || vlan < 1 || vlan > 4094) {
            return inQuotes(value) + " is not a vlan: 1 to 4094";
         }
         made.vlan = vlan;
         return {};
      }
      std::string* const port = word == "port"      ? &made.port
                                : word == "cpu"     ? &made.cpu
                                : word == "standby" ? &made.standby
                                                    : nullptr;
      if (!port) {
         constexpr std::string_view known[] = {"port", "vlan", "cpu", "standby"};
         return inQuotes(word) + " is not a property of an interface" + knownNames(word, known);
      }
      if (!port->empty()) return inQuotes(word) + " occurs twice";
      *port = value;
      return nameFault(value);
   }

   // The fault of an interface beside those of the lines before. Several interfaces may use one
   // front port in different vlans.
   std::string otherFault(LiveInterface const& made) const {
      for (LiveInterface const& other : made_.interfaces) {
         auto const at = [&](std::string const& what) {
            return what + " of line " + std::to_string(other.line) + ", too";
         };
         if (other.intf == made.intf) return at(inQuotes(made.intf.name()) + " is the interface");
         if (other.cpu == made.cpu) return at(inQuotes(made.cpu) + " is the CPU port");
         if (other.cpu == made.port) return at(inQuotes(made.port) + " is the CPU port");
         if (other.cpu == made.standby) return at(inQuotes(made.standby) + " is the CPU port");
         if (other.port == made.cpu) return at(inQuotes(made.cpu) + " is the front port");
         if (other.standby == made.cpu) return at(inQuotes(made.cpu) + " is the standby port");
         if (other.port == made.port && other.vlan == made.vlan) {
            return at(inQuotes(made.port) + " is the front port in this vlan");
         }
      }
      return {};
   }

   std::string reroute(Words const& words) {
      if (words.size() != 3) return "\"reroute\" needs an interface and its backup";
      if (words[1] == words[2]) return "an interface is no backup of itself";
      IntfId const intf(words[1]);
      if (!made_.reroutes.emplace(intf, IntfId(words[2])).second) {
         return inQuotes(words[1]) + " has a backup already";
      }
      rerouteLines_[intf] = line_;
      return {};
   }

   std::string const& file_;
   unsigned line_ = 0;
   Configuration made_;
   std::map<IntfId, unsigned> rerouteLines_;
   std::set<std::string> seen_;
   std::vector<InputError> faults_;
};

}  // namespace

LiveInterface const* Configuration::interface(IntfId intf) const {
   auto const found = std::ranges::find(interfaces, intf, &LiveInterface::intf);
   return found == interfaces.end() ? nullptr : &*found;
}

std::variant<Configuration, std::vector<InputError>> Configuration::parse(std::string_view text,
                                                                          std::string const& file) {
   Reader reader(file);
   std::istringstream lines{std::string(text)};
   for (std::string line; std::getline(lines, line);)
      reader.line(line);
   reader.end();
   return reader.result();
}

std::variant<Configuration, std::vector<InputError>> Configuration::load(std::string const& file) {
   std::string reason = LineSource::obstacle(file);
   std::string text;
   if (reason.empty()) {
      std::ifstream stream(file, std::ios::binary);
      text.assign(std::istreambuf_iterator<char>(stream), {});
      reason = stream.is_open() && !stream.bad() ? refusal(kindOf(text), InputUse::configuration)
                                                 : "the file cannot be read";
   }
   if (!reason.empty()) return std::vector{InputError{{file, 0}, "", std::move(reason), true}};
   return parse(text, file);
}

}  // namespace Agent
