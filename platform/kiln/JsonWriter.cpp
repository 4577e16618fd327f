// Places quotes, commas and line breaks.
#include "kiln/JsonWriter.h"

#include <charconv>
#include <cstdio>
#include <utility>

namespace Kiln {

namespace {

template <class Integer>
std::string_view digitsOf(Integer number, char (&digits)[24]) {
   const char* const end = std::to_chars(digits, digits + sizeof digits, number).ptr;
   return {digits, static_cast<std::size_t>(end - digits)};
}

} // namespace

void JsonWriter::appendQuoted(String* to, std::string_view text) {
   *to += '"';
   for (const char c : text) {
      const auto byte = static_cast<unsigned char>(c);
      if (c == '"' || c == '\\') {
         *to += '\\';
         *to += c;
      } else if (byte >= 0x20 && byte < 0x7f) {
         *to += c;
      } else {
         char escape[8];
         std::snprintf(escape, sizeof escape, "\\u%04x", byte);
         *to += escape;
      }
   }
   *to += '"';
}

String JsonWriter::quotedString(std::string_view text) {
   String quoted;
   appendQuoted(&quoted, text);
   return quoted;
}

void JsonWriter::lineBreak() {
   if (style_ == Style::indented) {
      text_ += '\n';
      text_.append(depth_ * 2, ' ');
   } else if (std::exchange(isLineDue_, false)) {
      text_ += '\n';
   }
}

void JsonWriter::startItem(std::string_view key) {
   if (!isFirst_) {
      text_ += ',';
   }
   if (depth_ != 0) {
      lineBreak();
   }
   if (!key.empty()) {
      appendQuoted(&text_, key);
      text_ += style_ == Style::indented ? ": " : ":";
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
   if (!isFirst_) {
      lineBreak();
   }
   text_ += bracket;
   if (depth_ == 0) {
      text_ += '\n';
   }
   isFirst_ = false;
}

void JsonWriter::value(std::string_view key, U64 number) {
   char digits[24];
   raw(key, digitsOf(number, digits));
}

void JsonWriter::value(std::string_view key, S64 number) {
   char digits[24];
   raw(key, digitsOf(number, digits));
}

void JsonWriter::value(std::string_view key, std::string_view text) {
   startItem(key);
   appendQuoted(&text_, text);
}

void JsonWriter::raw(std::string_view key, std::string_view value) {
   startItem(key);
   text_ += value;
}

} // namespace Kiln
