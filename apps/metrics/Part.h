// A part of a scrape: what one shared table tells.
#pragma once

#include "apps/metrics/Samples.h"
#include "silo/TableReader.h"

#include <memory>
#include <optional>

namespace ZelMetrics {

// What is known of a record's time.
struct Moment {
   double now = 0;            // by the table's clock
   double oldest = 0;         // seconds; what was read longer ago is stale
   std::optional<double> age; // seconds, where it is known
   bool isFresh = false;      // neither stale nor left by an agent that is gone

   // Whether what is read on its own within the record was read, and isn't stale.
   bool isFreshAt(double readTime) const {
      constexpr double clockRounding = 1e-3; // seconds
      return isFresh && readTime != 0 && now - readTime >= -clockRounding && now - readTime <= oldest;
   }
};

class Part {
 public:
   explicit Part(Collector of) : collector(of) {}
   virtual ~Part() = default;
   Part(const Part&) = delete;
   Part& operator=(const Part&) = delete;

   // Whether the table is there and has a writer that lives.
   virtual bool isWriterAlive(const Silo::Store& store) = 0;
   // Reads the table anew. False: it cannot be read, and there are no samples.
   virtual bool read(const Silo::Store& store) = 0;
   virtual const Samples& samples() const = 0;

   const Collector collector;
   // In the last read; `unreadable` counts records.
   bool isRead = false;
   U64 unreadable = 0;
};

inline constexpr double staleAfter = 3; // polling intervals

// Of a table of such records. The teller has
//    std::vector<Column> counters() const, gauges() const;
//    static bool labels(const Silo::Key&, Kiln::String*);                  as Samples::add wants it
//    void tell(const Record&, const Moment&, Samples*);                    the row is there, without samples
template <class Record, class Teller>
class TablePart : public Part {
 public:
   TablePart(Collector of, const char* table, Teller teller)
        : Part(of), table_(table), teller_(std::move(teller)),
          samples_(teller_.counters(), teller_.gauges()) {}

   bool isWriterAlive(const Silo::Store& store) override { return open(store) && reader_->isWriterAlive(); }
   bool read(const Silo::Store& store) override;
   const Samples& samples() const override { return samples_; }

 private:
   bool open(const Silo::Store& store);
   void take(const Silo::Entry<Record>& entry, Moment moment);

   const char* table_;
   Teller teller_;
   Samples samples_;
   std::optional<Silo::TableReader<Record>> reader_; // none until there is a table
   Silo::TableState state_;                          // as of the last read
   const Silo::ClockDomain domain_ = Silo::ClockDomain::monotonic();
};

template <class Record, class Teller>
bool TablePart<Record, Teller>::open(const Silo::Store& store) {
   if (!reader_) {
      try {
         reader_.emplace(store, table_);
      } catch (const std::exception&) { // not there yet, or none to trust
      }
   }
   return reader_.has_value();
}

template <class Record, class Teller>
bool TablePart<Record, Teller>::read(const Silo::Store& store) {
   const auto begin = [this] {
      samples_.begin();
      unreadable = 0;
   };
   begin();
   isRead = open(store);
   if (isRead) {
      state_ = reader_->state();
      Moment moment;
      moment.oldest = staleAfter * state_.pollingInterval;
      moment.isFresh = reader_->isWriterAlive();
      isRead = reader_->walk(begin, [&](const auto& entry) { take(entry, moment); });
   }
   if (!isRead) {
      begin();
   }
   return isRead;
}

template <class Record, class Teller>
void TablePart<Record, Teller>::take(const Silo::Entry<Record>& entry, Moment moment) {
   if (entry.result != Silo::ReadResult::ok || !entry.key.isValid() ||
       !samples_.add(entry.key, &Teller::labels)) {
      ++unreadable;
      return;
   }
   moment.now = Silo::monotonicNow();
   moment.age = reader_->age(state_, entry.sample.info, moment.now, domain_);
   moment.isFresh = moment.isFresh && moment.age && *moment.age <= moment.oldest;
   teller_.tell(entry.sample.record, moment, &samples_);
}

} // namespace ZelMetrics
