// Platforms by name: modules that fit the program and modules that do not, and the record of the
// binary interface between them.
#include <gtest/gtest.h>

#include <unistd.h>

#include <cstring>
#include <filesystem>
#include <sstream>

#include "agent/report/ExitCode.h"
#include "agent/switch/PlatformChoice.h"
#include "agent/switch/Switch.h"

namespace Agent {
namespace {

std::string const modules = VELMROUTE_MODULES;

// The error of a platform with this name, or of its making; "made" without an error.
std::string errorOf(std::string const& text) {
   try {
      NamedPlatform const named = namedPlatform(text);
      named.source(named.path, {}).make();
   } catch (PlatformError const& error) {
      return error.what();
   }
   return "made";
}

TEST(Module, EachOneThatDoesNotFitIsRefusedWithItsReason) {
   std::string const other = std::string_view(VELMROUTE_SANITIZER) == "none" ? "address" : "none";
   std::pair<char const*, std::string> const cases[] = {
         {"abi.so", "a module of abi 99, and this program has abi 3"},
         {"size.so", "its description has 8 bytes, and that of this program "},
         {"library.so", "built with library version 9.8.7, and this program with "},
         {"toolchain.so", "built with toolchain other, and this program with C++ ABI "},
         {"symbol.so", "exports no symbol velMrouteModule"},
         {"copy.so", "has a copy of the library inside: link it against "},
         {"hidden.so", "it uses another copy of the library, in "},
         {"sanitized.so", "built with sanitizer " + other + ", and this program with "},
         {"absent.so", "No such file or directory"},
         {"good.so:absent", "no device at slot 3"},
         {"good.so:number", "an unknown error"},
         {"good.so:nothing", "it made no platform"},
         {"good.so:async", "it has no hooks of the path sync"},
         {"good.so:size=3", "unknown chip property \"size\" (known: groups=N, "},
         {"good.so:groups=3x", "bad value in \"groups=3x\""},
         {"CTestTestfile.cmake", "not a shared object"},
   };
   for (auto const& [file, reason] : cases) {
      std::string const name = modules + std::string(file).substr(0, std::string(file).find(':'));
      EXPECT_EQ(errorOf(modules + file).substr(0, name.size() + 2 + reason.size()),
                name + ": " + reason);
   }
   EXPECT_EQ(errorOf("chip"),
             "\"chip\" is not a platform (known: sim, sim-sync, or the file of a module, as "
             "./libmychip.so)");
   EXPECT_EQ(errorOf("sim-sync:groups=0x"), "sim: bad value in \"groups=0x\"");
}

TEST(Module, IsAPlatformLikeTheBuiltInOnesWithTheOptionsOfItsName) {
   for (std::string const& name : {std::string("sim-sync"), modules + "good.so"}) {
      NamedPlatform const named = namedPlatform(name + ":groups=7,groups=5");
      ASSERT_EQ(named.path, PathKind::sync);
      Switch theSwitch(named.source(named.path, {}));
      EXPECT_EQ(theSwitch.view().use(Table::group).size, 5u);
      EXPECT_TRUE(theSwitch.forks());
      Qor::activityManagerIs(nullptr);
   }
   // A link to the module elsewhere is opened by its real path.
   std::filesystem::path const link = std::filesystem::temp_directory_path() /
                                      ("velmroute-" + std::to_string(::getpid()) + ".so");
   std::filesystem::create_symlink(modules + "good.so", link);
   EXPECT_EQ(errorOf(link.string()), "made");
   std::filesystem::remove(link);
}

// The numbers of virtual functions in their classes: " 5 6".
template <class... Functions>
std::string slots(Functions... functions) {
   std::string text;
   auto const add = [&](auto function) {
      static_assert(sizeof function == 2 * sizeof(std::size_t));
      std::size_t words[2];
      std::memcpy(words, &function, sizeof words);
      text += ' ' + std::to_string((words[0] - 1) / sizeof(void*));
   };
   (add(functions), ...);
   return text;
}

// A change of these numbers changes the binary interface: raise VelMroute::moduleAbi, and record the
// new numbers here.
TEST(Module, TheRecordedBinaryInterfaceIsThatOfTheClasses) {
   using VelHelper::AsyncMrouteHelper;
   using VelHelper::MrouteSmHelper;
   using namespace VelMroute;
   using A = AsyncMrouteHelper;
   using S = MrouteSmHelper;
   using P = Platform;
   std::ostringstream now;
   now << "abi " << moduleAbi << "; sizes";
   for (std::size_t const size :
        {sizeof(VelMrouteModule), sizeof(AsyncMrouteHelper), sizeof(MrouteSmHelper),
         sizeof(Platform), sizeof(View), sizeof(View::Entry), sizeof(View::Group),
         sizeof(View::Use), sizeof(Probe), sizeof(Probe::Packet), sizeof(Probe::Seen),
         sizeof(Faults), sizeof(Restart), sizeof(Restart::Route), sizeof(Abilities),
         sizeof(PlatformOptions)})
      now << ' ' << size;
   now << "; async"
       << slots(&A::handleMrouteCounterMode, &A::handleWildcardCounter, &A::doCreateMrouteCounter,
                &A::doDeleteMrouteCounter, &A::doAllocateSharableMulticastGroup,
                &A::doAllocateFixedMulticastGroup, &A::doUpdateMulticastGroupInPlace,
                &A::doGetXactForOifSet, &A::doGetXactFailureReason, &A::doDeleteOifSet,
                &A::doAllocateRoute, &A::doSetMtableOifSet, &A::doGetXactForIngress,
                &A::doDeleteRoute, &A::routeLastAccessedTime, &A::needFixedOifSet,
                &A::needIngressProgramming, &A::mcastIdReusable, &A::mcastIdIsValid,
                &A::doGetAdjustedPollingInterval, &A::doGetAdjustedActivityPollInterval,
                &A::doScheduleVerify)
       << "; sync"
       << slots(&S::mrouteInit, &S::handleMulticastRouting, &S::handleMrouteCounterMode,
                &S::verifyMulticastRouting, &S::mrouteSwitchInit, &S::doAllocateMtableOifSet,
                &S::doReallocateMtableOifSet, &S::handleFreeMtableOifSet, &S::doCreateMrouteCounter,
                &S::doDeleteMrouteCounter, &S::doClearMrouteCounter, &S::doReadMrouteCounter,
                &S::ageOutHwMcastCounter, &S::doAllocateMroute, &S::doAllocateMrouteNoRpf,
                &S::doSetMtableOifSet, &S::doDeleteMroute, &S::doDeleteMrouteBoundary,
                &S::doCommitMrouteBatch, &S::mrouteFull, &S::mrouteBoundaryFull, &S::mtableFull,
                &S::mrouteHitBit, &S::mrouteHitBitCacheRefresh, &S::mrouteHitBitCacheClear,
                &S::triggerRouteAgingReview, &S::verifyMroute, &S::verifyMrouteBoundary)
       << "; platform"
       << slots(&P::abilities, &P::asyncHooks, &P::syncHooks, &P::view, &P::probe, &P::faults,
                &P::restart, &P::portIs, &P::writesPending, &P::violations, &P::audit, &P::crash,
                &View::refresh, &View::sends, &Probe::ports, &Probe::linkIs, &Restart::found,
                &Restart::swept);
   EXPECT_EQ(
         now.str(),
         "abi 3; sizes 64 216 64 16 8 112 32 28 8 52 40 536 8 56 14 24; async 5 6 7 8 9 10 11 12 "
         "13 14 15 16 17 18 19 20 21 22 23 24 25 26; sync 5 6 7 8 9 10 11 12 13 14 15 16 17 18 19 "
         "20 21 22 23 24 25 26 27 28 29 30 31 32; platform 4 5 6 7 8 9 10 11 12 13 14 15 2 13 2 6 "
         "2 7");
}

}  // namespace
}  // namespace Agent
