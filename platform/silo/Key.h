// The key of a record: a short text in fixed storage, with its hash.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

namespace Silo {

// A key is 1 to 63 printable ASCII characters; anything else throws std::invalid_argument. Making one costs a copy and
// a hash, so a caller that writes the same record again and again should keep its key.
class Key {
 public:
   static constexpr std::size_t maxLength = 63;
   using Words = std::array<std::uint64_t, 8>; // the text, filled up with at least one NUL

   Key() = default; // no key: empty, equal to no record's key
   Key(std::string_view text);
   Key(const char* text) : Key(std::string_view{text}) {}
   Key(const std::string& text) : Key(std::string_view{text}) {}

   // A key as found in shared memory, unchecked: isValid() tells whether it is one.
   explicit Key(const Words& words) : words_(words), hash_(hashOf(words)) {}

   // The text, valid as long as the key. For an invalid key, whatever stands before the first NUL.
   std::string_view view() const;
   bool isValid() const;
   bool isEmpty() const {
      std::uint64_t any = 0; // cheaper than a comparison: tables look through all of their slots' keys
      for (const std::uint64_t word : words_) {
         any |= word;
      }
      return any == 0;
   }
   const Words& words() const { return words_; }
   std::uint64_t hash() const { return hash_; }

   bool operator==(const Key& other) const { return hash_ == other.hash_ && words_ == other.words_; }

 private:
   static std::uint64_t hashOf(const Words& words);

   Words words_{};
   std::uint64_t hash_ = 0;
};

} // namespace Silo
