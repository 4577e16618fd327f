// The shared tables and directories that the agent mounts before it makes the counters manager.
#pragma once

#include "kiln/Accessors.h"
#include "vex/SharedTables.h"
#include "vex/VexCountersSm.h"
#include "zel/InterfaceDirs.h"

namespace ZelCounter {

// A plain record of pointers, each null until the agent fills it. What needs a null one is left out. But these are
// required (assertion): qosPolicyDropCountSiloTable by a chip that counts QoS-policy drops, writerConfig by a chip that
// counts queues, intfAllNatCounterDir by an L3 interface.
//
// Some are only carried: nothing here reads or writes globalIntfConfig, vexCliConfig, bridgingConfig, the three
// ...IntfConfigDir, the tables for QoS-policy drops and ACL counts, or the ACL clear requests and responses.
class CountersMounts : public Kiln::PtrInterface {
 public:
   KILN_POINTER(const Interface::EthPhyIntfConfigDir, ethPhyIntfConfigDir)
   KILN_POINTER(const Interface::EthPhyIntfStatusDir, ethPhyIntfStatusDir)
   KILN_POINTER(Vex::Counters::WriterStatus, ethIntfCounterWriterStatus)
   KILN_POINTER(const Interface::GlobalIntfConfig, globalIntfConfig)
   KILN_POINTER(const Vex::Counters::CliConfig, vexCliConfig)
   KILN_POINTER(Silo::ZelSystem::P4CounterTable, qosPolicyDropCountSiloTable)
   KILN_POINTER(Silo::Interface::AllIntfCounters, allIntfCounters)
   KILN_POINTER(Silo::Interface::AllIntfClearCounters, allIntfClearCounters)
   KILN_POINTER(Vex::Counters::WriterConfig, writerConfig)
   KILN_POINTER(Silo::Interface::AllIntfQueueCounters, allIntfQueueCounters)
   KILN_POINTER(Silo::Interface::AllIntfClearQueueCounters, allIntfClearQueueCounters)
   KILN_POINTER(const Bridging::BridgingConfig, bridgingConfig)
   KILN_POINTER(const Interface::VlanIntfConfigDir, vlanIntfConfigDir)
   KILN_POINTER(const Interface::VlanIntfStatusDir, vlanIntfStatusDir)
   KILN_POINTER(Silo::Interface::AllVlanIntfCounters, allVlanIntfCounters)
   KILN_POINTER(Vex::Counters::WriterStatus, vlanIntfCounterWriterStatus)
   KILN_POINTER(const Interface::SubIntfConfigDir, subIntfConfigDir)
   KILN_POINTER(const Interface::SubIntfStatusDir, subIntfStatusDir)
   KILN_POINTER(Silo::Interface::SubIntfCountersDir, subIntfCountersDir)
   KILN_POINTER(Silo::Interface::SubIntfCountersSnapshotDir, subIntfCountersSnapshotDir)
   KILN_POINTER(Silo::Interface::AllNatCounterDir, intfAllNatCounterDir)
   KILN_POINTER(Vex::History, history)
   KILN_POINTER(Vex::EventRecorder, events)
   KILN_POINTER(Vex::ChipTables, chipTables)
   KILN_POINTER(Silo::ZelSystem::AclCounterTable, aclCounterTable)
   KILN_POINTER(const ZelAclCounter::AclCounterClearRequest, aclCounterClearRequest)
   KILN_POINTER(ZelAclCounter::AclCounterClearResponse, aclCounterClearResponse)
};

} // namespace ZelCounter
