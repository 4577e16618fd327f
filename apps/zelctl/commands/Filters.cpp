// Splits a line at its filters, and applies them.
#include "apps/zelctl/commands/Filters.h"

#include "kiln/Choices.h"

#include <algorithm>
#include <array>
#include <stdexcept>

namespace ZelCtl {

namespace {

using Kiln::String;

constexpr std::string_view blanks = " \t\r";
constexpr std::array<std::string_view, 3> names{"include", "exclude", "count"};

std::string_view trimmed(std::string_view text) {
   text.remove_prefix(std::min(text.find_first_not_of(blanks), text.size()));
   return text.substr(0, text.find_last_not_of(blanks) + 1);
}

// Where the next word that begins with '|' begins; the end if there is none.
std::size_t nextFilter(std::string_view text) {
   for (std::size_t at = text.find('|'); at != std::string_view::npos; at = text.find('|', at + 1)) {
      if (at == 0 || blanks.find(text[at - 1]) != std::string_view::npos) {
         return at;
      }
   }
   return text.size();
}

Filter filterOf(std::string_view words) {
   const std::string_view name = words.substr(0, words.find_first_of(blanks));
   const String text(trimmed(words.substr(name.size())));
   std::size_t meant = 0;
   while (meant < names.size() && (name.empty() || !names[meant].starts_with(name))) {
      ++meant;
   }
   if (meant == names.size()) {
      throw std::runtime_error((name.empty() ? "nothing" : "unknown " + Kiln::quoted(name)) +
                               " after '|': expected include TEXT, exclude TEXT or count");
   }
   const auto kind = static_cast<Filter::Kind>(meant);
   if (text.empty() != (kind == Filter::Kind::count)) {
      throw std::runtime_error(
           text.empty()
                ? String(names[meant]) + " needs a text: expected | " + String(names[meant]) + " TEXT"
                : "unexpected " + Kiln::quoted(text) + " after count: expected nothing, or another |");
   }
   return {kind, text};
}

template <class IsKept>
String linesThat(const String& text, IsKept isKept) {
   String kept;
   for (std::size_t begin = 0; begin < text.size();) {
      const std::size_t end = std::min(text.find('\n', begin), text.size() - 1) + 1;
      const std::string_view line = std::string_view(text).substr(begin, end - begin);
      if (isKept(line)) {
         kept += line;
      }
      begin = end;
   }
   return kept;
}

// "Zel0, Ethernet3: as of 54 s ago: HW access fails", or that an agent does not run or publish; not within JSON.
bool isNoteOfAge(std::string_view line) {
   const auto has = [&](std::string_view text) { return line.find(text) != std::string_view::npos; };
   return line.find_first_of(" {\"") != 0 &&
          (has(": as of ") || has(": never read: ") || line.starts_with("No agent is running") ||
           line.starts_with("An agent is running"));
}

} // namespace

std::vector<String> filterNames() {
   return {names.begin(), names.end()};
}

FilteredLine splitFilters(const String& line) {
   const std::string_view all = line;
   std::size_t at = nextFilter(all);
   FilteredLine split{String(trimmed(all.substr(0, at))), {}};
   while (at < all.size()) {
      const std::string_view rest = all.substr(at + 1);
      const std::size_t length = nextFilter(rest);
      split.filters.push_back(filterOf(trimmed(rest.substr(0, length))));
      at += 1 + length;
   }
   return split;
}

FilteredText filtered(const std::vector<Filter>& filters, String text) {
   if (filters.empty()) {
      return {std::move(text), ""};
   }
   const String notes = linesThat(text, isNoteOfAge);
   text = linesThat(text, [](std::string_view line) { return !isNoteOfAge(line); });
   for (const Filter& filter : filters) {
      const bool isWanted = filter.kind == Filter::Kind::include;
      text = filter.kind == Filter::Kind::count
                  ? Kiln::counted(static_cast<U64>(std::ranges::count(text, '\n')), "line") + "\n"
                  : linesThat(text, [&](std::string_view line) {
                       return (line.find(filter.text) != std::string_view::npos) == isWanted;
                    });
   }
   return {std::move(text), notes};
}

} // namespace ZelCtl
