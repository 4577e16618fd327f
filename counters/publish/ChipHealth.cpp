// Judges chips by their readings.
#include "counters/publish/ChipHealth.h"

#include "counters/ZelCounters.h"
#include "counters/helper/CountersMounts.h"
#include "counters/l3/ZelCountersL3Intf.h"
#include "counters/publish/ChipPublishingSm.h"
#include "counters/tables/HwTableCountersSm.h"
#include "kiln/ActivityLock.h"
#include "kiln/Time.h"

namespace ZelCounter {

namespace {

using Silo::Interface::ChipHealth;

// In the order of ChipHealth::Kind.
constexpr std::array kinds{ReadingKey::Kind::mac, ReadingKey::Kind::tableSync, ReadingKey::Kind::queues,
                           ReadingKey::Kind::trafficManager};
static_assert(kinds.size() == ChipHealth::kindNames.size());

U64 pendingVlans(const ManagerAccess& mgr, ZelId::ZelDevId devId) {
   const auto& sm = mgr.zelCountersL3IntfSm();
   const auto helper = sm ? sm->helper(devId) : nullptr;
   return helper ? helper->pendingVlan().size() : 0;
}

Silo::Interface::AgentHealth agentHealth() {
   Silo::Interface::AgentHealth health;
   health.deadObjects = deadObjects();
   if (!Kiln::System::timeSource()->isSimulated()) { // there, holds take no time that counts
      const Kiln::ActivityLockAnchor::Statistics& lock = Kiln::ActivityLockAnchor::statistics();
      health.longestHold = lock.longestHold;
      health.longestWait = lock.longestWait;
      health.heldTime = lock.held;
      static_assert(health.holdBounds == Kiln::ActivityLockAnchor::holdBounds);
      health.holds = lock.holds;
   }
   return health;
}

} // namespace

ChipHealth healthOf(const ZelCounters& chip, const ManagerAccess& mgr) {
   ChipHealth health;
   const Readings& readings = chip.readings();
   bool isTroubled = false;
   readings.forEachPolled([&](const ReadingKey& key, const Reading& reading) {
      health.outstanding += reading.isOutstanding ? 1 : 0;
      isTroubled = isTroubled || !readings.state(key).trouble.empty();
   });
   health.verdict = readings.isSilent() ? ChipHealth::Verdict::silent
                    : isTroubled        ? ChipHealth::Verdict::degraded
                                        : ChipHealth::Verdict::ok;
   const double now = Kiln::System::currentTime();
   health.upTime = now - chip.age();
   for (std::size_t kind = 0; kind < kinds.size(); ++kind) {
      const std::optional<double> age = readings.age(kinds[kind]);
      health.isPolled[kind] = readings.isAsked(kinds[kind]) ? 1 : 0;
      health.oldestReadTimes[kind] = health.isPolled[kind] != 0 && age ? now - *age : 0;
   }
   health.readings[ChipHealth::refused] = {readings.refusedCount()};
   health.readings[ChipHealth::unanswered] = {readings.unansweredCount()};
   health.readings[ChipHealth::late] = {ChipAccess::lateCompletions(chip.deviceId())};
   health.readings[ChipHealth::wraps] = {chip.overflowCount()};
   health.readings[ChipHealth::upsets] = {chip.seuCount()};
   health.pendingVlans = pendingVlans(mgr, chip.deviceId());
   return health;
}

std::size_t deadObjects() {
   return CookieRegistry<ZelCounters>::instance().retiredCount() +
          CookieRegistry<HwTableCountersSm>::instance().retiredCount();
}

void publishHealth(const ZelCounters& chip, const ManagerAccess& mgr) {
   if (const Kiln::Ptr<ChipPublishingSm>& publishing = chip.chipPublishingSm()) {
      publishing->healthIs(healthOf(chip, mgr));
      publishing->publishPlaces(mgr.mounts()->ethPhyIntfStatusDir().ptr());
   }
}

void publishAgentHealth(Vex::ChipPublisher& publisher) {
   publisher.agentHealthIs(agentHealth());
}

} // namespace ZelCounter
