// Reads and publishes the counters of L3 interfaces.
#include "vex/L3Counters.h"

#include "kiln/ActivityLock.h"
#include "kiln/Time.h"
#include "vex/BreakEvents.h"

#include <utility>

namespace Vex {

namespace {

using VexTypes::L3IntfCounters;

constexpr auto entryNames = [] {
   std::array<std::array<const char*, 2>, L3IntfCounters::inEntries + L3IntfCounters::outEntries> names{};
   for (std::size_t entry = 0; entry < names.size(); ++entry) {
      const bool isIn = entry < L3IntfCounters::inEntries;
      names[entry] = {isIn ? "in-octets" : "out-octets", isIn ? "in-pkts" : "out-pkts"};
   }
   return names;
}();

// Stands for the parts of a reading that has none: all of it is one device's, which always counts.
std::array<L3IntfCounters::Meter::Reading, 1> wholeOf(const Interface::L3IntfStatistics& statistics,
                                                      bool* isCounted) {
   L3IntfCounters::Meter::Reading whole{{}, isCounted, {}};
   whole.values[0] = {statistics.inOctets, statistics.inPkts};
   whole.values[L3IntfCounters::inEntries] = {statistics.outOctets, statistics.outPkts};
   return {whole};
}

// Adds what the entries of a direction counted to its two fields.
void addEntries(Silo::Interface::L3IntfCounters& record, std::size_t firstField,
                std::span<const Step<2>> entries) {
   for (const Step<2>& entry : entries) {
      for (std::size_t i = 0; i < 2; ++i) {
         record.deltas[firstField + i] += entry.counts[i];
         record.isAbsorbed[firstField + i] |= static_cast<U8>(entry.isAbsorbed[i]);
      }
   }
}

} // namespace

bool L3Counters::add(const Pelt::IntfId& intf) {
   if (counters_ == nullptr || intf.empty() || has(intf)) {
      return false;
   }
   try {
      Counted counted{Silo::Key(intf.text()), Kiln::allocate<L3IntfCounters>()};
      Silo::Interface::L3IntfCounters& record = counted.previous->record();
      const double now = Kiln::System::currentTime();
      // Counting goes on from what an earlier process published, so that totals never step back over a restart.
      const auto published = counters_->sampleOrDefault(counted.key);
      if (published.info.generation == 0) {
         beginRecord(record, now);
      } else {
         counted.previous->recordIs(published.record);
         counted.previous->sampleTimeIs(published.info.sampleTime);
         continueRecord(record, published.info.sampleTime, now);
         bool isCounted = true;
         counted.meter.read(wholeOf(record.reading, &isCounted));
         counted.isKept = true;
      }
      if (clearCounters_ != nullptr) {
         counted.clear.continueFrom(*clearCounters_, counted.key, record);
      }
      return intfs_.set(intf, std::move(counted));
   } catch (const std::invalid_argument& error) {
      errors_.log(intf, error);
      return false;
   }
}

void L3Counters::remove(const Pelt::IntfId& intf) {
   intfs_.erase(intf);
   errors_.forget(intf);
   try {
      // Also when nothing was counted: the records may be an earlier process's.
      const Silo::Key key(intf.text());
      for (Table* table : {counters_, clearCounters_}) {
         if (table != nullptr) {
            table->recordDel(key);
         }
      }
   } catch (const std::invalid_argument&) { // a name that is not a key: nothing was ever published under it
   }
}

// Due at once: a clock that is armed for now fires after everything armed before it, once this handler has returned.
void L3Counters::arm() {
   isDueAgain_ = isDueAgain_ || nextInPass_ < pass_.size();
   if (!endOfTurn_.isArmed()) {
      endOfTurn_.timeMinIs(Kiln::System::currentTime());
   }
}

void L3Counters::dueIs(const Pelt::IntfId& intf) {
   if (Counted* counted = intfs_.find(intf)) {
      counted->isDue = true;
      arm();
   }
}

void L3Counters::allDueIs() {
   for (auto& [intf, counted] : intfs_) {
      counted.isDue = true;
   }
   if (!intfs_.empty()) {
      arm();
   }
}

void L3Counters::beginPass() {
   nextInPass_ = 0;
   pass_.clear();
   for (const auto& [intf, counted] : intfs_) {
      if (counted.isDue) {
         pass_.push_back(intf);
      }
   }
}

// In slices: the next turn goes on behind where this one ends. An interface that goes meanwhile is found absent, and what
// is marked meanwhile is read in another pass, so that the last ones have their turn however long it takes.
void L3Counters::handleEndOfTurn() {
   if (nextInPass_ == pass_.size()) {
      beginPass();
   }
   while (nextInPass_ < pass_.size()) {
      const Pelt::IntfId intf = pass_[nextInPass_++];
      Counted* const counted = intfs_.find(intf);
      if (counted == nullptr || !counted->isDue) {
         continue;
      }
      // Before the read, which may fail: an interface that the table refuses is tried again when it is due again.
      counted->isDue = false;
      tryUpdate(intf, *counted);
      if (Kiln::ActivityLockAnchor::isSliceOver()) {
         endOfTurn_.timeMinIs(Kiln::System::currentTime());
         return;
      }
   }
   if (std::exchange(isDueAgain_, false)) {
      arm();
   }
}

void L3Counters::read(const Pelt::IntfId& intf) {
   if (Counted* counted = intfs_.find(intf)) {
      tryUpdate(intf, *counted);
   }
}

void L3Counters::tryUpdate(const Pelt::IntfId& intf, Counted& counted) {
   try {
      update(intf, counted);
      errors_.forget(intf);
   } catch (const Silo::TableError& error) {
      errors_.log(intf, error);
   }
}

void L3Counters::update(const Pelt::IntfId& intf, Counted& counted) {
   reading_->partsDel();
   if (!read_(intf, reading_, counted.previous)) {
      return;
   }
   const double now = Kiln::System::currentTime();
   Silo::Interface::L3IntfCounters& record = reading_->record();
   Silo::Interface::L3IntfCounters& last = counted.previous->record();
   bool isCounted = true;
   const auto whole = wholeOf(record.reading, &isCounted);
   const L3IntfCounters::Meter::Sum sum =
        counted.meter.read(reading_->hasParts() ? std::span(reading_->parts()) : std::span(whole));
   tellBreaks<entryNames.size()>(intf.text(), sum, entryNames,
                                 "its entries in the chips' tables are other ones than before");
   dropStep(record);
   const std::span steps(sum.steps);
   addEntries(record, 0, steps.first(L3IntfCounters::inEntries));
   addEntries(record, 2, steps.last(L3IntfCounters::outEntries));
   for (std::size_t i = 0; i < record.deltas.size(); ++i) {
      last.totals[i] += record.deltas[i];
   }
   record.totals = last.totals;
   last.reading = record.reading;
   // What the entries of an earlier process counted after its last reading is lost.
   const bool hasEnded = std::exchange(counted.isKept, false) && reading_->hasParts();
   if (hasEnded) {
      tellDiscontinuity(intf.text(),
                        "what its entries counted after an earlier agent's last reading is lost");
   }
   closeStep(*counted.previous, record, sum.isMarked || hasEnded, sum.isExchanged || hasEnded, now);
   counters_->recordIs(counted.key, record, now);
   counted.clear.write(clearCounters_, counted.key);
}

void L3Counters::clear(const Pelt::IntfId& intf, Counted& counted) {
   counted.clear.clear(counted.previous->record(), Kiln::System::currentTime());
   try {
      counted.clear.write(clearCounters_, counted.key);
   } catch (const Silo::TableError& error) {
      errors_.log(intf, error);
   }
}

// Of an interface that an earlier process counted and nobody has read since.
bool L3Counters::clearKept(const Silo::Key& key) {
   if (counters_ == nullptr || !counters_->has(key)) {
      return false;
   }
   const auto published = counters_->sampleOrDefault(key);
   if (clearCounters_ != nullptr && published.info.generation != 0) {
      Clear<Silo::Interface::L3IntfCounters> clear;
      clear.clear(published.record, Kiln::System::currentTime());
      clear.write(clearCounters_, key);
   }
   return true;
}

bool L3Counters::clear(const Pelt::IntfId& intf) {
   if (Counted* counted = intfs_.find(intf)) {
      clear(intf, *counted);
      return true;
   }
   try {
      return clearKept(Silo::Key(intf.text()));
   } catch (const std::invalid_argument&) {
      return false; // no record can have that name
   } catch (const Silo::TableError& error) {
      errors_.log(intf, error);
      return true;
   }
}

void L3Counters::clearAll() {
   for (auto& [intf, counted] : intfs_) {
      clear(intf, counted);
   }
   for (const Silo::Key& key : counters_ != nullptr ? counters_->keys() : std::vector<Silo::Key>{}) {
      const Pelt::IntfId intf{Kiln::Name(Kiln::String(key.view()))};
      if (!has(intf)) {
         clear(intf);
      }
   }
}

void L3Counters::removeAbsent(const std::function<bool(const Pelt::IntfId&)>& isThere) {
   for (Table* table : {counters_, clearCounters_}) {
      for (const Silo::Key& key : table != nullptr ? table->keys() : std::vector<Silo::Key>{}) {
         const Pelt::IntfId intf{Kiln::Name(Kiln::String(key.view()))};
         if (!has(intf) && !isThere(intf)) {
            table->recordDel(key);
         }
      }
   }
}

} // namespace Vex
