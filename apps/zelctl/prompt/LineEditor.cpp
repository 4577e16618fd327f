// How libedit is set up, and what it leaves to its user: waiting for keys and signals at once, and completion.
#include "apps/zelctl/prompt/LineEditor.h"

#include "apps/zelctl/terminal/Terminal.h"
#include "apps/zelctl/terminal/Utf8.h"

#include <algorithm>
#include <cerrno>
#include <clocale>
#include <csignal>
#include <cstdio>
#include <histedit.h>
#include <stdexcept>
#include <unistd.h>
#include <utility>

namespace ZelCtl {

namespace {

using Kiln::String;

constexpr wchar_t controlC = 3;
constexpr wchar_t controlE = 5; // to the end of the line

void put(const String& text) {
   writeOut(text, nullptr);
}

// Draws prompt and line again at the cursor, after other text was written there.
void drawAnew(EditLine* line) {
   el_set(line, EL_REFRESH);
}

// Arrows, Home, Delete and their like arrive as ESC, '[' or 'O', parameters, and a last byte that names the key.
// libedit matches whole sequences only, and inserts the rest of an unknown one as if it had been typed. Shift, Alt
// and Ctrl are in the parameters; they are ignored, so that an arrow means the same with them.
unsigned char takeSequence(EditLine* line, int /*key*/) {
   constexpr std::pair<std::string_view, const wchar_t*> meanings[] = {
        {"A", L"\x10"}, {"B", L"\x0e"},  {"C", L"\x06"},  {"D", L"\x02"},  // Ctrl-P, Ctrl-N, Ctrl-F, Ctrl-B
        {"H", L"\x01"}, {"1~", L"\x01"}, {"7~", L"\x01"},                  // Ctrl-A
        {"F", L"\x05"}, {"4~", L"\x05"}, {"8~", L"\x05"}, {"3~", L"\x04"}, // Ctrl-E, Ctrl-D
   };
   String name;
   wchar_t key = 0;
   while (el_wgetc(line, &key) == 1 && key >= L'0' && key <= L'?') {
      name += static_cast<char>(key);
   }
   if (key < L' ') { // a control key cut the sequence short, and keeps its own meaning
      el_wpush(line, std::wstring{key}.c_str());
      return CC_NORM;
   }
   name = key == L'~' ? name + '~' : String(1, static_cast<char>(key));
   const LineInfoW* const shown = el_wline(line);
   // Delete is sent on as Ctrl-D, which on an empty line would end the session.
   const bool isAtEnd = shown->cursor == shown->lastchar;
   const auto* const found =
        std::ranges::find(meanings, name, &std::pair<std::string_view, const wchar_t*>::first);
   if (found != std::end(meanings) && !(name == "3~" && isAtEnd)) {
      el_wpush(line, found->second);
   }
   return CC_NORM;
}

// As many of the words as fit into half the screen, in columns.
String inColumns(const std::vector<String>& words) {
   const TerminalSize size = terminalSize();
   std::size_t widest = 0;
   for (const String& word : words) {
      widest = std::max(widest, word.size() + 2);
   }
   const std::size_t columns = std::max<std::size_t>(1, size.width / widest);
   const std::size_t fit = columns * std::max<std::size_t>(1, size.height / 2);
   String text;
   for (std::size_t i = 0; i < words.size() && i < fit; ++i) {
      const bool endsRow = (i + 1) % columns == 0 || i + 1 == words.size() || i + 1 == fit;
      text += words[i] + (endsRow ? "\n" : String(widest - words[i].size(), ' '));
   }
   return text + (words.size() > fit ? "and " + std::to_string(words.size() - fit) + " more\n" : "");
}

// All candidates begin with `known`. Returns what else they have in common; after a single candidate, a blank too.
String commonRest(const std::vector<String>& candidates, std::string_view known, bool isBlankNext) {
   if (candidates.empty() || !candidates.front().starts_with(known)) {
      return "";
   }
   String common = candidates.front();
   for (const String& one : candidates) {
      common.erase(std::ranges::mismatch(common, one).in1, common.end());
   }
   common.erase(0, known.size());
   // Two candidates may share only the first bytes of a character.
   while (!common.empty() && printable(common) != common) {
      common.pop_back();
   }
   return common + (candidates.size() == 1 && !isBlankNext ? " " : "");
}

} // namespace

LineEditor::LineEditor(String prompt, Signals* signals, History* history, Candidates candidates)
     : prompt_(std::move(prompt)), signals_(signals), candidates_(std::move(candidates)) {
   // libedit asks the locale what a character is and how wide. In the user's own, it may know ASCII only.
   std::setlocale(LC_CTYPE, "C.UTF-8");
   line_ = el_init("zelctl", stdin, stdout, stderr);
   if (line_ == nullptr) {
      throw std::runtime_error("this terminal does not support line editing");
   }
   el_set(line_, EL_CLIENTDATA, this);
   const auto promptOf = [](EditLine* line) { return of(line).prompt_.data(); };
   const auto keyOf = [](EditLine* line, wchar_t* key) { return of(line).readKey(key); };
   el_set(line_, EL_PROMPT, +promptOf);
   el_wset(line_, EL_GETCFN, +keyOf);
   el_set(line_, EL_HIST, ::history, history->list());
   // Ctrl-C is a key like any other (-isig), so that it takes effect after the keys typed before it; and Ctrl-S
   // does not stop the output (-ixon).
   el_set(line_, EL_SETTY, "-d", "-isig", "-ixon", nullptr);
   bindKeys();
}

LineEditor::~LineEditor() {
   el_end(line_);
}

LineEditor& LineEditor::of(editline* line) {
   void* self = nullptr;
   el_get(line, EL_CLIENTDATA, &self);
   return *static_cast<LineEditor*>(self);
}

void LineEditor::bindKeys() {
   el_set(line_, EL_EDITOR, "emacs");
   const auto bind = [this](const char* key, const char* command) {
      el_set(line_, EL_BIND, key, command, nullptr);
   };
   const auto add = [this](const char* command, unsigned char (*function)(EditLine*, int)) {
      el_set(line_, EL_ADDFN, command, command, function);
   };
   add("zel-complete", [](EditLine* line, int) { return of(line).complete(); });
   add("zel-drop", [](EditLine* line, int) { return of(line).drop(); });
   add("zel-suspend", [](EditLine* line, int) { return of(line).suspend(); });
   add("zel-sequence", takeSequence);
   bind("^I", "zel-complete");
   bind("^C", "zel-drop");
   bind("^Z", "zel-suspend");
   bind("\\e[", "zel-sequence");
   bind("\\eO", "zel-sequence");
   bind("\\e\\e[", "zel-sequence"); // an arrow after a lone ESC, or with Alt on some terminals
   bind("^U", "vi-kill-line-prev"); // as in the shell: up to the cursor, not the whole line
   bind("^W", "ed-delete-prev-word");
   // ^V would let control characters into the line; ESC x would open libedit's own command prompt.
   for (const char* const key : {"^V", "\\ex", "\\eX"}) {
      bind(key, "ed-unassigned");
   }
}

std::optional<String> LineEditor::readLine() {
   isDropped_ = false;
   // libedit itself would switch the terminal only after drawing the prompt; until then, a key that is typed at once
   // would be echoed, and Ctrl-C would be a signal.
   el_set(line_, EL_PREP_TERM, 1);
   int length = 0;
   const char* const text = el_gets(line_, &length);
   if (isDropped_) {
      return "";
   }
   if (text == nullptr) {
      put("\n"); // the shell's prompt begins its own line
      return std::nullopt;
   }
   String line(text, static_cast<std::size_t>(length));
   if (line.ends_with('\n')) {
      line.pop_back();
   }
   return line;
}

// Returns what libedit expects of this function: 1 for a key, 0 when there will be no more.
int LineEditor::readKey(wchar_t* key) {
   constexpr auto isInvalid = static_cast<std::size_t>(-1);
   constexpr auto isUnfinished = static_cast<std::size_t>(-2);
   // Signals first: one that came while a command ran may have been taken from the pipe already, and so would not
   // wake waitFor().
   while (signals_->ending() == 0) {
      if (signals_->takeInterrupt()) {
         *key = controlC;
         return 1;
      }
      if (signals_->takeResize()) {
         put("\r\x1b[J"); // the terminal may have wrapped the old line; libedit does not know
         el_resize(line_);
         drawAnew(line_);
      }
      const Woken woken = waitFor(signals_, true, -1);
      char byte = 0;
      const ssize_t got = woken.byKeys ? read(STDIN_FILENO, &byte, 1) : -1;
      const bool isGone = woken.byKeys && (got == 0 || (got < 0 && errno != EINTR && errno != EAGAIN));
      if (woken.readerGone || isGone) {
         return 0;
      }
      std::size_t length = got > 0 ? std::mbrtowc(key, &byte, 1, &unfinishedKey_) : isUnfinished;
      if (length == isInvalid) {
         el_beep(line_);
         unfinishedKey_ = {};
         length = std::mbrtowc(key, &byte, 1, &unfinishedKey_); // this byte may begin the next character
      }
      if (length == isInvalid) {
         unfinishedKey_ = {};
      } else if (length != isUnfinished) {
         return 1;
      }
   }
   return 0;
}

unsigned char LineEditor::complete() {
   const LineInfo* const shown = el_line(line_);
   const String before(shown->buffer, shown->cursor);
   const bool isBlankNext = shown->cursor != shown->lastchar && *shown->cursor == ' ';
   const std::vector<String> candidates = candidates_(before);
   const String rest = commonRest(candidates, before.substr(before.find_last_of(' ') + 1), isBlankNext);
   if (!rest.empty()) {
      return el_insertstr(line_, rest.c_str()) == 0 ? CC_REFRESH : CC_ERROR;
   }
   if (candidates.size() < 2) {
      return CC_ERROR;
   }
   put("\n\x1b[J");
   put(inColumns(candidates));
   drawAnew(line_);
   return CC_NORM;
}

unsigned char LineEditor::drop() {
   const LineInfoW* const shown = el_wline(line_);
   if (shown->cursor != shown->lastchar) { // first go to the end: "^C" belongs behind the line's last row
      el_wpush(line_, std::wstring{controlE, controlC}.c_str());
      return CC_NORM;
   }
   put("^C\n");
   isDropped_ = true;
   return CC_NEWLINE;
}

unsigned char LineEditor::suspend() {
   // With -isig Ctrl-Z sends no signal, so it is sent here, once the shell gets its terminal back as it was.
   el_set(line_, EL_PREP_TERM, 0);
   raise(SIGTSTP);
   el_set(line_, EL_PREP_TERM, 1);
   drawAnew(line_);
   return CC_NORM;
}

} // namespace ZelCtl
