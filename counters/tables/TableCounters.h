// The counter tables of the P4 program: their list, what they count, and their clear.
#pragma once

#include "counters/chip/ChipView.h"

#include <functional>

namespace ZelCounter {

class TableCounters : public ChipView {
 public:
   // Called before a table of one pipe, or of all, is set to zero, for who keeps counts of it to read it once more; and
   // again once that has been done.
   enum class ClearStage { before, done };
   using OnClear = std::function<void(ShowOutput& out, const ZlResourceInfo::ZlTableCounter& info,
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
   Kiln::String tableTitle(const ZlResourceInfo::ZlTableCounter& info, ZelId::ZelPipeId pipeId) const;
   void showUninitialized(ShowOutput& out, U32 tableId, ZelId::ZelPipeId pipeId) const;
   void showDirectTable(ShowOutput& out, const ZlResourceInfo::ZlTableCounter* info, ZelId::ZelPipeId pipeId,
                        bool nonZeroOnly);
   void showIndirectTable(ShowOutput& out, const ZlResourceInfo::ZlTableCounter& info,
                          ZelId::ZelPipeId pipeId, bool nonZeroOnly);
   U32 directRows(ShowOutput& out, const ZlResourceInfo::ZlTableCounter& info, ZelId::ZelPipeId pipeId,
                  bool nonZeroOnly) const;
   void indirectRows(ShowOutput& out, const ZlResourceInfo::ZlTableCounter& info, ZelId::ZelPipeId pipeId,
                     bool nonZeroOnly) const;
   Kiln::String entryDetails(U32 tableHandle, S32 entry) const;

   OnClear onClear_;
   Clears clears_; // by handle
};

} // namespace ZelCounter
