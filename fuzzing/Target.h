// One parser under random input: what is done with any bytes, what must hold of it, and what its
// inputs are made of. docs/fuzz.md is the manual.
//
// The engines (tests/FuzzTest.cpp, fuzzing/LibFuzzer.cpp) hand bytes in; a target holds no state from
// one input to the next, so that an input alone repeats what it found.
#pragma once

#include <filesystem>
#include <map>
#include <random>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

namespace Fuzz {

// A parser does not keep a promise; what() says which.
class Finding final : public std::logic_error {
 public:
   using std::logic_error::logic_error;
};
void require(bool good, std::string const& what);

struct Target {
   // The parser reads `input` and the target looks at what comes of it; Finding.
   void (*run)(std::string_view input);
   // Inputs made of the bundled captures and scenarios, or of the parser's own types.
   std::vector<std::string> (*seeds)();
   // What inputs are made of.
   std::vector<std::string> words;
};

Target monitorTarget();
Target captureTarget();
Target snapshotTarget();
Target scenarioTarget();
Target mapTarget();
Target valueTarget();
Target inspectorTarget();

// All of them, by the name of the parser.
std::map<std::string, Target> const& targets();

// Gives the target a copy of exactly this size, so that the sanitizers see a read behind it.
void run(Target const& target, std::string_view input);

// The target's seeds, and the inputs kept in fuzzing/corpus/NAME: small ones that the examples lack,
// and those that have found something once.
std::vector<std::string> corpus(std::string const& name);

// An input changed in a few places, with pieces of another and with the target's words.
std::string mutated(std::string input, std::string const& other, Target const& target,
                    std::mt19937& random);

// ---- What targets share. ----

// The first `most` lines, plain text, of a bundled file; all of them without a number.
std::vector<std::string> linesOf(std::filesystem::path const& file, std::size_t most = ~0u);
// The bundled files whose name ends so.
std::vector<std::filesystem::path> examples(std::string_view ending);

// A file without a name, holding these bytes: fd() reads them from the start, path() opens it anew.
class MemoryFile final {
 public:
   explicit MemoryFile(std::string_view bytes);
   ~MemoryFile();
   MemoryFile(MemoryFile const&) = delete;
   MemoryFile& operator=(MemoryFile const&) = delete;

   // The caller closes it.
   int fd() const;
   std::string path() const;

 private:
   int fd_;
};

}  // namespace Fuzz
