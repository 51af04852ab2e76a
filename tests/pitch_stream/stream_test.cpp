#include <gtest/gtest.h>
#include <speex/speex_resampler.h>

#include <cmath>

#include "tests/pitch_stream/stream_support.h"
#include "tests/support/alloc_gate.h"

namespace {

using namespace krel_test;

/// 96000 samples of a sawtooth whose period slowly lengthens.
Samples gliding_sawtooth(int rate_hz) {
    Samples out;
    for (int k = 0; k < 96000; ++k) {
        const int period = (300 + k / 400) * rate_hz / 48000;
        out.push_back(static_cast<int16_t>(k % period * (16000 / period) - 6000));
    }
    return out;
}

uint64_t fnv1a_64(const Samples& samples) {
    uint64_t hash = 0xcbf29ce484222325;
    for (const int16_t s : samples) {
        for (const int shift : {0, 8})
            hash = (hash ^ ((static_cast<uint16_t>(s) >> shift) & 0xFF)) * 0x100000001b3;
    }
    return hash;
}

TEST(PitchStream, WholeStreamsEqualThoseOfALiteralModel) {
    // Recorded from a separate sample-by-sample model that sets the resampler's rate on every write; the same on x86-64
    // and arm64.
    struct {
        int rate_hz;
        Setting setting;
        size_t samples;
        uint64_t hash;
    } const rows[] = {
            {16000, kVoices[0], 94980, 0xc59a21f5a391d802},
            {16000, kVoices[1], 95485, 0x8e17730c04c22a95},
            {16000, kVoices[2], 94896, 0xad4d5960c0f25dfe},
            {16000, kVoices[3], 94889, 0xd42f535efe998ddb},
            {16000, kVoices[4], 95123, 0x58aef94d332dd017},
            {16000, {2.5f}, 94920, 0x9cfcaaee88b82a4a},
            {16000, {0.5f}, 95320, 0x168288af79cda1bd},
            {48000, kVoices[0], 92435, 0x65690c9bdb678a8c},
            {48000, kVoices[1], 93138, 0x44aeefcdd6001261},
            {48000, kVoices[2], 92929, 0x0164a0d5c53ed3d2},
            {48000, kVoices[3], 92719, 0x18b0ddd561a14291},
            {48000, kVoices[4], 92351, 0x92f3a8e73afd7828},
            {48000, {2.5f}, 92262, 0x383de7ed0b79b08b},
            {48000, {0.5f}, 93846, 0x54e9c67dccab8dce},
    };
    for (const auto& row : rows) {
        Stream stream = make_stream(row.rate_hz, row.setting);
        const Samples out = run(stream, gliding_sawtooth(row.rate_hz));
        EXPECT_EQ(out.size(), row.samples);
        EXPECT_EQ(fnv1a_64(out), row.hash)
                << row.rate_hz << " Hz, " << row.setting.pitch << ", " << row.setting.target_hz;
    }
}

TEST(PitchStream, CreationSetsPeriodsBoundsAndTheKindOfPitch) {
    for (const int target : {INT32_MIN, 0, 24, 25, 260, 261, INT32_MAX}) {
        const Stream s = make_stream(16000, {0.0f, target, 9.0f, 0.1f});
        EXPECT_EQ(s->fixedPitch, target == 25 || target == 260 ? 0 : 1) << target;
        EXPECT_EQ(s->maxPitch, 3.0f);
        EXPECT_EQ(s->minPitch, 0.5f);
        EXPECT_EQ(s->minPeriod, 40);
        EXPECT_EQ(s->maxPeriod, 640);
        EXPECT_EQ(s->inputBufferSize, 1280);
        EXPECT_EQ(s->outputBufferSize, 1280);
        EXPECT_EQ(s->tenMsSamples, 160);
    }
}

TEST(PitchStream, RatesTheArithmeticCannotCarryGiveNoStream) {
    for (const int rate : {0, -1, INT32_MIN, 399, 1638400, INT32_MAX})
        EXPECT_EQ(make_stream(rate, kVoices[2]), nullptr) << rate;
    for (const int rate : {400, 1638399}) {
        Stream s = make_stream(rate, kVoices[2]);
        ASSERT_NE(s, nullptr) << rate;
        EXPECT_FALSE(run(s, noise_s16(s->maxRequired + 1000, 1), 4096).empty());
    }
    pitchDestroyStream(nullptr);
    freeStreamBuffers(nullptr);
    pitchSetPitch(nullptr, 1.0f);
    EXPECT_EQ(pitchWriteShortToStream(nullptr, nullptr, 0), 0);
    EXPECT_EQ(pitchReadShortFromStream(nullptr, nullptr, 4), 0);
}

TEST(PitchStream, FixedPitchIsClampedAndReplacesTracking) {
    const Stream s = make_stream(48000, kVoices[2]);
    const float asked[] = {4.0f, 0.1f, -INFINITY, 0.8f, NAN};
    const float got[] = {3.0f, 0.5f, 0.5f, 0.8f, 0.8f};
    for (int i = 0; i < 5; ++i) {
        pitchSetPitch(s.get(), asked[i]);
        EXPECT_EQ(s->pitch, got[i]);
        EXPECT_EQ(s->speed, 1.0f / got[i]);
        EXPECT_EQ(s->fixedPitch, 1);
    }
}

TEST(PitchStream, RatioOfOneHandsEverySampleOnAtOnce) {
    const auto noise = noise_s16(10000, 5);
    for (const int block : {1, 127, 5000}) {
        Stream s = make_stream(48000, {0.0f});
        EXPECT_EQ(run(s, noise, block), noise);
    }
}

TEST(PitchStream, BuffersGrowByHalfTheirSizeAndTheNeed) {
    const Stream s = make_stream(16000, {0.0f});
    auto noise = noise_s16(1281, 5);
    ASSERT_EQ(addShortSamplesToInputBuffer(s.get(), noise.data(), 1280), 1);
    EXPECT_EQ(s->inputBufferSize, 1280);
    ASSERT_EQ(addShortSamplesToInputBuffer(s.get(), noise.data() + 1280, 1), 1);
    EXPECT_EQ(s->inputBufferSize, 1280 + 1 + 640);
    ASSERT_EQ(copyToOutput(s.get(), noise.data(), 1281), 1);
    EXPECT_EQ(s->outputBufferSize, 1280 + 1281 + 640);
    s->remainingInputToCopy = 2000;
    EXPECT_EQ(copyInputToOutput(s.get(), 1), 1280);
    EXPECT_EQ(s->remainingInputToCopy, 720);
    EXPECT_TRUE(std::equal(noise.begin(), noise.end(), s->outputBuffer));
    EXPECT_TRUE(std::equal(noise.begin() + 1, noise.end(), s->outputBuffer + 1281));
    removeInputSamples(s.get(), 1279);
    EXPECT_EQ(s->numInputSamples, 2);
    EXPECT_EQ(s->inputBuffer[1], noise[1280]);
    removeInputSamples(s.get(), 5);  // more than is held
    EXPECT_EQ(s->numInputSamples, -3);
    ASSERT_EQ(addShortSamplesToInputBuffer(s.get(), noise.data(), 4), 1);
    EXPECT_EQ(s->numInputSamples, 4);
    EXPECT_EQ(s->inputBuffer[3], noise[3]);
}

TEST(PitchStream, NegativeCountsAndNullSamplesDoNothing) {
    Stream s = make_stream(16000, {0.0f});
    auto noise = noise_s16(100, 5);
    ASSERT_EQ(pitchWriteShortToStream(s.get(), noise.data(), 100), 1);
    for (const int n : {-1, INT32_MIN}) {
        EXPECT_EQ(pitchWriteShortToStream(s.get(), noise.data(), n), 0);
        EXPECT_EQ(addShortSamplesToInputBuffer(s.get(), noise.data(), n), 0);
        EXPECT_EQ(copyToOutput(s.get(), noise.data(), n), 0);
        EXPECT_EQ(pitchReadShortFromStream(s.get(), noise.data(), n), 0);
        EXPECT_EQ(adjustRate(s.get(), 1.5f, n), 0);
        removeInputSamples(s.get(), n);
    }
    EXPECT_EQ(pitchWriteShortToStream(s.get(), nullptr, 3), 0);
    EXPECT_EQ(pitchReadShortFromStream(s.get(), nullptr, 3), 0);
    Samples out;
    read_into(out, s, 1000);
    EXPECT_EQ(out, noise);
    EXPECT_EQ(s->numOutputSamples, 0);
}

TEST(PitchStream, ReadsOfAnySizeLoseNothingAndWritesOfAnySizeAgree) {
    auto voice = voice_s16(60000, 16000);
    for (const auto& setting : kVoices) {
        Stream whole = make_stream(16000, setting);
        const auto expected = run(whole, voice);
        Stream pieces = make_stream(16000, setting);
        Samples got;
        for (int at = 0; at < length(voice); at += 128) {
            pitchWriteShortToStream(pieces.get(), voice.data() + at, std::min(128, 60000 - at));
            read_into(got, pieces, at * 7 % 250);
        }
        read_into(got, pieces, pieces->numOutputSamples);
        EXPECT_EQ(got, expected);

        Stream big = make_stream(16000, setting);  // grows both buffers and the resampler's
        const auto at_once = run(big, voice, 60000);
        EXPECT_NEAR(length(at_once), 58000, 3000);
        EXPECT_TRUE(setting.pitch == 0.0f || at_once == expected);
    }
}

TEST(PitchStream, ResamplingNeedsNewOutputAndGrowsTheBuffersItOverfills) {
    Stream s = make_stream(16000, {0.5f});
    auto noise = noise_s16(1100, 5);
    copyToOutput(s.get(), noise.data(), 1100);
    EXPECT_EQ(adjustRate(s.get(), 0.5f, 1100), 1);
    EXPECT_EQ(s->numOutputSamples, 1100);
    EXPECT_EQ(adjustRate(s.get(), 0.5f, 0),
              1);  // twice as much, in the unrecorded half of the buffer
    EXPECT_EQ(s->outputBufferSize, 1280);
    const Samples held(s->outputBuffer, s->outputBuffer + s->numOutputSamples);
    EXPECT_GT(length(held), 2050);

    ASSERT_EQ(copyToOutput(s.get(), noise.data(), 1000), 1);
    const int before = s->outputBufferSize;
    EXPECT_EQ(adjustRate(s.get(), 0.5f, length(held)), 1);
    EXPECT_GE(s->numOutputSamples, before);
    EXPECT_GE(s->outputBufferSize, s->numOutputSamples);
    EXPECT_TRUE(std::equal(held.begin(), held.end(), s->outputBuffer));
    EXPECT_EQ(adjustRate(s.get(), 0.5f, 9000), 1);  // a gap becomes silence
    EXPECT_EQ(s->numOutputSamples, 9000);
    EXPECT_EQ(s->outputBuffer[8999], 0);
}

TEST(PitchStream, FailedAllocationsLeaveNoStreamOrADeadOne) {
    auto voice = voice_s16(24000, 8000);
    for (const auto& setting : {kVoices[0], kVoices[1], kVoices[2], Setting{1.0f}}) {
        int dead = 0;
        const int injected = fail_each_allocation([&] {
            const Stream s = make_stream(8000, setting);
            if (s == nullptr) return;
            bool failed = false;
            auto* samples = voice.data();
            for (const int n : {100, 5000, 3000, 9000, 0, 200}) {
                const int written = pitchWriteShortToStream(s.get(), samples, n);
                EXPECT_TRUE(!failed || written == 0);
                failed = failed || written == 0;
                samples += n;
                int16_t out[64];
                pitchReadShortFromStream(s.get(), out, 64);
            }
            if (!failed) return;
            ++dead;
            EXPECT_EQ(processStreamInput(s.get()), 0);
            EXPECT_EQ(changeSpeed(s.get(), 1.5f), 0);
            EXPECT_EQ(adjustRate(s.get(), 1.5f, 0), 0);
        });
        EXPECT_GT(injected, dead + 10);  // the others are those of creation and of the resampler
        EXPECT_GE(dead, 2);
    }
    const int injected = fail_each_allocation([] {
        auto* record = static_cast<pitchStreamStruct*>(calloc(1, sizeof(pitchStreamStruct)));
        if (record == nullptr || allocateStreamBuffers(record, 16000) == 0) return;  // gone already
        freeStreamBuffers(record);
        freeStreamBuffers(record);
        free(record);
    });
    EXPECT_EQ(injected, 5);
}

TEST(PitchStream, RefusedFilterMemoryKeepsTheLastRatioUntilThereIsSome) {
    const auto voice = voice_s16(16000, 16000, 90.0, 90.0);
    Stream s = make_stream(16000, kVoices[2]);
    s->vocalThreshold = 32767;  // the estimate stays where it is put
    auto output_rate = [&] {
        uint32_t in = 0, out = 0;
        speex_resampler_get_rate(s->resampler, &in, &out);
        return out;
    };
    s->baseFreq = 223.0 / 1.6;
    run(s, voice);
    EXPECT_EQ(output_rate(), 10000u);
    s->baseFreq = 223.0 / 2.5;  // a longer filter
    {
        const AllocGate gate(1, /*from_there_on=*/true);
        EXPECT_GT(rms(run(s, voice)), 0.5 * rms(voice));
        EXPECT_TRUE(gate.failed());
    }
    EXPECT_EQ(output_rate(), 10000u);
    run(s, voice);
    EXPECT_EQ(output_rate(), 6400u);
}

}  // namespace
