// Takes over the rings that the last writer left, and adds samples to them.
#include "silo/HistoryTable.h"

#include "silo/FileSuccessor.h"
#include "silo/Prefetch.h"

#include <algorithm>
#include <cmath>
#include <stdexcept>
#include <system_error>
#include <unistd.h>
#include <utility>

namespace Silo {

namespace {

using Remedy = Corruption::Remedy;

constexpr std::size_t firstRings = HistoryGeometry::ringsPerBank;
constexpr double silentAfter = 3; // polling intervals

} // namespace

HistoryTable::HistoryTable(const Store& store, const std::string& name, const RecordLayout& layout,
                           HistoryOptions options)
     : store_(store), name_(name), layout_(layout), geometry_(layout, options.depth),
       options_(std::move(options)) {
   if (options_.depth == 0 || options_.depth > HistoryGeometry::maxDepth || options_.maxRings == 0 ||
       options_.maxRings > TableHeader::maxCapacity || !(options_.pollingInterval > 0)) {
      throw std::invalid_argument("history " + name_ +
                                  ": expected 1 to 1000000 samples for each of 1 to 1000000 keys, and an "
                                  "interval above 0");
   }
   options_.maxRings = HistoryGeometry::wholeBanks(options_.maxRings);
   index_.reset(options_.maxRings);
   try {
      open();
   } catch (const std::system_error& error) {
      removeIfNew();
      throw TableError(store_.describe(name_) + ", rings of " +
                       std::to_string(geometry_.bankStride / firstRings) + " bytes: " + error.what());
   } catch (...) {
      removeIfNew();
      throw;
   }
}

HistoryTable::~HistoryTable() {
   if (mapping_.fileSize() >= mapping_.size()) {
      state_.writerPid = 0;
      header().stateIs(state_);
   }
   if (options_.isProvisional) {
      removeIfNew();
   }
}

void HistoryTable::open() {
   OpenedTable opened = store_.openForWriting(name_);
   mapping_ = std::move(opened.mapping);
   if (!opened.replaced.empty()) {
      report(opened.replaced, Remedy::recreated);
   }
   if (mapping_.size() == 0) {
      isNew_ = true;
      createIn(std::min(firstRings, options_.maxRings));
   } else if (const std::string problem = problemWithFile(); !problem.empty()) {
      report(problem, Remedy::recreated);
      beginAnew(problem);
   } else if (!state_.clockDomain.isComparableWith(options_.clockDomain)) {
      beginAnew("has times of another clock");
   } else if (const auto found = historyGeometryOf(layout_, mapping_.data(), mapping_.size());
              found->depth != geometry_.depth || state_.capacity > options_.maxRings) {
      replaceFile(store_, name_, mapping_,
                  geometry_.sizeFor(std::min<std::size_t>(state_.capacity, options_.maxRings)),
                  [&](const Mapping& old) { carryOver(old, *found); });
   }
   adopt();
   begin();
}

// Why the file is no history of this layout, or else its state.
std::string HistoryTable::problemWithFile() {
   if (mapping_.size() < HistoryGeometry::banksOffset) {
      return "has only " + std::to_string(mapping_.size()) + " bytes";
   }
   if (std::string problem = header().identityProblem(layout_); !problem.empty()) {
      return problem;
   }
   const auto found = historyGeometryOf(layout_, mapping_.data(), mapping_.size());
   if (!found || header().tryReadState(state_) != TableHeader::StateRead::whole ||
       state_.capacity > found->capacityOf(mapping_.size())) {
      state_ = {};
      return "has a damaged header, or was cut short";
   }
   return "";
}

// Zeros are free rings. The file is whole before it takes a name: a writer that is killed then loses nothing.
void HistoryTable::createIn(std::size_t rings) {
   if (mapping_.size() < geometry_.sizeFor(rings)) {
      mapping_.grow(geometry_.sizeFor(rings));
   }
   historyHeader().depthIs(geometry_.depth);
   header().identityIs(layout_);
   state_.capacity = rings;
   state_.pollingInterval = options_.pollingInterval;
   state_.clockDomain = options_.clockDomain;
   header().stateIs(state_);
}

// In a new file: readers may have the old one mapped.
void HistoryTable::beginAnew(std::string why) {
   whyBegunAnew_ = std::move(why);
   state_ = {};
   const std::size_t rings = std::min(firstRings, options_.maxRings);
   replaceFile(store_, name_, mapping_, geometry_.sizeFor(rings), [&](const Mapping&) { createIn(rings); });
}

// Copies what is left in the old file into the new one, ring by ring. The keys are those that this writer knows, or else
// those of the old file.
void HistoryTable::carryOver(const Mapping& old, const HistoryGeometry& from) {
   createIn(geometry_.capacityOf(mapping_.size()));
   struct alignas(cacheLine) Line {
      std::byte bytes[cacheLine];
   };
   std::vector<Line> copy(from.bankStride / cacheLine);
   const std::byte* const oldBank = copy.data()->bytes;
   bool isThere = false;
   for (RingIndex i = 0; i < state_.capacity; ++i) {
      if (i % HistoryGeometry::ringsPerBank == 0) {
         // From the file, since what the mapping shows may be gone, or touching it a signal.
         isThere = old.copyFromFile(from.bankOffset(i), copy.data(), from.bankStride);
      }
      const Key key = index_.size() != 0 ? index_.keyOf(i) : isThere ? from.head(oldBank, i).key() : Key();
      if (key.isEmpty()) {
         continue;
      }
      head(i).keyIs(key);
      const std::vector<HistorySample> samples =
           isThere ? from.samplesOf(oldBank, i) : std::vector<HistorySample>();
      const std::size_t tooMany = samples.size() - std::min(samples.size(), geometry_.depth);
      for (std::size_t s = tooMany; s < samples.size(); ++s) {
         const HistorySample& each = samples[s];
         sample(i, each.number % geometry_.depth).write(each.number, each.flags, each.time, each.values);
      }
   }
}

void HistoryTable::adopt() {
   rings_.assign(state_.capacity, unusedRing(isNew_));
   for (RingIndex i = 0; i < state_.capacity; ++i) {
      const Key key = head(i).key();
      // A ring without a key, or with one that another ring has, was damaged: whoever comes next has it.
      if (key.isEmpty() || index_.find(key) != KeyIndex::none) {
         continue;
      }
      index_.insert(key, i);
      nextUnused_ = i + 1;
      if (head(i).sequence() % 2 != 0) {
         head(i).keyIs(key); // a writer was killed while it gave the ring away
      }
      if (const auto samples = geometry_.samplesOf(bank(i), i); !samples.empty()) {
         rings_[i] = {.last = samples.back().number, .lastTime = samples.back().time};
      }
      rings_[i].place = (rings_[i].last + 1) % geometry_.depth;
   }
}

// Readers may come.
void HistoryTable::begin() {
   state_.epoch += 1;
   state_.writerPid = getpid();
   state_.pollingInterval = options_.pollingInterval;
   state_.clockDomain = options_.clockDomain;
   header().stateIs(state_);
}

bool HistoryTable::write(const Key& key, double time, const HistoryMarks& marks,
                         std::span<const std::uint64_t> values) {
   if (!std::isfinite(time)) {
      throw std::invalid_argument("history " + name_ + ": the time has to be a finite number of seconds");
   }
   RingIndex i = index_.find(key, nextGuess_);
   if (i == KeyIndex::none) {
      i = ringFor(key, time);
   }
   nextGuess_ = i + 1;
   Ring& own = rings_[i];
   if (isTooSoon(time, own.lastTime)) {
      return false;
   }
   const bool isFirst = own.lastTime == unknownSampleTime;
   const double since = isFirst ? time - options_.pollingInterval : own.lastTime;
   // Of the samples before, this writer knows the marks. They may be newer than the sample, which was read from the chip
   // a moment before, or as old as the next break, where time stands still.
   const auto isNews = [&](double mark, double known) {
      return known == unknownSampleTime ? mark > since : mark != known;
   };
   const bool isBegun = isNews(marks.begun, own.marks.begun);
   const std::uint64_t flags =
        (isBegun || isNews(marks.discontinuity, own.marks.discontinuity) ? SampleFlag::discontinuity : 0) |
        (isBegun ? SampleFlag::begun : 0) | marks.others;
   ++own.last;
   own.lastTime = time;
   own.marks = marks;
   sample(i, own.place).write(own.last, flags, time, values);
   own.place = own.place + 1 == geometry_.depth ? 0 : own.place + 1;
   prefetch(i + 1);
   return true;
}

// Nobody has touched a sample's memory since the ring turned. Passes write rings in one order, so the next one's is asked
// for while there is other work to do.
void HistoryTable::prefetch(RingIndex i) const {
   if (i < nextUnused_) {
      Silo::prefetch(&index_.keyOf(i), sizeof(Key));
      Silo::prefetch(&rings_[(i + 1) % rings_.size()], sizeof(Ring));
      Silo::prefetch(&sample(i, rings_[i].place), geometry_.sampleStride);
   }
}

HistoryTable::RingIndex HistoryTable::ringFor(const Key& key, double time) {
   const RingIndex i = ringToTake(time);
   if (!index_.keyOf(i).isEmpty()) {
      index_.erase(i);
   }
   head(i).begin();
   // The system zeroes memory when it is first touched: that of blank rings a page at a time, as samples come.
   for (std::size_t s = 0; s < geometry_.depth && !rings_[i].isBlank; ++s) {
      sample(i, s).clear();
   }
   head(i).keyIs(key);
   index_.insert(key, i);
   noneBefore_ = std::min(noneBefore_, time);
   // Numbers go on: none comes twice in a ring.
   rings_[i] = {.last = rings_[i].last, .place = rings_[i].place};
   return i;
}

HistoryTable::RingIndex HistoryTable::ringToTake(double time) {
   const RingIndex past = silentRing(time, static_cast<double>(geometry_.depth) * options_.pollingInterval);
   if (past != KeyIndex::none) {
      return past;
   }
   if (nextUnused_ == rings_.size() && rings_.size() < options_.maxRings && noRoom_.empty()) {
      // By one bank only: the activity lock is held while the system looks for memory.
      growTo(std::min(options_.maxRings, HistoryGeometry::wholeBanks(rings_.size() + firstRings)));
   }
   if (nextUnused_ < rings_.size()) {
      return nextUnused_++;
   }
   const RingIndex silent = silentRing(time, silentAfter * options_.pollingInterval);
   if (silent != KeyIndex::none) {
      return silent;
   }
   if (!noRoom_.empty()) {
      throw TableError(noRoom_);
   }
   throw CapacityError(store_.describe(name_) + " is full: it has rings for " +
                       std::to_string(rings_.size()) + " keys");
}

// The ring that is silent for longest, if that is long enough. Many keys may come at once, when none is, so rings are
// looked through only once one may be found.
HistoryTable::RingIndex HistoryTable::silentRing(double time, double forLongerThan) {
   const auto used = rings_.begin() + static_cast<std::ptrdiff_t>(nextUnused_);
   if (time - noneBefore_ <= forLongerThan || used == rings_.begin()) {
      return KeyIndex::none;
   }
   const auto found = std::ranges::min_element(rings_.begin(), used, {}, &Ring::lastTime);
   noneBefore_ = found->lastTime;
   return time - noneBefore_ > forLongerThan ? static_cast<RingIndex>(found - rings_.begin())
                                             : KeyIndex::none;
}

// In place: rings that were there stay, and readers attach again.
void HistoryTable::growTo(std::size_t rings) {
   // A writer that was killed may have left more than it said.
   const bool isBlank = mapping_.fileSize() <= geometry_.sizeFor(rings_.size());
   try {
      mapping_.grow(geometry_.sizeFor(rings));
   } catch (const std::system_error& error) {
      // Others that come in this pass would only wait for the same answer, which takes the system long.
      noRoom_ = store_.describe(name_) + " has no room for more than " + std::to_string(rings_.size()) +
                " keys: " + error.what();
      return;
   }
   rings_.resize(rings, unusedRing(isBlank));
   state_.capacity = rings;
   header().stateIs(state_);
}

void HistoryTable::mend() {
   noRoom_.clear();
   std::string problem = store_.lossOf(name_, mapping_);
   if (problem.empty()) {
      problem = lossInMemory();
   }
   if (!problem.empty()) {
      remake(problem);
      return;
   }
   if (const std::string change = store_.restoreMode(mapping_); !change.empty()) {
      report(change, Remedy::modeMended);
   }
   mendHeads();
}

std::string HistoryTable::lossInMemory() const {
   TableState found;
   const bool isIntact = header().identityProblem(layout_).empty() &&
                         header().tryReadState(found) == TableHeader::StateRead::whole && found == state_ &&
                         historyHeader().depth() == geometry_.depth;
   return isIntact ? "" : "had its header overwritten";
}

void HistoryTable::remake(const std::string& problem) {
   try {
      replaceFile(store_, name_, mapping_, geometry_.sizeFor(state_.capacity),
                  [&](const Mapping& old) { carryOver(old, geometry_); });
      isNameLost_ = false;
      report(problem + ", with the samples that are left", Remedy::remade);
   } catch (const std::runtime_error& error) { // of the system or the store: the next pass tries again
      if (!std::exchange(isNameLost_, true)) {
         report(problem + ", and cannot be made anew: " + error.what(), Remedy::lost);
      }
   }
}

// Damaged samples are left out by readers, and go with time; a ring without its key would be lost to them.
void HistoryTable::mendHeads() {
   std::size_t mended = 0;
   for (RingIndex i = 0; i < nextUnused_; ++i) {
      const Key& key = index_.keyOf(i);
      if (!key.isEmpty() && !(head(i).key() == key && head(i).sequence() % 2 == 0)) {
         head(i).keyIs(key);
         ++mended;
      }
   }
   if (mended != 0) {
      report("had " + std::to_string(mended) + " of its keys overwritten", Remedy::headerMended);
   }
}

void HistoryTable::pollingIntervalIs(double seconds, double spacing) {
   state_.pollingInterval = seconds;
   options_.pollingInterval = seconds;
   options_.spacing = spacing;
   header().stateIs(state_);
}

void HistoryTable::removeIfNew() {
   if (isNew_) {
      removeOwnFile(store_, name_, mapping_);
   }
}

void HistoryTable::report(std::string text, Remedy remedy) const {
   if (options_.onCorruption) {
      options_.onCorruption({name_, "", std::move(text), remedy});
   }
}

} // namespace Silo
