// Lines from a file or from standard input, plain or gzip.
//
// Whether the bytes are gzip is told by their content, not by a name. The source decodes exactly
// what read(2) has returned and never waits for a block to fill, so a line that arrives on a pipe
// is delivered as soon as its newline is there; that is why it does not use zlib's own file layer,
// which reads ahead. Several gzip members one after another are one text.
//
// A line ends with "\n" or "\r\n", which are not part of it; the last one may end with the file.
// The source looks at no other byte: what a NUL means is its user's business. Memory is bounded: a
// line longer than pieceLimit is delivered in pieces.
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
      line,   // text() is a whole line, or the last piece of a long one
      part,   // text() is the first or next pieceLimit bytes of a line that goes on
      end,    // nothing is left; text() is empty
      error,  // the source is missing, unreadable or corrupt: reason(); nothing more will come
   };

   // Opens `fileName`, or takes standard input (which stays open) when it is "-". A failure is
   // reported by the first next().
   explicit LineSource(std::string const& fileName);
   // Reads `fd`, which the source closes, under a name for messages.
   LineSource(int fd, std::string name);
   ~LineSource();
   LineSource(LineSource const&) = delete;
   LineSource& operator=(LineSource const&) = delete;

   Result next();

   // Once `fd` is readable, input that is not there yet is not waited for: the source has ended. It
   // must outlive the source, which does not read it. -1 for none.
   void stopFdIs(int fd) { stopFd_ = fd; }

   // Valid until the next call of next().
   std::string_view text() const { return text_; }
   // The number of the line text() belongs to, from 1; after an error, of the line that could not
   // be read (0: the source could not be opened).
   std::uint64_t line() const { return line_; }
   std::string const& name() const { return name_; }
   // What is wrong, with the system's words for errno or zlib's for bad data.
   std::string const& reason() const { return reason_; }

   // Why `fileName` cannot be read, or empty when it seems that it can; opens nothing, so a named pipe
   // does not lose its writer. "-" can always be read.
   static std::string obstacle(std::string const& fileName);

 private:
   enum class Coding { unknown, plain, gzip };
   enum class Fill { more, end, failed };

   Fill fill();
   bool stopped() const;
   Fill receive();  // one read(2) behind what is still in in_
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
   std::vector<char> out_;  // decoded bytes in [begin_, end_), without a newline before scanned_
   std::size_t begin_ = 0;
   std::size_t scanned_ = 0;
   std::size_t end_ = 0;
   bool insideLine_ = false;  // the last result was a part
   std::string_view text_;
   std::uint64_t line_ = 0;
};

}  // namespace Agent
