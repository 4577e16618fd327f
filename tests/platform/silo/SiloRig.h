// The rig of the tests of shared tables: records that show whether they are whole, and a temporary folder.
#pragma once

#include "silo/Table.h"
#include "silo/TableReader.h"
#include "tests/support/ChildProcess.h"
#include "tests/support/Files.h"
#include "tests/support/Slowdown.h"
#include "tests/support/TemporaryFolder.h"

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <gmock/gmock.h>
#include <string>
#include <vector>

namespace ZelTest {

// A record that follows from one number, so that a mixture of two is noticed. Its size is not a multiple of a word's.
template <std::size_t size>
struct Pattern {
   static constexpr std::string_view layoutName = "Pattern";
   static constexpr std::uint32_t layoutVersion = 1;

   Pattern() : Pattern(0) {}
   explicit Pattern(std::uint64_t number) {
      for (std::size_t i = 0; i < size; i += sizeof number) {
         std::uint64_t word = number * (i + 1); // the first word is the number itself
         std::memcpy(bytes + i, &word, std::min(size - i, sizeof word));
      }
   }
   std::uint64_t number() const {
      std::uint64_t result = 0;
      std::memcpy(&result, bytes, sizeof result);
      return result;
   }
   bool operator==(const Pattern&) const = default;
   bool isWhole() const { return *this == Pattern(number()); }

   std::uint8_t bytes[size];
};
using Small = Pattern<45>;
using Large = Pattern<701>; // about the size of an interface's record

// A temporary folder of tables, and the corruptions that they reported.
class SiloRig : public ::testing::Test {
 protected:
   Silo::TableOptions options(std::size_t capacity = 4) {
      return {capacity, 2.0, Silo::ClockDomain::monotonic(),
              [this](const Silo::Corruption& corruption) { corruptions_.push_back(corruption); }, false};
   }

   std::string fileOf(const std::string& table) const { return folder_.path() + "/" + table; }
   // The record slot's offset in the table's file. A writer fills slots from the first one on.
   template <class Record>
   static std::size_t slotOffset(std::size_t slot) {
      return Silo::TableGeometry(Silo::layoutOf<Record>()).sizeFor(slot);
   }

   const TemporaryFolder folder_;
   const Silo::Store store_ = Silo::Store::directory(folder_.path());
   std::vector<Silo::Corruption> corruptions_;
};

inline constexpr std::size_t payloadOffset = sizeof(Silo::RecordSlot);

} // namespace ZelTest
