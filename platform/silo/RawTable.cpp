// The writer of a shared table: takes over whatever the last writer left, then writes under sequence locks.
#include "silo/RawTable.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <stdexcept>
#include <system_error>
#include <unistd.h>

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
                   const void* defaultEntry, TableOptions options)
     : store_(store), name_(name), layout_(layout), geometry_(layout),
       defaultEntry_(bytesOf(defaultEntry, layout.size)), options_(std::move(options)),
       scratch_(layout.size + bytesPerRow) {
   if (options_.capacity == 0 || options_.capacity > TableHeader::maxCapacity) {
      throw std::invalid_argument("table " + name_ + ": capacity " + std::to_string(options_.capacity) +
                                  ": expected 1 to " + std::to_string(TableHeader::maxCapacity) + " records");
   }
   requirePollingInterval(name_, options_.pollingInterval);
   try {
      open();
   } catch (const std::system_error& error) {
      throw TableError(store_.describe(name_) + ", " + std::to_string(options_.capacity) + " records of " +
                       std::to_string(layout_.size) + " bytes: " + error.what());
   }
}

// Pid 0 tells readers and the next writer that the table was closed in good order. The records stay.
RawTable::~RawTable() {
   state_.writerPid = 0;
   header().stateIs(state_);
}

// The order matters: the identity is checked before anything else is believed, slots are restored before the new
// state is published, and publishing the state is the last step, since it lets readers in.
void RawTable::open() {
   mapping_ = store_.openForWriting(name_);
   std::size_t kept = 0;
   if (mapping_.size() == 0) {
      create();
   } else if (mapping_.size() < geometry_.sizeFor(1)) {
      report("", "has only " + std::to_string(mapping_.size()) + " bytes", Remedy::recreated);
      recreate();
   } else if (std::string problem = header().identityProblem(layout_); !problem.empty()) {
      report("", problem, Remedy::recreated);
      recreate();
   } else {
      kept = restoreState();
   }
   // Never fewer than there were: the records stay, and readers have these slots mapped.
   std::size_t capacity = std::max(kept, options_.capacity);
   if (mapping_.size() < geometry_.sizeFor(capacity)) {
      // In place. New slots are zeros, and so is a free slot: a kill in here does no harm.
      mapping_.grow(geometry_.sizeFor(capacity));
   }
   index_.reset(capacity);
   generations_.resize(capacity);
   free_.reserve(capacity);
   restoreSlots(kept);

   state_.capacity = capacity;
   state_.epoch += 1;
   state_.writerPid = getpid();
   state_.pollingInterval = options_.pollingInterval;
   state_.clockDomain = options_.clockDomain;
   header().stateIs(state_);
}

void RawTable::create() {
   mapping_.grow(geometry_.sizeFor(options_.capacity));
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
   mapping_ = store_.openForWriting(name_);
   create();
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

void RawTable::restoreSlots(std::size_t kept) {
   // The journal's slot comes first: mending any other slot overwrites the journal.
   SlotIndex first = journal().slot();
   if (first < kept) {
      restoreSlot(first);
   }
   for (SlotIndex i = 0; i < kept; ++i) {
      if (i != first) {
         restoreSlot(i);
      }
   }
   // Backward, so that the lowest free slot is taken first.
   for (SlotIndex i = capacity(); i-- > 0;) {
      if (index_.keyOf(i).isEmpty()) {
         free_.push_back(i);
      }
   }
}

void RawTable::restoreSlot(SlotIndex i) {
   if (options_.isBegunAnew) {
      freeSlot(i);
      return;
   }
   Key key;
   RecordInfo info;
   RecordSlot::State state = slot(i).tryReadKey(key);
   if (state == RecordSlot::State::free) {
      return;
   }
   if (state == RecordSlot::State::whole) {
      state = slot(i).tryRead(key, info, scratch_.data(), layout_.size);
   }
   // has(key): a duplicate, which only damage can make. The first slot keeps the key.
   if (state != RecordSlot::State::whole || has(key)) {
      mendSlot(i, state == RecordSlot::State::changing ? "left half-written by the last writer"
                                                       : "checksum mismatch");
      return;
   }
   if (!state_.clockDomain.isComparableWith(options_.clockDomain) && info.sampleTime != unknownSampleTime) {
      // The record's time was taken from another clock and means nothing on this one.
      info.sampleTime = unknownSampleTime;
      writeSlot(i, {key, info, scratch_.data(), layout_.size});
   }
   adopt(i, key, info);
}

// Tries three sources in turn: the journal, which has the record that a kill interrupted; the slot itself, when only
// its sequence was left odd; and, when just the key is intact, the default entry.
void RawTable::mendSlot(SlotIndex i, const char* finding) {
   Key key;
   RecordInfo info;
   Remedy remedy = Remedy::finished;
   const std::optional<std::uint64_t> journalled =
        journal().take(i, key, info, scratch_.data(), layout_.size);
   if (!journalled) {
      key = slot(i).intactKey();
      if (slot(i).load(key, info, scratch_.data(), layout_.size) == RecordSlot::State::whole) {
         remedy = Remedy::kept;
      } else {
         remedy = Remedy::restarted;
         // A generation below the one that a reader has seen tells it that the record began anew.
         info = {1, unknownSampleTime};
         std::copy(defaultEntry_.begin(), defaultEntry_.end(), scratch_.begin());
      }
   }
   if (key.isEmpty() || has(key)) {
      report("", "record " + std::to_string(i) + ": " + finding + ", and no key of its own is left",
             Remedy::freed);
      freeSlot(i);
      return;
   }
   report(std::string(key.view()), finding, remedy);
   const RecordContent content{key, info, scratch_.data(), layout_.size};
   if (journalled) {
      // Straight to the slot: the journal has to stay whole until the slot is.
      slot(i).write(content, *journalled);
   } else {
      writeSlot(i, content);
   }
   adopt(i, key, info);
}

void RawTable::adopt(SlotIndex i, const Key& key, const RecordInfo& info) {
   index_.insert(key, i);
   generations_[i] = info.generation;
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
   // From the writer's own copy: a damaged slot must not make a generation step back.
   std::uint64_t generation = ++generations_[i];
   writeSlot(i, {key, {generation, sampleTime}, payload, layout_.size});
   // After the record is whole: a reader that sees the new version must find the key.
   if (generation == 1) {
      header().directoryVersionInc();
   }
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
   generations_[i] = 0;
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
      if (options_.onCorruption) {
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

void RawTable::report(const std::string& key, std::string text, Remedy remedy) const {
   if (options_.onCorruption) {
      options_.onCorruption({name_, key, std::move(text), remedy});
   }
}

} // namespace Silo
