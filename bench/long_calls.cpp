// SPDX-License-Identifier: Apache-2.0
// What long calls do to delay and pitch, minute by minute, of presets 3 to 6 and 10 to 14 on three
// to five sounds at three rates:
//
//   krel_long_calls [MINUTES [PRESET [RATE]]]
//
// An hour of all takes hours. Presets 10 to 14: samples that wait behind the stream, blocks that it
// left short. Presets 3 to 6: the synthesis against phases summed in double precision from the
// minute's end on.
#ifdef KREL_VOICE
#include <sndfile.h>
#endif
#include <stddef.h>
#include <stdio.h>
#include <stdlib.h>

#include <algorithm>
#include <cmath>
#include <numbers>
#include <numeric>
#include <string>
#include <vector>

#include "core/core_record.h"
#include "core/vcp.h"
#include "tests/support/signals.h"

namespace {

using Samples = std::vector<int16_t>;
constexpr int kFrames = 128;

/// The bundled voice, taken down to a rate that divides its own; silence in builds without a reader
/// of sound files.
Samples recording(int rate) {
    Samples in(48000);
    Samples out;
#ifdef KREL_VOICE
    SF_INFO info{};
    SNDFILE* file = sf_open(KREL_VOICE, SFM_READ, &info);
    in.resize(static_cast<size_t>(info.frames));
    sf_readf_short(file, in.data(), info.frames);
    sf_close(file);
#endif
    const auto skip = static_cast<ptrdiff_t>(48000 / rate);
    for (auto at = in.begin(); in.end() - at >= skip; at += skip)
        out.push_back(static_cast<int16_t>(std::accumulate(at, at + skip, 0) / skip));
    return out;
}

Samples voice(const std::string& name, int rate) {
    if (name == "low") return krel_test::voice_s16(18 * rate, rate, 75.0, 120.0);
    if (name == "high") return krel_test::voice_s16(18 * rate, rate, 190.0, 260.0);
    if (name == "200 Hz") return krel_test::voice_s16(15 * rate, rate, 200.0, 200.0);
    if (name == "silence") return Samples(static_cast<size_t>(rate));
    return recording(rate);
}

/// A core fed with a voice over and over.
class Call {
  public:
    Call(int preset, int rate, const std::string& name) : voice_(voice(name, rate)) {
        core_ = static_cast<vcp_core_t*>(vcp_init(rate));
        vcp_set_mode(core_, preset);
    }
    ~Call() { vcp_deinit(core_); }
    Call(const Call&) = delete;
    Call& operator=(const Call&) = delete;

    void step(int frames) {
        for (int i = 0; i < frames; ++i, ++at_) block_[i] = voice_[at_ % voice_.size()];
        vcp_process(core_, block_, block_, frames);
    }
    /// One block through a pitch stream.
    void watch_stream() {
        const bool running = core_->fifo_state == krel::kRunning;
        const int32_t read_from = core_->fifo_read;
        step(kFrames);
        if (!running) return;
        const int32_t moved = core_->fifo_read - read_from + core_->fifo_capacity;
        gaps += moved % core_->fifo_capacity < kFrames ? 1 : 0;
        const double ms =
                1e3 * (core_->fifo_count + core_->stream->numOutputSamples) / core_->sample_rate;
        least_ms = std::min(least_ms, ms);
        most_ms = std::max(most_ms, ms);
    }
    double worst_band_db();

    int gaps = 0;
    double least_ms = 1e9, most_ms = 0.0;

  private:
    const Samples voice_;
    vcp_core_t* core_;
    size_t at_ = 0;
    int16_t block_[512];
};

/// Over half a second of frames: what presets 3 to 6 synthesise in a band over its difference from
/// phases that are summed in double precision from now on. The least of five bands.
double Call::worst_band_db() {
    const pitch_ctx_t& p = core_->pitch;
    const auto bins = static_cast<size_t>(p.half_size) + 1;
    std::vector<double> exact(p.sum_phase, p.sum_phase + bins);
    constexpr double kBandEndsHz[] = {1000.0, 2000.0, 4000.0, 8000.0, 1e9};
    double signal[5] = {};
    double error[5] = {};
    for (int done = 0; done < core_->sample_rate / 2; done += p.hop) {
        step(p.hop);
        for (size_t k = 0; k < bins; ++k) {
            exact[k] += p.syn_freq[k] / p.freq_per_bin * std::numbers::pi / 2.0;
            const double hz = static_cast<double>(k) * p.freq_per_bin;
            const auto band = std::ranges::lower_bound(kBandEndsHz, hz) - kBandEndsHz;
            const double power = std::pow(double{p.syn_magn[k]}, 2);
            signal[band] += power;
            error[band] += power * std::pow(2.0 * std::sin((exact[k] - p.sum_phase[k]) / 2.0), 2);
        }
    }
    double worst = 1e9;
    for (int i = 0; i < 5; ++i) {
        if (signal[i] > 1e-6) worst = std::min(worst, 10.0 * std::log10(signal[i] / error[i]));
    }
    return worst;
}

void print_minutes(int preset, int rate, const char* name, int minutes) {
    Call call(preset, rate, name);
    for (int minute = 1; minute <= minutes; ++minute) {
        printf("preset %2d, %5d Hz, %s, minute %2d: ", preset, rate, name, minute);
        if (preset >= 10) {
            call.gaps = 0, call.least_ms = 1e9, call.most_ms = 0.0;
            for (int i = 0; i < 60 * rate; i += kFrames) call.watch_stream();
            printf("%5.1f to %5.1f ms wait, %d gaps\n", call.least_ms, call.most_ms, call.gaps);
        } else {
            for (int i = 0; i < 60 * rate - rate / 2; i += kFrames) call.step(kFrames);
            printf("%.1f dB in the worst band\n", call.worst_band_db());
        }
    }
}

/// The program's n-th argument, or `otherwise`.
int argument(int argc, char** argv, int n, int otherwise) {
    return argc > n ? static_cast<int>(strtol(argv[n], nullptr, 10)) : otherwise;
}

}  // namespace

int main(int argc, char** argv) {
    const int minutes = argument(argc, argv, 1, 60);
    for (const int preset : {3, 4, 5, 6, 10, 11, 12, 13, 14}) {
        if (argument(argc, argv, 2, preset) != preset) continue;
        for (const int rate : {8000, 16000, 48000}) {
            if (argument(argc, argv, 3, rate) != rate) continue;
            for (const char* name : {"low", "high", "recorded"})
                print_minutes(preset, rate, name, minutes);
            if (preset < 10) continue;
            for (const char* name : {"200 Hz", "silence"})  // the fastest drifts
                print_minutes(preset, rate, name, minutes);
        }
    }
}
