// The target `inspector`: each line of an input is a command of the inspector.
#include <algorithm>
#include <nlohmann/json.hpp>
#include <sstream>

#include "Qor/Trace.h"
#include "agent/inspect/Inspector.h"
#include "fuzzing/Target.h"
#include "tests/InspectedScenario.h"

namespace Fuzz {

using namespace Agent;

namespace {

// Whether a terminal can print the text: printable ASCII, in one line or in several.
bool isPlain(std::string_view text, bool severalLines) {
   return std::ranges::all_of(
         text, [&](char c) { return (c >= ' ' && c <= '~') || (severalLines && c == '\n'); });
}

// Commands that change the run are left out. The inspector tries `set` and `call` in a copy of the
// process, and an engine takes the end of the copy for a crash. `run` takes any length of time.
bool isLeftOut(std::string_view line) {
   try {
      auto const words = wordsOf(line);
      return !words.empty() &&
             std::ranges::count(std::initializer_list<std::string>{"set", "call", "run"},
                                words[0].text) > 0;
   } catch (InspectError const&) {
      return false;
   }
}

class NoTrace final : public Qor::TraceSink {
 public:
   NoTrace() : before_(Qor::traceSinkIs(this)) {}
   ~NoTrace() override {
      Qor::traceLevelIs(-1, "*");
      Qor::traceSinkIs(before_);
   }
   void trace(Qor::TraceRecord const&) override {}

 private:
   Qor::TraceSink* const before_;
};

void checkSegment(std::string_view text) {
   std::string const path = '/' + quotedSegment(text) + "/x";
   require(segmentsOf(path) == std::vector<std::string>{std::string(text), "x"},
           "a quoted segment of a path is parsed as a different segment");
   require(text.find_first_of("\r\n") != std::string_view::npos || wordsOf(path).size() == 1,
           "a quoted path is parsed as several words");
}

void evaluate(Inspector& inspector, std::ostringstream& out, bool json, std::string_view line) {
   out.str("");
   auto const outcome = inspector.evaluate(line);
   std::string const text = out.str();
   require(isPlain(text, true), "the output contains unprintable characters: " + text);
   if (outcome == Inspector::Outcome::failed) {
      require(!inspector.error().empty() && isPlain(inspector.error(), false),
              "an error is empty, unprintable or longer than a line: " + inspector.error());
   }
   if (!json) return;
   std::istringstream lines(text);
   for (std::string one; std::getline(lines, one);)
      require(nlohmann::json::accept(one), "a line of the output is not JSON: " + one);
}

void complete(Inspector const& inspector, std::string_view line) {
   Completion const completion = inspector.complete(line);
   require(completion.at <= line.size(), "the completed word begins behind the end of the line");
   for (std::string const& word : completion.words) {
      if (word.ends_with(' ')) continue;
      // Completing a proposed word again must propose something.
      auto const again = inspector.complete(std::string(line.substr(0, completion.at)) + word);
      require(!again.words.empty(), "the proposed word " + word + " has no completion");
   }
}

void runInspector(std::string_view input) {
   constexpr std::size_t mostLines = 20;
   NoTrace const noTrace;
   InspectedScenario world(input.size() % 2 ? PathKind::async : PathKind::sync);
   world.runUntil(1.2);
   std::ostringstream out, jsonOut;
   Inspector plain(world, out, false), json(world, jsonOut, true);
   checkSegment(input);
   std::size_t lines = 0;
   for (std::size_t at = 0; at <= input.size() && lines < mostLines; ++lines) {
      std::size_t const end = std::min(input.find('\n', at), input.size());
      std::string_view const line = input.substr(at, end - at);
      at = end + 1;
      complete(plain, line);
      if (isLeftOut(line)) continue;
      evaluate(plain, out, false, line);
      evaluate(json, jsonOut, true, line);
   }
}

std::vector<std::string> inspectorSeeds() {
   return {"ls\nls /switch/1/zombieOifSet 2\nget /switch/1/switchId",
           "ls /hwStatus/vrfStatus/default/route\nget "
           "/hwStatus/vrfStatus/default/route/\"(10.0.0.2, 239.1.1.1)\"",
           "watch /switch/1/inUseOifSet\nwatch /switch/1\nstep\nwatch\nunwatch",
           "explain 10.0.0.2,239.1.1.1\nexplain (*, 239.1.1.9)\nexplain 10.0.0.2,239.1.1.5 vrf red",
           "types\ntypes Vel::Mroute::ZombieKey\ntrace 9:Vel*\nstep\ntrace off",
           "help\nhelp ls\nquit\n# nothing",
           "get /sm/1/mrouteSwitch/zombieOifSet[1]",
           "get " + std::string(60000, '/'),
           "get /" + std::string(60000, 'x'),
           std::string(70000, '"')};
}

}  // namespace

Target inspectorTarget() {
   using namespace std::string_literals;
   return {runInspector,
           inspectorSeeds,
           {"get ",
            "ls ",
            "watch ",
            "unwatch ",
            "explain ",
            "types ",
            "trace ",
            "step",
            "set ",
            "call ",
            "help ",
            "\n",
            "/switch/1",
            "/sm/1",
            "/mroute",
            "/zombieOifSet",
            "/inUseOifSet",
            "/[1]",
            "/mrouteSwitch",
            "/oifSet",
            "/hwStatus",
            "/vrfStatus",
            "/default",
            "/route",
            "/config",
            "\"",
            "\\",
            "/",
            "//",
            " ",
            "#",
            "Value('Vel::ZombieKey', ** {",
            "10.0.0.2,239.1.1.1",
            "(*, 239.1.1.9)",
            "*",
            " vrf ",
            "red",
            "\0\x1b[2J\xff"s,
            "-1",
            "99999999999999999999",
            "9:Vel*",
            "off:"}};
}

}  // namespace Fuzz
