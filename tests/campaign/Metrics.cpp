// What a scrape tells, against the model. To the metrics' reader a simulated clock says nothing, so here the machine's is
// made to be the simulated one while it reads.
#include "apps/metrics/Exposition.h"
#include "softchip/PdpClasses.h"
#include "tests/campaign/Campaign.h"
#include "tests/support/Manual.h"

#include <cmath>
#include <cstring>
#include <unordered_map>

namespace {

std::optional<double> pretendedNow;

} // namespace

// NOLINTBEGIN(bugprone-reserved-identifier,readability-identifier-naming): the linker has these names.
extern "C" {
double __real__ZN4Silo12monotonicNowEv();
double __wrap__ZN4Silo12monotonicNowEv() {
   return pretendedNow ? *pretendedNow : __real__ZN4Silo12monotonicNowEv();
}
}
namespace Campaign {
Silo::ClockDomain wrappedDomain() asm("__wrap__ZN4Silo11ClockDomain9monotonicEv");
Silo::ClockDomain realDomain() asm("__real__ZN4Silo11ClockDomain9monotonicEv");
Silo::ClockDomain wrappedDomain() {
   return pretendedNow ? Silo::ClockDomain::simulatedTime() : realDomain();
}
// NOLINTEND(bugprone-reserved-identifier,readability-identifier-naming)

namespace {

// The families of plain fields, by field, as the documents form their names.
std::map<std::size_t, std::string> fieldFamilies() {
   std::map<std::size_t, std::string> families;
   const std::string known = ZelTest::manual("metrics.md");
   for (const auto& row : ZelTest::manualRows("published-records.md", "### Fields of a port")) {
      std::string name = "zel_interface_";
      for (const char c : row.at(1)) {
         name += c == '-' ? "_" : c == '`' ? "" : std::string(1, c);
      }
      for (const auto& [from, to] : {std::pair("octets", "bytes"), std::pair("pkts", "packets")}) {
         const std::size_t at = name.find(from);
         name = at != std::string::npos ? name.replace(at, std::strlen(from), to) : name;
      }
      name += "_total";
      if (known.find("| `" + name + "` |") != std::string::npos) {
         families[std::stoul(row.at(0))] = name;
      }
   }
   return families;
}

} // namespace

void Run::checkMetrics(bool isCalm) {
   if (now() - damagedAt_ < mendingTime) {
      return;
   }
   static const std::map<std::size_t, std::string> families = fieldFamilies();
   constexpr std::size_t plainFields = 30; // at least
   expect(families.size() >= plainFields, "the documents have ", families.size(), " families of fields only");
   std::string text;
   pretendedNow = now();
   ZelMetrics::Exposition(agent_->tableStore(), {}).scrape(ZelMetrics::Format::prometheusText, &text);
   pretendedNow.reset();
   std::unordered_map<std::string, std::string> samples;
   std::istringstream lines(text);
   for (std::string line; std::getline(lines, line);) {
      const std::size_t end = line.rfind(' ');
      if (!line.starts_with('#')) {
         expect(samples.emplace(line.substr(0, end), line.substr(end + 1)).second, line, " is told twice");
      }
   }
   constexpr double fresh = 4; // seconds
   // What is told is true, and while it is fresh it is told.
   const auto check = [&](const std::string& name, U64 expected, bool isFresh) {
      const auto found = samples.find(name);
      expect(found != samples.end() || !isFresh, name, " is not told");
      expect(found == samples.end() || found->second == std::to_string(expected), name, " is ",
             found != samples.end() ? found->second : "", " and not ", expected);
   };
   for (const auto& [intf, port] : model_.ports) {
      const std::string label = "{interface=\"" + intf + "\"";
      const bool isFresh = isCalm && port.isPublished && now() - port.sampleTime < fresh;
      for (const auto& [field, family] : families) {
         check(family + label + "}", port.totals[field], isFresh);
      }
      const auto age = samples.find("zel_interface_age_seconds" + label + "}");
      constexpr double rounding = 1e-3;
      expect(age == samples.end() || !port.isPublished ||
                  std::abs(std::stod(age->second) - (now() - port.sampleTime)) <= rounding,
             "the age of ", intf, " is wrong");
      const bool areFresh = isCalm && port.queues.isReported && now() - port.queues.sampleTime < fresh;
      for (unsigned queue = 0; queue < port.place.queues(); ++queue) {
         const std::string labels = label + ",queue=\"" + std::to_string(queue) + "\"}";
         check("zel_queue_packets_total" + labels, port.queues.totals[queue][0], areFresh);
         check("zel_queue_bytes_total" + labels, port.queues.totals[queue][1], areFresh);
         check("zel_queue_dropped_packets_total" + labels, port.queues.totals[queue][2], areFresh);
      }
      for (const SoftChip::PdpClass& each : SoftChip::pdpClasses) { // as their records have them
         check("zel_interface_class_packets_total" + label + ",class=\"" + each.name + "\",id=\"" +
                    std::to_string(each.id) + "\"}",
               model_.counted[{Family::classes, intf}].tallies[each.id][0].seen, false);
      }
   }
}

} // namespace Campaign
