// The table of interned texts behind Kiln::Name.
#include "kiln/Name.h"

#include <deque>
#include <mutex>
#include <ostream>
#include <shared_mutex>
#include <unordered_map>

namespace Kiln {

// A deque never moves its elements: names point to them, and the index's keys are views of their text.
struct Name::Table {
   std::shared_mutex mutex;
   std::deque<Entry> entries;
   std::unordered_map<std::string_view, const Entry*> index;
};

Name::Table& Name::table() {
   static auto* table = new Table; // never freed: names are used by static destructors too
   return *table;
}

Name Name::known(std::string_view text) {
   Name name;
   Table& all = table();
   const std::shared_lock lock(all.mutex);
   if (const auto found = all.index.find(text); found != all.index.end()) {
      name.entry_ = found->second;
   }
   return name;
}

// Nearly every text is known already, and then threads need not wait for each other.
Name::Name(std::string_view text) : Name(known(text)) {
   if (text.empty() || !empty()) {
      return;
   }
   Table& all = table();
   const std::unique_lock lock(all.mutex);
   // Once more: another thread may have added it between the two locks.
   if (const auto found = all.index.find(text); found != all.index.end()) {
      entry_ = found->second;
      return;
   }
   const Entry& made =
        all.entries.emplace_back(Entry{String(text), static_cast<U32>(all.entries.size() + 1)});
   all.index.emplace(made.text, &made);
   entry_ = &made;
}

const String& Name::text() const noexcept {
   static const String nothing;
   return entry_ != nullptr ? entry_->text : nothing;
}

namespace {

bool isDigit(char c) {
   return c >= '0' && c <= '9';
}

} // namespace

int naturalCompare(std::string_view a, std::string_view b) noexcept {
   std::size_t i = 0;
   std::size_t j = 0;
   while (i < a.size() && j < b.size()) {
      if (!isDigit(a[i]) || !isDigit(b[j])) {
         if (a[i] != b[j]) {
            return static_cast<unsigned char>(a[i]) < static_cast<unsigned char>(b[j]) ? -1 : 1;
         }
         ++i;
         ++j;
         continue;
      }
      const auto number = [](std::string_view s, std::size_t& at) {
         while (at < s.size() && s[at] == '0') {
            ++at;
         }
         const std::size_t begin = at;
         while (at < s.size() && isDigit(s[at])) {
            ++at;
         }
         return s.substr(begin, at - begin);
      };
      const std::string_view left = number(a, i);
      const std::string_view right = number(b, j);
      if (left.size() != right.size()) {
         return left.size() < right.size() ? -1 : 1;
      }
      if (const int order = left.compare(right); order != 0) {
         return order;
      }
   }
   if (i < a.size() || j < b.size()) {
      return i < a.size() ? 1 : -1;
   }
   if (a.size() != b.size()) {
      return a.size() < b.size() ? -1 : 1;
   }
   return a.compare(b);
}

std::ostream& operator<<(std::ostream& out, const Name& name) {
   return out << name.text();
}

} // namespace Kiln
