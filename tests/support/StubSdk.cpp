// Defines the SDK's functions on the stub's arrays.
#include "tests/support/StubSdk.h"

#include "sdk/lld.h"
#include "zl/ZelSdk.h"

#include <algorithm>
#include <cstdio>
#include <memory>

namespace StubSdk {

namespace {

std::unique_ptr<Sdk>& holder() {
   static auto instance = std::make_unique<Sdk>();
   return instance;
}

std::string hex(U32 handle) {
   char text[16];
   std::snprintf(text, sizeof text, "%X", handle);
   return text;
}

template <class Records>
U32 indexOf(const Records& records, const Kiln::String& name) {
   const auto at =
        std::find_if(records.begin(), records.end(), [&](const auto& record) { return record.name == name; });
   return at == records.end() ? ZlResourceInfo::notFound : static_cast<U32>(at - records.begin());
}

U32 sync(const char* entryPoint, int dev, U16 pipe, U32 handle, ZelCountersIntf::SyncCallback callback,
         void* cookie) {
   Sdk& s = sdk();
   s.calls.push_back("sync " + std::to_string(dev) + " " + std::to_string(pipe) + " " + hex(handle));
   const Completion completion{callback, dev, cookie, handle, pipe};
   if (const U32 status = s.status(entryPoint, handle, pipe)) {
      if (s.answersRefused) {
         completion.deliver();
      }
      return status;
   }
   bool isInline = s.inlineDefault;
   if (!s.inlineNext.empty()) {
      isInline = s.inlineNext.front();
      s.inlineNext.erase(s.inlineNext.begin());
   }
   if (isInline) {
      completion.deliver();
   } else {
      const std::lock_guard lock(s.mutex);
      s.pending.push_back(completion);
   }
   return 0;
}

U32 read(const char* entryPoint, U32 dev, U16 pipe, U32 handle, U32 key, p4_pd_counter_value* value) {
   if (const U32 status = sdk().status(entryPoint, handle, pipe)) {
      return status;
   }
   ++sdk().reads;
   if (sdk().onEntry) {
      sdk().onEntry(static_cast<int>(dev), key);
   }
   const Table& table = sdk().table(static_cast<int>(dev), handle);
   const auto at = table.values.find({pipe, key});
   *value = at == table.values.end() ? p4_pd_counter_value{} : at->second;
   return 0;
}

U32 write(const char* entryPoint, U32 dev, U16 pipe, U32 handle, U32 key, const p4_pd_counter_value& value) {
   for (const std::string& what : {std::string(entryPoint), "index " + std::to_string(key)}) {
      if (const U32 status = sdk().status(what.c_str(), handle, pipe)) {
         return status;
      }
   }
   sdk().table(static_cast<int>(dev), handle).values[{pipe, key}] = value;
   if (sdk().onEntry) {
      sdk().onEntry(static_cast<int>(dev), key);
   }
   return 0;
}

} // namespace

Sdk& sdk() {
   return *holder();
}

void reset() {
   holder() = std::make_unique<Sdk>();
}

U32 Sdk::status(const char* entryPoint, U32 handle, U16 pipe) const {
   const auto at = statuses.find({entryPoint, handle, pipe});
   return at == statuses.end() ? 0 : at->second;
}

void PortRead::deliver(U64 value) const {
   bf_rmon_counter_array_t values;
   std::fill(std::begin(values), std::end(values), value);
   callback(dev, port, &values, cookie);
}

void Sdk::deliverAll() {
   std::vector<Completion> due;
   {
      const std::lock_guard lock(mutex);
      due.swap(pending);
   }
   for (const Completion& completion : due) {
      completion.deliver();
   }
}

void Catalogue::add(int dev, Table table) {
   counters_.push_back(table.info);
   const U32 handle = table.info.tableHandle;
   sdk().tables.insert_or_assign({dev, handle}, std::move(table));
}

U32 Catalogue::zlTableCounterIndex(const Kiln::String& name) const {
   return indexOf(counters_, name);
}

U32 Catalogue::zlTableCounterField(const Kiln::String& name, ZlResourceInfo::ZlCounterFieldId) const {
   const U32 id = indexOf(counters_, name);
   return id == ZlResourceInfo::notFound ? id : counters_[id].tableHandle;
}

U32 Catalogue::zlTableIndex(const Kiln::String& name) const {
   return indexOf(matchTables_, name);
}

} // namespace StubSdk

using StubSdk::sdk;

U32 ZelSdk::getZelSessionHdl() {
   return sess_hdl;
}

namespace ZelCountersIntf {

U32 counterHwSyncDirect(U32, U32 device, U16 pipe, U32 handle, SyncCallback callback, void* cookie) {
   return StubSdk::sync("counterHwSync", static_cast<int>(device), pipe, handle, callback, cookie);
}
U32 counterHwSyncIndirect(U32, U32 device, U16 pipe, U32 handle, SyncCallback callback, void* cookie) {
   return StubSdk::sync("counterHwSync", static_cast<int>(device), pipe, handle, callback, cookie);
}

U32 counterReadDirectStart(U32, U32, U16 pipe, U32 handle, ReadBuffer*, U32* count) {
   *count = 1;
   return sdk().status("counterReadDirectStart", handle, pipe);
}
U32 counterReadDirectMain(U32, U32 device, U16 pipe, U32 handle, S32 entry, U32, ReadBuffer*,
                          p4_pd_counter_value* value) {
   return StubSdk::read("counterReadDirectMain", device, pipe, handle, static_cast<U32>(entry), value);
}
U32 counterReadDirectEnd(U32) {
   return sdk().status("counterReadDirectEnd", 0, 0);
}

U32 counterReadIndirectStart(U32, U32, U16 pipe, U32 handle, ReadBuffer*) {
   return sdk().status("counterReadIndirectStart", handle, pipe);
}
U32 counterReadIndirectMain(U32, U32 device, U16 pipe, U32 handle, U32 index, ReadBuffer*,
                            p4_pd_counter_value* value) {
   if (const U32 status = sdk().status(("index " + std::to_string(index)).c_str(), handle, pipe)) {
      return status;
   }
   return StubSdk::read("counterReadIndirectMain", device, pipe, handle, index, value);
}
U32 counterReadIndirectEnd(U32) {
   return sdk().status("counterReadIndirectEnd", 0, 0);
}

U32 counterReadDirect(U32, U32 device, U16 pipe, U32 handle, U32 entry, U32, p4_pd_counter_value* value) {
   return StubSdk::read("counterReadDirect", device, pipe, handle, entry, value);
}

U32 counterWriteDirect(U32, U32 device, U16 pipe, U32 handle, S32 entry, const p4_pd_counter_value& value) {
   return StubSdk::write("counterWrite", device, pipe, handle, static_cast<U32>(entry), value);
}
U32 counterWriteIndirect(U32, U32 device, U16 pipe, U32 handle, U32 index, const p4_pd_counter_value& value) {
   return StubSdk::write("counterWrite", device, pipe, handle, index, value);
}

} // namespace ZelCountersIntf

bf_status_t lld_sku_map_pipe_id_to_phy_pipe_id(bf_dev_id_t, uint32_t logical, uint32_t* physical) {
   *physical = logical + sdk().physicalPipeOffset;
   return static_cast<bf_status_t>(sdk().status("map", 0, static_cast<U16>(logical)));
}

pipe_status_t pipe_mgr_stat_tbl_symmetric_mode_initialized(bf_dev_id_t dev, pipe_stat_tbl_hdl_t table,
                                                           bool* initialized) {
   sdk().calls.push_back("initialized? " + std::to_string(dev) + " " + StubSdk::hex(table));
   StubSdk::Table& asked = sdk().table(dev, table - 0x1000);
   *initialized = asked.checksUntilInitialized-- <= 0;
   return static_cast<pipe_status_t>(sdk().status("initialized", table, 0));
}

pipe_status_t pipe_mgr_stat_tbl_symmetric_mode(bf_dev_id_t dev, pipe_stat_tbl_hdl_t table, bool* symmetric) {
   *symmetric = sdk().table(dev, table - 0x1000).symmetric;
   return static_cast<pipe_status_t>(sdk().status("symmetric", table, 0));
}

pipe_status_t pipe_mgr_tbl_set_property(pipe_sess_hdl_t session, bf_dev_id_t dev, pipe_tbl_hdl_t table,
                                        uint32_t property, uint32_t value, uint32_t arguments) {
   char text[80];
   std::snprintf(text, sizeof text, "property %u %d %X %u %u %u", session, dev, table, property, value,
                 arguments);
   sdk().calls.push_back(text);
   return static_cast<pipe_status_t>(sdk().status("property", table, 0));
}

pipe_status_t pipe_mgr_stat_database_sync(pipe_sess_hdl_t, dev_target_t target, pipe_tbl_hdl_t table,
                                          pipe_mgr_stat_tbl_sync_cback_fn callback, void* cookie) {
   return static_cast<pipe_status_t>(
        StubSdk::sync("databaseSync", target.device_id, target.dev_pipe_id, table, callback, cookie));
}

pipe_status_t pipe_mgr_stat_ent_query(pipe_sess_hdl_t, bf_dev_id_t dev, uint16_t pipe, pipe_tbl_hdl_t table,
                                      pipe_stat_ent_idx_t index, pipe_stat_data_t* result) {
   sdk().calls.push_back("query " + std::to_string(index));
   p4_pd_counter_value value{};
   const U32 status = StubSdk::read("query", static_cast<U32>(dev), pipe, table, index, &value);
   *result = {value.packets, value.bytes};
   return static_cast<pipe_status_t>(status);
}

pipe_status_t pipe_mgr_get_first_entry_handle(pipe_sess_hdl_t, pipe_tbl_hdl_t table, dev_target_t target,
                                              int* entry) {
   const auto& entries = sdk().table(target.device_id, table).entries;
   *entry = entries.empty() ? PIPE_MAT_ENT_HDL_NONE : entries.front();
   return static_cast<pipe_status_t>(sdk().status("firstEntry", table, target.dev_pipe_id));
}

pipe_status_t pipe_mgr_get_next_entry_handles(pipe_sess_hdl_t, pipe_tbl_hdl_t table, dev_target_t target,
                                              pipe_mat_ent_hdl_t entry, int, int* next) {
   const auto& entries = sdk().table(target.device_id, table).entries;
   const auto at = std::find(entries.begin(), entries.end(), entry);
   if (at == entries.end() || at + 1 == entries.end()) {
      return 6;
   }
   *next = *(at + 1);
   return 0;
}

bf_status_t bf_tm_q_drop_get(bf_dev_id_t, uint16_t pipe, bf_dev_port_t port, uint32_t queue,
                             uint64_t* drops) {
   sdk().calls.push_back("drops " + std::to_string(port) + " " + std::to_string(queue));
   const auto at = sdk().drops.find(static_cast<U32>(port) * 32 + queue);
   *drops = at == sdk().drops.end() ? 0 : at->second;
   return static_cast<bf_status_t>(sdk().status("drops", 0, pipe));
}

bf_status_t bf_tm_pipe_counter_get(bf_dev_id_t, uint16_t pipe, uint32_t type, bf_tm_pipe_counter_t* counter) {
   *counter = sdk().tm[{pipe, type}];
   return static_cast<bf_status_t>(sdk().status("tm", type, pipe));
}

bf_status_t bf_pipe_path_counter_get(bf_dev_id_t, uint16_t pipe, uint32_t stage,
                                     bf_pipe_path_count_t* count) {
   *count = sdk().path[{pipe, stage}];
   return static_cast<bf_status_t>(sdk().status("path", stage, pipe));
}

bf_status_t bf_pipe_mau_drop_get(bf_dev_id_t, uint16_t pipe, uint32_t stage, uint64_t* drops) {
   *drops = sdk().mauDrops[{pipe, stage}];
   return static_cast<bf_status_t>(sdk().status("mau", stage, pipe));
}

bf_status_t bf_pipe_deparser_drop_get(bf_dev_id_t, uint16_t pipe, uint32_t direction, uint64_t* drops) {
   *drops = sdk().mauDrops[{pipe, 100 + direction}];
   return static_cast<bf_status_t>(sdk().status("deparser", direction, pipe));
}

bf_status_t bf_port_mac_stats_hw_async_get(bf_dev_id_t dev, bf_dev_port_t port, bf_port_mac_stats_cb callback,
                                           void* cookie) {
   if (sdk().onMacStatsGet) {
      sdk().onMacStatsGet();
   }
   if (!sdk().takesPortReads) {
      return 3;
   }
   sdk().portReads.push_back({dev, port, callback, cookie});
   return BF_SUCCESS;
}

bf_status_t bf_port_rmon_counter_to_str(int, const char** name) {
   *name = "counter";
   return BF_SUCCESS;
}
