#include "Qor/Trace.h"

#include <cstdio>
#include <deque>
#include <sstream>
#include <vector>

#include "Qor/Assert.h"
#include "Qor/Clock.h"

namespace Qor {

namespace {

// * matches any run, ? any one character; everything else matches itself.
bool globMatches(std::string_view glob, std::string_view text) {
   std::size_t g = 0, t = 0, star = std::string_view::npos, mark = 0;
   while (t < text.size()) {
      if (g < glob.size() && glob[g] == '*') {
         star = g++;
         mark = t;
      } else if (g < glob.size() && (glob[g] == '?' || glob[g] == text[t])) {
         ++g;
         ++t;
      } else if (star != std::string_view::npos) {
         g = star + 1;
         t = ++mark;
      } else {
         return false;
      }
   }
   while (g < glob.size() && glob[g] == '*')
      ++g;
   return g == glob.size();
}

class StderrSink final : public TraceSink {
 public:
   void trace(TraceRecord const& record) override {
      std::fputs((traceLine(record) + "\n").c_str(), stderr);
   }
};

struct Setting {
   int level;
   String glob;
};

// Never destroyed: objects with static storage may trace while they are.
struct Registry {
   std::deque<TraceHandle> handles;  // stable addresses
   std::vector<Setting> settings;
   StderrSink standardError;
   TraceSink* sink = &standardError;

   void apply(Setting const& setting, TraceHandle& handle) const {
      if (!globMatches(setting.glob, handle.name())) return;
      handle.levelsIs(static_cast<U16>((1u << (setting.level + 1)) - 1));
   }
};

Registry& registry() {
   static Registry* const instance = new Registry;
   return *instance;
}

}  // namespace

TraceSink::~TraceSink() = default;

TraceHandle& traceHandle(std::string_view name) {
   Registry& r = registry();
   for (TraceHandle& handle : r.handles) {
      if (handle.name() == name) return handle;
   }
   TraceHandle& handle = r.handles.emplace_back(Name(name));
   for (Setting const& setting : r.settings)
      r.apply(setting, handle);
   return handle;
}

void traceLevelIs(int level, std::string_view glob) {
   QOR_ASSERT(level >= -1 && level <= static_cast<int>(TraceHandle::maxLevel));
   Registry& r = registry();
   Setting const setting{level, String(glob)};
   std::erase_if(r.settings, [&](Setting const& s) { return s.glob == setting.glob; });
   r.settings.push_back(setting);
   for (TraceHandle& handle : r.handles)
      r.apply(setting, handle);
}

TraceSink* traceSinkIs(TraceSink* sink) {
   Registry& r = registry();
   TraceSink* const before = r.sink == &r.standardError ? nullptr : r.sink;
   r.sink = sink ? sink : &r.standardError;
   return before;
}

String traceLine(TraceRecord const& record) {
   char time[32];
   std::snprintf(time, sizeof time, "%.6f", record.time);
   std::ostringstream line;
   line << time << ' ' << record.handle << ' ' << record.level << ' ' << record.source << ':'
        << record.line << ' ' << record.function << ' ' << record.message;
   return line.str();
}

void emitTrace(TraceHandle const& handle, unsigned level, char const* source, unsigned line,
               char const* function, std::string_view message) {
   registry().sink->trace({now(), handle.name(), level, source, line, function, message});
}

}  // namespace Qor
