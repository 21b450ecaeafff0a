// A platform in a shared object of its own: a module, which programs open at run time:
//
//    velmroute run --platform ./libmychip.so:device=0 FILE
//
// A module exports one symbol. It is linked against the shared library libVelMroute, as the program
// is, and against VelMroute::Programmer:
//
//    class MyChip final : public VelMroute::Platform { ... };
//
//    VELMROUTE_MODULE("my chip", VelMroute::HookPath::async, false,
//                     [](VelMroute::PlatformOptions const& options) {
//                        return Qor::make<MyChip>(options);
//                     })
//
// The program opens a module by its real path and never unloads it. Before it makes a platform, the
// program compares the description with its own: a module of another abi, library version or
// toolchain, with another sanitizer, or with a copy of the library inside is refused with one line.
#pragma once

#include <cstdint>

#include "Qor/Clock.h"
#include "VelMroute/Version.h"
#include "hooks/HookFault.h"
#include "platform/Platform.h"
#include "platform/PlatformOptions.h"

namespace VelMroute {

// The number of the binary interface between programs and modules: this description, the platform's
// classes and the hook classes. It grows with each change of their sizes and virtual functions.
inline constexpr std::uint32_t moduleAbi = 3;

}  // namespace VelMroute

#define VELMROUTE_TEXT_OF(value) #value
#define VELMROUTE_VALUE_TEXT(macro) VELMROUTE_TEXT_OF(macro)

// The properties of the compiler and of its standard library on which the binary interface depends.
#if defined(_GLIBCXX_DEBUG)
#define VELMROUTE_CONTAINERS ", debug containers"
#else
#define VELMROUTE_CONTAINERS ""
#endif
#define VELMROUTE_TOOLCHAIN \
   "C++ ABI " VELMROUTE_VALUE_TEXT(__GXX_ABI_VERSION) ", libstdc++ strings "            \
      VELMROUTE_VALUE_TEXT(_GLIBCXX_USE_CXX11_ABI) ", pointers of " VELMROUTE_VALUE_TEXT( \
            __SIZEOF_POINTER__) " bytes" VELMROUTE_CONTAINERS

#if defined(__SANITIZE_ADDRESS__)
#define VELMROUTE_SANITIZER "address"
#elif defined(__SANITIZE_THREAD__)
#define VELMROUTE_SANITIZER "thread"
#elif defined(__clang__)
#if __has_feature(address_sanitizer)
#define VELMROUTE_SANITIZER "address"
#elif __has_feature(thread_sanitizer)
#define VELMROUTE_SANITIZER "thread"
#endif
#endif
#if !defined(VELMROUTE_SANITIZER)
#define VELMROUTE_SANITIZER "none"
#endif

struct VelMrouteModule {
   std::uint32_t abi;      // VelMroute::moduleAbi; the first two members never change
   std::uint32_t size;     // sizeof(VelMrouteModule)
   char const* library;    // VELMROUTE_VERSION_STRING
   char const* toolchain;  // VELMROUTE_TOOLCHAIN
   char const* sanitizer;  // VELMROUTE_SANITIZER
   char const* name;       // of the chip, for people
   VelMroute::HookPath path;
   bool virtualTime;  // as Abilities::virtualTime of its platforms
   // A function of the library, as the module sees it.
   Qor::Ptr<Qor::ActivityManager> (*libraryFunction)();
   // Makes a platform on a chip with empty tables. Throws a std::exception, whose text the program
   // prints: PlatformOptionError for an option that the platform does not know, and for a bad value.
   Qor::Ptr<VelMroute::Platform> (*make)(VelMroute::PlatformOptions const& options);
};

// Defines the symbol. `makePlatform` is a function or a lambda without captures. Used once in a
// module, outside namespaces.
#define VELMROUTE_MODULE(chipName, hookPath, isVirtualTime, ...)                        \
   extern "C" {                                                                         \
   extern QOR_PUBLIC VelMrouteModule const velMrouteModule;                             \
   VelMrouteModule const velMrouteModule = {                                            \
         VelMroute::moduleAbi,                                                          \
         sizeof(VelMrouteModule),                                                       \
         VELMROUTE_VERSION_STRING,                                                      \
         VELMROUTE_TOOLCHAIN,                                                           \
         VELMROUTE_SANITIZER,                                                           \
         chipName,                                                                      \
         hookPath,                                                                      \
         isVirtualTime,                                                                 \
         &Qor::activityManager,                                                         \
         [](VelMroute::PlatformOptions const& given) -> Qor::Ptr<VelMroute::Platform> { \
            return (__VA_ARGS__)(given);                                                \
         }};                                                                            \
   }
