#include "host/presets.h"

namespace krel::host {
namespace {

// clang-format off
constexpr Preset kPresets[] = {
    /*  0 */ {"robot", "vocoder: the voice under the fixed phases of a carrier sound", Chain::kVocoder},
    /*  1 */ {"buzz", "the same under the phases of silence", Chain::kVocoder},
    /*  2 */ {"echo", "six echoes, three of them at random distances", Chain::kEcho},
    /*  3 */ {"lower", "pitch x 0.78, formants along with it", Chain::kShift},
    /*  4 */ {"low", "pitch x 0.86, formants along with it", Chain::kShift},
    /*  5 */ {"high", "pitch x 1.14, formants along with it", Chain::kShift},
    /*  6 */ {"higher", "pitch x 1.36, formants along with it", Chain::kShift},
    /*  7 */ {"plain", "nothing but make-up gain and compressor", Chain::kNone},
    /*  8 */ {"plain", "as 7", Chain::kNone},
    /*  9 */ {"plain", "as 7", Chain::kNone},
    /* 10 */ {"deep", "pitch x 0.8 by dropping and repeating periods", Chain::kStream},
    /* 11 */ {"girl", "pitch steered to 223 Hz, formants moved and equalised", Chain::kStreamFormant},
    /* 12 */ {"bright", "pitch x 1.3 by dropping and repeating periods", Chain::kStream},
    /* 13 */ {"woman", "pitch steered to 200 Hz, formants moved", Chain::kStreamFormant},
    /* 14 */ {"child", "pitch steered to 250 Hz, formants moved and equalised", Chain::kStreamFormant},
    /* 15 */ {"hall", "formants equalised, reverberator", Chain::kRoom},
    /* 16 */ {"cave", "formants equalised otherwise, more reverberation", Chain::kRoom},
};
// clang-format on

constexpr int kFifoDelay = 127;        // blocks of 128 are collected before they are processed
constexpr int kCompressorDelay = 480;  // look-ahead

// Frame-based effects are late by one transform.
constexpr int shift_frame(int rate_hz) {
    return rate_hz < 16000 ? 512 : rate_hz < 32000 ? 1024 : 2048;
}
constexpr int voice_frame(int rate_hz) { return rate_hz < 32000 ? 1024 : 2048; }

// The search for pitch periods holds two of the longest ones, 80 ms; the stream's output then waits until 20 ms are
// there. How the voice's envelope comes out of it: 96 to 105 ms late at 16 to 96 kHz, 110 to 118 ms in preset 10.
constexpr int stream_delay(int rate_hz) { return 2 * (rate_hz / 25) + rate_hz / 50; }

int chain_delay(Chain chain, int rate_hz) {
    switch (chain) {
        case Chain::kVocoder:
        case Chain::kRoom:
            return voice_frame(rate_hz);
        case Chain::kShift:
            return shift_frame(rate_hz);
        case Chain::kStream:
            return stream_delay(rate_hz);
        case Chain::kStreamFormant:
            return stream_delay(rate_hz) + voice_frame(rate_hz);
        case Chain::kEcho:
        case Chain::kNone:
            break;
    }
    return 0;
}

}  // namespace

std::span<const Preset> presets() { return kPresets; }

int latency_samples(size_t preset, int rate_hz) {
    return kFifoDelay + kCompressorDelay + chain_delay(kPresets[preset].chain, rate_hz);
}

}  // namespace krel::host
