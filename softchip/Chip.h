// One software switching chip: its ports, the way of frames between them, and the hardware that counts frames.
#pragma once

#include "kiln/Types.h"
#include "sdk/bf_rmon.h"
#include "softchip/DropCounts.h"
#include "softchip/Frame.h"
#include "softchip/L2DomainCount.h"
#include "softchip/MacTable.h"
#include "softchip/PipeManager.h"
#include "softchip/Pipeline.h"
#include "softchip/PortRules.h"
#include "softchip/TrafficManager.h"

#include <mutex>
#include <span>
#include <vector>

namespace SoftChip {

struct ChipConfig {
   Kiln::String name;
   U8 deviceId = 0;
   unsigned pipes = 2;
   Kiln::Ptr<P4Program> program = {}; // null: the switch's own
   bool vxlan = true;                 // terminates VXLANs; else their frames stay in the outer VLAN
};

// Any thread; every operation takes the SDK's lock, which is recursive. Ports are named by device port number: pipe x
// 128 + slot. Throws std::invalid_argument, naming what was expected, for a port, table, index or value that does not
// exist. Frames allocate nothing.
//
// Counters here are the hardware's; the software copies of tables follow with the next sync. RMON counters belong to
// the place: they stay when its port is deleted.
class Chip {
 public:
   // `hardware` holds hardwareWords() counters and, like the lock, outlives the chip.
   Chip(const ChipConfig& config, U64 serial, std::recursive_mutex& sdkLock, std::span<U64> hardware);
   Chip(const Chip&) = delete;
   Chip& operator=(const Chip&) = delete;

   // Of every port's MAC, in bit/s. The queues behind it send less, see TrafficManager.
   static constexpr U64 portSpeed = 100'000'000'000;

   static std::size_t hardwareWords(const ChipConfig& config);
   // What lies where in them, in a few words: a hardware file of another layout is refused.
   static Kiln::String hardwareLayout(const ChipConfig& config);

   const Kiln::String& name() const { return config_.name; }
   U8 deviceId() const { return config_.deviceId; }
   unsigned pipes() const { return config_.pipes; }
   U64 serial() const { return serial_; } // no other chip of the fleet ever has the same

   // The driver begins anew, as PipeManager::restart() has it. Ports and what they are told stay, and so do the
   // hardware's counters, unless they are to begin at 0. The chip has a new serial.
   void restart(U64 serial, bool keepsCounters);

   void portAdd(U16 devicePort);
   void portDel(U16 devicePort);
   bool hasPort(U16 devicePort) const;
   std::vector<U16> ports() const; // ascending
   U64 portsVersion() const;       // rises with each change of the ports

   // The frame arrives `repeat` times: it is counted, forwarded, and counted again where it leaves. Does nothing and
   // returns false if there is no such port.
   bool receive(U16 devicePort, const FrameInfo& frame, U64 repeat = 1);

   U64 rmon(U16 devicePort, unsigned index) const;
   void rmonIs(U16 devicePort, unsigned index, U64 value);
   void rmonFlip(U16 devicePort, unsigned index, unsigned bit);
   // A stuck counter keeps reading the value that it had when it got stuck.
   void rmonStuckIs(U16 devicePort, unsigned index, bool stuck);

   // The VLAN of untagged and priority-tagged frames that arrive at the port; 1 at first.
   void accessVlanIs(U16 devicePort, U16 vlan);
   // Whether frames of the VLAN may arrive at the port and leave from it; all may at first.
   void vlanAllowedIs(U16 devicePort, U16 vlan, bool allowed);
   // The longest frame that may leave from the port, FCS included, at least 64 octets; no limit at first.
   void mtuIs(U16 devicePort, U32 octets);
   // Whether frames that arrive at the port for an unknown station go to all other ports; they do at first.
   void floodsIs(U16 devicePort, bool floods);
   // Frames of a VXLAN are decapsulated into a VLAN; frames from a prefix hit a source-NAT rule.
   void vniIs(U32 vni, U16 vlan);
   void snatAdd(const Kiln::String& prefix);
   // Adds to the count entry of an L2 domain, which must be programmed.
   void l2DomainCountAdd(bool isIngress, const L2Domain& domain, const CounterValue& counted);

   // The raw hardware counts of a port's queue: what it sent and what it dropped.
   void queueIs(U16 devicePort, unsigned queue, const CounterValue& sent, U64 drops);

   // Adds to what a pipe counts at a stage of its path, drops in a match-action stage or a deparser, and has in its traffic
   // manager, of a type that counts.
   void pathAdd(U16 pipe, U32 stage, const bf_pipe_path_count_t& counted);
   void pipeDropsAdd(U16 pipe, bool isDeparser, U32 number, U64 packets);
   void tmAdd(U16 pipe, U32 type, U64 packets, U64 octetsEach);

   // One entry of a counter table, by its index or, in a direct table, by its match entry's handle. The pipe is a
   // single one for an asymmetric table and 65535 for a symmetric one, as in the SDK.
   CounterValue tableEntry(const Kiln::String& counterTable, U16 pipe, U32 index) const;
   void tableEntryIs(const Kiln::String& counterTable, U16 pipe, U32 index, const CounterValue& value);
   // The first `queries` times that the SDK is asked, it says that the table is not initialized yet.
   void tableInitializedAfterIs(const Kiln::String& counterTable, U32 queries);
   // How many entries fit into a match table, at most as many as the program declares.
   void capacityIs(const Kiln::String& matchTable, U32 entries);
   // Return an SDK status: 9 if the table is full.
   int entryAdd(const Kiln::String& matchTable, const MatchRule& rule, S32* handle, U16 pipe = allPipes);
   int entryDel(const Kiln::String& matchTable, S32 handle);
   Kiln::String entryText(U32 tableHandle, S32 handle) const;
   const Kiln::Ptr<P4Program>& program() const { return config_.program; }

   // For the SDK's entry points: these return statuses, and are called under the SDK's lock.
   PipeManager& tables() { return tables_; }
   int checkPort(int devicePort) const;
   int readDrops(U16 pipe, int devicePort, U32 queue, U64* drops);
   int readTm(U16 pipe, U32 type, bf_tm_pipe_counter_t* counter) const;
   int readPath(U16 pipe, U32 stage, bf_pipe_path_count_t* count) const;
   int readMauDrops(U16 pipe, U32 stage, U64* drops);
   int readDeparserDrops(U16 pipe, U32 direction, U64* drops);
   void readMac(U16 devicePort, bf_rmon_counter_array_t& into) const;

 private:
   struct StuckCounter {
      U16 devicePort;
      unsigned index;
      U64 value;
   };

   bool isPlace(unsigned devicePort) const;
   std::size_t placeOf(U16 devicePort) const;
   U64* rmonOf(U16 devicePort) const { return &rmon_[placeOf(devicePort) * BF_NUM_RMON_COUNTERS]; }
   U64& rmonAt(U16 devicePort, unsigned index) const;
   std::size_t portPlace(U16 devicePort) const;
   CounterTable& counterTable(const Kiln::String& table) const;
   U32 matchHandle(const Kiln::String& table) const;
   void checkEntry(const CounterTable& table, U16 pipe, U32 index) const;

   // How far copies of the same frames got: how many went through a queue, and how many left.
   struct Progress {
      U64 throughQueue = 0;
      U64 left = 0;
   };

   std::optional<ZlDrop::IngressReason> portVerdict(U16 devicePort, const FrameInfo& frame, U16 vlan) const;
   void forward(U16 devicePort, const PassingFrames& passing);
   U64 flood(U16 devicePort, const PassingFrames& passing, Progress* furthest);
   Progress transmit(U16 from, U16 devicePort, const PassingFrames& offered, bool replicated);
   std::optional<ZlDrop::EgressReason> egress(U16 devicePort, const PassingFrames& passing, unsigned queue);

   ChipConfig config_;
   U64 serial_;
   std::recursive_mutex& sdkLock_;
   std::span<U64> hardware_;      // all counters
   std::span<U64> rmon_;          // of these: by place, then by index
   std::vector<bool> hasPort_;    // by place
   std::vector<U16> accessVlans_; // by place
   std::vector<U16> ports_;       // ascending
   U64 portsVersion_ = 0;
   std::vector<StuckCounter> stuck_;
   mutable PipeManager tables_; // its finders return what may be changed, const operations use them too
   Pipeline pipeline_;
   PathCounters path_;
   DropCounts drops_;
   PortRules rules_;
   L2DomainCount l2Domains_;
   TrafficManager trafficManager_;
   double now_ = 0.0; // when the frames on their way arrived: one time for all of their copies
   MacTable macTable_;
};

} // namespace SoftChip
