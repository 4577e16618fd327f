// Finds records by their keys in the table that is attached.
#include "silo/RawTableReader.h"

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
     : layout_(layout), geometry_(layout),
       attachment_(store, name, layout, [this](const Mapping&, const TableState& state) {
          return geometry_.sizeFor(state.capacity);
       }) {
   attachment_.attach();
   forgetKeys();
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
      if (result == ReadResult::ok || result == ReadResult::busy || !attachment_.mapping().isStale()) {
         return result;
      }
   }
}

ReadResult RawTableReader::readAttached(const Key& key, void* payload, RecordInfo& info) {
   Patience patience(attachment_.mapping());
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
   return attachment_.state();
}

bool RawTableReader::isWriterAlive() {
   // Refreshed first, so that the lock is asked of the file that has the name now.
   return refresh(true) && attachment_.mapping().isLockedByAnother();
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
   if (attachment_.mapping().isStale()) {
      attachment_.problemIs(attachment_.describe() + " was removed or cut short while it was read");
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

bool RawTableReader::refresh(bool isThorough) {
   bool hasChanged = false;
   const bool isThere = attachment_.refresh(isThorough, hasChanged);
   if (isThere && hasChanged) {
      forgetKeys();
   }
   return isThere;
}

void RawTableReader::forgetKeys() {
   indexVersion_.reset();
   index_.reset(capacity());
}

void RawTableReader::indexKeys() {
   // The version is taken first: a key that is added during the walk makes this index out of date at once.
   indexVersion_ = header().directoryVersion();
   isIndexComplete_ = true;
   index_.reset(capacity());
   for (std::size_t i = 0; i < capacity(); ++i) {
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
