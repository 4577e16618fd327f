// The hooks for the software chip: all of them.
#include "Hooks.h"
#include "kiln/ActivityManager.h"
#include "softchip/SoftChip.h"
#include "zl/ZelSdk.h"

namespace SdkCheck {

namespace {

using SoftChip::CompletionMode;

constexpr U64 stationAtPort = 0x020000000001;
constexpr U64 unknownStation = 0x020000000002;

struct SoftSdk {
   explicit SoftSdk(const Target& wanted) : target(wanted) { add(); }

   void add() {
      SoftChip::Chip& chip = fleet.chipAdd({"Zel", static_cast<U8>(target.device), target.pipes});
      chip.portAdd(port());
      chip.portAdd(neighbour());
   }
   SoftChip::Chip& chip() { return *fleet.chip(static_cast<unsigned>(target.device)); }
   U16 port() const { return static_cast<U16>(target.port); }
   // Frames that arrive there for unknown stations are flooded to the port.
   U16 neighbour() const { return ZlPort::slotOf(port()) == 0 ? port() + 1 : port() - 1; }

   Target target;
   SoftChip::Fleet fleet;
};

} // namespace

Hooks makeHooks(const Target& target) {
   // Time passes only while a check waits.
   Kiln::System::timeSourceIs(Kiln::allocate<Kiln::SimulatedTime>());
   sess_hdl = 1;
   const auto sdk = std::make_shared<SoftSdk>(target);

   Hooks hooks;
   hooks.sdk = sdk;
   hooks.resourceInfo = sdk->chip().program();
   hooks.pd = Kiln::allocate<SoftChip::SoftPd>();
   hooks.capabilities = {true, true, true, true};
   hooks.work = [] { Kiln::ActivityManager::instance()->advance(0.001); };
   hooks.completingIs = [sdk](Completing how) {
      sdk->fleet.completions().modeIs({how == Completing::inlined    ? CompletionMode::Kind::inlined
                                       : how == Completing::deferred ? CompletionMode::Kind::deferred
                                                                     : CompletionMode::Kind::thread});
      return true;
   };
   hooks.receive = [sdk](bf_dev_port_t port, U64 frames, U32 octets) {
      SoftChip::FrameInfo frame;
      frame.wireLength = octets;
      frame.destinationMac = unknownStation;
      frame.sourceMac = stationAtPort;
      sdk->chip().receive(static_cast<U16>(port), frame, frames);
   };
   hooks.send = [sdk](bf_dev_port_t /*port*/, unsigned queue, U64 frames, U32 octets) {
      SoftChip::FrameInfo frame;
      frame.wireLength = octets;
      frame.destinationMac = unknownStation;
      frame.outerTag = {SoftChip::tpidCustomer, 1, static_cast<U8>(queue)};
      frame.tagCount = 1;
      sdk->chip().receive(sdk->neighbour(), frame, frames);
   };
   hooks.portCounterIs = [sdk](bf_dev_port_t port, unsigned index, U64 value) {
      sdk->chip().rmonIs(static_cast<U16>(port), index, value);
   };
   hooks.deviceGoes = [sdk] { sdk->fleet.chipDel(static_cast<U8>(sdk->target.device)); };
   hooks.deviceComes = [sdk] { sdk->add(); };
   return hooks;
}

} // namespace SdkCheck
