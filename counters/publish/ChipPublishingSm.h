// Reads what a chip counts besides its ports' MACs and queues, and has it published.
#pragma once

#include "counters/drops/TmCounters.h"
#include "kiln/Timer.h"
#include "vex/ChipPublisher.h"
#include "zel/InterfaceDirs.h"

namespace ZelCounter {

// One a chip, owned by its counters object. After each completed sync pass it reads drops, classes, stages and
// match-action drops, and takes the traffic manager's counters as they were polled last. It works in slices, a third of
// a pipe each, between which the activity lock is free and ports may come, go and move.
//
// Nobody asked for these reads: one that fails is traced and changes nothing, neither here nor in the chip's readings, by
// which views and health judge. What they read goes to no view either.
class ChipPublishingSm : public Kiln::Entity {
 public:
   // The chip and its view own this, or outlive it.
   ChipPublishingSm(ChipAccess& chip, const TmCounters& tm, Kiln::Ptr<Vex::ChipPublisher> publisher,
                    Kiln::Ptr<const Kiln::Clock> clock);

   // The name of its records.
   static Kiln::String pipeName(const ChipAccess& chip, U16 pipe);

   // The first slice comes at once. One pass at a time: another one that completes meanwhile comes after it.
   void handleSyncPass();
   // Everything at once: the chip is about to go, and there may be no other pass.
   void readOnceMore();
   // A counter table of one pipe, or of all, is about to be set to zero, or has been.
   void readOnceMore(const ZlResourceInfo::ZlTableCounter& info, ZelId::ZelPipeId pipe);
   void tableWritten(const ZlResourceInfo::ZlTableCounter& info, ZelId::ZelPipeId pipe);

   // With each polling pass: how the chip fares, see ChipPublisher, and where its interfaces are. The directory knows their
   // speeds, and may be null.
   void healthIs(const Silo::Interface::ChipHealth& health);
   void publishPlaces(const Interface::EthPhyIntfStatusDir* directory);

   // The chip goes away: its records go until it comes back.
   void withdraw();
   // It goes: nothing is read any more.
   void stop() { sliceClock_.timeMinIs(Kiln::never); }

 private:
   enum class What : U8 { drops, classes, path, count };
   // A counter table of the program; without an info, the program has none that fits.
   struct Table {
      U32 id = 0;
      const ZlResourceInfo::ZlTableCounter* info = nullptr;
      std::vector<double> takenTimes{}; // by pipe: of the sync whose values were taken last
   };

   Table tableOf(const Kiln::String& name, U32 size) const;
   Table* dropTable(const ZlResourceInfo::ZlTableCounter& info);
   std::optional<double> syncTime(const Table& table, U16 pipe, bool isAnyway) const;
   void handleSliceClock();
   void readSlice(U32 slice, bool isAnyway);
   template <class Visit>
   void forEachPort(U16 pipe, Visit visit);
   template <class Publisher, class EntryOf>
   void takeTable(Publisher& publisher, Table& table, U16 pipe, double time, U32 entries, EntryOf entryOf);
   void readDrops(U16 pipe, bool isAnyway, const Table* only = nullptr);
   void readClasses(U16 pipe, bool isAnyway);
   void readPath(U16 pipe);
   void nameClasses();
   Vex::Source sourceAt(U16 place) const {
      return {chip_.deviceId(), Vex::Source::Block::path, place, chip_.life()};
   }

   ChipAccess& chip_;
   const TmCounters& tm_;
   Kiln::Ptr<Vex::ChipPublisher> publisher_;
   Kiln::Timer<ChipPublishingSm> sliceClock_;
   Pelt::IntfId chipName_;
   std::vector<Pelt::IntfId> pipeNames_;
   std::array<Table, ZlDrop::tables.size()> drops_;
   Table classes_;
   decltype(Silo::Interface::IntfPdpCounters::classNames) classNames_{};
   U32 nextSlice_ = 0;
   bool isDueAgain_ = false;
};

} // namespace ZelCounter
