#include "agent/input/LineSource.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <utility>

namespace Agent {

namespace {

constexpr std::size_t readSize = 65536;
constexpr unsigned char gzipMagic[2] = {0x1f, 0x8b};

std::string systemText(char const* what, int error) {
   return std::string(what) + ": " + std::strerror(error);
}

}  // namespace

LineSource::LineSource(std::string const& fileName)
      : name_(fileName == "-" ? "<stdin>" : fileName) {
   if (fileName == "-") {
      fd_ = STDIN_FILENO;
      closes_ = false;
      return;
   }
   fd_ = ::open(fileName.c_str(), O_RDONLY | O_CLOEXEC);
   if (fd_ < 0) reason_ = systemText("cannot open", errno);
}

LineSource::LineSource(int fd, std::string name) : fd_(fd), name_(std::move(name)) {}

LineSource::~LineSource() {
   if (coding_ == Coding::gzip) ::inflateEnd(&zlib_);
   if (fd_ >= 0 && closes_) ::close(fd_);
}

std::string LineSource::obstacle(std::string const& fileName) {
   struct stat status {};
   if (fileName == "-") return "";
   if (::stat(fileName.c_str(), &status) != 0) return systemText("cannot open", errno);
   if (S_ISDIR(status.st_mode)) return systemText("cannot read", EISDIR);
   if (::access(fileName.c_str(), R_OK) != 0) return systemText("cannot open", errno);
   return "";
}

LineSource::Result LineSource::next() {
   text_ = {};
   if (!reason_.empty()) return Result::error;
   while (true) {
      char const* const first = out_.data() + begin_;
      if (scanned_ < end_) {
         void const* const newline = std::memchr(out_.data() + scanned_, '\n', end_ - scanned_);
         scanned_ = end_;
         if (newline) {
            auto const size = static_cast<std::size_t>(static_cast<char const*>(newline) - first);
            if (size <= pieceLimit) {
               take(size, 1);
               if (text_.ends_with('\r')) text_.remove_suffix(1);
               insideLine_ = false;
               return Result::line;
            }
         }
      }
      if (end_ - begin_ > pieceLimit) {
         take(pieceLimit, 0);
         insideLine_ = true;
         return Result::part;
      }
      Fill const filled = fill();
      if (filled == Fill::more) continue;
      if (filled == Fill::failed) {
         if (!insideLine_) ++line_;
         return Result::error;
      }
      if (begin_ == end_ && !insideLine_) return Result::end;
      take(end_ - begin_, 0);
      if (text_.ends_with('\r')) text_.remove_suffix(1);
      insideLine_ = false;
      return Result::line;
   }
}

void LineSource::take(std::size_t size, std::size_t separator) {
   text_ = std::string_view(out_.data() + begin_, size);
   begin_ += size + separator;
   scanned_ = begin_;
   if (!insideLine_) ++line_;
}

LineSource::Fill LineSource::failed(std::string reason) {
   reason_ = std::move(reason);
   return Fill::failed;
}

// Waits until bytes can be read or stopFd_ is readable.
bool LineSource::stopped() const {
   pollfd ready[] = {{fd_, POLLIN, 0}, {stopFd_, POLLIN, 0}};
   while (::poll(ready, 2, -1) < 0 && errno == EINTR) {
   }
   return ready[1].revents != 0;
}

LineSource::Fill LineSource::receive() {
   if (inBegin_ == inEnd_) inBegin_ = inEnd_ = 0;
   in_.resize(readSize);
   if (stopFd_ >= 0 && stopped()) return Fill::end;
   ssize_t size;
   while ((size = ::read(fd_, in_.data() + inEnd_, in_.size() - inEnd_)) < 0) {
      if (errno == EAGAIN) {  // another process may have made the pipe non-blocking
         if (stopped()) return Fill::end;
      } else if (errno != EINTR) {
         break;
      }
   }
   if (size < 0) return failed(systemText("cannot read", errno));
   inEnd_ += static_cast<std::size_t>(size);
   return size ? Fill::more : Fill::end;
}

// The mark of gzip has two bytes. A pipe may have one byte for a long time, so the second byte is
// awaited only behind the first byte of the mark.
LineSource::Fill LineSource::detectCoding() {
   while (coding_ == Coding::unknown) {
      auto const byte = [this](std::size_t i) { return static_cast<unsigned char>(in_[i]); };
      if (inEnd_ > 0 && byte(0) != gzipMagic[0]) {
         coding_ = Coding::plain;
      } else if (inEnd_ > 1) {
         if (byte(1) != gzipMagic[1]) {
            coding_ = Coding::plain;
         } else if (::inflateInit2(&zlib_, 16 + MAX_WBITS) == Z_OK) {
            coding_ = Coding::gzip;
         } else {
            return failed("cannot decompress: out of memory");
         }
      } else {
         Fill const received = receive();
         if (received == Fill::failed) return received;
         if (received == Fill::end) coding_ = Coding::plain;
      }
   }
   return Fill::more;
}

// Reads and appends decoded bytes to out_. Returns `more` if at least one byte was appended.
LineSource::Fill LineSource::fill() {
   if (begin_ > 0) {
      std::memmove(out_.data(), out_.data() + begin_, end_ - begin_);
      scanned_ -= begin_;
      end_ -= begin_;
      begin_ = 0;
   }
   out_.resize(pieceLimit + 1 + readSize);
   if (detectCoding() == Fill::failed) return Fill::failed;
   if (coding_ == Coding::gzip) return inflateSome();
   if (inBegin_ == inEnd_) {
      Fill const received = receive();
      if (received != Fill::more) return received;
   }
   std::size_t const size = inEnd_ - inBegin_;
   std::memcpy(out_.data() + end_, in_.data() + inBegin_, size);
   inBegin_ = inEnd_;
   end_ += size;
   return Fill::more;
}

LineSource::Fill LineSource::inflateSome() {
   if (!deferred_.empty()) return failed(std::move(deferred_));
   std::size_t const before = end_;
   while (end_ == before) {
      // Tapes and some writers leave zero bytes behind a member as padding.
      while (memberEnded_ && inBegin_ != inEnd_ && in_[inBegin_] == 0)
         ++inBegin_;
      if (inBegin_ == inEnd_) {
         Fill const received = receive();
         if (received == Fill::failed) return received;
         if (received == Fill::end && memberEnded_) return Fill::end;
         if (received == Fill::end) return failed("the gzip data end too early: truncated");
         continue;
      }
      if (memberEnded_) {
         ::inflateReset(&zlib_);
         memberEnded_ = false;
      }
      zlib_.next_in = reinterpret_cast<Bytef*>(in_.data() + inBegin_);
      zlib_.avail_in = static_cast<uInt>(inEnd_ - inBegin_);
      zlib_.next_out = reinterpret_cast<Bytef*>(out_.data() + end_);
      zlib_.avail_out = static_cast<uInt>(out_.size() - end_);
      int const code = ::inflate(&zlib_, Z_SYNC_FLUSH);
      inBegin_ = inEnd_ - zlib_.avail_in;
      end_ = out_.size() - zlib_.avail_out;
      if (code == Z_STREAM_END) {
         memberEnded_ = true;
      } else if (code != Z_OK && code != Z_BUF_ERROR) {
         deferred_ = std::string("corrupt gzip data: ") + (zlib_.msg ? zlib_.msg : ::zError(code));
         break;  // return the bytes that could be decoded first
      }
   }
   return end_ == before ? failed(std::move(deferred_)) : Fill::more;
}

}  // namespace Agent
