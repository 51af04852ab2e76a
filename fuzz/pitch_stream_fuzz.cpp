// SPDX-License-Identifier: Apache-2.0
// The pitch stream: any rate, ratio and bounds, writes and reads of any size, and its stages called
// in any state.
#include "fuzz/fuzzer.h"
#include "fuzz/signal.h"
#include "pitch_stream/pitch_stream.h"

using namespace krel_fuzz;

namespace {

constexpr int32_t kMostSamples = 8192;  // written by an execution
constexpr int kMostSteps = 64;
constexpr int kMostRatioChanges = 8;  // each may build a filter
constexpr int kMostFreeSpeedRate = 8000;

class Session {
  public:
    Session(Draw& d, pitchStreamStruct* stream) : d_(d), stream_(stream) {}

    void step() {
        const int32_t kind = d_.range(0, 15);
        if (kind < 7) return write();
        if (kind < 11) return read();
        if (kind < 12) return set_pitch();
        if (kind < 13) return call_buffer_stage();
        if (kind < 14) return call_search_stage();
        if (kind < 15) return call_speed_stage();
        call_rate_stage();
    }

    void check() const {
        const pitchStreamStruct& s = *stream_;
        require(s.numOutputSamples >= 0, "counts are not negative");
        require(s.inputBuffer != nullptr && s.outputBuffer != nullptr, "the stream lives");
        require(s.baseFreq > 0.0 && s.baseFreq < 1000.0, "the estimate is a voice's");
        require(!(s.pitch < 0.5f) && !(s.pitch > 3.0f), "ratios are bounded");
    }

  private:
    void write() {
        const int32_t blocks = d_.range(1, 8);
        const int32_t length = d_.one_in(3) ? d_.range(0, 2000) : 128;
        Signal signal(d_);
        for (int32_t i = 0; i < blocks && length <= left_; ++i, left_ -= length) {
            Buffer<int16_t> block(static_cast<size_t>(length));
            fill(block.all(), signal);
            require(pitchWriteShortToStream(stream_, block.data(), length) == 1, "writing works");
        }
        if (d_.one_in(16)) {
            const int32_t n = d_.hostile(-10, 10);
            require(pitchWriteShortToStream(stream_, nullptr, n) == (n == 0 ? 1 : 0), "no samples");
        }
        require(pitchWriteShortToStream(stream_, nullptr, 0) == 1, "nothing may be written");
        if (d_.one_in(16)) {
            Buffer<int16_t> nothing(0);
            pitchWriteShortToStream(stream_, nothing.data(), d_.range(-300, 0));
        }
    }

    void read() {
        const int32_t wanted = d_.one_in(2) ? 128 : d_.hostile(-2, 5000);
        const int32_t held = stream_->numOutputSamples;
        const int32_t expected = std::clamp(wanted, 0, held);
        Buffer<int16_t> out(static_cast<size_t>(expected));
        require(pitchReadShortFromStream(stream_, out.data(), wanted) == expected,
                "reads what is held");
        if (d_.one_in(16)) pitchReadShortFromStream(stream_, nullptr, wanted);
    }

    void set_pitch() {
        if (++ratio_changes_ > kMostRatioChanges) return;
        pitchSetPitch(stream_, d_.hostile_float(0.4f, 3.2f));
    }

    void call_buffer_stage() {
        const int32_t n = d_.range(-1, 600);
        auto samples = signal_buffer<int16_t>(d_, static_cast<size_t>(std::max(n, 0)));
        switch (d_.range(0, 5)) {
            case 0:
                addShortSamplesToInputBuffer(stream_, samples.data(), n);
                break;
            case 1:
                copyToOutput(stream_, samples.data(), n);
                break;
            case 2:
                removeInputSamples(stream_, d_.range(0, 2000));
                break;
            case 3:
                enlargeInputBufferIfNeeded(stream_, n);
                break;
            case 4:
                enlargeOutputBufferIfNeeded(stream_, n);
                break;
            default:  // from where a whole copy is there
                if (const int32_t spare = stream_->numInputSamples - stream_->maxRequired;
                    spare >= 0)
                    copyInputToOutput(stream_, d_.range(0, spare));
                break;
        }
    }

    /// A negative skip gives zeros.
    void down_sample(int16_t* samples, int32_t skip) {
        const std::span out(stream_->downSampleBuffer, static_cast<size_t>(stream_->maxRequired));
        std::ranges::fill(out, int16_t{99});
        downSampleInput(stream_, samples, skip);
        const int64_t count = skip == 0 ? 0 : stream_->maxRequired / std::abs(int64_t{skip});
        const auto rest = out.subspan(static_cast<size_t>(count));
        require(std::ranges::all_of(rest, [](int16_t s) { return s == 99; }), "means, and no more");
        const auto zero = [](int16_t s) { return s == 0; };
        require(skip >= 0 || std::ranges::all_of(out.first(static_cast<size_t>(count)), zero),
                "a negative skip gives zeros");
    }
    void call_search_stage() {
        auto samples = signal_buffer<int16_t>(d_, static_cast<size_t>(stream_->maxRequired));
        int least = 0;
        int most = 0;
        const int32_t longest = std::min(stream_->maxPeriod, 700);
        const int32_t first = d_.range(-5, longest);
        const auto difference = d_.any<int32_t>();
        switch (d_.range(0, 5)) {
            case 0:
                findPitchPeriod(stream_, samples.data(), d_.range(0, 1));
                break;
            case 1:
                down_sample(samples.data(), d_.hostile(-20, 100));
                break;
            case 2:
                findPitchPeriodInRange(samples.data(), first, d_.range(-5, longest), &least, &most);
                break;
            case 3:
                prevPeriodBetter(stream_, difference, d_.any<int32_t>(), first < 0 ? 0 : 1);
                break;
            case 4:
                updateBaseFreq(stream_, samples.data(), d_.range(-1, stream_->maxRequired));
                break;
            default:
                findVocals(stream_, samples.data(), difference);
                break;
        }
    }

    /// At any speed only where rates are low: a speed near 0 or a large one advances sample by
    /// sample.
    void call_speed_stage() {
        const bool any_speed = stream_->sampleRate <= kMostFreeSpeedRate;
        const float speed = any_speed ? d_.hostile_float(0.0f, 4.0f) : d_.hostile_float(0.5f, 0.9f);
        const int32_t period = d_.range(0, stream_->maxPeriod);
        auto samples = signal_buffer<int16_t>(d_, 2 * static_cast<size_t>(period));
        Buffer<int16_t> mixed(static_cast<size_t>(period));
        switch (d_.range(0, 3)) {
            case 0:
                if (any_speed) changeSpeed(stream_, speed);
                break;
            case 1:
                if (speed > 1.0f) skipPitchPeriod(stream_, samples.data(), speed, period);
                break;
            case 2:
                if (!(speed > 1.0f)) insertPitchPeriod(stream_, samples.data(), speed, period);
                break;
            default:
                overlapAdd(period, mixed.data(), samples.data(), samples.data() + period);
                break;
        }
    }

    void call_rate_stage() {
        if (++ratio_changes_ > kMostRatioChanges) return;
        if (d_.one_in(2)) return static_cast<void>(processStreamInput(stream_));
        const float ratio = d_.hostile_float(0.4f, 3.2f);
        const int32_t held = stream_->numOutputSamples;
        const int32_t start = d_.range(-1, held + 300);
        require(adjustRate(stream_, ratio, start) == (start < 0 ? 0 : 1), "resampling works");
        require(start <= held || stream_->numOutputSamples == start, "a gap becomes silence");
    }

    Draw& d_;
    pitchStreamStruct* stream_;
    int32_t left_ = kMostSamples;
    int ratio_changes_ = 0;
};

}  // namespace

int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    start_execution();
    Draw d(data, size);
    constexpr int32_t kTargets[] = {0, 223, 200, 250, 25, 260, 24, 261};
    const int32_t target = d.one_in(8) ? d.any<int32_t>() : d.pick(kTargets);
    const auto rate = static_cast<int32_t>(d.rate());
    const float most = d.hostile_float(1.0f, 3.5f);
    const float least = d.hostile_float(0.3f, 2.0f);
    auto* stream = pitchCreateStream(rate, target, most, least, d.hostile(0, 2000));
    require((stream != nullptr) == (rate >= 400 && rate <= 1638399),
            "rates that a stream works at");
    if (stream == nullptr) return 0;
    Session session(d, stream);
    session.check();
    for (int step = 0; d.more() && step < kMostSteps; ++step) {
        session.step();
        session.check();
    }
    pitchDestroyStream(stream);
    return 0;
}
