// What becomes of a table whose file is removed, replaced, cut or overwritten while it is written: it is made anew, with
// what can be saved.
#include "silo/FileSuccessor.h"
#include "silo/RawTable.h"

#include <stdexcept>
#include <utility>

namespace Silo {

using Remedy = Corruption::Remedy;

void RawTable::mend() {
   std::string problem = store_.lossOf(name_, mapping_);
   if (problem.empty()) {
      problem = lossInMemory();
   }
   if (!problem.empty()) {
      remake(problem);
      return;
   }
   if (const std::string change = store_.restoreMode(mapping_); !change.empty()) {
      report("", change, Remedy::modeMended);
   }
   findOverwritten();
   clearOverwrittenUnused();
}

std::string RawTable::lossInMemory() const {
   TableState found;
   const bool isIntact = header().identityProblem(layout_).empty() &&
                         header().tryReadState(found) == TableHeader::StateRead::whole && found == state_;
   return isIntact ? "" : "had its header overwritten";
}

void RawTable::remake(const std::string& problem) {
   try {
      std::size_t missing = 0;
      replaceFile(store_, name_, mapping_, geometry_.sizeFor(capacity()),
                  [&](const Mapping& old) { missing = carryOver(old); });
      isNameLost_ = false;
      ++losses_;
      report("",
             problem + (missing == 0 ? ""
                                     : ", " + std::to_string(missing) + " of " + std::to_string(size()) +
                                            " records come with their next reading"),
             Remedy::remade);
   } catch (const std::runtime_error& error) { // of the system or the store: the next pass tries again
      if (!std::exchange(isNameLost_, true)) {
         report("", problem + ", and cannot be made anew: " + error.what(), Remedy::lost);
      }
   }
}

// Copies into the new mapping what is left in the old file, each record to its slot. Returns how many are not there as
// they were written last.
std::size_t RawTable::carryOver(const Mapping& old) {
   header().identityIs(layout_);
   highestGenerationIs(highestGeneration_);
   removedGenerationIs(removedGeneration_);
   struct alignas(cacheLine) Line {
      std::byte bytes[cacheLine];
   };
   std::vector<Line> copy(geometry_.slotStride / cacheLine);
   const auto& found = *reinterpret_cast<const RecordSlot*>(copy.data());
   std::size_t missing = 0;
   for (SlotIndex i = 0; i < capacity(); ++i) {
      const Key& key = index_.keyOf(i);
      if (key.isEmpty()) {
         continue;
      }
      RecordInfo info;
      // From the file, since what the mapping shows may be gone, or touching it a signal.
      if (old.copyFromFile(geometry_.slotsOffset + i * geometry_.slotStride, copy.data(),
                           geometry_.slotStride) &&
          found.tryRead(key, info, scratch_.data(), layout_.size) == RecordSlot::State::whole &&
          info.generation <= generations_[i]) {
         writeSlot(i, {key, info, scratch_.data(), layout_.size});
      }
      isLost_[i] = !isIntact(i);
      missing += isLost_[i] ? 1U : 0U;
   }
   header().stateIs(state_);
   return missing;
}

// Records that nobody has written since the last look are read as a whole, or as many of them as the writer asked for; of
// the others, which were whole a moment ago, only the head is looked at.
void RawTable::findOverwritten() {
   const Key* first = nullptr;
   std::size_t count = 0;
   std::size_t left = size();
   const SlotIndex restingFrom = restingAt_;
   std::size_t restingLeft = options_.restingLooks;
   restingAt_ = 0;
   for (SlotIndex i = 0; left != 0; ++i) {
      const Key& key = index_.keyOf(i);
      if (key.isEmpty()) {
         continue;
      }
      --left;
      const bool isWritten = std::exchange(looked_[i], generations_[i]) != generations_[i];
      if (!isWritten && i < restingFrom) {
         continue;
      }
      if (!isWritten && restingLeft == 0) {
         restingAt_ = restingAt_ != 0 ? restingAt_ : i; // the next look begins here
         continue;
      }
      restingLeft -= isWritten ? 0 : 1;
      const bool isGood = isWritten ? slot(i).isHeadedBy(key, generations_[i]) : isIntact(i);
      if (!isGood && !isLost_[i]) {
         first = first != nullptr ? first : &key;
         ++count;
      }
      isLost_[i] = !isGood;
   }
   if (count != 0) {
      ++losses_;
      report(std::string(first->view()),
             "overwritten in memory" +
                  (count == 1 ? "" : ", and " + std::to_string(count - 1) + " more with it"),
             Remedy::none);
   }
}

// Readers would take what lies in a slot without a record for one. A part of the slots with each look, since they are many,
// and nothing else touches their memory.
void RawTable::clearOverwrittenUnused() {
   constexpr std::size_t looksForAll = 16;
   std::size_t cleared = 0;
   for (std::size_t left = capacity() / looksForAll + 1; left != 0; --left) {
      lookedAt_ = (lookedAt_ + 1) % capacity();
      if (!slot(lookedAt_).isFree() && index_.keyOf(lookedAt_).isEmpty()) {
         freeSlot(lookedAt_);
         ++cleared;
      }
   }
   if (cleared != 0) {
      ++losses_;
      report("", "written by somebody else where there was none, in " + std::to_string(cleared) + " places",
             Remedy::freed);
   }
}

bool RawTable::isIntact(const Key& key) const {
   const SlotIndex i = index_.find(key);
   return i != KeyIndex::none && isIntact(i);
}

bool RawTable::isIntact(SlotIndex i) const {
   RecordInfo info;
   return slot(i).tryRead(index_.keyOf(i), info, scratch_.data(), layout_.size) == RecordSlot::State::whole &&
          info.generation == generations_[i];
}

} // namespace Silo
