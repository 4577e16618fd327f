// What must hold after each event, and of all tables now and then.
#include "counters/ZelCounters.h"
#include "counters/queues/PipeIntfQueueCounterSm.h"
#include "counters/tables/HwTableCountersSm.h"
#include "tests/campaign/Campaign.h"
#include "tests/campaign/Readers.h"

#include <algorithm>
#include <cmath>

namespace Campaign {

namespace {

// Of the records that are whole.
template <class Record>
std::vector<std::string> keysOf(Silo::TableReader<Record>& reader) {
   std::vector<Silo::Entry<Record>> entries;
   reader.snapshot(entries);
   std::vector<std::string> keys;
   for (const auto& entry : entries) {
      if (entry.result == Silo::ReadResult::ok) {
         keys.emplace_back(entry.key.view());
      }
   }
   return keys;
}

} // namespace

void Run::checkPort(const std::string& intf) {
   Port& port = model_.ports.at(intf);
   Silo::Sample<Silo::Interface::IntfCounters> sample;
   const Silo::ReadResult result = readers_->ports.read(intf, sample);
   if (!isMended_ || (!port.isSure && port.sampleTime != now())) {
      return;
   }
   port.isSure = true;
   if (result != Silo::ReadResult::ok) {
      fail("the record of " + intf + " is " + Silo::text(result));
      return;
   }
   const auto& record = sample.record;
   for (std::size_t field = 0; field < fieldCount; ++field) {
      const U64 reading = Interface::word(record.reading, field);
      expectIs(reading, port.reading[field], "the reading of field ", field, " of ", intf);
      expectIs(record.totals[field], port.totals[field], "the total of field ", field, " of ", intf);
      const bool isStep = !port.isFirst; // else it is still the last one of the agent before
      expect(!isStep || record.deltas[field] == port.deltas[field], "the delta of field ", field, " of ",
             intf, " is ", record.deltas[field], " and not ", port.deltas[field]);
      expect(!isStep || (record.isAbsorbed[field] != 0) == port.isAbsorbed[field],
             "it is wrong whether field ", field, " of ", intf, " was absorbed");
      note(record.totals[field]);
   }
   expect(sample.info.sampleTime == port.sampleTime, "the sample time of ", intf, " is wrong");
   expect(port.isFirst || record.interval == port.interval, "the interval of ", intf, " is wrong");
   expect(record.discontinuityTime == port.discontinuityTime, "the discontinuity time of ", intf,
          " is wrong");
   expect(record.createdTime == port.createdTime, "the creation time of ", intf, " is wrong");
   expectIs(record.suspects, port.suspects, "the suspects of ", intf);
}

void Run::checkQueues(const std::string& intf) {
   Port::Queues& queues = model_.ports.at(intf).queues;
   Silo::Sample<Silo::Interface::IntfQueueCounters> sample;
   const Silo::ReadResult result = readers_->queues.read(intf, sample);
   if (!isMended_ || (!queues.isSure && queues.sampleTime != now())) {
      return;
   }
   queues.isSure = true;
   if (result != Silo::ReadResult::ok) {
      fail("the record of the queues of " + intf + " is " + Silo::text(result));
      return;
   }
   for (std::size_t queue = 0; queue < queueLimit; ++queue) {
      const auto& total = sample.record.totals[queue];
      const QueueCount is{total.packets, total.bytes, total.drops};
      for (std::size_t i = 0; i < is.size(); ++i) {
         expectIs(is[i], queues.totals[queue][i], "count ", i, " of queue ", queue, " of ", intf);
         note(is[i]);
      }
   }
   expect(sample.info.sampleTime == queues.sampleTime,
          "the sample time of the queues of " + intf + " is wrong");
   expect(sample.record.discontinuityTime == std::max(queues.discontinuityTime, sample.record.createdTime),
          "the discontinuity time of the queues of " + intf + " is wrong");
}

void Run::checkCounts() {
   for (const auto& [device, chip] : model_.chips) {
      const auto& counters = agent_->countersMgr().zelCounters(device);
      expectIs(counters->seuCount(), chip.seuCount, "seuCount of device ", +device);
      expectIs(counters->overflowCount(), chip.overflowCount, "overflowCount of device ", +device);
      expectIs(counters->macCountersLast().size(), chip.shown.size(), "the snapshots of device ", +device);
      expectIs(counters->macCountersClear().size(), chip.shown.size(), "the clear snapshots of device ",
               +device);
   }
}

void Run::checkSchedulers() {
   expect(agent_->countersMgr().zelCounters().size() == model_.chips.size(),
          "there is a chip too few or too many");
   const double due = agent_->countersMgr().countersMgrSm()->intfCounterPollingTimeMin();
   expect(due <= std::max(passDue_, now() + pollingInterval_), "the manager's clock is due too late");
   passDue_ = due;
   for (const auto& [device, chip] : model_.chips) {
      const auto& counters = agent_->countersMgr().zelCounters(device);
      const auto& tables = counters->hwTableCountersSm();
      expectIs(tables->pendingCallbacks(), chip.pending, "pendingCallbacks of device ", +device);
      expect((tables->pollingTimeMin() != never) == (chip.pending == 0),
             "the clock of the table syncs of device ", +device, " is wrongly armed or not");
      for (const auto& [pipe, state] : chip.pipes) {
         const bool isArmed = counters->pipeIntfQueueCounterSm(pipe)->pollingTimeMin() != never;
         expect(isArmed + state.isOutstanding + state.isStopped == 1, "the poller of pipe ", pipe,
                " of device ", +device, " is not exactly one of armed, waiting and stopped");
      }
   }
}

void Run::checkTables() {
   if (!isMended_) {
      return;
   }
   const auto checkKeys = [&](auto& reader, const auto& known, const char* of) {
      for (const std::string& key : keysOf(reader)) {
         expect(known.contains(key), std::string(of) + " has a record of " + key);
      }
   };
   checkKeys(readers_->ports, model_.ports, "the table of ports");
   checkKeys(readers_->clearedPorts, model_.ports, "that of their clears");
   checkKeys(readers_->queues, model_.ports, "the table of queues");
   checkKeys(readers_->clearedQueues, model_.ports, "that of their clears");
   checkKeys(readers_->vlanIntfs, model_.l3, "the table of VLAN interfaces");
   checkKeys(readers_->subIntfs, model_.l3, "the table of subinterfaces");
   checkKeys(readers_->nat, model_.l3, "the table of source NAT");
   for (const auto& [intf, port] : model_.ports) {
      Silo::Sample<Silo::Interface::IntfCounters> cleared;
      const bool isCleared = readers_->clearedPorts.read(intf, cleared) == Silo::ReadResult::ok;
      expect(!port.isSure || isCleared == port.cleared.has_value(),
             "it is wrong whether " + intf + " was cleared");
      if (isCleared && port.cleared) {
         expect(cleared.record.totals == *port.cleared, "the clear of " + intf + " is wrong");
         expect(cleared.record.createdTime == port.createdTime,
                "the clear of " + intf + " is of another record");
      }
      if (port.isPublished) {
         checkPort(intf);
      }
      if (port.queues.isReported) {
         checkQueues(intf);
      }
      Silo::Sample<Silo::Interface::IntfQueueCounters> clearedQueues;
      const bool areCleared = readers_->clearedQueues.read(intf, clearedQueues) == Silo::ReadResult::ok;
      expect(!port.queues.isSure || areCleared == port.queues.cleared.has_value(),
             "it is wrong whether the queues of " + intf + " were cleared");
      for (std::size_t queue = 0; areCleared && port.queues.cleared && queue < queueLimit; ++queue) {
         const auto& total = clearedQueues.record.totals[queue];
         expect(QueueCount{total.packets, total.bytes, total.drops} == (*port.queues.cleared)[queue],
                "the clear of the queues of " + intf + " is wrong");
      }
   }
}

void Run::checkFresh(double since) {
   for (const auto& [intf, port] : model_.ports) {
      expect(!isPolled(intf, port) || port.sampleTime >= since, intf + " is not fresh");
      const auto& pipe = model_.chips.at(port.place.device).pipes.at(static_cast<U16>(port.place.pipe()));
      expect(pipe.isStopped || pipe.hasLost || port.queues.sampleTime >= since,
             "the queues of " + intf + " are not fresh");
   }
   for (const auto& [device, chip] : model_.chips) {
      const auto age =
           agent_->countersMgr().zelCounters(device)->readings().age(ZelCounter::ReadingKey::Kind::tableSync);
      expect(chip.hasLost || (age && *age <= now() - since),
             "the tables of device " + std::to_string(device) + " are not fresh");
   }
}

} // namespace Campaign
