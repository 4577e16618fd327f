// Formats and keeps the messages for the operator.
#include "kiln/OperatorLog.h"

#include "kiln/Time.h"

namespace Kiln {

namespace {

String formatted(const char* text, std::span<const String> arguments) {
   String out;
   std::size_t next = 0;
   for (const char* at = text; *at != '\0'; ++at) {
      if (at[0] == '%' && (at[1] == 's' || at[1] == 'd') && next < arguments.size()) {
         out += arguments[next++];
         ++at;
      } else {
         out += *at;
      }
   }
   return out;
}

} // namespace

const char* severityText(Severity severity) {
   switch (severity) {
   case Severity::error:
      return "error";
   case Severity::warning:
      return "warning";
   case Severity::notice:
      return "notice";
   case Severity::informational:
      return "informational";
   }
   return "unknown";
}

OperatorLog& OperatorLog::instance() {
   static auto* log = new OperatorLog; // never freed: written to while statics are destroyed
   return *log;
}

void OperatorLog::log(const LogMessage& message, std::span<const String> arguments, const char* event) {
   Entry entry{System::currentTime(), &message, formatted(message.text, arguments)};
   std::function<void(const Entry&)> sink;
   {
      const std::lock_guard lock(mutex_);
      if (entries_.size() == entryLimit) {
         entries_.pop_front();
      }
      entries_.push_back(entry);
      sink = sink_;
   }
   // Without the mutex, so that a sink may itself log.
   if (sink) {
      sink(entry);
   }
   const char* const kind = event != nullptr ? event : message.event;
   const bool isPlaced = message.placePrefix != nullptr && !arguments.empty();
   EventLog::instance().record({.kind = kind,
                                .where = isPlaced ? message.placePrefix + arguments.front() : String(),
                                .what = message.id,
                                .text = entry.text});
}

std::vector<OperatorLog::Entry> OperatorLog::entries() const {
   const std::lock_guard lock(mutex_);
   return {entries_.begin(), entries_.end()};
}

std::vector<OperatorLog::Entry> OperatorLog::newEntries() {
   const std::lock_guard lock(mutex_);
   std::vector<Entry> taken(std::make_move_iterator(entries_.begin()),
                            std::make_move_iterator(entries_.end()));
   entries_.clear();
   return taken;
}

void OperatorLog::sinkIs(std::function<void(const Entry&)> sink) {
   const std::lock_guard lock(mutex_);
   sink_ = std::move(sink);
}

} // namespace Kiln
