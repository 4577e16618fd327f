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

std::vector<String> inputsIn(const std::filesystem::path& place) {
   if (!std::filesystem::is_directory(place)) {
      return {bytesOf(place)};
   }
   std::vector<std::filesystem::path> files;
   std::ranges::copy(std::filesystem::directory_iterator(place), std::back_inserter(files));
   std::ranges::sort(files);
   std::vector<String> inputs(files.size());
   std::ranges::transform(files, inputs.begin(), bytesOf);
   return inputs;
}

String mutated(String text, const std::vector<String>& inputs, std::mt19937_64& random) {
   static constexpr std::array<std::string_view, 10> odd{"-1",
                                                         "18446744073709551615",
                                                         "18446744073709551616",
                                                         "1e308",
                                                         "nan",
                                                         "\xff\xff\xff\xff",
                                                         "%n",
                                                         "\r\n",
                                                         "\xed\xa0\x80",
                                                         "[[[["};
   const auto below = [&random](std::size_t bound) { return random() % bound; };
   const std::size_t at = below(text.size() + 1);
   const String& other = inputs[below(inputs.size())];
   switch (below(5)) {
   case 0:
      return text.insert(at, 1, static_cast<char>(below(256)));
   case 1:
      return text.erase(at, 1 + below(8));
   case 2:
      return text.insert(at, odd[below(odd.size())]);
   case 3: // the end of another file
      return text.substr(0, at) + other.substr(below(other.size() + 1));
   default:
      if (at < text.size()) {
         text[at] = static_cast<char>(static_cast<U8>(text[at]) ^ (1U << below(8)));
      }
      return text;
   }
}

} // namespace

int main(int argc, char** argv) {
   const auto mutations = argc == 3 ? Kiln::parseNumber<U64>(argv[2]) : std::nullopt;
   const std::vector<String> inputs = mutations ? inputsIn(argv[1]) : std::vector<String>();
   if (inputs.empty()) {
      std::cerr << "expected a corpus, and how many mutations of each of its files are run\n";
      return 2;
   }
   const String last = std::filesystem::path(argv[1]).stem().string() + ".last";
   const auto run = [&last](const String& input) {
      std::ofstream(last, std::ios::binary) << input;
      // In memory of just that size, so that a sanitizer sees a read beyond it.
      const std::vector<U8> bytes(input.begin(), input.end());
      LLVMFuzzerTestOneInput(bytes.data(), bytes.size());
   };
   std::mt19937_64 random(1);
   for (const String& input : inputs) {
      run(input);
      String mutant;
      for (U64 i = 0; i < *mutations; ++i) {
         constexpr U64 generations = 8; // then from the file again
         mutant = mutated(i % generations == 0 ? input : mutant, inputs, random);
         run(mutant);
      }
   }
   std::filesystem::remove(last);
   std::cout << inputs.size() * (*mutations + 1) << " inputs run\n";
   return 0;
}
