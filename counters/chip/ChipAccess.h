// What everything that counts on a chip shares: which chip it is, what serves it, its pipes, tables and ports.
#pragma once

#include "counters/chip/Pipes.h"
#include "counters/chip/Readings.h"
#include "kiln/Accessors.h"
#include "zel/ChipStatus.h"
#include "zel/SystemStatus.h"
#include "zl/ZlPd.h"
#include "zl/ZlResourceInfo.h"

#include <optional>
#include <vector>

namespace ZelCounter {

// The base of the per-chip object. Its views and reactors hold it by a raw back-pointer. Under the activity lock.
class ChipAccess : public Kiln::Entity {
 public:
   // The pointers are shared, and all but systemStatus may be null.
   struct Identity {
      ZelId::ZelDevId devId;
      Kiln::String chipName;
      Kiln::String chipTypeName;
      U32 sessionId; // the SDK session, the same for every chip
      Kiln::Ptr<const ZelSlice::ChipStatus> chipStatus;
      Kiln::Ptr<const ZelSystem::SystemStatus> systemStatus;
      Kiln::Ptr<ZlPd::ZlPdIntf> zlPdIntf;
      Kiln::Ptr<ZlResourceInfo::ZlResourceInfoIntf> zlResourceInfoIntf;
   };

   ZelId::ZelDevId deviceId() const { return identity_.devId; }
   const Kiln::String& chipName() const { return identity_.chipName; }
   U32 sessionId() const { return identity_.sessionId; }
   // The chip's life: a number that rises whenever a chip is added.
   U32 life() const { return life_; }
   // Seconds since it was added.
   double age() const;
   // Completions that came for a chip of the device that was gone, or that nobody waited for any more. Of the process.
   static U64 lateCompletions(ZelId::ZelDevId devId);
   static void lateCompletionInc(int device);
   const Kiln::Ptr<const ZelSlice::ChipStatus>& chipStatus() const { return identity_.chipStatus; }
   const Kiln::Ptr<const ZelSystem::SystemStatus>& systemStatus() const { return identity_.systemStatus; }
   const Kiln::Ptr<ZlPd::ZlPdIntf>& zlPdIntf() const { return identity_.zlPdIntf; }
   const Kiln::Ptr<ZlResourceInfo::ZlResourceInfoIntf>& zlResourceInfoIntf() const {
      return identity_.zlResourceInfoIntf;
   }
   ZelSystem::ChipCapabilities capabilities() const;

   // The chip's logical pipes are 0 to this one, inclusive.
   U16 highestPipe() const { return chipStatus() ? chipStatus()->highestLogicalPipeId() : U16{0}; }
   // All of them, or the given one only.
   Pipes pipes(std::optional<U16> only = {}) const;
   // What to ask a table's pipes by: each logical pipe, or, for a table that isn't read per pipe, 65535 once for all.
   Pipes tablePipes(U32 tableId) const;

   // How many counter tables the catalogue has; their ids run from 0. 0 without a resource-info service.
   U32 tablesNum() const { return zlResourceInfoIntf() ? zlResourceInfoIntf()->zlTableCountersNum() : 0; }
   // By counter table id: true for a table that is synced and read once a pipe; true once the SDK has
   // initialized the table.
   KILN_HASH_MAP(U32, bool, perPipeCounter)
   KILN_HASH_MAP(U32, bool, initializedCounter)
   // Set when the first sync pass has landed.
   KILN_ATTRIBUTE(bool, firstPollingComplete, false)

   // The SDK's copy of the tables is as new as it gets: a sync pass has ended.
   virtual void handleSyncPass() {}

   // Syncs of the tables that have completed: what was read before and after one is not of one moment.
   KILN_COUNTER(U64, tableSyncs)

   // When everything of the chip was read last.
   Readings& readings() { return readings_; }
   const Readings& readings() const { return readings_; }

   struct Port {
      Pelt::IntfId intf;
      U16 devicePort;
      bool operator==(const Port&) const = default;
   };
   // This chip's ports in the order of the system's port table. All chips share that table, so it is searched anew only
   // when some port has changed; the reference is good until the next call after that.
   const std::vector<Port>& ports();
   // The same in the order of their numbers.
   std::vector<Port> portsByNumber();
   // Whether the interface has a port on this chip.
   bool hasPort(const Pelt::IntfId& intf) const;

   // True from the first chip on that came up with SIMULATION_VMID in the environment. One flag for the process.
   static bool simulation();
   // Whether a simulation's clean-up has begun: the SDK may be half gone, and nothing that it delivers counts any more.
   static bool isCleanedUp();
   // Whether commands' output goes to standard output as well: in a simulation that traces at level 8.
   static bool echo();

   // Set when the construction is complete.
   KILN_ATTRIBUTE(bool, initialized, false)
   // The chip has gone. Whoever holds it longer asks the SDK for nothing more: another chip may have its device by now.
   bool isStopped() const { return stopped_; }

 protected:
   explicit ChipAccess(Identity identity);
   void stoppedIs(bool stopped) { stopped_ = stopped; }

 private:
   Identity identity_;
   U32 life_;
   double addedTime_;
   Readings readings_;
   std::vector<Port> ports_;
   U64 portsVersion_ = 0; // of the port table when ports_ was read; at version 0 both are empty
   bool stopped_ = false;
};

} // namespace ZelCounter
