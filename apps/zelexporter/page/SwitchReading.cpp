// Reads tables, judges each record as the client does, and writes what the page shows.
#include "apps/zelexporter/page/SwitchReading.h"

#include "apps/zelctl/views/RecordValues.h"
#include "apps/zelexporter/page/PageJson.h"
#include "kiln/Time.h"
#include "vex/PublishedRecords.h"

#include <cstring>
#include <tuple>

namespace ZelExporter {

namespace {

using Kiln::JsonWriter;
using Kiln::String;
using Silo::ReadResult;
using Silo::Interface::IntfPlace;
using Vex::NamedCounter;
using ZelCtl::Place;
using ZelCtl::PublishedRow;
namespace TableName = Silo::Interface::TableName;

constexpr std::size_t listedDrops = 6; // ports, and reasons
constexpr double rateReach = 10;       // intervals between two readings that still make a rate of now

constexpr std::array dropCounters{"in-discards", "out-discards", "out-queue-drops"};

bool comesBefore(const String& a, const String& b) {
   return Kiln::naturalCompare(a, b) < 0;
}

// What a row's numbers are, in this order.
constexpr std::array portColumns{"name",   "chip",        "state",   "age-ms",      "speed",
                                 "in-use", "out-use",     "in-bits", "out-bits",    "packets",
                                 "drops",  "drops-total", "errors",  "errors-total"};

const char* stateOf(const Place& place, ReadResult result) {
   return result == ReadResult::ok ? ZelCtl::text(place.activity) : Silo::text(result);
}

// What ranks by its rate, or by its total if nothing has a rate above 0.
struct Ranked {
   std::size_t index;
   std::optional<double> rate;
   U64 total;
};

// The highest first, those alone that count something; says whether they rank by rate.
bool rank(std::vector<Ranked>* all) {
   const bool isByRate =
        std::ranges::any_of(*all, [](const Ranked& one) { return one.rate.value_or(0) > 0; });
   std::erase_if(*all,
                 [&](const Ranked& one) { return isByRate ? one.rate.value_or(0) <= 0 : one.total == 0; });
   std::ranges::sort(*all, [&](const Ranked& a, const Ranked& b) {
      const auto key = [&](const Ranked& one) {
         return std::tuple(isByRate ? -*one.rate : 0., ~one.total, one.index);
      };
      return key(a) < key(b);
   });
   all->resize(std::min(all->size(), listedDrops));
   return isByRate;
}

} // namespace

SwitchReading::SwitchReading(Silo::Store store, String problem)
     : store_(std::move(store)), problem_(std::move(problem)), ports_(TableName::intfCounters),
       queues_(TableName::intfQueueCounters), places_(TableName::intfPlaces),
       drops_(TableName::intfDropCounters), health_(TableName::chipHealth) {}

void SwitchReading::read() {
   ports_.read(store_);
   queues_.read(store_);
   places_.read(store_);
   drops_.read(store_);
   health_.read(store_);
   table_ = {};
   table_.name = TableName::intfCounters;
   table_.owner = store_.foundOwner();
   table_.isWriterAlive = ports_.isWriterAlive();
   // Taken after the records were read, so that none has a negative age.
   table_.now = Silo::monotonicNow();
   unixTime_ = Kiln::System::unixTime();
   if (ports_.reader() != nullptr) {
      table_.pollingInterval = ports_.reader()->state().pollingInterval;
   }
   // Reasons are published at an interval of their own, and read here at that of ports.
   const double interval = drops_.reader() != nullptr ? drops_.reader()->state().pollingInterval : 0;
   reasons_.take(drops_.entries(), table_.now,
                 {rateReach * std::max(interval, table_.pollingInterval), ZelCtl::staleAfter * interval});
   readChips();
   readPorts();
}

// Where a queue's drops are not known, the port drops nothing only if nobody says otherwise.
std::optional<double> SwitchReading::Port::dropRate() const {
   return counted.rate || reasoned.rate.value_or(0) > 0 ? std::max(counted.rate, reasoned.rate)
                                                        : std::nullopt;
}

SwitchReading::Rows SwitchReading::rowsOf(std::size_t entry) {
   const auto& port = ports_.entries()[entry];
   Rows rows{ZelCtl::rowOf(*ports_.reader(), port, table_.now, table_.isWriterAlive)};
   if (const auto found = queueEntries_.find(rows.port.name); found != queueEntries_.end()) {
      rows.queues = ZelCtl::rowOf(*queues_.reader(), queues_.entries()[found->second], table_.now,
                                  table_.isWriterAlive);
      ZelCtl::addQueueDrops(&rows.port, *rows.queues);
   }
   return rows;
}

// One row at a time, as all together would take some kilobytes each.
void SwitchReading::readPorts() {
   queueEntries_.clear();
   for (std::size_t i = 0; i < queues_.entries().size(); ++i) {
      if (queues_.entries()[i].key.isValid()) {
         queueEntries_.emplace(queues_.entries()[i].key.view(), i);
      }
   }
   shown_.clear();
   for (std::size_t i = 0; i < ports_.entries().size(); ++i) {
      const PublishedRow row = rowsOf(i).port;
      Port port{row.name, Place::ofPort(table_, row), {}, {}, {}, row.result,
                row.age,  row.text.speed.value_or(0), i};
      port.counted.rate = port.place.rates[Place::drops];
      port.counted.total = port.place.totals[Place::dropTotal];
      for (const char* const name : dropCounters) {
         const NamedCounter* const counter = row.counter(name);
         if (counter != nullptr && counter->isRead && counter->total != 0) {
            port.counted.parts.push_back({name, counter->total, counter->rate});
         }
      }
      port.reasons = reasons_.of(port.name, table_.isWriterAlive && port.age);
      for (const ReasonDrops& drops : port.reasons) {
         if (drops.isSummed) {
            port.reasoned.parts.push_back({drops.reason, drops.total, drops.rate});
            port.reasoned.total = port.reasoned.total.value_or(0) + drops.total;
            if (drops.rate) {
               port.reasoned.rate = port.reasoned.rate.value_or(0) + *drops.rate;
            }
         }
      }
      shown_.push_back(std::move(port));
   }
   std::ranges::sort(shown_, comesBefore, &Port::name);
   std::map<std::string_view, const IntfPlace*> places;
   for (const auto& entry : places_.entries()) {
      if (entry.result == ReadResult::ok) {
         places.emplace(entry.key.view(), &entry.sample.record);
      }
   }
   for (Port& port : shown_) {
      if (const auto found = places.find(port.name); found != places.end()) {
         const auto chip = std::ranges::find(chips_, found->second->device, &Chip::device);
         port.chip = static_cast<std::size_t>(chip - chips_.begin());
         port.devicePort = found->second->devicePort;
      }
   }
}

// Chips have ports, or health, or both.
void SwitchReading::readChips() {
   chips_.clear();
   for (const auto& entry : places_.entries()) {
      const IntfPlace& place = entry.sample.record;
      if (entry.result == ReadResult::ok &&
          std::ranges::find(chips_, place.device, &Chip::device) == chips_.end()) {
         chips_.push_back(
              {String(place.chip.data(), strnlen(place.chip.data(), place.chip.size())), place.device});
      }
   }
   for (const auto& entry : health_.entries()) {
      if (entry.result != ReadResult::ok) {
         continue;
      }
      auto chip = std::ranges::find(chips_, entry.sample.record.device, &Chip::device);
      if (chip == chips_.end()) {
         chip = chips_.insert(chips_.end(), {String(entry.key.view()), entry.sample.record.device});
      }
      chip->health = Vex::textOf(entry.sample.record);
      chip->age = health_.reader()->age(entry.sample.info, table_.now, Silo::ClockDomain::monotonic());
   }
   std::ranges::sort(chips_, {}, &Chip::device);
}

std::vector<String> SwitchReading::notes() const {
   std::vector<String> all;
   if (!ports_.problem().empty()) {
      all.push_back(problem_.empty() ? ports_.problem() : problem_);
   }
   if (!table_.owner.empty()) {
      all.push_back("Published by the agent of " + table_.owner + ".");
   }
   return all;
}

std::optional<double> SwitchReading::age(double time) const {
   return time > 0 && time <= table_.now ? std::optional(table_.now - time) : std::nullopt;
}

String SwitchReading::portsJson() const {
   JsonWriter out(JsonWriter::Style::compact);
   out.begin("", '{');
   out.value("version", std::string_view(ZEL_VERSION));
   out.value("read-unix-ms", Vex::milliseconds(unixTime_));
   out.value("polling-interval-ms", Vex::milliseconds(table_.pollingInterval));
   out.value("stale-after-ms", Vex::milliseconds(ZelCtl::staleAfter * table_.pollingInterval));
   out.value("published", ports_.problem().empty());
   out.value("writer-alive", table_.isWriterAlive);
   out.begin("notes", '[');
   for (const String& note : notes()) {
      out.value("", std::string_view(note));
   }
   out.end(']');
   out.begin("chips", '[');
   for (const Chip& chip : chips_) {
      addChip(&out, chip);
   }
   out.end(']');
   out.begin("columns", '[');
   for (const char* const column : portColumns) {
      out.value("", std::string_view(column));
   }
   out.end(']');
   out.begin("ports", '[');
   for (const Port& port : shown_) {
      out.newLine();
      addPort(&out, port);
   }
   out.end(']');
   out.end('}');
   return out.text();
}

void SwitchReading::addChip(JsonWriter* out, const Chip& chip) const {
   out->begin("", '{');
   out->value("name", std::string_view(chip.name));
   out->value("device", U64{chip.device});
   if (chip.health) {
      constexpr std::string_view readTime =
           "-read"; // ends the name of a time when a kind of readings was read last
      const Vex::RecordText& health = *chip.health;
      out->value("verdict", std::string_view(health.word("verdict").value_or("unknown")));
      addMilliseconds(out, "age-ms", chip.age);
      addMilliseconds(out, "up-ms", age(health.time("up")));
      out->begin("read-ages-ms", '{');
      for (const Vex::NamedTime& one : health.times) {
         if (one.name.ends_with(readTime)) {
            addMilliseconds(out, one.name.substr(0, one.name.size() - readTime.size()), age(one.time));
         }
      }
      out->end('}');
      out->begin("counts", '{');
      for (const NamedCounter& one : health.counters) {
         if (one.isError) {
            addCount(out, one.name, one.total);
         }
      }
      out->end('}');
   }
   out->end('}');
}

void SwitchReading::addPort(JsonWriter* out, const Port& port) const {
   const auto& rates = port.place.rates;
   const auto& totals = port.place.totals;
   out->begin("", '[');
   out->value("", std::string_view(port.name));
   if (port.chip) {
      out->value("", U64{*port.chip});
   } else {
      out->null("");
   }
   out->value("", std::string_view(stateOf(port.place, port.result)));
   addMilliseconds(out, "", port.age);
   out->value("", port.speed);
   for (const Place::Value rate :
        {Place::inUse, Place::outUse, Place::inBits, Place::outBits, Place::packets}) {
      addRate(out, "", rates[rate]);
   }
   addRate(out, "", port.dropRate());
   addCount(out, "", port.dropTotal());
   addRate(out, "", rates[Place::errors]);
   addCount(out, "", totals[Place::errorTotal]);
   out->end(']');
}

String SwitchReading::dropsJson() const {
   JsonWriter out(JsonWriter::Style::compact);
   out.begin("", '{');
   addDroppingPorts(&out);
   addReasons(&out);
   out.end('}');
   return out.text();
}

void SwitchReading::addDroppingPorts(JsonWriter* out) const {
   std::vector<Ranked> worst;
   for (std::size_t i = 0; i < shown_.size(); ++i) {
      worst.push_back({i, shown_[i].dropRate(), shown_[i].dropTotal().value_or(0)});
   }
   const bool isByRate = rank(&worst);
   out->value("ports-by-rate", isByRate);
   out->begin("ports", '[');
   for (const Ranked& one : worst) {
      const Port& port = shown_[one.index];
      out->begin("", '{');
      out->value("name", std::string_view(port.name));
      addRate(out, "rate", one.rate);
      addCount(out, "total", one.total);
      out->begin("parts", '[');
      const bool isReasoned =
           isByRate ? port.reasoned.rate > port.counted.rate : port.reasoned.total > port.counted.total;
      for (const Part& part : (isReasoned ? port.reasoned : port.counted).parts) {
         out->begin("", '{');
         out->value("name", std::string_view(part.name));
         addRate(out, "rate", part.rate);
         addCount(out, "total", part.total);
         out->end('}');
      }
      out->end(']');
      out->end('}');
   }
   out->end(']');
}

void SwitchReading::addReasons(JsonWriter* out) const {
   constexpr std::size_t listedPorts = 3; // that drop most for a reason
   struct Sum {
      String point;
      String reason;
      std::vector<Ranked> ports;
   };
   std::map<std::pair<String, String>, Sum> sums;
   for (std::size_t i = 0; i < shown_.size(); ++i) {
      for (const ReasonDrops& drops : shown_[i].reasons) {
         Sum& sum = sums[{String(drops.point), drops.reason}];
         sum.point = drops.point;
         sum.reason = drops.reason;
         sum.ports.push_back({i, drops.rate, drops.total});
      }
   }
   std::vector<Sum> reasons;
   std::vector<Ranked> worst;
   for (auto& [key, sum] : sums) {
      Ranked all{reasons.size(), {}, 0};
      for (const Ranked& port : sum.ports) {
         all.total += port.total;
         if (port.rate) {
            all.rate = all.rate.value_or(0) + *port.rate;
         }
      }
      worst.push_back(all);
      reasons.push_back(std::move(sum));
   }
   out->value("reasons-by-rate", rank(&worst));
   out->begin("reasons", '[');
   for (const Ranked& one : worst) {
      Sum& sum = reasons[one.index];
      out->begin("", '{');
      out->value("point", std::string_view(sum.point));
      out->value("reason", std::string_view(sum.reason));
      addRate(out, "rate", one.rate);
      addCount(out, "total", one.total);
      rank(&sum.ports);
      out->begin("ports", '[');
      for (std::size_t i = 0; i < sum.ports.size() && i < listedPorts; ++i) {
         out->value("", std::string_view(shown_[sum.ports[i].index].name));
      }
      out->end(']');
      out->end('}');
   }
   out->end(']');
}

String SwitchReading::portJson(const String& intf) {
   const auto found = std::ranges::find(shown_, intf, &Port::name);
   if (found == shown_.end()) {
      return "";
   }
   const Port& port = *found;
   const auto [row, queues] = rowsOf(port.entry);
   JsonWriter out(JsonWriter::Style::compact);
   out.begin("", '{');
   out.value("name", std::string_view(port.name));
   out.value("state", std::string_view(stateOf(port.place, port.result)));
   addMilliseconds(&out, "age-ms", port.age);
   addMilliseconds(&out, "queue-drops-age-ms", row.queuesAge);
   for (const Vex::NamedTime& one : row.text.times) {
      addMilliseconds(&out, one.name + "-age-ms", ZelCtl::secondsSince(row, table_, one.time));
   }
   addCount(&out, "suspects", row.text.suspects);
   if (port.chip) {
      out.value("chip", std::string_view(chips_[*port.chip].name));
      out.value("device-port", U64{port.devicePort});
   }
   out.begin("counters", '[');
   for (const auto* counters : {&row.text.counters, queues ? &queues->text.counters : nullptr}) {
      for (const NamedCounter& one : counters == nullptr ? std::vector<NamedCounter>() : *counters) {
         out.begin("", '{');
         out.value("name", std::string_view(one.name));
         addCount(&out, "total", one.isRead ? std::optional(one.total) : std::nullopt);
         addRate(&out, "rate", one.rate);
         out.value("error", one.isError);
         out.end('}');
      }
   }
   out.end(']');
   out.begin("reasons", '[');
   for (const ReasonDrops& drops : port.reasons) {
      out.begin("", '{');
      out.value("point", drops.point);
      out.value("reason", std::string_view(drops.reason));
      addCount(&out, "total", drops.total);
      addRate(&out, "rate", drops.rate);
      out.end('}');
   }
   out.end(']');
   out.end('}');
   return out.text();
}

} // namespace ZelExporter
