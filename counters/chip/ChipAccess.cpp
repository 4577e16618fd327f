// A chip's identity, its pipes and ports, and the flag of a simulation.
#include "counters/chip/ChipAccess.h"

#include "counters/chip/PortSorter.h"
#include "counters/chip/ZelCountersTrace.h"
#include "kiln/Time.h"
#include "zl/ZelSdk.h"

#include <algorithm>
#include <array>
#include <cstdlib>

namespace ZelCounter {

namespace {

U32 lives = 0; // of the chips so far
std::array<U64, ZelId::maxDevices> lateByDevice{};
bool simulationFlag = false; // the process's: callbacks ask before they know their chip

} // namespace

ChipAccess::ChipAccess(Identity identity)
     : identity_(std::move(identity)), life_(++lives), addedTime_(Kiln::System::currentTime()) {
   if (std::getenv("SIMULATION_VMID") != nullptr) {
      simulationFlag = true;
      smRunning = 1; // an earlier clean-up may have cleared it
   }
}

double ChipAccess::age() const {
   return Kiln::System::currentTime() - addedTime_;
}

U64 ChipAccess::lateCompletions(ZelId::ZelDevId devId) {
   return lateByDevice.at(devId);
}

void ChipAccess::lateCompletionInc(int device) {
   if (device >= 0 && static_cast<std::size_t>(device) < lateByDevice.size()) {
      ++lateByDevice[static_cast<std::size_t>(device)];
   }
}

bool ChipAccess::simulation() {
   return simulationFlag;
}

bool ChipAccess::isCleanedUp() {
   return simulationFlag && smRunning == 0;
}

bool ChipAccess::echo() {
   return simulationFlag && traceHandle.isOn(8);
}

ZelSystem::ChipCapabilities ChipAccess::capabilities() const {
   return systemStatus()->chipCapabilities(identity_.chipTypeName);
}

Pipes ChipAccess::pipes(std::optional<U16> only) const {
   return only ? Pipes(*only, *only) : Pipes(0, highestPipe());
}

Pipes ChipAccess::tablePipes(U32 tableId) const {
   return perPipeCounter(tableId) ? pipes() : pipes(ZelId::ZelPipeId::allPipes());
}

const std::vector<ChipAccess::Port>& ChipAccess::ports() {
   if (portsVersion_ != systemStatus()->portInfoVersion()) {
      portsVersion_ = systemStatus()->portInfoVersion();
      ports_.clear();
      for (const auto& [intf, record] : systemStatus()->portInfo()) {
         if (record.devId == deviceId()) {
            ports_.push_back({intf, record.devicePort});
         }
      }
      readings_.forgetPortsBut([this](U32 devicePort) {
         return std::ranges::find(ports_, devicePort, &Port::devicePort) != ports_.end();
      });
   }
   return ports_;
}

// What shows go by: the order of numbers need not be that of the interfaces' names.
std::vector<ChipAccess::Port> ChipAccess::portsByNumber() {
   PortSorter sorter;
   for (const auto& [intf, devicePort] : ports()) {
      sorter.entryIdIs(devicePort, intf);
   }
   std::vector<Port> sorted;
   for (const auto& [devicePort, intf] : sorter.entryId()) {
      sorted.push_back({intf, static_cast<U16>(devicePort)});
   }
   return sorted;
}

bool ChipAccess::hasPort(const Pelt::IntfId& intf) const {
   return systemStatus()->portInfo(intf).devId == deviceId();
}

} // namespace ZelCounter
