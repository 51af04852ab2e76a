// SPDX-License-Identifier: Apache-2.0
// What the fuzzers feed: buffers of exactly the promised size, and long signals that a few bytes
// describe.
#ifndef KREL_FUZZ_SIGNAL_H
#define KREL_FUZZ_SIGNAL_H

#include <math.h>
#include <stdio.h>
#include <stdlib.h>

#include <memory>
#include <span>

#include "fuzz/draw.h"

namespace krel_fuzz {

/// A promise of the code under test. Broken, it ends the run with a report, in every build.
inline void require(bool holds, const char* promise) {
    if (holds) return;
    fprintf(stderr, "broken promise: %s\n", promise);
    abort();
}

/// `size` zeroed elements with nothing behind them: the address sanitizer sees the first access too
/// far. Never null.
template <typename T>
class Buffer {
  public:
    explicit Buffer(size_t size) : data_(new T[size]()), size_(size) {}
    [[nodiscard]] T* data() { return data_.get(); }
    [[nodiscard]] std::span<T> all() { return {data_.get(), size_}; }

  private:
    std::unique_ptr<T[]> data_;
    size_t size_;
};

/// An endless mono signal; the same draws give the same samples.
class Signal {
  public:
    explicit Signal(Draw& d)
        : kind_(d.range(0, 6)),
          amplitude_(kAmplitudes[d.range(0, 3)]),
          period_(d.range(1, 256)),
          seed_(d.any<uint8_t>() * 2654435761U + 1) {}

    int16_t s16() {
        const int32_t at = static_cast<int32_t>(time_++ % static_cast<uint32_t>(period_));
        switch (kind_) {
            case 0:
                return static_cast<int16_t>(amplitude_ * 0.5 *
                                            sin(6.283185307179586 * at / period_));
            case 1:
                return static_cast<int16_t>(random() * int64_t{2 * amplitude_ + 1} / 65536 -
                                            amplitude_);
            case 2:  // glottis-like: decays within every period
                return static_cast<int16_t>(amplitude_ * (period_ - at) / (period_ * (1 + at)));
            case 3:
                return static_cast<int16_t>(2 * at < period_ ? amplitude_ : -amplitude_ - 1);
            case 4:
                return static_cast<int16_t>(at == 0 ? amplitude_ : 0);
            case 5:
                return static_cast<int16_t>(amplitude_);
            default:
                return 0;
        }
    }
    /// Noise in the low bits as well.
    int32_t s32() { return s16() * 65536 + random(); }
    /// Beyond full scale as well, and with special values among the noise.
    float unit() {
        constexpr float kSpecials[] = {NAN, INFINITY, -INFINITY, 1e-40f, 3e38f, 2.0f, -0.0f, -1.0f};
        const float usual = static_cast<float>(s16()) / 30000.0f;
        return kind_ == 1 && random() < 1024 ? kSpecials[random() % 8] : usual;
    }
    uint8_t byte() { return static_cast<uint8_t>(s16() >> 4); }

  private:
    static constexpr int32_t kAmplitudes[] = {9000, 32767, 1, 300};

    int32_t random() {
        seed_ = seed_ * 1664525U + 1013904223U;
        return static_cast<int32_t>(seed_ >> 16);
    }

    int32_t kind_;
    int32_t amplitude_;
    int32_t period_;
    uint32_t seed_;
    uint32_t time_ = 0;
};

inline void fill(std::span<int16_t> to, Signal& from) {
    for (auto& sample : to) sample = from.s16();
}
inline void fill(std::span<int32_t> to, Signal& from) {
    for (auto& sample : to) sample = from.s32();
}
inline void fill(std::span<float> to, Signal& from) {
    for (auto& sample : to) sample = from.unit();
}
inline void fill(std::span<uint8_t> to, Signal& from) {
    for (auto& sample : to) sample = from.byte();
}

/// A new buffer with a drawn signal.
template <typename T>
Buffer<T> signal_buffer(Draw& d, size_t size) {
    Buffer<T> buffer(size);
    Signal signal(d);
    fill(buffer.all(), signal);
    return buffer;
}

}  // namespace krel_fuzz

#endif
