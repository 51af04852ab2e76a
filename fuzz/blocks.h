// SPDX-License-Identifier: Apache-2.0
// The exported building blocks, one function per family: each draws its settings, its calls and its
// signals.
#ifndef KREL_FUZZ_BLOCKS_H
#define KREL_FUZZ_BLOCKS_H

#include "fuzz/draw.h"
#include "fuzz/signal.h"

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

inline constexpr int32_t kMostSamples = 8192;

/// Calls `call(samples)` with lengths that are drawn until `most` samples are through or the input
/// ends.
template <typename Call>
void in_drawn_lengths(Draw& d, int32_t most, Call call) {
    constexpr int32_t kLengths[] = {128, 1, 127, 512, 2048, 0};
    for (int calls = 0; d.more() && most > 0 && calls < 32; ++calls) {
        const int32_t n = d.one_in(2) ? d.range(-1, 1500) : d.pick(kLengths);
        call(std::min(n, most));
        most -= std::max(n, 0);
    }
}

/// One mono block of `n` frames: `call(in, out)`, into itself or elsewhere.
template <typename T, typename Call>
void in_one_block(Draw& d, int32_t n, Call call) {
    auto in = signal_buffer<T>(d, static_cast<size_t>(std::max(n, 0)));
    Buffer<T> out(in.all().size());
    call(in.data(), d.one_in(2) ? in.data() : out.data());
}
/// The same again and again: `call(in, out, n)`.
template <typename T, typename Call>
void in_drawn_blocks(Draw& d, Call call) {
    in_drawn_lengths(d, kMostSamples, [&](int32_t n) {
        in_one_block<T>(d, n, [&](T* in, T* out) { call(in, out, n); });
    });
}
/// One stereo block, each channel into itself, into the other, or elsewhere; now and then a buffer
/// is null.
template <typename T, typename Call>
void in_stereo_block(Draw& d, size_t n, Call call) {
    auto left = signal_buffer<T>(d, n);
    auto right = signal_buffer<T>(d, n);
    Buffer<T> out(n);
    const int32_t to = d.range(0, 2);
    T* const to_left = to == 0 ? left.data() : to == 1 ? right.data() : out.data();
    T* const to_right = to == 0 ? right.data() : left.data();
    const int32_t no = d.range(0, 63);  // 0..3: a null buffer
    call(no == 0 ? nullptr : left.data(), no == 1 ? nullptr : right.data(),
         no == 2 ? nullptr : to_left, no == 3 ? nullptr : to_right);
}

}  // namespace krel_fuzz

#endif
