// SPDX-License-Identifier: Apache-2.0
#include "spectral/vocoder.h"

#include <algorithm>

#include "base/fast_paths.h"
#include "base/log.h"
#include "spectral/frame_loop.h"
#include "spectral/polar.h"

namespace krel {
namespace {

constexpr int32_t kCarrierStart = 480;  // samples of the carrier that are skipped

constexpr auto kEachBuffer = [](vocoder_ctx_t* v, auto visit) {
    const int32_t n = v->fft_size;
    const int32_t bins = v->half_size + 1;
    visit(v->in_block, n);
    visit(v->out_block, n);
    visit(v->in_fifo, n);
    visit(v->out_fifo, n);
    visit(v->magnitude, bins);
    visit(v->carrier_phase, bins);
    visit(v->output_accum, 2 * n);
    visit(v->fft_in, n);
    visit(v->fft_out, n);
};

/// Analyses the carrier in the place of a frame of voice, then leaves the frame empty again.
void take_phases(vocoder_ctx_t* v, const float* carrier) {
    std::copy_n(carrier + kCarrierStart, v->fft_size, v->in_fifo);
    analyse_frame(v);
    spectrum_phases(v->fft_out, v->carrier_phase, v->half_size + 1);
    std::fill_n(v->in_fifo, v->fft_size, 0.0f);
}

KREL_FAST void process_frame(vocoder_ctx_t* v) {
    const int32_t bins = v->half_size + 1;
    analyse_frame(v);
    spectrum_magnitudes(v->fft_out, v->magnitude, bins);
    spectrum_from_polar(v->magnitude, v->carrier_phase, v->fft_out, bins);
    synthesise_frame(v);
}

}  // namespace
}  // namespace krel

using namespace krel;

int vocoder_init(void* ctx, int sample_rate, const float* carrier) {
    auto* v = static_cast<vocoder_ctx_t*>(ctx);
    if (v == nullptr) return -1;
    set_frame_size(v, long_fft_size_for_rate(sample_rate));
    if (carrier == nullptr) {
        clear_buffers(v, kEachBuffer);
        return -1;
    }
    if (acquire_buffers(v, kEachBuffer)) take_phases(v, carrier);
    KREL_LOGD(kCoreTag, "vocoder_init: fftsize %d", v->fft_size);
    return 0;
}

int vocoder_process(void* ctx, int16_t* in, int16_t* out, int frames) {
    // Deliberate: what exceeds full scale wraps.
    return run_frames(static_cast<vocoder_ctx_t*>(ctx), in, out, frames, process_frame,
                      s16_from_unit_wrap);
}

void vocoder_deinit(void* ctx) {
    auto* v = static_cast<vocoder_ctx_t*>(ctx);
    if (v == nullptr) return;
    release_buffers(v, kEachBuffer);
    KREL_LOGD(kCoreTag, "vocoder_deinit");
}
