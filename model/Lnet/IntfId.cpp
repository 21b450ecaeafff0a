#include "Lnet/IntfId.h"

#include <deque>
#include <unordered_map>

namespace Lnet {

namespace {

struct NameTable {
   std::deque<Qor::String> names{""};  // by id; in a deque, which never moves its elements
   std::unordered_map<std::string_view, Qor::U32> ids;
};

// Never destroyed, so that the destructors of static objects can use ids.
NameTable& nameTable() {
   static NameTable* const table = new NameTable;
   return *table;
}

bool isDigit(char c) {
   return c >= '0' && c <= '9';
}

// Removes the run of digits at the front of `text`, and returns it without its leading zeros.
std::string_view takeNumber(std::string_view& text) {
   std::size_t length = 0;
   while (length < text.size() && isDigit(text[length])) {
      ++length;
   }
   std::string_view number = text.substr(0, length);
   text.remove_prefix(length);
   number.remove_prefix(std::min(number.find_first_not_of('0'), number.size()));
   return number;
}

}  // namespace

IntfId::IntfId(std::string_view name) {
   if (name.empty()) return;
   NameTable& table = nameTable();
   auto const known = table.ids.find(name);
   if (known != table.ids.end()) {
      id_ = known->second;
      return;
   }
   id_ = static_cast<Qor::U32>(table.names.size());
   table.names.emplace_back(name);
   table.ids.emplace(table.names.back(), id_);
}

Qor::String const& IntfId::name() const {
   return nameTable().names[id_];
}

std::strong_ordering IntfId::compareNames(IntfId a, IntfId b) {
   std::string_view left = a.name();
   std::string_view right = b.name();
   while (!left.empty() && !right.empty()) {
      if (isDigit(left[0]) && isDigit(right[0])) {
         std::string_view const x = takeNumber(left);
         std::string_view const y = takeNumber(right);
         // Without leading zeros, the number with more digits is the greater.
         if (x.size() != y.size()) return x.size() <=> y.size();
         if (x != y) return x <=> y;
      } else {
         if (left[0] != right[0]) {
            return static_cast<unsigned char>(left[0]) <=> static_cast<unsigned char>(right[0]);
         }
         left.remove_prefix(1);
         right.remove_prefix(1);
      }
   }
   if (left.empty() != right.empty()) return right.empty() <=> left.empty();
   // The names differ in leading zeros alone (rtr1, rtr01), and are two interfaces.
   return a.name() <=> b.name();
}

}  // namespace Lnet
