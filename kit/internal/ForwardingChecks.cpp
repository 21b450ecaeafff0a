// The checks of forwarding: each plays a few changes, and compares at rest after each one.
#include <algorithm>

#include "Qor/Clock.h"
#include "kit/internal/Check.h"

namespace VelMroute::KitParts {

using Lnet::IpGenAddr;
using Lnet::IpGenPrefix;
using Qor::Seconds;

namespace {

RouteKey rangeOf(IpGenPrefix const& group) {
   return RouteKey(IpGenPrefix::any(Lnet::IpFamily::v4), group);
}

// Plays the wishes one after another.
void play(Life& life, std::initializer_list<Wish> wishes) {
   for (Wish const& wish : wishes) {
      life.want(wish);
      life.rest();
   }
}

}  // namespace

void forwarding(CheckRun& run) {
   auto const life = run.life();
   std::vector<unsigned> all;
   for (unsigned out = Life::inputs; out < life->ports(); ++out)
      all.push_back(out);
   RouteKey const one = sourceGroup(1), two = sourceGroup(2);
   play(*life, {{.key = one, .outs = {2}},
                {.key = two, .in = 1, .outs = {3}},
                {.key = one, .outs = {2, 3}},
                {.key = one, .outs = {3}},
                {.key = two, .in = 1, .outs = {2, 3}},
                {.key = one},
                {.key = sourceGroup(1, false, 2), .outs = {3}},  // another source of the group
                {.key = one, .outs = all},
                {.key = one, .outs = {2}}});
   life->unwantAll();
}

void ipv6Routes(CheckRun& run) {
   auto const life = run.life();
   // Differs from the first key in the middle of the source alone.
   IpGenAddr::Bytes source = sourceGroup(1, true).source().address().bytes();
   source[7] = 1;
   RouteKey const otherPrefix =
         RouteKey::fromAddresses(IpGenAddr::v6(source), sourceGroup(1, true).group().address());
   play(*life, {{.key = sourceGroup(1, true), .outs = {2}},
                {.key = sourceGroup(2, true), .outs = {3}},
                {.key = sourceGroup(1), .outs = {3}},
                {.key = sourceGroup(1, true, 2), .outs = {3}},
                {.key = otherPrefix, .in = 1, .outs = {2}},
                {.key = sourceGroup(1, true), .outs = {2, 3}}});
   life->unwantAll();
}

void sharedSets(CheckRun& run) {
   auto const life = run.life();
   RouteKey const one = sourceGroup(1), two = sourceGroup(2), three = sourceGroup(3);
   play(*life, {{.key = one, .outs = {2, 3}},
                {.key = two, .outs = {2, 3}},
                {.key = three, .in = 1, .outs = {2, 3}},
                {.key = one, .outs = {2}},
                {.key = two, .outs = {3}}});
   life->unwant(three);
   life->rest();
   // Each route of a set goes, and the set with the last one; then it comes back.
   life->unwantAll();
   play(*life, {{.key = two, .outs = {2, 3}}, {.key = one, .outs = {2, 3}}});
}

void starGroups(CheckRun& run) {
   auto const life = run.life();
   play(*life, {{.key = starGroup(1), .outs = {2}},
                {.key = sourceGroup(1), .outs = {3}},
                {.key = starGroup(2), .in = 1, .outs = {2, 3}},
                {.key = starGroup(1), .outs = {2, 3}}});
   life->unwant(sourceGroup(1));  // the packets of the source fall to (*,G) then
   life->rest();
   play(*life, {{.key = sourceGroup(1), .in = 1, .outs = {3}}});
   life->unwant(starGroup(1));
   life->rest();
}

void groupRanges(CheckRun& run) {
   auto const life = run.life();
   RouteKey const range = rangeOf(IpGenPrefix(IpGenAddr::v4(0xEF090000), 24));
   RouteKey const wide = rangeOf(IpGenPrefix(IpGenAddr::v4(0xEF080000), 15));
   RouteKey const catchAll = Routing::Multicast::Fib::canonicalCatchAllKey();
   play(*life, {{.key = range, .outs = {2}},
                {.key = catchAll, .outs = {3}},
                {.key = wide, .in = 1, .outs = {2, 3}},
                {.key = starGroup(7), .outs = {3}},
                {.key = sourceGroup(7), .outs = {2, 3}},
                {.key = catchAll, .outs = {2, 3}}});
   for (RouteKey const& key : {starGroup(7), range, sourceGroup(7), wide, catchAll}) {
      life->unwant(key);
      life->rest();
   }
}

// Each comparison sends a packet of each route at both inputs.
void vrfs(CheckRun& run) {
   if (!run.options.otherVrfId) throw LeftOut{"the options name no second VRF"};
   auto const life = run.life();
   RouteKey const key = sourceGroup(1);
   play(*life, {{.key = key, .outs = {2}},
                {.key = key, .otherVrf = true, .outs = {3}},
                {.key = sourceGroup(2), .otherVrf = true, .in = 1, .outs = {2, 3}},
                {.key = key, .outs = {2, 3}}});
   life->unwant(key);
   life->rest();
   life->unwantAll();
}

void inputVlan(CheckRun& run) {
   auto const life = run.life();
   RouteKey const one = sourceGroup(1), two = sourceGroup(2);
   play(*life, {{.key = one, .in = 0, .outs = {2}},
                {.key = two, .in = 1, .outs = {2}},
                {.key = one, .in = 1, .outs = {2}},
                {.key = two, .in = 0, .outs = {3}},
                {.key = one, .in = 0, .outs = {3}}});
   life->unwantAll();
}

void copiesToCpu(CheckRun& run) {
   auto const life = run.life();
   RouteKey const one = sourceGroup(1), two = sourceGroup(2);
   play(*life, {{.key = one, .cpu = true},
                {.key = two, .outs = {2}, .cpu = true},
                {.key = one, .outs = {2, 3}, .cpu = true},
                {.key = two, .outs = {2}},
                {.key = one}});
}

void fastdropEntries(CheckRun& run) {
   auto const life = run.life();
   RouteKey const one = sourceGroup(1), two = sourceGroup(2);
   play(*life, {{.key = one, .outs = {2}, .fastdrop = true},
                {.key = two, .in = 1, .outs = {3}, .fastdrop = true},
                {.key = one, .outs = {2, 3}, .fastdrop = true},
                {.key = two, .in = 1, .outs = {3}},
                {.key = one, .in = 1, .outs = {2, 3}, .fastdrop = true}});
   life->unwantAll();
}

void boundaries(CheckRun& run) {
   auto const life = run.life();
   RouteKey const one = sourceGroup(1), two = sourceGroup(2);
   play(*life, {{.key = two, .outs = {2}},
                {.key = one, .bridge = true},
                {.key = one, .outs = {3}},
                {.key = one, .in = 1, .bridge = true},
                {.key = two, .bridge = true}});
   life->unwantAll();
}

void anyInput(CheckRun& run) {
   auto const life = run.life();
   RouteKey const one = sourceGroup(1);
   play(*life, {{.key = one, .outs = {2}, .noRpf = true},
                {.key = sourceGroup(2), .outs = {3}},
                {.key = one, .outs = {2, 3}, .noRpf = true},
                {.key = one, .outs = {2, 3}},
                {.key = one, .outs = {3}, .noRpf = true}});
   life->unwantAll();
}

// The failure of an input rewrites the sets that have it as their input.
namespace {

// The group of a dirty record is not shared: a route with the same set object gets another one. The
// programmer makes an object for each set, so only this check passes freshOifSetIndex.
void dirtySet(Life& life) {
   auto const set = life.setNumber(0);
   auto const record = [&](unsigned n) {
      auto made = life.table().newRecord(life.spec(sourceGroup(n)), set, false).record;
      if (made) return made;
      throw Difference{KitCulprit::platform,
                       text(n == 1 ? "a set" : "a set whose first group is dirty",
                            " gets no group on a chip that has hardly any")};
   };
   auto first = record(1);
   life.table().markDirty(first);
   auto const second = record(2);
   Qor::U32 const index = life.table().facts(first).index;
   if (life.table().facts(second).index == index) {
      throw Difference{KitCulprit::platform,
                       text("a set whose group ", index, " is dirty gets the same group again")};
   }
   first = nullptr;
   life.settle();
}

}  // namespace

void rewriteInPlace(CheckRun& run) {
   auto const life = run.life();
   play(*life,
        {{.key = sourceGroup(1), .outs = {2}, .backup = {3}},
         {.key = sourceGroup(2), .outs = {2}, .backup = {3}},
         {.key = sourceGroup(3), .in = 1, .outs = {2}, .cpu = run.abilities.cpu, .backup = {3}},
         {.key = sourceGroup(4), .outs = {2}}});
   for (unsigned in = 0; in < Life::inputs; ++in) {
      life->link(in, false);
      life->rest();
   }
   life->link(0, true);
   life->link(1, true);
   // A new route with the set of a group that was rewritten has a group of its own.
   play(*life, {{.key = sourceGroup(5), .outs = {2}, .backup = {3}}});
   play(*life, {{.key = sourceGroup(1), .outs = {2}}, {.key = sourceGroup(2), .outs = {2, 3}}});
   life->unwantAll();
   dirtySet(*life);
}

void emptySets(CheckRun& run) {
   auto const life = run.life();
   RouteKey const one = sourceGroup(1), two = sourceGroup(2);
   play(*life, {{.key = one}, {.key = two, .in = 1}, {.key = one, .outs = {2}}, {.key = one}});
   if (run.path == HookPath::async && run.abilities.reroute) {
      play(*life, {{.key = sourceGroup(3), .backup = {2}},
                   {.key = sourceGroup(4), .in = 1, .backup = {3}},
                   {.key = sourceGroup(5), .in = 1}});
      life->link(0, false);
      life->rest();
      life->link(1, false);
      life->rest();
   }
   life->unwantAll();
}

// ---- A stream of packets while the outputs change. ----

void makeBeforeBreak(CheckRun& run) {
   auto const life = run.life();
   RouteKey const key = sourceGroup(1);
   Wish const wishes[] = {{.key = key, .outs = {2}}, {.key = key, .outs = {3}}};
   life->want(wishes[0]);
   life->rest();
   Probe::Packet const packet = life->packet(key);
   unsigned sent = 0, lost = 0, mixed = 0, firstLost = 0;
   Seconds const begin = Qor::now();
   for (unsigned change = 1; change <= 10; ++change) {
      life->want(wishes[change % 2]);
      bool pending = true;
      for (unsigned after = 0; after < 5; after += !pending) {
         auto const seen = life->probe().inject({&packet, 1}).front();
         ++sent;
         if (seen.copies.empty()) {
            ++lost;
            if (firstLost == 0) firstLost = sent;
         }
         mixed += seen.copies.size() > 1;
         life->wait(0.0002);
         pending = !life->programmer().settled() || life->platform().writesPending();
         if (Qor::now() > begin + 10 * run.options.patience) {
            throw Difference{KitCulprit::platform, "the changes of the outputs do not complete"};
         }
      }
      life->rest();
   }
   Seconds const took = Qor::now() - begin;
   run.figures = text(sent, " packets during 10 changes, ", took > 0 ? sent / took : 0,
                      " a second: ", lost, " lost, ", mixed, " to old and new outputs");
   if (lost == 0 && mixed == 0) return;
   // Between two packets of real time anything may happen to a packet; in virtual time nothing may.
   if (lost == 0 && !run.options.virtualTime) return;
   throw Difference{
         KitCulprit::platform,
         text(run.figures, "; the first lost packet is number ", firstLost, '\n',
              ChipComparison(life->shadow()).lastCall(std::nullopt, [&](RouteKey const& other) {
                 return other == key;
              }))};
}

}  // namespace VelMroute::KitParts
