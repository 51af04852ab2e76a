// SPDX-License-Identifier: Apache-2.0
// The frame loop of the frame-based effects: a sample FIFO in, analysis frames of fft_size samples
// every hop, 4-fold overlap-add, a sample FIFO out. Each effect has its own record; this is the one
// definition of what they all do with it.
//
// A record has these members (see the effects' headers for types and meaning): fft_size, overlap,
// half_size, hop, latency, rover, in_block, out_block, in_fifo, out_fifo, fft_in, fft_out, fft_cfg,
// output_accum, window.
//
// The record's own list of buffers is a callable each_buffer(record, visit) that calls
// visit(pointer member, element count) once per buffer, in order; it must not look at anything but
// the sizes. Setting up and tearing down both walk it.
//
// Real time: run_frames() and what it calls allocate nothing.
#ifndef KREL_SPECTRAL_FRAME_LOOP_H
#define KREL_SPECTRAL_FRAME_LOOP_H

#include <stdint.h>
#include <string.h>

#include <algorithm>
#include <type_traits>

#include "base/memory.h"
#include "base/pcm.h"
#include "spectral/transform.h"
#include "tables/hann.h"

namespace krel {

inline constexpr int32_t kOverlap = 4;

/// Sets the sizes, the FIFO position and the window for frames of `size` samples.
template <typename Record>
void set_frame_size(Record* r, int32_t size) {
    static_assert(std::is_trivial_v<Record>);
    r->fft_size = size;
    r->overlap = kOverlap;
    r->half_size = size / 2;
    r->hop = size / kOverlap;
    r->latency = size - r->hop;
    r->rover = r->latency;
    r->window = hann_window(size);
}

/// Frees every buffer and the FFT configuration and clears the pointers: a second call is harmless.
template <typename Record, typename EachBuffer>
void release_buffers(Record* r, EachBuffer each_buffer) {
    each_buffer(r, [](auto*& buffer, int32_t) { release(buffer); });
    fft_destroy(r->fft_cfg);
}

/// Sets every pointer to null, whatever it held: for a record that is to stay unusable.
template <typename Record, typename EachBuffer>
void clear_buffers(Record* r, EachBuffer each_buffer) {
    each_buffer(r, [](auto*& buffer, int32_t) { buffer = nullptr; });
    r->fft_cfg = nullptr;
}

/// Allocates every buffer, zeroed, and the FFT configuration; sets every pointer, whatever it held.
/// When one cannot be had all are released, the pointers are null and the result is false.
template <typename Record, typename EachBuffer>
bool acquire_buffers(Record* r, EachBuffer each_buffer) {
    bool complete = true;
    each_buffer(r, [&complete]<typename T>(T*& buffer, int32_t count) {
        buffer = zeroed_raw<T>(count);
        complete = complete && buffer != nullptr;
    });
    r->fft_cfg = fft_create(r->fft_size);
    if (complete && r->fft_cfg != nullptr) return true;
    release_buffers(r, each_buffer);
    return false;
}

/// Whether the record can process: true from a successful init to deinit. An init that ran short
/// leaves no configuration.
template <typename Record>
bool is_usable(const Record* r) {
    return r->fft_cfg != nullptr;
}

/// The N real values that the transforms take and give in fft_in.
template <typename Record>
float* frame_samples(Record* r) {
    return reinterpret_cast<float*>(r->fft_in);
}

/// The windowed frame in in_fifo becomes the spectrum in fft_out, bins 0..half_size.
template <typename Record>
void analyse_frame(Record* r) {
    float* const samples = frame_samples(r);
    for (int k = 0; k < r->fft_size; ++k) samples[k] = r->in_fifo[k] * r->window[k];
    fft_forward(r->fft_cfg, r->fft_in, r->fft_out);
}

/// Bins 0..half_size of fft_out, without the mirrored half, become a windowed frame that is added
/// to the output; the next hop of it goes to out_fifo.
template <typename Record>
void synthesise_frame(Record* r) {
    fft_inverse(r->fft_cfg, r->fft_out, r->fft_in);
    const float* const samples = frame_samples(r);
    for (int k = 0; k < r->fft_size; ++k) {
        r->output_accum[k] += 2.0f / float{kOverlap} * r->window[k] * samples[k];
    }
    std::copy_n(r->output_accum, r->hop, r->out_fifo);
    // The accumulator is twice a frame long; its upper half stays zero, so that zeros follow the
    // frame down.
    std::copy_n(r->output_accum + r->hop, r->fft_size, r->output_accum);
    std::copy_n(r->in_fifo + r->hop, r->latency, r->in_fifo);
}

/// Passes in_block[0..frames-1] through the FIFOs to out_block; process_frame(r) runs whenever a
/// frame is full.
template <typename Record, typename ProcessFrame>
void run_block(Record* r, int frames, ProcessFrame process_frame) {
    for (int done = 0; done < frames;) {
        const int run = std::min(frames - done, r->fft_size - r->rover);
        std::copy_n(r->in_block + done, run, r->in_fifo + r->rover);
        std::copy_n(r->out_fifo + (r->rover - r->latency), run, r->out_block + done);
        done += run;
        r->rover += run;
        if (r->rover < r->fft_size) continue;
        r->rover = r->latency;
        process_frame(r);
    }
}

/// A whole process call: `frames` 16-bit samples from in to out, which may be the same buffer. More
/// than fft_size frames are done in pieces. to_s16 converts a block of floats on the +-1 scale.
///
/// Returns -1 for a null pointer, 0 for frames < 1, else frames. An unusable record passes the
/// samples through unchanged.
template <typename Record, typename ProcessFrame>
int run_frames(Record* r, const int16_t* in, int16_t* out, int frames, ProcessFrame process_frame,
               void (*to_s16)(const float*, int16_t*, int)) {
    if (r == nullptr || in == nullptr || out == nullptr) return -1;
    if (frames < 1) return 0;
    if (!is_usable(r)) {
        memmove(out, in, static_cast<size_t>(frames) * sizeof(int16_t));
        return frames;
    }
    for (int done = 0; done < frames;) {
        const int piece = std::min(frames - done, r->fft_size);
        unit_from_s16(in + done, r->in_block, piece);
        run_block(r, piece, process_frame);
        to_s16(r->out_block, out + done, piece);
        done += piece;
    }
    return frames;
}

}  // namespace krel

#endif
