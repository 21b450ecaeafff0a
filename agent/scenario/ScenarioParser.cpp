#include "agent/scenario/ScenarioParser.h"

#include <set>

#include "agent/input/InputKind.h"
#include "agent/input/LineSource.h"
#include "agent/input/PrintableText.h"
#include "agent/scenario/ScenarioFields.h"

namespace Agent {

namespace {

using namespace Scenario;

// Parses JSON, and refuses an object that has a key twice, because one of the values would be lost.
json jsonFrom(std::string_view text) {
   std::vector<std::set<std::string>> open;
   auto const watch = [&](int, json::parse_event_t event, json& parsed) {
      if (event == json::parse_event_t::object_start) {
         open.emplace_back();
      } else if (event == json::parse_event_t::object_end) {
         open.pop_back();
      } else if (event == json::parse_event_t::key) {
         auto const key = parsed.get<std::string>();
         if (!open.back().insert(key).second) throw Bad{"key " + inQuotes(key) + " occurs twice"};
      }
      return true;
   };
   try {
      json parsed = json::parse(text, watch);
      // The JSON library treats a NUL as the end of the text.
      if (text.find('\0') == std::string_view::npos) return parsed;
      throw Bad{"not valid JSON: a NUL byte"};
   } catch (json::exception const& error) {
      // The error text is "[json...] parse error at line 1, column 5: syntax error while parsing
      // ...". If the text has no line and column, the fault follows the bracket.
      std::string_view what = error.what();
      for (std::string_view const before : {"] ", "parse error at line 1, "}) {
         if (auto const at = what.find(before); at != std::string_view::npos) {
            what.remove_prefix(at + before.size());
         }
      }
      throw Bad{"not valid JSON: " + std::string(what)};
   }
}

double timeFrom(Fields const& top, double before) {
   constexpr double most = maxTime;
   bool const at = top.find("at") != nullptr;
   bool const after = top.find("after") != nullptr;
   if (at && after) refuse("", "both \"at\" and \"after\"");
   double time = before;
   if (at) {
      time = top.number("at", 0, most);
      if (time < before) {
         refuse("at",
                numberText(time) + " is before the time of the line before, " + numberText(before));
      }
   } else if (after) {
      time += top.number("after", 0, most);
      if (time > most) refuse("after", "the time is later than " + numberText(most) + " s");
   }
   return time;
}

Line lineFrom(std::string_view text, double before, bool first) {
   json const parsed = jsonFrom(text);
   std::vector<std::string_view> known = {"at", "after", "path"};
   known.insert(known.end(), std::begin(eventKinds), std::end(eventKinds));
   Fields const top(parsed, "", known);
   Line line;
   line.at = timeFrom(top, before);
   if (top.find("path")) {
      line.path = top.named("path", "path",
                            Names<PathKind>{{"async", PathKind::async}, {"sync", PathKind::sync}});
   }
   std::string kind;
   for (char const* const candidate : eventKinds) {
      if (!top.find(candidate)) continue;
      if (!kind.empty())
         refuse("", inQuotes(kind) + " and " + inQuotes(candidate) + " in one line");
      kind = candidate;
   }
   if (kind.empty()) refuse("", "no event");
   if (kind == "scenario" && !first) refuse(kind, "not the first event of the file");
   if (kind == "scenario" && (top.find("at") || top.find("after")))
      refuse(kind, "this line has no time");
   line.event = eventFrom(kind, parsed.at(kind), line.at);
   return line;
}

}  // namespace

ScenarioParser::Result ScenarioParser::parse(std::string_view text, Line& line) {
   std::size_t const begin = text.find_first_not_of(" \t");
   if (begin == std::string_view::npos || text[begin] == '#') return Result::skipped;
   try {
      Line read = lineFrom(text, time_, first_);
      line.at = read.at;
      line.path = read.path;
      line.event = std::move(read.event);
   } catch (Bad const& bad) {
      reason_ = bad.reason;
      return Result::malformed;
   }
   time_ = line.at;
   first_ = false;
   return Result::event;
}

ScenarioFile ScenarioFile::read(std::string const& fileName) {
   ScenarioFile file;
   if (auto misused = misusedFile(fileName, InputUse::scenario)) {
      file.errors.push_back(*std::move(misused));
      return file;
   }
   ScenarioParser parser;
   LineSource source(fileName);
   auto const refused = [&](std::string reason, std::string_view text, bool fatal) {
      InputError& error = file.errors.emplace_back();
      error.position = {source.name(), source.line()};
      error.reason = std::move(reason);
      error.textIs(text);
      error.fatal = fatal;
   };
   while (true) {
      LineSource::Result result = source.next();
      if (result == LineSource::Result::end) break;
      if (result == LineSource::Result::error) {
         refused(source.reason(), {}, true);
         break;
      }
      if (result == LineSource::Result::part) {
         refused("the line is longer than 65536 bytes", source.text(), false);
         while (result == LineSource::Result::part)
            result = source.next();
         if (result == LineSource::Result::line) continue;
         if (result == LineSource::Result::error) refused(source.reason(), {}, true);
         break;
      }
      Line line;
      line.where = {source.name(), source.line()};
      switch (parser.parse(source.text(), line)) {
         case ScenarioParser::Result::skipped:
            break;
         case ScenarioParser::Result::malformed:
            refused(parser.reason(), source.text(), false);
            break;
         case ScenarioParser::Result::event:
            if (auto const* settings = std::get_if<Settings>(&line.event)) {
               file.settings = *settings;
               file.path = line.path;
            } else {
               file.lines.push_back(std::move(line));
            }
      }
   }
   return file;
}

bool isScenarioFile(std::string const& fileName) {
   return kindOfFile(fileName) == InputKind::scenario;
}

}  // namespace Agent
