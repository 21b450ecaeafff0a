#include "agent/inspect/InspectWatch.h"
#include "agent/input/PrintableText.h"

#include <algorithm>
#include <nlohmann/json.hpp>

#include "Qor/Clock.h"
#include "agent/inspect/InspectWords.h"

namespace Agent {

using nlohmann::ordered_json;
using Qor::Generic;

class InspectWatches::Watch {
 public:
   // `member` is the only member of the object whose changes are reported, or empty for all
   // members.
   Watch(std::string path, Generic const& object, std::string member, Report const& report)
         : path_(std::move(path)),
           member_(std::move(member)),
           report_(report),
           object_(object.object().get()),
           type_(*Qor::typeOf(object)),
           following_(object, [this](Qor::Change const& change) { onChange(change); }) {
      for (auto const* const attribute : type_.allAttributes()) {
         if (!attribute->handler.empty() && attribute->readable()) {
            values_[attribute->name] = valueJson(attribute->read(object), attribute->type);
         }
      }
   }

   std::string const& path() const { return path_; }
   bool alive() const { return following_.alive(); }

 private:
   void onChange(Qor::Change const& change) {
      ordered_json event = {{"at", Qor::now()}, {"path", path_}};
      if (change.gone) {
         event["gone"] = true;
         report_(event);
         return;
      }
      if (!member_.empty() && change.member != member_) return;
      if (member_.empty()) event["member"] = change.member;
      // The object exists during its notification. `false` keeps this reference from destroying it.
      Generic const object(Qor::Ptr<Qor::RefCounted const>(object_), path_, false);
      for (auto const* const attribute : type_.allAttributes()) {
         if (attribute->name != change.member) continue;
         ordered_json value = valueJson(attribute->read(object), attribute->type);
         ordered_json& last = values_[attribute->name];
         if (value == last) return;  // the same value was stored again
         event["was"] = std::exchange(last, value);
         event["value"] = std::move(value);
         report_(event);
         return;
      }
      Qor::TypeCollection const& collection = type_.collection(change.member);
      if (!change.key) {
         event["size"] = collection.size(object);
      } else {
         event["key"] = printable(change.key->pretty());
         if (auto const member = collection.find(object, *change.key)) {
            event["value"] = valueJson(member->value, collection.valueType);
         } else {
            event["gone"] = true;
         }
      }
      report_(event);
   }

   std::string const path_;
   std::string const member_;
   Report const& report_;
   Qor::RefCounted const* const object_;
   Qor::Type const& type_;
   std::map<std::string, ordered_json> values_;
   Qor::Following following_;
};

InspectWatches::InspectWatches(Report report) : report_(std::move(report)) {}

InspectWatches::~InspectWatches() = default;

void InspectWatches::removeAll() {
   watches_.clear();
}

void InspectWatches::add(TreeNode const& node) {
   for (std::string const& path : paths()) {
      if (path == node.path) throw InspectError(printable(path) + " is watched already");
   }
   Generic object = node.it;
   std::string member;
   if (node.kind != TreeNode::Kind::object) {
      bool const whole = node.kind == TreeNode::Kind::collection;
      if (!whole && !node.attribute) {
         throw InspectError(printable(node.path) +
                            " is not an object, an attribute or a collection");
      }
      object = node.owner;
      member = whole ? node.collection->name : node.attribute->name;
      if ((whole ? node.collection->handler : node.attribute->handler).empty()) {
         throw InspectError(printable(node.path) + " notifies no reactors of its changes");
      }
   }
   if (!Qor::typeOf(object)) {
      throw InspectError(printable(node.path) + " belongs to a value, which never changes");
   }
   watches_.push_back(std::make_unique<Watch>(node.path, object, member, report_));
}

void InspectWatches::remove(std::string const& path) {
   auto const gone = std::erase_if(
         watches_, [&](std::unique_ptr<Watch> const& watch) { return watch->path() == path; });
   if (!gone) throw InspectError(printable(path) + " is not watched");
}

std::vector<std::string> InspectWatches::paths() {
   std::erase_if(watches_, [](std::unique_ptr<Watch> const& watch) { return !watch->alive(); });
   std::vector<std::string> paths;
   for (auto const& watch : watches_)
      paths.push_back(watch->path());
   return paths;
}

}  // namespace Agent
