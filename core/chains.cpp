// SPDX-License-Identifier: Apache-2.0
#include "core/chains.h"

#include <algorithm>

#include "base/memory.h"
#include "core/block.h"
#include "core/gain.h"
#include "core/output_fifo.h"
#include "pitch_stream/internal.h"
#include "tables/carrier.h"

namespace krel {
namespace {

// The vocoder reads one transform of at most 2048 samples from sample 480 of its carrier on.
constexpr int kSilentCarrierLength = 480 + 2048;
constexpr int kEchoVariant = 2;
constexpr int kEchoDry = 45;           // 1/128 units
constexpr int kVocalThreshold = 1024;  // peak of a voiced period
constexpr int32_t kFullRateHz = 44100;

void vocoder_chain_init(vcp_core_t* core, const preset_row& row) {
    if (row.has_carrier) {
        vocoder_init(&core->vocoder, core->sample_rate, kCarrier);
        return;
    }
    // Deliberate: all phases of a silent carrier are 0. It is read during the call only.
    const auto silence = zeroed<float>(kSilentCarrierLength);
    vocoder_init(&core->vocoder, core->sample_rate, silence.get());
}

/// Whether every tap that these settings ask for got its line: false when memory was short, or 64
/// MiB not enough.
bool has_all_lines(const echos_t& e, const int* delays, const int* gains) {
    for (int t = 0; t < KREL_ECHO_TAPS; ++t) {
        if (delays[t] >= 1 && gains[t] >= 1 && e.line[t] == nullptr) return false;
    }
    return true;
}

void echo_chain_init(vcp_core_t* core) {
    int delays[KREL_ECHO_TAPS] = {};
    int gains[KREL_ECHO_TAPS] = {};
    calculate_echos(core->sample_rate, delays, gains, kEchoVariant);
    echos_init(&core->echos, delays, gains, kEchoDry);
    if (has_all_lines(core->echos, delays, gains)) return;
    echos_deinit(&core->echos);
    core->echos.tap_count = 0;
}

bool stream_set_up(pitchStreamStruct* stream, const preset_row& row) {
    if (row.target_hz == 0) {
        pitchSetPitch(stream, row.pitch_ratio);
        if (!pitchTookEffect(stream)) return false;
    }
    return pitchReserve(stream, kVoiceBlock);
}

void stream_chain_init(vcp_core_t* core, const preset_row& row) {
    core->stream = pitchCreateStream(core->sample_rate, row.target_hz, row.max_pitch_ratio,
                                     row.min_pitch_ratio, kVocalThreshold);
    if (core->stream != nullptr && !stream_set_up(core->stream, row)) {
        pitchDestroyStream(core->stream);
        core->stream = nullptr;
    }
    core->fifo_buffer = nullptr;
    // Rates beyond the stream's would ask for a FIFO of up to 164 MiB.
    if (core->stream != nullptr) output_fifo_init(core);
}

void reverb_chain_init(vcp_core_t* core, const preset_row& row) {
    reverb_t* rv = &core->reverb;
    const reverb_settings& s = core->sample_rate < kFullRateHz ? row.reverb_low : row.reverb_full;
    reverb_init(rv);
    reverb_setroomsize(rv, s.room_size);
    reverb_setdamp(rv, s.damping);
    reverb_setwet(rv, s.wet);
    reverb_setdry(rv, s.dry);
    reverb_setwidth(rv, s.width);
    reverb_setgain(rv, s.gain);
    reverb_update(rv);
}

}  // namespace

bool chain_ready(const vcp_core_t* core, Chain chain) {
    const auto vocal_ready = [&] { return core->vocal.fft_cfg != nullptr; };
    const auto stream_ready = [&] {
        return core->stream != nullptr && core->fifo_buffer != nullptr;
    };
    switch (chain) {
        case Chain::kVocoder:
            return core->vocoder.fft_cfg != nullptr;
        case Chain::kEcho:
            return core->echos.tap_count > 0;
        case Chain::kShift:
            return core->pitch.fft_cfg != nullptr;
        case Chain::kStream:
            return stream_ready();
        case Chain::kStreamFormant:
            return stream_ready() && vocal_ready();
        case Chain::kFormantReverb:
            return vocal_ready() && core->reverb.combL[0] != nullptr;
        case Chain::kBypass:
            break;
    }
    return false;
}

namespace {

/// One block through the pitch stream and the output FIFO. False when the stream yielded nothing:
/// `out` is silent then and the rest of the chain rests for this block.
bool run_stream(vcp_core_t* core, const preset_row& row, int16_t* in, int16_t* out, int frames) {
    gain_eighths(in, frames, row.gain_eighths);
    pitchWriteSteered(core->stream, in, frames, output_fifo_wanted_surplus(core));
    const int received = pitchReadShortFromStream(core->stream, out, frames);
    if (received <= 0) {
        std::fill_n(out, frames, int16_t{0});
        return false;
    }
    output_fifo_exchange(core, out, received, frames);
    return true;
}

void run_vocoder(vcp_core_t* core, const preset_row& row, int16_t* in, int16_t* out, int frames) {
    // Deliberate: with the built-in carrier the voice is left in `in` and the gain goes to `out`;
    // one buffer is expected.
    vocoder_process(&core->vocoder, in, row.has_carrier ? in : out, frames);
    gain_eighths(out, frames, row.gain_eighths);
}

/// As much of the chain as there is.
void release_chain(vcp_core_t* core, const preset_row& row) {
    switch (row.chain) {
        case Chain::kVocoder:
            vocoder_deinit(&core->vocoder);
            break;
        case Chain::kEcho:
            echos_deinit(&core->echos);
            break;
        case Chain::kShift:
            pitch_deinit(&core->pitch);
            break;
        case Chain::kStream:
        case Chain::kStreamFormant:
            pitchDestroyStream(core->stream);
            core->stream = nullptr;
            output_fifo_deinit(core);
            if (row.chain == Chain::kStreamFormant) vocal_deinit(&core->vocal);
            break;
        case Chain::kFormantReverb:
            vocal_deinit(&core->vocal);
            reverb_end(&core->reverb);
            break;
        case Chain::kBypass:
            break;
    }
}

}  // namespace

void chain_init(vcp_core_t* core, const preset_row& row) {
    switch (row.chain) {
        case Chain::kVocoder:
            vocoder_chain_init(core, row);
            break;
        case Chain::kEcho:
            echo_chain_init(core);
            break;
        case Chain::kShift:
            pitch_init(&core->pitch, core->sample_rate, row.pitch_ratio);
            break;
        case Chain::kStream:
            stream_chain_init(core, row);
            break;
        case Chain::kStreamFormant:
            stream_chain_init(core, row);
            vocal_init(&core->vocal, core->sample_rate, row.formant_ratio, row.formant_eq);
            break;
        case Chain::kFormantReverb:
            reverb_chain_init(core, row);
            vocal_init(&core->vocal, core->sample_rate, row.formant_ratio, row.formant_eq);
            break;
        case Chain::kBypass:
            return;
    }
    if (!chain_ready(core, row.chain)) release_chain(core, row);
}

void chain_process(vcp_core_t* core, const preset_row& row, int16_t* in, int16_t* out, int frames) {
    if (!chain_ready(core, row.chain)) return;
    switch (row.chain) {
        case Chain::kVocoder:
            run_vocoder(core, row, in, out, frames);
            break;
        case Chain::kEcho:
            echos_process(&core->echos, in, out, frames);
            break;
        case Chain::kShift:
            pitch_process(&core->pitch, in, out, frames);
            gain_eighths(out, frames, row.gain_eighths);
            break;
        case Chain::kStream:
            run_stream(core, row, in, out, frames);
            break;
        case Chain::kStreamFormant:
            if (run_stream(core, row, in, out, frames))
                vocal_process(&core->vocal, out, out, frames);
            break;
        case Chain::kFormantReverb:
            vocal_process(&core->vocal, in, in, frames);
            reverb_process_mono(&core->reverb, in, out, frames);
            break;
        case Chain::kBypass:
            break;
    }
}

void chain_deinit(vcp_core_t* core, const preset_row& row) {
    if (chain_ready(core, row.chain)) release_chain(core, row);
}

}  // namespace krel
