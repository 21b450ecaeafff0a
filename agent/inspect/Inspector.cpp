#include "agent/inspect/Inspector.h"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>
#include <nlohmann/json.hpp>

#include "Qor/Exception.h"
#include "agent/input/NumberText.h"
#include "agent/input/PrintableText.h"
#include "agent/input/Suggestion.h"
#include "agent/inspect/Rehearsal.h"
#include "agent/process/Signals.h"
#include "agent/report/TextTable.h"
#include "platform/Format.h"

namespace Agent {

using nlohmann::ordered_json;

namespace {

std::string seconds(double time) {
   return fmt::format("{:.6f} s", time);
}

// The text of a watch's event.
std::string eventText(ordered_json const& event) {
   std::string text = "at " + seconds(event.at("at").get<double>()) + ": " +
                      printable(event.at("path").get<std::string>());
   if (event.contains("member")) text += ' ' + event.at("member").get<std::string>();
   if (event.contains("key")) text += '[' + event.at("key").get<std::string>() + ']';
   if (event.contains("size")) {
      return text + " has been replaced, and has " + event.at("size").dump() + " members";
   }
   if (event.contains("value")) {
      text += " = " + valueText(event.at("value"));
      return event.contains("was") ? text + " (was " + valueText(event.at("was")) + ')' : text;
   }
   bool const object = !event.contains("member") && !event.contains("key");
   return text + (object ? " is deleted, and the watch ends" : " is deleted");
}

// Offers the children of the path that the last word begins.
void offerPaths(CompletionList& list, EntityTree const& tree) {
   constexpr std::size_t most = 1000;  // children that are read
   std::string_view const word = list.word();
   std::size_t slash = 0;
   bool quoted = false;
   for (std::size_t i = 0; i < word.size(); ++i) {
      if (word[i] == '"') quoted = !quoted;
      if (word[i] == '/' && !quoted) slash = i;
   }
   TreeNode const parent = tree.find(word.substr(0, slash + 1));
   std::string const prefix = parent.path == "/" ? "/" : parent.path + '/';
   std::string const last(word.substr(slash + 1));
   for (TreeNode const& child : tree.children(parent, 0, most)) {
      std::string const segment = child.path.substr(prefix.size());
      if (segment.starts_with(last) || segment.starts_with('"' + last))
         list.add(child.path + (tree.size(child) ? "/" : ""));
   }
}

// The wanted routes, and the interfaces of the switch.
RouteNames routeNames(Switch const& theSwitch) {
   auto const text = [](Lnet::IpGenPrefix const& prefix) {
      return prefix.isHost() ? fmt::format("{}", prefix.address()) : fmt::format("{}", prefix);
   };
   return {[&theSwitch, text](RouteNames::Route const& offer) {
              for (auto const& [id, wanted] : theSwitch.wantedRoutes()) {
                 auto const& source = id.key.source();
                 offer(id.vrf.name(), source.isAny() ? "*" : text(source), text(id.key.group()));
              }
           },
           [&theSwitch](auto const& offer) {
              for (auto const& intf : theSwitch.interfaceMap().intfs())
                 offer(intf->id.name());
           }};
}

}  // namespace

std::vector<Inspector::Command> const& Inspector::commands() {
   constexpr std::size_t any = 10000;
   static std::vector<Command> const all = {
         {"ls", "[PATH [SKIP]]", 0, 2, "lists the children of a path, behind the first SKIP",
          &Inspector::ls},
         {"get", "PATH", 1, 1,
          "prints a value, the attributes of an object, or the members of a collection",
          &Inspector::get},
         {"set", "PATH VALUE", 2, any, "writes an attribute", &Inspector::set, true},
         {"call", "PATH OPERATION ARG...", 2, any,
          "calls an operation; an ARG that begins with / is the path of an object",
          &Inspector::call, true},
         {"watch", "[PATH]", 0, 1, "prints the changes of an object, an attribute or a collection",
          &Inspector::watch},
         {"unwatch", "[PATH]", 0, 1, "ends one watch, or all", &Inspector::unwatch},
         {"show", "VIEW [FILTER]", 1, any,
          "prints a table: routes, oifsets, zombies, chip; a FILTER of routes is, for example, "
          "group 239.1.0.0/16 state waiting",
          &Inspector::show},
         {"explain", "ROUTE | GROUP [vrf NAME] [iif NAME]", 1, any,
          "traces a packet of a route, or lists the routes of a group, with reasons",
          &Inspector::explain},
         {"types", "[TYPE]", 0, 1, "lists the types, or the members of one type",
          &Inspector::types},
         {"trace", "LEVEL[:GLOB] | off[:GLOB]", 1, 1, "turns traces up to LEVEL (0-9) on, or off",
          &Inspector::trace, true},
         {"run", "[SECONDS]", 0, 1, "lets time pass; without SECONDS, to the end of the input",
          &Inspector::goOn, true},
         {"step", "", 0, 0, "lets time pass until the next clock or input is due", &Inspector::step,
          true},
         {"help", "[COMMAND]", 0, 1, "lists the commands, or one of them", &Inspector::help},
         {"quit", "", 0, 0, "ends the commands", &Inspector::quit}};
   return all;
}

Inspector::Command const& Inspector::command(std::string const& name) {
   for (Command const& command : commands()) {
      if (command.name == name) return command;
   }
   throw InspectError(printable(inQuotes(name)) + " is not a command" +
                      knownNames(name, commands(), &Command::name));
}

Inspector::Inspector(InspectedRun& run, std::ostream& out, OutputFormat format, Rights rights)
      : run_(run),
        out_(out),
        format_(format),
        rights_(rights),
        watches_([this](ordered_json const& event) { printEvent(event); }) {}

Inspector::Outcome Inspector::evaluate(std::string_view line) {
   error_.clear();
   line_ = line.substr(0, longestLine);
   try {
      if (line.size() > longestLine) {
         throw InspectError("a command has at most " + std::to_string(longestLine) +
                            " bytes, not " + std::to_string(line.size()));
      }
      Words const words = wordsOf(line);
      if (words.empty() || words[0].raw.starts_with('#')) return Outcome::done;
      Command const& found = command(words[0].text);
      if (words.size() - 1 < found.least || words.size() - 1 > found.most) {
         throw InspectError(std::string("usage: ") + found.name + ' ' + found.usage);
      }
      if (found.changes && rights_ == Rights::reading) {
         throw InspectError(std::string(found.name) + " is refused: a live agent is only read");
      }
      (this->*found.run)(words);
   } catch (std::exception const& error) {
      error_ = printable(error.what());
      if (format_.json) print({{"command", printable(line_)}, {"error", error_}}, "");
      return Outcome::failed;
   }
   return quit_ ? Outcome::quit : Outcome::done;
}

Completion Inspector::complete(std::string_view line, std::size_t limit) const {
   CompletionList list(line, limit);
   auto const& before = list.before();
   try {
      if (before.empty() || (before.size() == 1 && before[0].text == "help")) {
         for (Command const& command : commands()) {
            if (!command.changes || rights_ == Rights::all) list.offer(command.name);
         }
      } else if (list.word().starts_with('/')) {
         offerPaths(list, EntityTree(run_.theSwitch().roots()));
      } else if (before[0].text == "explain") {
         completeQuestion(list, 1, routeNames(run_.theSwitch()));
      } else if (before[0].text == "types") {
         for (Qor::Type const* const type : Qor::types())
            list.offer(type->name());
      } else if (before[0].text == "call" && before.size() == 2) {
         EntityTree const tree(run_.theSwitch().roots());
         Qor::Type const* const type = typeOf(tree.find(before[1].raw));
         for (auto const* const operation : type->allOperations())
            list.offer(operation->name);
      }
   } catch (std::exception const&) {
      // A path without a node has no completion.
   }
   return std::move(list).take();
}

void Inspector::printResult(ordered_json const& json, std::string const& text) {
   if (!format_.json) return print({}, text);
   print({{"command", printable(line_)}, {"result", json}}, "");
}

void Inspector::print(ordered_json const& json, std::string const& text) {
   if (format_.json) {
      printJson(out_, json, format_.style);
   } else {
      out_ << text;
   }
   out_ << std::flush;
}

void Inspector::printEvent(ordered_json const& event) {
   print({{"event", event}}, format_.json ? "" : eventText(event) + '\n');
}

void Inspector::help(Words const& words) {
   ordered_json json = ordered_json::array();
   std::vector<std::vector<std::string>> lines;
   Command const* const one = words.size() > 1 ? &command(words[1].text) : nullptr;
   for (Command const& command : commands()) {
      if (one && one != &command) continue;
      std::string const usage = std::string(command.name) + ' ' + command.usage;
      json.push_back({{"usage", usage}, {"help", command.help}});
      lines.push_back({usage, command.help});
   }
   printResult({{"commands", std::move(json)}}, aligned(lines));
}

void Inspector::watch(Words const& words) {
   if (words.size() > 1) {
      watches_.add(tree().find(words[1].raw));
      return printResult({{"watched", printable(words[1].raw)}}, "");
   }
   ordered_json json = ordered_json::array();
   std::string text;
   for (std::string const& path : watches_.paths()) {
      json.push_back(printable(path));
      text += printable(path) + '\n';
   }
   printResult({{"watches", std::move(json)}}, text.empty() ? "no watches\n" : text);
}

void Inspector::unwatch(Words const& words) {
   if (words.size() == 1) {
      watches_.removeAll();
   } else {
      // The watch is found by its path, because the node may no longer be in the tree.
      std::string path;
      for (std::string const& segment : segmentsOf(words[1].raw))
         path += '/' + quotedSegment(segment);
      watches_.remove(path);
   }
   printResult(ordered_json::object(), "");
}

// ---- Time. ----

// Lets time pass. After a change by hand that may fail an assertion, so it is tried in a copy of
// the process before, if the platform allows a copy.
void Inspector::advance(std::function<void()> const& doIt) {
   if (changed_ && run_.inMemory() && run_.theSwitch().forks()) {
      std::string const why = rehearse(doIt);
      if (interrupted()) throw InspectError("interrupted during the trial");
      if (!why.empty()) throw InspectError("that would end the run: " + why);
   }
   doIt();
}

void Inspector::printInterrupt(std::string const& signal) {
   print({{"interrupted", true}, {"signal", signal}, {"at", Qor::now()}},
         "interrupted by " + signal + " at " + seconds(Qor::now()) + '\n');
}

void Inspector::printTime() {
   if (interrupted()) return;
   printResult({{"at", Qor::now()}}, "at " + seconds(Qor::now()) + '\n');
}

void Inspector::goOn(Words const& words) {
   bool good = true;
   if (words.size() == 1) {
      advance([&] { good = run_.runToEnd(); });
   } else {
      std::string const& text = words[1].text;
      double span = 0;
      if (!parseNumber(text, span) || !(span >= 0) || span > 1e9) {
         throw InspectError(printable(inQuotes(text)) +
                            " is not a number of seconds from 0 to 1e9");
      }
      advance([&] { good = run_.runUntil(Qor::now() + span); });
   }
   if (!good) throw InspectError("the input has an error and ends here");
   printTime();
}

void Inspector::step(Words const&) {
   double const next = std::min(run_.nextInput(), run_.theSwitch().nextDeadline());
   if (next >= Qor::never) throw InspectError("no clock is set, and no input is left");
   bool good = true;
   advance([&] { good = run_.runUntil(std::max(next, Qor::now())); });
   if (!good) throw InspectError("the input has an error and ends here");
   printTime();
}

}  // namespace Agent
