// SPDX-License-Identifier: Apache-2.0
#include "host/report/take.h"

#include <algorithm>
#include <cmath>

#include "host/audio/level_meter.h"
#include "host/audio/loudness.h"
#include "host/report/encoders.h"
#include "host/report/pitch_contour.h"
#include "host/report/spectrogram.h"

namespace krel::host {
namespace {

constexpr size_t kColumns = 400;  // of the outline
constexpr size_t kContourPoints = 480;
constexpr float kOutlineScale = 127.0F;

int8_t outline_level(float sample) {
    return static_cast<int8_t>(std::lround(std::clamp(sample, -1.0F, 1.0F) * kOutlineScale));
}

std::vector<int8_t> outline(std::span<const float> samples, size_t axis_frames) {
    std::vector<int8_t> levels;
    for (size_t column = 0; column < kColumns; ++column) {
        const size_t first = column * axis_frames / kColumns;
        const size_t end = std::min((column + 1) * axis_frames / kColumns, samples.size());
        if (first >= end) break;
        const auto [low, high] = std::ranges::minmax(samples.subspan(first, end - first));
        levels.push_back(outline_level(low));
        levels.push_back(outline_level(high));
    }
    return levels;
}

}  // namespace

Take make_take(std::span<const float> samples, int rate_hz, double axis_seconds) {
    const auto axis_frames = static_cast<size_t>(std::llround(axis_seconds * rate_hz));
    const std::vector<double> wide(samples.begin(), samples.end());
    LevelMeter level;
    level.add(wide.data(), wide.size());
    LoudnessMeter loudness(rate_hz, 1);
    loudness.add(wide.data(), wide.size());
    Take take;
    take.seconds = static_cast<double>(samples.size()) / rate_hz;
    take.peak_dbfs = level.peak_dbfs();
    take.rms_dbfs = level.rms_dbfs();
    take.loudness_lufs = loudness.lufs();
    take.contour_hz = pitch_contour(samples, rate_hz, axis_frames, kContourPoints);
    take.pitch_hz = median_pitch_hz(take.contour_hz);
    take.outline = outline(samples, axis_frames);
    take.spectrogram =
            data_url("image/png", encode_png(spectrogram(samples, rate_hz, axis_frames)));
    take.audio = data_url("audio/ogg", encode_opus(samples, rate_hz));
    return take;
}

}  // namespace krel::host
