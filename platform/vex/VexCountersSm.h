// The forwarding layer's interface counters reactor.
#pragma once

#include "kiln/Accessors.h"
#include "vex/ChipPublisher.h"
#include "vex/L3Counters.h"
#include "vex/QueuePublisher.h"
#include "vex/SharedTables.h"
#include "vex/VexCommonSmData.h"
#include "vex/VexHelper.h"
#include "vex/VexPortCounterSm.h"
#include "vex/VexTypes.h"
#include "vex/WriterConfig.h"
#include "zel/InterfaceDirs.h"

namespace Vex::Counters {

// Publishes the counters of ports, VLAN interfaces and queues in the shared tables, and keeps their clear baselines. A
// port is counted while the status directory has it; when it goes, so do its records. A port that moves to other
// hardware leaves the directory and comes back.
//
// An interface whose record no table takes is reported to the operator once; nothing is thrown. Activity thread;
// nothing is allocated once each interface has been read.
class CountersSm : public Kiln::Entity {
 public:
   // What the reactor works with. The helper and the clock are required. Any other pointer may be null; what depends on
   // it is left out.
   struct Context {
      Kiln::Ptr<VexCommonSmData> vexCommonSmData;
      Kiln::Ptr<const Interface::EthPhyIntfStatusDir> ethPhyIntfStatusDir;
      Kiln::Ptr<const Interface::VlanIntfStatusDir> vlanIntfStatusDir;
      Kiln::Ptr<Silo::Interface::AllIntfCounters> allIntfCounters;
      Kiln::Ptr<Silo::Interface::AllIntfClearCounters> allIntfClearCounters;
      Kiln::Ptr<Silo::Interface::AllIntfQueueCounters> allIntfQueueCounters;
      Kiln::Ptr<Silo::Interface::AllIntfClearQueueCounters> allIntfClearQueueCounters;
      Kiln::Ptr<Silo::Interface::AllVlanIntfCounters> allVlanIntfCounters;
      Kiln::Ptr<WriterStatus> vlanIntfCounterWriterStatus;
      Kiln::Ptr<const Kiln::Clock> clock;
      Kiln::Ptr<VexHelper::VexHelperCountersSm> helper;
      Kiln::Ptr<History> history{}; // null: none is kept
      Kiln::Ptr<ChipPublisher> chipPublisher{};
   };

   explicit CountersSm(Context context);
   ~CountersSm() override;

   // Switched on, begins to count the interfaces that exist; by then the helper must be able to find this reactor.
   // Switched off, takes no more events.
   void hasNotificationActiveIs(bool active) override;

   // An interface has new counters. A port's are read, vetted and published at once; a VLAN interface's are read once,
   // at the end of this turn of the loop. An empty or unknown interface is ignored.
   virtual void updateCounters(VexTypes::CounterType type, const Pelt::IntfId& intf);

   // Moves the clear baseline of an interface, or of "all", to now. False: no such interface.
   bool clear(const Kiln::String& name);

   // A VLAN interface's counters are about to go away: reads them now. Ignores one that is not counted.
   void readVlanIntf(const Pelt::IntfId& intf) { vlanIntfs_.read(intf); }

   // Removes the records of ports, of their queues and of VLAN interfaces that an earlier process published and this one
   // does not have. Internal interfaces are in no directory, so the caller says whether one has a port.
   void forgetAbsentInterfaces(const std::function<bool(const Pelt::IntfId&)>& hasPort);

   // Ports, with their previous counters.
   KILN_COLLECTION(Vex::Counters::CountersSm, Pelt::IntfId, VexPortCounterSm, intfId, vexPortCounterSm)

   const Kiln::Ptr<WriterStatus>& ethIntfCounterWriterStatus() const { return ethIntfCounterWriterStatus_; }
   void ethIntfCounterWriterStatusIs(Kiln::Ptr<WriterStatus> status);
   // Its reports are published from now on.
   const Kiln::Ptr<WriterConfig>& writerConfig() const { return writerConfig_; }
   void writerConfigIs(Kiln::Ptr<WriterConfig> config);

 private:
   struct KilnEthPhyIntfStatusDir : Interface::EthPhyIntfStatusDir::Notifiee {
      explicit KilnEthPhyIntfStatusDir(CountersSm* owner) : Notifiee(owner), sm(owner) {}
      void onIntfStatus(const Pelt::IntfId& intf) override { sm->handleEthPhyIntfStatus(intf); }
      CountersSm* sm;
   };
   struct KilnVlanIntfStatusDir : Interface::VlanIntfStatusDir::Notifiee {
      explicit KilnVlanIntfStatusDir(CountersSm* owner) : Notifiee(owner), sm(owner) {}
      void onIntfStatus(const Pelt::IntfId& intf) override { sm->handleVlanIntfStatus(intf); }
      CountersSm* sm;
   };
   struct KilnWriterConfig : WriterConfig::Notifiee {
      explicit KilnWriterConfig(CountersSm* owner) : Notifiee(owner), sm(owner) {}
      void onIntfQueueCounters(const Pelt::IntfId& intf,
                               const VexTypes::IntfQueueCounters& counters) override {
         sm->handleIntfQueueCounters(intf, counters);
      }
      void onIntfQueueCountersDel(const Pelt::IntfId& intf) override { sm->handleIntfQueueCountersDel(intf); }
      CountersSm* sm;
   };

   void handleInitialized();
   void handleEthPhyIntfStatus(const Pelt::IntfId& intf);
   void handleVlanIntfStatus(const Pelt::IntfId& intf);
   void handleIntfQueueCounters(const Pelt::IntfId& intf, const VexTypes::IntfQueueCounters& counters);
   void handleIntfQueueCountersDel(const Pelt::IntfId& intf);
   VexPortCounterSm::Tables portTables() const;
   void startPort(const Pelt::IntfId& intf);
   void stopPort(const Pelt::IntfId& intf);
   void updatePort(const Pelt::IntfId& intf);
   void prefetchPorts() const;
   void markVlanIntf(const Pelt::IntfId& intf);
   bool clearPort(const Pelt::IntfId& intf);
   bool clearQueues(const Pelt::IntfId& intf);
   void clearAll();

   Context context_;
   Kiln::Ptr<WriterStatus> ethIntfCounterWriterStatus_;
   Kiln::Ptr<WriterConfig> writerConfig_;
   Kiln::Ptr<VexTypes::IntfCounters> reading_ = Kiln::allocate<VexTypes::IntfCounters>(); // one for all ports
   QueuePublisher queues_;
   L3Counters vlanIntfs_;
   PublishErrors errors_;
   KilnEthPhyIntfStatusDir ethPhyIntfStatusDirNotifiee_;
   KilnVlanIntfStatusDir vlanIntfStatusDirNotifiee_;
   KilnWriterConfig writerConfigNotifiee_;
};

} // namespace Vex::Counters
