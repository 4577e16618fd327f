// What only you know of your SDK: fill in what you have. A check whose hook is empty says so, and is not tried.
#pragma once

#include "sdk/bf_types.h"
#include "zel/SystemStatus.h"
#include "zl/ZlPd.h"
#include "zl/ZlResourceInfo.h"

#include <functional>
#include <memory>

namespace SdkCheck {

// What is checked: a device, and one port of it that carries no other traffic meanwhile.
struct Target {
   bf_dev_id_t device = 0;
   unsigned pipes = 1;     // the device's logical pipes are 0 to pipes - 1
   bf_dev_port_t port = 0; // pipe x 128 + slot
};

// How completions come: before the request returns, later on the thread that asked, or on a thread of the SDK's.
enum class Completing { inlined, deferred, thread };

// All are called on the thread of the checks, without the activity lock.
struct Hooks {
   // The P4 program's tables and match entries, as they are handed to addChip, and what its type of chip can do. Without
   // the first, the library counts ports only, and the checks of tables are not tried.
   Kiln::Ptr<ZlResourceInfo::ZlResourceInfoIntf> resourceInfo;
   Kiln::Ptr<ZlPd::ZlPdIntf> pd;
   ZelSystem::ChipCapabilities capabilities;

   // Called again and again while a check waits: for an SDK that completes on its caller's thread.
   std::function<void()> work;
   // From here on requests complete in this way. False: the SDK can't.
   std::function<bool(Completing)> completingIs;
   // So many good unicast frames arrive at the port, of so many octets each with FCS, 64 to 1518.
   std::function<void(bf_dev_port_t port, U64 frames, U32 octets)> receive;
   // The port sends so many frames from one of its queues.
   std::function<void(bf_dev_port_t port, unsigned queue, U64 frames, U32 octets)> send;
   // The hardware's RMON counter has this value: for simulators, and hardware that can be written.
   std::function<void(bf_dev_port_t port, unsigned index, U64 value)> portCounterIs;
   // The device goes away, with what is outstanding; it comes back with its port.
   std::function<void()> deviceGoes;
   std::function<void()> deviceComes;

   // Whatever the hooks need: it lives until the checks have ended.
   std::shared_ptr<void> sdk;
};

// You define it. Brings up the SDK with its session (sess_hdl), the device and the port. Throws to end the program with
// the exception's text.
Hooks makeHooks(const Target& target);

} // namespace SdkCheck
