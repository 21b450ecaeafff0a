// An ordered map from a small key to a flag, in one sorted vector. The sets of outgoing pairs are
// such maps: they have few members, are compared and hashed as a whole, and are copied far more
// often than they change. Iteration is over pairs (key, flag) in the order of the keys. A change
// invalidates all iterators.
#pragma once

#include <algorithm>
#include <utility>
#include <vector>

#include "Qor/Strep.h"

namespace MrouteLib {

template <class K>
class FlatFlagMap {
 public:
   using Member = std::pair<K, bool>;
   using const_iterator = typename std::vector<Member>::const_iterator;

   const_iterator begin() const { return members_.begin(); }
   const_iterator end() const { return members_.end(); }
   std::size_t size() const { return members_.size(); }
   bool empty() const { return members_.empty(); }
   // The member of `key`, or end().
   const_iterator find(K const& key) const {
      auto const at = position(members_, key);
      return at != end() && at->first == key ? at : end();
   }

   // Inserts the member, or changes the flag of the present member.
   void set(K const& key, bool flag) {
      auto const at = position(members_, key);
      if (at != members_.end() && at->first == key) {
         at->second = flag;
      } else {
         members_.emplace(at, key, flag);
      }
   }
   // Does nothing for a key that is not in the map.
   void erase(K const& key) {
      auto const at = find(key);
      if (at != end()) members_.erase(at);
   }
   void clear() { members_.clear(); }

   // "{<key>: True, <key>: False}"
   Qor::String strep() const {
      Qor::String out = "{";
      for (auto const& [key, flag] : members_) {
         if (out.size() > 1) out += ", ";
         out += key.strep() + ": " + Qor::valueToStrep(flag);
      }
      return out + "}";
   }
   static FlatFlagMap fromStrep(Qor::StrepReader& reader) {
      FlatFlagMap map;
      reader.expect("{");
      while (!reader.accept("}")) {
         if (!map.empty()) reader.expect(", ");
         K const key = K::fromStrep(reader);
         reader.expect(": ");
         map.set(key, reader.boolean());
      }
      return map;
   }

   friend bool operator==(FlatFlagMap const&, FlatFlagMap const&) = default;

 private:
   // The position of `key`, or the position at which to insert it, as an iterator of `members`.
   template <class Members>
   static auto position(Members& members, K const& key) {
      return std::lower_bound(members.begin(), members.end(), key,
                              [](Member const& m, K const& k) { return m.first < k; });
   }

   std::vector<Member> members_;
};

}  // namespace MrouteLib
