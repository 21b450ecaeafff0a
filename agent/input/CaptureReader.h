// The events of a list of input files, in order: the one way in which `velmroute run` reads.
//
// A file may hold lines of a monitor, snapshots, or any mixture of both; the reader recognises the
// format by the content. Standard input ("-") may hold the same. Its usual content is the current
// table, followed by the changes of the table:
//    (ip -j mroute show; exec ip -ts -o monitor mroute link) | velmroute run -
// The reader returns every event as soon as its line has arrived.
//
// Time. The first time stamp of a file stands for the end of the file before it, and for 0 in the
// first file. A stamp may be earlier than the stamp before it, because the recording machine's
// clock was set or summer time ended. The reader then assumes that no time has passed between the
// two, and clockSteps() counts the case. An event without a stamp has the time of the event before.
//
// The first line shows a file that is no capture at all (agent/input/InputKind.h). The reader reports
// that in one error and skips the file.
//
// Errors. next() returns an error in its place between the events, and the caller decides whether
// to read on. A malformed line or snapshot yields no event and does not move the time. After a
// fatal error the reader skips the rest of the file.
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "agent/input/CaptureEvent.h"
#include "agent/input/InputError.h"
#include "agent/input/LineSource.h"
#include "agent/input/MonitorParser.h"
#include "agent/input/SnapshotParser.h"

namespace Agent {

class CaptureReader {
 public:
   enum class Result { event, error, end };

   // The reader keeps the text of a snapshot in memory and refuses a longer one. A million routes
   // take less than half of the limit.
   static constexpr std::size_t snapshotLimit = std::size_t{1} << 29;

   // Each file is opened when the file before it has ended.
   explicit CaptureReader(std::vector<std::string> files);
   // Reads one open file, which the reader closes. `name` is the name of the file in messages.
   CaptureReader(int fd, std::string name);

   // Once `fd` is readable, a file ends where a read would wait, as LineSource::stopFdIs() states.
   void stopFdIs(int fd);

   // The files that cannot be read: missing files, directories, files without permission, and files
   // of another kind. A caller asks before a long run.
   static std::vector<InputError> unreadable(std::vector<std::string> const& files);

   // With Result::event, `event` is the next event, and its storage is reused if it had the same
   // kind. With Result::error, error() is the error, and the content of `event` is unspecified.
   Result next(CaptureEvent& event);

   // The place of the last event or error. A snapshot is at its first line, a fault in a snapshot
   // at the line of the fault.
   InputPosition const& where() const { return where_; }
   InputError const& error() const { return error_; }

   // The time of the last event.
   double time() const { return time_; }
   std::uint64_t lines() const { return lines_; }      // lines of all files, read so far
   std::uint64_t skipped() const { return skipped_; }  // lines that MonitorParser skipped
   std::uint64_t clockSteps() const { return clockSteps_; }

 private:
   bool openNext();
   LineSource::Result readLine();
   Result readMonitorLine(CaptureEvent& event, bool& skipped);
   Result readSnapshot(CaptureEvent& event, LineSource::Result got);
   Result refuse(std::string reason, std::string_view text, bool fatal = false);
   Result refuseRest();
   bool refusesFile(std::string_view text);
   void setTime(CaptureTime& event);

   std::vector<std::string> files_;  // still to be read, in reverse order
   std::unique_ptr<LineSource> source_;
   int stopFd_ = -1;
   std::optional<LineSource::Result> held_;  // the result of a line that is to be read again
   MonitorParser monitor_;
   SnapshotParser snapshot_;
   std::string document_;  // the text of the snapshot being read
   InputPosition where_;
   InputError error_;
   std::uint64_t lines_ = 0;
   std::uint64_t skipped_ = 0;
   std::uint64_t clockSteps_ = 0;
   double time_ = 0;
   // The stamp anchorStamp_ stands for the time anchor_. Both move when the stamps step back.
   double anchor_ = 0;
   std::int64_t anchorStamp_ = 0;
   std::int64_t lastStamp_ = 0;
   bool anchored_ = false;  // the current file has had a stamp
   bool begun_ = false;     // the current file has had an event or an error
};

}  // namespace Agent
