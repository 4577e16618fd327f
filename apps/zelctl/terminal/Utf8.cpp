// Decoding of UTF-8, and widths by blocks of characters.
#include "apps/zelctl/terminal/Utf8.h"

#include <array>

namespace ZelCtl {

namespace {

struct CodePoint {
   char32_t value = 0;
   std::size_t length = 1; // bytes
   bool isValid = false;   // complete, not overlong, not a surrogate
};

struct Range {
   char32_t first;
   char32_t last;
   unsigned columns;
};

// Whole blocks, not single characters: exact enough to align columns. A character outside of them takes one column.
constexpr std::array ranges{
     Range{0x0300, 0x036f, 0},   Range{0x1100, 0x115f, 2},   Range{0x200b, 0x200f, 0},
     Range{0x20d0, 0x20ff, 0},   Range{0x2e80, 0xa4cf, 2},   Range{0xac00, 0xd7a3, 2},
     Range{0xf900, 0xfaff, 2},   Range{0xfe00, 0xfe0f, 0},   Range{0xfe30, 0xfe6f, 2},
     Range{0xff00, 0xff60, 2},   Range{0xffe0, 0xffe6, 2},   Range{0x1f300, 0x1f64f, 2},
     Range{0x1f900, 0x1f9ff, 2}, Range{0x20000, 0x3fffd, 2},
};

// 0 for a byte that begins no character: 0xc0 and 0xc1 would be overlong, 0xf5 and above are beyond Unicode.
std::size_t lengthByLead(unsigned char lead) {
   return lead < 0x80 ? 1 : lead < 0xc2 ? 0 : lead < 0xe0 ? 2 : lead < 0xf0 ? 3 : lead < 0xf5 ? 4 : 0;
}

bool isContinuation(char byte) {
   return (static_cast<unsigned char>(byte) & 0xc0U) == 0x80;
}

// The code point that begins at `at`, which must be within the text. An invalid one is one byte long, so that
// decoding goes on with the next byte.
CodePoint codePointAt(std::string_view text, std::size_t at) {
   const auto lead = static_cast<unsigned char>(text[at]);
   const std::size_t length = lengthByLead(lead);
   if (length == 0 || at + length > text.size()) {
      return {};
   }
   char32_t value = length == 1 ? lead : lead & (0x7fU >> length);
   for (std::size_t i = 1; i < length; ++i) {
      if (!isContinuation(text[at + i])) {
         return {};
      }
      value = value << 6U | (static_cast<unsigned char>(text[at + i]) & 0x3fU);
   }
   const bool isOverlong = (length == 3 && value < 0x800) || (length == 4 && value < 0x10000);
   if (isOverlong || (value >= 0xd800 && value < 0xe000) || value > 0x10ffff) {
      return {};
   }
   return {value, length, true};
}

unsigned columnsOf(char32_t value) {
   for (const Range& range : ranges) {
      if (value >= range.first && value <= range.last) {
         return range.columns;
      }
   }
   return 1;
}

bool isControl(char32_t value) {
   return value < 0x20 || (value >= 0x7f && value < 0xa0);
}

} // namespace

std::size_t columnsIn(std::string_view text) {
   std::size_t columns = 0;
   for (std::size_t at = 0; at < text.size(); at += codePointAt(text, at).length) {
      columns += columnsOf(codePointAt(text, at).value);
   }
   return columns;
}

Kiln::String cutTo(std::string_view text, std::size_t columns) {
   std::size_t at = 0;
   for (std::size_t used = 0; at < text.size(); at += codePointAt(text, at).length) {
      used += columnsOf(codePointAt(text, at).value);
      if (used > columns) {
         break;
      }
   }
   return Kiln::String(text.substr(0, at));
}

std::vector<Kiln::String> wrapped(std::string_view text, std::size_t columns) {
   std::vector<Kiln::String> lines{""};
   for (bool isFirst = true; isFirst || !text.empty(); isFirst = false) {
      const std::string_view word = text.substr(0, text.find(' ', text.find_first_not_of(' ')));
      const bool fits = columns == 0 || columnsIn(lines.back()) + columnsIn(word) <= columns;
      if (fits || lines.back().empty()) {
         lines.back() += word;
      } else {
         lines.emplace_back(word.substr(std::min(word.find_first_not_of(' '), word.size())));
      }
      text.remove_prefix(word.size());
   }
   return lines;
}

Kiln::String printable(std::string_view text) {
   Kiln::String shown;
   for (std::size_t at = 0; at < text.size();) {
      const CodePoint one = codePointAt(text, at);
      if (one.isValid && !isControl(one.value)) {
         shown += text.substr(at, one.length);
      } else {
         shown += '?';
      }
      at += one.length;
   }
   return shown;
}

} // namespace ZelCtl
