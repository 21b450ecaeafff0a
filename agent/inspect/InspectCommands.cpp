// The commands on the tree and the types: queries and changes.
#include <nlohmann/json.hpp>
#include <sstream>

#include "Qor/Trace.h"
#include "agent/explain/ExplainJson.h"
#include "agent/input/NumberText.h"
#include "agent/input/PrintableText.h"
#include "agent/input/Suggestion.h"
#include "agent/input/TraceOption.h"
#include "agent/inspect/Inspector.h"
#include "agent/inspect/Rehearsal.h"
#include "agent/process/Signals.h"
#include "agent/report/TextTable.h"
#include "agent/report/Views.h"

namespace Agent {

using nlohmann::ordered_json;
using Kind = TreeNode::Kind;
using Lines = std::vector<std::vector<std::string>>;

namespace {

std::string lastSegment(TreeNode const& parent, TreeNode const& child) {
   return printable(child.path.substr(parent.path == "/" ? 1 : parent.path.size() + 1));
}

// A line of the output of ls.
ordered_json rowJson(EntityTree const& tree, TreeNode const& parent, TreeNode const& child) {
   ordered_json row = {{"name", lastSegment(parent, child)}};
   bool const collection = child.kind == Kind::collection;
   if (collection || child.kind == Kind::directory) {
      row["memberCount"] = tree.size(child);
   } else {
      row["value"] = valueJson(child.it, child.type);
      row["writable"] = child.writable();
   }
   row["type"] = child.type;
   return row;
}

Lines rowLines(ordered_json const& rows) {
   Lines lines = {{"NAME", "VALUE", "", "TYPE"}};
   for (auto const& row : rows) {
      bool const counted = row.contains("memberCount");
      lines.push_back({row.at("name").get<std::string>(),
                       counted ? row.at("memberCount").dump() +
                                       (row.at("memberCount") == 1 ? " member" : " members")
                               : valueText(row.at("value")),
                       !counted && row.at("writable").get<bool>() ? "writable" : "",
                       row.at("type").get<std::string>()});
   }
   return lines;
}

std::string argumentsText(std::vector<Qor::TypeArgument> const& arguments) {
   std::string text;
   for (auto const& argument : arguments)
      text += (text.empty() ? "" : ", ") + argument.name + ": " + argument.type;
   return '(' + text + ')';
}

char const* kindName(Qor::Type::Kind kind) {
   static constexpr char const* names[] = {"entity", "value", "enumeration", "objectName"};
   return names[static_cast<std::size_t>(kind)];
}

ordered_json typeJson(Qor::Type const& type) {
   ordered_json json = {{"name", type.name()},
                        {"kind", kindName(type.kind())},
                        {"module", type.module()},
                        {"base", type.base() ? ordered_json(type.base()->name()) : nullptr},
                        {"attributes", ordered_json::array()},
                        {"collections", ordered_json::array()},
                        {"operations", ordered_json::array()}};
   for (auto const* const a : type.allAttributes()) {
      json["attributes"].push_back({{"name", a->name},
                                    {"type", a->type},
                                    {"writable", a->writable()},
                                    {"notifies", !a->handler.empty()}});
   }
   for (auto const* const c : type.allCollections()) {
      json["collections"].push_back({{"name", c->name},
                                     {"type", c->keyType + " -> " + c->valueType},
                                     {"notifies", !c->handler.empty()}});
   }
   for (auto const* const o : type.allOperations()) {
      json["operations"].push_back({{"name", o->name},
                                    {"type", argumentsText(o->arguments) + " -> " + o->result},
                                    {"reading", o->reading}});
   }
   if (auto const* const made = type.constructor()) {
      json["constructor"] = made->name + argumentsText(made->arguments);
   }
   return json;
}

std::string typeText(ordered_json const& json) {
   std::string text = json.at("name").get<std::string>() + ", " +
                      json.at("kind").get<std::string>() + " of " +
                      json.at("module").get<std::string>();
   if (!json.at("base").is_null()) text += ", derived from " + json.at("base").get<std::string>();
   text += '\n';
   if (json.contains("constructor")) {
      text += "   constructor " + json.at("constructor").get<std::string>() + '\n';
   }
   Lines lines;
   auto const add = [&](char const* list, char const* what) {
      for (auto const& row : json.at(list)) {
         std::string notes;
         if (row.value("writable", false)) notes += " writable";
         if (row.value("notifies", false)) notes += " notifies";
         if (row.value("reading", false)) notes += " read-only";
         lines.push_back({std::string("   ") + what, row.at("name").get<std::string>(),
                          row.at("type").get<std::string>(), notes});
      }
   };
   add("attributes", "attribute");
   add("collections", "collection");
   add("operations", "operation");
   return text + aligned(lines);
}

// Raises InspectError if no member of `all` has this name.
void checkName(std::string const& name, auto const& all, char const* what, auto const& nameOf) {
   Suggestion suggestion(name);
   for (auto const* const one : all) {
      if (std::invoke(nameOf, one) == name) return;
      suggestion.offer(std::invoke(nameOf, one));
   }
   throw InspectError(std::string("there is no ") + what + ' ' + printable(name) +
                      suggestion.text());
}

}  // namespace

void Inspector::ls(Words const& words) {
   EntityTree const all = tree();
   TreeNode const node = all.find(words.size() > 1 ? std::string_view(words[1].raw) : "/");
   std::size_t skip = 0;
   if (words.size() > 2) {
      std::string const& text = words[2].text;
      if (!parseNumber(text, skip)) {
         throw InspectError(printable(inQuotes(text)) + " is not a number of members to skip");
      }
   }
   // Objects have few children, so all are listed.
   std::size_t const most = node.kind == Kind::collection ? screenful : 1000;
   ordered_json rows = ordered_json::array();
   for (TreeNode const& child : all.children(node, skip, most))
      rows.push_back(rowJson(all, node, child));
   std::size_t const size = all.size(node);
   std::string text = aligned(rowLines(rows));
   if (rows.empty()) text = size ? "there are only " + std::to_string(size) + "\n" : "empty\n";
   if (std::size_t const shown = skip + rows.size(); shown < size && !rows.empty()) {
      text += std::to_string(skip + 1) + " to " + std::to_string(shown) + " of " +
              std::to_string(size) + "; next: ls PATH " + std::to_string(shown) + "\n";
   }
   printResult({{"path", printable(node.path)},
                {"type", node.type},
                {"size", size},
                {"skipped", skip},
                {"members", rows}},
               text);
}

void Inspector::get(Words const& words) {
   EntityTree const all = tree();
   TreeNode const node = all.find(words[1].raw);
   ordered_json json = {{"path", printable(node.path)}, {"type", node.type}};
   if (node.kind == Kind::value) {
      json["value"] = valueJson(node.it, node.type);
      return printResult(json, valueText(json["value"]) + '\n');
   }
   Lines lines;
   ordered_json members = ordered_json::object();
   for (TreeNode const& child : all.children(node, 0, all.size(node))) {
      ordered_json const row = rowJson(all, node, child);
      bool const counted = row.contains("memberCount");
      ordered_json const value =
            counted ? ordered_json{{"memberCount", row.at("memberCount")}} : row.at("value");
      members[row.at("name").get<std::string>()] = value;
      lines.push_back({row.at("name").get<std::string>(),
                       counted ? row.at("memberCount").dump() + " members" : valueText(value)});
   }
   json["members"] = members;
   printResult(json, lines.empty() ? "empty\n" : aligned(lines));
}

// ---- Changing. ----

Qor::Generic Inspector::argument(EntityTree const& tree, Word const& word) const {
   if (!word.isPath()) return {word.text};
   TreeNode const node = tree.find(word.raw);
   if (node.kind == Kind::object || node.kind == Kind::value) return node.it;
   throw InspectError(printable(word.raw) + " is neither an object nor a value");
}

// Tries the change first, because it may violate a precondition of the library.
void Inspector::change(std::function<void()> const& doIt) {
   if (!run_.theSwitch().forks())
      throw InspectError("the platform has no copies, in which a change could be tried before");
   std::string const why = rehearse(doIt);
   if (interrupted()) throw InspectError("interrupted during the trial");
   if (!why.empty()) throw InspectError("that would end the agent: " + why);
   changed_ = true;
   doIt();
}

void Inspector::set(Words const& words) {
   EntityTree const all = tree();
   TreeNode const node = all.find(words[1].raw);
   if (!node.attribute) throw InspectError(printable(node.path) + " is not an attribute");
   if (!node.writable()) throw InspectError(node.attribute->fullName + " is read-only");
   // The string representation of a value may have blanks and needs no quotes.
   std::string const text =
         line_.substr(words[2].at, words.back().at + words.back().raw.size() - words[2].at);
   Qor::Generic const value = words.size() == 3 ? argument(all, words[2]) : Qor::Generic(text);
   change([&] { Qor::set(node.owner, node.attribute->name, value); });
   ordered_json const now =
         valueJson(Qor::get(node.owner, node.attribute->name), node.attribute->type);
   printResult({{"path", printable(node.path)}, {"value", now}},
               printable(node.path) + " = " + valueText(now) + '\n');
}

void Inspector::call(Words const& words) {
   EntityTree const all = tree();
   TreeNode const node = all.find(words[1].raw);
   Qor::Type const* const type = typeOf(node);
   if (!type) throw InspectError(printable(node.path) + " has no operations");
   checkName(words[2].text, type->allOperations(), "operation", &Qor::TypeOperation::name);
   Qor::TypeOperation const& operation = type->operation(words[2].text, words.size() - 3);
   std::vector<Qor::Generic> arguments;
   for (std::size_t i = 3; i < words.size(); ++i)
      arguments.push_back(argument(all, words[i]));
   Qor::Generic result;
   change([&] { result = operation.run(operation, node.it, arguments); });
   ordered_json const json = valueJson(result, operation.result);
   printResult({{"value", json}}, operation.result == "void" ? "done\n" : valueText(json) + '\n');
}

// ---- Types, traces, routes. ----

void Inspector::types(Words const& words) {
   if (words.size() > 1) {
      checkName(words[1].text, Qor::types(), "type", [](auto* type) { return type->name(); });
      ordered_json const json = typeJson(Qor::type(words[1].text));
      return printResult(json, typeText(json));
   }
   ordered_json json = ordered_json::array();
   Lines lines = {{"TYPE", "KIND", "MODULE"}};
   for (Qor::Type const* const type : Qor::types()) {
      json.push_back(
            {{"name", type->name()}, {"kind", kindName(type->kind())}, {"module", type->module()}});
      lines.push_back({type->name(), kindName(type->kind()), type->module()});
   }
   printResult({{"types", std::move(json)}}, aligned(lines));
}

void Inspector::trace(Words const& words) {
   std::string const& text = words[1].text;
   if (text == "off" || text.starts_with("off:")) {
      Qor::traceLevelIs(-1, text == "off" ? "*" : text.substr(4));
   } else if (auto const wrong = applyTraceOption(text)) {
      throw InspectError(*wrong + ", or off[:GLOB]");
   }
   printResult(ordered_json::object(), "");
}

void Inspector::show(Words const& words) {
   ViewRequest const request = viewRequest(std::string_view(line_).substr(words[1].at));
   ViewContent content = viewContent(request, run_.theSwitch());
   std::string const text = format_.json ? "" : viewText(request.view, content, format_.width);
   printResult(viewDocument(request.view, std::move(content)), text);
}

void Inspector::explain(Words const& words) {
   RouteQuestion const question = routeQuestion(std::string_view(line_).substr(words[1].at));
   ordered_json const json = explainJson(Explainer(run_.theSwitch()).answer(question));
   std::ostringstream text;
   printExplanation(text, json);
   printResult(json, text.str());
}

}  // namespace Agent
