#include "agent/input/SnapshotParser.h"

#include <iterator>
#include <optional>
#include <utility>

#include "agent/input/FrrTable.h"
#include "agent/input/PrintableText.h"
#include "agent/input/RouteFields.h"
#include "agent/input/TableHandler.h"

namespace Agent {

namespace {

using nlohmann::json;

// Iterates over the text and records the position for the handler of the values, which thereby
// knows the place of a faulty value. The JSON reader is at most one byte ahead of the value.
class Cursor {
 public:
   using iterator_category = std::forward_iterator_tag;
   using value_type = char;
   using difference_type = std::ptrdiff_t;
   using pointer = char const*;
   using reference = char const&;

   Cursor() = default;
   Cursor(char const* at, char const** reached) : at_(at), reached_(reached) {}

   reference operator*() const { return *at_; }
   Cursor& operator++() {
      *reached_ = ++at_;
      return *this;
   }
   Cursor operator++(int) {
      Cursor const before = *this;
      ++*this;
      return before;
   }
   friend bool operator==(Cursor const& a, Cursor const& b) { return a.at_ == b.at_; }

 private:
   char const* at_ = nullptr;
   char const** reached_ = nullptr;
};

struct RouteText {
   std::optional<std::string> source;
   std::optional<std::string> group;
   std::optional<std::string> table;
   std::string iif{unresolvedWord};
   std::string state = "resolved";
   std::vector<Lnet::IntfId> oifs;
};

// Receives the values of an `ip` table.
class IpTable final : public TableHandler {
 public:
   using TableHandler::TableHandler;

   bool number_unsigned(number_unsigned_t n) override {
      if (skipped_ || where_ != Where::route || key_ != "table") return value("a number");
      std::string text = std::to_string(n);
      return string(text);
   }
   bool string(std::string& text) override;
   bool start_object(std::size_t) override;
   bool end_object() override;
   bool start_array(std::size_t) override;
   bool end_array() override;

 private:
   enum class Where { top, list, route, hops, hop };

   bool inRoute() const override { return where_ != Where::top && where_ != Where::list; }
   bool value(char const* kind) override;
   bool endRoute();

   Where where_ = Where::top;
   RouteText route_;
   bool hopHasOif_ = false;
};

// A value that is neither a text nor a list nor an object.
bool IpTable::value(char const* kind) {
   if (skipped_) return true;
   switch (where_) {
      case Where::top:
         return fail(std::string(kind) + " is not a list of routes");
      case Where::list:
         return fail(std::string(kind) + " in the list where a route is expected");
      case Where::hops:
         return fail(std::string("\"multipath\" holds ") + kind);
      case Where::hop:
         return key_ != "oif" || fail(std::string("\"oif\" is ") + kind);
      case Where::route:
         break;
   }
   for (char const* const text : {"src", "dst", "iif", "state", "table", "multipath"}) {
      if (key_ == text) return fail(inQuotes(key_) + " is " + kind);
   }
   return true;
}

bool IpTable::string(std::string& text) {
   if (skipped_) return true;
   if (where_ == Where::hop) {
      if (key_ != "oif") return true;
      Lnet::IntfId intf;
      if (auto bad = intfOf(text, intf); !bad.empty()) return fail(std::move(bad));
      if (std::exchange(hopHasOif_, true))
         return fail("two \"oif\" in one member of \"multipath\"");
      route_.oifs.push_back(intf);
      return true;
   }
   if (where_ != Where::route || key_ == "multipath") return value("a text");
   if (key_ == "src") {
      route_.source = std::move(text);
   } else if (key_ == "dst") {
      route_.group = std::move(text);
   } else if (key_ == "table") {
      route_.table = std::move(text);
   } else if (key_ == "iif") {
      route_.iif = std::move(text);
   } else if (key_ == "state") {
      route_.state = std::move(text);
   }
   return true;
}

bool IpTable::start_object(std::size_t) {
   if (skipped_) {
      ++skipped_;
   } else if (where_ == Where::list) {
      where_ = Where::route;
      routeBegins();
      route_ = RouteText();
   } else if (where_ == Where::hops) {
      where_ = Where::hop;
      hopHasOif_ = false;
   } else {
      if (!value("an object")) return false;
      ++skipped_;
   }
   return true;
}

bool IpTable::end_object() {
   if (skipped_) {
      --skipped_;
   } else if (where_ == Where::hop) {
      if (!hopHasOif_) return fail("a member of \"multipath\" has no \"oif\"");
      where_ = Where::hops;
   } else {
      return endRoute();
   }
   return true;
}

bool IpTable::start_array(std::size_t) {
   if (skipped_) {
      ++skipped_;
   } else if (where_ == Where::top) {
      where_ = Where::list;
   } else if (where_ == Where::route && key_ == "multipath") {
      where_ = Where::hops;
      route_.oifs.clear();
   } else {
      if (!value("a list")) return false;
      ++skipped_;
   }
   return true;
}

bool IpTable::end_array() {
   if (skipped_) {
      --skipped_;
   } else {
      where_ = where_ == Where::hops ? Where::route : Where::top;
   }
   return true;
}

bool IpTable::endRoute() {
   if (!route_.source) return fail("no \"src\"");
   if (!route_.group) return fail("no \"dst\"");
   MrouteEvent route;
   if (auto bad = routeKeyOf(*route_.source, *route_.group, route.key); !bad.empty()) {
      return fail(std::move(bad));
   }
   if (auto bad = vrfOf(route.key.group().family() == Lnet::IpFamily::v4, route_.table, route.vrf);
       !bad.empty()) {
      return fail(std::move(bad));
   }
   if (route_.iif != unresolvedWord) {
      if (auto bad = intfOf(route_.iif, route.iif); !bad.empty()) return fail(std::move(bad));
   }
   route.resolved = route_.state == "resolved";
   if (!route.resolved && route_.state != unresolvedWord) {
      return fail("unknown state " + inQuotes(route_.state));
   }
   route.oifs = std::move(route_.oifs);
   add(std::move(route));
   where_ = Where::list;
   return true;
}

}  // namespace

bool SnapshotParser::looksLikeJson(std::string_view line) {
   constexpr std::string_view blanks = " \t\r\n";
   std::size_t const first = line.find_first_not_of(blanks);
   if (first == std::string_view::npos) return false;
   if (line[first] != '[' && line[first] != '{') return false;
   std::size_t const second = line.find_first_not_of(blanks, first + 1);
   if (second == std::string_view::npos) return true;
   return line[first] == '[' ? line[second] == '{' || line[second] == ']'
                             : line[second] == '"' || line[second] == '}';
}

bool SnapshotParser::parse(std::string_view text, SnapshotEvent& event) {
   SnapshotEvent result;
   char const* reached = text.data();
   std::unique_ptr<TableHandler> const made =
         looksLikeFrrTable(text) ? newFrrTable(text, reached, result)
                                 : std::make_unique<IpTable>(text, reached, result);
   TableHandler& handler = *made;
   if (json::sax_parse(Cursor(text.data(), &reached), Cursor(text.data() + text.size(), &reached),
                       made.get())) {
      // The JSON reader treats a NUL as the end of the text.
      std::size_t const nul = text.find('\0');
      if (nul == std::string_view::npos) {
         event = std::move(result);
         return true;
      }
      handler.parse_error(nul + 1, "", json::parse_error::create(101, nul + 1, "a NUL", nullptr));
   }
   reason_ = std::move(handler.reason);
   position_ = handler.position;
   excerpt_ = handler.excerpt;
   return false;
}

bool JsonExtent::closed(std::string_view piece, std::string_view& rest) {
   for (std::size_t i = 0; i < piece.size(); ++i) {
      char const c = piece[i];
      if (inString_) {
         inString_ = escaped_ || c != '"';
         escaped_ = !escaped_ && c == '\\';
      } else if (c == '"') {
         inString_ = true;
      } else if (c == '[' || c == '{') {
         ++depth_;
      } else if ((c == ']' || c == '}') && --depth_ == 0) {
         rest = piece.substr(i + 1);
         return true;
      }
   }
   return false;
}

}  // namespace Agent
