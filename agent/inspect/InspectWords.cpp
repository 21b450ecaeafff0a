#include "agent/inspect/InspectWords.h"

#include "agent/input/PrintableText.h"

namespace Agent {

namespace {

// Appends the quoted part that opens at `at` to `text`. Returns the position behind its closing
// quote.
std::size_t readQuoted(std::string_view line, std::size_t at, std::string& text) {
   for (std::size_t i = at + 1; i < line.size(); ++i) {
      if (line[i] == '"') return i + 1;
      if (line[i] == '\\' && i + 1 < line.size()) ++i;
      text += line[i];
   }
   throw InspectError("the quote at column " + std::to_string(at + 1) + " is not closed");
}

bool isBlank(char c) {
   return c == ' ' || c == '\t' || c == '\r' || c == '\n';
}

}  // namespace

std::vector<Word> wordsOf(std::string_view line) {
   std::vector<Word> words;
   for (std::size_t i = 0; i < line.size();) {
      if (isBlank(line[i])) {
         ++i;
         continue;
      }
      Word word;
      word.at = i;
      while (i < line.size() && !isBlank(line[i])) {
         if (line[i] == '"') {
            i = readQuoted(line, i, word.text);
         } else {
            word.text += line[i++];
         }
      }
      word.raw = line.substr(word.at, i - word.at);
      words.push_back(std::move(word));
   }
   return words;
}

std::vector<std::string> segmentsOf(std::string_view path) {
   if (!path.starts_with('/')) {
      throw InspectError(inQuotes(path) +
                         " is not a path: a path begins with a slash, as /switch/1");
   }
   std::vector<std::string> segments;
   for (std::size_t i = 0; i < path.size();) {
      if (path[i] == '/') {
         ++i;
         continue;
      }
      std::string segment;
      while (i < path.size() && path[i] != '/') {
         if (path[i] == '"') {
            i = readQuoted(path, i, segment);
         } else {
            segment += path[i++];
         }
      }
      segments.push_back(std::move(segment));
   }
   return segments;
}

std::string quotedSegment(std::string_view segment) {
   if (!segment.empty() && segment.find_first_of(" \t\r\n/\"\\") == std::string_view::npos) {
      return std::string(segment);
   }
   std::string out = "\"";
   for (char const c : segment) {
      if (c == '"' || c == '\\') out += '\\';
      out += c;
   }
   return out + '"';
}

}  // namespace Agent
