// SPDX-License-Identifier: Apache-2.0
// How high a voice speaks, moment by moment.
#ifndef KREL_HOST_REPORT_PITCH_CONTOUR_H
#define KREL_HOST_REPORT_PITCH_CONTOUR_H

#include <span>
#include <vector>

namespace krel::host {

/// Fundamental frequencies in Hz at `points` equally spaced moments of a time axis of
/// `axis_frames`; 0 where nothing periodic sounds. Finds 60 to 600 Hz by the normalised square
/// difference function (McLeod and Wyvill, "A smarter way to find pitch", ICMC 2005).
std::vector<float> pitch_contour(std::span<const float> samples, int rate_hz, size_t axis_frames,
                                 size_t points);

/// The middle one of the contour's voiced points; 0 when there is none.
float median_pitch_hz(std::vector<float> contour);

}  // namespace krel::host

#endif
