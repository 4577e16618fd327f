// Publishing 456 ports and reading them from another process, beside what users would otherwise take: a string store on
// a Unix socket, which this starts. There each port is a hash of decimal fields, as such stores are mostly used, or
// one binary value; all requests of a pass are sent before the first answer is waited for. It keeps only each
// counter's total, where the library's record has readings, deltas, rates and times, too. Its configuration is its own.
//
// Times are those of the clock on the wall: the store works while its client waits. "server_us" is its CPU time.
#include "bench/InTurns.h"
#include "bench/Processes.h"
#include "silo/Table.h"
#include "silo/TableReader.h"
#include "vex/PublishedRecords.h"

#include <benchmark/benchmark.h>
#include <charconv>
#include <chrono>
#include <cstring>
#include <fcntl.h>
#include <fstream>
#include <hiredis/hiredis.h>
#include <memory>
#include <stdexcept>
#include <thread>
#include <unistd.h>

namespace {

using Silo::Interface::IntfCounters;
namespace TableName = Silo::Interface::TableName;

constexpr unsigned ports = 456;
constexpr std::size_t fields = std::tuple_size_v<decltype(IntfCounters::totals)>;
constexpr double patience = 10; // seconds for another process to begin

using Clock = std::chrono::steady_clock;

double secondsSince(Clock::time_point start) {
   return std::chrono::duration<double>(Clock::now() - start).count();
}

template <class Call>
double wallTimeOf(Call call) {
   const auto start = Clock::now();
   call();
   return secondsSince(start);
}

// Tries until something comes.
template <class Look>
auto await(const char* what, Look look) {
   for (const auto begin = Clock::now(); secondsSince(begin) < patience;) {
      try {
         if (auto found = look()) {
            return found;
         }
      } catch (const Silo::TableError&) { // not made yet
      }
      std::this_thread::sleep_for(std::chrono::milliseconds(10));
   }
   throw std::runtime_error(std::string("waited in vain for ") + what);
}

// Of all its threads.
double cpuTimeOf(const Bench::Child& child) {
   std::ifstream account(child.procFile("schedstat"));
   double nanoseconds = 0;
   account >> nanoseconds;
   return 1e-9 * nanoseconds;
}

// The store: on a socket in a folder of its own, without a network port, and without a file.
class Server {
 public:
   redisContext* client() const { return client_.get(); }
   double cpuTime() const { return cpuTimeOf(process_); }
   const std::string& folder() const { return folder_.path; }

 private:
   using Client = std::unique_ptr<redisContext, decltype(&redisFree)>;

   Client connected() const {
      Client client(redisConnectUnix(socket_.c_str()), redisFree);
      return client && client->err == 0 ? std::move(client) : Client(nullptr, redisFree);
   }
   void run() const {
      const int null = open("/dev/null", O_RDWR);
      dup2(null, STDOUT_FILENO);
      execl(ZEL_REDIS_SERVER, "redis-server", "--port", "0", "--unixsocket", socket_.c_str(),
            "--unixsocketperm", "700", "--save", "", "--appendonly", "no", "--dir", folder_.path.c_str(),
            nullptr);
   }

   const Bench::SharedFolder folder_{"beside_bench"};
   const std::string socket_ = folder_.path + "/socket";
   const Bench::Child process_{[this] { run(); }};
   const Client client_ = await("redis-server", [this] { return connected(); });
};

std::vector<IntfCounters> makeRecords() {
   std::vector<IntfCounters> records(ports);
   U64 next = 1;
   for (IntfCounters& record : records) {
      for (U64& total : record.totals) {
         next = next * 6364136223846793005 + 1442695040888963407;
         total = next >> (12 + next % 50); // of all magnitudes
      }
   }
   return records;
}

std::string nameOf(unsigned port) {
   return "Ethernet" + std::to_string(port + 1);
}

// Takes the answers of a pass, in order.
template <class Take>
void takeAnswers(redisContext* client, Take take) {
   for (unsigned port = 0; port < ports; ++port) {
      void* answer = nullptr;
      if (redisGetReply(client, &answer) != REDIS_OK || answer == nullptr) {
         throw std::runtime_error("redis-server left");
      }
      const std::unique_ptr<void, decltype(&freeReplyObject)> owner(answer, freeReplyObject);
      take(port, *static_cast<redisReply*>(answer));
   }
}

void expectTaken(redisContext* client) {
   takeAnswers(client, [](unsigned, const redisReply& answer) {
      if (answer.type == REDIS_REPLY_ERROR) {
         throw std::runtime_error(answer.str);
      }
   });
}

void ask(redisContext* client, std::vector<std::string_view>& words) {
   std::vector<const char*> texts;
   std::vector<std::size_t> sizes;
   for (const std::string_view word : words) {
      texts.push_back(word.data());
      sizes.push_back(word.size());
   }
   redisAppendCommandArgv(client, static_cast<int>(words.size()), texts.data(), sizes.data());
}

// Each port a hash: its counters' names, and their totals as decimal numbers.
struct DecimalFields {
   static void publish(redisContext* client, const std::vector<IntfCounters>& records) {
      std::array<char[24], fields> digits;
      std::vector<std::string_view> words;
      for (unsigned port = 0; port < ports; ++port) {
         const std::string name = nameOf(port);
         words.assign({"HSET", name});
         for (std::size_t i = 0; i < fields; ++i) {
            const char* const end =
                 std::to_chars(digits[i], std::end(digits[i]), records[port].totals[i]).ptr;
            words.emplace_back(Interface::ethIntfFields[i].name);
            words.emplace_back(digits[i], end);
         }
         ask(client, words);
      }
      expectTaken(client);
   }
   static void read(redisContext* client, std::vector<IntfCounters>& records) {
      for (unsigned port = 0; port < ports; ++port) {
         redisAppendCommand(client, "HGETALL %s", nameOf(port).c_str());
      }
      takeAnswers(client, [&](unsigned port, const redisReply& answer) {
         for (std::size_t i = 0; 2 * i + 1 < answer.elements; ++i) {
            const redisReply& value = *answer.element[2 * i + 1];
            std::from_chars(value.str, value.str + value.len, records[port].totals.at(i));
         }
      });
   }
};

// Each port one value, which holds its record.
struct BinaryValue {
   static void publish(redisContext* client, const std::vector<IntfCounters>& records) {
      std::vector<std::string_view> words;
      for (unsigned port = 0; port < ports; ++port) {
         const std::string name = nameOf(port);
         words.assign({"SET", name, {reinterpret_cast<const char*>(&records[port]), sizeof(IntfCounters)}});
         ask(client, words);
      }
      expectTaken(client);
   }
   static void read(redisContext* client, std::vector<IntfCounters>& records) {
      for (unsigned port = 0; port < ports; ++port) {
         redisAppendCommand(client, "GET %s", nameOf(port).c_str());
      }
      takeAnswers(client, [&](unsigned port, const redisReply& answer) {
         if (answer.len == sizeof(IntfCounters)) {
            std::memcpy(static_cast<void*>(&records[port]), answer.str, sizeof(IntfCounters));
         }
      });
   }
};

std::vector<Silo::Key> makeKeys() {
   std::vector<Silo::Key> keys;
   for (unsigned port = 0; port < ports; ++port) {
      keys.emplace_back(nameOf(port));
   }
   return keys;
}

// The library's table.
class Table {
 public:
   explicit Table(const Silo::Store& store)
        : table_(store, TableName::intfCounters, IntfCounters{},
                 Silo::TableOptions{ports, 2, Silo::ClockDomain::monotonic(), {}}) {}

   void publish(const std::vector<IntfCounters>& records) {
      now_ += 2;
      for (unsigned port = 0; port < ports; ++port) {
         table_.recordIs(keys_[port], records[port], now_);
      }
   }

 private:
   const std::vector<Silo::Key> keys_ = makeKeys();
   double now_ = 0;
   Silo::Table<IntfCounters> table_;
};

// Library and store in turns. "x_own" is how many times as long as the library the store takes.
template <class Own, class Stored>
void compare(benchmark::State& state, const Server& server, Own own, Stored stored) {
   Bench::Times ownTimes;
   Bench::Times storedTimes;
   const double before = server.cpuTime();
   for (auto _ : state) {
      ownTimes.add(wallTimeOf(own));
      storedTimes.add(wallTimeOf(stored));
      state.SetIterationTime(storedTimes.last());
   }
   state.counters["own_us"] = 1e6 * ownTimes.median();
   state.counters["store_us"] = 1e6 * storedTimes.median();
   state.counters["x_own"] = storedTimes.median() / ownTimes.median();
   state.counters["server_us"] = 1e6 * (server.cpuTime() - before) / static_cast<double>(state.iterations());
}

template <class Form>
void publish(benchmark::State& state) {
   const Server server;
   const std::vector<IntfCounters> records = makeRecords();
   Table table(Silo::Store::temporary());
   compare(
        state, server, [&] { table.publish(records); }, [&] { Form::publish(server.client(), records); });
}

// The library's records are those of a child that lives on.
template <class Form>
void readAll(benchmark::State& state) {
   const Server server;
   const std::vector<IntfCounters> records = makeRecords();
   Form::publish(server.client(), records);
   const Silo::Store store = Silo::Store::directory(server.folder());
   const Bench::Child publisher([&] {
      Table(store).publish(records);
      pause();
   });
   const std::vector<Silo::Key> keys = makeKeys();
   const auto reader = await("a published table", [&] {
      auto opened = std::make_unique<Silo::TableReader<IntfCounters>>(store, TableName::intfCounters);
      Silo::Sample<IntfCounters> last;
      return opened->read(keys.back(), last) == Silo::ReadResult::ok ? std::move(opened) : nullptr;
   });
   std::vector<Silo::Sample<IntfCounters>> samples(ports);
   std::vector<IntfCounters> answers(ports);
   compare(
        state, server,
        [&] {
           for (unsigned port = 0; port < ports; ++port) {
              reader->read(keys[port], samples[port]);
           }
           benchmark::ClobberMemory();
        },
        [&] { Form::read(server.client(), answers); });
   for (unsigned port = 0; port < ports; ++port) {
      if (samples[port].record.totals != records[port].totals ||
          answers[port].totals != records[port].totals) {
         state.SkipWithError("what was read is not what was published");
      }
   }
}

BENCHMARK(publish<DecimalFields>)->Name("publish/decimal")->UseManualTime()->Unit(benchmark::kMicrosecond);
BENCHMARK(publish<BinaryValue>)->Name("publish/binary")->UseManualTime()->Unit(benchmark::kMicrosecond);
BENCHMARK(readAll<DecimalFields>)->Name("read/decimal")->UseManualTime()->Unit(benchmark::kMicrosecond);
BENCHMARK(readAll<BinaryValue>)->Name("read/binary")->UseManualTime()->Unit(benchmark::kMicrosecond);

} // namespace

BENCHMARK_MAIN();
