// The options of a platform, as a user writes them: "groups=512,latency=0.01". Each platform knows
// words of its own.
#pragma once

#include <initializer_list>
#include <stdexcept>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "Qor/Types.h"

namespace VelMroute {

// An option that a platform does not know, or with a bad value. what() is a text for the user.
class PlatformOptionError : public std::invalid_argument {
 public:
   using std::invalid_argument::invalid_argument;
};

class UnknownPlatformOption final : public PlatformOptionError {
 public:
   UnknownPlatformOption(std::string const& text, std::string word, std::vector<std::string> known)
         : PlatformOptionError(text), word_(std::move(word)), known_(std::move(known)) {}

   std::string const& word() const { return word_; }
   std::vector<std::string> const& known() const { return known_; }

 private:
   std::string const word_;
   std::vector<std::string> const known_;
};

struct PlatformOptions {
   // In the order in which they were written. Of equal words the last one counts.
   std::vector<std::pair<std::string, std::string>> words = {};

   // Appends the words of a text like "groups=512,latency=0.01". A word without '=' has an empty
   // value.
   void add(std::string_view text);
   void add(std::string word, Qor::U32 value) {
      words.emplace_back(std::move(word), std::to_string(value));
   }
   void add(std::string word, double value);  // with all digits
};

// Reads the options of a platform into its variables.
class OptionReader {
 public:
   // `what` names an option in error texts, such as "chip property".
   OptionReader(char const* what, PlatformOptions const& options)
         : what_(what), options_(options) {}

   // The word has a number of this type as its value: seconds are finite and not negative.
   void number(char const* word, Qor::U32& value);
   void seconds(char const* word, Qor::Seconds& value);
   // Throws UnknownPlatformOption for the first option that none of the calls above knows: unknown
   // chip property "size" (known: groups=N, latency=SECONDS).
   void end() const;

 private:
   template <class Value, class Good>
   void read(char const* word, char const* kind, Value& value, Good const& good);

   char const* const what_;
   PlatformOptions const& options_;
   std::vector<std::string> known_;
   std::string knownText_;
};

}  // namespace VelMroute
