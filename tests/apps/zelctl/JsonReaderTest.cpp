// Reading the agent's JSON documents, and refusing anything else.
#include "apps/zelctl/views/JsonReader.h"

#include "apps/zelctl/views/CountersDocument.h"
#include "tests/support/ErrorText.h"

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

namespace {

using Kiln::String;
using ZelTest::errorOf;

TEST(JsonReader, ReadsEveryKindOfValue) {
   const ZelCtl::Json value = ZelCtl::readJson(
        " {\"a\": [0, 18446744073709551615, null, true, false, []],\n"
        "\"b\\u0041\": \"q\\\"\\\\\\/\\b\\f\\n\\r\\t\\u00fc\\ud83d\\ude00\xc3\xbc\", \"\": {}}\t");
   const ZelCtl::Json& items = value.at("a");
   ASSERT_EQ(items.size(), 6U);
   EXPECT_EQ(items[0].get<U64>(), 0U);
   EXPECT_EQ(items[1].get<U64>(), 18446744073709551615U);
   EXPECT_TRUE(items[2].is_null());
   EXPECT_EQ(items[3], true);
   EXPECT_EQ(items[4], false);
   EXPECT_TRUE(items[5].is_array());
   EXPECT_EQ(value.at("bA"), "q\"\\/\b\f\n\r\t\xc3\xbc\xf0\x9f\x98\x80\xc3\xbc");
   EXPECT_EQ(value.back(), ZelCtl::Json::object()) << "members keep their order";
}

TEST(JsonReader, RefusesAnythingElse) {
   const String number = "it has a number that is not an unsigned 64-bit integer";
   const std::vector<std::pair<String, String>> cases = {
        {"", "it is not JSON at byte 1"},
        {"{\"a\":1}x", "it is not JSON at byte 8"},
        {"{\"a\":1,}", "it is not JSON at byte 8"},
        {"[1,]", "it is not JSON at byte 4"},
        {"[1 2]", "it is not JSON at byte 4"},
        {"[", "it is not JSON at byte 2"},
        {"{\"a\" 1}", "it is not JSON at byte 6"},
        {"{\"a\":1,\"b\":{\"a\":2},\"a\":3}", "it has a twice in one object"},
        {"{a:1}", "it is not JSON at byte 2"},
        {"nul", "it is not JSON at byte 4"},
        {"-1", number},
        {"01", "it is not JSON at byte 2"},
        {"1.5", number},
        {"1e3", number},
        {"1e999", "it is not JSON at byte 5"},
        {"18446744073709551616", number},
        {"\"abc", "it is not JSON at byte 5"},
        {"\"a\nb\"", "it is not JSON at byte 3"},
        {"\"\xff\"", "it is not JSON at byte 2"},
        {"\"\xc0\x80\"", "it is not JSON at byte 2"},
        {"\"\\x\"", "it is not JSON at byte 3"},
        {"\"\\u12\"", "it is not JSON at byte 6"},
        {"\"\\ud83dx\"", "it is not JSON at byte 8"},
        {"\"\\ude00\"", "it is not JSON at byte 7"},
        {String(33, '[') + String(33, ']'), "it nests deeper than 32 levels"},
        {String(100000, '['), "it nests deeper than 32 levels"},
   };
   for (const auto& [text, expected] : cases) {
      EXPECT_EQ(errorOf([&, &input = text] { ZelCtl::readJson(input); }), expected) << text.substr(0, 99);
   }
   EXPECT_EQ(errorOf([] { ZelCtl::readJson(String(32, '[') + String(32, ']')); }), "");
}

constexpr const char* document =
     "{\"chips\":[{\"chip\":\"Zel0\",\"tables\":[{\"title\":\"Packets, chip Zel0\","
     "\"counters\":[\"In\",\"Out\"],\"rows\":[{\"Pipe\":0,\"Stage\":\"parser\",\"In\":12,\"Out\":null},"
     "{\"Pipe\":1,\"Stage\":\"p\\u001b[31m\",\"In\":null,\"Out\":5,\"not-supported\":[\"In\"],\"Late\":3}],"
     "\"notes\":[\"one \\u00e9\"]},"
     "{\"title\":\"Ages\",\"counters\":[\"Up-ms\"],\"rows\":[{\"Up-ms\":66000}],\"notes\":[]}]},"
     "{\"chip\":\"Zel1\",\"error\":\"Agent not initialized yet\"}]}";

TEST(CountersDocument, BecomesTables) {
   const std::vector<ZelCtl::ShownTable> tables = ZelCtl::readCountersDocument(document, 0, 0);
   ASSERT_EQ(tables.size(), 3U);
   EXPECT_EQ(tables[0].title, "Packets, chip Zel0");
   String headings;
   for (const ZelCtl::ShownColumn& column : tables[0].columns) {
      headings += column.heading + (column.kind == ZelCtl::ShownColumn::Kind::counter ? "# " : " ");
   }
   EXPECT_EQ(headings, "Pipe Stage In# Out# Late ");
   ASSERT_EQ(tables[0].rows.size(), 2U);
   EXPECT_EQ(tables[0].rows[0].cells[2].count, std::optional<U64>(12));
   EXPECT_EQ(tables[0].rows[0].cells[3].count, std::nullopt);
   EXPECT_EQ(tables[0].rows[0].cells[3].text, "never read");
   EXPECT_EQ(tables[0].rows[0].cells[4].text, "");
   EXPECT_EQ(tables[0].rows[1].cells[1].text, "p?[31m") << "nothing that a terminal would obey";
   EXPECT_EQ(tables[0].rows[1].cells[2].text, "not supported");
   EXPECT_EQ(tables[0].notes, std::vector<String>{"one \xc3\xa9"});
   EXPECT_EQ(tables[1].title, "Zel0: Ages");
   EXPECT_EQ(tables[1].columns[0].heading + " " + tables[1].rows[0].cells[0].text, "Up 66 s");
   EXPECT_EQ(tables[1].rows[0].cells[0].count, std::nullopt) << "an age has no rate";
   EXPECT_EQ(tables[2].title, "Zel1: Agent not initialized yet");
}

TEST(CountersDocument, AnotherDocumentIsRefused) {
   const String nested = "{\"chips\":[{\"chip\":\"Zel0\",\"tables\":[{\"title\":\"T\",\"counters\":[],"
                         "\"notes\":[],\"rows\":[{\"a\":[]}]}]}]}";
   const String number = "{\"chips\":[{\"chip\":\"Zel0\",\"tables\":[{\"title\":\"T\",\"counters\":[],"
                         "\"notes\":[],\"rows\":[7]}]}]}";
   for (const String& text : {number, String("[]"), String("{\"chips\":{}}"), String("{\"chips\":[{}]}"),
                              String("{\"chips\":[{\"chip\":\"Zel0\"}]}"), String("x"), nested}) {
      EXPECT_NE(errorOf([&] {
                   ZelCtl::readCountersDocument(text, 0, 0);
                }).find("cannot read the agent's answer: "),
                String::npos)
           << text;
   }
}

} // namespace
