// Trace, ring trace, log and string representations.
#include <algorithm>
#include <bit>
#include <limits>
#include <numeric>
#include <random>
#include <sstream>

#include "Qor/Blip.h"
#include "Qor/Log.h"
#include "Qor/Strep.h"
#include "Qor/Trace.h"
#include "TestSupport.h"

namespace {

struct Numbers {
   std::vector<Qor::U64> values;
};

}  // namespace

template <>
struct Qor::BlipForm<Numbers> {
   static std::size_t size(Numbers const& numbers) { return numbers.values.size(); }
   static void write(Numbers const& numbers, auto const& put) {
      for (U64 const value : numbers.values)
         put(value);
   }
   static void print(std::ostream& os, std::span<U64 const> words) {
      for (U64 const word : words)
         os << word << ' ';
   }
};

namespace {

using Qor::String;

class QorDiagnostics : public testSupport::OnVirtualTime,
                       protected Qor::TraceSink,
                       protected Qor::LogSink {
 protected:
   QorDiagnostics() {
      Qor::traceSinkIs(this);
      Qor::logSinkIs(this);
      Qor::blip().clear();
   }
   ~QorDiagnostics() override {
      Qor::traceLevelIs(-1);
      Qor::traceSinkIs(nullptr);
      Qor::logSinkIs(nullptr);
   }
   void trace(Qor::TraceRecord const& record) override { lines.push_back(Qor::traceLine(record)); }
   void log(Qor::LogMessage const& message, String const& text) override {
      lines.push_back(message.name + (": " + text));
   }
   static String blipText(std::size_t back = 0) { return Qor::blip().text(back); }

   std::vector<String> lines;
};

TEST_F(QorDiagnostics, TraceEvaluatesOnlyStatementsOfEnabledLevels) {
   Qor::TraceHandle& handle = Qor::traceHandle("QorTest");
   int evaluations = 0;
   auto const traceAll = [&, function = __func__] {
      for (unsigned level = 0; level <= Qor::TraceHandle::maxLevel; ++level)
         QOR_TRACE_IN(handle, "QorTestSm", function, level, "n " << ++evaluations << ' ' << true);
   };
   traceAll();
   EXPECT_EQ(evaluations, 0);
   time_->runUntil(1.5);
   Qor::traceLevelIs(1, "QorTest");
   traceAll();
   EXPECT_EQ(evaluations, 2);
   ASSERT_EQ(lines.size(), 2u);
   EXPECT_TRUE(lines[1].starts_with("1.500000 QorTest 1 QorTestSm:")) << lines[1];
   EXPECT_TRUE(lines[1].ends_with(" TestBody n 2 1")) << lines[1];
}

TEST_F(QorDiagnostics, TraceSettingsMatchByGlobAndTheLatestWins) {
   Qor::TraceHandle& early = Qor::traceHandle("Glob.Early");
   std::tuple<int, char const*, bool> const settings[] = {
         {9, "*", true}, {-1, "Glob.*", true}, {4, "G*b*r*y", true}, {6, "Glob.Early?", false}};
   Qor::U16 expected = 0;
   for (auto const& [level, glob, matches] : settings) {
      SCOPED_TRACE(glob);
      Qor::traceLevelIs(level, glob);
      if (matches) expected = static_cast<Qor::U16>((1u << (level + 1)) - 1);
      EXPECT_EQ(early.levels(), expected);
   }
   Qor::traceLevelIs(3, "Glob.L*");
   Qor::traceLevelIs(1, "Glob.La*");
   Qor::traceLevelIs(3, "Glob.L*");
   EXPECT_EQ(Qor::traceHandle("Glob.Late").levels(), 0xFu) << "all settings so far, in order";
}

struct OnlyWithNumber {
   explicit OnlyWithNumber(int n) : number(n) {}
   int number;
};
std::ostream& operator<<(std::ostream& os, OnlyWithNumber const& v) {
   return os << '#' << v.number;
}
TEST_F(QorDiagnostics, BlipPrintsEachKindOfArgument) {
   QOR_BLIP(1, "S", "%s %s %s|%s%s", 42u, -1.5, OnlyWithNumber(7), 'c', "text");
   EXPECT_EQ(blipText(), "42 -1.5 #7|ctext");
   // Texts share the room that other arguments leave of 512 bytes. A cut text ends with dots.
   String text(508, 'x');
   QOR_BLIP(1, "S", "%s %s.", text, 1);
   text.assign(509, 'y');
   EXPECT_EQ(blipText(), String(508, 'x') + " 1.");
   QOR_BLIP(1, "S", "%s %s.", text, 1);
   EXPECT_EQ(blipText(), String(508, 'y') + "... 1.");
   QOR_BLIP(1, "S", "%s %s %s", String(300, 'a'), "", String(300, 'b'));
   EXPECT_EQ(blipText(), String(212, 'a') + "...  " + String(300, 'b'));
   QOR_BLIP(1, "S", "%s %s", String(300, 'a'), String(1000, 'b'));
   EXPECT_EQ(blipText(), String(256, 'a') + "... " + String(256, 'b') + "...");
   // Words share the room with texts, and only whole words are kept.
   QOR_BLIP(1, "S", "%s|%s%s", Numbers{{1, 22, 333}}, Numbers{}, 4);
   EXPECT_EQ(blipText(), "1 22 333 |4");
   Numbers const many{std::vector<Qor::U64>(100, 7)};
   String sevens;
   for (int n = 0; n < 62; ++n)
      sevens += "7 ";
   QOR_BLIP(1, "S", "%s%s", many, String(13, 'a'));
   EXPECT_EQ(blipText(), sevens + "..." + String(13, 'a'));
}

TEST_F(QorDiagnostics, TheRingKeepsTheLatestEventsOfAllSizesWhole) {
   constexpr std::size_t capacity = Qor::BlipRing::capacity, rounds = 2 * capacity;
   std::vector<String> written;  // each as the ring is to show it
   std::mt19937 random(5);
   for (std::size_t const longest : {500u, 0u, 500u}) {
      for (std::size_t n = 1; n <= rounds; ++n) {
         String const text(longest ? random() % longest : 0, static_cast<char>('a' + n % 26));
         QOR_BLIP(1, "S", "event %s %s", text, n);
         written.push_back("event " + text + ' ' + std::to_string(n));
         if (random() % 200 == 0) {  // many events in common slots
            std::vector<Qor::U64> numbers(random() % 200, n);
            std::iota(numbers.begin(), numbers.end(), n);
            QOR_BLIP_EACH_AT(0.0, 1, "S", "each %s.", std::span<Qor::U64 const>(numbers));
            for (Qor::U64 const number : numbers)
               written.push_back("each " + std::to_string(number) + '.');
         }
         if (random() % 1000 && n != rounds) continue;
         std::size_t kept = 0;
         while (kept < written.size() && blipText(kept) == written[written.size() - 1 - kept])
            ++kept;
         EXPECT_GE(kept, std::min(written.size(), capacity / 10));
         for (std::size_t const gone : {kept, kept + 1, kept + 100, written.size()})
            EXPECT_EQ(blipText(gone), "") << gone;
         std::ostringstream dump;
         Qor::blip().dump(dump);
         String const all = dump.str();
         EXPECT_EQ(std::count(all.begin(), all.end(), '\n'), static_cast<long>(kept));
         EXPECT_TRUE(all.ends_with(' ' + written.back() + '\n'));
      }
      EXPECT_EQ(blipText(capacity - 1) == written[written.size() - capacity], !longest);
   }
   Qor::blip().clear();
   EXPECT_EQ(blipText(), "");
}

Qor::LogMessage const plain{"PLAIN", 4,  "", "%ds instead of the %ds", Qor::noActionRequired,
                            0.0,     1.0};

TEST_F(QorDiagnostics, LogMessagesPassWithinTheirRateLimit) {
   static Qor::LogMessage const limited{"LIMITED", 4, "", "x", "", 10.0, 2.0};
   std::pair<Qor::Seconds, std::size_t> const through[] = {{0, 2}, {9, 2}, {10, 3}, {1000, 5}};
   for (auto const& [time, messages] : through) {
      time_->runUntil(time);
      for (int i = 0; i < 3; ++i)
         Qor::log(limited, {});
      EXPECT_EQ(lines.size(), messages) << "at " << time;
   }
}

TEST(QorStrep, RealsAndTextsParseToTheSameValue) {
   using Limits = std::numeric_limits<double>;
   std::vector<double> reals{-0.0, 3.0, 1e20, Limits::infinity(), -Limits::infinity()};
   std::mt19937_64 random(3);
   for (int i = 0; i < 1000; ++i) {
      double const real = std::bit_cast<double>(random());
      if (real == real) reals.push_back(real);
   }
   for (double const real : reals) {
      String const text = Qor::realStrep(real);
      Qor::StrepReader reader("T", text);
      EXPECT_EQ(std::bit_cast<Qor::U64>(reader.real()), std::bit_cast<Qor::U64>(real)) << text;
      reader.end();
   }
   String bytes;
   for (int c = 0; c < 256; ++c)
      bytes += static_cast<char>(c);
   String const text = Qor::quotedStrep(bytes);
   Qor::StrepReader reader("T", text);
   EXPECT_EQ(reader.quoted(), bytes);
   reader.end();
   EXPECT_EQ(Qor::valueToStrep(3.0) + Qor::valueToStrep("a' \n"), "3.0'a\\' \\x0a'");
}

TEST(QorStrep, MalformedTextsRaiseErrorsWithTheirPosition) {
   using Read = void (*)(Qor::StrepReader&);
   Read const number = [](auto&r) { r.number(999); }, real = [](auto&r) { r.real(); };
   Read const quoted = [](auto&r) { r.quoted(); }, boolean = [](auto&r) { r.boolean(); };
   std::tuple<Read, char const*, char const*> const cases[] = {
         {number, "999", ""},
         {number, "1000", "a number of at most 999 at position 0"},
         {number, "12x", "the end at position 2"},
         {real, "1e999", "a number at position 0"},
         {boolean, "true", "True or False at position 0"},
         {quoted, "'open", "a closing quote at position 5"},
         {quoted, "'a\\", "x at position 3"},
         {quoted, "'\\xg0'", "two hexadecimal digits at position 3"},
   };
   for (auto const& [read, text, expected] : cases) {
      SCOPED_TRACE(text);
      String const error = testSupport::errorText([&, read = read, text = text] {
         Qor::StrepReader reader("T", text);
         read(reader);
         reader.end();
      });
      EXPECT_EQ(error, *expected ? String("T: expected ") + expected + " of \"" + text + "\""
                                 : "no error");
   }
}

}  // namespace
