// The registry of trace handles and the settings that apply to them.
#include "kiln/Trace.h"

#include "kiln/LogOutput.h"
#include "kiln/Time.h"
#include "kiln/Utf8.h"

#include <charconv>
#include <cstdio>
#include <mutex>
#include <vector>

namespace Kiln {

namespace {

struct Setting {
   String name;
   U32 mask;
};

struct Registry {
   std::mutex mutex;
   std::vector<TraceHandle*> handles;
   std::vector<Setting> settings;
};

Registry& registry() {
   static auto* instance =
        new Registry; // handles are registered and used during static construction and destruction
   return *instance;
}

bool matches(const Setting& setting, std::string_view name) {
   return setting.name == "*" || setting.name == name;
}

constexpr unsigned highestLevel = 9;

bool parseLevel(std::string_view& text, unsigned* level) {
   const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), *level);
   if (error != std::errc() || *level > highestLevel) {
      return false;
   }
   text.remove_prefix(static_cast<std::size_t>(end - text.data()));
   return true;
}

bool parseLevels(std::string_view text, U32* mask) {
   *mask = 0;
   while (true) {
      unsigned first = 0;
      if (!parseLevel(text, &first)) {
         return false;
      }
      unsigned last = first;
      if (!text.empty() && text.front() == '-') {
         text.remove_prefix(1);
         if (!parseLevel(text, &last) || last < first) {
            return false;
         }
      }
      for (unsigned level = first; level <= last; ++level) {
         *mask |= 1U << level;
      }
      if (text.empty()) {
         return true;
      }
      if (text.front() != ',') {
         return false;
      }
      text.remove_prefix(1);
   }
}

} // namespace

TraceHandle::TraceHandle(const char* name) : name_(name) {
   Registry& all = registry();
   const std::lock_guard lock(all.mutex);
   all.handles.push_back(this);
   // In the order in which they were made: a later setting overrides an earlier one, as it does for a handle that
   // exists.
   for (const Setting& setting : all.settings) {
      if (matches(setting, name)) {
         levelsIs(setting.mask);
      }
   }
}

void TraceHandle::write(unsigned level, std::string_view text) const {
   char head[64];
   std::snprintf(head, sizeof head, "%.6f ", System::currentTime());
   // One call per line, so that the lines of several threads do not mix.
   LogOutput::standardError().write(head + String(name_) + "/" + std::to_string(level) + " " +
                                    printable(text) + "\n");
}

bool traceSettingIs(std::string_view text, String* error) {
   const std::size_t slash = text.rfind('/');
   Setting setting;
   if (slash == std::string_view::npos || slash == 0 || !parseLevels(text.substr(slash + 1), &setting.mask)) {
      *error = "trace setting '" + String(text) + "' is not NAME/LEVELS, such as ZelCounters/0-4 or */8";
      return false;
   }
   setting.name = text.substr(0, slash);
   Registry& all = registry();
   const std::lock_guard lock(all.mutex);
   for (TraceHandle* handle : all.handles) {
      if (matches(setting, handle->name())) {
         handle->levelsIs(setting.mask);
      }
   }
   // Kept for handles that register later.
   all.settings.push_back(std::move(setting));
   return true;
}

} // namespace Kiln
