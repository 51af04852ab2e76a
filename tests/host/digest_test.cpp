// The presets that run on integers alone give the same bits on every machine: the whole path, from AELI down, on the
// bundled voice, in every format of the effect's buffers.
//
// The table is changed by hand only, after a deliberate change of sound: each failing preset prints its new row.
#include <gtest/gtest.h>

#include <array>
#include <cstdlib>
#include <iomanip>
#include <sstream>

#include "host/audio_file.h"
#include "host/effect_host.h"
#include "host/sample_format.h"

namespace krel::host {
namespace {

constexpr size_t kBlockFrames = 960;
constexpr size_t kFormatCount = 4;  // those of SampleFormat, in its order

struct DigestRow {
    int32_t preset;
    std::array<uint64_t, kFormatCount> digest;
};

// clang-format off
const DigestRow kDigests[] = {
    {2, {0x70cb38a6bd66b215, 0xb38edb85907dd771, 0x7436d26976ebc77d, 0x3cca704dabd512c1}},
    {7, {0x37fed0b74734def9, 0x2d755a72887dc581, 0x20a204660724d261, 0x922d72331b6d7c99}},
    {8, {0x37fed0b74734def9, 0x2d755a72887dc581, 0x20a204660724d261, 0x922d72331b6d7c99}},
    {9, {0x37fed0b74734def9, 0x2d755a72887dc581, 0x20a204660724d261, 0x922d72331b6d7c99}},
    {10, {0x3c35aaa06bcc9525, 0xe7e55e93381b6e01, 0xdb9d10cde7d08d5d, 0x55978b839a10871d}},
    {12, {0xb8290b0a99d1b839, 0x883f4082a1e226f9, 0x56a1c05174ebbf31, 0x64a8953d19b5eefd}},
};
// clang-format on

/// FNV-1a, continued from `hash`: each byte changes all that follows, so two streams that differ once stay apart.
uint64_t fnv1a(uint64_t hash, const std::vector<std::byte>& bytes) {
    for (const std::byte b : bytes) hash = (hash ^ static_cast<uint64_t>(b)) * 0x100000001b3;
    return hash;
}

/// Of everything that the effect writes. The first block still runs the preset of a fresh instance, a spectral one, but ends
/// before that one's delay does.
uint64_t output_digest(int32_t preset, SampleFormat format) {
    AudioReader voice(KREL_VOICE);
    EXPECT_EQ(voice.channels(), 1);
    srand(1);  // the echo never seeds: as in a fresh process
    EffectHost effect(KREL_LIBRARY);
    effect.configure(static_cast<uint32_t>(voice.rate_hz()), format, false);
    effect.set_preset(preset);
    effect.enable();

    std::vector<double> mono(kBlockFrames), stereo(2 * kBlockFrames);
    std::vector<std::byte> block(stereo.size() * sample_bytes(format));
    uint64_t hash = 0xcbf29ce484222325;
    while (voice.read(mono.data(), kBlockFrames) == kBlockFrames) {
        for (size_t i = 0; i < stereo.size(); ++i) stereo[i] = mono[i / 2];
        encode(format, stereo.data(), stereo.size(), block.data());
        effect.process(block.data(), block.data(), kBlockFrames);
        hash = fnv1a(hash, block);
    }
    return hash;
}

std::string row_text(int32_t preset, const std::array<uint64_t, kFormatCount>& digests) {
    std::ostringstream text;
    text << "{" << preset << std::hex << std::setfill('0');
    const char* separator = ", {";
    for (const uint64_t d : digests) {
        text << separator << "0x" << std::setw(16) << d;
        separator = ", ";
    }
    return text.str() + "}},";
}

void PrintTo(const DigestRow& row, std::ostream* out) { *out << "preset " << row.preset; }

class IntegerPreset : public testing::TestWithParam<DigestRow> {};

TEST_P(IntegerPreset, GivesTheSameBitsOnEveryMachine) {
    std::array<uint64_t, kFormatCount> digests = {};
    for (size_t f = 0; f < kFormatCount; ++f) {
        digests[f] = output_digest(GetParam().preset, static_cast<SampleFormat>(f));
    }
    EXPECT_EQ(digests, GetParam().digest) << "now " << row_text(GetParam().preset, digests);
}

INSTANTIATE_TEST_SUITE_P(Digest, IntegerPreset, testing::ValuesIn(kDigests),
                         [](const auto& p) { return std::to_string(p.param.preset); });

}  // namespace
}  // namespace krel::host
