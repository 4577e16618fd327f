// JSON text, written as it is told.
#pragma once

#include "kiln/Types.h"

#include <string_view>

namespace Kiln {

// Objects and lists nest as they are begun and ended. Within an object each value has a key, which is empty
// within a list. Strings may hold any bytes: what is not ASCII is written as the code point of the byte. A
// document ends with a newline.
class JsonWriter {
 public:
   enum class Style : U8 {
      indented, // an item a line
      compact,  // no blanks, and a new line only where newLine() asks for it
   };

   explicit JsonWriter(Style style = Style::indented) : style_(style) {}

   void begin(std::string_view key, char bracket); // '{' or '['
   void end(char bracket);
   void value(std::string_view key, U64 number);
   void value(std::string_view key, S64 number);
   void value(std::string_view key, bool truth) { raw(key, truth ? "true" : "false"); }
   void value(std::string_view key, std::string_view text);
   void null(std::string_view key) { raw(key, "null"); }
   // The next item begins a line.
   void newLine() { isLineDue_ = true; }

   const String& text() const { return text_; }
   // Forgets what was taken by now, for a document that is too large to keep.
   void textDel() { text_.clear(); }
   static String quotedString(std::string_view text);

 private:
   void raw(std::string_view key, std::string_view value);
   void startItem(std::string_view key);
   void lineBreak();
   static void appendQuoted(String* to, std::string_view text);

   Style style_;
   String text_;
   std::size_t depth_ = 0;
   bool isFirst_ = true;
   bool isLineDue_ = false;
};

} // namespace Kiln
