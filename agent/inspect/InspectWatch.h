// The watches on the entity tree. A watch holds no reference to its object. When the object is
// destroyed, the watch reports that and ends.
#pragma once

#include <functional>
#include <memory>
#include <vector>

#include "agent/inspect/InspectTree.h"

namespace Agent {

class InspectWatches {
 public:
   // Called inside the mutator, as a reactor is. An event has "at" and "path"; "member" for a
   // watch on an object; "key" for a member of a collection; and "value", "was", "size" or "gone"
   // for the change.
   using Report = std::function<void(nlohmann::ordered_json const& event)>;

   explicit InspectWatches(Report report);
   ~InspectWatches();
   InspectWatches(InspectWatches const&) = delete;
   InspectWatches& operator=(InspectWatches const&) = delete;

   // Watches an object, or one attribute or collection of an object. Raises InspectError for
   // another node, for a member that notifies no reactors, and for a node that is watched already.
   void add(TreeNode const& node);
   // Raises InspectError for a path that is not watched.
   void remove(std::string const& path);
   void removeAll();
   // The watched paths whose objects still exist.
   std::vector<std::string> paths();

 private:
   class Watch;

   Report const report_;
   std::vector<std::unique_ptr<Watch>> watches_;
};

}  // namespace Agent
