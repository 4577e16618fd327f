// Functions whose loops gain from wider vector registers than every processor has.
#pragma once

#include <cstddef> // tells the C library

// Before a function: compiles it, with everything that it calls, once for any processor and once for those with AVX2;
// the loader picks one. Does nothing where the compiler, C library or processor lacks that, and under sanitizers, whose
// runtime is not ready yet when the loader picks.
#if defined(__x86_64__) && defined(__GLIBC__) && defined(__GNUC__) && !defined(__clang__) &&                 \
     !defined(__SANITIZE_ADDRESS__) && !defined(__SANITIZE_THREAD__)
#define KILN_VECTOR_CLONES __attribute__((flatten, target_clones("avx2", "default")))
#else
#define KILN_VECTOR_CLONES
#endif
