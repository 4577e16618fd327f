// Turns records into samples.
#include "vex/History.h"

#include "kiln/EventLog.h"
#include "kiln/Time.h"
#include "vex/VexCountersLog.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstring>
#include <stdexcept>
#include <utility>

namespace Vex {

using Silo::Interface::IntfCounters;
using Silo::Interface::IntfHistory;
using Silo::Interface::IntfQueueCounters;
using Silo::Interface::IntfQueueHistory;

namespace {

// One more than fit: the difference over the whole span needs both its ends.
std::size_t depthOf(double minutes, double interval) {
   constexpr double secondsPerMinute = 60;
   return static_cast<std::size_t>(std::ceil(minutes * secondsPerMinute / interval)) + 1;
}

// Between two samples of a port. Passes that come quicker than that are not all kept, so that memory stays bounded.
constexpr double leastInterval = 0.5; // seconds
double portInterval(double pollingInterval) {
   return std::max(pollingInterval, leastInterval);
}
double queueInterval(double pollingInterval) {
   return portInterval(pollingInterval) * IntfQueueHistory::intervals;
}
// Passes are not quite regular. Of quick ones, a ring must not get more than it has room for.
double spacingFor(double interval, double pollingInterval) {
   return pollingInterval < leastInterval ? interval : interval - pollingInterval / 2;
}

Silo::HistoryOptions options(const HistorySettings& settings, double interval, std::size_t rings) {
   const bool isSimulated = Kiln::System::timeSource()->isSimulated();
   return {.depth = depthOf(settings.minutes, interval),
           .maxRings = rings,
           .pollingInterval = interval,
           .spacing = spacingFor(interval, settings.pollingInterval),
           .clockDomain = isSimulated ? Silo::ClockDomain::simulatedTime() : Silo::ClockDomain::monotonic(),
           .onCorruption = logCorruption,
           .isProvisional = settings.isProvisional};
}

// The fields of a port's record, by the field of its sample; the last field of a sample is not a port's.
constexpr auto recordFields = [] {
   std::array<std::size_t, IntfHistory::outQueueDrops> fields{};
   for (std::size_t i = 0; i < fields.size(); ++i) {
      while (IntfHistory::fieldNames[i] != ::Interface::ethIntfFields[fields[i]].name) {
         ++fields[i];
      }
   }
   return fields;
}();

template <class Record>
Silo::HistoryMarks marksOf(const Record& record) {
   return {record.discontinuityTime, record.createdTime};
}

// For whoever wonders why there is nothing to look back at.
void tellIfBegunAnew(const Silo::HistoryTable& table) {
   if (!table.whyBegunAnew().empty()) {
      Kiln::EventLog::instance().record(
           {.kind = Kiln::EventKind::historyAnew,
            .where = table.name(),
            .text = "the history of an earlier agent " + table.whyBegunAnew() + ": it begins anew"});
   }
}

} // namespace

std::size_t HistorySettings::bytesPerPort() const {
   return Silo::HistoryTable::bytesPerRing(IntfHistory::layout,
                                           depthOf(minutes, portInterval(pollingInterval))) +
          Silo::HistoryTable::bytesPerRing(IntfQueueHistory::layout,
                                           depthOf(minutes, queueInterval(pollingInterval)));
}

History::History(const Silo::Store& store, const HistorySettings& settings)
     : queueInterval_(settings.pollingInterval),
       ports_(store, Silo::Interface::TableName::intfHistory, IntfHistory::layout,
              options(settings, portInterval(settings.pollingInterval), settings.ports)),
       queues_(store, Silo::Interface::TableName::intfQueueHistory, IntfQueueHistory::layout,
               // A few ports have more queues than fit into one ring.
               options(settings, queueInterval(settings.pollingInterval), 2 * settings.ports)) {}

void History::tellBeginning() const {
   tellIfBegunAnew(ports_);
   tellIfBegunAnew(queues_);
}

// What the memory has no room for is told once, and tried again with the next sample.
template <class Write>
void History::tryTo(Write write) {
   try {
      write();
   } catch (const std::runtime_error& error) {
      isRefused_ = true;
      if (!std::exchange(isTold_, true)) {
         const std::array<Kiln::String, 1> arguments{error.what()};
         Kiln::OperatorLog::instance().log(VEX_COUNTERS_HISTORY_ERROR, arguments);
      }
   }
}

void History::portIs(const Silo::Key& key, const IntfCounters& record, double time, const QueueDrops& drops) {
   constexpr double unreadAfter = 3; // intervals
   std::array<U64, IntfHistory::fieldNames.size()> values;
   for (std::size_t i = 0; i < recordFields.size(); ++i) {
      values[i] = record.totals[recordFields[i]];
   }
   values[IntfHistory::outQueueDrops] = drops.packets;
   Silo::HistoryMarks marks = marksOf(record);
   if (time - drops.time > unreadAfter * queueInterval_) { // by far, if they were never read
      marks.others = Silo::SampleFlag::queuesUnread;
   }
   tryTo([&] { ports_.write(key, time, marks, values); });
}

void History::queuesAre(const Silo::Key& key, const IntfQueueCounters& record, double time,
                        double& keptTime) {
   if (queues_.isTooSoon(time, keptTime)) {
      return;
   }
   constexpr std::size_t group = IntfQueueHistory::queuesPerRing;
   bool isLeftOut = false; // all rings of an interface have samples of the same times
   for (std::size_t first = 0; first < IntfQueueCounters::queueCount && !isLeftOut; first += group) {
      const std::size_t count = std::min(group, IntfQueueCounters::queueCount - first);
      if ((record.present >> first & ((U32{1} << count) - 1)) == 0) {
         continue;
      }
      std::array<U64, IntfQueueHistory::layout.size / sizeof(U64)> values{};
      std::memcpy(values.data(), &record.totals[first], count * sizeof record.totals[first]);
      tryTo([&] {
         if (first == 0) {
            isLeftOut = !queues_.write(key, time, marksOf(record), values);
            keptTime = isLeftOut ? keptTime : time;
         } else {
            // A name that has no room for the number goes without.
            const std::string more = IntfQueueHistory::keyOf(key.view(), first);
            if (more.size() <= Silo::Key::maxLength) {
               queues_.write(Silo::Key(more), time, marksOf(record), values);
            }
         }
      });
   }
}

void History::pollingIntervalIs(double seconds) {
   ports_.pollingIntervalIs(portInterval(seconds), spacingFor(portInterval(seconds), seconds));
   queues_.pollingIntervalIs(queueInterval(seconds), spacingFor(queueInterval(seconds), seconds));
}

void History::mend(const std::function<bool()>& goesOn) {
   isTold_ = std::exchange(isRefused_, false) && isTold_;
   ports_.mend();
   if (goesOn()) {
      queues_.mend();
   }
}

void History::keep() {
   ports_.keep();
   queues_.keep();
}

} // namespace Vex
