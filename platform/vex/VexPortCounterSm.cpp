// From a port's reading to its published record.
#include "vex/VexPortCounterSm.h"

#include "kiln/Time.h"
#include "vex/CounterSteps.h"

namespace Vex::Counters {

namespace {

constexpr double bitsPerOctet = 8;
constexpr double speedTolerance = 1.1;

} // namespace

VexPortCounterSm::VexPortCounterSm(const Pelt::IntfId& intf)
     : prevCounters_(Kiln::allocate<VexTypes::IntfCounters>()), intf_(intf), key_(intf.text()),
       current_(Kiln::allocate<VexTypes::IntfCounters>()) {}

void VexPortCounterSm::handleSeed(bool isKept) {
   isSeeded_ = true;
   if (isKept) {
      renewDiscontinuity(*prevCounters_);
   }
}

void VexPortCounterSm::update(VexHelper::VexHelperCountersSm& helper,
                              Silo::Interface::AllIntfCounters& counters, U64 speed) {
   const Interface::EthIntfStatistics published = prevCounters_->statistics();
   current_->isFilledIs(false);
   helper.getCounters(intf_, current_, prevCounters_);
   if (!current_->isFilled()) {
      return;
   }
   const double now = Kiln::System::currentTime();
   const Silo::Interface::IntfCounters& previous = prevCounters_->record();
   Silo::Interface::IntfCounters& next = current_->record();
   const bool isContinuous = takeStep(next, previous, published);
   next.interval = intervalBetween(prevCounters_->sampleTime(), now);
   next.discontinuityTime = isContinuous ? previous.discontinuityTime : now;
   next.suspects = previous.suspects;
   if (isContinuous && !isSeeded_) {
      next.suspects += suspects(next, speed);
   }
   current_->sampleTimeIs(now);
   // The step is taken, whether the table takes the record or not.
   std::swap(current_, prevCounters_);
   isSeeded_ = false;
   counters.table().recordIs(key_, prevCounters_->record(), now);
}

// Steps in octets that the speed does not allow in the time.
U64 VexPortCounterSm::suspects(const Silo::Interface::IntfCounters& record, U64 speed) const {
   using Interface::EthIntfStatistics;
   if (record.interval <= 0) {
      return 0;
   }
   const double most = static_cast<double>(speed) / bitsPerOctet * record.interval * speedTolerance;
   U64 found = 0;
   for (const std::size_t offset :
        {offsetof(EthIntfStatistics, inOctets), offsetof(EthIntfStatistics, outOctets)}) {
      if (static_cast<double>(record.deltas[offset / sizeof(U64)]) > most) {
         ++found;
      }
   }
   return found;
}

} // namespace Vex::Counters
