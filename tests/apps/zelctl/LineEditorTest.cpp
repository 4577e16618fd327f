// Keys at the prompt, and their effect on the line and the history.
#include "apps/zelctl/prompt/LineEditor.h"

#include "apps/zelctl/terminal/Terminal.h"
#include "apps/zelctl/terminal/Utf8.h"
#include "tests/apps/zelctl/TerminalRig.h"
#include "tests/support/Random.h"
#include "tests/support/TemporaryFolder.h"

#include <fstream>
#include <sys/stat.h>

namespace {

using Kiln::String;
using ZelCtl::History;
using Words = std::vector<String>;

const String left = "\x1b[D";
const String right = "\x1b[C";
const String up = "\x1b[A";
const String down = "\x1b[B";

class LineEditor : public ZelTest::TerminalRig {
 protected:
   // Echoes each entered line between angle brackets. Each Tab gets the next set of candidates.
   void edit(const Words& former = {}, const std::vector<Words>& candidates = {}) {
      start([&former, &candidates] {
         std::size_t tabs = 0;
         ZelCtl::Signals signals;
         History history("");
         for (const String& line : former) {
            history.add(line);
         }
         ZelCtl::LineEditor editor("> ", &signals, &history,
                                   [&](const String&) { return candidates.at(tabs++); });
         while (const std::optional<String> line = editor.readLine()) {
            ZelCtl::writeOut("line <" + *line + ">\n", nullptr);
         }
         return signals.ending();
      });
      expect("> ");
   }

   // The line that the keys produce, with '|' at the cursor.
   String lineOf(const String& keys) {
      type(keys + "|\r");
      shownBefore("line <");
      return shownBefore(">\r\n> ");
   }
};

TEST_F(LineEditor, KeysEditTheLine) {
   const std::vector<std::pair<String, String>> cases = {
        {"show", "show|"},
        {"show" + left + left + "X", "shX|ow"},
        {"show" + left + left + right + "X", "shoX|w"},
        {"show\x01X\x05Y", "XshowY|"},
        {"show\x1b[HX\x1b[FY", "XshowY|"},
        {"show\x1bOHX\x1bOFY", "XshowY|"},
        {"show\x1b[1~X\x1b[4~Y\x1b[7~V\x1b[8~W", "VXshowYW|"},
        {"show\x7f\b", "sh|"},
        {"show\x01\x1b[3~\x04", "|ow"},
        {"\x1b[3~a", "a|"}, // Delete on an empty line does not end the session as Ctrl-D does
        {"counters show" + left + left + "\x0b", "counters sh|"},
        {"counters show" + left + left + "\x15", "|ow"},
        {"counters show  \x17mac", "counters mac|"},
        {"a\x02"
         "b\x06"
         "c",
         "bac|"},
        {"a" + right + left + left + "b", "b|a"},
        {"Z\xc3\xbcrich\x1b[D\x1b[D\x1b[D\x1b[D\x7f", "Z|rich"}, // one character of two bytes
        {"\xe6\xbc\xa2\xe5\xad\x97\x1b[D\x7f!", "!|\xe5\xad\x97"},
        {"a\xff\xc3(\xed\xa0\x80z", "a(z|"}, // bytes that are not a character are dropped
        {"a\x1b[1;5Cb\x1b[200~c\x1b\x1b[Dd", "abd|c"},
        {"a\x1b[12\x05z", "az|"},           // a sequence cut short swallows nothing
        {"a\x1bxb\xc2\x9b\x16\x01", "|ab"}, // keys without a meaning insert no text
        {"a\xc3\x01"
         "b",
         "b|a"},
   };
   edit();
   for (const auto& [keys, expected] : cases) {
      EXPECT_EQ(lineOf(keys), expected) << testing::PrintToString(keys);
   }
}

TEST_F(LineEditor, KeysThatAreNotTextDoWhatTheySay) {
   edit();
   for (const String& nothingToDo : {String("\x7f"), up, String("show\x04")}) {
      SCOPED_TRACE(testing::PrintToString(nothingToDo));
      type(nothingToDo);
      expect("\a");
   }
   type("\x03");
   expect("^C\r\nline <>\r\n> ");
   type("\x0c");
   expect("\x1b[2J"); // the screen is clear
   EXPECT_EQ(lineOf(String(5000, 'x')), String(5000, 'x') + "|");
   type("\x04");
   expectEnd(0);
}

TEST_F(LineEditor, DropsALineOfSeveralRowsFromItsMiddle) {
   edit();
   type(String(200, 'x') + "\x01\x03");
   expect("^C\r\nline <>\r\n> ");
   EXPECT_EQ(lineOf("next"), "next|");
}

TEST_F(LineEditor, DrawsTheLineAnewInAWindowOfAnotherSize) {
   edit();
   type("counters show");
   expect("show");
   resize(40, 20);
   expect("\x1b[J");
   expect("> counters show");
   EXPECT_EQ(lineOf(" mac"), "counters show mac|");
}

TEST_F(LineEditor, WalksTheHistoryAndComesBackToTheTypedLine) {
   edit({"first", "second", "second", "  ", "n\xc3\xbcr"});
   EXPECT_EQ(lineOf("typ" + up), "n\xc3\xbcr|");
   EXPECT_EQ(lineOf("typ" + up + up + "X" + up), "first|");
   EXPECT_EQ(lineOf("typ" + up + up + up + up + down), "second|");
   EXPECT_EQ(lineOf("typ" + up + up + down + down + down), "typ|");
   EXPECT_EQ(lineOf("\x10\x10\x0e"), "n\xc3\xbcr|");
}

TEST_F(LineEditor, CompletionTakesWhatCandidatesShare) {
   struct Case {
      String keys;
      Words candidates;
      String expected;
   };
   const std::vector<Case> cases = {
        {"counters sh\t", {"show"}, "counters show |"},
        {"interfaces Eth\t", {"Ethernet1", "Ethernet12"}, "interfaces Ethernet1|"},
        {"interfaces Ethernet1\t", {"Ethernet1", "Ethernet12"}, "interfaces Ethernet1|"},
        {"counters \t", {"chip", "clear", "show"}, "counters |"},
        {"counters \t", {"show"}, "counters show |"},
        {"sh mac" + left + left + left + left + "\t", {"show"}, "show| mac"},
        {"x\t", {}, "x|"},
        {"\t", {"\xc3\xbc", "\xc3\xb6"}, "|"}, // no half characters
   };
   std::vector<Words> candidates;
   for (const Case& one : cases) {
      candidates.push_back(one.candidates);
   }
   edit({}, candidates);
   for (const Case& one : cases) {
      EXPECT_EQ(lineOf(one.keys), one.expected) << one.keys;
   }
}

TEST_F(LineEditor, ListsCandidatesAndGoesOnWithTheLine) {
   Words many;
   for (int i = 0; i < 200; ++i) {
      many.push_back("Ethernet" + std::to_string(1000 + i));
   }
   edit({}, {{"chip", "show"}, many, many});
   type("counters \t");
   expect("\r\n\x1b[Jchip  show\r\n> counters ");
   type("\t\t");
   expect("Ethernet1000  Ethernet1001");
   expect("and 140 more\r\n> counters Ethernet1"); // five in each of twelve rows, half a screen
   EXPECT_EQ(lineOf("x"), "counters Ethernet1x|");
}

TEST_F(LineEditor, RandomKeysLeaveWholeCharacters) {
   ZelTest::Random random;
   const Words keys = {left,   right, up,   down,       "\x1b[3~a",     "\x01",     "\x05",  "\x0b",  "\x17",
                       "\x7f", "a",   "b ", "\xc3\xbc", "\xe6\xbc\xa2", "\xcc\x81", "\x1b[", "\x1bO", "\t"};
   edit({"counters show \xe6\xbc\xa2"}, std::vector<Words>(100000, {"ab\xc3\xbc", "ab\xc3\xb6"}));
   for (int line = 0; line < 100; ++line) {
      String typed;
      for (int i = 0; i < 100; ++i) {
         const char byte = static_cast<char>(32 + random.below(224));
         typed += random.oneIn(8) ? String(1, byte) : random.oneOf(keys);
      }
      const String result = lineOf(typed + "x"); // x ends any sequence that was begun
      ASSERT_FALSE(result.empty()) << testing::PrintToString(typed);
      ASSERT_EQ(ZelCtl::printable(result), result) << testing::PrintToString(typed);
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
   for (const mode_t mode :
        {S_IFREG | 0666U, S_IFIFO | 0600U}) { // others could write to it; would not be opened
      unlink(path.c_str());
      ASSERT_EQ(mknod(path.c_str(), mode & ~0777U, 0), 0);
      chmod(path.c_str(), mode & 0777U);
      History foreign(path);
      EXPECT_NE(foreign.problem(), "");
      foreign.add("kept for now");
      struct stat untouched {};
      ASSERT_EQ(stat(path.c_str(), &untouched), 0);
      EXPECT_EQ(untouched.st_mode, mode);
      EXPECT_EQ(untouched.st_size, 0);
   }
   History nowhere("/dev/null/history");
   nowhere.add("kept for now");
   EXPECT_EQ(nowhere.lines().size(), 1U);
}

} // namespace
