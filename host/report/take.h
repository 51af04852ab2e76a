// SPDX-License-Identifier: Apache-2.0
// One sound on the comparison page: the recording as it was, or one voice's version of it.
#ifndef KREL_HOST_REPORT_TAKE_H
#define KREL_HOST_REPORT_TAKE_H

#include <stdint.h>

#include <optional>
#include <span>
#include <string>
#include <vector>

namespace krel::host {

/// What only the renderer knows about a voice.
struct VoiceFacts {
    size_t number = 0;  // the preset
    std::string name;
    std::string description;
    double delay_seconds = 0.0;  // of the effect; the samples given have it removed
    double cost = 0.0;           // processor time over sounding time, of one core
};

/// A sound, analysed and encoded: ready for the page, without its samples.
struct Take {
    std::optional<VoiceFacts> voice;  // none for the original
    double seconds = 0.0;
    double peak_dbfs = 0.0;  // levels: minus infinity for silence
    double rms_dbfs = 0.0;
    double loudness_lufs = 0.0;     // integrated, EBU R 128
    double pitch_hz = 0.0;          // the median; 0 for none
    std::vector<float> contour_hz;  // equally spaced over the time axis; 0 where unvoiced
    std::vector<int8_t> outline;    // lowest and highest sample of each column, full scale 127
    std::string spectrogram;        // data: address of a PNG
    std::string audio;              // data: address of an Ogg Opus file
};

/// Mono samples, full scale +-1, whose time 0 is that of the original. Pictures and contours span
/// `axis_seconds`, the same for all takes of a recording. Throws Error.
Take make_take(std::span<const float> samples, int rate_hz, double axis_seconds);

}  // namespace krel::host

#endif
