// The exported building blocks, one function per family: each draws its settings, its calls and its signals.
#ifndef KREL_FUZZ_BLOCKS_H
#define KREL_FUZZ_BLOCKS_H

#include "fuzz/draw.h"

namespace krel_fuzz {

void fuzz_echos(Draw& d);
void fuzz_reverb(Draw& d);
void fuzz_reverb_filters(Draw& d);
void fuzz_core(Draw& d);
void fuzz_voice_changer(Draw& d);

void fuzz_compressor(Draw& d);
void fuzz_equaliser(Draw& d);
void fuzz_iir(Draw& d);
void fuzz_interpolation(Draw& d);

void fuzz_pitch_shifter(Draw& d);
void fuzz_vocoder(Draw& d);
void fuzz_vocal(Draw& d);
void fuzz_envelope(Draw& d);

/// p, now and then null.
template <typename T>
T* or_null(Draw& d, T* p) {
    return d.one_in(24) ? nullptr : p;
}

/// Calls `call(samples)` with lengths that are drawn until `most` samples are through or the input ends.
template <typename Call>
void in_drawn_lengths(Draw& d, int32_t most, Call call) {
    constexpr int32_t kLengths[] = {128, 1, 127, 512, 2048, 0};
    for (int calls = 0; d.more() && most > 0 && calls < 32; ++calls) {
        const int32_t n = d.one_in(2) ? d.range(-1, 1500) : d.pick(kLengths);
        call(std::min(n, most));
        most -= std::max(n, 0);
    }
}

}  // namespace krel_fuzz

#endif
