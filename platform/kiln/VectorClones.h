// Functions whose loops gain from wider vector registers than every processor has.
#pragma once

#include <cstddef> // tells the C library

// Before a function: compiled, with all that it calls, once for any processor and once for those with AVX2; the loader
// picks. Nothing where compiler, C library or processor can't, and under sanitizers, whose runtime isn't up when the
// loader asks.
#if defined(__x86_64__) && defined(__GLIBC__) && defined(__GNUC__) && !defined(__clang__) &&                 \
     !defined(__SANITIZE_ADDRESS__) && !defined(__SANITIZE_THREAD__)
#define KILN_VECTOR_CLONES __attribute__((flatten, target_clones("avx2", "default")))
#else
#define KILN_VECTOR_CLONES
#endif
