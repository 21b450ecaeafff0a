// The parsers on the inputs that are kept, and on some thousand random changes of them. The same
// inputs every time; `./fuzz` looks for others.
#include <gtest/gtest.h>

#include <unistd.h>

#include <filesystem>
#include <fstream>

#include "CaptureTestSupport.h"
#include "fuzzing/Target.h"

namespace {

class Parsers : public testing::TestWithParam<std::string> {};
INSTANTIATE_TEST_SUITE_P(, Parsers,
                         testing::Values("bridge", "capture", "inspector", "map", "monitor",
                                         "netlink", "scenario", "snapshot", "value"),
                         [](auto const& name) { return name.param; });

TEST_P(Parsers, KeepTheirPromisesOnAnyInput) {
   Fuzz::Target const& target = Fuzz::targets().at(GetParam());
   std::vector<std::string> const corpus = Fuzz::corpus(GetParam());
   // The file holds the last input if the process ends: `./fuzz PARSER FILE` repeats it.
   std::string const file =
         testing::TempDir() + "velmroute-fuzz-" + GetParam() + "-" + std::to_string(::getpid());
   auto const run = [&](std::string const& input) {
      std::ofstream(file, std::ios::binary) << input;
      try {
         Fuzz::run(target, input);
      } catch (std::exception const& error) {
         FAIL() << error.what() << "\n./fuzz " << GetParam() << ' ' << file << " repeats it";
      }
   };
   std::mt19937 random(1);
   for (std::string const& input : corpus) {
      run(input);
      if (HasFatalFailure()) return;
   }
   for (int i = 0; i < 3000 && !HasFatalFailure(); ++i) {
      std::string const& other = corpus[random() % corpus.size()];
      run(Fuzz::mutated(corpus[random() % corpus.size()], other, target, random));
   }
   if (!HasFatalFailure()) std::filesystem::remove(file);
}

}  // namespace
