// The shared tables of what chips count besides their ports' MACs and queues.
#pragma once

#include "kiln/Ptr.h"
#include "silo/Table.h"
#include "vex/PublishedChip.h"

#include <functional>

namespace Vex {

// Mounted as one. This process is their one writer. Activity thread. Errors are Table's.
class ChipTables : public Kiln::PtrInterface {
 public:
   struct Options {
      Silo::TableOptions ofIntfs;
      Silo::TableOptions ofPipes;
      Silo::TableOptions ofChips;
      Kiln::String agentVersion; // for the agent's own record; cut at 31 characters
   };
   ChipTables(const Silo::Store& store, const Options& options);

   Silo::Table<Silo::Interface::IntfPlace>& places() { return places_; }
   Silo::Table<Silo::Interface::IntfDropCounters>& drops() { return drops_; }
   Silo::Table<Silo::Interface::IntfPdpCounters>& classes() { return classes_; }
   Silo::Table<Silo::Interface::PipeStageCounters>& stages() { return stages_; }
   Silo::Table<Silo::Interface::PipeDropCounters>& pipeDrops() { return pipeDrops_; }
   Silo::Table<Silo::Interface::PipeTmCounters>& trafficManager() { return trafficManager_; }
   Silo::Table<Silo::Interface::ChipHealth>& chipHealth() { return chipHealth_; }
   Silo::Table<Silo::Interface::AgentHealth>& agentHealth() { return agentHealth_; }
   const Kiln::String& agentVersion() const { return agentVersion_; }

   // With each polling pass: see Table. Asks between two tables whether to go on.
   void mend(const std::function<bool()>& goesOn);
   void keep();
   // Seconds between two polling passes, with which places and health come; and between two sync passes.
   void pollingIntervalIs(double seconds);
   void syncIntervalIs(double seconds);

 private:
   template <class Visit>
   void forEach(Visit visit) {
      forEachPolled(visit);
      forEachSynced(visit);
   }
   template <class Visit>
   void forEachPolled(Visit visit) {
      visit(places_);
      visit(chipHealth_);
      visit(agentHealth_);
   }
   template <class Visit>
   void forEachSynced(Visit visit) {
      visit(drops_);
      visit(classes_);
      visit(stages_);
      visit(pipeDrops_);
      visit(trafficManager_);
   }

   Silo::Table<Silo::Interface::IntfPlace> places_;
   Silo::Table<Silo::Interface::IntfDropCounters> drops_;
   Silo::Table<Silo::Interface::IntfPdpCounters> classes_;
   Silo::Table<Silo::Interface::PipeStageCounters> stages_;
   Silo::Table<Silo::Interface::PipeDropCounters> pipeDrops_;
   Silo::Table<Silo::Interface::PipeTmCounters> trafficManager_;
   Silo::Table<Silo::Interface::ChipHealth> chipHealth_;
   Silo::Table<Silo::Interface::AgentHealth> agentHealth_;
   Kiln::String agentVersion_;
};

} // namespace Vex
