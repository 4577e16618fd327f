// The reads of ports' counters: completions, then values.
#include "Kit.h"
#include "kiln/ActivityLock.h"
#include "sdk/bf_port.h"
#include "zl/ZelSdk.h"

#include <chrono>
#include <thread>

namespace SdkCheck {

namespace {

constexpr unsigned readsAtOnce = 8;
// Slots 68 to 127 of a pipe have no port.
constexpr bf_dev_port_t absentSlot = 100;

void checkNames(Kit& kit) {
   const char* first = nullptr;
   int status = bf_port_rmon_counter_to_str(0, &first);
   const std::string before = status == 0 && first != nullptr ? first : "";
   int bad = before.empty() ? 0 : BF_NUM_RMON_COUNTERS;
   for (int index = 0; index < bad; ++index) {
      const char* name = nullptr;
      status = bf_port_rmon_counter_to_str(index, &name);
      if (status != 0 || name == nullptr || *name == '\0') {
         bad = index;
      }
   }
   const bool isKept = first != nullptr && before == first;
   kit.report.check(bad == BF_NUM_RMON_COUNTERS && isKept, "counter names",
                    "a name that stays valid for each of the indices 0 to 88",
                    bad != BF_NUM_RMON_COUNTERS
                         ? "none for " + std::to_string(bad) + ", " + statusText(status)
                    : isKept ? "89 names"
                             : "a name that another call overwrote");
}

// All checks of completions, with how they come in their names.
void checkReads(Kit& kit, std::optional<Completing> wanted) {
   const Target& target = kit.target;
   const std::string how = wanted ? ", " + text(*wanted) : "";
   const std::string expected = "one completion" + (wanted ? " " + text(*wanted) : "");

   Request& one = kit.readPort(target.device, target.port);
   kit.await({&one});
   kit.report.check(Kit::isGood({&one}) && (!wanted || one.how == *wanted), "port read" + how, expected,
                    kit.outcome({&one}));

   std::vector<Request*> many;
   for (unsigned i = 0; i < readsAtOnce; ++i) {
      many.push_back(&kit.readPort(target.device, target.port));
   }
   kit.await(many);
   kit.report.check(Kit::isGood(many), "port reads at once" + how, "one completion each", kit.outcome(many));

   // The library reads queues from the callback of their sync.
   Request* inner = nullptr;
   Request& outer =
        kit.readPort(target.device, target.port, [&] { inner = &kit.readPort(target.device, target.port); });
   kit.await({&outer});
   if (inner != nullptr) {
      kit.await({inner});
   }
   kit.report.check(inner != nullptr && Kit::isGood({&outer, inner}), "call from a callback" + how,
                    "one completion each",
                    inner != nullptr ? kit.outcome({&outer, inner}) : kit.outcome({&outer}));

   const bf_dev_port_t absent = target.port - target.port % 128 + absentSlot;
   Request& refused = kit.readPort(target.device, absent);
   kit.await({&refused});
   const bool isAgreed = refused.status == 0 ? Kit::isGood({&refused}) : refused.completions == 0;
   kit.report.check(isAgreed, "read of port " + std::to_string(absent) + ", which is none" + how,
                    "an error and no completion, or one completion", kit.outcome({&refused}));
}

// The library asks under the activity lock. A callback that waits for it must not hold a lock of the SDK's.
void checkLocks(Kit& kit) {
   const std::string name = "call while a callback waits";
   std::vector<Request*> requests;
   bool isWaiting = false;
   {
      const auto lock = Kiln::ActivityLockAnchor::lock();
      const unsigned before = Kit::entered();
      requests.push_back(&kit.readPort(kit.target.device, kit.target.port));
      for (int ms = 0; ms < 100 && !isWaiting; ++ms) {
         std::this_thread::sleep_for(std::chrono::milliseconds(1));
         isWaiting = Kit::entered() != before;
      }
      if (isWaiting) {
         kit.report.alive(); // if the next call hangs, it is this check's
         requests.push_back(&kit.readPort(kit.target.device, kit.target.port));
      }
   }
   kit.await(requests);
   if (isWaiting) {
      kit.report.check(Kit::isGood(requests), name, "it to return, and one completion each",
                       kit.outcome(requests));
   } else {
      kit.report.notTried(name, "no completion came on another thread");
   }
}

// Null, after saying so, if the read failed.
const Request* read(Kit& kit, const std::string& name) {
   Request& request = kit.readPort(kit.target.device, kit.target.port);
   kit.await({&request});
   if (request.status == 0 && request.completions != 0) {
      return &request;
   }
   kit.report.check(false, name, "values", kit.outcome({&request}));
   return nullptr;
}

void checkOrder(Kit& kit) {
   const Request* const before = read(kit, "port counters rise");
   const Request* const after = before != nullptr ? read(kit, "port counters rise") : nullptr;
   if (after == nullptr) {
      return;
   }
   unsigned index = 0;
   while (index < BF_NUM_RMON_COUNTERS && after->values[index] >= before->values[index]) {
      ++index;
   }
   kit.report.check(index == BF_NUM_RMON_COUNTERS, "port counters rise", "no counter that falls",
                    index == BF_NUM_RMON_COUNTERS ? "none"
                                                  : "index " + std::to_string(index) + " from " +
                                                         std::to_string(before->values[index]) + " to " +
                                                         std::to_string(after->values[index]));
}

// What the library publishes is what comes here: octets with FCS.
void checkUnits(Kit& kit) {
   constexpr U64 frames = 10;
   constexpr U32 octets = 100;
   constexpr struct {
      unsigned index;
      const char* name;
      U64 rise;
   } counted[] = {{BF_RMON_FRAMES_RECEIVED_OK, "good frames", frames},
                  {BF_RMON_FRAMES_RECEIVED_ALL, "all frames", frames},
                  {BF_RMON_OCTETS_RECEIVED_GOOD, "octets of good frames", frames * octets},
                  {BF_RMON_OCTETS_RECEIVED_ALL, "octets of all frames", frames * octets},
                  {BF_RMON_UNICAST_FRAMES_RECEIVED_OK, "unicast frames", frames},
                  {BF_RMON_FRAMES_RECEIVED_65_TO_127_OCTETS, "frames of 65 to 127 octets", frames}};
   const Request* const before = read(kit, "frames received");
   if (before == nullptr) {
      return;
   }
   kit.hooks.receive(kit.target.port, frames, octets);
   const Request* const after = read(kit, "frames received");
   if (after == nullptr) {
      return;
   }
   for (const auto& counter : counted) {
      const U64 rise = after->values[counter.index] - before->values[counter.index];
      kit.report.check(rise == counter.rise,
                       std::string("10 frames of 100 octets received, ") + counter.name + " (index " +
                            std::to_string(counter.index) + ")",
                       "+" + std::to_string(counter.rise), "+" + std::to_string(rise));
   }
}

// Every index its own value above 32 bits, then the last value before a wrap.
void checkWidths(Kit& kit) {
   constexpr U64 wide = U64{1} << 40;
   constexpr U64 last = ~U64{0};
   for (unsigned index = 0; index < BF_NUM_RMON_COUNTERS; ++index) {
      kit.hooks.portCounterIs(kit.target.port, index, wide + index);
   }
   const Request* const request = read(kit, "counter indices and widths");
   if (request == nullptr) {
      return;
   }
   unsigned index = 0;
   while (index < BF_NUM_RMON_COUNTERS && request->values[index] == wide + index) {
      ++index;
   }
   kit.report.check(index == BF_NUM_RMON_COUNTERS, "counter indices and widths", "2^40 + I at each index I",
                    index == BF_NUM_RMON_COUNTERS
                         ? "that"
                         : std::to_string(request->values[index]) + " at " + std::to_string(index));
   kit.hooks.portCounterIs(kit.target.port, BF_RMON_OCTETS_RECEIVED_GOOD, last);
   if (const Request* const full = read(kit, "counter of 64 bits")) {
      const U64 came = full->values[BF_RMON_OCTETS_RECEIVED_GOOD];
      kit.report.check(came == last, "counter of 64 bits", std::to_string(last), std::to_string(came));
   }
}

} // namespace

void checkSession(Kit& kit) {
   kit.report.check(ZelSdk::getZelSessionHdl() == sess_hdl, "session", "getZelSessionHdl() to be sess_hdl",
                    std::to_string(ZelSdk::getZelSessionHdl()) + " and " + std::to_string(sess_hdl));
}

void checkPorts(Kit& kit) {
   checkNames(kit);
   if (kit.hooks.completingIs) {
      for (const Completing how : {Completing::inlined, Completing::deferred, Completing::thread}) {
         if (kit.hooks.completingIs(how)) {
            checkReads(kit, how);
         } else {
            kit.report.notSupported("port reads, " + text(how), "the SDK does not complete so");
         }
      }
   } else {
      checkReads(kit, {});
      kit.report.notTried("other ways to complete", "no hook 'completingIs'");
   }
   checkLocks(kit);
   checkOrder(kit);
   if (kit.hooks.receive) {
      checkUnits(kit);
   } else {
      kit.report.notTried("frames received", "no hook 'receive'");
   }
   if (kit.hooks.portCounterIs) {
      checkWidths(kit);
   } else {
      kit.report.notTried("counter indices and widths", "no hook 'portCounterIs'");
   }
}

} // namespace SdkCheck
