#include "fuzzing/Target.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <fstream>
#include <iterator>

#include "agent/input/LineSource.h"

namespace Fuzz {

namespace fs = std::filesystem;

void require(bool holds, std::string const& message) {
   if (!holds) throw Finding(message);
}

std::map<std::string, Target> const& targets() {
   static std::map<std::string, Target> const all = {
         {"bridge", bridgeTarget()},       {"capture", captureTarget()},
         {"inspector", inspectorTarget()}, {"map", mapTarget()},
         {"monitor", monitorTarget()},     {"netlink", netlinkTarget()},
         {"scenario", scenarioTarget()},   {"snapshot", snapshotTarget()},
         {"value", valueTarget()}};
   return all;
}

void run(Target const& target, std::string_view input) {
   std::vector<char> const exact(input.begin(), input.end());
   target.run({exact.data(), exact.size()});
}

std::vector<std::string> corpus(std::string const& name) {
   std::vector<std::string> inputs = targets().at(name).seeds();
   std::vector<fs::path> files;
   if (fs::path const kept = fs::path(VELMROUTE_FUZZ_CORPUS) / name; fs::exists(kept)) {
      for (auto const& entry : fs::directory_iterator(kept))
         files.push_back(entry.path());
   }
   std::sort(files.begin(), files.end());
   for (fs::path const& path : files) {
      std::ifstream file(path, std::ios::binary);
      inputs.emplace_back(std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>());
   }
   return inputs;
}

std::string mutated(std::string input, std::string const& other, Target const& target,
                    std::mt19937& random) {
   constexpr std::size_t most = 1 << 16;
   auto const upTo = [&](std::size_t n) { return static_cast<std::size_t>(random() % (n + 1)); };
   auto const pieceOf = [&](std::string const& text) {
      std::size_t const at = upTo(text.size());
      return text.substr(at, upTo(std::min<std::size_t>(text.size() - at, 40)));
   };
   for (std::size_t n = 1 + upTo(3); n > 0; --n) {
      std::size_t const at = upTo(input.size());
      std::size_t const size = upTo(std::min<std::size_t>(input.size() - at, 8));
      switch (random() % 8) {
         case 0:
            if (at < input.size()) input[at] = static_cast<char>(input[at] ^ 1 << random() % 8);
            break;
         case 1:
            input.insert(at, 1, static_cast<char>(random()));
            break;
         case 2:
            input.erase(at, size);
            break;
         case 3:
            input.insert(upTo(input.size()), pieceOf(input));
            break;
         case 4:
            input.replace(at, size, pieceOf(other));
            break;
         case 5:
            input.resize(at);
            break;
         default:
            input.replace(at, random() % 2 ? size : 0,
                          target.words[random() % target.words.size()]);
            break;
      }
      if (input.size() > most) input.resize(most);
   }
   return input;
}

std::vector<std::string> linesOf(fs::path const& file, std::size_t most) {
   Agent::LineSource source(file.string());
   std::vector<std::string> lines;
   while (lines.size() < most && source.next() == Agent::LineSource::Result::line)
      lines.emplace_back(source.text());
   return lines;
}

std::vector<fs::path> examples(std::string_view ending) {
   std::vector<fs::path> found;
   for (auto const& entry : fs::recursive_directory_iterator(VELMROUTE_EXAMPLES)) {
      if (entry.path().string().ends_with(ending)) found.push_back(entry.path());
   }
   std::sort(found.begin(), found.end());
   require(!found.empty(), "no bundled file has the ending " + std::string(ending));
   return found;
}

MemoryFile::MemoryFile(std::string_view bytes) : fd_(memfd_create("input", MFD_CLOEXEC)) {
   if (fd_ < 0 || write(fd_, bytes.data(), bytes.size()) != static_cast<ssize_t>(bytes.size())) {
      throw std::runtime_error("cannot create a file in memory");
   }
}

MemoryFile::~MemoryFile() {
   close(fd_);
}

int MemoryFile::fd() const {
   return open(path().c_str(), O_RDONLY | O_CLOEXEC);
}

std::string MemoryFile::path() const {
   return "/proc/self/fd/" + std::to_string(fd_);
}

}  // namespace Fuzz
