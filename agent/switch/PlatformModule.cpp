#include "agent/switch/PlatformModule.h"

#include <dlfcn.h>
#include <fcntl.h>
#include <fmt/format.h>
#include <gelf.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <optional>
#include <string_view>
#include <vector>

namespace Agent {

namespace {

constexpr char const* moduleSymbol = "velMrouteModule";
// The mangled name of Qor::activityManager(), which a copy of the library would define.
constexpr char const* librarySymbol = "_ZN3Qor15activityManagerEv";

// A shared object as far as its own file describes it, without running any of its code.
class ObjectFile {
 public:
   explicit ObjectFile(std::string const& path) {
      elf_version(EV_CURRENT);
      int const fd = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
      if (fd < 0) throw PlatformError(path + ": " + std::strerror(errno));
      {
         std::unique_ptr<Elf, int (*)(Elf*)> const elf(elf_begin(fd, ELF_C_READ, nullptr), elf_end);
         elf_ = elf.get();
         GElf_Ehdr header;
         shared_ = elf_ && gelf_getehdr(elf_, &header) && header.e_type == ET_DYN;
         for (Elf_Scn* part = nullptr; shared_ && (part = elf_nextscn(elf_, part)) != nullptr;)
            read(part);
      }
      ::close(fd);
      if (!shared_) throw PlatformError(path + ": not a shared object");
   }

   bool defines(std::string_view symbol) const { return contains(defined_, symbol); }
   // The name of the sanitizer whose runtime the object needs, as VELMROUTE_SANITIZER; "none".
   std::string_view sanitizer() const {
      for (std::string const& library : needed_) {
         if (library.starts_with("libasan.")) return "address";
         if (library.starts_with("libtsan.")) return "thread";
      }
      return "none";
   }

 private:
   static bool contains(std::vector<std::string> const& list, std::string_view text) {
      for (std::string const& one : list) {
         if (one == text) return true;
      }
      return false;
   }

   void read(Elf_Scn* part) {
      GElf_Shdr header;
      Elf_Data* const data = elf_getdata(part, nullptr);
      if (!gelf_getshdr(part, &header) || !data || header.sh_entsize == 0) return;
      auto const count = static_cast<int>(header.sh_size / header.sh_entsize);
      auto const text = [&](std::size_t at) {
         char const* const name = elf_strptr(elf_, header.sh_link, at);
         return std::string(name ? name : "");
      };
      for (int i = 0; i < count; ++i) {
         GElf_Dyn dyn;
         GElf_Sym symbol;
         if (header.sh_type == SHT_DYNAMIC && gelf_getdyn(data, i, &dyn)) {
            if (dyn.d_tag == DT_NEEDED) needed_.push_back(text(dyn.d_un.d_val));
         } else if (header.sh_type == SHT_DYNSYM && gelf_getsym(data, i, &symbol)) {
            if (symbol.st_shndx != SHN_UNDEF) defined_.push_back(text(symbol.st_name));
         }
      }
   }

   Elf* elf_ = nullptr;  // during the construction
   bool shared_ = false;
   std::vector<std::string> needed_, defined_;
};

std::string realPath(std::string const& file) {
   std::unique_ptr<char, void (*)(void*)> const path(::realpath(file.c_str(), nullptr), std::free);
   if (!path) throw PlatformError(file + ": " + std::strerror(errno));
   return path.get();
}

// The shared object that has the function.
std::string objectOf(Qor::Ptr<Qor::ActivityManager> (*function)()) {
   Dl_info info;
   if (::dladdr(reinterpret_cast<void const*>(function), &info) == 0 || !info.dli_fname) return "?";
   return info.dli_fname;
}

// The first difference between the description of a module and this program; empty if they fit.
std::string difference(VelMrouteModule const& module) {
   if (module.abi != VelMroute::moduleAbi) {
      return fmt::format("a module of abi {}, and this program has abi {}", module.abi,
                         VelMroute::moduleAbi);
   }
   if (module.size != sizeof(VelMrouteModule)) {
      return fmt::format("its description has {} bytes, and that of this program {}", module.size,
                         sizeof(VelMrouteModule));
   }
   auto const differs = [](char const* what, char const* there, std::string_view here) {
      return there && there == here ? std::string()
                                    : fmt::format("built with {} {}, and this program with {}",
                                                  what, there ? there : "unknown", here);
   };
   for (std::string const& text :
        {differs("library version", module.library, VELMROUTE_VERSION_STRING),
         differs("toolchain", module.toolchain, VELMROUTE_TOOLCHAIN),
         differs("sanitizer", module.sanitizer, VELMROUTE_SANITIZER)}) {
      if (!text.empty()) return text;
   }
   if (module.libraryFunction != &Qor::activityManager) {
      return "it uses another copy of the library, in " + objectOf(module.libraryFunction) +
             ": link it against " + objectOf(&Qor::activityManager);
   }
   if (!module.make) return "its description makes no platform";
   return {};
}

}  // namespace

VelMrouteModule const& openModule(std::string const& file) {
   std::string const path = realPath(file);
   {
      ObjectFile const object(path);
      if (!object.defines(moduleSymbol))
         throw PlatformError(file + ": exports no symbol " + moduleSymbol);
      if (object.defines(librarySymbol)) {
         throw PlatformError(file + ": has a copy of the library inside: link it against " +
                             objectOf(&Qor::activityManager));
      }
      if (object.sanitizer() != VELMROUTE_SANITIZER) {
         throw PlatformError(fmt::format("{}: built with sanitizer {}, and this program with {}",
                                         file, object.sanitizer(), VELMROUTE_SANITIZER));
      }
   }
   void* const handle = ::dlopen(path.c_str(), RTLD_NOW | RTLD_LOCAL | RTLD_NODELETE);
   if (!handle) throw PlatformError(file + ": " + ::dlerror());
   auto const* const module = static_cast<VelMrouteModule const*>(::dlsym(handle, moduleSymbol));
   if (!module) throw PlatformError(file + ": exports no symbol " + moduleSymbol);
   if (std::string const text = difference(*module); !text.empty())
      throw PlatformError(file + ": " + text);
   return *module;
}

}  // namespace Agent
