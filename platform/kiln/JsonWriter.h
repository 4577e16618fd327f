// Writes JSON text; the caller sees to keys and nesting.
#pragma once

#include "kiln/Types.h"

#include <string_view>

namespace Kiln {

// Objects and lists nest as they are begun and ended. Each value within an object has a key; within a list the key is
// empty. Strings are UTF-8, but may hold any bytes: what is not printable ASCII is escaped, and a byte that is not UTF-8
// as the code point of its number. A document ends with a newline.
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
   // Drops the text so far, once the caller has written it: for a document that is too large to keep.
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
