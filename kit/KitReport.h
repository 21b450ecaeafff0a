// The report of the kit (kit/Kit.h), as values, and two printers of it.
#pragma once

#include <ostream>
#include <vector>

#include "hooks/HookFault.h"

namespace VelMroute {

// One check of the kit. Its number and its id never change. docs/kit.md lists the checks.
struct KitCheck {
   unsigned number;
   char const* id;  // "make-before-break"
   // The sentence of the header of each path that the check examines, letter by letter; null on a
   // path without this check.
   char const* async;
   char const* sync;

   char const* sentence(HookPath path) const { return path == HookPath::async ? async : sync; }
};

// All checks, by ascending number.
std::vector<KitCheck const*> kitChecks();

enum class KitResult : unsigned char { passed, failed, leftOut };

// The part that a failed check names.
enum class KitCulprit : unsigned char {
   none,
   hook,      // a call or its result breaks a rule of hooks/HookFault.h
   platform,  // the chip differs from the tables that the calls asked for
   library,   // the tables that the calls asked for differ from the wanted routes
};

std::ostream& operator<<(std::ostream& os, KitResult result);    // "passed", "left out"
std::ostream& operator<<(std::ostream& os, KitCulprit culprit);  // "the platform"

struct KitFinding {
   KitCheck const* check;  // of kitChecks()
   KitResult result = KitResult::passed;
   KitCulprit culprit = KitCulprit::none;
   // Of a failed check: the difference, the call that is to blame, the seed and the steps, in lines.
   // Of a passed check: the figures that it measured, or nothing.
   Qor::String text = {};
   Qor::String reason = {};  // why the check was left out
};

// The reason of the checks that KitOptions::interrupted leaves out.
inline constexpr char const* kitInterrupted = "interrupted";

struct KitReport {
   HookPath path = HookPath::async;
   Qor::U64 seed = 0;
   std::vector<KitFinding> findings;  // by ascending number, one for each check

   bool passed() const;  // no check failed
   std::size_t count(KitResult result) const;
};

// For people: a line for each check, and under a failed one the culprit, the sentence and the text.
void print(std::ostream& os, KitReport const& report);
// Test Anything Protocol, version 13. The number of a test is the number of its check.
void printTap(std::ostream& os, KitReport const& report);

}  // namespace VelMroute
