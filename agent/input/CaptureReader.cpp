#include "agent/input/CaptureReader.h"

#include <algorithm>
#include <utility>

#include "agent/input/InputKind.h"

namespace Agent {

namespace {

// Whether a line belongs to a monitor for certain, because no line of a snapshot begins like this.
bool looksLikeMonitor(std::string_view line) {
   auto const digit = [line](std::size_t i) {
      return i < line.size() && line[i] >= '0' && line[i] <= '9';
   };
   return line.starts_with('(') || line.starts_with("Deleted ") ||
          (line.starts_with('[') && digit(1) && digit(2) && digit(3) && digit(4));
}

}  // namespace

CaptureReader::CaptureReader(std::vector<std::string> files) : files_(std::move(files)) {
   std::reverse(files_.begin(), files_.end());
}

CaptureReader::CaptureReader(int fd, std::string name)
      : source_(std::make_unique<LineSource>(fd, std::move(name))) {
   where_.file = source_->name();
}

std::vector<InputError> CaptureReader::unreadable(std::vector<std::string> const& files) {
   std::vector<InputError> errors;
   for (std::string const& file : files) {
      std::string reason = LineSource::obstacle(file);
      if (!reason.empty()) {
         errors.push_back({{file, 0}, "", std::move(reason), true});
      } else if (auto misused = misusedFile(file, InputUse::capture)) {
         errors.push_back(*std::move(misused));
      }
   }
   return errors;
}

void CaptureReader::stopFdIs(int fd) {
   stopFd_ = fd;
   if (source_) source_->stopFdIs(fd);
}

bool CaptureReader::openNext() {
   if (files_.empty()) return false;
   source_ = std::make_unique<LineSource>(files_.back());
   files_.pop_back();
   source_->stopFdIs(stopFd_);
   where_ = {source_->name(), 0};
   anchored_ = begun_ = false;
   return true;
}

CaptureReader::Result CaptureReader::next(CaptureEvent& event) {
   while (source_ || openNext()) {
      LineSource::Result const got = readLine();
      if (got == LineSource::Result::end) {
         source_.reset();
         continue;
      }
      if (got == LineSource::Result::error) return refuseRest();
      if (SnapshotParser::looksLikeJson(source_->text())) return readSnapshot(event, got);
      std::string_view const text = source_->text();
      if (got == LineSource::Result::part) {
         if (refusesFile(text)) return Result::error;
         Result const result = refuse(
               "the line is longer than " + std::to_string(LineSource::pieceLimit) + " bytes",
               text);
         while (readLine() == LineSource::Result::part) {
         }
         return result;
      }
      bool skipped = false;
      Result const result = readMonitorLine(event, skipped);
      if (!skipped) return result;
      ++skipped_;
   }
   return Result::end;
}

// If the first text of a file shows that the file is no capture, reports that and skips the file.
bool CaptureReader::refusesFile(std::string_view text) {
   if (std::exchange(begun_, true)) return false;
   std::string reason = refusal(kindOf(text), InputUse::capture);
   if (reason.empty()) return false;
   where_.line = 0;
   refuse(std::move(reason), "", true);
   source_.reset();
   return true;
}

// Reads the next line or piece of a line, counts lines, and moves where_.
LineSource::Result CaptureReader::readLine() {
   if (held_) return *std::exchange(held_, std::nullopt);
   std::uint64_t const before = source_->line();
   LineSource::Result const got = source_->next();
   if (got == LineSource::Result::line || got == LineSource::Result::part) {
      lines_ += source_->line() - before;
   }
   where_.line = source_->line();
   return got;
}

CaptureReader::Result CaptureReader::refuse(std::string reason, std::string_view text, bool fatal) {
   error_.position = where_;
   error_.reason = std::move(reason);
   error_.textIs(text);
   error_.fatal = fatal;
   return Result::error;
}

// Reports the failure of the source, with the system's reason.
CaptureReader::Result CaptureReader::refuseRest() {
   Result const result = refuse(source_->reason(), "", true);
   source_.reset();
   return result;
}

CaptureReader::Result CaptureReader::readMonitorLine(CaptureEvent& event, bool& skipped) {
   std::string_view const text = source_->text();
   std::size_t const nul = text.find('\0');
   if (nul != std::string_view::npos && refusesFile(text)) return Result::error;
   if (nul != std::string_view::npos) {
      return refuse("the line has a NUL byte (column " + std::to_string(nul + 1) + ")", text);
   }
   switch (monitor_.parse(text, event)) {
      case MonitorParser::Result::event:
         begun_ = true;
         setTime(timeOf(event));
         return Result::event;
      case MonitorParser::Result::skipped:
         skipped = true;
         return Result::event;
      case MonitorParser::Result::malformed:
         break;
   }
   if (refusesFile(text)) return Result::error;
   return refuse(monitor_.reason(), text);
}

// Collects the lines up to the closing bracket, then reads them as one text.
CaptureReader::Result CaptureReader::readSnapshot(CaptureEvent& event, LineSource::Result got) {
   InputPosition const first = where_;
   JsonExtent extent;
   bool closed = false;
   bool lineBegins = false;  // `got` begins a line behind the first one
   std::string behind;
   document_.clear();
   while (got == LineSource::Result::line || got == LineSource::Result::part) {
      std::string_view text = source_->text();
      if (lineBegins && looksLikeMonitor(text)) {
         held_ = got;  // the snapshot is cut off, but the lines behind it may be good
         break;
      }
      if (document_.size() + text.size() >= snapshotLimit) {
         source_.reset();
         return refuse("the snapshot is longer than " + std::to_string(snapshotLimit) + " bytes",
                       "", true);
      }
      if (!closed) {
         std::string_view rest;
         closed = extent.closed(text, rest);
         document_.append(text.substr(0, text.size() - rest.size()));
         text = rest;
      }
      if (closed && behind.empty() && text.find_first_not_of(" \t\r") != std::string_view::npos) {
         behind = text;
      }
      if (got == LineSource::Result::line) {
         if (closed) break;
         document_ += '\n';
      }
      lineBegins = got == LineSource::Result::line;
      got = readLine();
   }
   if (got == LineSource::Result::error) return refuseRest();
   SnapshotEvent* const same = std::get_if<SnapshotEvent>(&event);
   SnapshotEvent& snapshot = same ? *same : event.emplace<SnapshotEvent>();
   where_.line = first.line;
   if (snapshot_.parse(document_, snapshot)) {
      begun_ = true;
      std::string().swap(document_);  // a large text is not kept beside its routes
      if (!behind.empty()) return refuse("text behind the end of a snapshot", behind);
      setTime(snapshot);
      return Result::event;
   }
   if (refusesFile(document_)) return Result::error;
   auto const end = document_.begin() + static_cast<std::ptrdiff_t>(snapshot_.position());
   where_.line += static_cast<std::uint64_t>(std::count(document_.begin(), end, '\n'));
   return refuse(snapshot_.reason(), snapshot_.excerpt());
}

void CaptureReader::setTime(CaptureTime& event) {
   if (event.stamped) {
      std::int64_t const stamp = event.unixMicroseconds;
      if (!anchored_ || stamp < lastStamp_) {
         if (anchored_) ++clockSteps_;
         anchored_ = true;
         anchor_ = time_;
         anchorStamp_ = stamp;
      }
      lastStamp_ = stamp;
      time_ = anchor_ + static_cast<double>(stamp - anchorStamp_) * 1e-6;
   }
   event.time = time_;
}

}  // namespace Agent
