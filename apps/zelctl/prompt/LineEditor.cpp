// Keys, and what they do to the line.
#include "apps/zelctl/prompt/LineEditor.h"

#include "apps/zelctl/terminal/Utf8.h"

#include <algorithm>
#include <utility>

namespace ZelCtl {

namespace {

using Kiln::String;

constexpr char escapeKey = 0x1b;
constexpr char deleteKey = 0x7f;

constexpr char control(char letter) {
   return static_cast<char>(letter - '@');
}

std::size_t columnsAt(const String& text, std::size_t at) {
   return columnsOf(codePointAt(text, at).value);
}

std::size_t columnsBetween(const String& text, std::size_t begin, std::size_t end) {
   return begin < end ? columnsIn(std::string_view(text).substr(begin, end - begin)) : 0;
}

} // namespace

void LineEditor::clear() {
   line_.clear();
   typed_.clear();
   cursor_ = 0;
   shownFrom_ = 0;
   recalled_ = history_.lines().size();
}

LineEditor::Event LineEditor::take(char byte) {
   const bool isControlKey = static_cast<unsigned char>(byte) < 0x20 || byte == deleteKey;
   // A sequence that was broken off swallows nothing but itself.
   if (isControlKey) {
      pending_.clear();
      state_ = byte == escapeKey ? State::escape : State::text;
      return byte == escapeKey ? Event::none : takeControl(byte);
   }
   switch (state_) {
   case State::text:
      return takeText(byte);
   case State::escape:
      state_ = byte == '[' ? State::sequence : byte == 'O' ? State::shift : State::text;
      return Event::none;
   case State::sequence:
      return takeSequence(byte);
   case State::shift:
      break;
   }
   state_ = State::text;
   return arrow(byte);
}

LineEditor::Event LineEditor::takeText(char byte) {
   constexpr std::size_t longest = 4;
   pending_ += byte;
   // What isn't valid yet may become so; what can't any more is dropped.
   const CodePoint one = codePointAt(pending_, 0);
   if (!one.isValid && pending_.size() < longest && (static_cast<unsigned char>(pending_[0]) >= 0xc2)) {
      return Event::none;
   }
   const String text = std::exchange(pending_, {});
   return one.isValid && !isControl(one.value) ? insert(text) : Event::refused;
}

LineEditor::Event LineEditor::takeControl(char byte) {
   switch (byte) {
   case '\r':
   case '\n':
      return Event::entered;
   case '\t':
      return Event::tab;
   case control('C'):
      return Event::abandoned;
   case control('D'):
      return line_.empty() ? Event::ended : erase(cursor_, right());
   case control('H'):
   case deleteKey:
      return erase(left(), cursor_);
   case control('A'):
      return moveTo(0);
   case control('E'):
      return moveTo(line_.size());
   case control('B'):
      return moveTo(left());
   case control('F'):
      return moveTo(right());
   case control('K'):
      return erase(cursor_, line_.size());
   case control('U'):
      return erase(0, cursor_);
   case control('W'):
      return erase(wordStart(), cursor_);
   case control('P'):
      return recall(true);
   case control('N'):
      return recall(false);
   case control('L'):
      return Event::clearScreen;
   case control('Z'):
      return Event::suspend;
   default:
      return Event::none;
   }
}

// After ESC [ : parameters, then the byte that says what it was.
LineEditor::Event LineEditor::takeSequence(char byte) {
   if (byte < '@') {
      pending_ += byte;
      return Event::none;
   }
   state_ = State::text;
   const String parameters = std::exchange(pending_, {});
   if (byte != '~') {
      return arrow(byte);
   }
   if (parameters == "1" || parameters == "7") {
      return moveTo(0);
   }
   if (parameters == "4" || parameters == "8") {
      return moveTo(line_.size());
   }
   return parameters == "3" ? erase(cursor_, right()) : Event::none;
}

LineEditor::Event LineEditor::arrow(char key) {
   switch (key) {
   case 'A':
      return recall(true);
   case 'B':
      return recall(false);
   case 'C':
      return moveTo(right());
   case 'D':
      return moveTo(left());
   case 'H':
      return moveTo(0);
   case 'F':
      return moveTo(line_.size());
   default:
      return Event::none;
   }
}

LineEditor::Event LineEditor::insert(const String& text) {
   if (line_.size() + text.size() > limit) {
      return Event::refused;
   }
   line_.insert(cursor_, text);
   cursor_ += text.size();
   return Event::changed;
}

LineEditor::Event LineEditor::erase(std::size_t begin, std::size_t end) {
   if (begin == end) {
      return Event::refused;
   }
   line_.erase(begin, end - begin);
   cursor_ = begin;
   return Event::changed;
}

LineEditor::Event LineEditor::moveTo(std::size_t place) {
   if (place == cursor_) {
      return Event::refused;
   }
   cursor_ = place;
   return Event::changed;
}

LineEditor::Event LineEditor::recall(bool isOlder) {
   const std::vector<String>& lines = history_.lines();
   if (isOlder ? recalled_ == 0 : recalled_ >= lines.size()) {
      return Event::refused;
   }
   if (recalled_ == lines.size()) {
      typed_ = line_;
   }
   recalled_ = isOlder ? recalled_ - 1 : recalled_ + 1;
   line_ = recalled_ == lines.size() ? typed_ : lines[recalled_].substr(0, limit);
   cursor_ = line_.size();
   shownFrom_ = 0;
   return Event::changed;
}

// A character with the accents that join it.
std::size_t LineEditor::left() const {
   std::size_t at = cursor_;
   while (at > 0) {
      at = codePointBefore(line_, at);
      if (columnsAt(line_, at) != 0) {
         break;
      }
   }
   return at;
}

std::size_t LineEditor::right() const {
   std::size_t at = cursor_;
   while (at < line_.size()) {
      at += codePointAt(line_, at).length;
      if (at == line_.size() || columnsAt(line_, at) != 0) {
         break;
      }
   }
   return at;
}

std::size_t LineEditor::wordStart() const {
   std::size_t at = cursor_;
   while (at > 0 && line_[at - 1] == ' ') {
      --at;
   }
   while (at > 0 && line_[at - 1] != ' ') {
      --at;
   }
   return at;
}

bool LineEditor::complete(const std::vector<String>& candidates) {
   if (candidates.empty()) {
      return false;
   }
   String common = candidates.front();
   for (const String& one : candidates) {
      const auto differs = std::mismatch(common.begin(), common.end(), one.begin(), one.end());
      common.erase(differs.first, common.end());
   }
   const std::size_t begin = cursor_ > 0 && line_[cursor_ - 1] != ' ' ? wordStart() : cursor_;
   const std::size_t known = cursor_ - begin;
   if (common.compare(0, known, line_, begin, known) != 0) {
      return false;
   }
   common.erase(0, known);
   // A character that two candidates share the first byte of only.
   while (!common.empty() && printable(common) != common) {
      common.pop_back();
   }
   if (candidates.size() == 1 && (cursor_ == line_.size() || line_[cursor_] != ' ')) {
      common += ' ';
   }
   return !common.empty() && insert(common) == Event::changed;
}

// Moves the beginning of the picture as little as shows the cursor.
void LineEditor::scroll(std::size_t room) {
   shownFrom_ = std::min(shownFrom_, line_.size());
   if (cursor_ <= shownFrom_) {
      // A half before it, so that one sees where one goes.
      shownFrom_ = cursor_;
      while (shownFrom_ > 0 && columnsBetween(line_, shownFrom_, cursor_) < room / 2) {
         shownFrom_ = codePointBefore(line_, shownFrom_);
      }
   }
   while (columnsBetween(line_, shownFrom_, cursor_) + 1 > room) {
      shownFrom_ += codePointAt(line_, shownFrom_).length;
   }
}

String LineEditor::picture(const String& prompt, std::size_t width) {
   constexpr std::size_t leastRoom = 4;
   // The last column stays free: a terminal that is written to there may go on to the next line.
   const std::size_t taken = prompt.size() + 1;
   const std::size_t room = width > taken + leastRoom ? width - taken : leastRoom;
   scroll(room);
   String text = "\r" + prompt;
   std::size_t column = 0;
   std::size_t at = shownFrom_;
   for (; at < line_.size(); at += codePointAt(line_, at).length) {
      const std::size_t columns = columnsAt(line_, at);
      const bool isLast = at + codePointAt(line_, at).length == line_.size();
      if (column + columns + (isLast ? 0 : 1) > room) {
         text += '>';
         break;
      }
      const bool isCut = at == shownFrom_ && at > 0;
      text += isCut ? String(columns, '<') : line_.substr(at, codePointAt(line_, at).length);
      column += columns;
   }
   const std::size_t place = prompt.size() + columnsBetween(line_, shownFrom_, cursor_);
   return text + "\x1b[K\r" + (place > 0 ? "\x1b[" + std::to_string(place) + "C" : "");
}

} // namespace ZelCtl
