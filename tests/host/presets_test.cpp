// SPDX-License-Identifier: Apache-2.0
// What the host and the engine say of the presets, against the library's own table and records.
#include "host/presets.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <string>

#include "core/core_record.h"
#include "core/presets.h"
#include "core/vcp.h"
#include "core/voice_block.h"
#include "engine/voice.h"

namespace krel {
namespace {

/// Samples by which a core at work is late: its transforms' lengths, two longest periods and what
/// primes the stream.
int core_delay(const vcp_core_t* core, Chain chain) {
    const auto stream = [&] { return core->stream->maxRequired + core->fifo_prime_level; };
    switch (chain) {
        case Chain::kVocoder:
            return core->vocoder.fft_size;
        case Chain::kShift:
            return core->pitch.fft_size;
        case Chain::kStream:
            return stream();
        case Chain::kStreamFormant:
            return stream() + core->vocal.fft_size;
        case Chain::kFormantReverb:
            return core->vocal.fft_size;
        case Chain::kEcho:
        case Chain::kBypass:
            break;
    }
    return 0;
}

std::string number(double value) {
    char text[32];
    snprintf(text, sizeof text, "%g", value);
    return text;
}

TEST(HostPresets, AreThoseOfTheLibraryWithItsPitchesAndDelays) {
    ASSERT_EQ(host::presets().size(), size_t{kPresetCount});
    ASSERT_EQ(krel_voice_count(), kPresetCount);
    for (int n = 0; n < kPresetCount; ++n) {
        const preset_row& row = kPresets[n];
        const std::string told = host::presets()[static_cast<size_t>(n)].description;
        const auto tells = [&](const std::string& what) {
            return told.find(what) != std::string::npos;
        };
        EXPECT_EQ(told, krel_voice_description(n));
        EXPECT_STREQ(host::presets()[static_cast<size_t>(n)].name, krel_voice_name(n));
        EXPECT_TRUE(row.pitch_ratio == 1.0f || tells("x " + number(row.pitch_ratio))) << told;
        EXPECT_TRUE(row.target_hz == 0 || tells(number(row.target_hz) + " Hz")) << told;
        for (const int rate : {8000, 15999, 16000, 31999, 32000, 44100, 96000}) {
            auto* core = static_cast<vcp_core_t*>(vcp_init(rate));
            vcp_set_mode(core, n);
            EXPECT_EQ(host::latency_samples(static_cast<size_t>(n), rate),
                      kCollectDelay + kCompressorDelay + core_delay(core, row.chain))
                    << n << " at " << rate;
            EXPECT_EQ(host::latency_samples(static_cast<size_t>(n), rate),
                      krel_voice_latency(n, rate));
            vcp_deinit(core);
        }
    }
}

}  // namespace
}  // namespace krel
