// Reads and publishes the counters of L3 interfaces.
#include "vex/L3Counters.h"

#include "kiln/Time.h"
#include "vex/CounterSteps.h"

namespace Vex {

namespace {

// A reading is a sum over chips and falls when a chip or its entries go. What it loses was counted before, so a fall is
// not a step.
void absorbFalls(VexTypes::L3IntfCounters& previous, const Interface::L3IntfStatistics& reading) {
   previous.absorbedDelAll();
   for (std::size_t i = 0; i < Interface::L3IntfStatistics::fieldCount; ++i) {
      if (Interface::word(reading, i) < Interface::word(previous.statistics(), i)) {
         previous.absorb(i, Interface::word(reading, i));
      }
   }
}

} // namespace

bool L3Counters::add(const Pelt::IntfId& intf) {
   if (counters_ == nullptr || intf.empty() || has(intf)) {
      return false;
   }
   try {
      Counted counted{Silo::Key(intf.text()), Kiln::allocate<VexTypes::L3IntfCounters>()};
      // Counting goes on from what an earlier process published, so that totals never step back over a restart.
      const auto published = counters_->sampleOrDefault(counted.key);
      counted.previous->recordIs(published.record);
      counted.previous->sampleTimeIs(published.info.sampleTime);
      seed(*counted.previous, counters_->has(counted.key));
      if (clearCounters_ != nullptr) {
         dropClearAhead(*clearCounters_, counted.key, counted.previous->record());
      }
      return intfs_.set(intf, counted);
   } catch (const std::invalid_argument& error) {
      errors_.log(intf, error);
      return false;
   }
}

void L3Counters::remove(const Pelt::IntfId& intf) {
   if (const Counted* counted = intfs_.find(intf)) {
      counters_->recordDel(counted->key);
      if (clearCounters_ != nullptr) {
         clearCounters_->recordDel(counted->key);
      }
      intfs_.erase(intf);
   }
   errors_.forget(intf);
}

// Due at once: a clock that is armed for now fires after everything armed before it, once this handler has returned.
void L3Counters::arm() {
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

void L3Counters::handleEndOfTurn() {
   for (auto& [intf, counted] : intfs_) {
      if (!counted.isDue) {
         continue;
      }
      // Before the read, which may fail: an interface that the table refuses is tried again when it is due again.
      counted.isDue = false;
      try {
         update(intf, counted);
         errors_.forget(intf);
      } catch (const Silo::TableError& error) {
         errors_.log(intf, error);
      }
   }
}

void L3Counters::update(const Pelt::IntfId& intf, Counted& counted) {
   VexTypes::L3IntfCounters& counters = *counted.previous;
   if (!read_(intf, reading_, counted.previous)) {
      return;
   }
   const double now = Kiln::System::currentTime();
   absorbFalls(counters, reading_->statistics());
   takeStep(counters, reading_->record(), now);
   counters_->recordIs(counted.key, reading_->record(), now);
}

void L3Counters::clear(const Counted& counted) {
   if (clearCounters_ != nullptr) {
      clearCounters_->recordIs(counted.key, counted.previous->record(), Kiln::System::currentTime());
   }
}

bool L3Counters::clear(const Pelt::IntfId& intf) {
   const Counted* counted = intfs_.find(intf);
   if (counted != nullptr) {
      clear(*counted);
   }
   return counted != nullptr;
}

void L3Counters::clearAll() {
   for (const auto& [intf, counted] : intfs_) {
      clear(counted);
   }
}

} // namespace Vex
