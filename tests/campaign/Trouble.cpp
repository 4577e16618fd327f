// What may happen to the process and its shared memory.
#include "counters/ZelCounters.h"
#include "counters/l3/ZelCountersL3Intf.h"
#include "counters/queues/PipeIntfQueueCounterSm.h"
#include "counters/tables/HwTableCountersSm.h"
#include "counters/tables/ZelCountersSm.h"
#include "silo/TableHeader.h"
#include "softchip/SoftPd.h"
#include "tests/campaign/Campaign.h"
#include "tests/campaign/Readers.h"
#include "tests/support/ChildProcess.h"
#include "tests/support/Files.h"
#include "zl/ZelSdk.h"

#include <algorithm>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <sys/resource.h>
#include <unistd.h>

namespace Campaign {

namespace fs = std::filesystem;

void Run::passed() {
   if (!isMended_) {
      isMended_ = true;
      for (auto& [intf, port] : model_.ports) {
         port.isSure = port.queues.isSure = false;
      }
   }
}

// As if the agent had been killed between two steps of publishing what these tables got last: the slot is half-written, and
// the journal has the record.
void Run::leaveHalfWritten() {
   const auto tear = [&](const char* table, const Silo::RecordLayout& layout) {
      const Silo::TableGeometry geometry(layout);
      const std::string file = config_.siloFolder + "/" + table;
      const std::string bytes = ZelTest::bytesOf(file);
      U64 slot = 0; // + 1
      std::memcpy(&slot, bytes.data() + geometry.journalOffset, sizeof slot);
      if (slot == 0) {
         return; // it was written nothing, or lost a record last
      }
      const std::size_t at = geometry.slotsOffset + (slot - 1) * geometry.slotStride;
      ZelTest::overwrite(file, at, std::string(1, static_cast<char>(bytes.at(at) | 1))); // an odd sequence
      const std::size_t half = sizeof(Silo::RecordSlot) + layout.size / 2;
      ZelTest::overwrite(file, at + half, std::string(64, '\x5a'));
   };
   tear(Silo::Interface::TableName::intfCounters, Silo::layoutOf<Silo::Interface::IntfCounters>());
   tear(Silo::Interface::TableName::intfQueueCounters, Silo::layoutOf<Silo::Interface::IntfQueueCounters>());
   tear(Silo::Interface::TableName::intfDropCounters, Silo::layoutOf<Silo::Interface::IntfDropCounters>());
   tear(Silo::Interface::TableName::vlanIntfCounters, Silo::layoutOf<Silo::Interface::L3IntfCounters>());
   wasMended_ = true;
}

// In good order, or killed: then the next agent begins with the files as they are at that moment.
void Run::restart(Draws& draws) {
   const bool isKilled = draws.oneIn(2);
   const bool keepsCounters = !draws.oneIn(3);
   const bool isInAWrite = !draws.oneIn(3);
   if (now() - damagedAt_ < mendingTime || !draws.oneIn(4)) {
      return;
   }
   const std::string former = config_.siloFolder;
   const std::string formerHardware = config_.hardwareFile;
   if (isKilled) {
      ++folders_;
      config_.siloFolder = folder_.path() + "/tables" + std::to_string(folders_);
      config_.hardwareFile = folder_.path() + "/hardware" + std::to_string(folders_);
      fs::copy(former, config_.siloFolder);
      fs::copy(formerHardware, config_.hardwareFile);
      if (isInAWrite) {
         leaveHalfWritten();
      }
   }
   Kiln::ActivityLockAnchor::yieldWhile([&] {
      endAgent(!isKilled);
      model_.happened(now(), isKilled ? "agent-killed" : "agent-ended", "");
      if (isKilled) {
         fs::remove_all(former);
         fs::remove(formerHardware);
      }
      if (!keepsCounters) {
         fs::remove(config_.hardwareFile);
         model_.hardware.clear();
      }
      startAgent();
   });
}

void Run::damage(Draws& draws) {
   if (now() - damagedAt_ < mendingTime) {
      return;
   }
   ++result_.faults;
   std::set<fs::path> files; // in an order
   for (const auto& entry : fs::directory_iterator(config_.siloFolder)) {
      files.insert(entry.path());
   }
   const fs::path file = draws.oneOf(files);
   const U64 size = fs::file_size(file);
   const U64 how = draws.below(4);
   if (how == 0) {
      fs::remove(file);
   } else if (how == 1) {
      fs::resize_file(file, draws.below(size));
   } else {
      constexpr U64 headerSize = 256;
      const U64 at = how == 2 ? draws.below(headerSize) : draws.below(size);
      std::string bytes;
      for (U64 left = 1 + draws.below(64); left > 0 && at + bytes.size() < size; --left) {
         bytes += static_cast<char>(draws.below(256));
      }
      ZelTest::overwrite(file, at, bytes);
   }
   wasMended_ = true;
   damagedAt_ = now();
   wasDamaged_ = true;
   isMended_ = false;
}

// Some way to an assertion of the library, which is returned; empty if there is none now.
std::string Run::provoke(Draws& draws, U8 device, std::function<void()>& how) {
   const auto& counters = agent_->countersMgr().zelCounters(device);
   SoftChip::Faults& faults = agent_->fleet().faults();
   const auto pollQueues = [&, counters](const char* entryPoint) {
      agent_->fleet().completions().modeIs({SoftChip::CompletionMode::Kind::inlined, 0.0, 1});
      faults.failNext(entryPoint, 5);
      for (unsigned left = 20; left > 0; --left) { // the next few may still complete in another way
         counters->pipeIntfQueueCounterSm(ZelId::ZelPipeId(0))->pollingClockExpired();
      }
   };
   // The chip once more, without anything to publish to.
   const auto makeChip = [&, counters, device](const char* entryPoint, U32 callsBefore) {
      faults.failNext("pipe_mgr_stat_database_sync", 5, config_.pipes);
      if (callsBefore != 0) {
         faults.failNext(entryPoint, 0, callsBefore);
      }
      faults.failNext(entryPoint, 5);
      ZelCounter::ZelCounters::Context context{};
      context.devId = device;
      context.chipName = chipName(device);
      context.sessionId = ZelSdk::getZelSessionHdl();
      context.chipStatus = counters->chipStatus();
      context.systemStatus = counters->systemStatus();
      context.zlResourceInfoIntf = counters->zlResourceInfoIntf();
      context.devProfile = {"soft chip"};
      ZelCounter::zelCountersFactory(std::move(context));
   };
   const auto writeTable = [&, counters](const char* table, const char* entryPoint) {
      faults.failNext(entryPoint, 22);
      // Nothing is published of it.
      const U32 id = counters->zlResourceInfoIntf()->zlTableCounterIndex(table);
      counters->clearTableCounters(static_cast<U32>(STDERR_FILENO), id, ZelId::ZelPipeId(0));
   };
   const bool hasQueues = std::ranges::any_of(model_.ports, [&](const auto& entry) {
      return entry.second.place.device == device && entry.second.place.pipe() == 0 &&
             entry.second.queues.isStored;
   });
   switch (draws.below(12)) {
   case 0:
      how = [=] { pollQueues("pipe_mgr_stat_ent_query"); };
      return hasQueues ? "\"rc == 0\"" : "";
   case 1:
      how = [=] { pollQueues("bf_tm_q_drop_get"); };
      return hasQueues ? "\"rc == BF_SUCCESS\"" : "";
   case 2: // a device that the SDK does not know
      how = [&, device] {
         auto status = Kiln::allocate<ZelSlice::ChipStatus>();
         agent_->countersMgr().addChip(7, "Zel7", {"soft chip"}, ZelSdk::getZelSessionHdl(),
                                       Kiln::allocate<SoftChip::SoftPd>(),
                                       agent_->fleet().chip(device)->program(), status);
      };
      return config_.capabilities.qosPolicyCounter || isSimulation_ ? "\"pps == 0\"" : "\"status == 0\"";
   case 3:
      how = [=] {
         bf_rmon_counter_array_t values{};
         ZelCounter::ZelCountersCallback(device, 0, &values, nullptr);
      };
      return "\"bc\"";
   case 4:
      how = [=] { ZelCounter::hwTableCallback(device, nullptr); };
      return "\"hwTableSm\"";
   case 5:
      how = [=] { ZelCounter::ZelIntfQueueCountersCallback(device, nullptr); };
      return "\"cookie\"";
   case 6:
      how = [=] { writeTable("ingressPortCount", "counterWriteIndirect"); };
      return "\"status == 0\"";
   case 7: // its entries are the program's own
      how = [=] { writeTable("ingressAclCount", "counterWriteDirect"); };
      return counters->initializedCounter(
                  counters->zlResourceInfoIntf()->zlTableCounterIndex("ingressAclCount"))
                  ? "\"status == 0\""
                  : "";
   case 8: {
      const U32 scopes = (config_.capabilities.qosPolicyCounter ? 1U : 0U) + (isSimulation_ ? 3U : 0U);
      const U32 before = scopes != 0 ? static_cast<U32>(draws.below(scopes)) : 0;
      how = [=] { makeChip("pipe_mgr_tbl_set_property", before); };
      return scopes != 0 ? "\"pps == 0\"" : "";
   }
   case 9: {
      const auto before = static_cast<U32>(draws.below(config_.pipes));
      how = [=] { makeChip("lld_sku_map_pipe_id_to_phy_pipe_id", before); };
      return "Failed to map logical to physical pipe-id";
   }
   case 10:
      how = [&, counters] {
         faults.failNext("pipe_mgr_stat_tbl_symmetric_mode", 5);
         ZelCounter::ZelCountersSm(counters.ptr(), Kiln::activityManagerClock()).counterInitialized(0);
      };
      return "pipe_mgr_stat_tbl_symmetric_mode( bc()->deviceId(), info->counterHandle, &symmetric ) == 0";
   default: {
      const auto& helper = agent_->countersMgr().zelCountersL3IntfSm()->helper(device);
      const auto programmed = std::ranges::find_if(model_.l3, [&](const auto& entry) {
         return helper && !!helper->matchSpec(Bridging::VlanId(entry.second.vlan));
      });
      if (programmed == model_.l3.end()) {
         return "";
      }
      how = [&faults, helper, vlan = Bridging::VlanId(programmed->second.vlan)] {
         faults.failNext("counterReadDirect", 5);
         ZelCounter::packets_and_bytes in{};
         ZelCounter::packets_and_bytes out{};
         ZelCounter::packets_and_bytes nat{};
         helper->getSviStats(vlan, &in, &out, &nat);
      };
      return "\"status == 0\"";
   }
   }
}

// In a child, which touches nothing that it shares with this process before it ends.
void Run::assertion(Draws& draws) {
   if (model_.chips.empty()) {
      return;
   }
   std::function<void()> how;
   const std::string expected = provoke(draws, draws.oneOf(model_.chips).first, how);
   if (expected.empty()) {
      return;
   }
   const ZelTest::TemporaryFolder folder;
   const std::string path = folder.path() + "/stderr";
   const int status = ZelTest::statusOf(ZelTest::spawn([&] {
      const rlimit noCore{0, 0};
      setrlimit(RLIMIT_CORE, &noCore);
      dup2(open(path.c_str(), O_CREAT | O_WRONLY, 0600), STDERR_FILENO);
      failure_.clear();
      agent_->fleet().faults().clear();
      how();
      return 0;
   }));
   const std::string text = ZelTest::bytesOf(path);
   expect(status == -SIGABRT && text.find(expected) != std::string::npos, "a child ended with ", status,
          " and not in the assertion ", expected, ": ", text);
}

} // namespace Campaign
