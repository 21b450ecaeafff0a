// The checks that play longer lives: with failed writes, at random, and over a restart.
#include <algorithm>
#include <exception>
#include <random>
#include <utility>

#include "Qor/Clock.h"
#include "kit/internal/Check.h"

namespace VelMroute::KitParts {

using Qor::Seconds;
using Qor::U32;
using Qor::U64;

// ---- Failed writes. ----

void failedWrites(CheckRun& run) {
   constexpr WriteKind kinds[] = {WriteKind::groupCreate, WriteKind::routeCreate,
                                  WriteKind::routePoint, WriteKind::boundaryCreate};
   unsigned failed = 0, possible = 0;
   for (WriteKind const kind : kinds) {
      if (kind == WriteKind::boundaryCreate && !run.abilities.bridging) continue;
      ++possible;
      auto const life = run.life();
      life->want({.key = sourceGroup(1), .outs = {2}});
      life->want({.key = sourceGroup(2), .outs = {2}});
      life->rest();
      life->faults().failNext(kind, "planned by the kit");
      life->want({.key = sourceGroup(1), .outs = {3}});
      life->want({.key = sourceGroup(3), .outs = {2, 3}});
      if (run.abilities.bridging) life->want({.key = sourceGroup(4), .bridge = true});
      life->settle();
      life->wait(1.5);  // the programmer tries again meanwhile
      life->rest();
      failed += life->faults().injected(kind) > 0;
   }
   run.figures = text(failed, " of ", possible, " kinds of writes failed once");
   if (failed == 0) throw LeftOut{"no planned failure of a write takes place"};
}

// ---- Lives at random. ----

namespace {

struct Step {
   enum class Kind : unsigned char { want, unwant, wait, fault, link } kind = Kind::want;
   Wish wish = {};  // of `unwant`, with the key alone; of `link`, with the input alone
   Seconds seconds = 0;
   WriteKind write = WriteKind::groupCreate;
   bool up = false;
};
using Steps = std::vector<Step>;

std::ostream& operator<<(std::ostream& os, Step const& step) {
   switch (step.kind) {
      case Step::Kind::want:
         return os << "want " << step.wish;
      case Step::Kind::unwant:
         return os << "unwant " << step.wish.key;
      case Step::Kind::wait:
         return os << "wait " << step.seconds << " s";
      case Step::Kind::link:
         return os << "input " << step.wish.in << (step.up ? " up" : " down");
      default:
         return os << "fail the next " << step.write;
   }
}

// The formula has the same results everywhere, unlike the distributions of the standard library.
class Random {
 public:
   explicit Random(U64 seed) : engine_(seed) {}
   unsigned below(unsigned n) { return static_cast<unsigned>((engine_() >> 33) % n); }
   bool one(unsigned in) { return below(in) == 0; }

 private:
   std::mt19937_64 engine_;
};

Steps randomSteps(U64 seed, CheckRun const& run, unsigned ports, bool faults) {
   Random random(seed);
   Abilities const& can = run.abilities;
   auto const outputs = [&] {
      std::vector<unsigned> outs;
      for (unsigned out = Life::inputs; out < ports; ++out) {
         if (random.one(3)) outs.push_back(out);
      }
      return outs;
   };
   auto const key = [&] {
      unsigned const n = 1 + random.below(12);
      if (can.wildcards && random.one(6)) return starGroup(n);
      return sourceGroup(n, can.ipv6 && random.one(6));
   };
   Steps steps(run.options.steps);
   for (Step& step : steps) {
      unsigned const what = random.below(can.reroute ? 22 : 20);
      step.kind = what < 13   ? Step::Kind::want
                  : what < 17 ? Step::Kind::unwant
                  : what < 19 ? Step::Kind::wait
                  : what > 19 ? Step::Kind::link
                  : faults    ? Step::Kind::fault
                              : Step::Kind::wait;
      step.wish.key = key();
      step.seconds = 0.001 * random.below(40);
      constexpr WriteKind kinds[] = {WriteKind::groupCreate, WriteKind::routeCreate,
                                     WriteKind::routePoint};
      step.write = kinds[random.below(3)];
      step.up = random.one(2);
      Wish& wish = step.wish;
      wish.in = random.below(Life::inputs);
      if (step.kind != Step::Kind::want) continue;
      if (can.bridging && random.one(10)) {
         wish.bridge = true;
         continue;
      }
      wish.outs = outputs();
      wish.cpu = can.cpu && random.one(6);
      wish.fastdrop = can.fastdrop && random.one(8);
      wish.noRpf = can.noRpf && !wish.fastdrop && random.one(10);
      if (can.reroute && !wish.noRpf && random.one(8)) wish.backup = outputs();
   }
   return steps;
}

// The difference that ended a life.
struct Ending {
   KitCulprit culprit;
   HookRule const* rule;  // that a call broke; null: another difference
   Qor::String text;

   bool same(Ending const& other) const { return culprit == other.culprit && rule == other.rule; }
};

// Plays the steps with a comparison after each `look` of them. `faults` gets the faults of the hooks.
std::optional<Ending> play(CheckRun const& run, Steps const& steps, unsigned look,
                           Qor::Ptr<HookFaults> const& faults) {
   auto const ended = [&](KitCulprit culprit, Qor::String how) -> Ending {
      if (faults->list().empty()) return {culprit, nullptr, std::move(how)};
      HookFault const& first = faults->list().front();
      return {first.rule->byCaller ? KitCulprit::library : KitCulprit::hook, first.rule,
              text(first)};
   };
   std::size_t at = 0;
   try {
      CheckRun const inner{run.options, run.make, run.path, run.abilities, faults};
      auto const life = inner.life({.polling = 1, .refusals = 8});
      Seconds const begin = Qor::now();
      for (; at < steps.size() && Qor::now() - begin < run.options.lifeTime; ++at) {
         Step const& step = steps[at];
         switch (step.kind) {
            case Step::Kind::want:
               life->want(step.wish);
               break;
            case Step::Kind::unwant:
               life->unwant(step.wish.key);
               break;
            case Step::Kind::wait:
               life->wait(step.seconds);
               break;
            case Step::Kind::link:
               life->link(step.wish.in, step.up);
               break;
            case Step::Kind::fault:
               life->faults().failNext(step.write, "planned by the kit");
         }
         if ((at + 1) % look == 0 || at + 1 == steps.size()) life->rest(false);
         if (!faults->list().empty()) break;
      }
      // Two reviews of the activity, and then an empty chip.
      if (faults->list().empty()) {
         life->wait(2.5);
         life->unwantAll();
      }
   } catch (Difference const& difference) {
      return ended(difference.culprit, difference.text);
   } catch (std::exception const& error) {
      return ended(KitCulprit::hook, text("threw: ", error.what()));
   }
   if (faults->list().empty()) return std::nullopt;
   return ended(KitCulprit::hook, {});
}

// Leaves out steps as long as the life ends in the same way.
Steps reduced(CheckRun const& run, Steps steps, Ending const& ending, unsigned look,
              unsigned& plays) {
   constexpr unsigned mostPlays = 300;
   for (std::size_t part = (steps.size() + 1) / 2; part > 0;) {
      bool shorter = false;
      for (std::size_t at = 0; at < steps.size() && plays < mostPlays;) {
         Steps fewer = steps;
         fewer.erase(
               fewer.begin() + static_cast<std::ptrdiff_t>(at),
               fewer.begin() + static_cast<std::ptrdiff_t>(std::min(at + part, steps.size())));
         ++plays;
         auto const now = play(run, fewer, look, Qor::make<HookFaults>());
         if (now && now->same(ending)) {
            steps = std::move(fewer);
            shorter = true;
         } else {
            at += part;
         }
      }
      if (part == 1 && (!shorter || plays >= mostPlays)) break;
      part = part == 1 ? 1 : part / 2;
   }
   return steps;
}

}  // namespace

void randomLives(CheckRun& run) {
   unsigned ports = 0;
   bool faults = false;
   {
      auto const life = run.life();
      ports = life->ports();
      faults = life->platform().faults() != nullptr;
   }
   for (U32 life = 0; life < run.options.lives; ++life) {
      U64 const seed = run.options.seed + life;
      Steps steps = randomSteps(seed, run, ports, faults);
      unsigned look = 10;
      auto ending = play(run, steps, look, Qor::make<HookFaults>());
      if (!ending) continue;
      // Again with a look after each step, so that the call to blame is the last one that touched
      // the entry.
      if (auto const closer = play(run, steps, 1, Qor::make<HookFaults>());
          closer && closer->same(*ending)) {
         look = 1;
      }
      unsigned plays = 2;
      steps = reduced(run, std::move(steps), *ending, look, plays);
      // The calls of the shortest life are those of the report.
      run.faults = Qor::make<HookFaults>();
      if (auto const last = play(run, steps, look, run.faults)) ending = last;
      Qor::String list;
      for (Step const& step : steps)
         list += text("\n  ", step);
      throw Difference{ending->culprit, text(ending->text, "\nseed ", seed, ", reduced to ",
                                             steps.size(), steps.size() == 1 ? " step" : " steps",
                                             " in ", plays, " lives, on inputs 0 and 1:", list)};
   }
   run.figures = text(run.options.lives, " lives of ", run.options.steps, " steps from seed ",
                      run.options.seed);
}

// ---- Restart. ----

void adoption(CheckRun& run) {
   auto first = run.life();
   RouteKey const kept = sourceGroup(1), both = sourceGroup(2), gone = sourceGroup(3);
   for (RouteKey const& key : {kept, both, gone})
      first->want({.key = key, .outs = {key == kept ? 3u : 2u}});
   first->rest();
   auto next = first->crash(0);
   if (!next) throw LeftOut{"the platform cannot let an agent crash"};
   first.reset();
   if (!next->restart()) throw LeftOut{"the platform finds nothing after a restart"};
   auto const life = run.life({.platform = next, .startsEmpty = false, .restarts = true});
   unsigned sent = 0, lost = 0;
   auto const stream = [&](unsigned packets) {
      for (unsigned i = 0; i < packets; ++i) {
         for (RouteKey const& key : {kept, both}) {
            ++sent;
            lost += life->send(key).copies.size() != 1;
         }
         life->wait(0.0005);
      }
   };
   stream(5);
   for (RouteKey const& key : {kept, both})
      life->want({.key = key, .outs = {key == kept ? 3u : 2u}});
   stream(20);
   life->programmer().resyncEnd();
   stream(20);
   life->rest();
   if (life->programmer().resyncing()) {
      throw Difference{KitCulprit::platform, "the sweep of what nobody asked for does not end"};
   }
   if (Probe::Seen const seen = life->send(gone); !seen.copies.empty()) {
      throw Difference{KitCulprit::platform,
                       text("a route that no wish names is swept, and a packet of it goes to ",
                            ChipComparison::members(seen.copies, seen.cpu))};
   }
   auto const counters = life->programmer().counters();
   run.figures = text(sent, " packets during the restart, ", lost, " lost; ", counters.adopted,
                      " groups and entries adopted, ", counters.swept, " swept");
   if (lost > 0) throw Difference{KitCulprit::platform, run.figures};
   if (counters.adopted == 0) {
      throw Difference{KitCulprit::platform, "nothing is adopted: " + run.figures};
   }
}

}  // namespace VelMroute::KitParts
