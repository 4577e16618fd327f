// Formats numbers and labels, and writes a line for each sample.
#include "apps/metrics/Samples.h"

#include "kiln/Assert.h"
#include "kiln/Utf8.h"

#include <charconv>
#include <cmath>

namespace ZelMetrics {

namespace {

using Kiln::String;

constexpr std::size_t mostDigits = 20;                // of 64 bits
constexpr std::size_t longestNumber = mostDigits + 8; // a point and decimals, and the line's end

Gauge decimals(double value, U64 scale, U8 digits) {
   // Written so that a NaN is refused too.
   if (!(value >= 0) || value > 9e18 / static_cast<double>(scale)) {
      return {};
   }
   const auto scaled = static_cast<U64>(std::llround(value * static_cast<double>(scale)));
   return {scaled / scale, static_cast<U32>(scaled % scale), digits, true};
}

char* putNumber(char* to, U64 value) {
   return std::to_chars(to, to + mostDigits, value).ptr;
}

char* putGauge(char* to, const Gauge& gauge) {
   to = putNumber(to, gauge.whole);
   if (gauge.decimals == 0) {
      return to;
   }
   *to = '.';
   U32 rest = gauge.fraction;
   for (unsigned i = gauge.decimals; i > 0; --i, rest /= 10) {
      to[i] = static_cast<char>('0' + rest % 10);
   }
   return to + 1 + gauge.decimals;
}

// What a sample's name has beyond the family's.
std::string_view suffix(Type type) {
   return type == Type::counter ? "_total" : type == Type::info ? "_info" : "";
}

std::string_view typeName(Type type, Format format) {
   switch (type) {
   case Type::counter:
      return "counter";
   case Type::info:
   case Type::stateset:
      if (format == Format::openMetrics) {
         return type == Type::info ? "info" : "stateset";
      }
      break;
   case Type::histogram:
      return "histogram";
   case Type::gauge:
      break;
   }
   return "gauge";
}

void addLine(String* text, std::string_view what, std::string_view name, std::string_view value) {
   text->append("# ").append(what).append(" ").append(name).append(" ").append(value).append("\n");
}

String headerOf(const Family& family, Format format) {
   // In OpenMetrics a family's name lacks what its samples' names have; the older format knows samples only.
   const bool isOpenMetrics = format == Format::openMetrics;
   String name(family.name.view());
   name += isOpenMetrics ? "" : suffix(family.type);
   String header;
   addLine(&header, "HELP", name, family.help.view());
   addLine(&header, "TYPE", name, typeName(family.type, format));
   if (isOpenMetrics && !family.unit().empty()) {
      addLine(&header, "UNIT", name, family.unit());
   }
   return header;
}

} // namespace

Gauge integer(U64 value) {
   return {.whole = value, .isKnown = true};
}

Gauge seconds(double value) {
   return decimals(value, 1'000, 3);
}

Gauge finely(double value) {
   return decimals(value, 1'000'000, 6);
}

void addLabel(std::string_view name, std::string_view value, String* labels) {
   labels->append(name).append("=\"");
   const auto isPlain = [](char c) { return c >= ' ' && c <= '~' && c != '"' && c != '\\'; };
   if (std::ranges::all_of(value, isPlain)) {
      labels->append(value);
   } else {
      for (const char c : Kiln::printable(value)) {
         if (c == '\\' || c == '"') {
            *labels += '\\';
         }
         *labels += c;
      }
   }
   *labels += '"';
}

String tail(std::string_view name, std::string_view value) {
   return tail({{name, value}});
}

String tail(std::initializer_list<std::pair<std::string_view, std::string_view>> labels) {
   String text;
   for (const auto& [name, value] : labels) {
      text += ',';
      addLabel(name, value, &text);
   }
   return text + "} ";
}

Samples::Samples(std::vector<Column> counters, std::vector<Column> gauges)
     : counterColumns_(std::move(counters)), gaugeColumns_(std::move(gauges)),
       counterRuns_(runsOf(counterColumns_)), gaugeRuns_(runsOf(gaugeColumns_)) {
   KILN_ASSERT(counterColumns_.size() <= maxCounters);
}

std::vector<Samples::Run> Samples::runsOf(const std::vector<Column>& columns) {
   std::vector<Run> runs;
   for (std::size_t i = 0; i < columns.size(); ++i) {
      if (i > 0 && columns[i].family == columns[i - 1].family) {
         runs.back().end = i + 1;
         continue;
      }
      const Family& family = families[columns[i].family];
      const String name(family.name.view());
      runs.push_back({i,
                      i + 1,
                      {headerOf(family, Format::openMetrics), headerOf(family, Format::prometheusText)},
                      Piece(name + String(suffix(family.type))),
                      Piece(name + "_created")});
   }
   return runs;
}

void Samples::begin() {
   used_ = 0;
   // Names that came and went are not kept for ever.
   constexpr std::size_t manyTails = 64;
   for (Column& column : counterColumns_) {
      if (column.tails.size() > manyTails) {
         column.tails.erase(column.tails.begin() + 1, column.tails.end());
      }
   }
}

void Samples::grow() {
   rows_.emplace_back();
   counts_.resize(rows_.size() * counterColumns_.size());
   variants_.resize(variants_.empty() ? 0 : counts_.size());
   gauges_.resize(rows_.size() * gaugeColumns_.size());
}

void Samples::beginRow() {
   const auto clear = [this](auto* values, std::size_t columns) {
      std::fill_n(values->begin() + static_cast<std::ptrdiff_t>(used_ * columns), columns,
                  typename std::remove_pointer_t<decltype(values)>::value_type{});
   };
   rows_[used_].present = {};
   clear(&gauges_, gaugeColumns_.size());
   if (!variants_.empty()) {
      clear(&variants_, counterColumns_.size());
   }
   ++used_;
}

void Samples::createdIs(double unixTime) {
   Row& of = row();
   if (of.createdUnixTime == unixTime) {
      return;
   }
   of.createdUnixTime = unixTime;
   of.created.textIs("");
   if (const Gauge time = seconds(unixTime); time.isKnown && unixTime > 0) {
      std::array<char, longestNumber> text{};
      char* const end = putGauge(text.data(), time);
      *end = '\n';
      of.created.textIs({text.data(), end + 1});
   }
}

void Samples::countersAre(const U64* values, std::size_t count) {
   std::copy_n(values, count,
               counts_.begin() + static_cast<std::ptrdiff_t>((used_ - 1) * counterColumns_.size()));
   for (std::size_t column = 0; column < count; ++column) {
      row().present[column / 64] |= U64{1} << column % 64;
   }
}

void Samples::tailIs(std::size_t column, std::string_view text) {
   std::vector<Piece>& tails = counterColumns_[column].tails;
   const auto found = std::ranges::find(tails, text, &Piece::text);
   const auto variant = static_cast<U16>(found - tails.begin());
   if (found == tails.end()) {
      tails.emplace_back(text);
   }
   if (variant != 0 && variants_.empty()) {
      variants_.resize(counts_.size());
   }
   if (!variants_.empty()) {
      variants_[(used_ - 1) * counterColumns_.size() + column] = variant;
   }
}

std::size_t Samples::bytes(Format format) const {
   std::size_t labels = 0;
   for (std::size_t i = 0; i < used_; ++i) {
      labels += rows_[i].labels.size();
   }
   std::size_t sum = 0;
   const auto add = [&](const std::vector<Run>& runs, const std::vector<Column>& columns, std::size_t lines) {
      for (const Run& run : runs) {
         sum += run.header[static_cast<std::size_t>(format)].size();
         for (std::size_t column = run.begin; column < run.end; ++column) {
            const Piece& longest = *std::ranges::max_element(columns[column].tails, {}, &Piece::size);
            sum += lines * (labels + used_ * (run.createdName.size() + longest.size() + longestNumber));
         }
      }
   };
   add(counterRuns_, counterColumns_, format == Format::openMetrics ? 2 : 1);
   add(gaugeRuns_, gaugeColumns_, 1);
   return sum;
}

void Samples::write(Format format, Output* out) const {
   for (const Run& run : counterRuns_) {
      writeCounters(run, format, out);
   }
   for (const Run& run : gaugeRuns_) {
      writeGauges(run, format, out);
   }
}

// A family without samples is not mentioned.
class Samples::Header {
 public:
   Header(const Run& run, Format format, Output* out)
        : text_(&run.header[static_cast<std::size_t>(format)]), out_(out) {}
   void isNeeded() {
      if (text_ != nullptr) {
         out_->add(*text_);
         text_ = nullptr;
      }
   }

 private:
   const String* text_;
   Output* out_;
};

void Samples::writeCounters(const Run& run, Format format, Output* out) const {
   Header header(run, format, out);
   const std::size_t columns = counterColumns_.size();
   for (std::size_t i = 0; i < used_; ++i) {
      const Row& one = rows_[i];
      const bool isCreatedTold = format == Format::openMetrics && !one.created.isEmpty();
      for (std::size_t column = run.begin; column < run.end; ++column) {
         if ((one.present[column / 64] >> column % 64 & 1) == 0) {
            continue;
         }
         header.isNeeded();
         const Piece& tail = tailOf(i, column);
         char* to = out->room(2 * (run.createdName.size() + one.labels.size() + tail.size() + longestNumber));
         to = tail.copyTo(one.labels.copyTo(run.name.copyTo(to)));
         to = putNumber(to, counts_[i * columns + column]);
         *to++ = '\n';
         if (isCreatedTold) {
            to = one.created.copyTo(tail.copyTo(one.labels.copyTo(run.createdName.copyTo(to))));
         }
         out->endIs(to);
      }
   }
}

void Samples::writeGauges(const Run& run, Format format, Output* out) const {
   Header header(run, format, out);
   for (std::size_t i = 0; i < used_; ++i) {
      const Row& one = rows_[i];
      for (std::size_t column = run.begin; column < run.end; ++column) {
         const Gauge& gauge = gauges_[i * gaugeColumns_.size() + column];
         if (!gauge.isKnown) {
            continue;
         }
         header.isNeeded();
         const Piece& tail = gaugeColumns_[column].tails.front();
         char* to = out->room(run.name.size() + one.labels.size() + tail.size() + longestNumber);
         to = putGauge(tail.copyTo(one.labels.copyTo(run.name.copyTo(to))), gauge);
         *to++ = '\n';
         out->endIs(to);
      }
   }
}

} // namespace ZelMetrics
