// Interned text: a Name is a 32-bit number that compares, hashes and copies as an integer, and still knows
// its text. The same text always gives the same Name in one process. Texts are never forgotten: intern names
// of things (interfaces, chips, commands), not data.
#pragma once

#include "kiln/Types.h"

#include <functional>
#include <iosfwd>
#include <string_view>

namespace Kiln {

class Name {
 public:
   constexpr Name() noexcept = default; // the empty text
   Name(std::string_view text);
   Name(const String& text) : Name(std::string_view(text)) {}
   Name(const char* text) : Name(std::string_view(text)) {}
   // That of a text that is a name already, or the empty one: for what anybody may have typed. Any thread.
   static Name known(std::string_view text);

   // Valid for the life of the process. Any thread.
   const String& text() const noexcept;
   // 0 for the empty text, then numbers in the order of interning.
   U32 id() const noexcept { return entry_ != nullptr ? entry_->id : 0; }
   bool empty() const noexcept { return entry_ == nullptr; }
   // Differs from run to run: good for finding an element, not for ordering.
   std::size_t hash() const noexcept { return std::hash<const void*>()(entry_); }

   bool operator==(const Name&) const noexcept = default;

 private:
   struct Entry {
      String text;
      U32 id;
   };
   struct Table;

   static Table& table();

   const Entry* entry_ = nullptr;
};

// Orders text as people do: runs of digits compare as numbers, so that Ethernet2 comes before Ethernet10. Returns less
// than, equal to or greater than zero, and zero only for equal texts: those that differ only in leading zeros are
// ordered by length, then by character.
int naturalCompare(std::string_view a, std::string_view b) noexcept;

std::ostream& operator<<(std::ostream& out, const Name& name);

} // namespace Kiln

template <>
struct std::hash<Kiln::Name> {
   std::size_t operator()(const Kiln::Name& name) const noexcept { return name.hash(); }
};
