// Quotes, commas and indents.
#include "JsonWriter.h"

#include <cstdio>

namespace ZelCtl {

Kiln::String JsonWriter::quotedString(std::string_view text) {
   Kiln::String quoted = "\"";
   for (const char c : text) {
      const auto byte = static_cast<unsigned char>(c);
      if (c == '"' || c == '\\') {
         quoted += '\\';
         quoted += c;
      } else if (byte >= 0x20 && byte < 0x7f) {
         quoted += c;
      } else {
         char escape[8];
         std::snprintf(escape, sizeof escape, "\\u%04x", byte);
         quoted += escape;
      }
   }
   return quoted + "\"";
}

void JsonWriter::startItem(std::string_view key) {
   text_ += isFirst_ ? "" : ",";
   text_ += depth_ == 0 ? "" : "\n" + Kiln::String(depth_ * 2, ' ');
   if (!key.empty()) {
      text_ += quotedString(key) + ": ";
   }
   isFirst_ = false;
}

void JsonWriter::begin(std::string_view key, char bracket) {
   startItem(key);
   text_ += bracket;
   ++depth_;
   isFirst_ = true;
}

void JsonWriter::end(char bracket) {
   --depth_;
   text_ += isFirst_ ? "" : "\n" + Kiln::String(depth_ * 2, ' ');
   text_ += bracket;
   text_ += depth_ == 0 ? "\n" : "";
   isFirst_ = false;
}

void JsonWriter::raw(std::string_view key, const Kiln::String& value) {
   startItem(key);
   text_ += value;
}

} // namespace ZelCtl
