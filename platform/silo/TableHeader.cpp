// Writes and checks the header's identity and state.
#include "silo/TableHeader.h"

#include "silo/Journal.h"
#include "silo/RecordSlot.h"

#include <array>
#include <bit>
#include <cstring>
#include <limits>

namespace Silo {

namespace {

constexpr std::uint64_t magic = 0x454c'4241'544f'4c49; // "ILOTABLE" as it lies in memory

using LayoutName = std::array<std::uint64_t, 4>;

std::string describe(const std::string& name, std::uint64_t version, std::uint64_t size) {
   return "records \"" + name + "\" version " + std::to_string(version) + " of " + std::to_string(size) +
          " bytes";
}

template <std::size_t size>
std::uint64_t checksumOf(const std::array<std::uint64_t, size>& words) {
   Checksum<std::uint64_t> checksum;
   for (std::uint64_t word : words) {
      checksum.add({word});
   }
   return checksum.value();
}

} // namespace

void TableHeader::identityIs(const RecordLayout& layout) {
   LayoutName name{};
   std::memcpy(name.data(), layout.name.data(), layout.name.size());
   for (std::size_t i = 0; i < name.size(); ++i) {
      layoutName_[i].store(name[i], std::memory_order_relaxed);
   }
   formatVersion_.store(formatVersion, std::memory_order_relaxed);
   layoutVersion_.store(layout.version, std::memory_order_relaxed);
   recordSize_.store(layout.size, std::memory_order_relaxed);
   identityChecksum_.store(identityChecksum(), std::memory_order_relaxed);
   // Last, and with release: whoever sees the magic number sees the rest of the identity.
   magic_.store(magic, std::memory_order_release);
}

std::string TableHeader::identityProblem(const RecordLayout& layout) const {
   std::uint64_t foundMagic = magic_.load(std::memory_order_acquire);
   if (foundMagic == 0) {
      return "has no header yet: its writer is just starting, or died on its way";
   }
   if (foundMagic != magic) {
      return "does not begin with a table's magic number: overwritten, or no table at all";
   }
   // Relaxed from here on: the magic number was stored last, with release, and the identity never changes after it.
   std::uint64_t format = formatVersion_.load(std::memory_order_relaxed);
   // Before the checksum, whose place and formula belong to the format.
   if (format != formatVersion) {
      return "has format " + std::to_string(format) + ", expected " + std::to_string(formatVersion) +
             ": reader and writer are of different releases";
   }
   if (identityChecksum_.load(std::memory_order_relaxed) != identityChecksum()) {
      return "has a damaged header: its checksum fails";
   }
   std::array<char, RecordLayout::maxNameLength + 1> name{};
   for (std::size_t i = 0; i < std::size(layoutName_); ++i) {
      std::uint64_t word = layoutName_[i].load(std::memory_order_relaxed);
      std::memcpy(name.data() + i * sizeof word, &word, sizeof word);
   }
   name.back() = '\0';
   std::string found = describe(name.data(), layoutVersion_.load(std::memory_order_relaxed),
                                recordSize_.load(std::memory_order_relaxed));
   std::string expected = describe(std::string(layout.name), layout.version, layout.size);
   return found == expected ? "" : "holds " + found + ", expected " + expected;
}

bool TableHeader::isIdentityIntact() const {
   return magic_.load(std::memory_order_acquire) == magic &&
          identityChecksum_.load(std::memory_order_relaxed) == identityChecksum();
}

std::uint64_t TableHeader::identityChecksum() const {
   std::array<std::uint64_t, std::size(decltype(layoutName_){}) + 3> words{};
   for (std::size_t i = 0; i < std::size(layoutName_); ++i) {
      words[i] = layoutName_[i].load(std::memory_order_relaxed);
   }
   words[4] = formatVersion_.load(std::memory_order_relaxed);
   words[5] = layoutVersion_.load(std::memory_order_relaxed);
   words[6] = recordSize_.load(std::memory_order_relaxed);
   return checksumOf(words);
}

void TableHeader::stateIs(const TableState& state) {
   std::array<std::uint64_t, stateWords> words{state.capacity,
                                               state.epoch,
                                               static_cast<std::uint64_t>(state.writerPid),
                                               std::bit_cast<std::uint64_t>(state.pollingInterval),
                                               state.clockDomain.simulated ? 1u : 0u,
                                               state.clockDomain.id[0],
                                               state.clockDomain.id[1]};
   // The memory order is that of a record, which RecordSlot.h explains. A dead writer's odd sequence is continued here
   // too.
   std::uint64_t odd = stateSequence_.load(std::memory_order_relaxed) | 1;
   stateSequence_.store(odd, std::memory_order_relaxed);
   for (std::size_t i = 0; i < stateWords; ++i) {
      state_[i].store(words[i], std::memory_order_release);
   }
   stateChecksum_.store(checksumOf(words), std::memory_order_release);
   stateSequence_.store(odd + 1, std::memory_order_release);
}

TableHeader::StateRead TableHeader::tryReadState(TableState& state) const {
   std::uint64_t before = stateSequence_.load(std::memory_order_acquire);
   if (before == 0 || (before & 1)) {
      return StateRead::changing;
   }
   std::array<std::uint64_t, stateWords> words;
   for (std::size_t i = 0; i < stateWords; ++i) {
      words[i] = state_[i].load(std::memory_order_acquire);
   }
   std::uint64_t expected = stateChecksum_.load(std::memory_order_acquire);
   if (stateSequence_.load(std::memory_order_relaxed) != before) {
      return StateRead::changing;
   }
   state = {words[0],
            words[1],
            static_cast<pid_t>(words[2]),
            std::bit_cast<double>(words[3]),
            {words[4] != 0, {words[5], words[6]}}};
   return checksumOf(words) == expected ? StateRead::whole : StateRead::corrupt;
}

// By 2, so that the sequence stays even: the state is still whole for whoever reads it now.
void TableHeader::retire() {
   stateSequence_.store(stateSequence_.load(std::memory_order_relaxed) + 2, std::memory_order_release);
}

TableGeometry::TableGeometry(const RecordLayout& layout)
     : journalOffset(sizeof(TableHeader)), slotsOffset(journalOffset + Journal::sizeFor(layout.size)),
       slotStride(RecordSlot::strideFor(layout.size)) {}

} // namespace Silo
