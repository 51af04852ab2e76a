// SPDX-License-Identifier: Apache-2.0
// The presets as data: which chain each one runs, with which settings.
#ifndef KREL_CORE_PRESETS_H
#define KREL_CORE_PRESETS_H

#include <stdint.h>

#include <iterator>

namespace krel {

enum class Chain : uint8_t {
    kBypass,         // nothing
    kVocoder,        // vocoder, gain
    kEcho,           // echo
    kShift,          // phase-vocoder pitch shift, gain
    kStream,         // gain, pitch stream, output FIFO
    kStreamFormant,  // the same, then the formant processor
    kFormantReverb,  // formant processor, reverberator
};

/// Arguments of the reverberator's setters, in the order in which they are called; Q13.
struct reverb_settings {
    int32_t room_size, damping, wet, dry, width, gain;
};

/// One preset; its number is its place in the table.
struct preset_row {
    Chain chain = Chain::kBypass;
    int32_t gain_eighths = 8;  // make-up gain after the effect, or before the pitch stream
    bool has_carrier = false;  // vocoder: the built-in carrier sound, else silence
    float pitch_ratio = 1.0f;  // output frequency / input frequency, where it is fixed
    int32_t target_hz = 0;     // base frequency that the pitch stream steers to; 0: the fixed ratio
    float max_pitch_ratio = 0.0f;  // bounds of the steered ratio
    float min_pitch_ratio = 0.0f;
    float formant_ratio = 1.0f;
    int32_t formant_eq = 0;           // curve of tables/formant_curves.h, 0: none
    reverb_settings reverb_low = {};  // below 44100 Hz
    reverb_settings reverb_full = {};
};

// clang-format off
inline constexpr preset_row kPresets[] = {
    /*  0 */ {.chain = Chain::kVocoder, .gain_eighths = 13, .has_carrier = true},
    /*  1 */ {.chain = Chain::kVocoder, .gain_eighths = 45},
    /*  2 */ {.chain = Chain::kEcho},
    /*  3 */ {.chain = Chain::kShift, .gain_eighths = 15, .pitch_ratio = 0.78f},
    /*  4 */ {.chain = Chain::kShift, .gain_eighths = 17, .pitch_ratio = 0.86f},
    /*  5 */ {.chain = Chain::kShift, .gain_eighths = 15, .pitch_ratio = 1.14f},
    /*  6 */ {.chain = Chain::kShift, .gain_eighths = 19, .pitch_ratio = 1.36f},
    /*  7 */ {},
    /*  8 */ {},
    /*  9 */ {},
    /* 10 */ {.chain = Chain::kStream, .gain_eighths = 7, .pitch_ratio = 0.8f},
    /* 11 */ {.chain = Chain::kStreamFormant, .gain_eighths = 7, .target_hz = 223, .max_pitch_ratio = 2.7f,
              .min_pitch_ratio = 1.5f, .formant_ratio = 0.5605381f, .formant_eq = 2},
    /* 12 */ {.chain = Chain::kStream, .gain_eighths = 7, .pitch_ratio = 1.3f},
    /* 13 */ {.chain = Chain::kStreamFormant, .gain_eighths = 7, .target_hz = 200, .max_pitch_ratio = 2.4f,
              .min_pitch_ratio = 1.3f, .formant_ratio = 0.625f, .formant_eq = 0},
    /* 14 */ {.chain = Chain::kStreamFormant, .gain_eighths = 7, .target_hz = 250, .max_pitch_ratio = 3.0f,
              .min_pitch_ratio = 1.7f, .formant_ratio = 0.5f, .formant_eq = 1},
    /* 15 */ {.chain = Chain::kFormantReverb, .formant_eq = 4,
              .reverb_low = {128, 128, 64, 2048, 256, 384}, .reverb_full = {256, 256, 512, 3072, 2048, 1024}},
    /* 16 */ {.chain = Chain::kFormantReverb, .formant_eq = 5,
              .reverb_low = {256, 256, 256, 2048, 1024, 384}, .reverb_full = {512, 256, 512, 3072, 2048, 1024}},
};
// clang-format on
inline constexpr int kPresetCount = static_cast<int>(std::size(kPresets));

}  // namespace krel

#endif
