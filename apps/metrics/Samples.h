// The samples of one shared table: its records as rows, and what is told of each as columns, family by family.
#pragma once

#include "apps/metrics/Families.h"
#include "apps/metrics/Output.h"
#include "silo/Key.h"

#include <optional>
#include <vector>

namespace ZelMetrics {

enum class Format : U8 { openMetrics, prometheusText };

// A number that is no counter, with so many decimals.
struct Gauge {
   U64 whole = 0;
   U32 fraction = 0; // the decimals as an integer
   U8 decimals = 0;
   bool isKnown = false; // false: there is no sample
};
Gauge integer(U64 value);
// Milliseconds, or microseconds; not known if it is negative or no number.
Gauge seconds(double value);
Gauge finely(double value);

// Appends `name="value"`, with escapes, and '?' for what is not printable.
void addLabel(std::string_view name, std::string_view value, Kiln::String* labels);

// A family's value, and what stands between a row's own labels and the number.
struct Column {
   explicit Column(std::size_t of, std::string_view tail = "} ") : family(of), tails{tail} {}

   std::size_t family;
   std::vector<Piece> tails; // mostly one; rows may differ in which one they have
};

// What stands there for one label more.
Kiln::String tail(std::string_view name, std::string_view value);
// For rows without labels.
inline constexpr std::string_view bareTail = " ";

// Columns of a family are neighbours. What a scrape needs is kept for the next.
class Samples {
 public:
   static constexpr std::size_t maxCounters = 128;

   Samples(std::vector<Column> counters, std::vector<Column> gauges);

   void begin();
   // A row with the key; its labels are those that it had, if it had the key, or else `makeLabels(key, &labels)`. That
   // returns false for what is no key of this table, and then there is no row.
   template <class MakeLabels>
   bool add(const Silo::Key& key, MakeLabels makeLabels) {
      if (used_ == rows_.size()) {
         grow();
      }
      Row& row = rows_[used_];
      if (!(row.key == key)) {
         row.key = {};
         scratch_.clear();
         if (!makeLabels(key, &scratch_)) {
            return false;
         }
         row.key = key;
         row.labels.textIs(scratch_);
         row.ofKey = scratch_.size();
      }
      beginRow();
      return true;
   }

   // Of the row that was added last. Counters that are not told have no sample.
   // Its labels that its key does not tell, behind those that it does: addMore(&labels).
   template <class AddMore>
   void addLabels(AddMore addMore) {
      Row& of = row();
      scratch_.assign(of.labels.text().substr(0, of.ofKey));
      addMore(&scratch_);
      if (of.labels.text() != scratch_) {
         of.labels.textIs(scratch_);
      }
   }
   void createdIs(double unixTime); // 0: not known
   void counterIs(std::size_t column, U64 value) {
      counts_[(used_ - 1) * counterColumns_.size() + column] = value;
      row().present[column / 64] |= U64{1} << column % 64;
   }
   // All counters from the first one on.
   void countersAre(const U64* values, std::size_t count);
   void gaugeIs(std::size_t column, const Gauge& value) {
      gauges_[(used_ - 1) * gaugeColumns_.size() + column] = value;
   }
   // Instead of the column's first one.
   void tailIs(std::size_t column, std::string_view text);
   // Of all rows.
   void gaugeTailIs(std::size_t column, std::string_view text) {
      gaugeColumns_[column].tails.front().textIs(text);
   }

   // An upper bound of what write() writes.
   std::size_t bytes(Format format) const;
   void write(Format format, Output* out) const;

 private:
   struct Row {
      Silo::Key key;
      Piece labels;          // with the brace that opens; empty for none
      std::size_t ofKey = 0; // bytes of them that the key tells
      double createdUnixTime = 0;
      Piece created; // as it is written, with the line's end; empty if it is not known
      std::array<U64, maxCounters / 64> present{};
   };
   // Of one family.
   struct Run {
      std::size_t begin = 0;
      std::size_t end = 0;
      std::array<Kiln::String, 2> header; // by format
      Piece name;                         // of a sample
      Piece createdName;
   };
   class Header;
   static std::vector<Run> runsOf(const std::vector<Column>& columns);

   Row& row() { return rows_[used_ - 1]; }
   void grow();
   void beginRow();
   void writeCounters(const Run& run, Format format, Output* out) const;
   void writeGauges(const Run& run, Format format, Output* out) const;
   const Piece& tailOf(std::size_t rowAt, std::size_t column) const {
      const Column& one = counterColumns_[column];
      return one.tails[one.tails.size() == 1 ? 0 : variants_[rowAt * counterColumns_.size() + column]];
   }

   std::vector<Column> counterColumns_;
   std::vector<Column> gaugeColumns_;
   std::vector<Run> counterRuns_;
   std::vector<Run> gaugeRuns_;
   std::vector<Row> rows_;
   std::size_t used_ = 0;
   std::vector<U64> counts_;   // row by row
   std::vector<U16> variants_; // of tails, the same; empty while every column has but one
   std::vector<Gauge> gauges_; // row by row
   Kiln::String scratch_;
};

} // namespace ZelMetrics
