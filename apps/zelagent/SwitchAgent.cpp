// Wires the agent's parts together, and brings chips and ports up and down.
#include "apps/zelagent/SwitchAgent.h"

#include "agent/LogCommand.h"
#include "counters/ZelCounters.h"
#include "counters/l3/ZelCountersL3Intf.h"
#include "counters/tables/ZelCountersSm.h"
#include "kiln/ActivityLock.h"
#include "kiln/ActivityManager.h"
#include "kiln/Choices.h"
#include "kiln/Numbers.h"
#include "kiln/OperatorLog.h"
#include "kiln/RingLog.h"
#include "softchip/PdpClasses.h"
#include "zl/ZelSdk.h"

#include <array>
#include <cerrno>
#include <cstring>
#include <exception>
#include <stdexcept>
#include <sys/stat.h>
#include <unistd.h>

namespace ZelAgent {

namespace {

constexpr const char* chipTypeName = "soft chip";
constexpr std::string_view chipNamePrefix = "Zel";
constexpr U32 sdkSession = 1;

constexpr Kiln::LogMessage hardwareLost{
     "ZEL_AGENT_HARDWARE_LOST", Kiln::Severity::error,
     "The file of hardware counters %s %s. Counters are kept no longer than this agent runs.",
     "Somebody removed, cut or overwrote the file while the agent was running. It counts on, in memory; "
     "counters that the "
     "file has lost began at zero. Published totals stay.",
     "Find who does so. Then stop the agent, remove what is left of the file, and start the agent again."};

ZelId::ZelDevId deviceOf(const Kiln::String& chipName) {
   const std::string_view name = chipName;
   const auto number =
        name.starts_with(chipNamePrefix)
             ? Kiln::parseNumber<ZelId::ZelDevId>(name.substr(chipNamePrefix.size()), 0, maxChips - 1)
             : std::nullopt;
   // "Zel01" has a number too, but is not a chip's name.
   if (!number || chipName != Kiln::String(chipNamePrefix) + std::to_string(*number)) {
      throw std::invalid_argument("no chip can be named '" + chipName + "': expected Zel0 to Zel7");
   }
   return *number;
}

// The chip's classes, without the default one, which needs no name.
Kiln::Ptr<const ZelQos::QosToZelPdpClassMapping> pdpClassMapping() {
   auto mapping = Kiln::allocate<ZelQos::QosToZelPdpClassMapping>();
   for (const SoftChip::PdpClass& each : SoftChip::pdpClasses) {
      if (each.id != 0) {
         mapping->zelPdpClassIs(each.name, ZelQos::PdpClassId(each.id));
      }
   }
   return mapping;
}

// Returns whether it was not there yet.
bool makeFolder(const Kiln::String& path) {
   // Other users' programs read the tables, so they may enter.
   if (path.empty() || mkdir(path.c_str(), 0755) == 0) {
      return !path.empty();
   }
   if (errno != EEXIST) {
      throw std::runtime_error("cannot create the folder " + path + ": " + std::strerror(errno));
   }
   return false;
}

Silo::Store storeFor(const SwitchAgentConfig& config) {
   if (!config.siloFolder.empty()) {
      return Silo::Store::directory(config.siloFolder);
   }
   return config.tablesAreTemporary ? Silo::Store::temporary() : Vex::defaultTableStore();
}

} // namespace

SwitchAgent::SwitchAgent(const SwitchAgentConfig& config) : config_(config) {
   try {
      build();
   } catch (...) {
      const std::exception_ptr why = std::current_exception();
      try {
         tearDown();
      } catch (const std::exception& error) {
         KILN_RINGLOG("taking back a start that failed: " << error.what());
      }
      std::rethrow_exception(why);
   }
}

SwitchAgent::~SwitchAgent() {
   tearDown();
}

void SwitchAgent::build() {
   const auto lock = Kiln::ActivityLockAnchor::lock();
   sess_hdl = sdkSession;
   // The clean-up of an earlier agent leaves 0, and at 0 completions are ignored in simulation.
   smRunning = 1;
   hasMadeFolder_ = makeFolder(config_.siloFolder);
   fleet_ = std::make_unique<SoftChip::Fleet>(config_.hardwareFile);
   traffic_ = std::make_unique<SoftChip::Traffic>(*fleet_, Kiln::activityManagerClock(), config_.seed);

   // New entities notify nobody, and the manager's reactors live on these notifications.
   systemStatus_ = Kiln::allocate<ZelSystem::SystemStatus>();
   systemStatus_->chipCapabilitiesIs(chipTypeName, config_.capabilities);
   systemStatus_->qosToZelPdpClassMappingIs(pdpClassMapping());
   systemStatus_->hasNotificationActiveIs(true);
   ethPhyIntfStatusDir_ = Kiln::allocate<Interface::EthPhyIntfStatusDir>();
   ethPhyIntfStatusDir_->hasNotificationActiveIs(true);
   vlanIntfStatusDir_ = Kiln::allocate<Interface::VlanIntfStatusDir>();
   vlanIntfStatusDir_->hasNotificationActiveIs(true);
   subIntfStatusDir_ = Kiln::allocate<Interface::SubIntfStatusDir>();
   subIntfStatusDir_->hasNotificationActiveIs(true);

   commandDirectory_ = Kiln::allocate<Agent::AgentCommandRequestDirSm>();
   mgr_ = ZelCounter::zelCountersMgrFactory(systemStatus_, mount(), Kiln::allocate<Vex::VexCommonSmData>(),
                                            commandDirectory_, Kiln::allocate<ZelQos::TmCountersData>(),
                                            Kiln::allocate<ZelQos::TmCountersData>(),
                                            Kiln::allocate<ZelCounter::CliPortDropData>());
   mgr_->sdkPollingIntervalIs(config_.pollingInterval);
   commandRunner_ = Kiln::allocate<Agent::CommandRunner>(commandDirectory_);
   commandRunner_->commandTypeIs("counters", "ZelCountersCli");
   for (const auto& [keyword, log] : {std::pair{"log", Agent::LogCommand::Log::operatorLog},
                                      std::pair{"ringlog", Agent::LogCommand::Log::ringLog}}) {
      commandDirectory_->agentCommandCallbackIs(Kiln::allocate<Agent::LogCommand>(keyword, log));
      commandRunner_->commandTypeIs(keyword, keyword);
   }

   for (unsigned chip = 0; chip < config_.chips; ++chip) {
      chipAdd(Kiln::String(chipNamePrefix) + std::to_string(chip));
   }
   if (!config_.hardwareFile.empty()) {
      hardwareClock_.emplace(Kiln::activityManagerClock(), this, &SwitchAgent::handleHardwareClock);
      handleHardwareClock();
   }
}

// Told once: what is lost does not come back, and the agent goes on without it.
void SwitchAgent::handleHardwareClock() {
   constexpr double tick = 2.0; // seconds
   const Kiln::String loss = fleet_->hardware().loss();
   if (loss.empty()) {
      hardwareClock_->timeMinIs(Kiln::System::currentTime() + tick);
   } else {
      Kiln::OperatorLog::instance().log(hardwareLost, std::array{fleet_->hardware().path(), loss});
   }
}

// The library goes before the fleet, and under the lock: completions that the fleet delivers as it ends then find no
// chip. The fleet goes without the lock, since those completions take it.
void SwitchAgent::tearDown() {
   {
      const auto lock = Kiln::ActivityLockAnchor::lock();
      if (mgr_) {
         for (const auto& [devId, chip] : mgr_->zelCounters()) {
            if (chip->zelCountersSm()) {
               chip->zelCountersSm()->doCleanup();
            }
         }
      }
      hardwareClock_.reset();
      traffic_ = nullptr;
      commandRunner_ = nullptr;
      mgr_ = nullptr;
   }
   newTables_.reset();
   if (fleet_ && !isKept_) {
      fleet_->hardware().createdDel();
   }
   fleet_ = nullptr;
   if (hasMadeFolder_ && !isKept_) {
      rmdir(config_.siloFolder.c_str());
   }
}

void SwitchAgent::createdIsKept() {
   const auto lock = Kiln::ActivityLockAnchor::lock();
   isKept_ = true;
   Vex::keepSharedTables(*newTables_);
   newTables_.reset();
}

Kiln::Ptr<ZelCounter::CountersMounts> SwitchAgent::mount() {
   store_ = storeFor(config_);
   Vex::SharedTableSettings settings;
   settings.areProvisional = true;
   settings.agentVersion = ZEL_VERSION;
   settings.historyInterval = config_.pollingInterval;
   settings.historyMinutes = config_.historyMinutes;
   newTables_ = Vex::openSharedTables(*store_, settings);
   const Vex::SharedTables& tables = *newTables_;
   auto mounts = Kiln::allocate<ZelCounter::CountersMounts>();
   mounts->ethPhyIntfConfigDirIs(Kiln::allocate<Interface::EthPhyIntfConfigDir>());
   mounts->ethPhyIntfStatusDirIs(ethPhyIntfStatusDir_);
   mounts->ethIntfCounterWriterStatusIs(Kiln::allocate<Vex::Counters::WriterStatus>());
   mounts->globalIntfConfigIs(Kiln::allocate<Interface::GlobalIntfConfig>());
   mounts->vexCliConfigIs(Kiln::allocate<Vex::Counters::CliConfig>());
   mounts->qosPolicyDropCountSiloTableIs(Kiln::allocate<Silo::ZelSystem::P4CounterTable>());
   mounts->allIntfCountersIs(tables.allIntfCounters);
   mounts->allIntfClearCountersIs(tables.allIntfClearCounters);
   mounts->writerConfigIs(Kiln::allocate<Vex::Counters::WriterConfig>());
   mounts->allIntfQueueCountersIs(tables.allIntfQueueCounters);
   mounts->allIntfClearQueueCountersIs(tables.allIntfClearQueueCounters);
   mounts->bridgingConfigIs(Kiln::allocate<Bridging::BridgingConfig>());
   mounts->vlanIntfConfigDirIs(Kiln::allocate<Interface::VlanIntfConfigDir>());
   mounts->vlanIntfStatusDirIs(vlanIntfStatusDir_);
   mounts->allVlanIntfCountersIs(tables.allVlanIntfCounters);
   mounts->vlanIntfCounterWriterStatusIs(Kiln::allocate<Vex::Counters::WriterStatus>());
   mounts->subIntfConfigDirIs(Kiln::allocate<Interface::SubIntfConfigDir>());
   mounts->subIntfStatusDirIs(subIntfStatusDir_);
   mounts->subIntfCountersDirIs(tables.subIntfCountersDir);
   mounts->subIntfCountersSnapshotDirIs(tables.subIntfCountersSnapshotDir);
   mounts->intfAllNatCounterDirIs(tables.intfAllNatCounterDir);
   mounts->historyIs(tables.history);
   mounts->eventsIs(tables.events);
   mounts->chipTablesIs(tables.chipTables);
   mounts->aclCounterTableIs(Kiln::allocate<Silo::ZelSystem::AclCounterTable>());
   mounts->aclCounterClearRequestIs(Kiln::allocate<ZelAclCounter::AclCounterClearRequest>());
   mounts->aclCounterClearResponseIs(Kiln::allocate<ZelAclCounter::AclCounterClearResponse>());
   return mounts;
}

// The name by value: the caller's may be that of the chip that goes. The same in chipDel.
// NOLINTNEXTLINE(performance-unnecessary-value-param)
void SwitchAgent::chipAdd(Kiln::String name) {
   Kiln::ActivityLockAnchor::assertHeld();
   const ZelId::ZelDevId devId = deviceOf(name);
   chipDel(name);
   SoftChip::Chip& chip = fleet_->chipAdd(
        {.name = name, .deviceId = devId, .pipes = config_.pipes, .vxlan = config_.capabilities.vxlan});
   try {
      // A chip that comes later has the same networks and rules as the others.
      for (const auto& [vni, vlan] : vlanOfVni_) {
         chip.vniIs(vni, vlan.value());
      }
      for (const Kiln::String& prefix : snatPrefixes_) {
         chip.snatAdd(prefix);
      }
      auto status = Kiln::allocate<ZelSlice::ChipStatus>();
      status->highestLogicalPipeIdIs(static_cast<U16>(config_.pipes - 1));
      status->internalIntfIs(Pelt::IntfId(Kiln::Name("Internal" + std::to_string(devId + 1))));
      status->hasNotificationActiveIs(true);
      chipStatus_.set(name, status);
      portsAdd(chip);
      chipUp(chip);
   } catch (...) {
      chipDel(name);
      fleet_->chipDel(devId);
      throw;
   }
}

void SwitchAgent::chipUp(SoftChip::Chip& chip) {
   mgr_->addChip(chip.deviceId(), chip.name(), {chipTypeName}, ZelSdk::getZelSessionHdl(),
                 Kiln::allocate<SoftChip::SoftPd>(), chip.program(), *chipStatus_.find(chip.name()));
}

void SwitchAgent::chipRestart(const Kiln::String& name, bool keepsCounters) {
   Kiln::ActivityLockAnchor::assertHeld();
   SoftChip::Chip& chip = chipNamed(name);
   // The hardware first: a driver that restarts asks nobody, and the library only hears of it when the chip is back.
   fleet_->chipRestart(chip.deviceId(), keepsCounters);
   chipUp(chip);
}

// The first ports go to the first pipe, so that names and device ports have the same order.
void SwitchAgent::portsAdd(SoftChip::Chip& chip) {
   unsigned number = chip.deviceId() * config_.ports;
   for (unsigned pipe = 0; pipe < config_.pipes; ++pipe) {
      const unsigned share = config_.ports / config_.pipes + (pipe < config_.ports % config_.pipes ? 1 : 0);
      for (unsigned slot = 0; slot < share; ++slot) {
         portAdd(Pelt::IntfId(Kiln::Name("Ethernet" + std::to_string(++number))), chip.name(),
                 ZlPort::devicePort(pipe, slot));
      }
   }
}

// NOLINTNEXTLINE(performance-unnecessary-value-param)
void SwitchAgent::chipDel(Kiln::String name) {
   Kiln::ActivityLockAnchor::assertHeld();
   // The library goes first and the hardware last, so that nothing in between asks a chip that is gone.
   mgr_->deleteChip(name);
   if (!chipStatus_.contains(name)) {
      return;
   }
   const ZelId::ZelDevId devId = deviceOf(name);
   for (const Pelt::IntfId& intf : systemStatus_->portInfo().keys()) {
      if (systemStatus_->portInfo(intf).devId == devId) {
         ethPhyIntfStatusDir_->intfStatusDel(intf);
         ethPhyIntfStatusDir_->speedDel(intf);
         systemStatus_->portInfoDel(intf);
      }
   }
   chipStatus_.erase(name);
   fleet_->chipDel(devId);
}

SoftChip::Chip& SwitchAgent::chipNamed(const Kiln::String& name) const {
   SoftChip::Chip* const chip = fleet_->chip(name);
   if (chip != nullptr) {
      return *chip;
   }
   const Kiln::String names = Kiln::joined(chipStatus_.keys(), ", ");
   throw std::invalid_argument("unknown chip '" + name +
                               "': " + (names.empty() ? "no chip is up yet" : "expected " + names));
}

void SwitchAgent::chipStateIs(const Kiln::String& name, U32 state) {
   Kiln::ActivityLockAnchor::assertHeld();
   chipNamed(name);
   (*chipStatus_.find(name))->stateIs(state);
}

// Throws std::invalid_argument if there is no such chip, or no such place on it.
SoftChip::Chip& SwitchAgent::chipWithPlace(const Kiln::String& chipName, U16 devicePort) const {
   SoftChip::Chip& chip = chipNamed(chipName);
   if (ZlPort::pipeOf(devicePort) >= config_.pipes || ZlPort::slotOf(devicePort) >= ZlPort::portsPerPipe) {
      throw std::invalid_argument(
           "no device port " + std::to_string(devicePort) + ": expected pipe x 128 + slot, with pipe 0 to " +
           std::to_string(config_.pipes - 1) + " and slot 0 to " + std::to_string(ZlPort::portsPerPipe - 1));
   }
   return chip;
}

// The system status comes first: it refuses a place that is taken.
void SwitchAgent::placeIs(const Pelt::IntfId& intf, SoftChip::Chip& chip, U16 devicePort) {
   systemStatus_->portInfoIs(intf, {chip.deviceId(), devicePort});
   chip.portAdd(devicePort);
   (*chipStatus_.find(chip.name()))->portToIntfIdIs(devicePort, intf);
}

void SwitchAgent::placeDel(const Port& port) {
   port.chip.portDel(port.devicePort);
   (*chipStatus_.find(port.chip.name()))->portToIntfIdDel(port.devicePort);
}

void SwitchAgent::portAdd(const Pelt::IntfId& intf, const Kiln::String& chipName, U16 devicePort) {
   Kiln::ActivityLockAnchor::assertHeld();
   SoftChip::Chip& chip = chipWithPlace(chipName, devicePort);
   if (systemStatus_->portInfo().contains(intf)) {
      throw std::invalid_argument("interface " + intf.text() + " has a port already: delete that first");
   }
   placeIs(intf, chip, devicePort);
   // The status directory's list comes last: it starts the counting, for which the port has to be known.
   ethPhyIntfStatusDir_->speedIs(intf, SoftChip::Chip::portSpeed);
   ethPhyIntfStatusDir_->intfStatusIs(intf, true);
}

void SwitchAgent::portDel(const Pelt::IntfId& intf) {
   Kiln::ActivityLockAnchor::assertHeld();
   const Port port = portOf(intf.text());
   // The status directory's list is the first to go: counting ends while the port is still known.
   ethPhyIntfStatusDir_->intfStatusDel(intf);
   ethPhyIntfStatusDir_->speedDel(intf);
   systemStatus_->portInfoDel(intf);
   placeDel(port);
}

void SwitchAgent::portMove(const Pelt::IntfId& intf, const Kiln::String& chipName, U16 devicePort) {
   Kiln::ActivityLockAnchor::assertHeld();
   const Port old = portOf(intf.text());
   SoftChip::Chip& chip = chipWithPlace(chipName, devicePort);
   if (&chip == &old.chip && devicePort == old.devicePort) {
      throw std::invalid_argument("interface " + intf.text() + " has that port already");
   }
   placeIs(intf, chip, devicePort);
   placeDel(old);
}

void SwitchAgent::portSpeedIs(const Pelt::IntfId& intf, std::optional<U64> speed) {
   Kiln::ActivityLockAnchor::assertHeld();
   portOf(intf.text());
   if (speed) {
      ethPhyIntfStatusDir_->speedIs(intf, *speed);
   } else {
      ethPhyIntfStatusDir_->speedDel(intf);
   }
}

// VlanN is a VLAN interface and EthernetN.M a subinterface. A routed port has its status as a port.
void SwitchAgent::l3StatusIs(const Pelt::IntfId& intf, bool present) {
   Interface::IntfDir* dir = nullptr;
   if (intf.text().starts_with("Vlan")) {
      dir = vlanIntfStatusDir_.ptr();
   } else if (intf.text().find('.') != Kiln::String::npos) {
      dir = subIntfStatusDir_.ptr();
   }
   if (dir != nullptr && present) {
      dir->intfStatusIs(intf, true);
   } else if (dir != nullptr) {
      dir->intfStatusDel(intf);
   }
}

void SwitchAgent::l3Add(const Pelt::IntfId& intf, Bridging::VlanId vlan) {
   Kiln::ActivityLockAnchor::assertHeld();
   const auto& table = mgr_->vexL3IntfData()->vexL3IntfTable();
   if (table->intfIdToL3Id().contains(intf)) {
      throw std::invalid_argument("interface " + intf.text() +
                                  " is an L3 interface already: delete that first");
   }
   table->intfIdToL3IdIs(intf, vlan.value());
   l3StatusIs(intf, true);
}

void SwitchAgent::l3Del(const Pelt::IntfId& intf) {
   Kiln::ActivityLockAnchor::assertHeld();
   const auto& table = mgr_->vexL3IntfData()->vexL3IntfTable();
   if (!table->intfIdToL3Id().contains(intf)) {
      throw std::invalid_argument("no L3 interface '" + intf.text() +
                                  "': expected one that was added with l3 add");
   }
   l3StatusIs(intf, false);
   table->intfIdToL3IdDel(intf);
}

void SwitchAgent::vniIs(U32 vni, Bridging::VlanId vlan) {
   for (SoftChip::Chip* chip : fleet_->chips()) {
      chip->vniIs(vni, vlan.value());
   }
   // Kept once the chips took it: what they refuse must not reach later ones.
   vlanOfVni_.set(vni, vlan);
}

void SwitchAgent::snatAdd(const Kiln::String& prefix) {
   SoftChip::L2DomainCount::parsePrefix(prefix); // throws even if no chip is up to refuse it
   for (SoftChip::Chip* chip : fleet_->chips()) {
      chip->snatAdd(prefix);
   }
   snatPrefixes_.push_back(prefix);
}

SwitchAgent::Port SwitchAgent::portOf(const Kiln::String& intf) const {
   for (const auto& [known, record] : systemStatus_->portInfo()) {
      if (known.text() == intf) {
         return {*fleet_->chip(record.devId), record.devicePort};
      }
   }
   throw std::invalid_argument("unknown interface '" + intf + "': expected one that has a port");
}

} // namespace ZelAgent
