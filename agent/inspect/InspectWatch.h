// Who watches what in the entity tree. A watch holds no reference: what is watched lives and dies
// as if nobody looked, and a watch whose object has gone says so and ends.
#pragma once

#include <functional>
#include <memory>
#include <vector>

#include "agent/inspect/InspectTree.h"

namespace Agent {

class InspectWatches {
 public:
   // Told inside the mutator, as a reactor is. An event has "time", "path", "member" where the
   // path does not name it, "key" of a collection, and of "value", "was", "size" and "gone" what
   // there is to say.
   using Tell = std::function<void(nlohmann::ordered_json const& event)>;

   explicit InspectWatches(Tell tell);
   ~InspectWatches();
   InspectWatches(InspectWatches const&) = delete;
   InspectWatches& operator=(InspectWatches const&) = delete;

   // Watches an object, or one attribute or collection of one. InspectError for what is none of
   // these, tells nobody, or is watched already.
   void add(TreeNode const& node);
   // InspectError for what is not watched.
   void remove(std::string const& path);
   void removeAll();
   // Those that have not gone.
   std::vector<std::string> paths();

 private:
   class Watch;

   Tell const tell_;
   std::vector<std::unique_ptr<Watch>> watches_;
};

}  // namespace Agent
