#include "agent/input/InputKind.h"

#include <sys/stat.h>

#include <algorithm>
#include <fstream>
#include <utility>

#include "Lnet/IpGenAddr.h"
#include "agent/input/Characters.h"
#include "agent/input/LineSource.h"

namespace Agent {

namespace {

using enum InputKind;

constexpr std::string_view blanks = " \t\r\n";

std::string_view skipped(std::string_view text) {
   text.remove_prefix(std::min(text.find_first_not_of(blanks), text.size()));
   return text;
}

// The text from the first line on that is neither empty nor a comment.
std::string_view content(std::string_view text) {
   while (true) {
      text = skipped(text);
      if (!text.starts_with('#')) return text;
      text.remove_prefix(std::min(text.find('\n'), text.size()));
   }
}

struct Mark {
   std::string_view beginning;
   InputKind kind;
};

InputKind markedKind(std::string_view text, auto const& marks) {
   for (Mark const& mark : marks) {
      if (text.starts_with(mark.beginning)) return mark.kind;
   }
   return unknown;
}

constexpr Mark binaryMarks[] = {
      {"\xd4\xc3\xb2\xa1", packets},
      {"\xa1\xb2\xc3\xd4", packets},
      {"\x4d\x3c\xb2\xa1", packets},
      {"\xa1\xb2\x3c\x4d", packets},
      {"\x0a\x0d\x0d\x0a", packets},
      {"\x1f\x8b", gzip},
      {"\x28\xb5\x2f\xfd", compressed},
      {"\xfd"
       "7zXZ",
       compressed},
      {"PK\x03\x04", compressed},
      {"BZh", compressed},
};

constexpr Mark textMarks[] = {
      {"(", unstamped},
      {"Deleted ", unstamped},
      {"[MROUTE]", unstamped},
      {"[LINK]", unstamped},
      {"[nsid ", unstamped},
      {"IP Multicast Routing Table", frrText},
      {"IPv6 Multicast Routing Table", frrText},
      {"VRF: ", frrText},
      {"Flags: S - Sparse", frrText},
      {"Source  ", frrText},
      {"<!DOCTYPE", html},
      {"<!doctype", html},
      {"<html", html},
      {"<HTML", html},
};

constexpr std::string_view directives[] = {"switch",
                                           "interface",
                                           "reroute",
                                           "table",
                                           "control",
                                           "metrics",
                                           "expiry",
                                           "groups",
                                           "log",
                                           "standby-hold",
                                           "hold-on-daemon-restart"};

// Reads the keys of a JSON text.
class JsonKeys {
 public:
   explicit JsonKeys(std::string_view text) : rest_(text) {}

   // Reads a character behind blanks.
   bool accept(char c) {
      rest_ = skipped(rest_);
      if (!rest_.starts_with(c)) return false;
      rest_.remove_prefix(1);
      return true;
   }
   // Reads "KEY":. Empty if there is none.
   std::string_view key() {
      if (!accept('"')) return {};
      std::size_t const end = rest_.find('"');
      if (end == std::string_view::npos) return {};
      std::string_view const text = rest_.substr(0, end);
      rest_.remove_prefix(end + 1);
      return accept(':') ? text : std::string_view();
   }

 private:
   std::string_view rest_;
};

bool isGroup(std::string_view key) {
   auto const address = Lnet::IpGenAddr::parse(key);
   return address && address->isMulticast();
}

// An object is a table of FRR if its first member, or the first member of a VRF, is a group. A VRF
// without routes is an empty object, and FRR always has the VRF "default".
InputKind kindOfObject(std::string_view text) {
   JsonKeys json(text.substr(1));
   if (json.accept('}')) return frrTable;
   std::string_view first;
   do {
      std::string_view const key = json.key();
      if (first.empty()) first = key;
      if (isGroup(key)) return frrTable;
      if (key == "traceEvents" || key == "displayTimeUnit") return timeline;
      if (key.empty() || !json.accept('{')) break;
      if (!json.accept('}')) {
         if (isGroup(json.key())) return frrTable;
         break;
      }
      if (json.accept('}')) return first == "default" ? frrTable : scenario;
   } while (json.accept(','));
   std::string_view const line = text.substr(1, text.find('\n') - 1);
   return skipped(line).empty() ? otherJson : scenario;
}

InputKind kindOfList(std::string_view text) {
   if (text.size() > 1 && isDigit(text[1])) return monitor;
   JsonKeys json(text.substr(1));
   if (!json.accept('{')) return json.accept(']') ? ipTable : unknown;
   std::string_view const key = json.key();
   return key == "ifindex" || key == "ifname" || key == "link" ? otherIpJson : ipTable;
}

// The kind by the first two words of a line: "NAME port=1", "switch unix:...".
InputKind kindOfWords(std::string_view line) {
   std::size_t const end = std::min(line.find_first_of(" \t"), line.size());
   std::string_view const first = line.substr(0, end), second = skipped(line.substr(end));
   if (second.starts_with("port=") || second.starts_with("vlan=")) return interfaceMap;
   if (std::ranges::find(directives, first) != std::end(directives)) return configuration;
   // "7: rtr5@if2: <FLAGS>": a link.
   bool const number = !first.empty() && std::all_of(first.begin(), first.end() - 1, isDigit);
   if (number && first.size() > 1 && first.back() == ':') return unstamped;
   return unknown;
}

struct Description {
   InputKind kind;
   char const* what;
   char const* advice;  // the command that takes the input
};

constexpr char const* replays = "`velmroute run FILE` replays it";

constexpr Description descriptions[] = {
      {monitor, "a capture, of `ip -ts -o monitor mroute link`", replays},
      {unstamped, "a capture without time stamps, of `ip mroute show` or `ip monitor`", replays},
      {ipTable, "a capture, of `ip -j mroute show`", replays},
      {frrTable, "a capture, of FRR's `show ip mroute json`", replays},
      {frrText, "the text of FRR's `show ip mroute`",
       "record `show ip mroute vrf all json`, which `velmroute run FILE` replays"},
      {otherIpJson, "the output of `ip -j link` or `ip -j address`",
       "record `ip -j mroute show`, which `velmroute run FILE` replays"},
      {scenario, "a scenario", "`velmroute run FILE` and `velmroute soak FILE` play it"},
      {timeline, "a timeline, of --timeline", "a trace viewer opens it"},
      {interfaceMap, "a map of interfaces", "`velmroute run --map FILE` takes it"},
      {configuration, "a configuration", "`velmroute agent --config FILE` takes it"},
      {otherJson, "other JSON",
       "a scenario has one object in each line, and a table is that of `ip -j mroute show` or FRR"},
      {html, "a web page", "a browser opens it"},
      {packets, "a capture of packets",
       "`velmroute run` takes routes, as `ip -ts -o monitor mroute link` records them"},
      {gzip, "compressed by gzip", "decompress it with `gzip -d`"},
      {compressed, "compressed by another program than gzip", "decompress it first"},
      {binary, "binary data", "`velmroute run FILE` takes captures and scenarios, which are text"},
};

constexpr char const* useName(InputUse use) {
   switch (use) {
      case InputUse::capture:
         return "a capture of routes";
      case InputUse::scenario:
         return "a scenario";
      case InputUse::interfaceMap:
         return "a map of interfaces";
      case InputUse::configuration:
         break;
   }
   return "a configuration";
}

bool suits(InputKind kind, InputUse use) {
   switch (use) {
      case InputUse::capture:
         return kind == monitor || kind == unstamped || kind == ipTable || kind == frrTable;
      case InputUse::scenario:
         return kind == scenario;
      case InputUse::interfaceMap:
         return kind == interfaceMap;
      case InputUse::configuration:
         break;
   }
   return kind == configuration;
}

}  // namespace

InputKind kindOf(std::string_view beginning) {
   if (auto const kind = markedKind(beginning, binaryMarks); kind != unknown) return kind;
   std::string_view const text = content(beginning);
   if (text.empty()) return empty;
   std::string_view const line = text.substr(0, text.find('\n'));
   if (line.find('\0') != std::string_view::npos) return binary;
   if (text[0] == '{') return kindOfObject(text);
   auto const marked = markedKind(text, textMarks);
   if (marked != unknown) return marked;
   return text[0] == '[' ? kindOfList(text) : kindOfWords(line);
}

std::optional<InputKind> kindOfFile(std::string const& file) {
   constexpr std::size_t enough = 4096;  // bytes behind the comments
   struct stat status {};
   if (file == "-" || ::stat(file.c_str(), &status) != 0 || !S_ISREG(status.st_mode))
      return std::nullopt;
   // Lines do not show the marks of files that are not text.
   std::string text(8, '\0');
   std::ifstream stream(file, std::ios::binary);
   stream.read(text.data(), static_cast<std::streamsize>(text.size()));
   text.resize(static_cast<std::size_t>(stream.gcount()));
   if (auto const kind = markedKind(text, binaryMarks); kind != unknown && kind != gzip)
      return kind;
   text.clear();
   LineSource source(file);
   while (text.size() < enough) {
      auto const got = source.next();
      if (got == LineSource::Result::error) return std::nullopt;
      if (got == LineSource::Result::end) break;
      text += source.text();
      if (got == LineSource::Result::line) text += '\n';
      if (content(text).empty()) text.clear();
   }
   return kindOf(text);
}

std::string refusal(InputKind kind, InputUse use) {
   if (kind == unknown || kind == empty || suits(kind, use)) return {};
   auto const found = std::ranges::find(descriptions, kind, &Description::kind);
   return std::string("this is ") + found->what + ", not " + useName(use) + "; " + found->advice;
}

std::optional<InputError> misusedFile(std::string const& file, InputUse use) {
   auto const kind = kindOfFile(file);
   if (!kind) return std::nullopt;
   std::string reason = refusal(*kind, use);
   if (reason.empty()) return std::nullopt;
   return InputError{{file, 0}, "", std::move(reason), true};
}

}  // namespace Agent
