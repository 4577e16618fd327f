// Finds the chip that has an interface and passes the request on.
#include "counters/helper/ZelCountersHelper.h"

#include "counters/ZelCounters.h"
#include "counters/chip/ManagerAccess.h"
#include "counters/helper/CountersMounts.h"
#include "kiln/Assert.h"
#include "kiln/Time.h"
#include "kiln/Trace.h"

#include <exception>
#include <stdexcept>

namespace ZelCounter {

namespace {

Kiln::TraceHandle traceHandle("ZelCountersHelper");

constexpr std::size_t unicastQueues = 8;

// VLAN interfaces and subinterfaces alike. The record is written only when there are counts: the caller's stays
// otherwise.
bool readL3Intf(const Kiln::Ptr<ZelCountersL3IntfSm>& l3IntfSm, const Pelt::IntfId& intf,
                VexTypes::L3IntfCounters& current) {
   Interface::L3IntfStatistics statistics = current.statistics();
   packets_and_bytes in;
   packets_and_bytes out;
   if (!l3IntfSm || !l3IntfSm->getIntfCounter(intf, &in, &out, &current.refillParts())) {
      return false;
   }
   statistics.inOctets = in.bytes;
   statistics.inPkts = in.packets;
   statistics.outOctets = out.bytes;
   statistics.outPkts = out.packets;
   current.statisticsIs(statistics);
   return true;
}

} // namespace

ZelCountersHelper::ZelCountersHelper(ManagerAccess* mgr,
                                     Kiln::Ptr<const ZelSystem::SystemStatus> systemStatus)
     : VexHelperCountersSm("ZelCountersHelper"), mgr_(mgr), systemStatus_(std::move(systemStatus)) {
   // A queue's counts may fall with its chip, so the forwarding layer adds up differences.
   queueCountersIncrementIs(true);
}

void ZelCountersHelper::getIntfQueueType(const Pelt::IntfId& intf, VexTypes::IntfQueueType& type) {
   KILN_TRACE(5, "getIntfQueueType, intf: " << intf);
   for (std::size_t queue = 0; queue < unicastQueues; ++queue) {
      type.queueTypeIs(queue, VexTypes::QueueType::unicast);
   }
}

Kiln::Ptr<ZelCounters> ZelCountersHelper::chipOf(const Pelt::IntfId& intf) const {
   const ZelSystem::PortRecord* const port = systemStatus_->portInfo().findInPass(intf);
   return mgr_ != nullptr && port != nullptr ? mgr_->zelCounters(port->devId) : nullptr;
}

// Nothing to set up, or to take down below: a VLAN is counted from when it carries an L3 interface until it doesn't.
bool ZelCountersHelper::initializeVlanIntfCounters(const Pelt::IntfId& vlanIntf, U16 vlan) {
   KILN_TRACE(5, "initializeVlanIntfCounters, vlanIntf: " << vlanIntf << ", vlan: " << vlan);
   return true;
}

void ZelCountersHelper::deleteVlanIntfCounters(const Pelt::IntfId& vlanIntf) {
   KILN_TRACE(5, "deleteVlanIntfCounters, vlanIntf: " << vlanIntf);
}

// This chip family counts ACL drops by rule, not by interface.
U64 ZelCountersHelper::getIntfAclDropCounters(const Pelt::IntfId& intf) {
   KILN_TRACE(5, "getIntfAclDropCounters, intf: " << intf);
   return 0;
}

bool ZelCountersHelper::getVlanIntfCounters(const Pelt::IntfId& vlanIntf,
                                            const Kiln::Ptr<VexTypes::L3IntfCounters>& current,
                                            const Kiln::Ptr<VexTypes::L3IntfCounters>&) {
   KILN_TRACE(5, "getVlanIntfCounters, vlanIntf: " << vlanIntf);
   return mgr_ != nullptr && readL3Intf(mgr_->zelCountersL3IntfSm(), vlanIntf, *current);
}

void ZelCountersHelper::getCounters(const Pelt::IntfId& intf, const Kiln::Ptr<VexTypes::IntfCounters>& record,
                                    const Kiln::Ptr<VexTypes::IntfCounters>& previous) {
   KILN_TRACE(5, "getCounters, intf: " << intf);
   if (const Kiln::Ptr<ZelCounters> chip = chipOf(intf)) {
      chip->getMacCounters(intf, record, previous);
   }
}

void ZelCountersHelper::getCoppCounters() {
   KILN_TRACE(5, "getCoppCounters");
}

void ZelCountersHelper::hwInit() {
   KILN_TRACE(1, "ZelCountersHelper::"
                      << "hwInit");
}

void ZelCountersHelper::initialize(const Pelt::IntfId& intf) {
   KILN_TRACE(1, "ZelCountersHelper::"
                      << "initialize"
                      << ", intf: " << intf);
   if (mgr_ == nullptr) {
      return;
   }
   const Kiln::Ptr<Vex::Counters::VexPortCounterSm> vexPortCounterSm =
        mgr_->vexCountersSm()->vexPortCounterSm(intf);
   KILN_ASSERT(vexPortCounterSm);
   const Kiln::Ptr<VexTypes::IntfCounters> prevCounters = vexPortCounterSm->prevCounters();
   KILN_ASSERT(prevCounters);
   // What an earlier process published is where this one's deltas begin, else the first would be the whole total. A
   // corrupt record goes to the table's corruption handler and reads as the default one.
   const auto published = mgr_->mounts()->allIntfCounters()->table().sampleOrDefault(vexPortCounterSm->key());
   prevCounters->recordIs(published.record);
   prevCounters->sampleTimeIs(published.info.sampleTime);
}

// Queues only: of ports' counters the forwarding layer itself keeps what was cleared.
void ZelCountersHelper::doClearCounters(const Kiln::String& name) {
   KILN_TRACE(5, "doClearCounters, name: " << name);
   if (name != "all") {
      const Pelt::IntfId intf{Kiln::Name(name)};
      if (systemStatus_->portInfo().contains(intf)) {
         doClearIntfQueueCounters(intf, false);
      }
      return;
   }
   for (const Pelt::IntfId& intf : systemStatus_->portInfo().keys()) {
      try {
         doClearIntfQueueCounters(intf, false);
      } catch (const std::exception& error) { // the others are still to be cleared
         KILN_TRACE(4, "doClearCounters, intf: " << intf << ": " << error.what());
      }
   }
}

VexTypes::IntfQueueCounters ZelCountersHelper::getIntfQueueCounters(const Pelt::IntfId& intf,
                                                                    VexTypes::IntfQueueCounters record) {
   KILN_TRACE(5, "getIntfQueueCounters"
                      << ", intf: " << intf);
   record = {};
   if (const Kiln::Ptr<ZelCounters> chip = chipOf(intf)) {
      const Kiln::Ptr<IntfQueueCounters> intfQueueCounters = chip->intfQueueCounters(intf);
      KILN_ASSERT(intfQueueCounters);
      record = queueRecord(*intfQueueCounters);
   }
   return record;
}

void ZelCountersHelper::doClearIntfQueueCounters(const Pelt::IntfId& intf, bool portChanged) {
   KILN_TRACE(5, "doClearIntfQueueCounters, intf: " << intf << ", portChanged: " << portChanged);
   const ZelSystem::PortRecord* const port = systemStatus_->portInfo().find(intf);
   if (mgr_ == nullptr || port == nullptr) {
      return;
   }
   const unsigned queues = queuesOfPort(port->pipePort());
   if (const Kiln::Ptr<ZelCounters> chip = chipOf(intf)) {
      chip->queues().clear(intf);
   }
   createSharedQueues(intf, queues);
}

void ZelCountersHelper::createSharedQueues(const Pelt::IntfId& intf, unsigned queues) {
   const auto published = mgr_->mounts()->allIntfQueueCounters();
   try {
      for (unsigned queue = 0; published && queue < queues; ++queue) {
         if (!published->has(intf, queue)) {
            KILN_TRACE(5, "Creating queueId in allIntfMountPoint " << queue);
            published->queueIs(intf, queue, Kiln::System::currentTime());
         }
      }
   } catch (const std::exception& error) { // a full table, or a name that can't be a key
      KILN_TRACE(4, "doClearIntfQueueCounters, intf: " << intf << ": " << error.what());
   }
}

bool ZelCountersSubIntfCountersHelper::getSubIntfCounters(const Pelt::IntfId& intf,
                                                          const Kiln::Ptr<VexTypes::L3IntfCounters>& current,
                                                          const Kiln::Ptr<VexTypes::L3IntfCounters>&) {
   KILN_TRACE(5, "getSubIntfCounters, intf: " << intf);
   return readL3Intf(l3IntfSm_, intf, *current);
}

} // namespace ZelCounter
