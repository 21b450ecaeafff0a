// The entity tree of a switch. The roots are objects. The children of an object are its attributes
// and collections, by name, and the children of a collection are its members, by key. The tree uses
// the type registry alone.
//
//    /switch/1/zombieOifSet/[1]/multicastId
//
// A key in a path is written as `ls` prints it; [N] is the Nth member, counted from 1. An attribute
// or a member has children if it is an object, or a value whose type has attributes. The tree may
// have circles, and a path may follow them any number of times.
//
// The tree holds references to its roots, and a node to its object. Both live for one command only,
// so that no object lives longer because of the inspector.
#pragma once

#include <nlohmann/json_fwd.hpp>
#include <optional>
#include <string>
#include <vector>

#include "Qor/Type.h"
#include "agent/switch/SwitchPath.h"

namespace Agent {

struct TreeNode {
   enum class Kind { directory, object, collection, value };

   Kind kind = Kind::directory;
   std::string path;                                 // as a user writes it; "/" is the top
   std::string type;                                 // of the object or value, or of its members
   Qor::Generic it;                                  // the object or value
   Qor::Generic owner;                               // the object of the attribute or collection
   Qor::TypeAttribute const* attribute = nullptr;    // for an attribute
   Qor::TypeCollection const* collection = nullptr;  // for a collection, or a member of one

   bool writable() const { return attribute && attribute->writable(); }
};

class EntityTree {
 public:
   explicit EntityTree(TreeRoots roots) : roots_(std::move(roots)) {}

   // Raises InspectError for a path without a node. The error names the children that exist.
   TreeNode find(std::string_view path) const;
   // At most `max` children, behind the first `skip`; and the number of all children.
   std::vector<TreeNode> children(TreeNode const& node, std::size_t skip, std::size_t max) const;
   std::size_t size(TreeNode const& node) const;

 private:
   TreeNode childOf(TreeNode const& node, std::string const& segment) const;
   TreeNode inDirectory(TreeNode const& node, std::string const& segment) const;
   std::vector<std::string> directory(std::string const& path) const;

   TreeRoots roots_;
};

// The type of the object or value of a node; null if no type is registered.
Qor::Type const* typeOf(TreeNode const& node);

// A value as JSON: numbers and booleans as such, null for a null pointer, and a text for all
// others.
nlohmann::ordered_json valueJson(Qor::Generic const& value, std::string const& type);

// The same value as text.
std::string valueText(nlohmann::ordered_json const& value);

}  // namespace Agent
