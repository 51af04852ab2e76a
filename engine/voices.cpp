// SPDX-License-Identifier: Apache-2.0
#include "engine/voices.h"

#include "core/voice_block.h"
#include "spectral/transform.h"

namespace krel {
namespace {

// The search for pitch periods holds two of the longest ones, 80 ms; the stream's output then waits
// until 20 ms are there.
constexpr int stream_delay(int rate_hz) { return 2 * (rate_hz / 25) + rate_hz / 50; }

/// Frame-based effects are late by one transform.
int chain_delay(Chain chain, int rate_hz) {
    switch (chain) {
        case Chain::kVocoder:
        case Chain::kFormantReverb:
            return long_fft_size_for_rate(rate_hz);
        case Chain::kShift:
            return fft_size_for_rate(rate_hz);
        case Chain::kStream:
            return stream_delay(rate_hz);
        case Chain::kStreamFormant:
            return stream_delay(rate_hz) + long_fft_size_for_rate(rate_hz);
        case Chain::kBypass:
        case Chain::kEcho:
            break;
    }
    return 0;
}

}  // namespace

// clang-format off
const voice_name kVoiceNames[kPresetCount] = {
    /*  0 */ {"robot", "robot, on a hum of 94 Hz (at 48 kHz)"},
    /*  1 */ {"buzz", "rougher robot, on the same hum"},
    /*  2 */ {"echo", "six echoes, three at random distances"},
    /*  3 */ {"lower", "pitch and formants x 0.78"},
    /*  4 */ {"low", "pitch and formants x 0.86"},
    /*  5 */ {"high", "pitch and formants x 1.14"},
    /*  6 */ {"higher", "pitch x 1.2, spectrum x 1.36 and more"},
    /*  7 */ {"plain", "as it is, but for the compressor"},
    /*  8 */ {"plain", "as 7"},
    /*  9 */ {"plain", "as 7"},
    /* 10 */ {"deep", "pitch x 0.8, period by period"},
    /* 11 */ {"girl", "raised x 1.5 to 2.7 towards 223 Hz, equalised"},
    /* 12 */ {"bright", "pitch x 1.3, period by period"},
    /* 13 */ {"woman", "raised x 1.3 to 2.4 towards 200 Hz"},
    /* 14 */ {"child", "raised x 1.7 to 3 towards 250 Hz, equalised"},
    /* 15 */ {"hall", "in a hall"},
    /* 16 */ {"cave", "in a cave: more reverberation"},
};
// clang-format on

int block_delay(int number, int rate_hz) {
    return chain_delay(kPresets[number].chain, rate_hz) + kCompressorDelay;
}

}  // namespace krel
