// SPDX-License-Identifier: Apache-2.0
#include "host/presets.h"

namespace krel::host {
namespace {

// clang-format off
constexpr Preset kPresets[] = {
    /*  0 */ {"robot", "robot, on a hum of 94 Hz (at 48 kHz)", Chain::kVocoder},
    /*  1 */ {"buzz", "rougher robot, on the same hum", Chain::kVocoder},
    /*  2 */ {"echo", "six echoes, three at random distances", Chain::kEcho},
    /*  3 */ {"lower", "pitch and formants x 0.78", Chain::kShift},
    /*  4 */ {"low", "pitch and formants x 0.86", Chain::kShift},
    /*  5 */ {"high", "pitch and formants x 1.14", Chain::kShift},
    /*  6 */ {"higher", "pitch x 1.2, spectrum x 1.36 and more", Chain::kShift},
    /*  7 */ {"plain", "as it is, but for the compressor", Chain::kNone},
    /*  8 */ {"plain", "as 7", Chain::kNone},
    /*  9 */ {"plain", "as 7", Chain::kNone},
    /* 10 */ {"deep", "pitch x 0.8, period by period", Chain::kStream},
    /* 11 */ {"girl", "raised x 1.5 to 2.7 towards 223 Hz, equalised", Chain::kStreamFormant},
    /* 12 */ {"bright", "pitch x 1.3, period by period", Chain::kStream},
    /* 13 */ {"woman", "raised x 1.3 to 2.4 towards 200 Hz", Chain::kStreamFormant},
    /* 14 */ {"child", "raised x 1.7 to 3 towards 250 Hz, equalised", Chain::kStreamFormant},
    /* 15 */ {"hall", "in a hall", Chain::kRoom},
    /* 16 */ {"cave", "in a cave: more reverberation", Chain::kRoom},
};
// clang-format on

constexpr int kFifoDelay = 127;        // blocks of 128 are collected before they are processed
constexpr int kCompressorDelay = 480;  // look-ahead

// Frame-based effects are late by one transform.
constexpr int shift_frame(int rate_hz) {
    return rate_hz < 16000 ? 512 : rate_hz < 32000 ? 1024 : 2048;
}
constexpr int voice_frame(int rate_hz) { return rate_hz < 32000 ? 1024 : 2048; }

// The search for pitch periods holds two of the longest ones, 80 ms; the stream's output then waits
// until 20 ms are there. How the voice's envelope comes out of it: 96 to 105 ms late at 16 to 96
// kHz, 110 to 118 ms in preset 10.
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

bool delay_moves(size_t preset) {
    const Chain chain = kPresets[preset].chain;
    return chain == Chain::kStream || chain == Chain::kStreamFormant;
}

bool rings_on(size_t preset) {
    const Chain chain = kPresets[preset].chain;
    return chain == Chain::kEcho || chain == Chain::kRoom;
}

bool saturates(size_t preset) {
    const Chain chain = kPresets[preset].chain;
    return chain == Chain::kShift || chain == Chain::kVocoder;
}

double hum_hz(size_t preset, int rate_hz) {
    if (kPresets[preset].chain != Chain::kVocoder) return 0.0;
    return 4.0 * rate_hz / voice_frame(rate_hz);  // frames overlap by three quarters
}

int latency_samples(size_t preset, int rate_hz) {
    return kFifoDelay + kCompressorDelay + chain_delay(kPresets[preset].chain, rate_hz);
}

}  // namespace krel::host
