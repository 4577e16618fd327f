// Counts of queues, L3 interfaces and places against a model that knows what the hardware really counted, in random
// sequences of all that may happen to both. The model shares nothing with the engine: it goes by events, in 128 bits, not
// by readings. Ports are left to the campaign.
#include "counters/helper/ZelCountersHelper.h"
#include "kiln/ActivityLock.h"
#include "tests/support/Files.h"
#include "tests/support/LoggedMessages.h"
#include "tests/support/Random.h"
#include "tests/support/SimulatedTime.h"
#include "tests/support/Slowdown.h"
#include "tests/support/TemporaryFolder.h"
#include "vex/PlacedPublisher.h"
#include "vex/VexCountersSm.h"

#include <deque>
#include <gtest/gtest.h>
#include <numeric>

namespace {

namespace TableName = Silo::Interface::TableName;
using Vex::Source;
using ZelTest::Random;
__extension__ using U128 = unsigned __int128;

constexpr U128 window = U128{1} << 48; // a rise by this much cannot be true
constexpr U128 modulus = U128{1} << 64;
constexpr std::size_t tableCapacity = 3; // there is one more interface

// What a value may be, as far as anybody can tell from readings.
struct Range {
   U128 low = 0;
   U128 high = 0;

   bool has(U64 value) const { return low <= value && value <= high; }
   void operator+=(const Range& other) {
      low += other.low;
      high += other.high;
   }
};

// --- the hardware ---

// A register. A flip turns a bit of what is read, not of what was counted.
struct Cell {
   U128 counted = 0; // all that it ever counted
   U128 began = 0;   // the same when it was zero last
   U64 flips = 0;
   U32 resets = 0;

   U128 real() const { return counted - began; }
   U64 reading() const { return static_cast<U64>(real()) ^ flips; }
   void countOn(Random& random) {
      const U64 kind = random.below(8192);
      counted += kind == 0      ? random.below(U64{1} << 48)
                 : kind < 64    ? random.below(U64{1} << 40)
                 : kind >= 2048 ? random.below(1000)
                                : 0;
   }
   void reset() {
      began = counted;
      flips = 0;
      ++resets;
   }
   void mend() { flips = 0; }
   void flip(Random& random) { flips ^= U64{1} << (48 + random.below(16)); }
};
using Cells = std::vector<Cell>;

struct Place {
   Cells cells;
   U16 number = 0;      // in its device
   U32 programming = 0; // 0: always there
   bool isThere = true;
   bool isResumed = false;  // its entries counted for nobody before
   bool isCounted = false;  // for the engine
   bool wasCounted = false; // for the model
   bool isTaken = false;    // an earlier process's records say so, of whichever life
};

struct Device {
   std::vector<Place> places;
   U32 life = 1;
};

// How registers make a record.
struct Layout {
   std::vector<std::size_t> groups;  // registers that fall together, by their number
   std::vector<std::size_t> fieldOf; // by register
   std::size_t fields() const { return fieldOf.back() + 1; }
};

std::vector<std::size_t> oneEach(std::size_t count) {
   std::vector<std::size_t> numbers(count);
   std::iota(numbers.begin(), numbers.end(), 0);
   return numbers;
}

// --- what is expected ---

enum class Mark : U8 { never, maybe, always };

// What a reading adds.
struct Verdict {
   explicit Verdict(const Layout& itsLayout)
        : layout(itsLayout), adds(layout.fields()), isUpset(layout.fields()) {}
   void add(std::size_t cell, Range range) { adds[layout.fieldOf[cell]] += range; }
   void upset(std::size_t cell) { isUpset[layout.fieldOf[cell]] = true; }
   void atLeast(Mark other) { mark = std::max(mark, other); }

   const Layout& layout;
   std::vector<Range> adds;
   std::vector<bool> isUpset;
   Mark mark = Mark::never;
   bool isExchanged = false;
};

// Goes from reading to reading of one place, by what happened there in between.
class Follower {
 public:
   // The next step begins at what the place has now. That counts, or is only compared with.
   void begin(const Cells& cells, bool isWhole, Verdict& verdict, bool isFromZero = false) {
      last_.clear();
      for (std::size_t i = 0; i < cells.size(); ++i) {
         Seen& seen = last_.emplace_back(Seen{cells[i]});
         seen.isMurky = seen.flips != 0;
         if (isWhole && isFromZero) { // a step that may be an upset
            seen.counted = seen.began;
            seen.flips = 0;
         } else if (isWhole) {
            verdict.add(i, {seen.real(), seen.real()});
         }
      }
   }
   void follow(const Cells& cells, Verdict& verdict) {
      std::size_t first = 0;
      for (const std::size_t size : verdict.layout.groups) {
         if (first < cells.size()) {
            verdict.atLeast(followGroup(cells, first, first + size, verdict));
         }
         first += size;
      }
      for (std::size_t i = 0; i < cells.size(); ++i) {
         static_cast<Cell&>(last_[i]) = cells[i];
      }
   }

 private:
   struct Seen : Cell {
      U128 owed = 0;        // counted in steps that a flip hid
      bool isMurky = false; // nobody knows how much is hidden
      bool isMended(const Cell& now) const { return (flips & ~now.flips) != 0; }
      bool isTurned(const Cell& now) const { return (now.flips & ~flips) != 0; }
      U128 step(const Cell& now) const { return now.resets != resets ? now.real() : now.counted - counted; }
   };

   Mark followGroup(const Cells& cells, std::size_t first, std::size_t end, Verdict& verdict) {
      const auto any = [&](auto is) {
         bool found = false;
         for (std::size_t i = first; i < end; ++i) {
            found |= is(last_[i], cells[i]);
         }
         return found;
      };
      const bool isReset = cells[first].resets != last_[first].resets;
      const bool falls =
           any([](const Seen& last, const Cell& now) { return now.reading() < last.reading(); });
      const bool isFlipped = any([](const Seen&, const Cell& now) { return now.flips != 0; });
      const bool wasFlipped = any([](const Seen& last, const Cell&) { return last.flips != 0; });
      // One that rises all the same has another bit turned.
      const bool isMended =
           falls && any([](const Seen& last, const Cell& now) { return last.isMended(now); });
      const bool isTurned = any([](const Seen& last, const Cell& now) { return last.isTurned(now); });
      const bool isMurky = any([](const Seen& last, const Cell&) { return last.isMurky; });
      const bool leaps = any([](const Seen& last, const Cell& now) {
         return last.step(now) + (last.isMended(now) ? last.owed : 0) >= window;
      });
      // Counting itself has changed the bits that are flipped, or more than a reading shows.
      const bool isOdd = any([](const Seen& last, const Cell& now) {
         return now.real() >= modulus || ((now.flips | last.flips) != 0 && now.real() >= window);
      });
      const bool isKnown =
           !isOdd && (isReset ? falls && !wasFlipped && !isMurky : !isMended || (!isMurky && !leaps));
      const bool isClear = isReset && !isFlipped && !leaps && (falls || (!wasFlipped && !isMurky));
      for (std::size_t i = first; i < end; ++i) {
         const Cell& now = cells[i];
         Seen& last = last_[i];
         const U128 step = last.step(now);
         if (isReset || !isKnown) {
            last.owed = 0;
            last.isMurky = !isKnown && !isClear;
         }
         if (!isKnown) {
            verdict.add(i, {0, isReset && now.flips == 0 ? std::min(step, window - 1) : window - 1});
         } else if ((isReset || isMended ? now.flips != 0 : last.isTurned(now)) || step >= window) {
            verdict.upset(i);
            last.owed += step;
            last.isMurky |= step >= window;
         } else {
            const U128 add = step + (isMended && !isReset ? std::exchange(last.owed, 0) : 0);
            verdict.add(i, {add, add});
         }
      }
      if (isKnown) {
         return isReset || isMended || isTurned || leaps ? Mark::always : Mark::never;
      }
      return falls ? Mark::always : Mark::maybe;
   }

   std::vector<Seen> last_;
};

// What a record is to have.
struct Count {
   struct Spot {
      std::size_t device;
      U16 place;
      U32 programming;
      U32 life;
      bool operator==(const Spot&) const = default;
   };
   struct Trail {
      Spot spot;
      Follower follower;
   };
   std::vector<Range> totals;
   double created = 0;
   std::vector<double> discontinuity; // one of these
   std::vector<Range> cleared{};      // empty: was not cleared
   double readTime = -1;
   std::vector<Trail> trails{}; // by device, if it counts at all of them
   bool isKept = false;         // an earlier process's, not read since
   int lastPlace = -1;          // at the reading before
};

// --- the counters under test ---

// A record as its readers see it.
struct View {
   std::vector<U64> totals;
   std::vector<U64> deltas;
   std::vector<bool> isAbsorbed;
   double created;
   double createdUnix;
   double discontinuity;
   double interval;
   U64 generation;
};

struct Part {
   Count::Spot spot;
   Place* place;
};

// How the first reading after a restart counts.
enum class Restart : U8 { baseline, byProgramming, byPlace };

class Subject {
 public:
   Subject(Layout itsLayout, Restart itsRestart, const char* itsTable)
        : layout(std::move(itsLayout)), restartKind(itsRestart), table(itsTable) {}
   virtual ~Subject() = default;

   virtual void add(std::size_t) {}
   virtual void remove(std::size_t intf) = 0;
   // Without parts the read fails.
   virtual void read(std::size_t intf, const std::vector<Part>* parts) = 0;
   virtual bool clear(std::size_t intf) = 0;
   // A new process, over the tables that the old one left.
   virtual void restart() = 0;
   virtual std::optional<View> view(std::size_t intf, bool isClear) = 0;

   const Layout layout;
   const Restart restartKind;
   const char* const table;
   const ZelTest::TemporaryFolder folder;
   const std::array<Pelt::IntfId, tableCapacity + 1> intfs{Pelt::IntfId("Port1"), Pelt::IntfId("Port2"),
                                                           Pelt::IntfId("Port3"), Pelt::IntfId("Port4")};

 protected:
   const Vex::SharedTables tables = Vex::openSharedTables(
        Silo::Store::directory(folder.path()), {.ports = tableCapacity, .subIntfs = tableCapacity});
};

template <class Record>
void addStep(const Record& record, View& view) {
   const std::size_t fields = view.totals.size();
   view.interval = record.interval;
   std::memcpy(view.deltas.data(), &record.deltas, fields * sizeof(U64));
   for (std::size_t i = 0; i < fields; ++i) {
      if constexpr (requires { record.isAbsorbed; }) {
         view.isAbsorbed[i] = record.isAbsorbed[i] != 0;
      } else {
         view.isAbsorbed[i] = ((record.absorbed >> i / 3) & 1) != 0;
      }
   }
}

template <class Record>
std::optional<View> viewOf(const Subject& subject, const Silo::Table<Record>& table, std::size_t intf) {
   const Silo::Key key(subject.intfs[intf].text());
   if (!table.has(key)) {
      return std::nullopt;
   }
   const Silo::Sample<Record> sample = table.sample(key);
   const Record& record = sample.record;
   const std::size_t fields = subject.layout.fields();
   View view{std::vector<U64>(fields),
             std::vector<U64>(fields),
             std::vector<bool>(fields),
             record.createdTime,
             record.createdUnixTime,
             record.discontinuityTime,
             0,
             sample.info.generation};
   std::memcpy(view.totals.data(), &record.totals, fields * sizeof(U64));
   if constexpr (requires { Record::placeCount; }) {
      return view; // it says nothing of a step
   } else {
      addStep(record, view);
      return view;
   }
}

// A port's helper keeps no baseline of its own here.
struct QuietHelper : ZelCounter::ZelCountersHelper {
   QuietHelper() : ZelCountersHelper(nullptr, nullptr) {}
   void doClearCounters(const Kiln::String&) override {}
};

class Queues : public Subject {
 public:
   Queues() : Subject({{2, 1, 2, 1, 2, 1}, oneEach(9)}, Restart::baseline, TableName::intfQueueCounters) {
      restart();
   }
   bool clear(std::size_t intf) override { return sm_->clear(intfs[intf].text()); }
   void restart() final {
      sm_ = nullptr;
      sm_ = Kiln::allocate<Vex::Counters::CountersSm>(
           Vex::Counters::CountersSm::Context{{},
                                              {},
                                              {},
                                              {},
                                              {},
                                              tables.allIntfQueueCounters,
                                              tables.allIntfClearQueueCounters,
                                              {},
                                              {},
                                              Kiln::activityManagerClock(),
                                              helper_});
      sm_->writerConfigIs(writer_);
      sm_->hasNotificationActiveIs(true);
   }
   void remove(std::size_t intf) override { writer_->intfQueueCountersDel(intfs[intf]); }
   void read(std::size_t intf, const std::vector<Part>* parts) override {
      if (parts == nullptr) {
         return;
      }
      const auto& [spot, place] = parts->front();
      VexTypes::IntfQueueCounters report;
      VexTypes::IntfQueueCounters::Stats readings{};
      for (std::size_t i = 0; i < place->cells.size(); i += 3) {
         const Cell* const cells = &place->cells[i];
         report.intfQueueStatIs(i / 3, {});
         readings[i / 3] = {cells[0].reading(), cells[1].reading(), cells[2].reading()};
      }
      report.readings().source = {static_cast<U8>(spot.device), Source::Block::queue, spot.place, spot.life};
      report.readings().isCounted = &place->isCounted;
      report.readings().stats = &readings;
      report.sampleTimeIs(Kiln::System::currentTime());
      writer_->intfQueueCountersIs(intfs[intf], report);
   }
   std::optional<View> view(std::size_t intf, bool isClear) override {
      return viewOf(
           *this, isClear ? tables.allIntfClearQueueCounters->table() : tables.allIntfQueueCounters->table(),
           intf);
   }

 private:
   const Kiln::Ptr<Vex::Counters::WriterConfig> writer_ = Kiln::allocate<Vex::Counters::WriterConfig>();
   const Kiln::Ptr<QuietHelper> helper_ = Kiln::allocate<QuietHelper>();
   Kiln::Ptr<Vex::Counters::CountersSm> sm_;
};

// Interfaces over all devices, with entries of their own in each.
class L3Intfs : public Subject {
 public:
   L3Intfs()
        : Subject({{2, 2, 2, 2, 2}, {0, 1, 0, 1, 0, 1, 2, 3, 2, 3}}, Restart::byProgramming,
                  TableName::subIntfCounters) {
      restart();
   }
   void add(std::size_t intf) override {
      l3_->add(intfs[intf]);
      added_.push_back(intf);
   }
   void remove(std::size_t intf) override {
      l3_->remove(intfs[intf]);
      std::erase(added_, intf);
   }
   void read(std::size_t intf, const std::vector<Part>* parts) override {
      parts_ = parts;
      l3_->read(intfs[intf]);
   }
   bool clear(std::size_t intf) override { return l3_->clear(intfs[intf]); }
   void restart() final {
      l3_ = std::make_unique<Vex::L3Counters>(
           Kiln::activityManagerClock(), &tables.subIntfCountersDir->table(),
           &tables.subIntfCountersSnapshotDir->table(),
           [this](const auto&, const auto& record, const auto&) { return fill(*record); });
      for (const std::size_t intf : added_) {
         l3_->add(intfs[intf]);
      }
   }
   std::optional<View> view(std::size_t intf, bool isClear) override {
      return viewOf(*this,
                    isClear ? tables.subIntfCountersSnapshotDir->table() : tables.subIntfCountersDir->table(),
                    intf);
   }

 private:
   bool fill(VexTypes::L3IntfCounters& record) const {
      if (parts_ == nullptr) {
         return false;
      }
      auto& readings = record.refillParts();
      for (const auto& [spot, place] : *parts_) {
         auto& reading = readings.emplace_back();
         reading.source = {static_cast<U8>(spot.device),
                           Source::Block::l2Domain,
                           spot.place,
                           0,
                           spot.programming,
                           place->isResumed};
         reading.isCounted = &place->isCounted;
         for (std::size_t i = 0; i < place->cells.size(); ++i) {
            reading.values[i / 2][i % 2] = place->cells[i].reading();
         }
      }
      return true;
   }

   std::unique_ptr<Vex::L3Counters> l3_;
   const std::vector<Part>* parts_ = nullptr;
   std::vector<std::size_t> added_;
};

// Places of a port or pipe. A clear of theirs, if it is one, is written to the hardware.
class Places : public Subject {
 public:
   Places()
        : Subject({std::vector<std::size_t>(8, 3), oneEach(24)}, Restart::byPlace, "Places"),
          table_(Silo::Store::directory(folder.path()), table, {},
                 {.capacity = tableCapacity, .pollingInterval = 2, .clockDomain = {}, .onCorruption = {}}) {
      restart();
   }
   void remove(std::size_t intf) override { publisher_->remove(intfs[intf]); }
   void read(std::size_t intf, const std::vector<Part>* parts) override {
      if (parts == nullptr) {
         publisher_->publish(intfs[intf]);
         return;
      }
      const auto& [spot, place] = parts->front();
      const Source source{static_cast<U8>(spot.device), Source::Block::path, spot.place, spot.life};
      auto& counted = publisher_->countedOf(intfs[intf], source);
      for (std::size_t i = 0; i < Record::placeCount; ++i) {
         const Cell* const cells = &place->cells[3 * i];
         counted.take(i, {cells[0].reading(), cells[1].reading(), cells[2].reading()},
                      Kiln::System::currentTime());
      }
      publish(intf);
   }
   bool clear(std::size_t intf) override {
      const auto isAny = [](U16) { return true; };
      for (const int device : {0, 1}) {
         publisher_->forEachAt(static_cast<U8>(device), isAny, [&](const Pelt::IntfId& name, auto& counted) {
            for (std::size_t i = 0; i < Record::placeCount && name == intfs[intf]; ++i) {
               counted.zeroed(i);
            }
         });
      }
      publish(intf);
      return true;
   }
   void restart() final { publisher_ = std::make_unique<Vex::PlacedPublisher<Record>>(table_); }
   std::optional<View> view(std::size_t intf, bool isClear) override {
      return isClear ? std::nullopt : viewOf(*this, table_, intf);
   }

 private:
   using Record = Silo::Interface::PipeStageCounters;

   void publish(std::size_t intf) {
      try {
         publisher_->publish(intfs[intf]);
      } catch (const Silo::CapacityError&) { // there is one interface too many
      }
   }

   Silo::Table<Record> table_;
   std::unique_ptr<Vex::PlacedPublisher<Record>> publisher_;
};

// --- the sequences ---

class Trial {
 public:
   Trial(Subject& subject, Random& random)
        : subject_(subject), random_(random), states_(subject.intfs.size()) {
      for (std::size_t device = 0; device < 2; ++device) {
         devices_.emplace_back();
         for (U16 number = 0; number < 3; ++number) {
            const std::size_t cells = subject.layout.fieldOf.size();
            const bool isSmall = isQueues() && number == 2;
            devices_[device].places.push_back(
                 {Cells(isSmall ? cells / 3 * 2 : cells), number, isL3() ? ++programming_ : 0});
         }
      }
   }

   // What went wrong; empty if nothing did.
   std::string run(U64 steps) {
      for (step_ = 0; step_ < steps && problem_.empty(); ++step_) {
         ZelTest::SimulatedTime::advance(1.0);
         intf_ = random_.below(states_.size());
         before_.clear();
         happen();
         act();
         for (std::size_t intf = 0; intf < states_.size(); ++intf) {
            if (intf == intf_ || step_ % 64 == 0) {
               check(intf);
            }
         }
         if (step_ % 4096 == 0) {
            logged_.take(); // they would only grow
         }
      }
      return problem_;
   }

 private:
   struct State {
      std::size_t device = 0;
      std::size_t place = 0;
      U64 generation = 0;   // goes on over all its records
      bool isThere = false; // is counted, published or not
      bool isInTable = false;
      bool isDamaged = false;
      bool isLoaded = true; // in this process
      bool owesClear = false;
      Count count{};
      std::optional<Count> publishedClear{};
   };

   bool isQueues() const { return subject_.restartKind == Restart::baseline; }
   bool isL3() const { return subject_.restartKind == Restart::byProgramming; }
   bool isPlaces() const { return subject_.restartKind == Restart::byPlace; }
   // A record comes with its first reading.
   bool isLazy() const { return isQueues() || isPlaces(); }
   State& state() { return states_[intf_]; }
   Place& place() { return devices_[state().device].places[state().place]; }
   void note(const char* what) {
      history_.push_back(std::to_string(step_) + ": interface " + std::to_string(intf_) + " at " +
                         std::to_string(state().device) + "/" + std::to_string(state().place) + ": " + what +
                         "\n");
      if (history_.size() > 60) {
         history_.pop_front();
      }
   }
   void require(bool holds, const char* what) {
      if (!holds && problem_.empty()) {
         problem_ = std::string(what) + "\nTo repeat: ZEL_TEST_SEED=" + std::to_string(random_.seed()) +
                    " scripts/test -R Continuity\n" +
                    std::accumulate(history_.begin(), history_.end(), std::string());
      }
   }

   // --- what happens to the hardware ---

   void happen() {
      if (random_.oneIn(100)) {
         state().device = random_.below(devices_.size());
         state().place = random_.below(3);
         note("is there now");
      }
      Cells& cells = place().cells;
      const std::size_t at = random_.below(cells.size());
      const U64 kind = random_.below(128);
      if (kind < 2) {
         note("hardware reset");
         reset(place(), random_.oneIn(2) ? at : cells.size());
      } else if (kind == 2) {
         note("hardware reset, and a counter far up");
         reset(place(), at);
         cells[at].counted += (window << 10) - 1 - random_.below(U64{1} << 20);
      } else if (kind == 3) {
         note("counter leaps");
         cells[at].counted += window;
      } else if (kind < 7 && place().wasCounted && cells[at].real() < window) {
         note("bit flips");
         cells[at].flip(random_);
      } else if (kind < 11) {
         note("bits are mended");
         std::ranges::for_each(cells, &Cell::mend);
      } else if (kind == 11) {
         replaceChip(devices_[state().device], random_.oneIn(2));
      } else if (kind == 12 && isL3()) {
         note("entries come or go");
         place().isThere = !place().isThere;
         if (place().isThere) { // not removed yet
            place().programming = ++programming_;
            place().isResumed = true;
         }
      } else if (kind == 13 && isL3()) {
         note("entries programmed anew");
         begin(place(), false);
      }
      std::ranges::for_each(cells, [&](Cell& cell) { cell.countOn(random_); });
   }
   // The group of that register, or all.
   void reset(Place& place, std::size_t at) {
      std::size_t first = 0;
      for (const std::size_t size : subject_.layout.groups) {
         const bool isIts = at >= place.cells.size() || (first <= at && at < first + size);
         for (std::size_t i = first; isIts && i < std::min(first + size, place.cells.size()); ++i) {
            place.cells[i].reset();
         }
         first += size;
      }
   }
   void begin(Place& place, bool isKept) {
      place.isCounted = place.wasCounted = place.isResumed = false;
      if (isL3()) {
         place.programming = ++programming_;
      }
      if (isL3() || !isKept) {
         reset(place, place.cells.size());
      } else { // what counts whole next has to be true
         std::ranges::for_each(place.cells, &Cell::mend);
      }
   }
   void replaceChip(Device& device, bool isKept) {
      note(isKept ? "chip replaced, its hardware kept" : "chip replaced");
      ++device.life;
      std::ranges::for_each(device.places, [&](Place& place) { begin(place, isKept); });
   }

   // --- what the agent does ---

   void act() {
      const U64 kind = random_.below(256);
      if (!state().isThere) {
         begin();
      } else if (kind < 3) {
         end();
      } else if (kind < 12) {
         clear();
      } else if (kind < 16) {
         note("a read fails");
         subject_.read(intf_, nullptr);
      } else if (kind < 18) {
         damage();
      } else if (kind == 18) {
         restart();
      } else {
         read();
      }
   }
   void begin() {
      note("begins");
      subject_.add(intf_);
      state().isThere = true;
      newCount(state());
      if (isLazy()) {
         read(); // that is how they begin
      }
   }
   void newCount(State& state) const {
      const double now = Kiln::System::currentTime();
      state.count = {std::vector<Range>(subject_.layout.fields()), now, {now}};
      state.owesClear = false;
   }
   void end() {
      note("ends");
      subject_.remove(intf_);
      state() = {state().device, state().place, state().generation};
   }
   void clear() {
      note("is cleared");
      if (isPlaces()) {
         clearHardware();
         return;
      }
      load(state());
      require(subject_.clear(intf_), "it was not cleared");
      state().count.cleared = state().count.totals;
      state().owesClear = true;
      writeClear();
   }
   // It is read before, so that nothing is lost.
   void clearHardware() {
      read();
      before_.clear();
      reset(place(), place().cells.size());
      subject_.clear(intf_);
      Verdict none(subject_.layout);
      state().count.trails.front().follower.begin(place().cells, false, none);
      state().count.discontinuity = {Kiln::System::currentTime()};
   }
   template <class Is>
   bool takes(Is isIn) {
      return isIn(state()) || std::ranges::count_if(states_, isIn) < static_cast<int>(tableCapacity);
   }
   void writeClear() {
      if (state().owesClear && takes([](const State& each) { return each.publishedClear.has_value(); })) {
         state().publishedClear = state().count;
         state().owesClear = false;
      }
   }
   void damage() {
      if (!state().isInTable || state().isDamaged || !state().isLoaded) {
         return;
      }
      note("its record is damaged");
      const std::string path = subject_.folder.path() + "/" + subject_.table;
      const std::size_t at = ZelTest::bytesOf(path).rfind(subject_.intfs[intf_].text());
      ASSERT_NE(at, std::string::npos);
      ZelTest::overwrite(path, at + (random_.oneIn(2) ? 0 : sizeof(Silo::Key::Words)), "!damaged");
      state().isDamaged = true;
   }
   void restart() {
      subject_.restart();
      for (Device& device : devices_) {
         replaceChip(device, true);
      }
      note("the agent restarts");
      for (Device& device : devices_) {
         std::ranges::for_each(device.places, [](Place& place) { place.isTaken = false; });
      }
      for (State& state : states_) {
         state.isLoaded = false;
         if (isPlaces() && state.isInTable && !state.isDamaged) { // its record says where it was counted
            const Count::Spot& spot = state.count.trails.front().spot;
            devices_[spot.device].places[spot.place].isTaken = true;
         }
         if (isLazy()) {
            state.isThere &= state.isInTable; // others begin with a report
         } else {
            load(state);
         }
      }
   }
   // A new process takes a record over; that of queues when it needs it.
   void load(State& state) const {
      if (std::exchange(state.isLoaded, true)) {
         return;
      }
      const bool isLost = !state.isInTable || state.isDamaged;
      if (isLost) {
         newCount(state);
      }
      if (isLost || !state.publishedClear || state.publishedClear->created != state.count.created) {
         state.publishedClear.reset();
      }
      state.count.cleared = state.publishedClear ? state.publishedClear->cleared : std::vector<Range>{};
      state.count.isKept = !isLost;
      state.owesClear = false;
   }
   void read() {
      note("is read");
      load(state());
      std::vector<Part> parts;
      for (std::size_t device = 0; device < devices_.size(); ++device) {
         Place& place = devices_[device].places[state().place];
         if (isL3() ? place.isThere : device == state().device) {
            // No life of entries: they are programmed anew in each.
            parts.push_back(
                 {{device, place.number, place.programming, isL3() ? 0 : devices_[device].life}, &place});
         }
      }
      Count& count = state().count;
      Verdict verdict(subject_.layout);
      judge(count, parts, verdict);
      const double now = Kiln::System::currentTime();
      before_ = count.totals;
      for (std::size_t i = 0; i < verdict.adds.size(); ++i) {
         count.totals[i] += verdict.adds[i];
      }
      if (verdict.mark == Mark::always) {
         count.discontinuity.clear();
      }
      if (verdict.mark != Mark::never) {
         count.discontinuity.push_back(now);
      }
      interval_ = verdict.isExchanged || count.readTime < 0 ? 0 : now - count.readTime;
      count.readTime = now;
      isUpset_ = std::move(verdict.isUpset);
      isMarked_ = verdict.mark != Mark::never;
      subject_.read(intf_, &parts);
      if (takes([](const State& each) { return each.isInTable; })) {
         state().isInTable = true;
         state().isDamaged = false;
         writeClear();
      }
   }

   // What the readings add, by the rules.
   void judge(Count& count, const std::vector<Part>& parts, Verdict& verdict) const {
      const bool isKept = std::exchange(count.isKept, false);
      if (isKept && (isQueues() || isL3())) {
         count.trails.clear();
         count.lastPlace = -1;
         count.readTime = -1;
         verdict.atLeast(Mark::always); // what was counted before the first reading is lost
      }
      const auto isGone = [&](const Count::Trail& trail) {
         return std::ranges::none_of(parts,
                                     [&](const Part& part) { return part.spot.device == trail.spot.device; });
      };
      if (isL3() && std::erase_if(count.trails, isGone) != 0) {
         verdict.atLeast(Mark::always);
      }
      for (const Part& part : parts) {
         auto trail = std::ranges::find_if(count.trails, [&](const Count::Trail& each) {
            return !isL3() || each.spot.device == part.spot.device;
         });
         if (trail == count.trails.end()) {
            const bool isWhole = isOwn(count, part) && !(isKept && isQueues());
            trail = count.trails.insert(trail, {part.spot, {}});
            trail->follower.begin(part.place->cells, isWhole, verdict, isL3());
         } else if (trail->spot != part.spot) {
            exchange(*trail, part, isKept, isOwn(count, part), verdict);
         }
         part.place->wasCounted = true;
         part.place->isTaken = false;
         trail->follower.follow(part.place->cells, verdict);
      }
      if (!parts.empty()) {
         count.lastPlace = parts[0].spot.place;
      }
   }
   // Whether all that the part has counted is the interface's.
   bool isOwn(const Count& count, const Part& part) const {
      const bool isNewer = isL3() && count.lastPlace == part.spot.place; // programmed while it was there
      return !part.place->isResumed && !part.place->isTaken && (isNewer || !part.place->wasCounted);
   }
   static void exchange(Count::Trail& trail, const Part& part, bool isKept, bool isWhole, Verdict& verdict) {
      const Count::Spot before = std::exchange(trail.spot, part.spot);
      const bool isNextLife = before.device == part.spot.device && before.place == part.spot.place &&
                              before.programming == part.spot.programming;
      if (!isNextLife) {
         trail.follower.begin(part.place->cells, part.spot.programming != 0 && isWhole, verdict, true);
      }
      if (!isKept) {
         verdict.isExchanged = true;
         verdict.atLeast(Mark::always);
      } else if (!isNextLife) { // nobody knows where the process before has read
         verdict.adds.assign(verdict.adds.size(), {0, 2 * window});
         verdict.atLeast(Mark::maybe);
      }
   }

   // --- whether it is so ---

   void check(std::size_t intf) {
      State& state = states_[intf];
      if (!state.isDamaged) {
         const std::optional<View> view = subject_.view(intf, false);
         require(view.has_value() == state.isInTable, "a record is there, or is missing");
         if (view) {
            checkRecord(state, *view);
            if (intf == intf_ && !before_.empty()) {
               checkStep(*view);
            }
         }
      }
      const std::optional<View> clear = subject_.view(intf, true);
      require(clear.has_value() == state.publishedClear.has_value(), "a clear is there, or is missing");
      if (clear && problem_.empty()) {
         checkClear(state, *clear);
      }
   }
   void checkRecord(State& state, const View& view) {
      Count& count = state.count;
      for (std::size_t i = 0; i < view.totals.size(); ++i) {
         require(count.totals[i].has(view.totals[i]), "the total is not what was counted");
         count.totals[i] = {view.totals[i], view.totals[i]};
      }
      require(std::ranges::count(count.discontinuity, view.discontinuity) != 0,
              "the discontinuity is another one");
      count.discontinuity = {view.discontinuity};
      require(view.created == count.created && view.createdUnix == count.created, "it began at another time");
      require(view.generation >= state.generation, "the generation went back");
      state.generation = view.generation;
   }
   void checkStep(const View& view) {
      if (isPlaces()) {
         return;
      }
      for (std::size_t i = 0; i < view.totals.size(); ++i) {
         const bool isSure = before_[i].low == before_[i].high;
         require(!isSure || before_[i].low + view.deltas[i] == view.totals[i],
                 "the delta is not the total's step");
         require(view.isAbsorbed[i] || !isUpset_[i], "an upset is not told");
         require(!view.isAbsorbed[i] || isMarked_, "an upset is told without a mark");
      }
      require(view.interval == interval_, "the interval is another one");
   }
   void checkClear(State& state, const View& view) {
      Count& published = *state.publishedClear;
      require(view.created == published.created, "the clear is another record's");
      for (std::size_t i = 0; i < view.totals.size(); ++i) {
         require(published.cleared[i].has(view.totals[i]), "the clear is not the total at its time");
         require(!state.isInTable || view.totals[i] <= state.count.totals[i].high, "since the clear it fell");
         published.cleared[i] = {view.totals[i], view.totals[i]};
      }
      if (!state.owesClear) {
         state.count.cleared = published.cleared;
      }
   }

   Subject& subject_;
   Random& random_;
   ZelTest::LoggedMessages logged_;
   std::vector<Device> devices_;
   std::vector<State> states_;
   U32 programming_ = 0;
   U64 step_ = 0;
   std::size_t intf_ = 0;
   // Of this step, if it was a reading: totals before, and what comes with it.
   std::vector<Range> before_;
   std::vector<bool> isUpset_;
   bool isMarked_ = false;
   double interval_ = 0;
   std::deque<std::string> history_;
   std::string problem_;
};

class Continuity : public testing::Test {
 protected:
   void holdsFor(Subject&& subject) {
      const std::string problem = Trial(subject, random).run(steps);
      EXPECT_TRUE(problem.empty()) << problem;
   }

   const ZelTest::SimulatedTime time;
   Random random;
   const U64 steps = 250'000 / ZelTest::slowdown;
   const Kiln::ActivityLockAnchor::Guard lock = Kiln::ActivityLockAnchor::lock();
};

TEST_F(Continuity, HoldsForQueues) {
   holdsFor(Queues());
}

TEST_F(Continuity, HoldsForPlaces) {
   holdsFor(Places());
}

TEST_F(Continuity, HoldsForL3Interfaces) {
   holdsFor(L3Intfs());
}

// Each place is read on its own, and one read may fail at a new port where the others succeed.
TEST_F(Continuity, APlaceThatWasNotReadAtItsPortIsOnlyComparedWithByALaterAgent) {
   using Record = Silo::Interface::IntfDropCounters;
   const ZelTest::TemporaryFolder folder;
   Silo::Table<Record> table(Silo::Store::directory(folder.path()), "Drops", {},
                             {.capacity = 1, .pollingInterval = 2, .clockDomain = {}, .onCorruption = {}});
   const Pelt::IntfId intf("Port1");
   const Source before{0, Source::Block::path, 5, 1};
   const Source after{0, Source::Block::path, 6, 1};
   auto publisher = std::make_unique<Vex::PlacedPublisher<Record>>(table);
   const auto read = [&](const Source& source, std::initializer_list<std::pair<std::size_t, U64>> places) {
      ZelTest::SimulatedTime::advance(1.0);
      auto& counted = publisher->countedOf(intf, source);
      for (const auto& [place, value] : places) {
         counted.take(place, {value}, Kiln::System::currentTime());
      }
      publisher->publish(intf);
      return table.sample("Port1").record;
   };
   read(before, {{0, 100}, {1, 50}});
   const Record moved = read(after, {{0, 1000}});
   EXPECT_EQ(moved.totals[0][0], 100U);
   EXPECT_EQ(moved.totals[1][0], 50U);
   EXPECT_EQ(moved.readTimes[1], 0.0);
   EXPECT_EQ(moved.readings[1][0], 0U);

   publisher = std::make_unique<Vex::PlacedPublisher<Record>>(table); // the agent restarts
   const Record later = read({0, Source::Block::path, 6, 2}, {{0, 1005}, {1, 700}});
   EXPECT_EQ(later.totals[0][0], 105U);
   EXPECT_EQ(later.totals[1][0], 50U);
   EXPECT_EQ(later.createdTime, moved.createdTime);
   EXPECT_EQ(read({0, Source::Block::path, 6, 2}, {{0, 2}, {1, 703}}).totals[0][0], 107U) << "a reset";
}

// Places that outlive their chips, with clears that may also be written to the hardware.
TEST_F(Continuity, HoldsForShownCounts) {
   struct Shown {
      Cells cells = Cells(3);
      Follower follower{};
      std::array<Range, 3> sinceClear{};
      bool isRead = false;
   };
   const Layout layout{{3}, oneEach(3)};
   std::array<Shown, 5> places;
   Vex::ShownCounts<3> counts;
   U32 life = 1;
   for (U64 step = 0; step < steps; ++step) {
      const std::size_t at = random.below(places.size());
      Shown& place = places[at];
      Cell& cell = place.cells[random.below(3)];
      const U64 kind = random.below(64);
      std::ranges::for_each(place.cells, [&](Cell& each) { each.countOn(random); });
      if (kind < 3) { // 0: the chip comes back with its hardware kept
         life += kind < 2 ? 1 : 0;
         std::ranges::for_each(place.cells, [&](Cell& each) { kind != 0 ? each.reset() : void(); });
      } else if (kind == 3) {
         cell.counted += window;
      } else if (kind < 6 && place.isRead && cell.real() < window) {
         cell.flip(random);
      } else if (kind < 10) {
         std::ranges::for_each(place.cells, &Cell::mend);
      } else if (kind == 10) {
         counts.clear();
         std::ranges::for_each(places, [](Shown& each) { each.sinceClear = {}; });
      } else if (kind == 11) { // the hardware is written
         counts.zeroed();
         for (Shown& each : places) {
            each.sinceClear = {};
            std::ranges::for_each(each.cells, &Cell::reset);
            Verdict none(layout);
            each.follower.begin(each.cells, false, none);
         }
      }
      if (kind < 60) { // else the read fails
         Verdict verdict(layout);
         if (!std::exchange(place.isRead, true)) {
            place.follower.begin(place.cells, true, verdict);
         }
         place.follower.follow(place.cells, verdict);
         counts.read(at, life,
                     {place.cells[0].reading(), place.cells[1].reading(), place.cells[2].reading()});
         for (std::size_t i = 0; i < 3; ++i) {
            place.sinceClear[i] += verdict.adds[i];
         }
      }
      for (std::size_t i = 0; i < 3; ++i) {
         const U64 shown = counts.sinceClear(at, i);
         ASSERT_TRUE(place.sinceClear[i].has(shown))
              << "step " << step << ", place " << at << ", value " << i;
         place.sinceClear[i] = {shown, shown};
      }
      ASSERT_EQ(counts.isRead(at), place.isRead);
   }
}

} // namespace
