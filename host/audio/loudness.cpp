// SPDX-License-Identifier: Apache-2.0
#include "host/audio/loudness.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <string>

#include "host/error.h"

namespace krel::host {
namespace {

constexpr int kMode = EBUR128_MODE_I | EBUR128_MODE_TRUE_PEAK;
constexpr double kSilence = -std::numeric_limits<double>::infinity();

}  // namespace

LoudnessMeter::LoudnessMeter(int rate_hz, int channels)
    : state_(ebur128_init(static_cast<unsigned>(channels), static_cast<unsigned long>(rate_hz),
                          kMode | EBUR128_MODE_HISTOGRAM)) {  // memory does not grow with time
    if (!state_) throw Error("cannot measure loudness at " + std::to_string(rate_hz) + " Hz");
}

void LoudnessMeter::add(const double* from, size_t frames) {
    if (ebur128_add_frames_double(state_.get(), from, frames) != EBUR128_SUCCESS) {
        throw Error("cannot measure loudness: out of memory");
    }
}

double LoudnessMeter::lufs() const {
    double value = kSilence;
    ebur128_loudness_global(state_.get(), &value);
    return value;
}

double LoudnessMeter::true_peak() const {
    double highest = 0.0;
    for (unsigned c = 0; c < state_->channels; ++c) {
        double peak = 0.0;
        ebur128_true_peak(state_.get(), c, &peak);
        highest = std::max(highest, peak);
    }
    return 20.0 * std::log10(highest);
}

}  // namespace krel::host
