// The program velmroute_fuzz, which `./fuzz` starts: libFuzzer on the target that the environment
// variable VELMROUTE_FUZZ names.
//    VELMROUTE_FUZZ=PARSER velmroute_fuzz ARGUMENT...     passes the arguments to libFuzzer
//    VELMROUTE_FUZZ=PARSER velmroute_fuzz --seeds DIR     writes the initial inputs to DIR, and the
//                                                         words of the target to DIR.dict
#include <unistd.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <iostream>

#include "fuzzing/Target.h"

namespace {

// The parser that the environment names. Without one the process ends with exit code 2.
std::string parserName() {
   char const* const name = std::getenv("VELMROUTE_FUZZ");
   if (name && Fuzz::targets().contains(name)) return name;
   std::cerr << "VELMROUTE_FUZZ names no parser; the parsers are:";
   for (auto const& [known, target] : Fuzz::targets())
      std::cerr << ' ' << known;
   std::cerr << '\n';
   std::_Exit(2);
}

void writeSeeds(std::filesystem::path const& directory) {
   std::string const name = parserName();
   std::filesystem::create_directories(directory);
   unsigned number = 0;
   for (std::string const& input : Fuzz::corpus(name))
      std::ofstream(directory / ("seed-" + std::to_string(number++)), std::ios::binary) << input;
   std::ofstream words(directory.string() + ".dict");
   for (std::string const& word : Fuzz::targets().at(name).words) {
      words << '"';
      for (char const c : word) {
         char text[8];
         std::snprintf(text, sizeof text, "\\x%02x", static_cast<unsigned char>(c));
         words << text;
      }
      words << "\"\n";
   }
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int* argc, char*** argv) {
   if (*argc == 3 && std::string((*argv)[1]) == "--seeds") {
      writeSeeds((*argv)[2]);
      std::exit(0);
   }
   return 0;
}

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const* data, std::size_t size) {
   static Fuzz::Target const& target = Fuzz::targets().at(parserName());
   try {
      target.run({reinterpret_cast<char const*>(data), size});
   } catch (std::exception const& error) {
      std::cerr << "found: " << error.what() << std::endl;
      std::abort();
   }
   return 0;
}
