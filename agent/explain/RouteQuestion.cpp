#include "agent/explain/RouteQuestion.h"

#include <algorithm>
#include <sstream>
#include <vector>

#include "agent/input/PrintableText.h"
#include "agent/input/RouteFields.h"

namespace Agent {

std::string RouteQuestion::name() const {
   return ofGroup ? key.group().toString() : key.pretty();
}

RouteQuestion routeQuestion(std::string_view asked) {
   constexpr char wanted[] = "; a route is given as 10.0.0.2,239.1.1.1 or *,239.1.1.1";
   std::string plain(asked);
   std::replace_if(
         plain.begin(), plain.end(), [](char c) { return c == ',' || c == '(' || c == ')'; }, ' ');
   std::istringstream in(plain);
   std::vector<std::string> words;
   RouteQuestion question;
   for (std::string word; in >> word;) {
      if (word == "vrf") {
         if (!(in >> word)) throw QuestionError("vrf: the name of the VRF is missing");
         try {
            question.vrf = L3::VrfName(word);
         } catch (Qor::RangeException const& error) {
            throw QuestionError("vrf " + printable(inQuotes(word)) + ": " + error.message());
         }
      } else if (word == "iif") {
         if (!(in >> word)) throw QuestionError("iif: the name of the interface is missing");
         std::string const wrong = intfOf(word, question.iif.emplace());
         if (!wrong.empty()) throw QuestionError(printable("iif: " + wrong));
      } else {
         words.push_back(word);
      }
   }
   question.ofGroup = words.size() == 1;
   if (question.ofGroup) words.insert(words.begin(), "*");
   if (words.size() != 2) {
      throw QuestionError(printable(inQuotes(asked)) + " is not a route" + wanted);
   }
   if (words[0] == "*") words[0] = words[1].find(':') == std::string::npos ? "0.0.0.0" : "::";
   std::string const wrong = routeKeyOf(words[0], words[1], question.key);
   if (!wrong.empty() && question.ofGroup) {
      throw QuestionError(printable(inQuotes(words[1])) + " is not a route or a group" + wanted);
   }
   if (!wrong.empty()) throw QuestionError(printable(wrong) + wanted);
   return question;
}

}  // namespace Agent
