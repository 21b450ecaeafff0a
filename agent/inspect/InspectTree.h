// The entity tree of a switch: objects by path, below an object its attributes and collections by
// name, below a collection its members by key, and all that by the type registry alone.
//
//    /switch/1/zombieOifSet/[1]/multicastId
//
// A key is written as it is shown; [N] is the Nth member, from 1 on. An attribute or a member that
// is an object can be walked into, and so can a value whose type has attributes. A path may lead in
// a circle, and is as long as it is written.
//
// The tree holds its roots, and a node what it stands for: both are made for one command, so that
// nobody lives longer for being looked at.
#pragma once

#include <nlohmann/json.hpp>
#include <optional>
#include <string>
#include <vector>

#include "Qor/Type.h"
#include "agent/switch/SwitchPath.h"

namespace Agent {

struct TreeNode {
   enum class Kind { directory, object, collection, value };

   Kind kind = Kind::directory;
   std::string path;                               // as it is written; "/" is where all begins
   std::string type;                               // of the object or value, or of its members
   Qor::Generic it;                                // the object or value
   Qor::Generic owner;                             // the object whose attribute or collection it is
   Qor::TypeAttribute const* attribute = nullptr;  // that this is
   Qor::TypeCollection const* collection = nullptr;  // that this is, or whose member

   bool writable() const { return attribute && attribute->writable(); }
};

class EntityTree {
 public:
   explicit EntityTree(TreeRoots roots) : roots_(std::move(roots)) {}

   // InspectError: what is not there, and what there would be.
   TreeNode find(std::string_view path) const;
   // At most `max` of what is below, behind the first `skip`, and how many there are.
   std::vector<TreeNode> children(TreeNode const& node, std::size_t skip, std::size_t max) const;
   std::size_t size(TreeNode const& node) const;

 private:
   TreeNode childOf(TreeNode const& node, std::string const& segment) const;
   TreeNode inDirectory(TreeNode const& node, std::string const& segment) const;
   std::vector<std::string> directory(std::string const& path) const;

   TreeRoots roots_;
};

// The type of what stands at a node; null where none is registered.
Qor::Type const* typeOf(TreeNode const& node);

// A value as JSON: numbers and truth as such, null for no object, all else as it is shown.
nlohmann::ordered_json valueJson(Qor::Generic const& value, std::string const& type);

// The same for people.
std::string valueText(nlohmann::ordered_json const& value);

}  // namespace Agent
