// SPDX-License-Identifier: Apache-2.0
#include <vector>

#include "dsp/iir.h"
#include "fuzz/blocks.h"
#include "spectral/envelope.h"
#include "spectral/pitch.h"
#include "spectral/vocal.h"
#include "spectral/vocoder.h"

namespace krel_fuzz {
namespace {

constexpr size_t kCarrierSamples = 480 + 2048;

/// Blocks through a frame-based effect, in place and not, then its end, twice.
void run_frames(Draw& d, void* ctx, int (*process)(void*, int16_t*, int16_t*, int),
                void (*deinit)(void*)) {
    in_drawn_blocks<int16_t>(d, [&](int16_t* in, int16_t* out, int32_t n) {
        require(process(ctx, in, out, n) == std::max(n, 0), "frame effects: return the frames");
    });
    deinit(ctx);
    deinit(ctx);
    int16_t sample[1] = {7};
    require(process(ctx, sample, sample, 1) == 1 && sample[0] == 7,
            "an ended effect passes through");
}

}  // namespace

void fuzz_pitch_shifter(Draw& d) {
    pitch_ctx_t ctx;
    const auto rate = static_cast<int32_t>(d.rate());
    require(pitch_init(&ctx, rate, d.hostile_float(0.0f, 2.5f)) == 0, "pitch shifter: init");
    run_frames(d, &ctx, pitch_process, pitch_deinit);
}

void fuzz_vocoder(Draw& d) {
    vocoder_ctx_t ctx;
    auto carrier = signal_buffer<float>(d, kCarrierSamples);
    const bool silent = d.one_in(8);
    require(vocoder_init(&ctx, static_cast<int32_t>(d.rate()), silent ? nullptr : carrier.data()) ==
                    (silent ? -1 : 0),
            "vocoder: init");
    run_frames(d, &ctx, vocoder_process, vocoder_deinit);
}

void fuzz_vocal(Draw& d) {
    vocal_ctx_t ctx;
    const auto rate = static_cast<int32_t>(d.rate());
    const float ratio = d.hostile_float(0.38f, 1.2f);
    const bool refused = ratio < 0.4f || ratio > 2.0f;
    require(vocal_init(&ctx, rate, ratio, d.hostile(0, 5)) == (refused ? -1 : 0), "vocal: init");
    if (!refused) run_frames(d, &ctx, vocal_process, vocal_deinit);
}

void fuzz_envelope(Draw& d) {
    iir_biquad_t filter;
    iir_float_init(&filter, 8000, 100, 1);
    in_drawn_blocks<float>(d, [&](float* in, float* out, int32_t n) {
        require(envelope_detect(&filter, in, out, n) == n, "envelope: returns n");
        const int32_t shift = d.hostile(0, 300);
        require(roll_queue(out, n, shift, d.range(0, 2)) == out, "roll queue: returns it");
    });
}

}  // namespace krel_fuzz
