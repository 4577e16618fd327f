// Runs seeds of the campaign, repeats one, or finds the few events that make it fail.
#include "kiln/MappedFault.h"
#include "tests/campaign/Campaign.h"

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <string_view>
#include <sys/wait.h>
#include <unistd.h>

namespace {

using namespace Campaign;

// In this process.
int runHere(const Settings& settings) {
   try {
      Result result;
      {
         Run run(settings);
         result = run.run();
      }
      std::printf("seed %llu: %016llx, %llu events, %llu faults, %.1f h\n",
                  static_cast<unsigned long long>(settings.seed), static_cast<unsigned long long>(result.hash),
                  static_cast<unsigned long long>(result.events), static_cast<unsigned long long>(result.faults),
                  result.hours);
      return 0;
   } catch (const std::exception& error) {
      std::printf("seed %llu: %s\n", static_cast<unsigned long long>(settings.seed), error.what());
      return 1;
   }
}

} // namespace

int main(int argc, char** argv) {
   Kiln::surviveMappedFaults();
   Settings settings;
   U64 last = 0;
   for (int i = 1; i < argc; ++i) {
      const std::string_view option = argv[i];
      if (option == "--verbose") {
         settings.isTold = true;
      } else if (option == "--seed") {
         settings.seed = last = std::strtoull(argv[++i], nullptr, 10);
      } else if (option == "--hours") {
         settings.hours = std::strtod(argv[++i], nullptr);
      } else if (option == "--seeds") {
         char* end = nullptr;
         settings.seed = std::strtoull(argv[++i], &end, 10);
         last = std::strtoull(end + 1, nullptr, 10);
      }
   }
   int failed = 0;
   for (; settings.seed <= last; ++settings.seed) {
      std::fflush(stdout);
      const pid_t child = fork();
      if (child == 0) {
         const int status = runHere(settings);
         std::fflush(stdout);
         _exit(status);
      }
      int status = 0;
      waitpid(child, &status, 0);
      failed |= status;
      if (status != 0) {
         std::printf("repeat by: campaign --seed %llu --hours %g\n", static_cast<unsigned long long>(settings.seed),
                     settings.hours);
      }
   }
   return failed != 0 ? 1 : 0;
}
