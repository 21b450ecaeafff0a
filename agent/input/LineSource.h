// Lines from a file or from standard input, plain or gzip.
//
// The source recognises gzip by the content, not by the name. It decodes the bytes of each read(2)
// at once and never waits for a block to fill, so a line on a pipe is returned as soon as its
// newline has arrived. (The file layer of zlib reads ahead, and is therefore not used.) Several
// gzip members one after another are one text.
//
// A line ends with "\n" or "\r\n", which are not part of it. The last line may end with the file.
// All other bytes, NUL included, are part of the line. Memory is bounded: a line longer than
// pieceLimit is returned in pieces.
#pragma once

#include <zlib.h>

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace Agent {

class LineSource {
 public:
   static constexpr std::size_t pieceLimit = 65536;

   enum class Result {
      line,   // text() is a whole line, or the last piece of a long line
      part,   // text() is the first or next pieceLimit bytes of a line that goes on
      end,    // no line is left; text() is empty
      error,  // the source is missing, unreadable or corrupt: reason(); no more lines will come
   };

   // Opens `fileName`. "-" is standard input, which the source does not close. The first next()
   // reports a failure.
   explicit LineSource(std::string const& fileName);
   // Reads `fd`, which the source closes. `name` is the name in messages.
   LineSource(int fd, std::string name);
   ~LineSource();
   LineSource(LineSource const&) = delete;
   LineSource& operator=(LineSource const&) = delete;

   Result next();

   // Once `fd` is readable, the source ends where a read would wait. `fd` outlives the source,
   // which does not read from it. -1 for none.
   void stopFdIs(int fd) { stopFd_ = fd; }

   // Valid until the next call of next().
   std::string_view text() const { return text_; }
   // The number of the line of text(), from 1. After an error it is the number of the line that
   // could not be read, or 0 if the source could not be opened.
   std::uint64_t line() const { return line_; }
   std::string const& name() const { return name_; }
   // The reason of an error, with the system's text for errno or zlib's text for bad data.
   std::string const& reason() const { return reason_; }

   // The reason why `fileName` cannot be read, or empty. The file is not opened, because a named
   // pipe would lose its writer. "-" can always be read.
   static std::string obstacle(std::string const& fileName);

 private:
   enum class Coding { unknown, plain, gzip };
   enum class Fill { more, end, failed };

   Fill fill();
   bool stopped() const;
   Fill receive();  // appends the bytes of one read(2) to in_
   Fill detectCoding();
   Fill inflateSome();
   Fill failed(std::string reason);
   void take(std::size_t size, std::size_t separator);

   int fd_ = -1;
   bool closes_ = true;
   int stopFd_ = -1;
   std::string name_;
   std::string reason_;
   Coding coding_ = Coding::unknown;
   z_stream zlib_{};           // initialised exactly while coding_ is gzip
   bool memberEnded_ = false;  // gzip: the last member is complete
   std::string deferred_;      // gzip: a failure to report once out_ is used up
   std::vector<char> in_;      // raw bytes in [inBegin_, inEnd_)
   std::size_t inBegin_ = 0;
   std::size_t inEnd_ = 0;
   std::vector<char> out_;  // decoded bytes in [begin_, end_); no newline stands before scanned_
   std::size_t begin_ = 0;
   std::size_t scanned_ = 0;
   std::size_t end_ = 0;
   bool insideLine_ = false;  // the last result was a part
   std::string_view text_;
   std::uint64_t line_ = 0;
};

}  // namespace Agent
