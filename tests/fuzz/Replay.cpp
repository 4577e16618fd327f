// Runs a fuzz target over its corpus, and over mutations of it that are the same in every run, with any compiler.
//
//    replay-TARGET FOLDER-OR-FILE MUTATIONS
//
// MUTATIONS are those of each file. An input that ends the process stays in TARGET.last of the working directory; given
// in place of the folder, with 0 mutations, it is run again.
#include "kiln/Numbers.h"
#include "tests/fuzz/Fuzz.h"

#include <algorithm>
#include <array>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <random>
#include <vector>

namespace {

using Kiln::String;

String bytesOf(const std::filesystem::path& path) {
   std::ifstream file(path, std::ios::binary);
   return {std::istreambuf_iterator<char>(file), {}};
}

class Replay {
 public:
   explicit Replay(const std::filesystem::path& place) : last_(place.stem().string() + ".last") {
      if (std::filesystem::is_directory(place)) {
         for (const auto& entry : std::filesystem::directory_iterator(place)) {
            files_.push_back(entry.path());
         }
      } else if (std::filesystem::exists(place)) {
         files_.push_back(place);
      }
      std::ranges::sort(files_);
      for (const auto& file : files_) {
         inputs_.push_back(bytesOf(file));
      }
   }

   std::size_t files() const { return inputs_.size(); }
   std::size_t runs() const { return runs_; }

   void run(U64 mutations) {
      for (const String& input : inputs_) {
         runOne(input);
         String mutant = input;
         for (U64 i = 0; i < mutations; ++i) {
            constexpr U64 generations = 8; // then from the file again
            mutant = mutated(i % generations == 0 ? input : mutant);
            runOne(mutant);
         }
      }
      std::filesystem::remove(last_);
   }

 private:
   std::size_t below(std::size_t bound) { return random_() % bound; }

   String mutated(String text) {
      static constexpr std::array<std::string_view, 12> odd{
           "-1",   "18446744073709551615", "18446744073709551616", "1e308", "nan", "\xff\xff\xff\xff", "%n",
           "\r\n", "\xed\xa0\x80",         "\xf4\x90\x80\x80",     "\"",    "[[[["};
      const std::size_t at = below(text.size() + 1);
      const String& other = inputs_[below(inputs_.size())];
      switch (below(6)) {
      case 0:
         text.insert(at, 1, static_cast<char>(below(256)));
         break;
      case 1:
         text.erase(at, 1 + below(8));
         break;
      case 2:
         text.insert(at, odd[below(odd.size())]);
         break;
      case 3: // the end of another file
         text = text.substr(0, at) + other.substr(below(other.size() + 1));
         break;
      case 4:
         if (text.size() < longest) {
            text.insert(at, text.substr(below(text.size() + 1), 1 + below(40)));
         }
         break;
      default:
         if (at < text.size()) {
            text[at] = static_cast<char>(static_cast<U8>(text[at]) ^ (1U << below(8)));
         }
      }
      return text;
   }

   void runOne(const String& input) {
      std::ofstream(last_, std::ios::binary).write(input.data(), static_cast<std::streamsize>(input.size()));
      // In memory of just that size, so that a sanitizer sees a read beyond it.
      const std::vector<U8> bytes(input.begin(), input.end());
      LLVMFuzzerTestOneInput(bytes.data(), bytes.size());
      ++runs_;
   }

   static constexpr std::size_t longest = 65536;
   const std::filesystem::path last_;
   std::vector<std::filesystem::path> files_;
   std::vector<String> inputs_;
   std::mt19937_64 random_{1};
   std::size_t runs_ = 0;
};

} // namespace

int main(int argc, char** argv) {
   const auto mutations = argc == 3 ? Kiln::parseNumber<U64>(argv[2]) : std::nullopt;
   if (!mutations) {
      std::cerr << "expected a corpus and how many mutations of each of its files are run\n";
      return 2;
   }
   Replay replay(argv[1]);
   if (replay.files() == 0) {
      std::cerr << "no files in '" << argv[1] << "'\n";
      return 2;
   }
   replay.run(*mutations);
   std::cout << replay.runs() << " runs over " << replay.files() << " files\n";
   return 0;
}
