// JSON text, written as it is told.
#pragma once

#include "kiln/Types.h"

#include <string_view>

namespace ZelCtl {

// Objects and lists nest as they are begun and ended. Within an object each value has a key, which is empty
// within a list. Strings may hold any bytes: what is not ASCII is written as the code point of the byte.
class JsonWriter {
 public:
   void begin(std::string_view key, char bracket); // '{' or '['
   void end(char bracket);
   void value(std::string_view key, U64 number) { raw(key, std::to_string(number)); }
   void value(std::string_view key, S64 number) { raw(key, std::to_string(number)); }
   void value(std::string_view key, bool truth) { raw(key, truth ? "true" : "false"); }
   void value(std::string_view key, std::string_view text) { raw(key, quotedString(text)); }
   void null(std::string_view key) { raw(key, "null"); }

   const Kiln::String& text() const { return text_; }
   static Kiln::String quotedString(std::string_view text);

 private:
   void raw(std::string_view key, const Kiln::String& value);
   void startItem(std::string_view key);

   Kiln::String text_;
   std::size_t depth_ = 0;
   bool isFirst_ = true;
};

} // namespace ZelCtl
