// Runs seeds of the campaign, each in a process of its own, since a failure may be an assertion; repeats one; or finds the
// few events that make it fail.
#include "kiln/MappedFault.h"
#include "kiln/Numbers.h"
#include "tests/campaign/Campaign.h"
#include "tests/support/ChildProcess.h"
#include "tests/support/Files.h"

#include <array>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <fcntl.h>
#include <filesystem>
#include <new>
#include <sstream>
#include <unistd.h>

namespace {

U64 blocks = 0; // of memory in use

} // namespace

#ifdef ZEL_COUNT_BLOCKS // not with the sanitizers, which have their own
void* operator new(std::size_t size) {
   void* const block = std::malloc(size);
   if (block == nullptr) {
      throw std::bad_alloc();
   }
   ++blocks;
   return block;
}
void operator delete(void* block) noexcept {
   blocks -= block != nullptr ? 1 : 0;
   std::free(block);
}
void operator delete(void* block, std::size_t /*size*/) noexcept {
   operator delete(block);
}
#endif

namespace {

using namespace Campaign;

constexpr const char* usage =
     "usage: campaign [--seed N | --seeds A-[B]] [--hours H] [--for SECONDS] [--only EVENT,...] [--shrink | "
     "--base-line] "
     "[--verbose]\n"
     "Runs the seeds, each for H simulated hours, until SECONDS have passed, and fails if one fails.\n";

struct Options {
   Settings settings;
   U64 firstSeed = 1;
   U64 lastSeed = 1;
   double seconds = 0; // 0: no limit
   bool isShrunk = false;
   bool isBaseLine = false;
};

[[noreturn]] void refuse(const std::string& what) {
   std::fprintf(stderr, "%% %s\n%s", what.c_str(), usage);
   std::exit(2);
}

U64 number(const std::string& word) {
   const auto value = Kiln::parseNumber<U64>(word, 0, ~U64{0});
   return value ? *value : (refuse("'" + word + "': expected a number"), 0);
}

Options parse(int argc, char** argv) {
   Options options;
   for (int i = 1; i < argc; ++i) {
      const std::string option = argv[i];
      const auto value = [&]() -> std::string { return ++i < argc ? argv[i] : ""; };
      if (option == "--seed") {
         options.firstSeed = options.lastSeed = number(value());
      } else if (option == "--seeds") {
         const std::string range = value();
         const std::size_t dash = range.find('-');
         options.firstSeed = number(range.substr(0, dash));
         const bool isOpen = dash == std::string::npos || dash + 1 == range.size();
         options.lastSeed = isOpen ? ~U64{0} : number(range.substr(dash + 1));
      } else if (option == "--hours" || option == "--for") {
         const std::string word = value();
         const auto decimal = Kiln::parseDecimal(word, 1e6);
         (option == "--hours" ? options.settings.hours : options.seconds) =
              decimal ? *decimal : (refuse("'" + word + "': expected a number"), 0);
      } else if (option == "--only") {
         std::istringstream list(value());
         options.settings.only.emplace();
         for (std::string event; std::getline(list, event, ',');) {
            options.settings.only->push_back(number(event));
         }
      } else if (option == "--shrink") {
         options.isShrunk = true;
      } else if (option == "--base-line") {
         options.isBaseLine = true;
      } else if (option == "--verbose") {
         options.settings.isTold = true;
      } else {
         refuse("unknown option '" + option + "'");
      }
   }
   return options;
}

unsigned long long wide(U64 value) {
   return value;
}

// In this process.
int runHere(const Settings& settings) {
   try {
      const Result result = Run(settings).run();
      std::printf("seed %llu: %016llx, %llu events, %llu faults, %.1f h\n", wide(settings.seed),
                  wide(result.hash), wide(result.events), wide(result.faults), result.hours);
      std::fflush(stdout);
      return 0;
   } catch (const std::exception& error) {
      std::printf("seed %llu fails in event %llu: %s\n", wide(settings.seed), wide(Run::lastEvent()),
                  error.what());
      std::fflush(stdout);
      return 1;
   }
}

std::string commandOf(const Settings& settings) {
   std::ostringstream command;
   command << "campaign --seed " << settings.seed << " --hours " << settings.hours;
   const char* before = " --only ";
   for (const U64 event : settings.only.value_or(std::vector<U64>())) {
      command << std::exchange(before, ",") << event;
   }
   return command.str();
}

int runChild(const Settings& settings) {
   return ZelTest::statusOf(ZelTest::spawn([&] { return runHere(settings); }));
}

// What a child prints, and whether it fails.
struct Attempt {
   bool isFailure = false;
   std::string kind; // the message without its numbers
};

Attempt attempt(const Settings& settings) {
   const ZelTest::TemporaryFolder folder;
   const std::string path = folder.path() + "/output";
   const int status = ZelTest::statusOf(ZelTest::spawn([&] {
      const int fd = open(path.c_str(), O_CREAT | O_WRONLY, 0600);
      dup2(fd, STDOUT_FILENO);
      dup2(fd, STDERR_FILENO);
      return runHere(settings);
   }));
   Attempt made;
   made.isFailure = status != 0;
   const std::string text = ZelTest::bytesOf(path);
   const std::size_t message = text.find(": ");
   for (const char c : status < 0 ? text : text.substr(message == std::string::npos ? 0 : message)) {
      if (c < '0' || c > '9') {
         made.kind += c;
      }
   }
   return made;
}

// Leaves out events, in smaller and smaller pieces, as long as it fails in the same way.
int shrink(Settings settings) {
   const Attempt first = attempt(settings);
   if (!first.isFailure) {
      std::printf("seed %llu does not fail\n", wide(settings.seed));
      return 0;
   }
   const auto fails = [&](const std::vector<U64>& events) {
      Settings fewer = settings;
      fewer.only = events;
      const Attempt made = attempt(fewer);
      return made.isFailure && made.kind == first.kind;
   };
   std::vector<U64> events = settings.only.value_or(std::vector<U64>());
   for (U64 count = 64; events.empty(); count *= 2) { // whatever comes behind the failure is left out
      std::vector<U64> all;
      for (U64 event = 1; event <= count; ++event) {
         all.push_back(event);
      }
      if (fails(all)) {
         events = all;
      }
   }
   for (std::size_t piece = (events.size() + 1) / 2; piece > 0;) {
      bool isShorter = false;
      for (std::size_t at = 0; at < events.size();) {
         std::vector<U64> fewer = events;
         fewer.erase(fewer.begin() + static_cast<std::ptrdiff_t>(at),
                     fewer.begin() + static_cast<std::ptrdiff_t>(std::min(at + piece, fewer.size())));
         if (fails(fewer)) {
            events = fewer;
            isShorter = true;
         } else {
            at += piece;
         }
      }
      piece = piece > 1 ? (piece + 1) / 2 : isShorter ? 1 : 0;
   }
   settings.only = events;
   settings.isTold = true;
   runChild(settings);
   std::printf("%zu events suffice; repeat by: %s --verbose\n", events.size(), commandOf(settings).c_str());
   return 1;
}

// Runs it again and again in this process: when all that is kept for the next ones is full, a run must leave nothing behind
// but what waits for lost answers.
int compareBaseLine(const Settings& settings) {
   struct Left {
      U64 blocks;
      U64 descriptors;
      U64 deadObjects;
   };
   constexpr unsigned runs = 10;
   constexpr U64 blocksPerDeadObject = 2; // its storage, and the note that it waits
   constexpr U64 slack = 4;               // containers of these notes grow now and then
   std::vector<Left> left;
   bool isKept = true;
   for (unsigned run = 0; run < runs; ++run) {
      isKept = runHere(settings) == 0 && isKept;
      const auto descriptors = std::distance(std::filesystem::directory_iterator("/proc/self/fd"), {});
      left.push_back({blocks, static_cast<U64>(descriptors), Run::deadObjects()});
      std::printf("%llu blocks, %llu descriptors, %llu dead objects\n", wide(blocks),
                  wide(left.back().descriptors), wide(left.back().deadObjects));
   }
   const Left& last = left[runs - 1];
   const Left& before = left[runs - 2];
   isKept =
        isKept && last.descriptors == before.descriptors &&
        last.blocks <= before.blocks + blocksPerDeadObject * (last.deadObjects - before.deadObjects) + slack;
   return isKept ? 0 : 1;
}

} // namespace

int main(int argc, char** argv) {
   std::signal(SIGPIPE, SIG_IGN);
   Kiln::surviveMappedFaults();
   Options options = parse(argc, argv);
   Settings& settings = options.settings;
   settings.seed = options.firstSeed;
   if (options.isShrunk) {
      return shrink(settings);
   }
   if (options.isBaseLine) {
      return compareBaseLine(settings);
   }
   const auto begin = std::chrono::steady_clock::now();
   const auto isOver = [&] {
      const std::chrono::duration<double> passed = std::chrono::steady_clock::now() - begin;
      return options.seconds > 0 && passed.count() > options.seconds;
   };
   U64 failed = 0;
   U64 seeds = 0;
   for (; settings.seed <= options.lastSeed && !isOver(); ++settings.seed, ++seeds) {
      if (runChild(settings) != 0) {
         ++failed;
         std::printf("repeat by: %s\nshrink by: %s --shrink\n", commandOf(settings).c_str(),
                     commandOf(settings).c_str());
         std::fflush(stdout);
      }
   }
   std::printf("%llu seeds, %llu failed\n", wide(seeds), wide(failed));
   return failed != 0 ? 1 : 0;
}
