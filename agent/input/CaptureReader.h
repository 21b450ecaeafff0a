// The events of a list of input files, in order: the one way in which `velmroute run` reads.
//
// A file may hold lines of a monitor, snapshots, or any mixture of both; what stands where is told
// from its content. So does standard input ("-"), where the current table followed by its changes
//    (ip -j mroute show; exec ip -ts -o monitor mroute link) | velmroute run -
// is the usual form, and where every event is delivered as soon as its line has arrived.
//
// Time. The first time stamp of a file stands for the moment at which the file before it ended, and
// for 0 in the first file; from there its stamps count. A stamp earlier than the one before it (the
// recording machine's clock was set, or summer time ended) is taken as no time having passed, and
// time counts on from there; clockSteps() tells how often that was. Events without a stamp happen
// at the time of the one before them.
//
// Errors. next() delivers an error in its place between the events, and its caller decides whether
// to go on. Nothing of a malformed line, or of a malformed snapshot, ever becomes an event or moves
// the time. After a fatal error the rest of that file is left out.
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

   // A longer text is refused rather than kept in memory: a million routes take less than half of
   // it.
   static constexpr std::size_t snapshotLimit = std::size_t{1} << 29;

   // The files are opened one by one, when their turn comes.
   explicit CaptureReader(std::vector<std::string> files);
   // Reads one open file, which is closed in the end, under a name for messages.
   CaptureReader(int fd, std::string name);

   // Input that is waited for ends, as every file does from then on, once `fd` is readable; see
   // LineSource.
   void stopFdIs(int fd);

   // The files that cannot be read for a reason that shows before reading them: missing ones,
   // directories, forbidden ones. Worth asking before a long run.
   static std::vector<InputError> unreadable(std::vector<std::string> const& files);

   // With Result::event, `event` is the next event, its storage reused where the kind is the same.
   // With Result::error, error() says what is wrong and `event` may hold anything.
   Result next(CaptureEvent& event);

   // Where the last event or error came from; of a snapshot, its first line or the line at fault.
   InputPosition const& where() const { return where_; }
   InputError const& error() const { return error_; }

   // The time of the last event.
   double time() const { return time_; }
   std::uint64_t lines() const { return lines_; }      // read so far, of all files
   std::uint64_t skipped() const { return skipped_; }  // of these, not ours: see MonitorParser
   std::uint64_t clockSteps() const { return clockSteps_; }

 private:
   bool openNext();
   LineSource::Result readLine();
   Result readMonitorLine(CaptureEvent& event, bool& skipped);
   Result readSnapshot(CaptureEvent& event, LineSource::Result got);
   Result refuse(std::string reason, std::string_view text, bool fatal = false);
   Result refuseRest();
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
   // The stamp that stands for the moment anchor_; both move when the stamps step back.
   double anchor_ = 0;
   std::int64_t anchorStamp_ = 0;
   std::int64_t lastStamp_ = 0;
   bool anchored_ = false;  // the current file has had a stamp
};

}  // namespace Agent
