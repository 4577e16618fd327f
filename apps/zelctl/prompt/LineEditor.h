// A line as it is typed: keys in, as a terminal sends them; the line, its cursor and its picture out. Knows
// no terminal and waits for nothing.
#pragma once

#include "apps/zelctl/prompt/History.h"

namespace ZelCtl {

class LineEditor {
 public:
   enum class Event : U8 {
      none,
      changed, // the picture is another
      refused, // there is nothing that the key could do: ring the bell
      entered, // the line is complete; clear() begins the next
      abandoned,
      ended, // no more input is wanted
      tab,   // complete the word before the cursor, by `complete`
      clearScreen,
      suspend,
   };

   static constexpr std::size_t limit = 4095; // bytes: what a command may have

   // The history has to outlive the editor.
   explicit LineEditor(const History& history) : history_(history) { clear(); }

   Event take(char byte);

   const Kiln::String& line() const { return line_; }
   std::size_t cursor() const { return cursor_; } // in bytes, never within a character
   void clear();

   // Takes what the candidates have in common in place of the word before the cursor; all of them begin with
   // that word. A single one is followed by a blank. Returns whether the line changed.
   bool complete(const std::vector<Kiln::String>& candidates);

   // From the cursor's line start to its place after the line: the prompt and as much of the line as the
   // width has room for, around the cursor, with '<' or '>' where there is more.
   Kiln::String picture(const Kiln::String& prompt, std::size_t width);

 private:
   enum class State : U8 { text, escape, sequence, shift };

   Event takeText(char byte);
   Event takeControl(char byte);
   Event takeSequence(char byte);
   Event insert(const Kiln::String& text);
   Event erase(std::size_t begin, std::size_t end);
   Event moveTo(std::size_t place);
   Event recall(bool isOlder);
   Event arrow(char key);
   std::size_t left() const;
   std::size_t right() const;
   std::size_t wordStart() const;
   void scroll(std::size_t room);

   const History& history_;
   Kiln::String line_;
   std::size_t cursor_ = 0;
   std::size_t shownFrom_ = 0; // the byte at which the picture begins
   std::size_t recalled_ = 0;  // index into the history; its size for the line being typed
   Kiln::String typed_;        // that line, while another is recalled
   State state_ = State::text;
   Kiln::String pending_; // of a character or of an escape sequence
};

} // namespace ZelCtl
