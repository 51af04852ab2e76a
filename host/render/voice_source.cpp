// SPDX-License-Identifier: Apache-2.0
#include "host/render/voice_source.h"

#include <algorithm>
#include <cmath>
#include <numeric>

#include "host/error.h"

namespace krel::host {
namespace {

constexpr size_t kBlockFrames = 4096;
constexpr size_t kWidth = 4;        // heard left and right, original left and right
constexpr double kSilence = 0.001;  // -60 dBFS: a channel that carries no voice
constexpr double kMuchLouder = 10.0;

}  // namespace

VoiceSource::VoiceSource(const InputFile& input, const SourceOptions& options)
    : options_(options),
      name_(in_quotes(input.path())),
      reader_(input),
      rate_hz_(options.rate_hz == 0 ? reader_.rate_hz() : options.rate_hz),
      file_block_(kBlockFrames * static_cast<size_t>(reader_.channels())),
      spread_(kBlockFrames * kWidth),
      channel_peaks_(static_cast<size_t>(reader_.channels())) {
    if (rate_hz_ != reader_.rate_hz()) resampler_.emplace(kWidth, reader_.rate_hz(), rate_hz_);
}

double VoiceSource::expected_frames() const {
    return static_cast<double>(reader_.frames()) * rate_hz_ / reader_.rate_hz();
}

size_t VoiceSource::read(double* heard, double* original, size_t frames) {
    size_t done = 0;
    for (; done < frames; ++done) {
        if (ready_from_ == ready_.size()) fill();
        if (ready_from_ == ready_.size()) break;
        const double* frame = &ready_[ready_from_];
        std::copy_n(frame, 2, heard + 2 * done);
        std::copy_n(frame + 2, 2, original + 2 * done);
        ready_from_ += kWidth;
    }
    return done;
}

/// Makes more frames ready, or none at the end.
void VoiceSource::fill() {
    ready_.clear();
    ready_from_ = 0;
    while (ready_.empty() && !ended_) {
        const size_t got = reader_.read(file_block_.data(), kBlockFrames);
        ended_ = got < kBlockFrames;
        done_ += static_cast<int64_t>(got);
        level_.add(file_block_.data(), got * channel_peaks_.size());
        spread(got, spread_.data());
        if (resampler_) {
            resampler_->process(spread_.data(), got, ended_, ready_);
        } else {
            ready_.assign(spread_.begin(), spread_.begin() + static_cast<ptrdiff_t>(got * kWidth));
        }
    }
}

/// The file's frames in the four samples of ours.
void VoiceSource::spread(size_t frames, double* to) {
    const size_t channels = channel_peaks_.size();
    const size_t second = channels > 1 ? 1 : 0;
    for (size_t i = 0; i < frames; ++i, to += kWidth) {
        const double* frame = &file_block_[i * channels];
        for (size_t c = 0; c < channels; ++c) {
            channel_peaks_[c] = std::max(channel_peaks_[c], std::fabs(frame[c]));
        }
        const double mix =
                std::accumulate(frame, frame + channels, 0.0) / static_cast<double>(channels);
        const double voice = options_.channel == Channel::kMix    ? mix
                             : options_.channel == Channel::kLeft ? frame[0]
                                                                  : frame[second];
        voice_peak_ = std::max(voice_peak_, std::fabs(voice));
        to[0] = options_.gain * voice;
        to[1] = options_.channel == Channel::kLeft ? options_.gain * frame[second] : to[0];
        to[2] = channels > 2 ? mix : frame[0];
        to[3] = channels > 2 ? mix : frame[second];
    }
}

double VoiceSource::input_seconds() const { return static_cast<double>(done_) / reader_.rate_hz(); }

std::string VoiceSource::silence_warning() const {
    const double loudest = *std::ranges::max_element(channel_peaks_);
    if (voice_peak_ >= kSilence) return "";
    if (loudest < kSilence) return name_ + " is silent";
    if (loudest < kMuchLouder * voice_peak_) return "";
    if (options_.channel == Channel::kMix) {
        return "the channels of " + name_ + " cancel each other out: try --channel left";
    }
    const bool left = options_.channel == Channel::kLeft;
    return std::string("the ") + (left ? "left" : "right") + " channel of " + name_ +
           " is silent, another one is not: try --channel " + (left ? "right" : "left") + " or mix";
}

std::vector<std::string> VoiceSource::warnings() const {
    std::vector<std::string> found;
    if (std::string silence = silence_warning(); !silence.empty()) found.push_back(silence);
    if (ended_ && reader_.truncated()) {
        char seconds[32];
        snprintf(seconds, sizeof(seconds), "%.2f s", input_seconds());
        found.push_back(name_ + " is cut off or damaged: only its first " + seconds +
                        " can be read");
    }
    return found;
}

}  // namespace krel::host
