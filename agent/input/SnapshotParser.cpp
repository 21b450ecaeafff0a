#include "agent/input/SnapshotParser.h"

#include <algorithm>
#include <iterator>
#include <nlohmann/json.hpp>
#include <optional>
#include <utility>

#include "agent/input/PrintableText.h"
#include "agent/input/RouteFields.h"

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

// Receives the values of the text in order. Every operation returns false to stop the reading.
class Handler final : public nlohmann::json_sax<json> {
 public:
   Handler(std::string_view text, char const* const& reached, SnapshotEvent& event)
         : text_(text), reached_(reached), event_(event) {}

   bool null() override { return value("null"); }
   bool boolean(bool) override { return value("a boolean"); }
   bool number_integer(number_integer_t) override { return value("a number"); }
   bool number_unsigned(number_unsigned_t n) override {
      if (skipped_ || where_ != Where::route || key_ != "table") return value("a number");
      std::string text = std::to_string(n);
      return string(text);
   }
   bool number_float(number_float_t, std::string const&) override { return value("a number"); }
   bool binary(binary_t&) override { return value("binary data"); }
   bool string(std::string& text) override;
   bool key(std::string& name) override {
      key_ = name;
      return true;
   }
   bool start_object(std::size_t) override;
   bool end_object() override;
   bool start_array(std::size_t) override;
   bool end_array() override;
   bool parse_error(std::size_t position, std::string const& token,
                    json::exception const& error) override;

   std::string reason;
   std::size_t position = 0;
   std::string_view excerpt;

 private:
   enum class Where { top, list, route, hops, hop };

   std::size_t reached() const { return static_cast<std::size_t>(reached_ - text_.data()); }
   bool value(char const* kind);
   bool fail(std::string what);
   bool endRoute();

   std::string_view text_;
   char const* const& reached_;
   SnapshotEvent& event_;
   Where where_ = Where::top;
   std::size_t skipped_ = 0;  // the depth inside the value of an ignored key
   std::size_t routeAt_ = 0;
   std::string key_;
   RouteText route_;
   bool hopHasOif_ = false;
};

bool Handler::fail(std::string what) {
   bool const inRoute = where_ != Where::top && where_ != Where::list;
   position = inRoute ? routeAt_ : std::max<std::size_t>(reached(), 1) - 1;
   excerpt = text_.substr(position, inRoute ? reached() - position : std::string_view::npos);
   reason = inRoute ? "route " + std::to_string(event_.routes.size() + 1) + ": " : "";
   reason += what;
   return false;
}

// A value that is neither a text nor a list nor an object.
bool Handler::value(char const* kind) {
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

bool Handler::string(std::string& text) {
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

bool Handler::start_object(std::size_t) {
   if (skipped_) {
      ++skipped_;
   } else if (where_ == Where::list) {
      where_ = Where::route;
      routeAt_ = reached() - 1;
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

bool Handler::end_object() {
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

bool Handler::start_array(std::size_t) {
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

bool Handler::end_array() {
   if (skipped_) {
      --skipped_;
   } else {
      where_ = where_ == Where::hops ? Where::route : Where::top;
   }
   return true;
}

bool Handler::endRoute() {
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
   if (!event_.covers(route.vrf, route.key)) {
      event_.scopes.push_back({route.key.group().family(), route.vrf});
   }
   event_.routes.push_back(std::move(route));
   where_ = Where::list;
   return true;
}

bool Handler::parse_error(std::size_t at, std::string const&, json::exception const& error) {
   constexpr std::size_t before = 60;
   position = std::min(at ? at - 1 : 0, text_.size());
   std::size_t const first = position > before ? position - before : 0;
   excerpt = text_.substr(first, position + 1 - first);
   // The library reports "[json...] parse error at line 1, column 5: syntax error while parsing
   // ...". Its place is replaced by the place in the file.
   std::string_view what = error.what();
   if (auto const colon = what.find(": "); colon != std::string_view::npos) {
      what.remove_prefix(colon + 2);
   }
   reason = "not valid JSON: ";
   reason += what;
   return false;
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
   Handler handler(text, reached, result);
   if (json::sax_parse(Cursor(text.data(), &reached), Cursor(text.data() + text.size(), &reached),
                       &handler)) {
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
