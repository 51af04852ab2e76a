#include <vector>

#include "dsp/iir.h"
#include "fuzz/blocks.h"
#include "fuzz/signal.h"
#include "spectral/envelope.h"
#include "spectral/pitch.h"
#include "spectral/vocal.h"
#include "spectral/vocoder.h"

namespace krel_fuzz {
namespace {

constexpr int32_t kMostSamples = 8192;
constexpr size_t kCarrierSamples = 480 + 2048;

/// Blocks through a frame-based effect, in place and not, then its end, twice.
void run_frames(Draw& d, void* ctx, int (*process)(void*, int16_t*, int16_t*, int),
                void (*deinit)(void*)) {
    in_drawn_lengths(d, kMostSamples, [&](int32_t n) {
        auto in = signal_buffer<int16_t>(d, static_cast<size_t>(std::max(n, 0)));
        Buffer<int16_t> out(in.all().size());
        require(process(ctx, in.data(), d.one_in(2) ? in.data() : out.data(), n) == std::max(n, 0),
                "frame effects: return the frames");
    });
    deinit(ctx);
    deinit(ctx);
    deinit(nullptr);
    int16_t sample[1] = {7};
    require(process(ctx, sample, sample, 1) == 1 && sample[0] == 7,
            "an ended effect passes through");
    require(process(nullptr, sample, sample, 1) == -1 && process(ctx, nullptr, sample, 1) == -1 &&
                    process(ctx, sample, nullptr, 1) == -1,
            "frame effects: refuse null");
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
    in_drawn_lengths(d, kMostSamples, [&](int32_t n) {
        auto in = signal_buffer<float>(d, static_cast<size_t>(std::max(n, 0)));
        Buffer<float> out(in.all().size());
        float* to = d.one_in(2) ? in.data() : out.data();
        require(envelope_detect(&filter, in.data(), to, n) == n, "envelope: returns n");
        envelope_detect(nullptr, in.data(), out.data(), n);
        const int32_t shift = d.hostile(0, 300);
        require(roll_queue(to, n, shift, d.range(0, 2)) == to, "roll queue: returns it");
    });
    envelope_detect(&filter, nullptr, nullptr, 1);
    roll_queue(nullptr, 1, 1, 1);
}

}  // namespace krel_fuzz
