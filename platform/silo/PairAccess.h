// Two words of shared memory at once.
#pragma once

#include "silo/Words.h"

#ifdef __has_feature
#define ZEL_HAS_FEATURE(feature) __has_feature(feature)
#else
#define ZEL_HAS_FEATURE(feature) 0
#endif

namespace Silo {

// Where the processor keeps each of the two words whole and all accesses in order, which x86 does, one instruction is as
// good as a release store, or an acquire load, of each, and takes half the time. The thread sanitizer would not see it.
// The address is that of a pair: a multiple of 16.
#if defined(__x86_64__) && !defined(__SANITIZE_THREAD__) && !ZEL_HAS_FEATURE(thread_sanitizer)

inline void storePair(Word* words, WordPair pair) {
   asm volatile("movdqa %1, %0" : "=m"(*reinterpret_cast<WordPair*>(words)) : "x"(pair) : "memory");
}
inline WordPair loadPair(const Word* words) {
   WordPair pair;
   asm volatile("movdqa %1, %0" : "=x"(pair) : "m"(*reinterpret_cast<const WordPair*>(words)) : "memory");
   return pair;
}

#else

inline void storePair(Word* words, WordPair pair) {
   words[0].store(pair[0], std::memory_order_release);
   words[1].store(pair[1], std::memory_order_release);
}
inline WordPair loadPair(const Word* words) {
   const std::uint64_t first = words[0].load(std::memory_order_acquire);
   return {first, words[1].load(std::memory_order_acquire)};
}

#endif

#undef ZEL_HAS_FEATURE

} // namespace Silo
