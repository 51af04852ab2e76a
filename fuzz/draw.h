// SPDX-License-Identifier: Apache-2.0
// Draws values from a fuzzer's input, front to back. Past its end every value is 0: any input is a
// complete program of calls, and a shorter one is a simpler one.
//
// One call's arguments draw at most once: compilers evaluate arguments in different orders.
#ifndef KREL_FUZZ_DRAW_H
#define KREL_FUZZ_DRAW_H

#include <stddef.h>
#include <stdint.h>
#include <string.h>

#include <algorithm>

namespace krel_fuzz {

class Draw {
  public:
    Draw(const uint8_t* data, size_t size) : next_(data), end_(data + size) {}

    /// Whether input is left.
    [[nodiscard]] bool more() const { return next_ != end_; }

    /// Any bit pattern.
    template <typename T>
    T any() {
        T value{};
        const size_t n = std::min(sizeof value, static_cast<size_t>(end_ - next_));
        if (n > 0) memcpy(&value, next_, n);
        next_ += n;
        return value;
    }

    /// least..greatest, from as few bytes as that takes.
    int32_t range(int32_t least, int32_t greatest) {
        const int64_t values = int64_t{greatest} - least + 1;
        const uint32_t bits = values <= 256     ? any<uint8_t>()
                              : values <= 65536 ? any<uint16_t>()
                                                : any<uint32_t>();
        return static_cast<int32_t>(least + bits % values);
    }

    /// True for one value in n; false at the end of the input.
    bool one_in(int32_t n) { return range(0, n - 1) == n - 1; }

    template <typename T, size_t N>
    T pick(const T (&from)[N]) {
        return from[range(0, static_cast<int32_t>(N) - 1)];
    }

    /// least..greatest, and now and then anything that 32 bits hold.
    int32_t hostile(int32_t least, int32_t greatest) {
        constexpr int32_t kEdges[] = {0, -1, 1, INT32_MIN, INT32_MAX, 0x40000000, 65536, -65536};
        if (!one_in(6)) return range(least, greatest);
        return one_in(3) ? any<int32_t>() : pick(kEdges);
    }

    /// least..greatest in 256 steps, and now and then any float: NaN, infinities and denormals
    /// among them.
    float hostile_float(float least, float greatest) {
        if (one_in(6)) return any<float>();
        return least + (greatest - least) * static_cast<float>(any<uint8_t>()) / 255.0f;
    }

    /// A sample rate. Low ones come more often: they reach the same code with fewer samples.
    uint32_t rate() {
        constexpr uint32_t kUsual[] = {8000, 8000,  8000,  4000,  11025, 16000,
                                       8000, 22050, 32000, 44100, 48000, 96000};
        constexpr uint32_t kEdges[] = {0,          1,          24,        25,     49,      399,
                                       400,        401,        7999,      65535,  65536,   192000,
                                       1638399,    1638400,    31999,     384000, 3999999, 7999999,
                                       0x7FFFFFFF, 0x80000000, 0xFFFFFFFF};
        if (!one_in(4)) return pick(kUsual);
        return one_in(3) ? any<uint32_t>() : pick(kEdges);
    }

  private:
    const uint8_t* next_;
    const uint8_t* end_;
};

}  // namespace krel_fuzz

#endif
