// What the tests of shared tables stand on: records that prove themselves whole, a place of their own, child processes.
#pragma once

#include "silo/Table.h"
#include "silo/TableReader.h"

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <functional>
#include <gtest/gtest.h>
#include <signal.h>
#include <stdexcept>
#include <stdlib.h>
#include <string>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>

namespace SiloTest {

// Sanitizers make everything about ten times slower; the counts shrink with it.
#if defined(__SANITIZE_THREAD__) || defined(__SANITIZE_ADDRESS__)
inline constexpr int slowdown = 10;
#elif defined(__has_feature)
#if __has_feature(thread_sanitizer) || __has_feature(address_sanitizer)
inline constexpr int slowdown = 10;
#else
inline constexpr int slowdown = 1;
#endif
#else
inline constexpr int slowdown = 1;
#endif

// A record that follows from one number, so that a mixture of two shows. Its size is no multiple of anything.
template <std::size_t size>
struct Pattern {
   static constexpr std::string_view layoutName = "Pattern";
   static constexpr std::uint32_t layoutVersion = 1;

   Pattern() : Pattern(0) {}
   explicit Pattern(std::uint64_t number) {
      for (std::size_t i = 0; i < size; i += sizeof number) {
         std::uint64_t word = number * (i + 1); // the number itself, to begin with
         std::memcpy(bytes + i, &word, std::min(size - i, sizeof word));
      }
   }
   std::uint64_t number() const {
      std::uint64_t result = 0;
      std::memcpy(&result, bytes, sizeof result);
      return result;
   }
   bool operator==(const Pattern&) const = default;
   bool isWhole() const { return *this == Pattern(number()); }

   std::uint8_t bytes[size];
};
using Small = Pattern<45>;
using Large = Pattern<701>; // about an interface's record

// A directory that goes with the test, and the corruptions reported in it.
class SiloTest : public ::testing::Test {
 protected:
   SiloTest() : path_(makeDirectory()), store_(Silo::Store::directory(path_)) {}
   ~SiloTest() override { std::filesystem::remove_all(path_); }

   Silo::TableOptions options(std::size_t capacity = 4) {
      return {capacity, 2.0, Silo::ClockDomain::monotonic(),
              [this](const Silo::Corruption& corruption) { corruptions_.push_back(corruption); }, false};
   }

   std::string fileOf(const std::string& table) const { return path_ + "/" + table; }
   std::string bytesOf(const std::string& table) const {
      std::ifstream file(fileOf(table), std::ios::binary);
      return {std::istreambuf_iterator<char>(file), {}};
   }
   // Overwrites a part of the table behind the backs of its writer and readers.
   void poke(const std::string& table, std::size_t offset, const std::string& bytes) const {
      std::fstream file(fileOf(table), std::ios::binary | std::ios::in | std::ios::out);
      file.seekp(static_cast<std::streamoff>(offset));
      file << bytes << std::flush;
   }
   // Where the record slot lies in the table's file; a writer fills slots from the first one on.
   template <class Record>
   static std::size_t slotOffset(std::size_t slot) {
      return Silo::TableGeometry(Silo::layoutOf<Record>()).sizeFor(slot);
   }

   const std::string path_;
   const Silo::Store store_;
   std::vector<Silo::Corruption> corruptions_;

 private:
   static std::string makeDirectory() {
      // Memory if there is any: thousands of small files are written.
      std::filesystem::path parent =
           std::filesystem::exists("/dev/shm") ? "/dev/shm" : std::filesystem::temp_directory_path();
      std::string name = (parent / "silo-XXXXXX").string();
      if (mkdtemp(name.data()) == nullptr) {
         throw std::runtime_error("no temporary directory");
      }
      return name;
   }
};

inline constexpr std::size_t payloadOffset = sizeof(Silo::RecordSlot);

// A child process that runs the function and exits with what it returns. No gtest assertion means anything in it.
inline pid_t spawn(const std::function<int()>& run) {
   pid_t child = fork();
   if (child == 0) {
      int status = 99;
      try {
         status = run();
      } catch (const std::exception& error) {
         fprintf(stderr, "child: %s\n", error.what());
      }
      _exit(status);
   }
   return child;
}

// Its exit status, or minus the signal that ended it.
inline int statusOf(pid_t child) {
   int status = 0;
   waitpid(child, &status, 0);
   return WIFEXITED(status) ? WEXITSTATUS(status) : -WTERMSIG(status);
}

} // namespace SiloTest
