// Decoding and widths.
#include "apps/zelctl/terminal/Utf8.h"

#include <array>

namespace ZelCtl {

namespace {

struct CodePoint {
   char32_t value = 0;
   std::size_t length = 1; // bytes
   bool isValid = false;   // not cut short, not overlong, no surrogate
};

struct Range {
   char32_t first;
   char32_t last;
   unsigned columns;
};

// Blocks, not single characters: near enough to align columns.
constexpr std::array ranges{
     Range{0x0300, 0x036f, 0},   Range{0x1100, 0x115f, 2},   Range{0x200b, 0x200f, 0},
     Range{0x20d0, 0x20ff, 0},   Range{0x2e80, 0xa4cf, 2},   Range{0xac00, 0xd7a3, 2},
     Range{0xf900, 0xfaff, 2},   Range{0xfe00, 0xfe0f, 0},   Range{0xfe30, 0xfe6f, 2},
     Range{0xff00, 0xff60, 2},   Range{0xffe0, 0xffe6, 2},   Range{0x1f300, 0x1f64f, 2},
     Range{0x1f900, 0x1f9ff, 2}, Range{0x20000, 0x3fffd, 2},
};

std::size_t lengthByLead(unsigned char lead) {
   return lead < 0x80 ? 1 : lead < 0xc2 ? 0 : lead < 0xe0 ? 2 : lead < 0xf0 ? 3 : lead < 0xf5 ? 4 : 0;
}

bool isContinuation(char byte) {
   return (static_cast<unsigned char>(byte) & 0xc0U) == 0x80;
}

// The one that begins at `at`, which is within the text. What is invalid is one byte long.
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
