// Trace: development diagnostics by source file and level, switched at run time and written to standard error, which
// is never waited for.
//
//    static Kiln::TraceHandle traceHandle("ZelCounters");
//    KILN_TRACE(4, "updateCounters, intf: " << intf);
//
// A level that is off costs one test of a word; its operands are not evaluated. Levels are 0 to 9.
#pragma once

#include "kiln/Types.h"

#include <atomic>
#include <sstream>
#include <string_view>

namespace Kiln {

// One per source file, with static storage; registered under its name as long as the process lives.
class TraceHandle {
 public:
   explicit TraceHandle(const char* name);
   TraceHandle(const TraceHandle&) = delete;
   TraceHandle& operator=(const TraceHandle&) = delete;

   bool isOn(unsigned level) const noexcept {
      return ((levels_.load(std::memory_order_relaxed) >> level) & 1U) != 0;
   }
   const char* name() const noexcept { return name_; }
   void levelsIs(U32 mask) noexcept { levels_.store(mask, std::memory_order_relaxed); }

   // Writes one line: time, name, level, text. Any thread.
   void write(unsigned level, std::string_view text) const;

 private:
   const char* name_;
   std::atomic<U32> levels_{0};
};

// Applies "NAME/LEVELS": NAME is a handle's name, or * for all; LEVELS is a list of levels and ranges such as 0-4,8.
// Also applies to handles that register later. False, with the reason in *error, if the text has another form.
bool traceSettingIs(std::string_view text, String* error);

} // namespace Kiln

// Needs a TraceHandle named traceHandle in scope.
#define KILN_TRACE(level, operands)                                                                          \
   do {                                                                                                      \
      if (traceHandle.isOn(level)) [[unlikely]] {                                                            \
         std::ostringstream kilnTraceText;                                                                   \
         kilnTraceText << operands;                                                                          \
         traceHandle.write(level, kilnTraceText.str());                                                      \
      }                                                                                                      \
   } while (false)
