// The table that ./bench prints: a line for each comparison, under a heading for each subject, as
// the comparisons become known; and at the end which targets were missed.
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
