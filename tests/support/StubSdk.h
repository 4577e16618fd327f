// A chip SDK under the test's control: tables are plain arrays, and the test chooses every answer and every completion.
// There is one for the process; reset() it between tests. Any thread may deliver completions.
#pragma once

#include "sdk/bf_pipe.h"
#include "sdk/bf_port.h"
#include "sdk/bf_tm.h"
#include "sdk/pipe_mgr.h"
#include "zl/ZelCountersIntf.h"
#include "zl/ZlPd.h"
#include "zl/ZlResourceInfo.h"

#include <functional>
#include <map>
#include <mutex>
#include <tuple>

namespace StubSdk {

// A counter table as the SDK has it. The catalogue holds its `info`.
struct Table {
   ZlResourceInfo::ZlTableCounter info;
   bool symmetric = true;
   int checksUntilInitialized = 0; // the first so many answers are "not yet"
   // Software copies by pipe, 65535 for all pipes, and by index or entry handle.
   std::map<std::pair<U16, U32>, p4_pd_counter_value> values;
   std::vector<int> entries; // handles of its match entries
};

struct Completion {
   ZelCountersIntf::SyncCallback callback;
   bf_dev_id_t dev;
   void* cookie;
   U32 tableHandle;
   U16 pipe;
   void deliver() const { callback(dev, cookie); }
};

struct PortRead {
   bf_dev_id_t dev;
   bf_dev_port_t port;
   bf_port_mac_stats_cb callback;
   void* cookie;
   // All counters have that value.
   void deliver(U64 value) const;
};

struct Sdk {
   // By device and table handle.
   std::map<std::pair<int, U32>, Table> tables;
   // The statuses that entry points return, by their name, table handle and pipe; 0 if not listed.
   std::map<std::tuple<std::string, U32, U16>, U32> statuses;
   // By pipe, and by type, stage or place; 0 if not listed. A deparser's place is 100 + its direction.
   std::map<std::pair<U16, U32>, bf_tm_pipe_counter_t> tm;
   std::map<std::pair<U16, U32>, bf_pipe_path_count_t> path;
   std::map<std::pair<U16, U32>, U64> mauDrops;
   std::map<U32, U64> drops; // of queues, by device port x 32 + queue
   // Whether the next sync requests complete inline; those beyond the end go by inlineDefault.
   std::vector<bool> inlineNext;
   bool inlineDefault = false;
   bool answersRefused = false; // completes refused requests, too, inline
   std::vector<Completion> pending;
   // The calls that matter, in order: "sync 0 65535 A01", "property 0 B01 scope 1", ...
   std::vector<std::string> calls;
   std::function<void()> onMacStatsGet;           // called in each request for a port's counters
   bool takesPortReads = false;                   // else these requests are refused
   std::vector<PortRead> portReads;               // for the test to deliver
   U64 reads = 0;                                 // of entries
   std::function<void(int dev, U32 key)> onEntry; // called in each read and write of an entry
   U32 physicalPipeOffset = 0;
   std::mutex mutex; // guards pending

   Table& table(int dev, U32 handle) { return tables.at({dev, handle}); }
   U32 status(const char* entryPoint, U32 handle, U16 pipe) const;
   // Delivers what is pending now, oldest first.
   void deliverAll();
};

Sdk& sdk();
void reset();

class Catalogue : public ZlResourceInfo::ZlResourceInfoIntf {
 public:
   // Adds the table to the device's tables in the SDK, and to the catalogue.
   void add(int dev, Table table);
   void addMatch(const std::string& name, U32 handle) { matchTables_.push_back({name, handle}); }

   U32 zlTableCountersNum() const override { return static_cast<U32>(counters_.size()); }
   const ZlResourceInfo::ZlTableCounter* zlTableCounter(U32 id) const override {
      return id < counters_.size() ? &counters_[id] : nullptr;
   }
   const std::vector<ZlResourceInfo::ZlTableCounter>* zlTableCounters() const override { return &counters_; }
   U32 zlTableCounterIndex(const Kiln::String& name) const override;
   U32 zlTableCounterField(const Kiln::String& name, ZlResourceInfo::ZlCounterFieldId field) const override;
   U32 zlTableIndex(const Kiln::String& name) const override;
   const ZlResourceInfo::ZlTable* zlTable(U32 index) const override { return &matchTables_.at(index); }

 private:
   std::vector<ZlResourceInfo::ZlTableCounter> counters_;
   std::vector<ZlResourceInfo::ZlTable> matchTables_;
};

class Pd : public ZlPd::ZlPdIntf {
 public:
   Kiln::String counterDecodeMatch(U32, U32, U32, S32 entry) const override {
      return "match " + std::to_string(entry);
   }
   // Refuses every entry, since its match tables are always full.
   U32 entryAdd(U32, U32, U16, const Kiln::String&, std::span<const ZlPd::MatchField>, U32*) override {
      return 9;
   }
   U32 entryDel(U32, U32, const Kiln::String&, U32) override { return 9; }
};

} // namespace StubSdk
