// SPDX-License-Identifier: Apache-2.0
// The formant-EQ curves: breakpoints between which the gain is interpolated smoothly, without overshoot.
#ifndef KREL_TABLES_FORMANT_CURVES_H
#define KREL_TABLES_FORMANT_CURVES_H

#include <stdint.h>

namespace krel {

struct formant_curve {
    int32_t points;
    float hz[11];  // increasing
    float gain_db[11];
};

inline constexpr int kFormantCurveCount = 5;

/// Curve n of the formant EQ is entry n - 1. Curves 1 to 3 deliberately have no breakpoint at 8 kHz that would bring them
/// back to 0 dB: above 6 kHz they run on with the shape of their last piece. Curve 3 is curve 2 with a lower first peak.
inline constexpr formant_curve kFormantCurves[kFormantCurveCount] = {
        {.points = 11,
         .hz = {0, 300, 600, 800, 1000, 1250, 1800, 2800, 3900, 4600, 6200},
         .gain_db = {-6, 6, -3, -3, 3, -6, 15, -15, 12, 9, 0}},
        {.points = 10,
         .hz = {0, 250, 500, 750, 1000, 1500, 2250, 3000, 4000, 6000},
         .gain_db = {-4, 6, 0, -12, 9, 0, -12, 6, 9, -6}},
        {.points = 10,
         .hz = {0, 250, 500, 750, 1000, 1500, 2250, 3000, 4000, 6000},
         .gain_db = {-4, 3, 0, -12, 9, 0, -12, 6, 9, -6}},
        {.points = 7,
         .hz = {0, 80, 250, 1000, 2000, 4000, 8000},
         .gain_db = {0, 12, 0, -12, 0, 12, -6}},
        {.points = 9,
         .hz = {0, 80, 220, 660, 1000, 2000, 3000, 5000, 8000},
         .gain_db = {-15, -12, -4, 12, 0, -6, 0, 9, -3}},
};

}  // namespace krel

#endif
