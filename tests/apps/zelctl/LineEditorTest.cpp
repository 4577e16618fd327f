// Keys at the prompt: what they make of the line, of its picture and of the history.
#include "apps/zelctl/prompt/LineEditor.h"

#include "apps/zelctl/terminal/Utf8.h"
#include "tests/support/TemporaryFolder.h"

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>
#include <random>
#include <sys/stat.h>

namespace {

using Kiln::String;
using ZelCtl::History;
using ZelCtl::LineEditor;
using Event = LineEditor::Event;

constexpr const char* left = "\x1b[D";
constexpr const char* right = "\x1b[C";
constexpr const char* up = "\x1b[A";
constexpr const char* down = "\x1b[B";

Event type(LineEditor* editor, const String& keys) {
   Event last = Event::none;
   for (const char key : keys) {
      last = editor->take(key);
   }
   return last;
}

// The line with '|' where the cursor is.
String state(const LineEditor& editor) {
   return String(editor.line()).insert(editor.cursor(), "|");
}

TEST(LineEditor, KeysEditTheLine) {
   const std::vector<std::pair<String, String>> cases = {
        {"show", "show|"},
        {String("show") + left + left + "X", "shX|ow"},
        {String("show") + left + left + right + "X", "shoX|w"},
        {"show\x01X\x05Y", "XshowY|"},
        {"show\x1b[HX\x1b[FY", "XshowY|"},
        {"show\x1bOHX\x1bOFY", "XshowY|"},
        {"show\x1b[1~X\x1b[4~Y\x1b[7~V\x1b[8~W", "VXshowYW|"},
        {"show\x7f\b", "sh|"},
        {"show\x01\x1b[3~\x04", "|ow"},
        {String("counters show") + left + left + "\x0b", "counters sh|"},
        {String("counters show") + left + left + "\x15", "|ow"},
        {"counters show  \x17mac", "counters mac|"},
        {"a\x02"
         "b\x06"
         "c",
         "bac|"},
        {String("a") + right + left + left + "b", "b|a"},
        {"Z\xc3\xbcrich\x1b[D\x1b[D\x1b[D\x1b[D\x7f", "Z|rich"}, // one character of two bytes
        {"\xe6\xbc\xa2\xe5\xad\x97\x1b[D\x7f!", "!|\xe5\xad\x97"},
        {"e\xcc\x81x\x1b[D\x7f", "|x"},     // an accent of its own goes with its letter
        {"a\xff\xc3(\xed\xa0\x80z", "az|"}, // what is no character is dropped
        {"a\x1b[1;5Cb\x1b[200~c\x1b\x1b[Dd", "abd|c"},
        {"a\x1b[12\x05z", "az|"}, // a sequence broken off takes nothing with it
        {"a\x1bxb\xc2\x9b", "ab|"},
   };
   for (const auto& [keys, expected] : cases) {
      const History none("");
      LineEditor editor(none);
      type(&editor, keys);
      EXPECT_EQ(state(editor), expected) << testing::PrintToString(keys);
   }
}

TEST(LineEditor, KeysThatAreNotTextSaySo) {
   const History none("");
   LineEditor editor(none);
   EXPECT_EQ(type(&editor, "\x04"), Event::ended);
   EXPECT_EQ(type(&editor, "\x7f"), Event::refused);
   EXPECT_EQ(type(&editor, up), Event::refused);
   EXPECT_EQ(type(&editor, "show\x03"), Event::abandoned);
   EXPECT_EQ(type(&editor, "\x04"), Event::refused) << "the line isn't empty";
   EXPECT_EQ(type(&editor, "\r"), Event::entered);
   EXPECT_EQ(type(&editor, "\t"), Event::tab);
   EXPECT_EQ(type(&editor, "\x0c"), Event::clearScreen);
   editor.clear();
   EXPECT_EQ(type(&editor, String(LineEditor::limit, 'x')), Event::changed);
   EXPECT_EQ(type(&editor, "x"), Event::refused);
   EXPECT_EQ(editor.line().size(), LineEditor::limit);
}

TEST(LineEditor, HistoryIsWalkedAndTheTypedLineComesBack) {
   History history("");
   for (const char* line : {"first", "second", "second", "  "}) {
      history.add(line);
   }
   LineEditor editor(history);
   type(&editor, String("typ") + up);
   EXPECT_EQ(state(editor), "second|");
   type(&editor, String("X") + up);
   EXPECT_EQ(state(editor), "first|");
   EXPECT_EQ(type(&editor, up), Event::refused);
   type(&editor, String(down) + down);
   EXPECT_EQ(state(editor), "typ|");
   EXPECT_EQ(type(&editor, down), Event::refused);
}

TEST(LineEditor, CompletionTakesWhatCandidatesShare) {
   struct Case {
      String keys;
      std::vector<String> candidates;
      String expected;
   };
   const std::vector<Case> cases = {
        {"counters sh", {"show"}, "counters show |"},
        {"interfaces Eth", {"Ethernet1", "Ethernet12"}, "interfaces Ethernet1|"},
        {"interfaces Ethernet1", {"Ethernet1", "Ethernet12"}, "interfaces Ethernet1|"},
        {"counters ", {"chip", "clear", "show"}, "counters |"},
        {"counters ", {"show"}, "counters show |"},
        {String("sh mac") + left + left + left + left, {"show"}, "show| mac"},
        {"x", {}, "x|"},
        {"", {"\xc3\xbc", "\xc3\xb6"}, "|"}, // no half characters
   };
   for (const Case& one : cases) {
      const History none("");
      LineEditor editor(none);
      type(&editor, one.keys);
      const String before = state(editor);
      EXPECT_EQ(editor.complete(one.candidates), before != one.expected) << one.keys;
      EXPECT_EQ(state(editor), one.expected);
   }
}

TEST(LineEditor, APictureShowsTheLineAroundTheCursor) {
   const History none("");
   LineEditor editor(none);
   type(&editor, "abc");
   EXPECT_EQ(editor.picture("> ", 20), "\r> abc\x1b[K\r\x1b[5C");
   type(&editor, "defghijklmnopqrstuvwxyz");
   EXPECT_EQ(editor.picture("> ", 13), "\r> <stuvwxyz\x1b[K\r\x1b[11C");
   type(&editor, String(left) + left);
   EXPECT_EQ(editor.picture("> ", 13), "\r> <stuvwxyz\x1b[K\r\x1b[9C") << "no scrolling without need";
   type(&editor, "\x01");
   EXPECT_EQ(editor.picture("> ", 13), "\r> abcdefghi>\x1b[K\r\x1b[2C");
   editor.clear();
   type(&editor, "\xe6\xbc\xa2\xe5\xad\x97");
   EXPECT_EQ(editor.picture("> ", 20), "\r> \xe6\xbc\xa2\xe5\xad\x97\x1b[K\r\x1b[6C");
}

TEST(LineEditor, RandomKeysLeaveWholeCharactersAndFitTheScreen) {
   const auto seed = std::random_device{}();
   std::mt19937 random(seed);
   const std::vector<String> keys = {left,       right,          up,         down,    "\x1b[3~", "\x01",
                                     "\x05",     "\x0b",         "\x17",     "\x7f",  "a",       "b ",
                                     "\xc3\xbc", "\xe6\xbc\xa2", "\xcc\x81", "\x1b[", "\x1bO"};
   History history("");
   history.add("counters show \xe6\xbc\xa2");
   LineEditor editor(history);
   for (int i = 0; i < 100000; ++i) {
      const bool isRandomByte = random() % 8 == 0;
      type(&editor, isRandomByte ? String(1, static_cast<char>(random())) : keys[random() % keys.size()]);
      if (random() % 100 == 0) {
         editor.complete({"ab\xc3\xbc", "ab\xc3\xb6"});
      }
      ASSERT_EQ(ZelCtl::printable(editor.line()), editor.line()) << "seed " << seed;
      ASSERT_LE(editor.cursor(), editor.line().size()) << "seed " << seed;
      ASSERT_EQ(ZelCtl::printable(editor.line().substr(0, editor.cursor())),
                editor.line().substr(0, editor.cursor()))
           << "seed " << seed;
      const std::size_t width = 8 + random() % 30;
      String picture = editor.picture("> ", width);
      picture = picture.substr(1, picture.find('\x1b') - 1);
      std::size_t columns = 0;
      for (std::size_t at = 0; at < picture.size();) {
         const ZelCtl::CodePoint one = ZelCtl::codePointAt(picture, at);
         columns += ZelCtl::columnsOf(one.value);
         at += one.length;
      }
      ASSERT_LT(columns, width) << "seed " << seed << " " << editor.line();
   }
}

TEST(History, IsKeptBoundedAndPrivate) {
   const ZelTest::TemporaryFolder folder;
   const String path = folder.path() + "/state/zelctl/history";
   History(path).add("counters show mac");
   std::ofstream(path, std::ios::app) << "\x1b[31mred\n\nn\xc3\xbcr\n";
   chmod(path.c_str(), 0644);
   const std::vector<String> expected{"counters show mac", "n\xc3\xbcr"};
   EXPECT_EQ(History(path).lines(), expected) << "nothing that a terminal would obey";
   for (std::size_t i = 0; i < 2 * History::limit; ++i) {
      History(path).add(std::to_string(i));
   }
   const History last(path);
   EXPECT_EQ(last.lines().size(), History::limit);
   EXPECT_EQ(last.lines().back(), std::to_string(2 * History::limit - 1));
   std::ifstream file(path);
   const auto lines = std::count(std::istreambuf_iterator<char>(file), {}, '\n');
   EXPECT_LE(static_cast<std::size_t>(lines), 2 * History::limit);
   struct stat status {};
   ASSERT_EQ(stat(path.c_str(), &status), 0);
   EXPECT_EQ(status.st_mode & 0777U, 0600U);
   History nowhere("/dev/null/history");
   nowhere.add("kept for now");
   EXPECT_EQ(nowhere.lines().size(), 1U);
}

} // namespace
