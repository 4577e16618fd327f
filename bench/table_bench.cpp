// The cost of showing a counter table of 65,536 entries, against its floor (the same lines through std::to_chars into
// one buffer, written once) and against a formatted write to the descriptor per line.
//
// Every round runs the three in turn, so that all see the same machine. The time shown is the command's; "x_floor" is
// its multiple of the floor's time, "x_faster" is the line-by-line time's multiple of it.
#include "counters/ZelCounters.h"
#include "kiln/ActivityLock.h"
#include "kiln/ActivityManager.h"
#include "softchip/SoftChip.h"
#include "zl/ZelSdk.h"

#include <benchmark/benchmark.h>
#include <charconv>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <sys/mman.h>
#include <unistd.h>
#include <vector>

namespace {

constexpr U32 entries = 65536;

struct Output {
   Output() : fd(memfd_create("table_bench", 0)) {}
   Output(const Output&) = delete;
   Output& operator=(const Output&) = delete;
   ~Output() { close(fd); }
   // Keeps the pages, so that none of the three pays for them.
   void rewind() const { lseek(fd, 0, SEEK_SET); }
   off_t size() const { return lseek(fd, 0, SEEK_CUR); }
   int fd;
};

char* padded(char* at, U64 value, std::size_t width) {
   char digits[20];
   const char* const end = std::to_chars(digits, digits + sizeof digits, value).ptr;
   const auto length = static_cast<std::size_t>(end - digits);
   std::memset(at, ' ', width - length);
   std::memcpy(at + width - length, digits, length);
   return at + width;
}

void floorLines(int fd, const std::vector<p4_pd_counter_value>& values) {
   std::vector<char> buffer(values.size() * 64);
   char* at = buffer.data();
   for (U32 i = 0; i < values.size(); ++i) {
      at = padded(at, i, 14);
      at = padded(at, values[i].packets, 19);
      at = padded(at, values[i].bytes, 19);
      *at++ = '\n';
   }
   if (::write(fd, buffer.data(), static_cast<std::size_t>(at - buffer.data())) < 0) {
      std::abort();
   }
}

void formattedLines(int fd, const std::vector<p4_pd_counter_value>& values) {
   for (U32 i = 0; i < values.size(); ++i) {
      dprintf(fd, "    %10d     %14lld     %14lld\n", static_cast<int>(i),
              static_cast<long long>(values[i].packets), static_cast<long long>(values[i].bytes));
   }
}

template <class Run>
double seconds(const Output& output, Run run) {
   output.rewind();
   const auto start = std::chrono::steady_clock::now();
   run(output.fd);
   return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

void showTable(benchmark::State& state) {
   Kiln::System::timeSourceIs(Kiln::allocate<Kiln::SimulatedTime>());
   auto manager = Kiln::ActivityManager::instance();
   SoftChip::Fleet fleet;
   const auto program = SoftChip::P4Program::standard();
   fleet.chipAdd({"Zel0", 0, 2, program});
   const auto lock = Kiln::ActivityLockAnchor::lock();
   auto status = Kiln::allocate<ZelSlice::ChipStatus>();
   status->highestLogicalPipeIdIs(1);
   ZelCounter::ZelCounters::Context context{};
   context.chipName = "Zel0";
   context.sessionId = ZelSdk::getZelSessionHdl();
   context.chipStatus = status;
   context.systemStatus = Kiln::allocate<ZelSystem::SystemStatus>();
   context.zlResourceInfoIntf = program;
   auto chip = ZelCounter::zelCountersFactory(std::move(context));
   manager->advance(3.0); // the first pass has landed

   const U32 id = program->zlTableCounterIndex("flowHashCount");
   const U32 handle = program->zlTableCounter(id)->tableHandle;
   std::vector<p4_pd_counter_value> values(entries);
   for (U32 i = 0; i < entries; ++i) {
      values[i] = {i * U64{977}, i * U64{977} * 611};
      ZelCountersIntf::counterWriteIndirect(sess_hdl, 0, ZelId::ZelPipeId::allPipes(), handle, i, values[i]);
   }
   const Output output;
   double floorTime = 0;
   double formattedTime = 0;
   double time = 0;
   for (auto _ : state) {
      floorTime += seconds(output, [&](int fd) { floorLines(fd, values); });
      const off_t floorSize = output.size();
      formattedTime += seconds(output, [&](int fd) { formattedLines(fd, values); });
      const bool formattedIsEqual = output.size() == floorSize;
      const double own =
           seconds(output, [&](int fd) { chip->showTableCounters(static_cast<U32>(fd), id, false); });
      if (!formattedIsEqual || output.size() <= floorSize) {
         state.SkipWithError("the three did not print the same table");
      }
      time += own;
      state.SetIterationTime(own);
   }
   state.counters["x_floor"] = time / floorTime;
   state.counters["x_faster"] = formattedTime / time;
   chip = nullptr;
}

BENCHMARK(showTable)->UseManualTime()->Unit(benchmark::kMillisecond);

} // namespace

BENCHMARK_MAIN();
