// Widths by blocks of characters.
#include "apps/zelctl/terminal/Utf8.h"

#include <algorithm>
#include <array>
#include <cctype>
#include <cstdlib>
#include <unistd.h>

namespace ZelCtl {

using Kiln::codePointAt;

namespace {

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

unsigned columnsOf(char32_t value) {
   for (const Range& range : ranges) {
      if (value >= range.first && value <= range.last) {
         return range.columns;
      }
   }
   return 1;
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

bool showsUtf8() {
   // The first that is set decides.
   const char* locale = nullptr;
   for (const char* const name : {"LC_ALL", "LC_CTYPE", "LANG"}) {
      if (locale == nullptr || *locale == '\0') {
         locale = std::getenv(name);
      }
   }
   Kiln::String charset = locale == nullptr ? "" : locale;
   std::ranges::transform(charset, charset.begin(), [](unsigned char one) { return std::toupper(one); });
   if (charset.find("UTF-8") == Kiln::String::npos && charset.find("UTF8") == Kiln::String::npos) {
      return false;
   }
   constexpr std::array poor{"linux", "dumb", "vt100", "vt102", "vt220"};
   const char* const terminal = std::getenv("TERM");
   return isatty(STDOUT_FILENO) == 0 ||
          (terminal != nullptr && std::ranges::find(poor, std::string_view(terminal)) == poor.end());
}

} // namespace ZelCtl
