// What fuzz targets share. A target is a program of one function, which gets any bytes, and ends the process when a
// promise about them is broken.
#pragma once

#include "kiln/Types.h"
#include "kiln/Utf8.h"

#include <cstdlib>
#include <iostream>
#include <string_view>

// Defined by each target; called by libFuzzer, or by Replay.cpp. Returns 0.
// NOLINTNEXTLINE(readability-identifier-naming): the name is libFuzzer's.
extern "C" int LLVMFuzzerTestOneInput(const U8* data, std::size_t size);

namespace ZelFuzz {

inline void must(bool holds, std::string_view promise) {
   if (!holds) {
      std::cerr << "broken promise: " << promise << std::endl;
      std::abort();
   }
}

inline std::string_view textOf(const U8* data, std::size_t size) {
   return {reinterpret_cast<const char*>(data), size};
}

// Whether the attempt succeeds. It may end in no exception but the one that is documented, which says why.
template <class Refusal, class Attempt>
bool isTaken(Attempt attempt) {
   try {
      attempt();
      return true;
   } catch (const Refusal& refusal) {
      must(*refusal.what() != '\0', "a refusal says why");
      return false;
   }
}

} // namespace ZelFuzz
