#include "kit/KitReport.h"

#include <algorithm>
#include <sstream>

#include "Qor/EnumText.h"

namespace VelMroute {

namespace {

// Each line of the text behind `prefix`.
void indented(std::ostream& os, char const* prefix, Qor::String const& text) {
   std::istringstream lines(text);
   for (std::string line; std::getline(lines, line);)
      os << prefix << line << '\n';
}

}  // namespace

std::ostream& operator<<(std::ostream& os, KitResult result) {
   static constexpr char const* names[] = {"passed", "failed", "left out"};
   return Qor::printEnum(os, result, names);
}

std::ostream& operator<<(std::ostream& os, KitCulprit culprit) {
   static constexpr char const* names[] = {"nobody", "a hook", "the platform", "the library"};
   return Qor::printEnum(os, culprit, names);
}

bool KitReport::passed() const {
   return count(KitResult::failed) == 0;
}

std::size_t KitReport::count(KitResult result) const {
   auto const has = [&](KitFinding const& finding) { return finding.result == result; };
   return static_cast<std::size_t>(std::ranges::count_if(findings, has));
}

void print(std::ostream& os, KitReport const& report) {
   for (KitFinding const& f : report.findings) {
      os << f.check->number << ' ' << f.check->id << ": " << f.result;
      if (f.result == KitResult::leftOut) os << ", " << f.reason;
      if (f.result == KitResult::passed && !f.text.empty()) os << ", " << f.text;
      os << '\n';
      if (f.result != KitResult::failed) continue;
      os << "   at fault: " << f.culprit << '\n'
         << "   checked: " << f.check->sentence(report.path) << '\n';
      indented(os, "   ", f.text);
   }
   os << report.count(KitResult::passed) << " passed, " << report.count(KitResult::failed)
      << " failed, " << report.count(KitResult::leftOut) << " left out; " << report.path
      << " path, seed " << report.seed << '\n';
}

void printTap(std::ostream& os, KitReport const& report) {
   os << "TAP version 13\n1.." << report.findings.size() << '\n';
   for (KitFinding const& f : report.findings) {
      os << (f.result == KitResult::failed ? "not ok " : "ok ") << f.check->number << " - "
         << f.check->id;
      if (f.result == KitResult::leftOut) os << " # SKIP " << f.reason;
      os << '\n';
      if (f.result == KitResult::failed) {
         os << "#   at fault: " << f.culprit << '\n'
            << "#   checked: " << f.check->sentence(report.path) << '\n';
      }
      indented(os, "#   ", f.text);
   }
}

}  // namespace VelMroute
