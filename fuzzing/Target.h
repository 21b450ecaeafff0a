// Fuzz targets. A target passes an input of arbitrary bytes to one parser and checks the properties
// that must hold for every input. docs/fuzz.md lists the targets.
//
// The engines (tests/FuzzTest.cpp, fuzzing/LibFuzzer.cpp) choose the inputs. A target keeps no
// state between two inputs, so a single input repeats a finding.
#pragma once

#include <filesystem>
#include <map>
#include <random>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

namespace Fuzz {

// Thrown by a target: a property does not hold. The message describes the property and the input.
class Finding final : public std::logic_error {
 public:
   using std::logic_error::logic_error;
};
// Throws Finding with `message` unless `holds` is true.
void require(bool holds, std::string const& message);

struct Target {
   // Passes `input` to the parser and checks the result. Throws Finding.
   void (*run)(std::string_view input);
   // Returns the initial inputs, made of the bundled captures and scenarios or of the parser's
   // types.
   std::vector<std::string> (*seeds)();
   // The tokens of the parser's language, from which the engines build further inputs.
   std::vector<std::string> words;
};

Target bridgeTarget();
Target monitorTarget();
Target captureTarget();
Target snapshotTarget();
Target scenarioTarget();
Target mapTarget();
Target valueTarget();
Target inspectorTarget();
Target netlinkTarget();

// All targets, by the name of the parser.
std::map<std::string, Target> const& targets();

// Runs the target on a copy of the input with exactly its size, so that the sanitizers detect a
// read beyond its end.
void run(Target const& target, std::string_view input);

// The seeds of the target, and the files in fuzzing/corpus/NAME: inputs that the examples lack, and
// inputs that once revealed a fault.
std::vector<std::string> corpus(std::string const& name);

// Changes the input in up to four places: by single bits and bytes, by pieces of itself and of
// `other`, and by words of the target. Returns at most 65,536 bytes.
std::string mutated(std::string input, std::string const& other, Target const& target,
                    std::mt19937& random);

// ---- Helpers of the targets. ----

// The first `most` lines of a plain or compressed file; all lines by default.
std::vector<std::string> linesOf(std::filesystem::path const& file, std::size_t most = ~0u);
// The bundled example files whose names end with `ending`, sorted. Throws Finding if there is none.
std::vector<std::filesystem::path> examples(std::string_view ending);

// A file in memory with the given bytes.
class MemoryFile final {
 public:
   explicit MemoryFile(std::string_view bytes);
   ~MemoryFile();
   MemoryFile(MemoryFile const&) = delete;
   MemoryFile& operator=(MemoryFile const&) = delete;

   // A new file descriptor that reads from the start; the caller closes it.
   int fd() const;
   // A path under which the file can be opened while this object lives.
   std::string path() const;

 private:
   int fd_;
};

}  // namespace Fuzz
