#include "Report.h"

#include <cmath>
#include <cstdio>

#include "Comparison.h"

namespace Bench {

namespace {

// Three significant digits; from 100 on, whole numbers.
std::string figure(double value) {
   char text[32];
   double const size = std::abs(value);
   std::snprintf(text, sizeof text, size >= 100 ? "%.0f" : size >= 10 ? "%.1f" : "%.2f", value);
   return text;
}

double counter(benchmark::BenchmarkReporter::Run const& run, char const* name) {
   auto const found = run.counters.find(name);
   return found == run.counters.end() ? 0 : found->second.value;
}

std::string targetText(Target target, std::string const& unit) {
   switch (target.kind) {
      case Target::Kind::ratio:
         return "<= " + figure(target.limit);
      case Target::Kind::added:
         return "+ <= " + figure(target.limit) + ' ' + unit;
      case Target::Kind::library:
         return "<= " + figure(target.limit) + ' ' + unit;
      default:
         return "";
   }
}

}  // namespace

bool TableReporter::ReportContext(Context const&) {
   char line[160];
   std::snprintf(line, sizeof line, "%-42s %10s %10s %4s %8s  %s\n", "", "library", "twin", "",
                 "ratio", "target");
   GetOutputStream() << line;
   return true;
}

void TableReporter::ReportRuns(std::vector<Run> const& runs) {
   for (Run const& run : runs) {
      if (run.run_type == Run::RT_Iteration) report(run);
   }
   GetOutputStream().flush();
}

void TableReporter::report(Run const& run) {
   std::string const& name = run.run_name.function_name;
   auto const slash = name.rfind('/');
   std::string const heading = name.substr(0, slash);
   if (heading != heading_) GetOutputStream() << (heading_ = heading) << '\n';
   if (run.error_occurred) {
      GetOutputStream() << "   " << name.substr(slash + 1) << ": " << run.error_message << '\n';
      return;
   }
   double const library = counter(run, "library");
   double const twin = counter(run, "twin");
   Target const target{static_cast<Target::Kind>(static_cast<int>(counter(run, "targetKind"))),
                       counter(run, "limit")};
   bool const met = counter(run, "met") != 0;
   std::string verdict = targetText(target, run.report_label);
   if (target.kind != Target::Kind::none) {
      ++held_;
      verdict += met ? "" : "  MISSED";
      if (!met) missed_.push_back(name + ": " + figure(target.of(library, twin)));
   }
   char line[200];
   std::snprintf(line, sizeof line, "   %-39s %10s %10s %-4s %8s  %s\n",
                 name.substr(slash + 1).c_str(), figure(library).c_str(), figure(twin).c_str(),
                 run.report_label.c_str(), figure(library / twin).c_str(), verdict.c_str());
   GetOutputStream() << line;
}

void TableReporter::Finalize() {
   GetOutputStream() << held_ - missed_.size() << " of " << held_ << " targets met\n";
   for (std::string const& name : missed_)
      GetOutputStream() << "missed: " << name << '\n';
}

}  // namespace Bench
