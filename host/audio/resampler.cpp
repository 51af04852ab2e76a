// SPDX-License-Identifier: Apache-2.0
#include "host/audio/resampler.h"

#include <algorithm>
#include <cmath>
#include <string>

#include "host/error.h"

namespace krel::host {
namespace {

constexpr size_t kPieceFrames = 4096;

SRC_STATE* create(int channels, double ratio) {
    int error = 0;
    // 121 dB of signal to noise, 90 % of the band.
    SRC_STATE* state = src_new(SRC_SINC_MEDIUM_QUALITY, channels, &error);
    if (state == nullptr) throw Error(std::string("cannot resample: ") + src_strerror(error));
    if (src_is_valid_ratio(ratio) != 0) return state;
    src_delete(state);
    throw Error("cannot resample: the rates are too far apart");
}

}  // namespace

Resampler::Resampler(int channels, int from_hz, int to_hz)
    : channels_(channels),
      ratio_(static_cast<double>(to_hz) / from_hz),
      state_(create(channels, ratio_)),
      out_(kPieceFrames * static_cast<size_t>(channels)) {}

void Resampler::process(const double* in, size_t frames, bool last, std::vector<double>& out) {
    in_.assign(in, in + frames * static_cast<size_t>(channels_));
    taken_ += static_cast<int64_t>(frames);
    SRC_DATA data = {};
    data.data_in = in_.data();
    data.input_frames = static_cast<long>(frames);
    data.end_of_input = last ? 1 : 0;
    data.src_ratio = ratio_;
    data.data_out = out_.data();
    data.output_frames = kPieceFrames;
    do {
        if (const int error = src_process(state_.get(), &data); error != 0) {
            throw Error(std::string("cannot resample: ") + src_strerror(error));
        }
        data.data_in += data.input_frames_used * channels_;
        data.input_frames -= data.input_frames_used;
        append(data.output_frames_gen, last, out);
    } while (data.output_frames_gen > 0 || (data.input_frames > 0 && data.input_frames_used > 0));
    if (!last) return;
    const int64_t missing =
            std::max<int64_t>(whole() - given_, 0);  // the library may end a frame early
    out.resize(out.size() + static_cast<size_t>(missing * channels_));
}

void Resampler::append(int64_t frames, bool last, std::vector<double>& out) {
    // The library may also end a frame late.
    if (last) frames = std::clamp<int64_t>(whole() - given_, 0, frames);
    out.insert(out.end(), out_.begin(), out_.begin() + static_cast<ptrdiff_t>(frames) * channels_);
    given_ += frames;
}

int64_t Resampler::whole() const { return std::llround(static_cast<double>(taken_) * ratio_); }

}  // namespace krel::host
