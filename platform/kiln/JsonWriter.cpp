// Places quotes, commas and line breaks.
#include "kiln/JsonWriter.h"

#include "kiln/Utf8.h"

#include <charconv>
#include <utility>

namespace Kiln {

namespace {

template <class Integer>
std::string_view digitsOf(Integer number, char (&digits)[24]) {
   const char* const end = std::to_chars(digits, digits + sizeof digits, number).ptr;
   return {digits, static_cast<std::size_t>(end - digits)};
}

// A code unit of UTF-16.
void appendEscape(String* to, char32_t unit) {
   constexpr std::string_view digits = "0123456789abcdef";
   *to += "\\u";
   for (const unsigned shift : {12U, 8U, 4U, 0U}) {
      *to += digits[unit >> shift & 0xfU];
   }
}

} // namespace

void JsonWriter::appendQuoted(String* to, std::string_view text) {
   *to += '"';
   for (std::size_t at = 0; at < text.size();) {
      const char c = text[at];
      const CodePoint one = codePointAt(text, at);
      at += one.length;
      if (c == '"' || c == '\\') {
         *to += '\\';
         *to += c;
      } else if (c >= 0x20 && c < 0x7f) {
         *to += c;
      } else if (one.value < 0x10000) {
         appendEscape(to, one.isValid ? one.value : static_cast<unsigned char>(c));
      } else { // in two halves, as JSON has it
         appendEscape(to, 0xd800 + (one.value - 0x10000) / 0x400);
         appendEscape(to, 0xdc00 + one.value % 0x400);
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
