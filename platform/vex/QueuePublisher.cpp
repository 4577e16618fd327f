// Adds up the reports of queue counters.
#include "vex/QueuePublisher.h"

#include "kiln/Time.h"
#include "vex/CounterSteps.h"

#include <optional>
#include <stdexcept>

namespace Vex::Counters {

using Silo::Interface::QueueStatistics;

namespace {

// A lower value means that the queue began again from zero, so it counts whole.
U64 increment(U64 last, U64 value) {
   return value >= last ? value - last : value;
}

QueueStatistics increments(const QueueStatistics& last, const QueueStatistics& value) {
   return {increment(last.packets, value.packets), increment(last.bytes, value.bytes),
           increment(last.drops, value.drops)};
}

void add(QueueStatistics& total, const QueueStatistics& delta) {
   total.packets += delta.packets;
   total.bytes += delta.bytes;
   total.drops += delta.drops;
}

// A report without a known time leaves the record's time as it was.
double sampleTimeOf(const VexTypes::IntfQueueCounters& report, const Silo::RecordInfo& published) {
   for (const double time : {report.sampleTime(), published.sampleTime}) {
      if (time != Silo::unknownSampleTime) {
         return time;
      }
   }
   return Kiln::System::currentTime();
}

} // namespace

QueuePublisher::History& QueuePublisher::historyOf(const Pelt::IntfId& intf) {
   History* history = histories_.find(intf);
   if (history == nullptr) {
      histories_.set(intf, {Silo::Key(intf.text())});
      history = histories_.find(intf);
      // The first look at the interface in this process: an earlier one may have left its clear record ahead.
      if (clearCounters_) {
         dropClearAhead(clearCounters_->table(), history->key,
                        counters_->table().sampleOrDefault(history->key).record);
      }
   }
   return *history;
}

void QueuePublisher::publish(const Pelt::IntfId& intf, const VexTypes::IntfQueueCounters& report,
                             bool isIncrement) {
   if (!counters_) {
      return;
   }
   History& history = historyOf(intf);
   // The totals are kept in the table alone, so they go on from where an earlier process left them.
   auto sample = counters_->table().sampleOrDefault(history.key);
   auto& record = sample.record;
   // Another port: its counts cannot be compared with the previous ones, while the published totals stand.
   if (report.beginsAnew()) {
      history.report = {};
      history.sampleTime = Silo::unknownSampleTime;
   }
   // A clear hands over the last reading again. It must not replace the step between the last two readings.
   const bool isNewSample =
        report.sampleTime() == Silo::unknownSampleTime || report.sampleTime() != history.sampleTime;
   if (isNewSample) {
      record.deltas = {};
      record.interval = intervalBetween(history.sampleTime, report.sampleTime());
      history.sampleTime = report.sampleTime();
   }
   for (std::size_t queue = 0; queue < VexTypes::IntfQueueCounters::queueCount; ++queue) {
      if (!report.has(queue)) {
         continue;
      }
      const QueueStatistics& value = report.intfQueueStat(queue);
      QueueStatistics last{};
      if (history.report.has(queue)) {
         last = history.report.intfQueueStat(queue);
      } else if (((record.reported >> queue) & 1) != 0) {
         last = value; // an earlier process or another port reported it: the total stands
      }
      const QueueStatistics delta = increments(last, value);
      if (isNewSample) {
         record.deltas[queue] = delta;
      }
      if (isIncrement) {
         add(record.totals[queue], delta);
      } else {
         record.totals[queue] = value;
      }
      history.report.intfQueueStatIs(queue, value);
      record.present |= U32{1} << queue;
      record.reported |= U32{1} << queue;
   }
   counters_->table().recordIs(history.key, record, sampleTimeOf(report, sample.info));
}

void QueuePublisher::clear(const Silo::Key& key) {
   if (clearCounters_) {
      clearCounters_->table().recordIs(key, counters_->table().sampleOrDefault(key).record,
                                       Kiln::System::currentTime());
   }
}

bool QueuePublisher::clear(const Pelt::IntfId& intf) {
   std::optional<Silo::Key> key;
   try {
      key.emplace(intf.text());
   } catch (const std::invalid_argument&) {
      return false; // no record can have that name
   }
   if (!counters_ || !counters_->table().has(*key)) {
      return false;
   }
   clear(*key);
   return true;
}

void QueuePublisher::clearAll(PublishErrors& errors) {
   if (!counters_) {
      return;
   }
   for (const Silo::Key& key : counters_->table().keys()) {
      try {
         clear(key);
      } catch (const Silo::TableError& error) { // the others are still to be cleared
         errors.log(Pelt::IntfId{Kiln::Name(Kiln::String(key.view()))}, error);
      }
   }
}

void QueuePublisher::remove(const Pelt::IntfId& intf) {
   histories_.erase(intf);
   // Also without a history: the records may be an earlier process's.
   const Silo::Key key(intf.text());
   if (counters_) {
      counters_->table().recordDel(key);
   }
   if (clearCounters_) {
      clearCounters_->table().recordDel(key);
   }
}

} // namespace Vex::Counters
