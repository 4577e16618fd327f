// The writer of a shared table: takes over whatever the last writer left, then writes under sequence locks.
#include "silo/RawTable.h"

#include "silo/FileSuccessor.h"
#include "silo/Prefetch.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <stdexcept>
#include <system_error>
#include <unistd.h>
#include <utility>

namespace Silo {

namespace {

using Remedy = Corruption::Remedy;

std::vector<std::byte> bytesOf(const void* data, std::size_t size) {
   auto* bytes = static_cast<const std::byte*>(data);
   return {bytes, bytes + size};
}

void requirePollingInterval(const std::string& table, double seconds) {
   if (!std::isfinite(seconds) || seconds <= 0) {
      throw std::invalid_argument("table " + table + ": polling interval " + std::to_string(seconds) +
                                  ": expected seconds above 0");
   }
}

} // namespace

RawTable::RawTable(const Store& store, const std::string& name, const RecordLayout& layout,
                   const void* defaultEntry, TableOptions options, const FormerLayout& former)
     : store_(store), name_(name), layout_(layout), geometry_(layout),
       defaultEntry_(bytesOf(defaultEntry, layout.size)), options_(std::move(options)),
       scratch_(layout.size + bytesPerRow) {
   if (options_.capacity == 0 || options_.capacity > TableHeader::maxCapacity) {
      throw std::invalid_argument("table " + name_ + ": capacity " + std::to_string(options_.capacity) +
                                  ": expected 1 to " + std::to_string(TableHeader::maxCapacity) + " records");
   }
   requirePollingInterval(name_, options_.pollingInterval);
   try {
      open(former);
   } catch (const std::system_error& error) {
      removeIfNew();
      throw TableError(store_.describe(name_) + ", " + std::to_string(options_.capacity) + " records of " +
                       std::to_string(layout_.size) + " bytes: " + error.what());
   } catch (...) {
      removeIfNew();
      throw;
   }
}

RawTable::RawTable(const RawTable& successor, const FormerLayout& former, Mapping mapping)
     : store_(successor.store_), name_(successor.name_), layout_(former.layout), geometry_(former.layout),
       defaultEntry_(former.defaultEntry), options_(successor.options_), mapping_(std::move(mapping)),
       scratch_(former.layout.size + bytesPerRow) {
   const std::size_t kept = restoreState();
   restore(kept, kept);
}

// Pid 0 tells readers and the next writer that the table was closed in good order. The records stay. A start that fails
// hides nothing: the next one still sees that a writer before it was killed.
RawTable::~RawTable() {
   if (mapping_.fileSize() >= mapping_.size()) {
      state_.writerPid = options_.isProvisional ? unclosedBy_ : 0;
      header().stateIs(state_);
   }
   if (options_.isProvisional) {
      removeIfNew();
   }
}

// The order matters: the identity is checked before anything else is believed, slots are restored before the new
// state is published, and publishing the state is the last step, since it lets readers in.
void RawTable::open(const FormerLayout& former) {
   OpenedTable opened = store_.openForWriting(name_);
   mapping_ = std::move(opened.mapping);
   if (!opened.replaced.empty()) {
      report("", opened.replaced, Remedy::recreated);
   }
   std::size_t kept = 0;
   if (mapping_.size() == 0) {
      isNew_ = true;
      create(options_.capacity);
   } else if (options_.isBegunAnew) {
      recreate();
   } else if (holds(layout_)) {
      kept = restoreState();
   } else if (former.upgrade && holds(former.layout)) {
      takeOver(former);
      return;
   } else {
      report("", problemWith(layout_), Remedy::recreated);
      recreate();
   }
   // Never fewer than there were: the records stay, and readers have these slots mapped.
   restore(kept, std::max(kept, options_.capacity));
   begin();
}

// Why the mapping is no table of this layout. Empty: it is one.
std::string RawTable::problemWith(const RecordLayout& layout) const {
   std::string problem;
   if (mapping_.size() >= sizeof(TableHeader)) {
      problem = header().identityProblem(layout);
   }
   if (problem.empty() && mapping_.size() < TableGeometry(layout).sizeFor(1)) {
      problem = "has only " + std::to_string(mapping_.size()) + " bytes";
   }
   return problem;
}

bool RawTable::holds(const RecordLayout& layout) {
   return problemWith(layout).empty() || restoreIdentity(layout);
}

// For a table whose identity was overwritten. The records are there all the same, each with a checksum of its own, and
// those that are whole say what the table holds.
bool RawTable::restoreIdentity(const RecordLayout& layout) {
   if (mapping_.size() < sizeof(TableHeader) || header().isIdentityIntact()) {
      return false;
   }
   const TableGeometry geometry(layout);
   std::vector<std::byte> payload(layout.size + bytesPerRow);
   for (std::size_t i = 0; i < std::min(geometry.capacityOf(mapping_.size()), TableHeader::maxCapacity);
        ++i) {
      const auto& found = *reinterpret_cast<const RecordSlot*>(mapping_.data() + geometry.slotsOffset +
                                                               i * geometry.slotStride);
      RecordInfo info;
      const Key key = found.intactKey();
      if (!key.isEmpty() &&
          found.tryRead(key, info, payload.data(), layout.size) == RecordSlot::State::whole) {
         report("", "the header was overwritten", Remedy::headerMended);
         header().identityIs(layout);
         return true;
      }
   }
   return false;
}

void RawTable::create(std::size_t capacity) {
   mapping_.grow(geometry_.sizeFor(capacity));
   // A kill before this leaves a magic number of 0. The next start takes that for no table and creates it anew.
   header().identityIs(layout_);
}

void RawTable::recreate() {
   // In a new file: readers may have the old one mapped, and must not see it cut or rewritten. Retiring it moves
   // its state sequence, which sends them back to the name.
   Mapping old = std::move(mapping_);
   if (old.size() >= sizeof(TableHeader)) {
      reinterpret_cast<TableHeader*>(old.data())->retire();
   }
   store_.remove(name_);
   mapping_ = store_.openForWriting(name_).mapping;
   create(options_.capacity);
}

// Until the new table is whole the old one keeps the name, and is only mended as what it is. So a kill leaves one or the
// other, and the next start does what is left to do.
void RawTable::takeOver(const FormerLayout& former) {
   RawTable old(*this, former, std::move(mapping_));
   mapping_ = store_.openSuccessor(name_);
   const std::size_t capacity = std::max(old.capacity(), options_.capacity);
   create(capacity);
   reset(capacity);
   std::vector<std::byte> record(former.layout.size);
   for (SlotIndex i = 0; i < old.capacity(); ++i) {
      if (const Key& key = old.index_.keyOf(i); !key.isEmpty()) {
         RecordInfo info = old.readOrDefault(key, record.data());
         info.generation = old.generations_[i];
         former.upgrade(record.data(), scratch_.data());
         writeSlot(i, {key, info, scratch_.data(), layout_.size});
         adopt(i, key, info);
      }
   }
   listFreeSlots();
   highestGenerationIs(old.highestGeneration_);
   removedGenerationIs(old.removedGeneration_);
   state_.epoch = old.state_.epoch;
   begin();
   mapping_.sync(); // or a power failure could leave the name to a file whose content never got to the disk
   store_.promoteSuccessor(name_);
   report("", "has records of layout version " + std::to_string(former.layout.version), Remedy::takenOver);
   // The old table ends here. Its end moves its state sequence, which sends its readers back to the name.
}

// Takes over the last writer's state. Returns how many slots it left.
std::size_t RawTable::restoreState() {
   // The file's size bounds what the header may claim: a file cut short must not be read past its end.
   std::size_t fitting = std::min(geometry_.capacityOf(mapping_.size()), TableHeader::maxCapacity);
   if (header().tryReadState(state_) != TableHeader::StateRead::whole) {
      // The records can do without the state: the file's size bounds their number, and each slot has its own key. Their
      // sample times become unknown, since their clock is.
      state_ = {};
      report("", "the header's state is torn", Remedy::headerMended);
      return fitting;
   }
   if (state_.capacity > fitting) {
      report("",
             "cut short: room for " + std::to_string(fitting) + " of " + std::to_string(state_.capacity) +
                  " records",
             Remedy::headerMended);
   }
   return std::min<std::size_t>(state_.capacity, fitting);
}

// Makes room for so many records, of which the first ones may hold what the last writer left.
void RawTable::restore(std::size_t kept, std::size_t capacity) {
   if (mapping_.size() < geometry_.sizeFor(capacity)) {
      // In place. New slots are zeros, and so is a free slot: a kill in here does no harm.
      mapping_.grow(geometry_.sizeFor(capacity));
   }
   reset(capacity);
   removedGeneration_ = header().removedGeneration();
   highestGeneration_ = std::max(header().highestGeneration(), removedGeneration_);
   restoreSlots(kept);
   listFreeSlots();
   // Written anew in any case: they may have been damaged, or missing.
   highestGenerationIs(highestGeneration_);
   removedGenerationIs(removedGeneration_);
}

void RawTable::reset(std::size_t capacity) {
   index_.reset(capacity);
   generations_.resize(capacity);
   looked_.resize(capacity);
   isLost_.resize(capacity);
   free_.reserve(capacity);
   state_.capacity = capacity;
}

void RawTable::restoreSlots(std::size_t kept) {
   // Begun anew last, since they go on from the highest generation of all others.
   std::vector<SlotIndex> lost;
   auto restoreOrNote = [this, &lost](SlotIndex i) {
      if (!restoreSlot(i)) {
         lost.push_back(i);
      }
   };
   // The journal's slot comes first: mending any other slot overwrites the journal.
   SlotIndex first = journal().slot();
   if (first < kept) {
      restoreOrNote(first);
   }
   for (SlotIndex i = 0; i < kept; ++i) {
      if (i != first) {
         restoreOrNote(i);
      }
   }
   for (SlotIndex i : lost) {
      beginAnew(i);
   }
}

void RawTable::listFreeSlots() {
   // Backward, so that the lowest free slot is taken first.
   for (SlotIndex i = capacity(); i-- > 0;) {
      if (index_.keyOf(i).isEmpty()) {
         free_.push_back(i);
      }
   }
}

// Publishes the table: readers may come.
void RawTable::begin() {
   state_.epoch += 1;
   unclosedBy_ = state_.writerPid;
   state_.writerPid = getpid();
   state_.pollingInterval = options_.pollingInterval;
   state_.clockDomain = options_.clockDomain;
   header().stateIs(state_);
}

// False: nothing whole is left in the slot.
bool RawTable::restoreSlot(SlotIndex i) {
   Key key;
   RecordInfo info;
   RecordSlot::State state = slot(i).tryReadKey(key);
   if (state == RecordSlot::State::free) {
      return true;
   }
   if (state == RecordSlot::State::whole) {
      state = slot(i).tryRead(key, info, scratch_.data(), layout_.size);
   }
   // has(key): a duplicate, which only damage can make. The first whole one keeps the key.
   if (state != RecordSlot::State::whole || has(key)) {
      return mendSlot(i);
   }
   if (!state_.clockDomain.isComparableWith(options_.clockDomain) && info.sampleTime != unknownSampleTime) {
      // The record's time was taken from another clock and means nothing on this one.
      info.sampleTime = unknownSampleTime;
      writeSlot(i, {key, info, scratch_.data(), layout_.size});
   }
   adopt(i, key, info);
   return true;
}

// Tries two sources in turn: the journal, which has the record that a kill interrupted, and the slot itself, when only
// its sequence was left odd. False: neither has it.
bool RawTable::mendSlot(SlotIndex i) {
   Key key;
   RecordInfo info;
   const std::optional<RecordChecksums> journalled =
        journal().take(i, key, info, scratch_.data(), layout_.size);
   if (!journalled) {
      key = slot(i).intactKey();
      if (slot(i).load(key, info, scratch_.data(), layout_.size) != RecordSlot::State::whole) {
         return false;
      }
   }
   if (has(key)) {
      return false;
   }
   report(std::string(key.view()), findingOf(i), journalled ? Remedy::finished : Remedy::kept);
   const RecordContent content{key, info, scratch_.data(), layout_.size};
   if (journalled) {
      // Straight to the slot: the journal has to stay whole until the slot is.
      slot(i).write(content, *journalled);
   } else {
      writeSlot(i, content);
   }
   adopt(i, key, info);
   return true;
}

// For a slot of which at most the key is intact.
void RawTable::beginAnew(SlotIndex i) {
   const Key key = slot(i).intactKey();
   if (key.isEmpty() || has(key)) {
      report("", "record " + std::to_string(i) + ": " + findingOf(i) + ", and no key of its own is left",
             Remedy::freed);
      // The lost key may come back, and nobody knows how far its record had come.
      removedGenerationIs(highestGeneration_);
      freeSlot(i);
      return;
   }
   report(std::string(key.view()), findingOf(i), Remedy::restarted);
   const RecordInfo info{highestGeneration_ + 1, unknownSampleTime};
   highestGenerationIs(info.generation);
   writeSlot(i, {key, info, defaultEntry_.data(), layout_.size});
   adopt(i, key, info);
}

const char* RawTable::findingOf(SlotIndex i) const {
   Key key;
   return slot(i).tryReadKey(key) == RecordSlot::State::changing ? "left half-written by the last writer"
                                                                 : "checksum mismatch";
}

void RawTable::adopt(SlotIndex i, const Key& key, const RecordInfo& info) {
   index_.insert(key, i);
   generations_[i] = info.generation;
   highestGeneration_ = std::max(highestGeneration_, info.generation);
}

std::vector<Key> RawTable::keys() const {
   std::vector<Key> result;
   result.reserve(index_.size());
   for (SlotIndex i = 0; i < capacity(); ++i) {
      if (const Key& key = index_.keyOf(i); !key.isEmpty()) {
         result.push_back(key);
      }
   }
   return result;
}

void RawTable::write(const Key& key, const void* payload, double sampleTime) {
   // An infinity stands for a time that is not known, and a NaN would make every age a NaN.
   if (!std::isfinite(sampleTime)) {
      throw std::invalid_argument("table " + name_ + ", record " + std::string(key.view()) +
                                  ": the sample time has to be a finite number of seconds");
   }
   SlotIndex i = index_.find(key, nextGuess_);
   if (i == KeyIndex::none) {
      i = slotFor(key);
   }
   nextGuess_ = i + 1;
   // Not there under its key: made anew, or overwritten.
   const bool wasThere = slot(i).isHeadedBy(key, generations_[i]);
   // From the writer's own copy: a damaged slot must not make a generation step back.
   std::uint64_t generation = ++generations_[i];
   if (generation > highestGeneration_) {
      // Before the record, so that no reader has seen a higher one.
      highestGenerationIs(generation);
   }
   writeSlot(i, {key, {generation, sampleTime}, payload, layout_.size});
   prefetch(nextGuess_);
   // After the record is whole: a reader that sees the new version must find the key.
   if (!wasThere) {
      header().directoryVersionInc();
   }
}

// Passes write records in one order, so the next one is asked for while there is other work to do.
void RawTable::prefetch(SlotIndex i) const {
   if (i < capacity()) {
      Silo::prefetch(&index_.keyOf(i), sizeof(Key));
      Silo::prefetch(&slot(i), geometry_.slotStride);
   }
}

void RawTable::highestGenerationIs(std::uint64_t generation) {
   highestGeneration_ = generation;
   header().highestGenerationIs(generation);
}

void RawTable::removedGenerationIs(std::uint64_t generation) {
   removedGeneration_ = generation;
   header().removedGenerationIs(generation);
}

// Gives the key a free slot.
RawTable::SlotIndex RawTable::slotFor(const Key& key) {
   if (key.isEmpty()) {
      throw std::invalid_argument("table " + name_ + ": a record needs a key");
   }
   if (free_.empty()) {
      throw CapacityError(store_.describe(name_) + " is full: it holds " + std::to_string(capacity()) +
                          " records and has no room for \"" + std::string(key.view()) +
                          "\"; start its writer with a greater capacity, the records stay");
   }
   SlotIndex i = free_.back();
   free_.pop_back();
   index_.insert(key, i);
   // The key may have been here before, so it goes on from there.
   generations_[i] = removedGeneration_;
   return i;
}

void RawTable::writeSlot(SlotIndex i, const RecordContent& content) {
   // The argument comes first: the journal has to be complete before the slot changes.
   slot(i).write(content, journal().write(i, content));
}

void RawTable::remove(const Key& key) {
   SlotIndex i = index_.find(key);
   if (i == KeyIndex::none) {
      return;
   }
   removedGenerationIs(std::max(removedGeneration_, generations_[i]));
   // The directory version stays: readers notice from the slot itself that its key has gone.
   freeSlot(i);
   index_.erase(i);
   free_.push_back(i);
}

void RawTable::freeSlot(SlotIndex i) {
   // First, or a kill between the two would let the next start bring the record back.
   journal().clear();
   slot(i).clear();
}

RecordInfo RawTable::read(const Key& key, void* payload) const {
   SlotIndex i = index_.find(key);
   if (i == KeyIndex::none) {
      throw AbsentRecord("table " + name_ + " has no record \"" + std::string(key.view()) + "\"");
   }
   RecordInfo info;
   // One attempt will do: the one writer is the caller itself, so a slot that is not whole was damaged by somebody
   // else.
   if (slot(i).tryRead(key, info, payload, layout_.size) != RecordSlot::State::whole) {
      throw CorruptionError({name_, std::string(key.view()), "overwritten in memory", Remedy::none});
   }
   return info;
}

RecordInfo RawTable::readOrDefault(const Key& key, void* payload) const {
   try {
      if (has(key)) {
         return read(key, payload);
      }
   } catch (const CorruptionError& error) {
      if (options_.onCorruption && !isLost_[index_.find(key)]) { // of those, mend() has told
         options_.onCorruption(error.corruption());
      }
   }
   std::memcpy(payload, defaultEntry_.data(), layout_.size);
   return {};
}

void RawTable::pollingIntervalIs(double seconds) {
   requirePollingInterval(name_, seconds);
   state_.pollingInterval = seconds;
   header().stateIs(state_);
}

void RawTable::removeIfNew() {
   if (isNew_) {
      removeOwnFile(store_, name_, mapping_);
   }
}

void RawTable::report(const std::string& key, std::string text, Remedy remedy) const {
   if (options_.onCorruption) {
      options_.onCorruption({name_, key, std::move(text), remedy});
   }
}

} // namespace Silo
