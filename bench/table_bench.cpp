// The cost of showing a counter table of 65,536 entries, against its floor (the same lines through std::to_chars into
// one buffer, written once) and against a formatted write to the descriptor per line, whose time is "x_faster" times
// the command's. Every round runs the three in turn.
#include "bench/InTurns.h"
#include "counters/ZelCounters.h"
#include "kiln/ActivityLock.h"
#include "kiln/ActivityManager.h"
#include "softchip/SoftChip.h"
#include "zl/ZelSdk.h"

#include <benchmark/benchmark.h>
#include <charconv>
#include <cstdio>
#include <cstring>
#include <sys/mman.h>
#include <unistd.h>
#include <vector>

namespace {

using Bench::Caches;
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

void showTable(benchmark::State& state, Caches caches) {
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
   off_t floorSize = 0;
   Bench::Times formatted;
   Bench::InTurns turns(caches);
   turns.run(
        state,
        [&] {
           output.rewind();
           formatted.add(Bench::timeOf([&] { formattedLines(output.fd, values); }));
        },
        [&] {
           const off_t formattedSize = output.size();
           output.rewind();
           floorLines(output.fd, values);
           floorSize = output.size();
           if (formattedSize != floorSize) {
              state.SkipWithError("floor and formatted lines are not the same table");
           }
        },
        [&] {
           output.rewind();
           chip->showTableCounters(static_cast<U32>(output.fd), id, false);
        });
   if (output.size() <= floorSize) {
      state.SkipWithError("the command did not print the table");
   }
   state.counters["x_faster"] = formatted.median() / turns.pathTimes.median();
   chip = nullptr;
}

ZEL_BENCH_HOT_AND_COLD(showTable, benchmark::kMillisecond);

} // namespace

BENCHMARK_MAIN();
