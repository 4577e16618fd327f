// Reads rings, and takes differences of their totals.
#include "apps/zelctl/views/PastSamples.h"

#include "kiln/Name.h"
#include "kiln/Numbers.h"
#include "vex/PublishedRecords.h"

#include <algorithm>
#include <limits>
#include <stdexcept>

namespace ZelCtl {

namespace {

using Kiln::String;
using Silo::HistorySample;
using Silo::Interface::IntfHistory;
using Silo::Interface::IntfQueueHistory;
using Silo::SampleFlag::begun;
using Silo::SampleFlag::queuesUnread;
namespace TableName = Silo::Interface::TableName;

constexpr double gapAfter = 3; // intervals

Silo::HistoryReader open(const Silo::Store& store, PastTable::Kind kind) {
   try {
      return kind == PastTable::Kind::ports
                  ? Silo::HistoryReader(store, TableName::intfHistory, IntfHistory::layout)
                  : Silo::HistoryReader(store, TableName::intfQueueHistory, IntfQueueHistory::layout);
   } catch (const std::runtime_error& error) {
      throw std::runtime_error(String("no history: ") + error.what() +
                               " (an agent keeps one unless it was started with --history 0)");
   }
}

} // namespace

bool PastSamples::isGap(double seconds) const {
   return seconds > gapAfter * interval;
}

bool PastSamples::isAfterGap(std::size_t sample) const {
   return sample > 0 && isGap(samples[sample].time - samples[sample - 1].time);
}

bool PastSamples::isRead(std::size_t sample, std::size_t field) const {
   return !isOfPorts || field != IntfHistory::outQueueDrops || !samples[sample].has(queuesUnread);
}

bool PastSamples::isStepTimed(std::size_t sample, std::size_t field) const {
   return !isAfterGap(sample) && isRead(sample, field) && (sample == 0 || isRead(sample - 1, field));
}

std::optional<U64> PastSamples::step(std::size_t sample, std::size_t field) const {
   const U64 after = samples[sample].values[field];
   if (samples[sample].has(begun)) {
      return after;
   }
   if (sample == 0) {
      return std::nullopt;
   }
   const U64 counted = after - samples[sample - 1].values[field];
   // No total counts that much: it stepped back, as the sum over queues of which one began anew.
   return counted > std::numeric_limits<U64>::max() / 2 ? std::nullopt : std::optional(counted);
}

const HistorySample* PastSamples::at(double time) const {
   const auto after = std::ranges::upper_bound(samples, time, {}, &HistorySample::time);
   return after == samples.begin() ? nullptr : &*std::prev(after);
}

std::optional<U64> PastSamples::since(double time, std::size_t field) const {
   const HistorySample* const from = at(time);
   if (samples.empty() || (from == nullptr && !samples.front().has(begun))) {
      return std::nullopt;
   }
   const bool isFromRead = from == nullptr || isRead(static_cast<std::size_t>(from - samples.data()), field);
   if (!isFromRead || !isRead(samples.size() - 1, field)) {
      return std::nullopt;
   }
   U64 counted = 0;
   const std::size_t first = from == nullptr ? 0 : static_cast<std::size_t>(from - samples.data()) + 1;
   for (std::size_t i = first; i < samples.size(); ++i) {
      const std::optional<U64> one = step(i, field);
      if (!one) {
         return std::nullopt;
      }
      counted += *one;
   }
   return counted;
}

PastTable::PastTable(const Silo::Store& store, Kind kind)
     : kind_(kind), owner_(store.foundOwner()), reader_(open(store, kind)) {
   if (!reader_.keys(keys_)) {
      throw std::runtime_error(reader_.problem());
   }
   for (const Silo::Key& key : keys_) {
      const std::string_view name = key.view();
      interfaces_.emplace_back(name.substr(0, name.find(' ')));
   }
   std::ranges::sort(interfaces_,
                     [](const String& a, const String& b) { return Kiln::naturalCompare(a, b) < 0; });
   interfaces_.erase(std::unique(interfaces_.begin(), interfaces_.end()), interfaces_.end());
}

PastSamples PastTable::samples(const String& intf, std::size_t queue) {
   PastSamples past;
   const String key = kind_ == Kind::ports ? intf : IntfQueueHistory::keyOf(intf, queue);
   if (key.size() <= Silo::Key::maxLength && !reader_.read(Silo::Key(key), past.samples)) {
      throw std::runtime_error(reader_.problem());
   }
   past.interval = interval();
   past.isOfPorts = kind_ == Kind::ports;
   return past;
}

std::size_t PastTable::queueCount(const String& intf) const {
   std::size_t count = 0;
   while (std::ranges::any_of(
        keys_, [&](const Silo::Key& key) { return key.view() == IntfQueueHistory::keyOf(intf, count); })) {
      count += IntfQueueHistory::queuesPerRing;
   }
   return count;
}

TableClock PastTable::clock() {
   const TableClock clock = TableClock::of(reader_.state(), 0);
   if (!clock.isSimulated && clock.isOfHere) {
      return clock;
   }
   double newest = 0;
   std::vector<HistorySample> samples;
   for (const Silo::Key& key : keys_) {
      if (reader_.read(key, samples) && !samples.empty()) {
         newest = std::max(newest, samples.back().time);
      }
   }
   TableClock past = TableClock::of(reader_.state(), newest);
   past.now = newest;
   return past;
}

std::optional<PastCounter> PastCounter::named(std::string_view name) {
   constexpr std::string_view prefix = "queue.";
   const auto* const port = std::ranges::find(IntfHistory::fieldNames, name);
   if (port != IntfHistory::fieldNames.end()) {
      return PastCounter{PastTable::Kind::ports, 0,
                         static_cast<std::size_t>(port - IntfHistory::fieldNames.begin())};
   }
   const std::size_t dot = name.rfind('.');
   if (!name.starts_with(prefix) || dot < prefix.size()) {
      return std::nullopt;
   }
   constexpr std::size_t last = Silo::Interface::IntfQueueCounters::queueCount - 1;
   const auto queue =
        Kiln::parseNumber<std::size_t>(name.substr(prefix.size(), dot - prefix.size()), 0, last);
   const auto* const field = std::ranges::find(IntfQueueHistory::fieldNames, name.substr(dot + 1));
   if (!queue || field == IntfQueueHistory::fieldNames.end()) {
      return std::nullopt;
   }
   const auto index = static_cast<std::size_t>(field - IntfQueueHistory::fieldNames.begin());
   return PastCounter{PastTable::Kind::queues, *queue, IntfQueueHistory::field(*queue, index)};
}

} // namespace ZelCtl
