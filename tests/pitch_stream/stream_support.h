// An owned stream with vector arguments.
#ifndef KREL_TESTS_PITCH_STREAM_STREAM_SUPPORT_H
#define KREL_TESTS_PITCH_STREAM_STREAM_SUPPORT_H

#include <speex/speex_resampler.h>

#include <algorithm>
#include <memory>
#include <vector>

#include "pitch_stream/pitch_stream.h"
#include "tests/support/signals.h"

namespace krel_test {

using Samples = std::vector<int16_t>;
inline int length(const Samples& s) { return static_cast<int>(s.size()); }

struct Setting {
    float pitch = 0.0f;  // 0: tracking, or as it comes without a target
    int target_hz = 0;
    float max_pitch = 0.0f;
    float min_pitch = 0.0f;
};
inline constexpr Setting kVoices[] = {
        {0.8f}, {1.3f}, {0.0f, 223, 2.7f, 1.5f}, {0.0f, 200, 2.4f, 1.3f}, {0.0f, 250, 3.0f, 1.7f}};

using Stream = std::unique_ptr<pitchStreamStruct, decltype([](auto* s) { pitchDestroyStream(s); })>;

inline Stream make_stream(int rate_hz, const Setting& v) {
    Stream s(pitchCreateStream(rate_hz, v.target_hz, v.max_pitch, v.min_pitch, 1024));
    if (v.pitch > 0.0f) pitchSetPitch(s.get(), v.pitch);
    return s;
}

inline void read_into(Samples& out, Stream& s, int most) {
    const size_t before = out.size();
    out.resize(before + static_cast<size_t>(most) + 1);
    const int count = pitchReadShortFromStream(s.get(), out.data() + before, most);
    out.resize(before + static_cast<size_t>(count));
}

/// Writes in blocks, reading everything after each. Nothing is returned when a write fails.
inline Samples run(Stream& s, Samples in, int block = 128) {
    Samples out;
    for (int at = 0; at < length(in); at += block) {
        const int n = std::min(block, length(in) - at);
        if (pitchWriteShortToStream(s.get(), in.data() + at, n) == 0) return {};
        read_into(out, s, s->numOutputSamples);
    }
    return out;
}

inline uint32_t output_rate(const Stream& s) {
    uint32_t in = 0, out = 0;
    speex_resampler_get_rate(s->resampler, &in, &out);
    return out;
}

}  // namespace krel_test

#endif
