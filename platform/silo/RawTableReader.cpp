// A reader of a shared table: attaches by name, and attaches again whenever the writer replaces the table.
#include "silo/RawTableReader.h"

#include "silo/Errors.h"

#include <utility>

namespace Silo {

namespace {

// A file that somebody removed by hand leaves no trace in memory, so the reader asks the system now and then.
constexpr unsigned readsPerThoroughLook = 256;

ReadResult resultOf(RecordSlot::State state, const Patience& patience) {
   switch (state) {
   case RecordSlot::State::whole:
      return ReadResult::ok;
   case RecordSlot::State::free:
      return ReadResult::absent;
   case RecordSlot::State::corrupt:
      return ReadResult::corrupt;
   case RecordSlot::State::changing:
   case RecordSlot::State::otherKey: // it held another key at each look
      break;
   }
   return patience.isWriterDead() ? ReadResult::torn : ReadResult::busy;
}

} // namespace

RawTableReader::RawTableReader(const Store& store, const std::string& name, const RecordLayout& layout)
     : store_(store), name_(name), layout_(layout), geometry_(layout) {
   attach();
}

ReadResult RawTableReader::read(const Key& key, void* payload, RecordInfo& info) {
   bool isThorough = readsUntilThorough_-- == 0;
   if (isThorough) {
      readsUntilThorough_ = readsPerThoroughLook;
   }
   for (;; isThorough = true) {
      if (!refresh(isThorough)) {
         return ReadResult::unavailable;
      }
      const ReadResult result = readAttached(key, payload, info);
      // What is not there in a file that was removed or cut says nothing of the table that has the name now.
      if (result == ReadResult::ok || result == ReadResult::busy || !mapping_.isStale()) {
         return result;
      }
   }
}

ReadResult RawTableReader::readAttached(const Key& key, void* payload, RecordInfo& info) {
   Patience patience(mapping_);
   for (bool isIndexNew = false;; isIndexNew = true) {
      // Asked before the slot is read. If the index was current then and the slot turns out to hold another key, the
      // key was absent at some moment of this call, which is all that `absent` claims.
      bool isIndexCurrent = header().directoryVersion() == indexVersion_ && (isIndexComplete_ || isIndexNew);
      ReadResult result = ReadResult::absent;
      if (std::size_t i = index_.find(key); i != KeyIndex::none) {
         result = readIndexed(i, patience, key, payload, info);
         // These two may only mean that the index is old: the key may be in another slot by now.
         if (result != ReadResult::absent && result != ReadResult::corrupt) {
            return result;
         }
      }
      if (isIndexCurrent) {
         return result;
      }
      // Each new index costs some patience: a writer that keeps adding keys must not hold the reader for ever.
      if (!patience.wait()) {
         return ReadResult::busy;
      }
      indexKeys();
   }
}

const TableState& RawTableReader::state() {
   refresh(true);
   return state_;
}

bool RawTableReader::isWriterAlive() {
   // Refreshed first, so that the lock is asked of the file that has the name now.
   return refresh(true) && mapping_.isLockedByAnother();
}

bool RawTableReader::beginWalk() {
   if (!refresh(true)) {
      return false;
   }
   walkVersion_ = header().directoryVersion();
   return true;
}

RawTableReader::WalkEnd RawTableReader::endWalk() {
   // Zeros that stand for what was lost look like free slots.
   if (mapping_.isStale()) {
      problem_ = store_.describe(name_) + " was removed or cut short while it was read";
      return WalkEnd::lost;
   }
   return header().directoryVersion() == walkVersion_ ? WalkEnd::stable : WalkEnd::keysAdded;
}

ReadResult RawTableReader::readSlot(std::size_t i, Patience& patience, Key& key, void* payload,
                                    RecordInfo& info) const {
   // The guess may be wrong once without any waiting; after that a key that differs again has just been replaced.
   for (bool isGuess = true;; isGuess = false) {
      RecordSlot::State state = settle(i, patience, key, payload, info);
      if (state == RecordSlot::State::otherKey && (isGuess || patience.wait())) {
         state = slot(i).tryReadKey(key);
         if (state != RecordSlot::State::corrupt) {
            continue;
         }
      }
      if (state != RecordSlot::State::whole && state != RecordSlot::State::free) {
         key = Key(slot(i).peekKey());
      }
      return resultOf(state, patience);
   }
}

ReadResult RawTableReader::readIndexed(std::size_t i, Patience& patience, const Key& key, void* payload,
                                       RecordInfo& info) const {
   RecordSlot::State state = settle(i, patience, key, payload, info);
   if (state == RecordSlot::State::otherKey) {
      Key other;
      return slot(i).tryReadKey(other) == RecordSlot::State::corrupt ? ReadResult::corrupt
                                                                     : ReadResult::absent;
   }
   return resultOf(state, patience);
}

// Reads the slot as soon as it stops changing, or gives up when patience ends.
RecordSlot::State RawTableReader::settle(std::size_t i, Patience& patience, const Key& key, void* payload,
                                         RecordInfo& info) const {
   RecordSlot::State state;
   do {
      state = slot(i).tryRead(key, info, payload, layout_.size);
   } while (state == RecordSlot::State::changing && patience.wait());
   return state;
}

// Makes sure that the mapping is the table that has the name now. One load in the usual case.
bool RawTableReader::refresh(bool isThorough) {
   if (mapping_.size() != 0 && header().stateSequence() == stateSequence_ &&
       !(isThorough && mapping_.isStale())) {
      return true;
   }
   // Given up before a new one is found: a table that was replaced must not pass for a current one.
   mapping_ = {};
   try {
      attach();
      return true;
   } catch (const TableError& error) {
      // Kept, not thrown: the writer may be just restarting, and the next read tries again.
      problem_ = error.what();
      return false;
   }
}

void RawTableReader::attach() {
   Mapping mapping = store_.openForReading(name_);
   std::string who = store_.describe(name_) + " ";
   if (mapping.size() < geometry_.slotsOffset) {
      throw TableError(who + "is too short: it has " + std::to_string(mapping.size()) +
                       " bytes, expected at least " + std::to_string(geometry_.slotsOffset) +
                       "; its writer is just starting, or it is no table");
   }
   auto& header = *reinterpret_cast<const TableHeader*>(mapping.data());
   const auto fail = [&](const std::string& problem) {
      throw TableError(who + (mapping.isLost() ? "was cut short while it was read" : problem));
   };
   if (std::string problem = header.identityProblem(layout_); !problem.empty()) {
      fail(problem);
   }
   Patience patience(mapping);
   TableState state;
   // Taken before the state: if the state changes in between, this sequence is out of date, and the next read attaches
   // again.
   std::uint64_t sequence = header.stateSequence();
   for (;;) {
      TableHeader::StateRead result = header.tryReadState(state);
      if (result == TableHeader::StateRead::whole) {
         break;
      }
      if (result == TableHeader::StateRead::corrupt) {
         fail("has a damaged header: its state's checksum fails; a running writer mends that with its next "
              "polling pass, a restarted one at once");
      }
      if (!patience.wait()) {
         fail(std::string("has a half-written header: its writer ") +
              (patience.isWriterDead() ? "died, and has to be restarted" : "is stuck"));
      }
      sequence = header.stateSequence();
   }
   // The checksum vouches for the capacity, not for the file: reading past its end would raise SIGBUS.
   if (state.capacity > geometry_.capacityOf(mapping.size())) {
      fail("was cut short: it has " + std::to_string(mapping.size()) + " bytes, expected " +
           std::to_string(geometry_.sizeFor(state.capacity)) + " for " + std::to_string(state.capacity) +
           " records");
   }
   mapping_ = std::move(mapping);
   state_ = state;
   stateSequence_ = sequence;
   indexVersion_.reset();
   index_.reset(state_.capacity);
   problem_.clear();
}

void RawTableReader::indexKeys() {
   // The version is taken first: a key that is added during the walk makes this index out of date at once.
   indexVersion_ = header().directoryVersion();
   isIndexComplete_ = true;
   index_.reset(state_.capacity);
   for (std::size_t i = 0; i < state_.capacity; ++i) {
      if (Key key = slot(i).intactKey(); !key.isEmpty()) {
         if (index_.find(key) == KeyIndex::none) {
            index_.insert(key, i);
         }
      } else if (slot(i).peekKey() != Key::Words{}) {
         isIndexComplete_ = false; // the writer may mend it without raising the version
      }
   }
}

} // namespace Silo
