// SPDX-License-Identifier: Apache-2.0
// Fast paths on x86-64. A build for every machine of that kind may use SSE2 only; loops over blocks
// and spectra are up to twice as fast with AVX2. Where the build asks for fast paths (CMake's
// KREL_X86_FAST_PATHS), a function marked KREL_FAST is compiled for both, with all that it inlines,
// and the dynamic linker takes the one for this machine when it loads the library. Elsewhere the
// mark is empty. Neither has fused multiply-adds: results are the same bits.
//
// For functions inside the library that do some hundred samples or bins per call.
#ifndef KREL_BASE_FAST_PATHS_H
#define KREL_BASE_FAST_PATHS_H

#ifdef KREL_FAST_PATHS
#define KREL_FAST __attribute__((flatten, target_clones("avx2", "default")))
#else
#define KREL_FAST
#endif

#endif
