// SPDX-License-Identifier: Apache-2.0
// The entry point of a fuzzer: libFuzzer calls it with inputs of its own, replay.cpp with those of
// the corpus.
#ifndef KREL_FUZZ_FUZZER_H
#define KREL_FUZZ_FUZZER_H

#include <stddef.h>
#include <stdint.h>
#include <stdlib.h>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size);

namespace krel_fuzz {

/// To be called first in every execution: rand() starts over.
inline void start_execution() { srand(1); }

}  // namespace krel_fuzz

#endif
