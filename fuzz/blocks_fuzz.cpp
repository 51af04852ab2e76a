// SPDX-License-Identifier: Apache-2.0
// The exported building blocks on their own. The first byte of an input chooses the family.
#include "fuzz/blocks.h"
#include "fuzz/fuzzer.h"

using namespace krel_fuzz;

int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    constexpr void (*kFamilies[])(Draw&) = {
            fuzz_echos,         fuzz_reverb,        fuzz_reverb_filters, fuzz_core,
            fuzz_voice_changer, fuzz_compressor,    fuzz_equaliser,      fuzz_iir,
            fuzz_interpolation, fuzz_pitch_shifter, fuzz_vocoder,        fuzz_vocal,
            fuzz_envelope};
    start_execution();
    Draw d(data, size);
    d.pick(kFamilies)(d);
    return 0;
}
