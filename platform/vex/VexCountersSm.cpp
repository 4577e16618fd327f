// Follows the interfaces that exist, and publishes their counters.
#include "vex/VexCountersSm.h"

#include "kiln/Assert.h"
#include "kiln/EventLog.h"
#include "kiln/Time.h"
#include "kiln/Trace.h"
#include "silo/Prefetch.h"

#include <cstdlib>

namespace Vex::Counters {

namespace {

Kiln::TraceHandle traceHandle("VexCountersSm");

// "Vlan20" is carried by VLAN 20; 0 for a name without a number.
U16 vlanOf(const Pelt::IntfId& vlanIntf) {
   const Kiln::String& text = vlanIntf.text();
   const std::size_t digits = text.find_first_of("0123456789");
   return digits == Kiln::String::npos ? U16{0}
                                       : static_cast<U16>(std::strtoul(text.c_str() + digits, nullptr, 10));
}

} // namespace

CountersSm::CountersSm(Context context)
     : context_(std::move(context)),
       queues_(context_.allIntfQueueCounters, context_.allIntfClearQueueCounters, context_.history),
       vlanIntfs_(context_.clock,
                  context_.allVlanIntfCounters ? &context_.allVlanIntfCounters->table() : nullptr,
                  context_.allVlanIntfCounters ? &context_.allVlanIntfCounters->clearTable() : nullptr,
                  [this](const Pelt::IntfId& intf, const Kiln::Ptr<VexTypes::L3IntfCounters>& current,
                         const Kiln::Ptr<VexTypes::L3IntfCounters>& previous) {
                     return context_.helper->getVlanIntfCounters(intf, current, previous);
                  }),
       ethPhyIntfStatusDirNotifiee_(this), vlanIntfStatusDirNotifiee_(this), writerConfigNotifiee_(this) {
   KILN_ASSERT(context_.helper);
   ethPhyIntfStatusDirNotifiee_.notifierIs(context_.ethPhyIntfStatusDir);
   vlanIntfStatusDirNotifiee_.notifierIs(context_.vlanIntfStatusDir);
}

CountersSm::~CountersSm() = default;

void CountersSm::hasNotificationActiveIs(bool active) {
   const bool wasActive = hasNotificationActive();
   Entity::hasNotificationActiveIs(active);
   if (active && !wasActive) {
      handleInitialized();
   } else if (!active) {
      vlanIntfs_.cancel();
   }
}

void CountersSm::handleInitialized() {
   context_.helper->hwInit();
   if (context_.vlanIntfCounterWriterStatus) {
      context_.vlanIntfCounterWriterStatus->activeIs(true);
   }
   // Ports only: a VLAN interface begins with its first counters, in markVlanIntf.
   if (context_.ethPhyIntfStatusDir) {
      for (const Pelt::IntfId& intf : context_.ethPhyIntfStatusDir->intfStatus().keys()) {
         handleEthPhyIntfStatus(intf);
      }
   }
}

void CountersSm::ethIntfCounterWriterStatusIs(Kiln::Ptr<WriterStatus> status) {
   ethIntfCounterWriterStatus_ = std::move(status);
   if (ethIntfCounterWriterStatus_) {
      ethIntfCounterWriterStatus_->activeIs(true);
   }
}

void CountersSm::writerConfigIs(Kiln::Ptr<WriterConfig> config) {
   writerConfig_ = std::move(config);
   writerConfigNotifiee_.notifierIs(writerConfig_);
}

void CountersSm::handleEthPhyIntfStatus(const Pelt::IntfId& intf) {
   const bool exists = context_.ethPhyIntfStatusDir->intfStatus(intf);
   if (exists && !vexPortCounterSm(intf)) {
      startPort(intf);
   } else if (!exists) {
      stopPort(intf);
   }
}

void CountersSm::startPort(const Pelt::IntfId& intf) {
   KILN_TRACE(4, "counting port " << intf);
   if (!context_.allIntfCounters || intf.empty()) {
      return;
   }
   try {
      vexPortCounterSmIs(Kiln::allocate<VexPortCounterSm>(intf));
   } catch (const std::invalid_argument& error) {
      // The interface's name is no record key. Nothing can be published under it, but the others go on.
      errors_.log(intf, error);
      return;
   }
   const Kiln::Ptr<VexPortCounterSm> port = vexPortCounterSm(intf);
   // The helper sets the previous record, through this reactor: the port has to be in its collection by now.
   context_.helper->initialize(intf);
   const bool isKept = context_.allIntfCounters->table().has(port->key());
   port->handleSeed(isKept, portTables());
   port->queueDropsIs(queues_.drops(intf));
   if (!isKept) { // what an earlier agent counted already is no news
      Kiln::EventLog::instance().record({.kind = Kiln::EventKind::portCame, .where = intf.text()});
   }
}

// The first table is there wherever there is a port.
VexPortCounterSm::Tables CountersSm::portTables() const {
   return {context_.allIntfCounters->table(),
           context_.allIntfClearCounters ? &context_.allIntfClearCounters->table() : nullptr,
           context_.history.ptr()};
}

void CountersSm::stopPort(const Pelt::IntfId& intf) {
   const Kiln::Ptr<VexPortCounterSm> port = vexPortCounterSm(intf);
   // Before the port is looked at: an interface whose name was refused never became one, and is reported again when it
   // comes back.
   errors_.forget(intf);
   if (!port) {
      return;
   }
   KILN_TRACE(4, "no longer counting port " << intf);
   port->remove(portTables());
   queues_.remove(intf);
   if (context_.chipPublisher) {
      context_.chipPublisher->intfDel(intf);
   }
   vexPortCounterSmDel(intf);
   Kiln::EventLog::instance().record({.kind = Kiln::EventKind::portWent, .where = intf.text()});
}

void CountersSm::updateCounters(VexTypes::CounterType type, const Pelt::IntfId& intf) {
   switch (type) {
   case VexTypes::CounterType::port:
      updatePort(intf);
      break;
   case VexTypes::CounterType::vlanIntf:
      markVlanIntf(intf);
      break;
   }
}

void CountersSm::updatePort(const Pelt::IntfId& intf) {
   const Kiln::Ptr<VexPortCounterSm>* const found = vexPortCounterSm().findInPass(intf);
   if (found == nullptr) {
      return;
   }
   const Kiln::Ptr<VexPortCounterSm> port = *found; // a watcher of what is published may take it away
   prefetchPorts();
   try {
      port->update(*context_.helper, reading_, portTables(),
                   context_.ethPhyIntfStatusDir->speed().findInPass(intf));
      errors_.forget(intf);
   } catch (const Silo::TableError& error) {
      // The caller may be an SDK callback, which nothing may be thrown into.
      errors_.log(intf, error);
   }
}

// The next port's counters; to know where they are takes the port, which is fetched a turn earlier.
void CountersSm::prefetchPorts() const {
   (*vexPortCounterSm().nextInPass())->prefetch();
   Silo::prefetch(vexPortCounterSm().secondNextInPass()->ptr(), sizeof(VexPortCounterSm));
}

void CountersSm::markVlanIntf(const Pelt::IntfId& intf) {
   if (!context_.vexCommonSmData || !context_.vexCommonSmData->vlanIntf(intf)) {
      return;
   }
   if (!vlanIntfs_.has(intf)) {
      if (!context_.helper->initializeVlanIntfCounters(intf, vlanOf(intf))) {
         return;
      }
      vlanIntfs_.add(intf);
   }
   vlanIntfs_.dueIs(intf);
}

void CountersSm::handleVlanIntfStatus(const Pelt::IntfId& intf) {
   if (context_.vlanIntfStatusDir->intfStatus(intf)) {
      return;
   }
   const bool wasCounted = vlanIntfs_.has(intf);
   vlanIntfs_.remove(intf);
   if (wasCounted) {
      context_.helper->deleteVlanIntfCounters(intf);
   }
}

void CountersSm::handleIntfQueueCounters(const Pelt::IntfId& intf,
                                         const VexTypes::IntfQueueCounters& counters) {
   if (intf.empty()) {
      return;
   }
   try {
      queues_.publish(intf, counters, context_.helper->queueCountersIncrement());
      if (const Kiln::Ptr<VexPortCounterSm>* const port = vexPortCounterSm().findInPass(intf)) {
         (*port)->queueDropsIs(queues_.drops(intf));
      }
   } catch (const std::exception&
                 error) { // the table's, or a name that is not a key; an SDK callback called this
      errors_.log(intf, error);
   }
}

void CountersSm::handleIntfQueueCountersDel(const Pelt::IntfId& intf) {
   try {
      queues_.remove(intf);
   } catch (const std::invalid_argument&) { // a name that is not a key: nothing was ever published under it
   }
}

bool CountersSm::clear(const Kiln::String& name) {
   // The helper first: clearing its queues publishes a report, which has to count before the baseline moves.
   try {
      context_.helper->doClearCounters(name);
   } catch (const std::exception& error) { // the queue table's, or a name that is not a key
      errors_.log(Pelt::IntfId{Kiln::Name(name)}, error);
   }
   if (name == "all") {
      clearAll();
      tellPublishedClear(name);
      return true;
   }
   const Pelt::IntfId intf{Kiln::Name(name)};
   // All of them are cleared before the answers are put together: a name may have records in more than one place.
   const bool isPort = clearPort(intf);
   const bool isVlanIntf = vlanIntfs_.clear(intf);
   const bool isCleared = clearQueues(intf) || isPort || isVlanIntf;
   if (isCleared) {
      tellPublishedClear(name);
   }
   return isCleared;
}

bool CountersSm::clearPort(const Pelt::IntfId& intf) {
   const Kiln::Ptr<VexPortCounterSm> port = vexPortCounterSm(intf);
   if (!port) {
      return false;
   }
   try {
      port->clear(portTables());
   } catch (const Silo::TableError& error) {
      errors_.log(intf, error);
   }
   return true;
}

bool CountersSm::clearQueues(const Pelt::IntfId& intf) {
   try {
      return queues_.clear(intf);
   } catch (const Silo::TableError& error) { // it is noted, and comes with the next report
      errors_.log(intf, error);
      return true;
   }
}

void CountersSm::forgetAbsentInterfaces(const std::function<bool(const Pelt::IntfId&)>& hasPort) {
   const auto isListed = [](const auto& directory, const Pelt::IntfId& intf) {
      return directory && directory->intfStatus(intf);
   };
   const auto isPort = [&](const Pelt::IntfId& intf) { return isListed(context_.ethPhyIntfStatusDir, intf); };
   if (context_.allIntfCounters && context_.ethPhyIntfStatusDir) {
      const VexPortCounterSm::Tables tables = portTables();
      for (auto* table : {&tables.counters, tables.clearCounters}) {
         for (const Silo::Key& key : table != nullptr ? table->keys() : std::vector<Silo::Key>{}) {
            if (!isPort(Pelt::IntfId{Kiln::Name(Kiln::String(key.view()))})) {
               table->recordDel(key);
               if (table == &tables.counters) {
                  Kiln::EventLog::instance().record(
                       {.kind = Kiln::EventKind::portWent, .where = Kiln::String(key.view())});
               }
            }
         }
      }
      queues_.removeAbsent(hasPort);
   }
   vlanIntfs_.removeAbsent(
        [&](const Pelt::IntfId& intf) { return isListed(context_.vlanIntfStatusDir, intf); });
}

void CountersSm::clearAll() {
   for (const Pelt::IntfId& intf : vexPortCounterSm().keys()) {
      clearPort(intf);
   }
   queues_.clearAll(errors_);
   vlanIntfs_.clearAll();
}

} // namespace Vex::Counters
