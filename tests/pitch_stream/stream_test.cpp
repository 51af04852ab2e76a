// The stream as its callers see it: whole streams, settings, buffers, faults.
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
        Setting setting;
        uint64_t at_16k, at_48k;
    } const rows[] = {
            {kVoices[0], 0xc59a21f5a391d802, 0x65690c9bdb678a8c},
            {kVoices[1], 0x8e17730c04c22a95, 0x44aeefcdd6001261},
            {kVoices[2], 0xad4d5960c0f25dfe, 0x0164a0d5c53ed3d2},
            {kVoices[3], 0xd42f535efe998ddb, 0x18b0ddd561a14291},
            {kVoices[4], 0x58aef94d332dd017, 0x92f3a8e73afd7828},
            {{2.5f}, 0x9cfcaaee88b82a4a, 0x383de7ed0b79b08b},
            {{0.5f}, 0x168288af79cda1bd, 0x54e9c67dccab8dce},
    };
    for (const auto& [setting, at_16k, at_48k] : rows) {
        for (const int rate : {16000, 48000}) {
            Stream stream = make_stream(rate, setting);
            EXPECT_EQ(fnv1a_64(run(stream, gliding_sawtooth(rate))),
                      rate == 16000 ? at_16k : at_48k)
                    << rate << " Hz, " << setting.pitch << ", " << setting.target_hz;
        }
    }
}

TEST(PitchStream, SettingsBeyondTheirBoundsAreRefusedOrClamped) {
    for (const int rate : {0, INT32_MIN, 399, 1638400}) EXPECT_EQ(make_stream(rate, {}), nullptr);
    for (const int rate : {400, 1638399}) {
        Stream s = make_stream(rate, kVoices[2]);
        EXPECT_FALSE(run(s, noise_s16(s->maxRequired + 1000, 1), 4096).empty());
    }
    for (const int target : {24, 25, 260, 261}) {
        const Stream s = make_stream(16000, {0.0f, target, 9.0f, NAN});
        EXPECT_EQ(s->fixedPitch, target == 25 || target == 260 ? 0 : 1) << target;
        EXPECT_EQ(s->maxPitch, 3.0f);
        EXPECT_EQ(s->minPitch, 0.5f);
        EXPECT_EQ(s->tenMsSamples, 160);
    }
    const Stream s = make_stream(48000, kVoices[2]);
    for (const auto& [asked, got] :
         {std::pair{4.0f, 3.0f}, {0.1f, 0.5f}, {0.8f, 0.8f}, {NAN, 0.8f}}) {
        pitchSetPitch(s.get(), asked);
        EXPECT_EQ(s->pitch, got);
        EXPECT_EQ(s->fixedPitch, 1);
        EXPECT_EQ(output_rate(s), static_cast<uint32_t>(48000.0f / got));
    }
}

TEST(PitchStream, BuffersGrowByHalfTheirSizeAndTheNeed) {
    const Stream s = make_stream(16000, {});
    auto noise = noise_s16(1281, 5);
    removeInputSamples(s.get(), -5);
    removeInputSamples(s.get(), 3);  // more than is held: forgotten by the next write
    ASSERT_EQ(addShortSamplesToInputBuffer(s.get(), noise.data(), 1280), 1);
    EXPECT_EQ(s->inputBufferSize, 1280);
    ASSERT_EQ(addShortSamplesToInputBuffer(s.get(), noise.data() + 1280, 1), 1);
    EXPECT_EQ(s->inputBufferSize, 1280 + 1 + 640);
    EXPECT_TRUE(std::equal(noise.begin(), noise.end(), s->inputBuffer));
    s->remainingInputToCopy = 2000;
    EXPECT_EQ(copyInputToOutput(s.get(), 1), 1280);  // a step is two longest periods at most
    EXPECT_EQ(s->remainingInputToCopy, 720);
    ASSERT_EQ(copyToOutput(s.get(), noise.data(), 1281), 1);
    EXPECT_EQ(s->outputBufferSize, 1280 + 1281 + 640);
    EXPECT_TRUE(std::equal(noise.begin() + 1, noise.end(), s->outputBuffer));
}

TEST(PitchStream, ReadsAndWritesOfAnySizeLoseNothing) {
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
        if (setting.pitch == 0.0f) continue;
        Stream big = make_stream(16000, setting);  // grows both buffers and the resampler's
        EXPECT_EQ(run(big, voice, 60000), expected);
    }
    Stream through = make_stream(16000, {});  // a ratio of one hands every sample on at once
    EXPECT_EQ(run(through, voice, 127), voice);
    EXPECT_EQ(pitchWriteShortToStream(through.get(), nullptr, 0), 1);
    EXPECT_EQ(pitchWriteShortToStream(through.get(), nullptr, 3), 0);
    EXPECT_EQ(pitchWriteShortToStream(through.get(), voice.data(), -1), 0);
    EXPECT_EQ(addShortSamplesToInputBuffer(through.get(), voice.data(), -1), 0);
    EXPECT_EQ(pitchReadShortFromStream(through.get(), voice.data(), -1), 0);
}

TEST(PitchStream, ResamplingNeedsNewOutputAndGrowsTheBuffersItOverfills) {
    const Stream s = make_stream(16000, {0.5f});
    auto noise = noise_s16(1100, 5);
    copyToOutput(s.get(), noise.data(), 1100);
    EXPECT_EQ(adjustRate(s.get(), 0.5f, 1100), 1);
    EXPECT_EQ(s->numOutputSamples, 1100);
    EXPECT_EQ(adjustRate(s.get(), 0.5f, 0), 1);
    EXPECT_EQ(s->outputBufferSize, 1280);  // twice as much fits in its unrecorded half
    const int held = s->numOutputSamples;
    EXPECT_GT(held, 2050);
    copyToOutput(s.get(), noise.data(), 1000);
    EXPECT_EQ(adjustRate(s.get(), 0.5f, held), 1);
    EXPECT_GT(s->numOutputSamples, held + 1900);
    EXPECT_GE(s->outputBufferSize, s->numOutputSamples);
    EXPECT_EQ(adjustRate(s.get(), 0.5f, 9000), 1);  // a gap becomes silence
    EXPECT_EQ(s->numOutputSamples, 9000);
    EXPECT_EQ(s->outputBuffer[8999], 0);
}

TEST(PitchStream, WithoutItsBuffersAStreamAnswersZero) {
    const Stream s = make_stream(16000, {0.5f});
    auto noise = noise_s16(1280, 5);
    freeStreamBuffers(s.get());  // a failed growth releases one of them
    EXPECT_EQ(pitchWriteShortToStream(s.get(), noise.data(), 1280), 0);
    EXPECT_EQ(pitchWriteShortToStream(s.get(), nullptr, 0), 0);
    EXPECT_EQ(pitchReadShortFromStream(s.get(), noise.data(), 1), 0);
    EXPECT_EQ(enlargeOutputBufferIfNeeded(s.get(), 1), 0);
    EXPECT_EQ(findPitchPeriod(s.get(), noise.data(), 1), 0);
    EXPECT_EQ(changeSpeed(s.get(), 1.5f), 0);
    EXPECT_EQ(adjustRate(s.get(), 1.5f, 0), 0);
}

TEST(PitchStream, AFailedAllocationLeavesNoStreamOrADeadOne) {
    auto voice = voice_s16(24000, 8000);
    for (const auto& setting : {kVoices[0], kVoices[1], kVoices[2], Setting{1.0f}}) {
        int dead = 0;
        const int injected = krel_test::fail_each_allocation([&] {
            const Stream s = make_stream(8000, setting);
            if (s == nullptr) return;
            const int32_t room = s->outputBufferSize;
            bool failed = false;
            auto* samples = voice.data();
            for (const int n : {100, 5000, 3000, 9000, 0, 200}) {  // hardly read: the output grows
                const int written = pitchWriteShortToStream(s.get(), samples, n);
                EXPECT_TRUE(!failed || written == 0);
                failed = failed || written == 0;
                samples += n;
                int16_t out[64];
                pitchReadShortFromStream(s.get(), out, 64);
            }
            EXPECT_TRUE(failed || s->outputBufferSize > room);
            dead += failed ? 1 : 0;
        });
        EXPECT_GT(injected, dead + 10);  // the others are those of creation and of the resampler
        EXPECT_GE(dead, 2);
    }
}

TEST(PitchStream, RefusedFilterMemoryKeepsTheLastRatioUntilThereIsSome) {
    const auto voice = voice_s16(16000, 16000, 90.0, 90.0);
    Stream s = make_stream(16000, kVoices[2]);
    s->vocalThreshold = 32767;  // the estimate stays where it is put
    const auto run_at = [&](double ratio) {
        s->baseFreq = 223.0 / ratio;
        EXPECT_GT(rms(run(s, voice)), 0.5 * rms(voice));
        return output_rate(s);
    };
    EXPECT_EQ(run_at(1.6), 10000u);
    {
        const AllocGate gate(1, /*from_there_on=*/true);  // a longer filter
        EXPECT_EQ(run_at(2.5), 10000u);
        EXPECT_TRUE(gate.failed());
    }
    EXPECT_EQ(run_at(2.5), 6400u);
}

}  // namespace
