// Reading lines from files and pipes: plain and compressed, complete and damaged.
#include "agent/input/LineSource.h"

#include <fcntl.h>
#include <gtest/gtest.h>

#include "CaptureTestSupport.h"

namespace Agent {
namespace {

using Result = LineSource::Result;

// All results of a source as one text: "1:text|" for a line, "1:text+" for a piece of a line that
// continues, and the number and the reason of an error. A long text is abbreviated to its first
// byte and its length.
std::string all(LineSource& source) {
   std::string out;
   while (true) {
      Result const got = source.next();
      if (got == Result::end) return out;
      std::string text(source.text());
      if (text.size() > 100) text = text.substr(0, 1) + "*" + std::to_string(text.size());
      out += std::to_string(source.line()) + ":" + text;
      if (got == Result::error) return out + source.reason();
      out += got == Result::part ? "+" : "|";
   }
}

std::string linesOf(TempDir const& dir, std::string_view content) {
   LineSource source(dir.file("lines", content));
   return all(source);
}

TEST(LineSource, BothLineEndingsAreRecognizedAndNoByteIsLost) {
   TempDir const dir;
   using namespace std::string_view_literals;
   EXPECT_EQ(linesOf(dir, ""), "");
   EXPECT_EQ(linesOf(dir, "one\ntwo\r\n\nfour"), "1:one|2:two|3:|4:four|");
   EXPECT_EQ(linesOf(dir, "a\rb\r\r\n\r"), "1:a\rb\r|2:|");
   EXPECT_EQ(linesOf(dir, "a\0b\n\x1f"sv), "1:a\0b|2:\x1f|"sv);
   EXPECT_EQ(linesOf(dir, "\x1f"), "1:\x1f|");
}

TEST(LineSource, ALongLineIsReturnedInPiecesWithOneLineNumber) {
   TempDir const dir;
   std::size_t const limit = LineSource::pieceLimit;
   auto const line = [](std::size_t size) { return std::string(size, 'x') + "\n"; };
   std::string const n = std::to_string(limit);
   EXPECT_EQ(linesOf(dir, line(limit)), "1:x*" + n + "|");
   EXPECT_EQ(linesOf(dir, line(limit + 1) + "y\n"), "1:x*" + n + "+1:x|2:y|");
   EXPECT_EQ(linesOf(dir, "y\n" + line(2 * limit) + line(3)),
             "1:y|2:x*" + n + "+2:x*" + n + "|3:xxx|");
   EXPECT_EQ(linesOf(dir, std::string(limit + 2, 'x')), "1:x*" + n + "+1:xx|");
   EXPECT_EQ(linesOf(dir, gzip(line(2 * limit))), "1:x*" + n + "+1:x*" + n + "|");
}

TEST(LineSource, GzipIsReadUnderAnyFileNameAndDamageIsReported) {
   TempDir const dir;
   std::string text;
   for (int i = 0; i < 20000; ++i)
      text += std::to_string(i * 7919) + "\n";
   LineSource plain(dir.file("plain", text));
   std::string const expected = all(plain);
   std::string const packed = gzip(text);
   EXPECT_EQ(linesOf(dir, packed), expected);
   EXPECT_EQ(linesOf(dir, packed + gzip("last\n") + std::string(600, '\0')),
             expected + "20001:last|");
   std::string const cut = linesOf(dir, packed.substr(0, packed.size() - 9));
   EXPECT_TRUE(cut.ends_with(":the gzip data end too early: truncated"));
   EXPECT_EQ(linesOf(dir, packed.substr(0, 5)), "1:the gzip data end too early: truncated");

   std::string damaged = packed;
   damaged[packed.size() - 6] ^= 1;
   EXPECT_EQ(linesOf(dir, damaged), expected + "20001:corrupt gzip data: incorrect data check");
   EXPECT_EQ(linesOf(dir, gzip("a\n") + "garbage"),
             "1:a|2:corrupt gzip data: incorrect header check");
}

// The writing end stays open, so a source that reads more than one line ahead would block here.
TEST(LineSource, ALineOfAPipeIsReturnedBeforeTheNextLineIsWritten) {
   int ends[2];
   ASSERT_EQ(::pipe(ends), 0);
   LineSource source(ends[0], "pipe");
   auto const write = [&](std::string_view text) {
      ASSERT_EQ(::write(ends[1], text.data(), text.size()), static_cast<ssize_t>(text.size()));
   };
   write("1\n");
   ASSERT_EQ(source.next(), Result::line);
   EXPECT_EQ(source.text(), "1");
   write("two\nthr");
   ASSERT_EQ(source.next(), Result::line);
   EXPECT_EQ(source.text(), "two");
   write("ee\n");
   ASSERT_EQ(source.next(), Result::line);
   EXPECT_EQ(source.text(), "three");
   ::close(ends[1]);
   EXPECT_EQ(source.next(), Result::end);
}

}  // namespace
}  // namespace Agent
