// The PDP class counters of a chip's interfaces: packets by class, from the P4 program's table.
#pragma once

#include "counters/chip/ChipView.h"
#include "zel/PdpClasses.h"

#include <array>
#include <vector>

namespace ZelCounter {

class PdpCounters : public ChipView {
 public:
   using ChipView::ChipView;

   void fetch();
   static void printHeader(ShowOutput& out);
   static bool printLine(ShowOutput& out, const Kiln::String& intfName, const Kiln::String& className,
                         U64 count, bool headerDisplayed, bool nonZeroOnly);
   bool show(ShowOutput& out, const Pelt::IntfId& intf, bool headerDisplayed, bool nonZeroOnly, bool footer);
   void showAll(ShowOutput& out, bool nonZeroOnly);
   void clearAll();
   // Instead of counts, where the last fetch did not succeed.
   static void answerNotFetched(ShowOutput& out);

   // As fetched last, and as at the last clear, by interface.
   KILN_HASH_MAP(Pelt::IntfId, Kiln::Ptr<ZelQos::PdpIntfCounter>, pdpCountersLast)
   KILN_HASH_MAP(Pelt::IntfId, Kiln::Ptr<ZelQos::PdpIntfCounter>, pdpCountersClear)
   // Whether the last fetch read every pipe.
   KILN_ATTRIBUTE(bool, pdpCountersFetched, false)

 private:
   bool fetchPipe(const ZlResourceInfo::ZlTableCounter& info, U16 pipe);
   struct Counter {
      ZelQos::PdpIntfCounter* last = nullptr;
      const Pelt::IntfId* intf = nullptr;
   };
   Counter counterOf(U32 localPortKey);
   void handleFall(const Counter& counter, ZelQos::PdpClassId pdpClass);
   using Counts = std::array<U64, ZelQos::PdpIntfCounter::classes>;
   Counts countsOf(const Pelt::IntfId& intf) const;
   bool rows(ShowOutput& out, const Pelt::IntfId& intf, const Counts& counts, bool nonZeroOnly) const;
   std::vector<ToldReading> toldReadings(const Pelt::IntfId& intf = {}) const;
   static void tellReadings(ShowOutput& out, const std::vector<ToldReading>& readings);

   Cleared cleared_;
   Kiln::HashMap<Pelt::IntfId, U16> portKey_; // the local port key that pdpCountersLast was read at
};

} // namespace ZelCounter
