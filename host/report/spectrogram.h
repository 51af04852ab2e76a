// SPDX-License-Identifier: Apache-2.0
// Which frequencies sound when, as a picture.
#ifndef KREL_HOST_REPORT_SPECTROGRAM_H
#define KREL_HOST_REPORT_SPECTROGRAM_H

#include <stdint.h>

#include <span>
#include <vector>

namespace krel::host {

/// One byte per pixel, from the top row down; 0 is nothing, kLevels - 1 the loudest.
struct Picture {
    static constexpr int kLevels = 32;
    size_t width = 0;
    size_t height = 0;
    std::vector<uint8_t> pixels;
};

/// The highest frequency shown: 8 kHz, or half the rate where that is less.
double top_frequency_hz(int rate_hz);

/// Mono samples, shown on a time axis of `axis_frames`, longer or shorter than they are. Rows are
/// equally spaced on the mel scale, m = ln(1 + f / 700 Hz), from 0 to top_frequency_hz(). Levels
/// are relative to the loudest spot.
Picture spectrogram(std::span<const float> samples, int rate_hz, size_t axis_frames);

}  // namespace krel::host

#endif
