// The agent's documents, and what is none.
#include "apps/zelctl/views/JsonReader.h"

#include "apps/zelctl/views/CountersDocument.h"

#include <gtest/gtest.h>
#include <random>
#include <stdexcept>

namespace {

using Kiln::String;
using Kind = ZelCtl::JsonValue::Kind;

template <class Function>
String problem(Function function) {
   try {
      function();
      return "";
   } catch (const std::runtime_error& error) {
      return error.what();
   }
}

TEST(JsonReader, ReadsEveryKindOfValue) {
   const ZelCtl::JsonValue value = ZelCtl::readJson(
        " {\"a\": [0, 18446744073709551615, null, true, false, []],\n"
        "\"b\\u0041\": \"q\\\"\\\\\\/\\b\\f\\n\\r\\t\\u00fc\\ud83d\\ude00\xc3\xbc\", \"\": {}}\t");
   ASSERT_EQ(value.kind, Kind::object);
   ASSERT_NE(value.member("a"), nullptr);
   const std::vector<ZelCtl::JsonValue>& items = value.member("a")->items;
   ASSERT_EQ(items.size(), 6U);
   EXPECT_EQ(items[0].number, 0U);
   EXPECT_EQ(items[1].number, 18446744073709551615U);
   EXPECT_EQ(items[2].kind, Kind::null);
   EXPECT_TRUE(items[3].truth);
   EXPECT_FALSE(items[4].truth);
   EXPECT_EQ(items[5].kind, Kind::list);
   EXPECT_EQ(value.member("bA")->text, "q\"\\/\b\f\n\r\t\xc3\xbc\xf0\x9f\x98\x80\xc3\xbc");
   EXPECT_EQ(value.member("none"), nullptr);
}

TEST(JsonReader, RefusesWhatIsNotExactlyThat) {
   const std::vector<std::pair<String, String>> cases = {
        {"", "at byte 1: expected a value"},
        {"{\"a\":1}x", "at byte 8: expected the end"},
        {"{\"a\":1,}", "at byte 8: expected a key"},
        {"[1,]", "at byte 4: expected a value"},
        {"[1 2]", "at byte 4: expected ',' or ']'"},
        {"[", "at byte 2: expected a value"},
        {"{\"a\" 1}", "at byte 6: expected ':'"},
        {"{\"a\":1,\"a\":2}", "at byte 11: expected each key once, not a again"},
        {"{a:1}", "at byte 2: expected a key"},
        {"nul", "at byte 1: expected a value"},
        {"-1", "at byte 1: expected a value"},
        {"01", "at byte 1: expected a whole number of at most 64 bits"},
        {"1.5", "at byte 1: expected a whole number of at most 64 bits"},
        {"1e3", "at byte 1: expected a whole number of at most 64 bits"},
        {"18446744073709551616", "at byte 1: expected a whole number of at most 64 bits"},
        {"\"abc", "at byte 5: expected '\"'"},
        {"\"a\nb\"", "at byte 3: expected text in UTF-8"},
        {"\"\xff\"", "at byte 2: expected text in UTF-8"},
        {"\"\xc0\x80\"", "at byte 2: expected text in UTF-8"},
        {"\"\\x\"", "at byte 3: expected an escape"},
        {"\"\\u12\"", "at byte 4: expected four hexadecimal digits"},
        {"\"\\ud83dx\"", "at byte 8: expected both halves of a surrogate pair"},
        {"\"\\ude00\"", "at byte 8: expected both halves of a surrogate pair"},
        {String(33, '[') + String(33, ']'), "at byte 33: expected no more than 32 levels"},
   };
   for (const auto& [text, expected] : cases) {
      EXPECT_EQ(problem([&, &text = text] { ZelCtl::readJson(text); }), expected) << text;
   }
   EXPECT_EQ(problem([] { ZelCtl::readJson(String(32, '[') + String(32, ']')); }), "");
}

constexpr const char* document =
     "{\"chips\":[{\"chip\":\"Zel0\",\"tables\":[{\"title\":\"Packets, chip Zel0\","
     "\"counters\":[\"In\",\"Out\"],\"rows\":[{\"Pipe\":0,\"Stage\":\"parser\",\"In\":12,\"Out\":null},"
     "{\"Pipe\":1,\"Stage\":\"p\\u001b[31m\",\"In\":7,\"Out\":5,\"Late\":3}],\"notes\":[\"one \\u00e9\"]},"
     "{\"title\":\"Empty\",\"counters\":[],\"rows\":[],\"notes\":[]}]},"
     "{\"chip\":\"Zel1\",\"error\":\"Agent not initialized yet\"}]}";

TEST(CountersDocument, BecomesTables) {
   const std::vector<ZelCtl::ShownTable> tables = ZelCtl::readCountersDocument(document);
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
   EXPECT_EQ(tables[0].rows[0].cells[3].text, "-");
   EXPECT_EQ(tables[0].rows[0].cells[4].text, "");
   EXPECT_EQ(tables[0].rows[1].cells[1].text, "p?[31m") << "nothing that a terminal would obey";
   EXPECT_EQ(tables[0].notes, std::vector<String>{"one \xc3\xa9"});
   EXPECT_EQ(tables[1].title, "Zel0: Empty");
   EXPECT_EQ(tables[2].title, "Zel1: Agent not initialized yet");
}

TEST(CountersDocument, AnotherDocumentIsRefused) {
   const String nested = "{\"chips\":[{\"chip\":\"Zel0\",\"tables\":[{\"title\":\"T\",\"counters\":[],"
                         "\"notes\":[],\"rows\":[{\"a\":[]}]}]}]}";
   for (const String& text : {String("[]"), String("{\"chips\":{}}"), String("{\"chips\":[{}]}"),
                              String("{\"chips\":[{\"chip\":\"Zel0\"}]}"), String("x"), nested}) {
      EXPECT_NE(problem([&] { ZelCtl::readCountersDocument(text); }).find("cannot be read"), String::npos)
           << text;
   }
}

// Bytes are changed, lost, doubled and cut off: an answer or an error, never more.
TEST(CountersDocument, SurvivesGarbage) {
   const auto seed = std::random_device{}();
   std::mt19937 random(seed);
   int read = 0;
   for (int i = 0; i < 30000; ++i) {
      String text = document;
      for (auto changes = random() % 4 + 1; changes > 0 && !text.empty(); --changes) {
         const std::size_t at = random() % text.size();
         const std::size_t length = random() % 12;
         switch (random() % 4) {
         case 0:
            text[at] = static_cast<char>(random());
            break;
         case 1:
            text.erase(at, length);
            break;
         case 2:
            text.insert(random() % text.size(), text.substr(at, length));
            break;
         default:
            text[at] = "{}[]\",:0n\\"[random() % 10];
         }
      }
      read += problem([&] { ZelCtl::readCountersDocument(text); }).empty() ? 1 : 0;
   }
   EXPECT_GT(read, 0) << "seed " << seed;
   EXPECT_LT(read, 30000) << "seed " << seed;
}

} // namespace
