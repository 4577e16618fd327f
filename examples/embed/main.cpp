// The smallest agent around the counters library: the status of chips and ports, the shared tables, the manager, one
// chip with one port, and a command. It polls the stub SDK of Sdk.cpp, runs the command, and reads the published record
// as any other process would.
#include "Sdk.h"
#include "agent/CommandRunner.h"
#include "counters/ZelCountersMgr.h"
#include "kiln/ActivityLock.h"
#include "kiln/ActivityManager.h"
#include "kiln/TextOutput.h"
#include "silo/TableReader.h"
#include "zl/ZelSdk.h"

#include <iostream>
#include <unistd.h>

namespace {

constexpr const char* chipName = "Chip0";
constexpr const char* chipType = "two-pipe chip";
constexpr ZelId::ZelDevId device = 0;
constexpr U16 devicePort = 128 + 4; // pipe 1, slot 4

// Owns what the manager works with. Made and destroyed under the activity lock, like all code here.
class MinimalAgent {
 public:
   explicit MinimalAgent(const Silo::Store& store)
        : commands_(Kiln::allocate<Agent::AgentCommandRequestDirSm>()) {
      sess_hdl = 1;  // the SDK's session
      smRunning = 1; // SDK callbacks may come

      // Capabilities belong to a type of chip: this one has no VLAN tables, no NAT, no policy drops.
      systemStatus_->chipCapabilitiesIs(chipType, {});
      systemStatus_->hasNotificationActiveIs(true);
      ports_->hasNotificationActiveIs(true);

      // A mount may stay null: then its feature is left out.
      const Vex::SharedTables tables = Vex::openSharedTables(store);
      auto mounts = Kiln::allocate<ZelCounter::CountersMounts>();
      mounts->ethPhyIntfStatusDirIs(ports_);
      mounts->allIntfCountersIs(tables.allIntfCounters);
      mounts->allIntfClearCountersIs(tables.allIntfClearCounters);
      mounts->writerConfigIs(Kiln::allocate<Vex::Counters::WriterConfig>());
      mounts->ethIntfCounterWriterStatusIs(Kiln::allocate<Vex::Counters::WriterStatus>());

      mgr_ = ZelCounter::zelCountersMgrFactory(systemStatus_, mounts, Kiln::allocate<Vex::VexCommonSmData>(),
                                               commands_, Kiln::allocate<ZelQos::TmCountersData>(),
                                               Kiln::allocate<ZelQos::TmCountersData>(),
                                               Kiln::allocate<ZelCounter::CliPortDropData>());
   }

   // The two nulls are the services of the P4 program. Without them a chip counts its ports only.
   void addChip() {
      chipStatus_->highestLogicalPipeIdIs(1);
      chipStatus_->hasNotificationActiveIs(true);
      mgr_->addChip(device, chipName, {chipType}, ZelSdk::getZelSessionHdl(), nullptr, nullptr, chipStatus_);
   }

   void addPort(const Pelt::IntfId& intf) {
      systemStatus_->portInfoIs(intf, {device, devicePort});
      chipStatus_->portToIntfIdIs(devicePort, intf);
      ports_->intfStatusIs(intf, true); // from here on its counters are published
   }

   // Runs a line as an operator types it. A real agent takes such lines on a socket, with an Agent::CommandChannel.
   bool run(const char* line) {
      const auto runner = Kiln::allocate<Agent::CommandRunner>(commands_);
      runner->commandTypeIs("counters", "ZelCountersCli");
      const Agent::CommandSpool answer;
      const Agent::CommandResult result = runner->run(line, answer, "the agent");
      Kiln::TextOutput out(STDOUT_FILENO);
      answer.copyTo(out);
      if (!result.ok()) {
         std::cerr << "% " << result.error << '\n';
      }
      return result.ok();
   }

 private:
   Kiln::Ptr<ZelSystem::SystemStatus> systemStatus_ = Kiln::allocate<ZelSystem::SystemStatus>();
   Kiln::Ptr<Interface::EthPhyIntfStatusDir> ports_ = Kiln::allocate<Interface::EthPhyIntfStatusDir>();
   Kiln::Ptr<ZelSlice::ChipStatus> chipStatus_ = Kiln::allocate<ZelSlice::ChipStatus>();
   Kiln::Ptr<Agent::AgentCommandRequestDirSm> commands_;
   Kiln::Ptr<ZelCounter::ZelCountersMgr> mgr_;
};

// Reads as telemetry does, which runs in another process and needs no activity lock.
U64 publishedFrames(const Silo::Store& store, const char* intf) {
   using Silo::Interface::IntfCounters;
   Silo::TableReader<IntfCounters> reader(store, Silo::Interface::TableName::intfCounters);
   Silo::Sample<IntfCounters> sample;
   const Silo::ReadResult result = reader.read(Silo::Key(intf), sample);
   if (result != Silo::ReadResult::ok) {
      throw std::runtime_error(std::string("cannot read the record of ") + intf + ": " + Silo::text(result));
   }
   return sample.record.reading.inPkts;
}

void runExample(const Silo::Store& store) {
   // With simulated time only advance() lets time pass, so that the example ends at once. A real agent leaves this line
   // out. Where the example advances, it gives up the lock (lock.giveUp()) and calls the activity manager's run(), which
   // takes the lock itself: called with the lock held, it would stop at an assertion.
   Kiln::System::timeSourceIs(Kiln::allocate<Kiln::SimulatedTime>());
   const auto manager = Kiln::ActivityManager::instance();
   const auto lock = Kiln::ActivityLockAnchor::lock();

   MinimalAgent agent(store);
   agent.addChip();
   agent.addPort(Pelt::IntfId("Ethernet1"));
   Sdk::receive(devicePort, 1518);
   manager->advance(2.0); // a polling pass: the library asks the SDK for the port's counters
   Sdk::completeReads();  // each is vetted and published at once

   if (!agent.run("counters show mac intf Ethernet1 nonzero")) {
      throw std::runtime_error("the command was refused");
   }
   std::cout << "published: " << publishedFrames(store, "Ethernet1") << " frames\n";
}

} // namespace

int main() {
   try {
      // Its own, without a name. An agent that others read has Vex::defaultTableStore().
      runExample(Silo::Store::temporary());
      return 0;
   } catch (const std::exception& error) {
      std::cerr << "embed: " << error.what() << '\n';
      return 1;
   }
}
