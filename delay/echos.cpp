// SPDX-License-Identifier: Apache-2.0
#include "delay/echos.h"

#include <algorithm>
#include <iterator>

#include "base/fast_paths.h"
#include "base/fixed_point.h"
#include "base/memory.h"
#include "base/random.h"
#include "base/ring.h"

namespace krel {
namespace {

constexpr int64_t kMostLineSamples = (int64_t{64} << 20) / sizeof(int32_t);  // of all taps together
constexpr int kRun = 128;  // samples worked out at a time

/// One echo of a room.
struct echo {
    double seconds;  // since the direct sound or, with jitter, the least time since the echo before
    int jitter;      // draws 0..jitter-1 units of 0.1 ms on top; 0: no draw
    int32_t gain;    // 1/128 units
};

constexpr echo kSmallRoom[] = {{0.0269, 0, 24}, {0.0347, 0, 18}, {0.007, 20, 13}};
constexpr echo kMediumRoom[] = {{0.0331, 0, 24}, {0.0457, 0, 18}, {0.011, 20, 13}, {0.013, 30, 8}};
constexpr echo kLargeRoom[] = {{0.0431, 0, 22}, {0.0577, 0, 18}, {0.0739, 0, 15},
                               {0.017, 30, 11}, {0.019, 30, 8},  {0.021, 30, 6}};
static_assert(std::size(kLargeRoom) == KREL_ECHO_TAPS);

/// Samples from the direct sound to this echo; `previous` is the delay of the echo before. The
/// latest echo of any room comes 0.14 s after the direct sound: no rate takes a cast or the sum out
/// of range.
int32_t delay_samples(const echo& e, int rate, int32_t previous) {
    if (e.jitter == 0) return static_cast<int32_t>(e.seconds * rate);
    return previous + static_cast<int32_t>((random_draw() % e.jitter / 10000.0 + e.seconds) * rate);
}

template <size_t count>
void place_echoes(const echo (&room)[count], int rate, int* delays, int* gains) {
    int32_t delay = 0;
    for (size_t t = 0; t < count; ++t) {
        delays[t] = delay = delay_samples(room[t], rate, delay);
        gains[t] = room[t].gain;
    }
}

int32_t level(int32_t gain, int32_t x) { return mul_wrap_s32(gain, x) >> 7; }

/// Adds one tap's part of a run to y. The line does not wrap inside the run, so that old and new
/// samples of a slot are one delay apart.
void mix_line(int32_t* __restrict line, int32_t gain, const int32_t* __restrict x,
              int32_t* __restrict y, int run) {
    for (int i = 0; i < run; ++i) {
        // Deliberate: the gain scales the direct sound; the echo itself has a fixed quarter level.
        y[i] = add_wrap_s32(y[i], add_wrap_s32(line[i], level(gain, x[i])));
        line[i] = x[i] >> 2;
    }
}

/// Adds tap t's part of x[0..n-1] to y[0..n-1], in runs up to the end of its line.
void mix_tap(echos_t* e, int t, const int32_t* x, int32_t* y, int n) {
    for (int done = 0; done < n;) {
        const int run = ring_run(e->pos[t], e->len[t], n - done);
        int32_t* line = e->line[t] + e->pos[t];
        e->tap_out[t] = add_wrap_s32(line[run - 1], level(e->gain[t], x[done + run - 1]));
        mix_line(line, e->gain[t], x + done, y + done, run);
        e->pos[t] = ring_advance(e->pos[t], run, e->len[t]);
        done += run;
    }
}

/// n samples, at most kRun. All input is taken before any output is written.
KREL_FAST void process_run(echos_t* e, const int16_t* in, int16_t* out, int n) {
    int32_t x[kRun];
    int32_t y[kRun];
    for (int i = 0; i < n; ++i) {
        x[i] = in[i];
        y[i] = level(e->dry, x[i]);
    }
    for (int32_t t = 0; t < e->tap_count; ++t) {
        if (e->line[t] != nullptr) mix_tap(e, t, x, y, n);
    }
    for (int i = 0; i < n; ++i) out[i] = sat_s16(y[i]);
}

}  // namespace
}  // namespace krel

using namespace krel;

int calculate_echos(int rate, int* delays, int* gains, int variant) {
    if (delays == nullptr || gains == nullptr) return 0;
    switch (variant) {
        case 0:
            place_echoes(kSmallRoom, rate, delays, gains);
            break;
        case 1:
            place_echoes(kMediumRoom, rate, delays, gains);
            break;
        default:
            place_echoes(kLargeRoom, rate, delays, gains);
            break;
    }
    return 0;
}

int echos_init(void* echos, int* delays, int* gains, int dry) {
    auto* e = static_cast<echos_t*>(echos);
    if (e == nullptr || delays == nullptr || gains == nullptr) return 0;
    *e = {};
    e->dry = dry;
    int64_t left = kMostLineSamples;
    for (int t = 0; t < KREL_ECHO_TAPS; ++t) {
        if (delays[t] < 1 || gains[t] < 1 || delays[t] > left) continue;
        e->line[t] = zeroed_raw<int32_t>(delays[t]);
        if (e->line[t] == nullptr) continue;
        left -= delays[t];
        e->len[t] = delays[t];
        e->gain[t] = gains[t];
        ++e->tap_count;
    }
    return 0;
}

int echos_process(void* echos, int16_t* in, int16_t* out, int n) {
    auto* e = static_cast<echos_t*>(echos);
    if (e == nullptr || in == nullptr || out == nullptr) return -1;
    for (int done = 0, run = 0; done < n; done += run) {
        run = std::min(kRun, n - done);
        process_run(e, in + done, out + done, run);
    }
    return n;
}

void echos_deinit(void* echos) {
    auto* e = static_cast<echos_t*>(echos);
    if (e == nullptr) return;
    // Not only the first tap_count: an accepted tap behind a rejected one is not processed, but it
    // is freed.
    for (auto*& line : e->line) release(line);
}
