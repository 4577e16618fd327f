// What may happen to the process and its shared memory.
#include "counters/ZelCounters.h"
#include "counters/l3/ZelCountersL3Intf.h"
#include "counters/queues/PipeIntfQueueCounterSm.h"
#include "softchip/SoftPd.h"
#include "tests/campaign/Campaign.h"
#include "tests/campaign/Readers.h"
#include "tests/support/ChildProcess.h"
#include "tests/support/Files.h"
#include "zl/ZelSdk.h"

#include <csignal>
#include <cstdio>
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

// In good order, or killed: then the next agent begins with the files as they are at that moment.
void Run::restart(Draws& draws) {
   const bool isKilled = draws.oneIn(2);
   const bool keepsCounters = !draws.oneIn(3);
   if (now() - damagedAt_ < mendingTime || !draws.oneIn(6)) {
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
   damagedAt_ = now();
   wasDamaged_ = true;
   isMended_ = false;
}

// In a child, which touches nothing that it shares with this process before it ends.
void Run::assertion(Draws& draws) {
   if (model_.chips.empty()) {
      return;
   }
   const U8 device = draws.oneOf(model_.chips).first;
   const auto& counters = agent_->countersMgr().zelCounters(device);
   SoftChip::Faults& faults = agent_->fleet().faults();
   const auto pollQueues = [&](const char* entryPoint) {
      agent_->fleet().completions().modeIs({SoftChip::CompletionMode::Kind::inlined, 0.0, 1});
      faults.failNext(entryPoint, 5);
      for (unsigned left = 20; left > 0; --left) { // the next few may still complete in another way
         counters->pipeIntfQueueCounterSm(ZelId::ZelPipeId(0))->pollingClockExpired();
      }
   };
   const bool hasQueues = std::ranges::any_of(model_.ports, [&](const auto& entry) {
      return entry.second.place.device == device && entry.second.place.pipe() == 0 &&
             entry.second.queues.isStored;
   });
   std::string expected;
   std::function<void()> provoke;
   switch (draws.below(5)) {
   case 0:
      expected = hasQueues ? "\"rc == 0\" failed" : "";
      provoke = [&] { pollQueues("pipe_mgr_stat_ent_query"); };
      break;
   case 1:
      expected = hasQueues ? "\"rc == BF_SUCCESS\" failed" : "";
      provoke = [&] { pollQueues("bf_tm_q_drop_get"); };
      break;
   case 2: // a device that the SDK does not know
      expected = config_.capabilities.qosPolicyCounter ? "\"pps == 0\" failed" : "\"status == 0\" failed";
      provoke = [&] {
         auto status = Kiln::allocate<ZelSlice::ChipStatus>();
         agent_->countersMgr().addChip(7, "Zel7", {"soft chip"}, ZelSdk::getZelSessionHdl(),
                                       Kiln::allocate<SoftChip::SoftPd>(),
                                       agent_->fleet().chip(device)->program(), status);
      };
      break;
   case 3:
      expected = "\"bc\" failed";
      provoke = [&] {
         bf_rmon_counter_array_t values{};
         ZelCounter::ZelCountersCallback(device, 0, &values, nullptr);
      };
      break;
   default:
      expected = "\"status == 0\" failed";
      provoke = [&] {
         faults.failNext("counterWriteIndirect", 22);
         // A table that nothing is published of.
         const U32 table = counters->zlResourceInfoIntf()->zlTableCounterIndex("ingressPortCount");
         counters->clearTableCounters(static_cast<U32>(STDERR_FILENO), table, ZelId::ZelPipeId(0));
      };
      break;
   }
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
      faults.clear();
      provoke();
      return 0;
   }));
   const std::string text = ZelTest::bytesOf(path);
   expect(status == -SIGABRT && text.find(expected) != std::string::npos,
          "a child ended with " + std::to_string(status) + " and not in the assertion " + expected + ": " +
               text);
}

} // namespace Campaign
