// Tracing. A trace handle is a process-wide name under which a component traces at levels 0 to 9. A
// statement asks its handle whether the level is on, a load and a branch, and only then formats.
//
//    QOR_TRACE(handle, "VelAsyncMrouteSm", 2, "Found existing " << id);
//
// A record carries the name of the function that traces. Within a lambda that is the enclosing
// function, whose name the lambda captures; a plain QOR_TRACE does not compile there:
//
//    [function = __func__] { QOR_TRACE_IN(handle, "VelAsyncMrouteSm", function, 2, "add port"); }
//
// Emitted records go to the process's trace sink: the standard error stream, unless another sink
// has been set.
#pragma once

#include <string_view>

#include "Qor/Export.h"
#include "Qor/TextStream.h"
#include "Qor/Types.h"

namespace Qor {

class QOR_PUBLIC TraceHandle {
 public:
   static constexpr unsigned maxLevel = 9;

   // Handles are made by traceHandle() and live as long as the process.
   explicit TraceHandle(Name name) : name_(std::move(name)) {}
   TraceHandle(TraceHandle const&) = delete;
   TraceHandle& operator=(TraceHandle const&) = delete;

   Name const& name() const { return name_; }
   bool enabled(unsigned level) const { return (*levels_ >> level) & 1u; }

   // The set of levels that are on: bit n for level n.
   U16 levels() const { return *levels_; }
   void levelsIs(U16 levels) { *levels_ = levels; }
   // Keeps them in a variable of the component's from now on, which lives as long as the process:
   // its statements learn from that one load that they are off.
   void levelsAreIn(U16& levels) {
      levels = *levels_;
      levels_ = &levels;
   }

 private:
   Name const name_;
   U16 ownLevels_ = 0;
   U16* levels_ = &ownLevels_;
};

// One emitted statement. The texts live for the duration of the call.
struct TraceRecord {
   Seconds time;  // Qor::now()
   Name const& handle;
   unsigned level;
   char const* source;
   unsigned line;
   char const* function;
   std::string_view message;
};

class QOR_PUBLIC TraceSink {
 public:
   virtual ~TraceSink();
   virtual void trace(TraceRecord const& record) = 0;
};

// The handle of that name, created on first use with the levels that settings made so far give it.
QOR_PUBLIC TraceHandle& traceHandle(std::string_view name);

// Turns on levels 0 to `level` on every handle, present or future, whose name matches `glob` (with
// * and ?). Later settings win; level -1 turns off.
QOR_PUBLIC void traceLevelIs(int level, std::string_view glob = "*");

// Replaces the sink and returns the one before; null stands for the standard error stream. The
// caller keeps ownership and outlives its use.
QOR_PUBLIC TraceSink* traceSinkIs(TraceSink* sink);

// Formats one record as the standard error stream gets it:
//    <time, 6 decimals> <handle> <level> <source>:<line> <function> <message>
QOR_PUBLIC String traceLine(TraceRecord const& record);

QOR_PUBLIC void emitTrace(TraceHandle const& handle, unsigned level, char const* source,
                          unsigned line, char const* function, std::string_view message);

}  // namespace Qor

#define QOR_TRACE(handle, source, level, pieces)                                \
   do {                                                                         \
      static_assert(std::string_view(__func__) != "operator()",                 \
                    "a lambda traces under its function's name: QOR_TRACE_IN"); \
      QOR_TRACE_IN(handle, source, __func__, level, pieces);                    \
   } while (false)

// The same under the name of the function that encloses a lambda, which has captured its __func__.
#define QOR_TRACE_IN(handle, source, function, level, pieces)                                      \
   do {                                                                                            \
      ::Qor::TraceHandle const& qorTraceHandle = (handle);                                         \
      if (qorTraceHandle.enabled(level)) [[unlikely]] {                                            \
         ::Qor::TextStream qorTraceText;                                                           \
         qorTraceText.out() << pieces;                                                             \
         ::Qor::emitTrace(qorTraceHandle, level, source, __LINE__, function, qorTraceText.view()); \
      }                                                                                            \
   } while (false)
