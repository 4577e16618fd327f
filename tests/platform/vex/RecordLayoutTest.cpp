// The fields of published records, compared with their tables in docs/published-records.md. Whoever changes a record has
// to change the document, and the record's layout version.
#include "silo/Record.h"
#include "tests/support/Manual.h"
#include "vex/PublishedRecords.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
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

template <class Record>
Row versionRow() {
   constexpr Silo::RecordLayout layout = Silo::layoutOf<Record>();
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
   EXPECT_EQ(versions, (Rows{versionRow<IntfCounters>(), versionRow<L3IntfCounters>(),
                             versionRow<IntfQueueCounters>(), versionRow<NatCounter>()}));
   EXPECT_EQ(tables, std::set<std::string>(TableName::all.begin(), TableName::all.end()));
}

template <class Statistics>
void expectDocumentedFields(const std::string& heading) {
   const Rows rows = manualRows(document, heading);
   const auto& fields = ::Interface::fieldsOf<Statistics>();
   ASSERT_EQ(rows.size(), fields.size());
   for (std::size_t i = 0; i < fields.size(); ++i) {
      EXPECT_EQ(rows[i][0], std::to_string(i));
      EXPECT_EQ(rows[i][1], "`" + std::string(fields[i].name) + "`");
   }
}

TEST(RecordLayout, HasTheDocumentedFields) {
   expectDocumentedFields<::Interface::EthIntfStatistics>("### Fields of a port");
   expectDocumentedFields<::Interface::L3IntfStatistics>("### Fields of an L3 interface");
}

} // namespace
