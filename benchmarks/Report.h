// Prints the table of ./bench: a heading for each subject, a line for each comparison as soon as it
// is measured, and at the end the missed targets.
#pragma once

#include <benchmark/benchmark.h>

#include <ostream>
#include <string>
#include <vector>

namespace Bench {

class TableReporter final : public benchmark::BenchmarkReporter {
 public:
   bool ReportContext(Context const& context) override;
   void ReportRuns(std::vector<Run> const& runs) override;
   void Finalize() override;

 private:
   void report(Run const& run);

   std::string heading_;
   unsigned held_ = 0;
   std::vector<std::string> missed_;
};

}  // namespace Bench
