// The counter tables of the P4 program: their list, what they count, and their clear.
#pragma once

#include "counters/chip/ChipView.h"
#include "zl/ZelCountersIntf.h"

#include <functional>
#include <map>

namespace ZelCounter {

class MatchEntries;
class Slices;

// Shows and clears work in slices (chip/Slices.h). When the chip goes meanwhile, they end.
class TableCounters : public ChipView {
 public:
   // Called before a table of one pipe, or of all, is set to zero, for who keeps counts of it to read it once more.
   // Returns how many of its entries, from the first on, are kept counts of; if any, it is called again when these are
   // zero, and nobody has got in since.
   enum class ClearStage { before, done };
   using OnClear = std::function<U32(ShowOutput& out, const ZlResourceInfo::ZlTableCounter& info,
                                     ZelId::ZelPipeId pipe, ClearStage stage)>;

   TableCounters(ChipAccess& chip, OnClear onClear) : ChipView(chip), onClear_(std::move(onClear)) {}

   void showInfo(ShowOutput& out) const;
   // Of a table that is not initialized, or a chip whose first pass is not complete, a line says so. The id is one of
   // the catalogue's (assertion). A per-pipe table needs a pipe (assertion); for any other table a line refuses one.
   void show(ShowOutput& out, U32 tableId, bool nonZeroOnly);
   void showPipe(ShowOutput& out, U32 tableId, ZelId::ZelPipeId pipeId, bool nonZeroOnly);
   void showAll(ShowOutput& out, bool nonZeroOnly);
   void clear(ShowOutput& out, U32 tableId, ZelId::ZelPipeId pipeId);
   void clearAll(ShowOutput& out);
   // What is said of a table that the SDK has not initialized yet.
   static Kiln::String uninitializedText(U32 tableId);
   // What to type instead for a table that the clears leave alone; null for any other.
   const char* otherClear(const ZlResourceInfo::ZlTableCounter& info) const;

 private:
   using Info = ZlResourceInfo::ZlTableCounter;
   // Entries that were read in one hold of the lock.
   struct Block {
      U32 first = 0; // its index in an indirect table
      std::vector<p4_pd_counter_value> values{};
      std::vector<Kiln::String> details{}; // of a direct table
      bool isLast = false;
      U32 status = 0;                   // of the last step
      const char* failedStep = nullptr; // if the status is not 0; null: an entry's read
   };
   // How often a table was begun to be cleared, and how many clears are under way.
   struct Writing {
      U64 begun = 0;
      U32 running = 0;
   };
   class WritingScope;
   // Differs between two readings that don't fit together.
   struct Moment {
      U64 syncs;
      double queuesTime;
      Writing writing;
   };

   Kiln::String tableTitle(const Info& info, ZelId::ZelPipeId pipeId) const;
   void showUninitialized(ShowOutput& out, U32 tableId, ZelId::ZelPipeId pipeId) const;
   void showDirectTable(ShowOutput& out, const Info* info, ZelId::ZelPipeId pipeId, bool nonZeroOnly,
                        Slices& slices);
   void showIndirectTable(ShowOutput& out, const Info& info, ZelId::ZelPipeId pipeId, bool nonZeroOnly,
                          Slices& slices);
   struct Shown {
      U32 status;       // of the last step
      ToldReading told; // as its rows were read
   };
   template <class Read, class WriteRow>
   Shown rows(ShowOutput& out, const Info& info, ZelId::ZelPipeId pipeId, bool nonZeroOnly, Slices& slices,
              Read read, WriteRow writeRow) const;
   Shown directRows(ShowOutput& out, const Info& info, ZelId::ZelPipeId pipeId, bool nonZeroOnly,
                    Slices& slices) const;
   Shown indirectRows(ShowOutput& out, const Info& info, ZelId::ZelPipeId pipeId, bool nonZeroOnly,
                      Slices& slices) const;
   void readDirect(MatchEntries& entries, const Info& info, ZelId::ZelPipeId pipeId, Block* block) const;
   void readIndirect(const Info& info, ZelId::ZelPipeId pipeId, U32 first, Block* block) const;
   static void tellError(ShowOutput& out, const Block& block);
   Moment momentOf(const Info& info, ZelId::ZelPipeId pipeId) const;
   void tellChanges(ShowOutput& out, const Info& info, ZelId::ZelPipeId pipeId, const Moment& first) const;
   Kiln::String entryDetails(U32 tableHandle, S32 entry) const;
   bool isOfQueues(const Info& info) const;
   U32 zeroDirect(const Info& info, ZelId::ZelPipeId pipeId, Slices& slices) const;
   U32 zeroIndirect(ShowOutput& out, const Info& info, ZelId::ZelPipeId pipeId, U32 kept,
                    Slices& slices) const;

   OnClear onClear_;
   Clears clears_;                   // by handle
   std::map<U32, Writing> writings_; // by handle
};

} // namespace ZelCounter
