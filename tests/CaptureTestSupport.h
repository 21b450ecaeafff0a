// The common part of the tests of the inputs: events as text, temporary files, and gzip.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "agent/input/CaptureReader.h"
#include "agent/input/CaptureState.h"

namespace Agent {

std::string render(CaptureEvent const& event);

// All results of a reader: the time and the text of each event, and the word "error" and the text
// of each error.
std::vector<std::string> readAll(CaptureReader& reader);

std::string gzip(std::string_view text);
std::string contentOf(std::string const& path);

// A temporary directory for one test, removed by the destructor. Files are named by their paths in
// the directory.
class TempDir {
 public:
   TempDir();
   ~TempDir();
   TempDir(TempDir const&) = delete;
   TempDir& operator=(TempDir const&) = delete;

   std::string path(std::string const& name) const { return path_ + "/" + name; }
   std::string file(std::string const& name, std::string_view content) const;

 private:
   std::string path_;
};

}  // namespace Agent
