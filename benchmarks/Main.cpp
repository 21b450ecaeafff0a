// The program velmroute_bench, which ./bench runs: docs/performance.md.
#include <benchmark/benchmark.h>

#include <cstdio>
#include <cstring>
#include <iostream>
#include <string>
#include <vector>

#include "Comparison.h"
#include "Report.h"

namespace {

constexpr char usage[] =
      "usage: bench [--quick] [--json] [--list] [PATTERN]\n"
      "Compares the library with twins that do the same work; prints the ratios of their costs.\n"
      "  --quick         measure fewer rounds, and no table above 100,000 entries\n"
      "  --json          print JSON\n"
      "  --list          print the names of the comparisons\n"
      "  --instructions  compare the executed instructions of six operations with the record\n"
      "  PATTERN         measure only comparisons whose names match this regular expression\n"
      "The options of Google Benchmark (--benchmark_...) are accepted as well.\n";

struct Options {
   bool json = false;
   std::vector<std::string> passedOn;
};

int badUsage(std::string const& argument) {
   std::fprintf(stderr, "bench: unknown argument %s\n%s", argument.c_str(), usage);
   return 2;
}

// Returns the exit code, or -1 if the comparisons are to be run. `--resident` and `--once` run
// here.
int parse(int argc, char** argv, Options& options) {
   for (int i = 1; i < argc; ++i) {
      std::string const argument = argv[i];
      bool const operand = i + 1 < argc;
      if (argument == "--help" || argument == "-h") {
         std::fputs(usage, stdout);
         return 0;
      } else if (argument == "--resident" && operand) {
         return Bench::printResident(argv[i + 1]) ? 0 : badUsage(argv[i + 1]);
      } else if (argument == "--once" && operand) {
         return Bench::runOnce(argv[i + 1]) ? 0 : badUsage(argv[i + 1]);
      } else if (argument == "--quick") {
         Bench::effort().quick = true;
      } else if (argument == "--json") {
         options.json = true;
      } else if (argument == "--list") {
         options.passedOn.push_back("--benchmark_list_tests");
      } else if (argument.starts_with("--benchmark_")) {
         options.passedOn.push_back(argument);
      } else if (argument.starts_with("-")) {
         return badUsage(argument);
      } else {
         options.passedOn.push_back("--benchmark_filter=" + argument);
      }
   }
   return -1;
}

}  // namespace

int main(int argc, char** argv) {
   Options options;
   int const status = parse(argc, argv, options);
   if (status >= 0) return status;
   Bench::routeComparisons();
   Bench::programmerComparisons();
   Bench::notificationComparisons();
   Bench::collectionComparisons();
   Bench::agingComparisons();
   Bench::frrComparisons();
   Bench::turnComparisons();
   Bench::programmerTurnComparisons();
   Bench::traceComparisons();
   Bench::memoryComparisons();

   std::vector<char*> arguments{argv[0]};
   for (std::string& argument : options.passedOn)
      arguments.push_back(argument.data());
   int count = static_cast<int>(arguments.size());
   benchmark::Initialize(&count, arguments.data());
   if (count > 1) return badUsage(arguments[1]);
   Bench::TableReporter table;
   benchmark::JSONReporter json;
   benchmark::BenchmarkReporter& reporter =
         options.json ? static_cast<benchmark::BenchmarkReporter&>(json) : table;
   benchmark::RunSpecifiedBenchmarks(&reporter);
   return 0;
}
