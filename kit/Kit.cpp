#include "kit/Kit.h"

#include <algorithm>
#include <exception>
#include <utility>

#include "Qor/Clock.h"
#include "Qor/Exception.h"
#include "kit/internal/Check.h"

namespace VelMroute {

using KitParts::Check;
using KitParts::CheckRun;
using KitParts::Difference;
using KitParts::LeftOut;

namespace {

// Puts the activity manager of the process back, which the lives replace.
class TimeKept {
 public:
   TimeKept() = default;
   ~TimeKept() { Qor::activityManagerIs(before_); }
   TimeKept(TimeKept const&) = delete;
   TimeKept& operator=(TimeKept const&) = delete;

 private:
   Qor::Ptr<Qor::ActivityManager> const before_ = Qor::activityManager();
};

KitCulprit culpritOf(HookFault const& fault) {
   return fault.rule->byCaller ? KitCulprit::library : KitCulprit::hook;
}

void fail(KitFinding& finding, KitCulprit culprit, Qor::String text) {
   finding.result = KitResult::failed;
   finding.culprit = culprit;
   finding.text = std::move(text);
}

// A call that breaks a rule explains the differences that follow from it.
void judge(KitFinding& finding, HookFaults const& faults) {
   if (faults.list().empty()) return;
   HookFault const& first = faults.list().front();
   Qor::String fault = text(first);
   if (finding.result != KitResult::failed) return fail(finding, culpritOf(first), fault);
   bool const named = finding.text.find(fault) != Qor::String::npos;
   fail(finding, culpritOf(first), named ? finding.text : fault + "\nthen: " + finding.text);
}

KitFinding run(Check const& check, CheckRun& run) {
   KitFinding finding{&check.about};
   try {
      check.run(run);
      finding.text = run.figures;
   } catch (Difference const& difference) {
      fail(finding, difference.culprit, difference.text);
   } catch (LeftOut const& out) {
      finding.result = KitResult::leftOut;
      finding.reason = out.reason;
   } catch (HookFaultError const& error) {
      fail(finding, KitCulprit::hook, error.what());
   } catch (std::exception const& error) {
      fail(finding, KitCulprit::hook, text("threw: ", error.what()));
   }
   judge(finding, *run.faults);
   return finding;
}

}  // namespace

Kit::Kit(PlatformMaker make, KitOptions options)
      : make_(std::move(make)), options_(std::move(options)) {
   if (!make_) Qor::throwRange("VelMroute::Kit::make null not allowed");
   for (std::string const& id : options_.only) {
      auto const all = KitParts::allChecks();
      auto const is = [&](Check const& check) { return id == check.about.id; };
      if (std::ranges::none_of(all, is)) {
         Qor::throwRange("VelMroute::Kit::only " + id + " not allowed");
      }
   }
}

KitReport Kit::run() {
   TimeKept const kept;
   try {
      return runChecks();
   } catch (KitParts::MakerFailed const& failed) {
      std::rethrow_exception(failed.error);
   }
}

KitReport Kit::runChecks() const {
   KitReport report;
   report.seed = options_.seed;
   // The first life shows that the kit can use the platform, and which needs the platform meets.
   std::vector<char const*> lacks;
   Abilities abilities;
   {
      KitParts::Life life(options_, make_, Qor::make<HookFaults>());
      report.path = life.async() ? HookPath::async : HookPath::sync;
      abilities = life.platform().abilities();
      if (abilities.virtualTime != options_.virtualTime) {
         Qor::throwRange("VelMroute::Kit::virtualTime other than that of the platform not allowed");
      }
      for (Check const& check : KitParts::allChecks())
         lacks.push_back(KitParts::lacking(check.needs, life.platform()));
   }
   std::vector<HookFault> faults;  // the first of each rule
   Qor::String calls;
   for (std::size_t i = 0; i < lacks.size(); ++i) {
      Check const& check = KitParts::allChecks()[i];
      if (options_.onCheck) options_.onCheck(i, lacks.size());
      auto const leaveOut = [&](Qor::String reason) {
         report.findings.push_back({&check.about, KitResult::leftOut, {}, {}, std::move(reason)});
      };
      bool const wanted = options_.only.empty() ||
                          std::ranges::find(options_.only, check.about.id) != options_.only.end();
      if (!check.about.sentence(report.path)) {
         leaveOut(text("the ", report.path, " path has no such calls"));
      } else if (!check.run) {
         report.findings.push_back({&check.about});
      } else if (!wanted) {
         leaveOut("not asked for");
      } else if (options_.interrupted && options_.interrupted()) {
         leaveOut(kitInterrupted);
      } else if (lacks[i]) {
         leaveOut(lacks[i]);
      } else {
         CheckRun one{options_, make_, report.path, abilities};
         report.findings.push_back(VelMroute::run(check, one));
         for (HookFault const& fault : one.faults->list()) {
            auto const same = [&](HookFault const& known) { return known.rule == fault.rule; };
            if (std::ranges::any_of(faults, same)) continue;
            faults.push_back(fault);
            calls += text(calls.empty() ? "" : "\n", "in ", check.about.id, ": ", fault);
         }
      }
   }
   if (!faults.empty()) fail(report.findings.front(), culpritOf(faults.front()), calls);
   return report;
}

}  // namespace VelMroute
