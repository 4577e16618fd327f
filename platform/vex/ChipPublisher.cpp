// Writes the records that have no totals, and health; the rest is PlacedPublisher's.
#include "vex/ChipPublisher.h"

#include "kiln/Time.h"

#include <cstring>

namespace Vex {

using Silo::Interface::AgentHealth;
using Silo::Interface::ChipHealth;
using Silo::Interface::IntfPlace;

ChipPublisher::ChipPublisher(Kiln::Ptr<ChipTables> tables)
     : tables_(std::move(tables)), drops_(tables_->drops()), classes_(tables_->classes()),
       stages_(tables_->stages()), pipeDrops_(tables_->pipeDrops()),
       trafficManager_(tables_->trafficManager()), health_(tables_->chipHealth()),
       startedTime_(Kiln::System::currentTime()), startedUnixTime_(Kiln::System::unixTime()) {}

void ChipPublisher::placeIs(const Pelt::IntfId& intf, const IntfPlace& place) {
   tried(intf,
         [&] { tables_->places().recordIs(Silo::Key(intf.text()), place, Kiln::System::currentTime()); });
}

void ChipPublisher::placeDel(const Pelt::IntfId& intf) {
   try {
      tables_->places().recordDel(Silo::Key(intf.text()));
   } catch (const std::invalid_argument&) { // a name that is not a key: nothing was ever published under it
   }
}

void ChipPublisher::healthIs(const Pelt::IntfId& chip, ZelId::ZelDevId device, U32 life,
                             const ChipHealth& health) {
   // Completions may come late while the chip is away, too. They count when it is back.
   Late& late = late_.at(device);
   if (late.life != life) {
      late = {late.taken, late.taken, life};
   }
   late.taken = health.readings[ChipHealth::late][0];
   tried(chip, [&] {
      // Each life counts from 0, as what is programmed does.
      auto& counted = health_.countedOf(chip, {device, Source::Block::path, 0, life, life});
      const double now = Kiln::System::currentTime();
      for (std::size_t place = 0; place < ChipHealth::placeCount; ++place) {
         const U64 before = place == ChipHealth::late ? late.base : 0;
         counted.take(place, {health.readings[place][0] - before}, now);
      }
      health_.publish(chip, [&](ChipHealth& record) {
         record.verdict = health.verdict;
         record.upTime = health.upTime;
         record.oldestReadTimes = health.oldestReadTimes;
         record.isPolled = health.isPolled;
         record.outstanding = health.outstanding;
         record.pendingVlans = health.pendingVlans;
      });
   });
}

void ChipPublisher::agentHealthIs(AgentHealth health) {
   tables_->agentVersion().copy(health.version.data(), health.version.size() - 1);
   health.startedTime = startedTime_;
   health.startedUnixTime = startedUnixTime_;
   static const Pelt::IntfId agent(Silo::Interface::agentKey);
   tried(agent, [&] {
      tables_->agentHealth().recordIs(Silo::Interface::agentKey, health, Kiln::System::currentTime());
   });
}

void ChipPublisher::intfDel(const Pelt::IntfId& intf) {
   drops_.remove(intf);
   classes_.remove(intf);
   placeDel(intf);
   errors_.forget(intf);
}

void ChipPublisher::pipeWithdrawn(const Pelt::IntfId& pipe) {
   stages_.withdraw(pipe);
   pipeDrops_.withdraw(pipe);
   trafficManager_.withdraw(pipe);
   errors_.forget(pipe);
}

void ChipPublisher::chipWithdrawn(const Pelt::IntfId& chip) {
   health_.withdraw(chip);
   errors_.forget(chip);
}

void ChipPublisher::absentDel(const IsThere& isIntf, const IsThere& isPipe, const IsThere& isChip) {
   for (const Silo::Key& key : tables_->places().keys()) {
      if (!isIntf(Kiln::String(key.view()))) {
         tables_->places().recordDel(key);
      }
   }
   drops_.removeAbsent(isIntf);
   classes_.removeAbsent(isIntf);
   stages_.removeAbsent(isPipe);
   pipeDrops_.removeAbsent(isPipe);
   trafficManager_.removeAbsent(isPipe);
   health_.removeAbsent(isChip);
}

} // namespace Vex
