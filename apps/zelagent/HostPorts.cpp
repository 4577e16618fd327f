// Gives host interfaces ports, and removes the ports again.
#include "apps/zelagent/HostPorts.h"

#include "kiln/ActivityManager.h"
#include "kiln/OperatorLog.h"
#include "kiln/Time.h"
#include "kiln/Trace.h"

#include <algorithm>
#include <array>
#include <cstring>

namespace ZelAgent {

namespace {

Kiln::TraceHandle traceHandle("HostPorts");

constexpr Kiln::LogMessage hostUnreadable{
     "ZEL_AGENT_HOST_UNREADABLE", Kiln::Severity::warning,
     "The host's interfaces can't be looked at: %s. Their counts stand still.",
     "The kernel's counters of some or all interfaces could not be read. Their ports stay, with the counts "
     "and "
     "speeds of the last look. Interfaces that come are not seen.",
     "If the process has too many open files, see what holds them in its folder of /proc, and raise its "
     "limit."};

constexpr Kiln::LogMessage hostReadable{"ZEL_AGENT_HOST_READABLE", Kiln::Severity::notice,
                                        "The host's interfaces are looked at again.",
                                        "What they counted in between is in the totals.", "None."};

} // namespace

HostPorts::HostPorts(SwitchAgent& agent, SoftChip::HostInterfaces interfaces)
     : agent_(agent), interfaces_(std::move(interfaces)),
       clock_(Kiln::activityManagerClock(), this, &HostPorts::handleClock) {
   handleClock();
}

std::vector<Kiln::String> HostPorts::names() const {
   std::vector<Kiln::String> names;
   for (const auto& [name, devicePort] : ports_) {
      names.push_back(name);
   }
   return names;
}

void HostPorts::handleClock() {
   // Armed first, in case something below throws.
   clock_.timeMinIs(Kiln::System::currentTime() + tick);
   SoftChip::Chip& chip = agent_.chipNamed(chipName);
   // Before the new ones, which may need the ports that become free.
   std::erase_if(ports_, [&](const auto& port) {
      const Pelt::IntfId intf{Kiln::Name(port.first)};
      const bool isGone =
           interfaces_.mirror(port.first, chip, port.second) == SoftChip::HostInterfaces::Mirrored::gone;
      if (isGone) {
         agent_.portDel(intf);
      } else {
         agent_.portSpeedIs(intf, interfaces_.speed(port.first)); // each time: links renegotiate
      }
      return isGone;
   });
   for (const Kiln::String& name : interfaces_.names()) {
      if (!ports_.contains(name)) {
         add(name);
      }
   }
   errorIs(interfaces_.takeError());
}

void HostPorts::errorIs(int error) {
   if ((error != 0) == isTroubled_) {
      return;
   }
   isTroubled_ = error != 0;
   if (isTroubled_) {
      Kiln::OperatorLog::instance().log(hostUnreadable, std::array<Kiln::String, 1>{std::strerror(error)});
   } else {
      Kiln::OperatorLog::instance().log(hostReadable, {});
   }
}

void HostPorts::add(const Kiln::String& name) {
   SoftChip::Chip& chip = agent_.chipNamed(chipName);
   constexpr unsigned perPipe = ZlPort::frontPanelPortsPerPipe;
   const unsigned places = chip.pipes() * perPipe;
   // After the one given last: where nobody was counted before, the kernel's first counts are a new interface's own.
   for (unsigned i = 0; i < places; ++i) {
      const unsigned place = (nextPlace_ + i) % places;
      const U16 devicePort = ZlPort::devicePort(place / perPipe, place % perPipe);
      if (!chip.hasPort(devicePort)) {
         const Pelt::IntfId intf{Kiln::Name(name)};
         agent_.portAdd(intf, chipName, devicePort);
         agent_.portSpeedIs(intf, interfaces_.speed(name));
         // At once: read as zeros first, the kernel's whole count would be one step of traffic.
         if (interfaces_.mirror(name, chip, devicePort) == SoftChip::HostInterfaces::Mirrored::done) {
            ports_.emplace(name, devicePort);
            nextPlace_ = place + 1;
         } else {
            agent_.portDel(intf);
         }
         return;
      }
   }
   KILN_TRACE(0, "no port is free for " << name);
}

} // namespace ZelAgent
