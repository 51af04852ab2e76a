#include "host/render.h"

#include <stdlib.h>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstddef>

#include "host/audio_file.h"
#include "host/effect_host.h"
#include "host/error.h"
#include "host/interrupt.h"
#include "host/presets.h"

namespace krel::host {
namespace {

constexpr size_t kStereo = 2;

// Silence fed ahead of the audio, in blocks of one fixed length, so that the result does not depend on the block
// length asked for. The first four blocks hold the fades of enabling and choosing a preset. The compressor's gain
// begins at one half and is settled after 65 blocks; the pitch stream's buffers hold some 100 ms.
constexpr size_t kPrimeFrames = 128;
constexpr size_t kPrimeBlocks = 256;

int64_t to_frames(double seconds, int rate_hz) { return std::llround(seconds * rate_hz); }

/// Delays interleaved samples by a fixed number of frames.
class DelayLine {
  public:
    explicit DelayLine(size_t frames) : ring_(frames * kStereo) {}

    void process(const double* in, double* out, size_t samples) {
        for (size_t i = 0; i < samples; ++i) {
            out[i] = in[i];
            if (ring_.empty()) continue;
            std::swap(out[i], ring_[position_]);
            if (++position_ == ring_.size()) position_ = 0;
        }
    }

  private:
    std::vector<double> ring_;
    size_t position_ = 0;
};

/// Everything between the two files, one block at a time.
class Session {
  public:
    Session(const RenderOptions& options, AudioReader& reader, EffectHost& effect,
            AudioWriter& writer)
        : options_(options),
          reader_(reader),
          effect_(effect),
          writer_(writer),
          delay_(options.raw_timing ? 0 : latency_samples(options.preset, reader.rate_hz())),
          dry_(static_cast<size_t>(delay_)),
          file_block_(longest_block() * static_cast<size_t>(reader.channels())),
          stereo_(longest_block() * kStereo),
          dry_block_(longest_block() * kStereo),
          in_(stereo_.size() * sample_bytes(options.format)),
          out_(in_.size()) {}

    void prime();
    void run(const Progress& progress);
    void finish();
    [[nodiscard]] RenderResult result() const;

  private:
    [[nodiscard]] size_t longest_block() const {
        return std::max(options_.block_frames, kPrimeFrames);
    }
    void apply_switches();
    [[nodiscard]] int64_t delay_of_end() const;
    void read_block();
    void process_block(size_t frames);
    void write_block();

    const RenderOptions& options_;
    AudioReader& reader_;
    EffectHost& effect_;
    AudioWriter& writer_;
    const int64_t delay_;
    DelayLine dry_;

    std::vector<double> file_block_;  // in the file's channels
    std::vector<double> stereo_;      // what the effect gets, then what it gave
    std::vector<double> dry_block_;
    std::vector<std::byte> in_, out_;  // the effect's buffers

    int64_t fed_ = 0;          // frames given to the effect, the flushing silence included
    int64_t input_ = 0;        // frames read from the file
    int64_t end_ = INT64_MAX;  // where, in frames fed, the output ends; known at the input's end
    size_t next_switch_ = 0;
    std::chrono::steady_clock::duration in_effect_{};
    LevelMeter input_level_;
    LevelMeter output_level_;
};

void Session::prime() {
    for (size_t i = 0; i < kPrimeBlocks; ++i) {
        std::fill_n(stereo_.begin(), kPrimeFrames * kStereo, 0.0);
        process_block(kPrimeFrames);
    }
    in_effect_ = {};
}

void Session::run(const Progress& progress) {
    const auto frames = static_cast<int64_t>(options_.block_frames);
    while (true) {
        throw_if_interrupted();
        read_block();
        if (fed_ >= end_) return;
        apply_switches();
        process_block(options_.block_frames);
        write_block();
        fed_ += frames;
        progress(static_cast<double>(fed_) / static_cast<double>(reader_.frames() + delay_));
    }
}

void Session::finish() {
    std::ranges::fill(in_, std::byte{});
    effect_.run_out(in_.data(), options_.block_frames, static_cast<uint32_t>(reader_.rate_hz()));
}

RenderResult Session::result() const {
    const double rate = reader_.rate_hz();
    RenderResult r;
    r.rate_hz = reader_.rate_hz();
    r.channels = reader_.channels();
    r.input_seconds = static_cast<double>(input_) / rate;
    r.output_seconds = static_cast<double>(end_ - delay_) / rate;
    r.effect_seconds = std::chrono::duration<double>(in_effect_).count();
    r.input = input_level_;
    r.output = output_level_;
    r.output_format = writer_.format_text();
    return r;
}

void Session::apply_switches() {
    for (; next_switch_ < options_.switches.size(); ++next_switch_) {
        const PresetSwitch& s = options_.switches[next_switch_];
        if (to_frames(s.seconds, reader_.rate_hz()) > fed_) return;
        effect_.set_preset(static_cast<int32_t>(s.preset));
    }
}

/// How late the input's end may come out: as late as the latest preset in play.
int64_t Session::delay_of_end() const {
    int latest = latency_samples(options_.preset, reader_.rate_hz());
    for (const PresetSwitch& s : options_.switches) {
        latest = std::max(latest, latency_samples(s.preset, reader_.rate_hz()));
    }
    return latest;
}

/// Fills stereo_ with the next input, then with silence; sets end_ when the input ends.
void Session::read_block() {
    const auto channels = static_cast<size_t>(reader_.channels());
    const size_t frames = options_.block_frames;
    const size_t got = end_ == INT64_MAX ? reader_.read(file_block_.data(), frames) : 0;
    input_level_.add(file_block_.data(), got * channels);
    for (size_t i = 0; i < frames; ++i) {
        const double* frame = &file_block_[i * channels];
        stereo_[i * kStereo] = i < got ? frame[0] : 0.0;
        stereo_[i * kStereo + 1] = i < got ? frame[channels - 1] : 0.0;
    }
    input_ += static_cast<int64_t>(got);
    if (got == frames || end_ != INT64_MAX) return;
    end_ = input_ + delay_of_end() + to_frames(options_.tail_seconds, reader_.rate_hz());
}

/// The first `frames` of stereo_ through the effect. The framework gives one buffer for both sides to an effect that
/// writes, two to one that accumulates.
void Session::process_block(size_t frames) {
    const size_t samples = frames * kStereo;
    encode(options_.format, stereo_.data(), samples, in_.data());
    std::byte* out = in_.data();
    if (options_.accumulate) {
        out = out_.data();
        dry_.process(stereo_.data(), dry_block_.data(), samples);
        encode(options_.format, dry_block_.data(), samples, out);
    }
    const auto start = std::chrono::steady_clock::now();
    effect_.process(in_.data(), out, frames);
    in_effect_ += std::chrono::steady_clock::now() - start;
    decode(options_.format, out, samples, stereo_.data());
}

/// The part of stereo_ that lies between the delay and the end, in the file's channels.
void Session::write_block() {
    const auto channels = static_cast<size_t>(reader_.channels());
    const auto frames = static_cast<int64_t>(options_.block_frames);
    const auto first = static_cast<size_t>(std::clamp<int64_t>(delay_ - fed_, 0, frames));
    const auto last = static_cast<size_t>(std::clamp<int64_t>(end_ - fed_, 0, frames));
    double* to = file_block_.data();
    for (size_t i = first; i < last; ++i) {
        to = std::copy_n(&stereo_[i * kStereo], channels, to);
    }
    const auto samples = static_cast<size_t>(to - file_block_.data());
    output_level_.add(file_block_.data(), samples);
    writer_.write(file_block_.data(), samples / channels);
}

void check_switches(const RenderOptions& options, const AudioReader& reader,
                    const std::filesystem::path& in) {
    for (const PresetSwitch& s : options.switches) {
        if (to_frames(s.seconds, reader.rate_hz()) < reader.frames()) continue;
        throw Error("the switch to preset " + std::to_string(s.preset) +
                    " lies beyond the end of " + in_quotes(in));
    }
}

}  // namespace

RenderResult render(const std::filesystem::path& in, const std::filesystem::path& out,
                    const RenderOptions& options, const Progress& progress) {
    AudioReader reader(in);
    check_switches(options, reader, in);
    // The echo draws its distances from rand() and never seeds it: as in a fresh process, whatever was rendered before.
    srand(1);
    EffectHost effect(options.library);
    effect.configure(static_cast<uint32_t>(reader.rate_hz()), options.format, options.accumulate);
    effect.set_preset(static_cast<int32_t>(options.preset));
    effect.enable();

    AudioWriter writer(out, reader.rate_hz(), reader.channels(), reader.subtype());
    Session session(options, reader, effect, writer);
    if (!options.raw_timing) session.prime();
    session.run(progress);
    session.finish();
    writer.commit();
    return session.result();
}

}  // namespace krel::host
