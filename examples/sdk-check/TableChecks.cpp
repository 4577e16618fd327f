// The P4 program's counter tables: which there are, what they are like, syncs, reads and writes.
#include "Kit.h"
#include "sdk/bf_tm.h"
#include "sdk/pipe_mgr.h"
#include "zl/ZelCountersIntf.h"
#include "zl/ZelSdk.h"
#include "zl/ZlDropReasons.h"
#include "zl/ZlPortLayout.h"

#include <algorithm>
#include <cstdlib>
#include <set>

namespace SdkCheck {

namespace {

using ZlResourceInfo::notFound;
using ZlResourceInfo::ZlTableCounter;

constexpr U16 allPipes = 65535;
constexpr U32 queueEntries = ZlPort::queueEntry(ZlPort::recirculationSlot, 1) + 1;

struct Table {
   ZlTableCounter info;
   bool isInitialized = false;
   bool isPerPipe = false;
};

class TableChecks {
 public:
   explicit TableChecks(Kit& kit) : kit_(kit), report_(kit.report), catalogue_(*kit.hooks.resourceInfo) {}

   void run() {
      if (!checkCatalogue()) {
         return;
      }
      checkProgram();
      checkProperties();
      checkInitialized();
      for (const Table& table : tables_) {
         if (table.isInitialized) {
            checkSync(table);
            checkRead(table);
         }
      }
      checkCompletions();
      checkWrite();
      checkQueues();
      checkTraffic();
   }

 private:
   std::vector<U16> pipesOf(const Table& table) const {
      if (!table.isPerPipe) {
         return {allPipes};
      }
      std::vector<U16> pipes;
      for (unsigned pipe = 0; pipe < kit_.target.pipes; ++pipe) {
         pipes.push_back(static_cast<U16>(pipe));
      }
      return pipes;
   }
   U32 device() const { return static_cast<U32>(kit_.target.device); }
   U16 portPipe() const { return ZlPort::pipeOf(static_cast<U16>(kit_.target.port)); }
   unsigned portSlot() const { return ZlPort::slotOf(static_cast<U16>(kit_.target.port)); }
   const Table* find(const char* name) const {
      for (const Table& table : tables_) {
         if (table.info.name == name) {
            return &table;
         }
      }
      return nullptr;
   }

   // False: the rest would make no sense.
   bool checkCatalogue() {
      const U32 count = catalogue_.zlTableCountersNum();
      const std::vector<ZlTableCounter>* const all = catalogue_.zlTableCounters();
      std::string wrong = all == nullptr ? "no tables"
                          : all->size() != count
                               ? std::to_string(all->size()) + " and " + std::to_string(count)
                               : "";
      std::set<U32> handles;
      for (U32 id = 0; wrong.empty() && id < count; ++id) {
         const ZlTableCounter* const info = catalogue_.zlTableCounter(id);
         const bool isSame =
              info != nullptr && info->name == (*all)[id].name &&
              catalogue_.zlTableCounterIndex(info->name) == id &&
              catalogue_.zlTableCounterField(info->name, ZlResourceInfo::ZlCounterFieldId::tableHandle) ==
                   info->tableHandle;
         if (!isSame || !handles.insert(info->tableHandle).second) {
            wrong = "table " + std::to_string(id) +
                    (isSame ? " with another's handle" : " otherwise by id or name");
         } else if (info->direct && !info->packets && !info->bytes) {
            wrong = "table " + std::to_string(id) + ", a direct one, that counts nothing";
         } else {
            tables_.push_back({*info});
         }
      }
      if (wrong.empty() && (catalogue_.zlTableCounterIndex("no such table") != notFound ||
                            catalogue_.zlTableIndex("no such table") != notFound)) {
         wrong = "an index for a name that there is not";
      }
      report_.check(wrong.empty(), "catalogue",
                    "the same tables by number, name and list, and 0xFFFFFFF for no name",
                    wrong.empty() ? std::to_string(count) + " tables" : wrong);
      return wrong.empty();
   }

   void checkCounterTable(const char* name, U32 size, const char* without) {
      const Table* const table = find(name);
      const std::string title = std::string("counter table ") + name;
      if (table == nullptr && without != nullptr) {
         report_.notSupported(title, std::string("the program has none: ") + without);
         return;
      }
      report_.check(table != nullptr && !table->info.direct && table->info.packets &&
                         table->info.size >= size,
                    title, "an indirect one of packets with " + std::to_string(size) + " entries or more",
                    table == nullptr ? "none"
                                     : std::string(table->info.direct ? "a direct one" : "an indirect one") +
                                            (table->info.packets ? " of packets" : "") + " with " +
                                            std::to_string(table->info.size));
   }

   void checkMatchTable(const char* name, const char* why) {
      const U32 index = catalogue_.zlTableIndex(name);
      report_.check(index != notFound && catalogue_.zlTable(index) != nullptr,
                    std::string("match table ") + name, std::string("one, ") + why,
                    index == notFound ? "none" : "one");
   }

   // What the library asserts when the chip is added, and what it does without.
   void checkProgram() {
      checkCounterTable("pdpClassCount", ZlPort::pdpTableSize, nullptr);
      checkCounterTable("egressPortQueueCount", queueEntries, "no queue counters");
      for (const ZlDrop::Table& table : ZlDrop::tables) {
         checkCounterTable(table.name, ZlDrop::tableSize, "no drops at that point");
      }
      const ZelSystem::ChipCapabilities& can = kit_.hooks.capabilities;
      if (can.qosPolicyCounter) {
         checkMatchTable("qosPolicyDropCounter", "for the capability qosPolicyCounter");
         report_.check(find("qosPolicyDropCount") != nullptr, "counter table qosPolicyDropCount",
                       "one, for the capability qosPolicyCounter",
                       find("qosPolicyDropCount") != nullptr ? "one" : "none");
      }
      if (can.vlanCounters) {
         checkMatchTable("ingL2DomainCount", "for the capability vlanCounters");
         checkMatchTable("egrL2DomainCount", "for the capability vlanCounters");
      }
      if (std::getenv("SIMULATION_VMID") != nullptr) {
         for (const char* const name : {"queueCounters", "pdpPolicy", "l2DmacClassify"}) {
            checkMatchTable(name, "for SIMULATION_VMID");
         }
         report_.check(find("l2DmacClassifyCount") != nullptr, "counter table l2DmacClassifyCount",
                       "one, for SIMULATION_VMID", find("l2DmacClassifyCount") != nullptr ? "one" : "none");
      }
   }

   // Before the tables are asked what they are like, as in the library.
   void checkProperties() {
      const auto set = [&](const char* name, U32 scope) {
         const U32 index = catalogue_.zlTableIndex(name);
         const ZlResourceInfo::ZlTable* const table = index != notFound ? catalogue_.zlTable(index) : nullptr;
         if (table == nullptr) {
            return; // told above
         }
         const int status = pipe_mgr_tbl_set_property(sess_hdl, kit_.target.device, table->handle,
                                                      PIPE_TBL_PROPERTY_ENTRY_SCOPE, scope, 0);
         report_.check(status == 0, std::string("entry scope of ") + name, "status 0", statusText(status));
      };
      if (kit_.hooks.capabilities.qosPolicyCounter) {
         set("qosPolicyDropCounter", PIPE_ENTRY_SCOPE_SINGLE_PIPELINE);
      }
      if (std::getenv("SIMULATION_VMID") != nullptr) {
         set("queueCounters", PIPE_ENTRY_SCOPE_SINGLE_PIPELINE);
         set("pdpPolicy", PIPE_ENTRY_SCOPE_SINGLE_PIPELINE);
         set("l2DmacClassify", PIPE_ENTRY_SCOPE_ALL_PIPELINES);
      }
   }

   void checkInitialized() {
      for (Table& table : tables_) {
         const std::string& name = table.info.name;
         int status = 0;
         const bool isInitialized = kit_.waitUntil([&] {
            bool said = false;
            status = pipe_mgr_stat_tbl_symmetric_mode_initialized(kit_.target.device,
                                                                  table.info.counterHandle, &said);
            return status == 0 && said;
         });
         report_.check(isInitialized, name + " initialized", "status 0 and true, in time",
                       statusText(status) + (isInitialized ? " and true" : ", or false"));
         if (!isInitialized) {
            continue;
         }
         table.isInitialized = true;
         bool isSymmetric = false;
         status =
              pipe_mgr_stat_tbl_symmetric_mode(kit_.target.device, table.info.counterHandle, &isSymmetric);
         table.isPerPipe = !isSymmetric;
         bool isOwn = name == "pdpClassCount" || name == "egressPortQueueCount";
         for (const ZlDrop::Table& drops : ZlDrop::tables) {
            isOwn = isOwn || name == drops.name;
         }
         report_.check(status == 0 && (!isOwn || !isSymmetric), name + " symmetric",
                       std::string("status 0") + (isOwn ? " and false: each pipe has ports of its own" : ""),
                       statusText(status) + (isSymmetric ? " and true" : " and false"));
      }
   }

   // Of the first table, each way that the SDK can complete a sync.
   void checkCompletions() {
      const auto first = std::find_if(tables_.begin(), tables_.end(),
                                      [](const Table& table) { return table.isInitialized; });
      if (!kit_.hooks.completingIs || first == tables_.end()) {
         return; // told with the ports' reads
      }
      for (const Completing how : {Completing::inlined, Completing::deferred, Completing::thread}) {
         if (kit_.hooks.completingIs(how)) {
            checkSync(*first, how);
         }
      }
   }

   void checkSync(const Table& table, std::optional<Completing> how = {}) {
      const auto sync =
           table.info.direct ? ZelCountersIntf::counterHwSyncDirect : ZelCountersIntf::counterHwSyncIndirect;
      std::vector<Request*> requests;
      for (const U16 pipe : pipesOf(table)) {
         requests.push_back(&kit_.sync(kit_.target.device, [&](auto* callback, void* cookie) {
            return static_cast<int>(sync(sess_hdl, device(), pipe, table.info.tableHandle, callback, cookie));
         }));
      }
      kit_.await(requests);
      const std::string name = table.info.name + " sync" + (how ? ", " + text(*how) : "");
      constexpr int sdkNotSupported = 17;
      if (requests.front()->status == sdkNotSupported) {
         report_.notSupported(name, kit_.outcome(requests));
      } else {
         report_.check(Kit::isGood(requests) && (!how || requests.front()->how == *how), name,
                       "one completion for each pipe", kit_.outcome(requests));
      }
   }

   void checkRead(const Table& table) {
      std::string came;
      U32 entries = 0;
      for (const U16 pipe : pipesOf(table)) {
         entries = 0;
         const std::string wrong =
              table.info.direct ? walkDirect(table, pipe, &entries) : readIndirect(table, pipe, &entries);
         came = came.empty() ? wrong : came;
      }
      report_.check(came.empty(), table.info.name + " read",
                    table.info.direct ? "status 0, and every match entry once"
                                      : "status 0 for start, entries and end",
                    came.empty() ? std::to_string(entries) + (entries == 1 ? " entry" : " entries") : came);
   }

   // What was wrong, or nothing.
   std::string readIndirect(const Table& table, U16 pipe, U32* entries) const {
      ZelCountersIntf::ReadBuffer buffer;
      const U32 handle = table.info.tableHandle;
      U32 status = ZelCountersIntf::counterReadIndirectStart(sess_hdl, device(), pipe, handle, &buffer);
      if (status != 0) {
         return statusText(static_cast<int>(status)) + " from the start";
      }
      for (; *entries < table.info.size; ++*entries) {
         p4_pd_counter_value value{};
         status = ZelCountersIntf::counterReadIndirectMain(sess_hdl, device(), pipe, handle, *entries,
                                                           &buffer, &value);
         if (status != 0) {
            return statusText(static_cast<int>(status)) + " from entry " + std::to_string(*entries);
         }
      }
      status = ZelCountersIntf::counterReadIndirectEnd(sess_hdl);
      return status == 0 ? "" : statusText(static_cast<int>(status)) + " from the end";
   }

   std::string walkDirect(const Table& table, U16 pipe, U32* entries) const {
      ZelCountersIntf::ReadBuffer buffer;
      const U32 handle = table.info.tableHandle;
      U32 count = 0;
      U32 status = ZelCountersIntf::counterReadDirectStart(sess_hdl, device(), pipe, handle, &buffer, &count);
      if (status != 0) {
         return statusText(static_cast<int>(status)) + " from the start";
      }
      const dev_target_t where{kit_.target.device, pipe};
      std::set<int> seen;
      int entry = PIPE_MAT_ENT_HDL_NONE;
      pipe_status_t next = pipe_mgr_get_first_entry_handle(sess_hdl, handle, where, &entry);
      while (next == 0 && entry != PIPE_MAT_ENT_HDL_NONE) {
         if (!seen.insert(entry).second) {
            return "entry " + std::to_string(entry) + " again";
         }
         p4_pd_counter_value value{};
         status = ZelCountersIntf::counterReadDirectMain(sess_hdl, device(), pipe, handle, entry, count,
                                                         &buffer, &value);
         if (status != 0) {
            return statusText(static_cast<int>(status)) + " from entry " + std::to_string(entry);
         }
         int following = PIPE_MAT_ENT_HDL_NONE;
         next = pipe_mgr_get_next_entry_handles(sess_hdl, handle, where, entry, 1, &following);
         entry = following;
      }
      *entries = static_cast<U32>(seen.size());
      status = ZelCountersIntf::counterReadDirectEnd(sess_hdl);
      return status == 0 ? "" : statusText(static_cast<int>(status)) + " from the end";
   }

   // A clear writes zeros. Of all tables, drops and those that the library doesn't know are cleared.
   void checkWrite() {
      for (const Table& table : tables_) {
         const bool isCleared =
              table.info.name != "pdpClassCount" && table.info.name != "egressPortQueueCount";
         if (table.info.direct || !table.isInitialized || !isCleared) {
            continue;
         }
         const U16 pipe = pipesOf(table).front();
         const int status = static_cast<int>(ZelCountersIntf::counterWriteIndirect(
              sess_hdl, device(), pipe, table.info.tableHandle, table.info.size - 1, {}));
         report_.checkStatus(status, "clear of an entry of " + table.info.name, "status 0");
         return;
      }
      report_.notTried("clear of an entry", "the program has no table that is cleared");
   }

   // Every status but 0 is fatal here.
   void checkQueues() {
      const Table* const table = find("egressPortQueueCount");
      if (table == nullptr || !table->isInitialized) {
         report_.notTried("queues", "no initialized table egressPortQueueCount");
         return;
      }
      if (syncQueues(*table, "queue sync")) {
         int status = 0;
         const unsigned queues = ZlPort::queueCount(portSlot());
         for (unsigned queue = 0; queue < queues && status == 0; ++queue) {
            status = readQueue(*table, ZlPort::queueEntry(portSlot(), queue)).first;
         }
         const std::string of = " of each of the port's " + std::to_string(queues) + " queues";
         report_.check(status == 0, "queue entries", "status 0" + of, statusText(status));
         status = 0;
         for (unsigned queue = 0; queue < queues && status == 0; ++queue) {
            uint64_t drops = 0;
            status = bf_tm_q_drop_get(kit_.target.device, portPipe(), kit_.target.port, queue, &drops);
         }
         report_.check(status == 0, "queue drops", "status 0" + of, statusText(status));
      }
      if (!kit_.hooks.send) {
         report_.notTried("queue numbering", "no hook 'send'");
      } else {
         for (unsigned queue = 0; queue < ZlPort::queueCount(portSlot()); ++queue) {
            checkQueue(*table, queue);
         }
      }
   }

   bool syncQueues(const Table& table, const std::string& name) {
      Request& request = kit_.sync(kit_.target.device, [&](auto* callback, void* cookie) {
         return pipe_mgr_stat_database_sync(sess_hdl, {kit_.target.device, portPipe()},
                                            table.info.tableHandle, callback, cookie);
      });
      kit_.await({&request});
      const bool isGood = Kit::isGood({&request});
      report_.check(isGood, name, "one completion", kit_.outcome({&request}));
      return isGood;
   }

   std::pair<int, pipe_stat_data_t> readQueue(const Table& table, U32 entry) const {
      pipe_stat_data_t data{};
      const int status = pipe_mgr_stat_ent_query(sess_hdl, kit_.target.device, portPipe(),
                                                 table.info.tableHandle, entry, &data);
      return {status, data};
   }

   // All entries of the port's pipe.
   std::vector<pipe_stat_data_t> readQueues(const Table& table) const {
      std::vector<pipe_stat_data_t> all;
      for (U32 entry = 0; entry < queueEntries; ++entry) {
         all.push_back(readQueue(table, entry).second);
      }
      return all;
   }

   void checkQueue(const Table& table, unsigned queue) {
      constexpr U64 frames = 10;
      constexpr U32 octets = 100;
      constexpr U64 bytes = frames * (octets - 4);
      const std::string name = "10 frames of 100 octets sent from queue " + std::to_string(queue);
      if (!syncQueues(table, name + ", sync before")) {
         return;
      }
      const std::vector<pipe_stat_data_t> before = readQueues(table);
      kit_.hooks.send(kit_.target.port, queue, frames, octets);
      if (!syncQueues(table, name + ", sync after")) {
         return;
      }
      const std::vector<pipe_stat_data_t> after = readQueues(table);
      const U32 place = ZlPort::queueEntry(portSlot(), queue);
      std::string came;
      for (U32 entry = 0; entry < queueEntries; ++entry) {
         if (after[entry].packets != before[entry].packets) {
            came += (came.empty() ? "" : ", ") +
                    ("+" + std::to_string(after[entry].packets - before[entry].packets)) + " packets, +" +
                    std::to_string(after[entry].bytes - before[entry].bytes) + " bytes at " +
                    std::to_string(entry);
         }
      }
      const std::string expected = "+" + std::to_string(frames) + " packets, +" + std::to_string(bytes) +
                                   " bytes at " + std::to_string(place);
      report_.check(came == expected, name, expected, came.empty() ? "nothing" : came);
   }

   // Which class counts is the program's business; which entries are the port's is not.
   void checkTraffic() {
      const Table* const table = find("pdpClassCount");
      if (!kit_.hooks.receive || table == nullptr || !table->isInitialized) {
         report_.notTried("PDP numbering",
                          kit_.hooks.receive ? "no initialized table pdpClassCount" : "no hook 'receive'");
         return;
      }
      const std::vector<U64> before = readPdp(*table);
      kit_.hooks.receive(kit_.target.port, 10, 100);
      const std::vector<U64> after = readPdp(*table);
      U64 own = 0;
      U64 others = 0;
      for (U32 slot = 0; slot < ZlPort::pdpSlotsPerPipe; ++slot) {
         for (U32 pdpClass = 0; pdpClass < ZlPort::pdpClassesPerSlot; ++pdpClass) {
            const U32 entry = ZlPort::pdpEntry(slot, pdpClass);
            (slot == portSlot() ? own : others) += after[entry] - before[entry];
         }
      }
      report_.check(own == 10 && others == 0, "10 frames received, PDP classes",
                    "+10 at the port's entries, +0 at others",
                    "+" + std::to_string(own) + " and +" + std::to_string(others));
   }

   std::vector<U64> readPdp(const Table& table) {
      checkSync(table);
      std::vector<U64> packets(ZlPort::pdpTableSize);
      ZelCountersIntf::ReadBuffer buffer;
      const U32 handle = table.info.tableHandle;
      if (ZelCountersIntf::counterReadIndirectStart(sess_hdl, device(), portPipe(), handle, &buffer) == 0) {
         for (U32 entry = 0; entry < ZlPort::pdpTableSize; ++entry) {
            p4_pd_counter_value value{};
            ZelCountersIntf::counterReadIndirectMain(sess_hdl, device(), portPipe(), handle, entry, &buffer,
                                                     &value);
            packets[entry] = value.packets;
         }
         ZelCountersIntf::counterReadIndirectEnd(sess_hdl);
      }
      return packets;
   }

   Kit& kit_;
   Report& report_;
   const ZlResourceInfo::ZlResourceInfoIntf& catalogue_;
   std::vector<Table> tables_;
};

} // namespace

void checkTables(Kit& kit) {
   if (kit.hooks.resourceInfo) {
      TableChecks(kit).run();
   } else {
      kit.report.notTried("tables", "no hook 'resourceInfo'");
   }
}

} // namespace SdkCheck
