#include "agent/inspect/InspectTree.h"

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <nlohmann/json.hpp>

#include "Qor/Exception.h"
#include "agent/input/NumberText.h"
#include "agent/input/PrintableText.h"
#include "agent/input/Suggestion.h"
#include "agent/inspect/InspectWords.h"

namespace Agent {

using nlohmann::ordered_json;
using Kind = TreeNode::Kind;
using Qor::Generic;

namespace {

std::string below(std::string const& path, std::string_view segment) {
   return (path == "/" ? path : path + '/') + quotedSegment(segment);
}

[[noreturn]] void notThere(TreeNode const& node, std::string const& segment,
                           std::vector<std::string> const& there) {
   constexpr std::size_t listed = 12;
   std::string text = printable(node.path) + " has no " + printable(inQuotes(segment));
   Suggestion suggestion(segment);
   std::ranges::for_each(there, [&](auto& name) { suggestion.offer(name); });
   if (!suggestion.names().empty()) throw InspectError(text + suggestion.text());
   for (std::size_t i = 0; i < std::min(there.size(), listed); ++i)
      text += (i ? ", " : "; there is ") + there[i];
   if (there.size() > listed) text += " and " + std::to_string(there.size() - listed) + " more";
   throw InspectError(text);
}

// A node for an object or a value. A value whose type has attributes has children, so its kind is
// Kind::object as well.
TreeNode nodeOf(std::string path, Generic it, std::string const& declared) {
   TreeNode node;
   node.kind = Kind::value;
   node.path = std::move(path);
   node.type = declared;
   if (it.kind() == Generic::Kind::object && it.object()) {
      Qor::Type const* const type = Qor::typeOf(it);
      if (type) {
         node.kind = Kind::object;
         node.type = type->name();
      }
   }
   node.it = std::move(it);
   return node;
}

TreeNode attributeNode(TreeNode const& of, Qor::TypeAttribute const& attribute) {
   TreeNode node = nodeOf(below(of.path, attribute.name),
                          attribute.readable() ? attribute.read(of.it) : Generic(), attribute.type);
   node.owner = of.it;
   node.attribute = &attribute;
   return node;
}

TreeNode collectionNode(TreeNode const& of, Qor::TypeCollection const& collection) {
   TreeNode node;
   node.kind = Kind::collection;
   node.path = below(of.path, collection.name);
   node.type = collection.keyType + " -> " + collection.valueType;
   node.owner = of.it;
   node.collection = &collection;
   return node;
}

TreeNode memberNode(TreeNode const& of, Qor::TypeMember const& member) {
   TreeNode node =
         nodeOf(below(of.path, member.key.pretty()), member.value, of.collection->valueType);
   node.owner = of.owner;
   node.collection = of.collection;
   return node;
}

TreeNode memberOf(TreeNode const& node, std::string const& segment) {
   if (auto const member = node.collection->find(node.owner, Generic(segment))) {
      return memberNode(node, *member);
   }
   Qor::U32 number = 0;
   if (segment.size() > 2 && segment.front() == '[' && segment.back() == ']' &&
       parseNumber(std::string_view(segment).substr(1, segment.size() - 2), number) && number > 0) {
      auto const members = node.collection->members(node.owner, number - 1, 1);
      if (!members.empty()) return memberNode(node, members.front());
   }
   std::string const text = printable(node.path) + " has no member " + printable(inQuotes(segment));
   Suggestion suggestion(segment);
   Qor::U32 const size = static_cast<Qor::U32>(node.collection->size(node.owner));
   for (auto const& member : node.collection->members(node.owner, 0, size))
      suggestion.offer(member.key.pretty());
   if (!suggestion.names().empty()) throw InspectError(text + suggestion.text());
   throw InspectError(text + " among its " + std::to_string(size) + ": give a " +
                      node.collection->keyType + " as ls shows it, or [N]");
}

template <class Member>
Member const* named(std::vector<Member const*> const& members, std::string const& name) {
   for (Member const* const member : members) {
      if (member->name == name) return member;
   }
   return nullptr;
}

}  // namespace

Qor::Type const* typeOf(TreeNode const& node) {
   if (node.kind == Kind::object) return Qor::typeOf(node.it);
   if (node.kind != Kind::value || node.it.kind() != Generic::Kind::value) return nullptr;
   for (Qor::Type const* const type : Qor::types()) {
      if (type->name() == node.type) return type;
   }
   return nullptr;
}

TreeNode EntityTree::find(std::string_view path) const {
   TreeNode node;
   node.path = "/";
   for (std::string const& segment : segmentsOf(path))
      node = childOf(node, segment);
   return node;
}

TreeNode EntityTree::childOf(TreeNode const& node, std::string const& segment) const {
   if (node.kind == Kind::directory) return inDirectory(node, segment);
   if (node.kind == Kind::collection) return memberOf(node, segment);
   Qor::Type const* const type = typeOf(node);
   std::vector<std::string> there;
   if (type) {
      auto const attributes = type->allAttributes();
      auto const collections = type->allCollections();
      if (auto const* const found = named(attributes, segment)) return attributeNode(node, *found);
      if (auto const* const found = named(collections, segment)) {
         return collectionNode(node, *found);
      }
      for (auto const* const attribute : attributes)
         there.push_back(attribute->name);
      for (auto const* const collection : collections)
         there.push_back(collection->name);
   }
   if (there.empty()) {
      throw InspectError(printable(node.path) + " is " +
                         (node.it.isNull() ? "null" : "a " + node.type) +
                         ", which has nothing below it");
   }
   notThere(node, segment, there);
}

TreeNode EntityTree::inDirectory(TreeNode const& node, std::string const& segment) const {
   std::string const path = below(node.path, segment);
   for (TreeRoot const& root : roots_) {
      if ('/' + root.name == path) return nodeOf(path, root.object, "");
   }
   if (directory(path).empty()) notThere(node, segment, directory(node.path));
   TreeNode child;
   child.path = path;
   return child;
}

// The names of the children of a directory. Empty for a path that is not a directory.
std::vector<std::string> EntityTree::directory(std::string const& path) const {
   std::string const prefix = path == "/" ? path : path + '/';
   std::vector<std::string> names;
   for (TreeRoot const& root : roots_) {
      std::string const full = '/' + root.name;
      if (!full.starts_with(prefix)) continue;
      std::string const name =
            full.substr(prefix.size(), full.find('/', prefix.size()) - prefix.size());
      if (names.empty() || names.back() != name) names.push_back(name);
   }
   return names;
}

std::size_t EntityTree::size(TreeNode const& node) const {
   if (node.kind == Kind::directory) return directory(node.path).size();
   if (node.kind == Kind::collection) return node.collection->size(node.owner);
   Qor::Type const* const type = typeOf(node);
   return type ? type->allAttributes().size() + type->allCollections().size() : 0;
}

std::vector<TreeNode> EntityTree::children(TreeNode const& node, std::size_t skip,
                                           std::size_t max) const {
   std::vector<TreeNode> found;
   if (node.kind == Kind::collection) {
      auto const limit = [](std::size_t n) {
         return static_cast<Qor::U32>(std::min<std::size_t>(n, 0xFFFFFFFF));
      };
      for (auto const& member : node.collection->members(node.owner, limit(skip), limit(max)))
         found.push_back(memberNode(node, member));
      return found;
   }
   auto const take = [&](auto const& items, auto const& make) {
      for (auto const& item : items) {
         if (found.size() == max) return;
         if (skip) {
            --skip;
         } else {
            found.push_back(make(item));
         }
      }
   };
   if (node.kind == Kind::directory) {
      take(directory(node.path), [&](std::string const& name) { return inDirectory(node, name); });
   } else if (Qor::Type const* const type = typeOf(node)) {
      take(type->allAttributes(), [&](auto const* a) { return attributeNode(node, *a); });
      take(type->allCollections(), [&](auto const* c) { return collectionNode(node, *c); });
   }
   return found;
}

std::string valueText(ordered_json const& value) {
   return value.is_string() ? value.get<std::string>() : value.dump();
}

ordered_json valueJson(Generic const& value, std::string const& type) {
   if (value.kind() == Generic::Kind::nothing || value.isNull()) return nullptr;
   std::string const& text = value.text();
   if (value.kind() == Generic::Kind::value) {
      if (text == "''") return "";  // the empty string
      if (type == "bool") return text == "True";
      if (Qor::U64 number = 0; type.starts_with('U') && parseNumber(text, number)) return number;
      if (type == "double") {
         double const number = std::strtod(text.c_str(), nullptr);
         if (std::isfinite(number)) return number;
      }
   }
   return printable(value.pretty());
}

}  // namespace Agent
