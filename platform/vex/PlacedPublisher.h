// Publishes records of places that are read on their own, and whose totals go on whatever happens behind them.
#pragma once

#include "kiln/Collections.h"
#include "silo/Table.h"
#include "vex/Continuity.h"
#include "vex/PublishedChip.h"
#include "zel/Pelt.h"
#include "zel/ZelId.h"

#include <functional>
#include <stdexcept>

namespace Vex {

// One table of such records. Its names are those of interfaces, chips, or pipes. Activity thread; allocates only for a
// name that it has not had yet. Throws what the table throws; what it did not take comes with the next publish().
template <class Record>
class PlacedPublisher {
   static constexpr std::size_t placeCount = Record::placeCount;
   static constexpr std::size_t n = Record::valueCount;

 public:
   using Values = typename Record::Values;

   // A record as it counts. Readings are taken place by place, as far as they succeed, and published together.
   class Counted {
    public:
      explicit Counted(const Silo::Key& key) : key_(key) { begins_.fill(Begin::nothing); }

      // A place's values at that time.
      void take(std::size_t place, const Values& values, double time);
      // Somebody set the hardware of a place to zero. What it counted since it was read last is not known.
      void zeroed(std::size_t place);

    private:
      friend class PlacedPublisher;

      void continueFrom(const Silo::Sample<Record>& published, const Source& source, double now);
      void sourceIs(const Source& source, bool& isCounted);

      Silo::Key key_;
      Record record_{}; // as published, or as it will be
      double sampleTime_ = Silo::unknownSampleTime;
      SourceTrail sources_;
      std::array<Meter<n>, placeCount> meters_{};
      std::array<Begin, placeCount> begins_; // what the next reading of a place counts
      bool isMarked_ = false;                // since it was published last
      bool isChanged_ = false;               // the same
   };

   // The table outlives this. Where an earlier process counted, a newcomer counts from nothing.
   explicit PlacedPublisher(Silo::Table<Record>& table);

   // The record of that name, which is about to be read at that source. A source with a programming is one that began at
   // zero. Throws std::invalid_argument for a name that is no key.
   Counted& countedOf(const Pelt::IntfId& name, const Source& source);
   // Writes the record if anything of it was taken. `complete` fills in what it has besides its counts.
   template <class Complete>
   void publish(const Pelt::IntfId& name, Complete complete);
   void publish(const Pelt::IntfId& name) {
      publish(name, [](Record&) {});
   }
   // The records that count at a device: those for which `isMeant(place of the source)`.
   template <class IsMeant, class Visit>
   void forEachAt(ZelId::ZelDevId device, IsMeant isMeant, Visit visit) {
      for (auto& [name, counted] : counted_) {
         const Source& source = counted.sources_.source();
         if (source.isKnown() && source.device == device && isMeant(source.place)) {
            visit(name, counted);
         }
      }
   }

   // Whom it counted is gone, and begins anew when it comes back.
   void remove(const Pelt::IntfId& name);
   // Whom it counts is away, and goes on when it comes back.
   void withdraw(const Pelt::IntfId& name);
   // Removes the records that an earlier process published and this one has not read, unless they are there.
   void removeAbsent(const std::function<bool(const Kiln::String&)>& isThere);

 private:
   // Where anybody was ever counted.
   struct Place {
      U32 life = 0; // of the chip; 0: of one that an earlier process had
      bool isCounted = false;
   };
   static U32 numberOf(U32 device, U32 place) { return device << 16 | place; }
   bool& isCountedAt(const Source& source);

   Silo::Table<Record>& table_;
   Kiln::HashMap<Pelt::IntfId, Counted> counted_;
   Kiln::HashMap<U32, Place> places_;
};

template <class Record>
void PlacedPublisher<Record>::Counted::take(std::size_t place, const Values& values, double time) {
   record_.readTimes[place] = time;
   sampleTime_ = std::max(sampleTime_, time);
   isChanged_ = true;
   if constexpr (requires { Record::isLevel(place); }) {
      if (Record::isLevel(place)) {
         record_.readings[place] = values;
         return;
      }
   }
   const Begin begin = std::exchange(begins_[place], Begin::step);
   const Step<n> step = meters_[place].read(values, begin);
   for (std::size_t i = 0; i < n; ++i) {
      record_.totals[place][i] += step.counts[i];
   }
   record_.readings[place] = values;
   record_.lifts[place] = meters_[place].lift();
   isMarked_ |= step.isMarked || begin == Begin::nothing;
}

template <class Record>
void PlacedPublisher<Record>::Counted::zeroed(std::size_t place) {
   meters_[place].zeroed();
   begins_[place] = Begin::step;
   record_.readings[place] = {};
   record_.lifts[place] = {};
   isMarked_ = true;
   isChanged_ = true;
}

template <class Record>
void PlacedPublisher<Record>::Counted::continueFrom(const Silo::Sample<Record>& published,
                                                    const Source& source, double now) {
   record_ = published.record;
   sampleTime_ = published.info.sampleTime;
   const std::array<double, placeCount> readTimes = record_.readTimes;
   if (!continueRecord(record_, sampleTime_, now)) {
      return;
   }
   const bool isSamePlace = record_.device == source.device && record_.devicePort == source.place;
   // What an earlier process had counted at another place, or had not read, is only compared with.
   const Begin begin = source.programming != 0 ? Begin::fromZero
                       : isSamePlace           ? Begin::difference
                                               : Begin::nothing;
   sources_.keptIs(begin);
   for (std::size_t place = 0; place < placeCount; ++place) {
      if (readTimes[place] != 0) {
         meters_[place].continueFrom(record_.readings[place], record_.lifts[place]);
         begins_[place] = begin;
      }
   }
   if (sampleTime_ == Silo::unknownSampleTime) {
      record_.readTimes = {};
   }
}

// A place that cannot be read keeps in mind how its next reading begins. Another life of the chip alters that only where
// a reading of the one before is there to be compared with.
template <class Record>
void PlacedPublisher<Record>::Counted::sourceIs(const Source& source, bool& isCounted) {
   const Begin begin = sources_.next(source, isCounted);
   isMarked_ |= sources_.isExchanged();
   sources_.exchangedDel();
   for (Begin& ofPlace : begins_) {
      if (begin != Begin::difference || ofPlace == Begin::step) {
         ofPlace = begin;
      }
   }
   if (begin == Begin::nothing) {
      record_.readings = {};
      record_.lifts = {};
      record_.readTimes = {};
   }
   record_.device = source.device;
   record_.devicePort = source.place;
}

template <class Record>
PlacedPublisher<Record>::PlacedPublisher(Silo::Table<Record>& table) : table_(table) {
   for (const Silo::Key& key : table_.keys()) {
      const Record record = table_.sampleOrDefault(key).record;
      if (record.totals != decltype(record.totals){} || record.readTimes != decltype(record.readTimes){}) {
         places_.set(numberOf(record.device, record.devicePort), {.isCounted = true});
      }
   }
}

template <class Record>
bool& PlacedPublisher<Record>::isCountedAt(const Source& source) {
   const U32 number = numberOf(source.device, source.place);
   if (!places_.contains(number)) {
      places_.set(number, {});
   }
   Place& place = *places_.find(number);
   if (place.life != 0 && place.life != source.life) {
      place.isCounted = false;
   }
   place.life = source.life;
   return place.isCounted;
}

template <class Record>
typename PlacedPublisher<Record>::Counted& PlacedPublisher<Record>::countedOf(const Pelt::IntfId& name,
                                                                              const Source& source) {
   if (!counted_.contains(name)) {
      Counted made{Silo::Key(name.text())};
      const auto published = table_.sampleOrDefault(made.key_);
      const double now = Kiln::System::currentTime();
      if (published.info.generation == 0) {
         beginRecord(made.record_, now);
      } else {
         made.continueFrom(published, source, now);
      }
      counted_.set(name, std::move(made));
   }
   Counted& counted = *counted_.find(name);
   if (counted.sources_.source() != source) {
      counted.sourceIs(source, isCountedAt(source));
   }
   return counted;
}

template <class Record>
template <class Complete>
void PlacedPublisher<Record>::publish(const Pelt::IntfId& name, Complete complete) {
   Counted* const counted = counted_.find(name);
   if (counted == nullptr || counted->sampleTime_ == Silo::unknownSampleTime ||
       !std::exchange(counted->isChanged_, false)) {
      return;
   }
   if (std::exchange(counted->isMarked_, false)) {
      counted->record_.discontinuityTime = Kiln::System::currentTime();
   }
   complete(counted->record_);
   table_.recordIs(counted->key_, counted->record_, counted->sampleTime_);
}

template <class Record>
void PlacedPublisher<Record>::remove(const Pelt::IntfId& name) {
   counted_.erase(name);
   withdraw(name);
}

template <class Record>
void PlacedPublisher<Record>::withdraw(const Pelt::IntfId& name) {
   try {
      table_.recordDel(Silo::Key(name.text())); // also an earlier process's
   } catch (const std::invalid_argument&) { // a name that is not a key: nothing was ever published under it
   }
}

template <class Record>
void PlacedPublisher<Record>::removeAbsent(const std::function<bool(const Kiln::String&)>& isThere) {
   for (const Silo::Key& key : table_.keys()) {
      const Kiln::String name(key.view());
      if (!counted_.contains(Pelt::IntfId{Kiln::Name(name)}) && !isThere(name)) {
         table_.recordDel(key);
      }
   }
}

} // namespace Vex
