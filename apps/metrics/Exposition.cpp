// Writes families in their order, each with all its samples.
#include "apps/metrics/Exposition.h"

namespace ZelMetrics {

namespace {

using Kiln::String;

// A gauge without labels.
std::vector<Column> bare(std::size_t family) {
   return {Column(family, bareTail)};
}

} // namespace

const char* contentType(Format format) {
   return format == Format::openMetrics ? "application/openmetrics-text; version=1.0.0; charset=utf-8"
                                        : "text/plain; version=0.0.4; charset=utf-8";
}

Exposition::Exposition(Silo::Store store, Collectors collectors)
     : store_(std::move(store)), collectors_(collectors), parts_(makeParts()),
       agent_({}, bare(familyNamed("zel_agent_up"))), build_({}, {Column(familyNamed("zel_build"))}),
       duration_({}, bare(familyNamed("zel_scrape_duration_seconds"))),
       collected_({}, {Column(familyNamed("zel_scrape_collector_errors")),
                       Column(familyNamed("zel_scrape_unreadable_records"))}) {}

void Exposition::scrape(Format format, String* text) {
   const std::size_t expected = read(format);
   Output out(text, expected);
   write(format, &out);
}

void Exposition::scrape(Format format, const TakePiece& take) {
   read(format);
   Output out(&piece_, take);
   write(format, &out);
}

std::size_t Exposition::read(Format format) {
   begin_ = Silo::monotonicNow();
   constexpr std::size_t mostOfScrape = 16384; // bytes of what is told of the scrape
   std::size_t expected = mostOfScrape;
   for (const auto& part : parts_) {
      if (collectors_.has(part->collector)) {
         part->read(store_);
         expected += part->samples().bytes(format);
      }
   }
   return expected;
}

void Exposition::write(Format format, Output* out) {
   for (const auto& part : parts_) {
      if (collectors_.has(part->collector)) {
         part->samples().write(format, out);
      }
   }
   tellScrape();
   for (const Samples* const samples : {&agent_, &build_, &duration_, &collected_}) {
      samples->write(format, out);
   }
   if (format == Format::openMetrics) {
      out->add("# EOF\n");
   }
   out->finish();
}

void Exposition::tellScrape() {
   constexpr auto noLabels = [](const Silo::Key&, String*) { return true; };
   agent_.begin();
   agent_.add("agent", noLabels);
   agent_.gaugeIs(0, integer(parts_.front()->isWriterAlive(store_) ? 1 : 0));
   build_.begin();
   build_.add(ZEL_VERSION, [](const Silo::Key& key, String* labels) {
      *labels += '{';
      addLabel("version", key.view(), labels);
      return true;
   });
   build_.gaugeIs(0, integer(1));
   collected_.begin();
   for (std::size_t i = 0; i < collectorNames.size(); ++i) {
      const auto collector = static_cast<Collector>(i);
      if (!collectors_.has(collector)) {
         continue;
      }
      bool isRead = true;
      U64 unreadable = 0;
      for (const auto& part : parts_) {
         if (part->collector == collector) {
            isRead = isRead && part->isRead;
            unreadable += part->unreadable;
         }
      }
      collected_.add(collectorNames[i], [](const Silo::Key& key, String* labels) {
         *labels += '{';
         addLabel("collector", key.view(), labels);
         return true;
      });
      collected_.gaugeIs(0, integer(isRead ? 0 : 1));
      collected_.gaugeIs(1, integer(unreadable));
   }
   duration_.begin();
   duration_.add("scrape", noLabels);
   duration_.gaugeIs(0, finely(Silo::monotonicNow() - begin_));
}

} // namespace ZelMetrics
