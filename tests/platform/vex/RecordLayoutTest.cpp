// The fields of published records, compared with their tables in docs/published-records.md. Whoever changes a record has
// to change the document, and the record's layout version.
#include "silo/HistoryLayout.h"
#include "silo/Record.h"
#include "tests/support/Manual.h"
#include "vex/PublishedChip.h"
#include "vex/PublishedHistory.h"
#include "vex/PublishedRecords.h"

#include <cstring>
#include <functional>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <numeric>
#include <set>
#include <sstream>

namespace {

using namespace Silo::Interface;
using ZelTest::manualRows;
using Row = std::vector<std::string>;
using Rows = std::vector<Row>;

constexpr const char* document = "published-records.md";

template <class T>
constexpr bool isArray = false;
template <class T, std::size_t count>
constexpr bool isArray<std::array<T, count>> = true;

// The type as the document calls it. What is made of words only is an array of them.
template <class T>
std::string typeName(const std::string& counts = "") {
   if constexpr (isArray<T>) {
      return typeName<typename T::value_type>(counts + "[" + std::to_string(std::tuple_size_v<T>) + "]");
   } else if constexpr (std::is_enum_v<T>) {
      return typeName<std::underlying_type_t<T>>(counts);
   } else if constexpr (std::is_class_v<T>) {
      return typeName<U64>(counts + "[" + std::to_string(sizeof(T) / sizeof(U64)) + "]");
   } else if constexpr (std::is_same_v<T, char>) {
      return "char" + counts;
   } else {
      const char* const kind = std::is_floating_point_v<T> ? "f" : std::is_signed_v<T> ? "s" : "u";
      return kind + std::to_string(8 * sizeof(T)) + counts;
   }
}

// The rows that the document must have: offset, bytes, type and name of each member.
template <class Record, class... Members>
Rows rowsOf(const Record& record, std::initializer_list<const char*> names, const Members&... members) {
   const auto* const name = names.begin();
   std::size_t i = 0;
   return {Row{std::to_string(reinterpret_cast<const std::byte*>(&members) -
                              reinterpret_cast<const std::byte*>(&record)),
               std::to_string(sizeof members), typeName<Members>(), name[i++]}...};
}

Rows documented(const std::string& heading) {
   Rows rows = manualRows(document, heading);
   for (Row& row : rows) {
      row.resize(4);
   }
   return rows;
}

// In each test the binding counts the members: it does not compile if there is one more.

template <class Record>
Rows rowsOfCounters() {
   const Record record;
   [[maybe_unused]] const auto& [a, b, c, d, e, f, g, h, i, j] = record;
   return rowsOf(record,
                 {"reading", "totals", "deltas", "isAbsorbed", "interval", "discontinuityTime", "suspects",
                  "createdTime", "createdUnixTime", "speed"},
                 record.reading, record.totals, record.deltas, record.isAbsorbed, record.interval,
                 record.discontinuityTime, record.suspects, record.createdTime, record.createdUnixTime,
                 record.speed);
}

TEST(RecordLayout, OfPortsIsTheDocumentedOne) {
   EXPECT_EQ(documented("### Record of a port: IntfCounters"), rowsOfCounters<IntfCounters>());
}

TEST(RecordLayout, OfL3InterfacesIsTheDocumentedOne) {
   EXPECT_EQ(documented("### Record of an L3 interface: L3IntfCounters"), rowsOfCounters<L3IntfCounters>());
}

TEST(RecordLayout, OfQueuesIsTheDocumentedOne) {
   const IntfQueueCounters record;
   [[maybe_unused]] const auto& [a, b, c, d, e, f, g, h, i, j] = record;
   EXPECT_EQ(documented("### Record of an interface's queues: IntfQueueCounters"),
             rowsOf(record,
                    {"totals", "deltas", "interval", "present", "reported", "absorbed", "unused",
                     "discontinuityTime", "createdTime", "createdUnixTime"},
                    record.totals, record.deltas, record.interval, record.present, record.reported,
                    record.absorbed, record.unused, record.discontinuityTime, record.createdTime,
                    record.createdUnixTime));
   const QueueStatistics queue;
   EXPECT_EQ(rowsOf(queue, {"packets", "bytes", "drops"}, queue.packets, queue.bytes, queue.drops),
             (Rows{{"0", "8", "u64", "packets"}, {"8", "8", "u64", "bytes"}, {"16", "8", "u64", "drops"}}))
        << "the document names them in this order";
}

TEST(RecordLayout, OfSourceNatIsTheDocumentedOne) {
   const NatCounter record;
   [[maybe_unused]] const auto& [a, b, c, d, e, f, g, h, i, j] = record;
   EXPECT_EQ(documented("### Record of source NAT: NatCounter"),
             rowsOf(record,
                    {"intfId", "creationTime", "packets", "bytes", "lastUpdate", "totalPackets", "totalBytes",
                     "discontinuityTime", "createdTime", "createdUnixTime"},
                    record.intfId, record.creationTime, record.packets, record.bytes, record.lastUpdate,
                    record.totalPackets, record.totalBytes, record.discontinuityTime, record.createdTime,
                    record.createdUnixTime));
}

// Structured bindings do not reach into a base, so the sizes must add up.
template <class Record, class... Members>
Rows rowsOfPlaces(const Record& record, std::initializer_list<const char*> names, const Members&... own) {
   Rows rows =
        rowsOf(record,
               {"totals", "readings", "lifts", "readTimes", "discontinuityTime", "createdTime",
                "createdUnixTime", "device", "devicePort"},
               record.totals, record.readings, record.lifts, record.readTimes, record.discontinuityTime,
               record.createdTime, record.createdUnixTime, record.device, record.devicePort);
   if constexpr (sizeof...(own) != 0) {
      const Rows more = rowsOf(record, names, own...);
      rows.insert(rows.end(), more.begin(), more.end());
   }
   std::size_t size = 0;
   for (const Row& row : rows) {
      size += std::stoul(row[1]);
   }
   EXPECT_EQ(size, sizeof record);
   return rows;
}

TEST(RecordLayout, OfWhatChipsCountIsTheDocumentedOne) {
   EXPECT_EQ(documented("### Record of an interface's drops: IntfDropCounters"),
             rowsOfPlaces(IntfDropCounters(), {}));
   const IntfPdpCounters classes;
   EXPECT_EQ(documented("### Record of an interface's classes: IntfPdpCounters"),
             rowsOfPlaces(classes, {"classNames"}, classes.classNames));
   EXPECT_EQ(documented("### Record of a pipe's stages: PipeStageCounters"),
             rowsOfPlaces(PipeStageCounters(), {}));
   EXPECT_EQ(documented("### Record of a pipe's drops: PipeDropCounters"),
             rowsOfPlaces(PipeDropCounters(), {}));
   EXPECT_EQ(documented("### Record of a pipe's traffic manager: PipeTmCounters"),
             rowsOfPlaces(PipeTmCounters(), {}));
   const ChipHealth health;
   EXPECT_EQ(documented("### Record of a chip's health: ChipHealth"),
             rowsOfPlaces(health,
                          {"verdict", "unused", "upTime", "oldestReadTimes", "isPolled", "outstanding",
                           "pendingVlans"},
                          health.verdict, health.unused, health.upTime, health.oldestReadTimes,
                          health.isPolled, health.outstanding, health.pendingVlans));
   const IntfPlace place;
   [[maybe_unused]] const auto& [a, b, c, d] = place;
   EXPECT_EQ(documented("### Record of an interface's place: IntfPlace"),
             rowsOf(place, {"chip", "device", "devicePort", "speed"}, place.chip, place.device,
                    place.devicePort, place.speed));
   const AgentHealth agent;
   [[maybe_unused]] const auto& [e, f, g, h, i, j, k, l] = agent;
   EXPECT_EQ(documented("### Record of the agent: AgentHealth"),
             rowsOf(agent,
                    {"version", "startedTime", "startedUnixTime", "deadObjects", "longestHold", "longestWait",
                     "heldTime", "holds"},
                    agent.version, agent.startedTime, agent.startedUnixTime, agent.deadObjects,
                    agent.longestHold, agent.longestWait, agent.heldTime, agent.holds));
}

TEST(RecordLayout, OfEventsIsTheDocumentedOne) {
   const Event record;
   [[maybe_unused]] const auto& [a, b, c, d, e, f, g, h, i, j, k, l, m, n] = record;
   EXPECT_EQ(documented("### Record of an event: Event"),
             rowsOf(record,
                    {"number", "time", "unixTime", "count", "lastTime", "lastUnixTime", "hasValues", "before",
                     "after", "others", "kind", "where", "what", "text"},
                    record.number, record.time, record.unixTime, record.count, record.lastTime,
                    record.lastUnixTime, record.hasValues, record.before, record.after, record.others,
                    record.kind, record.where, record.what, record.text));
}

// Where things lie in a history, by a sample that is written and the words that are found.
TEST(RecordLayout, OfHistoriesIsTheDocumentedOne) {
   constexpr std::size_t depth = 3;
   const Silo::HistoryGeometry geometry(IntfQueueHistory::layout, depth);
   const std::size_t values = IntfQueueHistory::layout.size;
   const Rows parts = manualRows(document, "### Histories");
   EXPECT_EQ(parts.at(1).at(0), std::to_string(sizeof(Silo::TableHeader)));
   EXPECT_EQ(parts.at(1).at(1), std::to_string(sizeof(Silo::HistoryHeader)));
   EXPECT_EQ(parts.at(2).at(0), std::to_string(geometry.banksOffset));

   struct alignas(Silo::cacheLine) Line {
      std::byte bytes[Silo::cacheLine];
   };
   constexpr std::size_t ring = 18; // in the second bank
   std::vector<Line> file(geometry.sizeFor(2 * Silo::HistoryGeometry::ringsPerBank) / sizeof(Line));
   auto* const start = reinterpret_cast<std::byte*>(file.data());
   std::byte* const bank = start + geometry.bankOffset(ring);
   EXPECT_EQ(bank - start, geometry.banksOffset + 16 * (128 + depth * (24 + values)));
   geometry.head(bank, ring).keyIs(Silo::Key("Ethernet1"));
   std::vector<U64> totals(geometry.fields);
   std::iota(totals.begin(), totals.end(), 100);
   geometry.sample(bank, ring, 5 % depth).write(5, Silo::SampleFlag::begun, 0.0, totals);

   const auto word = [&](std::size_t at) {
      U64 found = 0;
      std::memcpy(&found, bank + at, sizeof found);
      return found;
   };
   const auto offset = [](const Rows& rows, std::size_t row) { return std::stoul(rows.at(row).at(0)); };
   const Rows bankRows = manualRows(document, "### Bank");
   EXPECT_EQ(bankRows.at(0).at(0), "128 x k");
   EXPECT_EQ(bankRows.at(1).at(0), "2048 + (p x 16 + k) x (24 + V)");
   const Rows head = manualRows(document, "### Ring");
   const std::size_t headAt = 128 * (ring % 16);
   EXPECT_EQ(word(headAt + offset(head, 0)), 2U);
   EXPECT_EQ(word(headAt + offset(head, 1)), Silo::Key("Ethernet1").hash());
   EXPECT_EQ(word(headAt + offset(head, 3)), Silo::Key("Ethernet1").words()[0]);
   const Rows sample = manualRows(document, "### Sample");
   const std::size_t at = 2048 + (5 % depth * 16 + ring % 16) * (24 + values);
   EXPECT_EQ(word(at + offset(sample, 0)), 5 * 256 + 2);
   Silo::Checksum<U64> checksum;
   checksum.add({5 * 256 + 2, word(at + offset(sample, 1))});
   for (std::size_t i = 0; i < totals.size(); i += 4) {
      checksum.add({totals[i], totals[i + 1], totals[i + 2], totals[i + 3]});
   }
   EXPECT_EQ(word(at + offset(sample, 2)), checksum.value());
   EXPECT_EQ(word(at + offset(sample, 3)), 100U);
   EXPECT_EQ(word(at + 24 + values - sizeof(U64)), totals.back());
}

template <class Record>
constexpr Silo::RecordLayout layoutOf() {
   if constexpr (Silo::RecordType<Record>) {
      return Silo::layoutOf<Record>();
   } else {
      return Record::layout;
   }
}

template <class Record>
Row versionRow() {
   constexpr Silo::RecordLayout layout = layoutOf<Record>();
   return {std::to_string(layout.size), std::string(layout.name), std::to_string(layout.version)};
}

TEST(RecordLayout, HasTheDocumentedVersionsAndTables) {
   Rows versions;
   std::set<std::string> tables;
   for (Row row : manualRows(document, "### Versions")) {
      std::istringstream names(row.at(3));
      for (std::string name; std::getline(names >> std::ws, name, ',');) {
         EXPECT_TRUE(tables.insert(name).second) << name;
      }
      row.resize(3);
      versions.push_back(row);
   }
   EXPECT_EQ(
        versions,
        (Rows{versionRow<IntfCounters>(), versionRow<L3IntfCounters>(), versionRow<IntfQueueCounters>(),
              versionRow<NatCounter>(), versionRow<Event>(), versionRow<IntfPlace>(),
              versionRow<IntfDropCounters>(), versionRow<IntfPdpCounters>(), versionRow<PipeStageCounters>(),
              versionRow<PipeDropCounters>(), versionRow<PipeTmCounters>(), versionRow<ChipHealth>(),
              versionRow<AgentHealth>(), versionRow<IntfHistory>(), versionRow<IntfQueueHistory>()}));
   std::set<std::string> published(TableName::all.begin(), TableName::all.end());
   published.insert(TableName::ofChips.begin(), TableName::ofChips.end());
   published.insert({TableName::events, TableName::intfHistory, TableName::intfQueueHistory});
   EXPECT_EQ(tables, published);
}

template <class Fields, class Name>
void expectDocumentedFields(const std::string& heading, const Fields& fields, Name nameOf) {
   const Rows rows = manualRows(document, heading);
   ASSERT_EQ(rows.size(), fields.size());
   for (std::size_t i = 0; i < fields.size(); ++i) {
      EXPECT_EQ(rows[i][0], std::to_string(i));
      EXPECT_EQ(rows[i][1], "`" + std::string(nameOf(fields[i])) + "`");
   }
}

TEST(RecordLayout, HasTheDocumentedFields) {
   const auto nameOf = [](const auto& field) { return field.name; };
   expectDocumentedFields("### Fields of a port", ::Interface::fieldsOf<::Interface::EthIntfStatistics>(),
                          nameOf);
   expectDocumentedFields("### Fields of an L3 interface",
                          ::Interface::fieldsOf<::Interface::L3IntfStatistics>(), nameOf);
   expectDocumentedFields("### Values of a port's sample: IntfHistory", IntfHistory::fieldNames,
                          std::identity());
   expectDocumentedFields("### Values of eight queues' sample: IntfQueueHistory",
                          IntfQueueHistory::fieldNames, std::identity());
}

} // namespace
