// SPDX-License-Identifier: Apache-2.0
#include <sndfile.h>

#include <algorithm>
#include <cstring>

#include "host/audio/input_file.h"
#include "host/audio/resampler.h"
#include "host/error.h"
#include "host/report/encoders.h"

namespace krel::host {
namespace {

constexpr int kOpusRates[] = {8000, 12000, 16000, 24000, 48000};
constexpr double kBitsPerSecond = 64000.0;
// libsndfile spreads its compression levels 0 to 1 evenly over these bit rates.
constexpr double kMostBitsPerSecond = 256000.0;
constexpr double kFewestBitsPerSecond = 6000.0;
constexpr size_t kPieceFrames = 4096;  // the encoder takes stack space in proportion

int opus_rate(int rate_hz) {
    const auto* rate = std::ranges::lower_bound(kOpusRates, rate_hz);
    return rate == std::end(kOpusRates) ? kOpusRates[4] : *rate;
}

[[noreturn]] void fail(const char* why) {
    throw Error(std::string("cannot encode a sound for the report: ") + why);
}

std::vector<float> resampled(std::span<const float> samples, int from_hz, int to_hz) {
    const std::vector<double> in(samples.begin(), samples.end());
    std::vector<double> out;
    Resampler(1, from_hz, to_hz).process(in.data(), in.size(), true, out);
    return {out.begin(), out.end()};
}

/// A file in memory, for libsndfile to write to.
struct Memory {
    std::string bytes;
    sf_count_t position = 0;

    static Memory& of(void* self) { return *static_cast<Memory*>(self); }
    static sf_count_t size(void* self) { return static_cast<sf_count_t>(of(self).bytes.size()); }
    static sf_count_t tell(void* self) { return of(self).position; }
    static sf_count_t seek(sf_count_t to, int from, void* self) {
        const sf_count_t start = from == SEEK_SET ? 0 : from == SEEK_CUR ? tell(self) : size(self);
        return of(self).position = start + to;
    }
    static sf_count_t write(const void* data, sf_count_t count, void* self) {
        Memory& memory = of(self);
        const auto end = static_cast<size_t>(memory.position + count);
        memory.bytes.resize(std::max(memory.bytes.size(), end));
        memcpy(&memory.bytes[end - static_cast<size_t>(count)], data, static_cast<size_t>(count));
        memory.position += count;
        return count;
    }
    static sf_count_t read(void* /*data*/, sf_count_t /*count*/, void* /*self*/) { return 0; }
};

void write_opus(std::span<const float> samples, int rate_hz, Memory& memory) {
    SF_INFO info = {};
    info.samplerate = rate_hz;
    info.channels = 1;
    info.format = SF_FORMAT_OGG | SF_FORMAT_OPUS;
    SF_VIRTUAL_IO io = {Memory::size, Memory::seek, Memory::read, Memory::write, Memory::tell};
    const SndfileHandle file(sf_open_virtual(&io, SFM_WRITE, &info, &memory));
    if (!file) fail(sf_strerror(nullptr));
    double level =
            (kMostBitsPerSecond - kBitsPerSecond) / (kMostBitsPerSecond - kFewestBitsPerSecond);
    sf_command(file.get(), SFC_SET_COMPRESSION_LEVEL, &level, sizeof(level));
    while (!samples.empty()) {
        const size_t piece = std::min(kPieceFrames, samples.size());
        const auto count = static_cast<sf_count_t>(piece);
        if (sf_writef_float(file.get(), samples.data(), count) != count)
            fail(sf_strerror(file.get()));
        samples = samples.subspan(piece);
    }
}

}  // namespace

std::string encode_opus(std::span<const float> samples, int rate_hz) {
    Memory memory;
    const int rate = opus_rate(rate_hz);
    if (rate == rate_hz) {
        write_opus(samples, rate, memory);
    } else {
        write_opus(resampled(samples, rate_hz, rate), rate, memory);
    }
    return std::move(memory.bytes);
}

}  // namespace krel::host
