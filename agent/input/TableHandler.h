// The common part of the handlers that read a table of routes from JSON. A handler receives the
// values of the text in order, and each operation returns false to stop the reading.
#pragma once

#include <nlohmann/json.hpp>
#include <string>
#include <string_view>

#include "agent/input/CaptureEvent.h"

namespace Agent {

class TableHandler : public nlohmann::json_sax<nlohmann::json> {
 public:
   // `reached` is the byte of the text behind the last one that was read. All references outlive
   // the handler, which adds the routes to `event`.
   TableHandler(std::string_view text, char const* const& reached, SnapshotEvent& event)
         : event_(event), text_(text), reached_(reached) {}

   bool null() override { return value("null"); }
   bool boolean(bool) override { return value("a boolean"); }
   bool number_integer(number_integer_t) override { return value("a number"); }
   bool number_unsigned(number_unsigned_t) override { return value("a number"); }
   bool number_float(number_float_t, std::string const&) override { return value("a number"); }
   bool binary(binary_t&) override { return value("binary data"); }
   bool key(std::string& name) override {
      key_ = name;
      return true;
   }
   bool parse_error(std::size_t position, std::string const& token,
                    nlohmann::json::exception const& error) override;

   // The fault, after an operation has returned false: see SnapshotParser.
   std::string reason;
   std::size_t position = 0;
   std::string_view excerpt;

 protected:
   // Whether the reading is inside a route, which a fault is then reported for.
   virtual bool inRoute() const = 0;
   // A value of the last key, or of the list, that is neither a text nor a list nor an object.
   virtual bool value(char const* kind) = 0;

   // Sets the fault and returns false.
   bool fail(std::string what);
   void routeBegins() { routeAt_ = reached() - 1; }
   void add(MrouteEvent route);

   SnapshotEvent& event_;
   std::size_t skipped_ = 0;  // the depth inside the value of an ignored key
   std::string key_;

 private:
   std::size_t reached() const { return static_cast<std::size_t>(reached_ - text_.data()); }

   std::string_view text_;
   char const* const& reached_;
   std::size_t routeAt_ = 0;
};

}  // namespace Agent
