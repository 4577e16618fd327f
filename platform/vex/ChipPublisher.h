// Publishes what chips count besides their ports' MACs and queues, and how chips and agent fare.
#pragma once

#include "vex/ChipTables.h"
#include "vex/PlacedPublisher.h"
#include "vex/VexCountersLog.h"

namespace Vex {

// Outlives the chips, whose records go on when they come back. Activity thread; nothing is allocated once each record has
// been published.
class ChipPublisher : public Kiln::PtrInterface {
 public:
   explicit ChipPublisher(Kiln::Ptr<ChipTables> tables);

   PlacedPublisher<Silo::Interface::IntfDropCounters>& drops() { return drops_; }
   PlacedPublisher<Silo::Interface::IntfPdpCounters>& classes() { return classes_; }
   PlacedPublisher<Silo::Interface::PipeStageCounters>& stages() { return stages_; }
   PlacedPublisher<Silo::Interface::PipeDropCounters>& pipeDrops() { return pipeDrops_; }
   PlacedPublisher<Silo::Interface::PipeTmCounters>& trafficManager() { return trafficManager_; }

   // Runs what publishes a record. That a table refuses it is told the operator once in the record's life.
   template <class Publish>
   void tried(const Pelt::IntfId& name, Publish publish) {
      try {
         publish();
      } catch (const std::exception& error) { // the table's, or that the name is no key
         errors_.log(name, error);
      }
   }

   void placeIs(const Pelt::IntfId& intf, const Silo::Interface::IntfPlace& place);
   void placeDel(const Pelt::IntfId& intf);

   // How a chip fares. Its readings are counts by place, each from 0 in a life of the chip, but for the completions that
   // came late, which are the process's of the device.
   void healthIs(const Pelt::IntfId& chip, ZelId::ZelDevId device, U32 life,
                 const Silo::Interface::ChipHealth& health);
   // Version and times are set here.
   void agentHealthIs(Silo::Interface::AgentHealth health);

   // An interface is gone, and begins anew when it comes back.
   void intfDel(const Pelt::IntfId& intf);
   // A pipe or a chip is away, and goes on when it comes back.
   void pipeWithdrawn(const Pelt::IntfId& pipe);
   void chipWithdrawn(const Pelt::IntfId& chip);
   // Removes the records that an earlier process published of what is not there any more.
   using IsThere = std::function<bool(const Kiln::String& name)>;
   void absentDel(const IsThere& isIntf, const IsThere& isPipe, const IsThere& isChip);

 private:
   struct Late {
      U64 taken = 0; // of the device's completions
      U64 base = 0;  // those before the life
      U32 life = 0;
   };

   Kiln::Ptr<ChipTables> tables_;
   PublishErrors errors_;
   PlacedPublisher<Silo::Interface::IntfDropCounters> drops_;
   PlacedPublisher<Silo::Interface::IntfPdpCounters> classes_;
   PlacedPublisher<Silo::Interface::PipeStageCounters> stages_;
   PlacedPublisher<Silo::Interface::PipeDropCounters> pipeDrops_;
   PlacedPublisher<Silo::Interface::PipeTmCounters> trafficManager_;
   PlacedPublisher<Silo::Interface::ChipHealth> health_;
   std::array<Late, ZelId::maxDevices> late_{};
   double startedTime_;
   double startedUnixTime_;
};

} // namespace Vex
