// SPDX-License-Identifier: Apache-2.0
#include "spectral/transform.h"

#include <NE10_dsp.h>
#include <stddef.h>

#include <array>
#include <type_traits>

#include "base/fast_paths.h"

namespace krel {
namespace {

static_assert(sizeof(krel_complex_t) == sizeof(ne10_fft_cpx_float32_t));
static_assert(offsetof(krel_complex_t, r) == offsetof(ne10_fft_cpx_float32_t, r));
static_assert(offsetof(krel_complex_t, i) == offsetof(ne10_fft_cpx_float32_t, i));

ne10_fft_cfg_float32_t native(krel_fft_t* cfg) {
    return reinterpret_cast<ne10_fft_cfg_float32_t>(cfg);
}
ne10_fft_cpx_float32_t* native(krel_complex_t* values) {
    return reinterpret_cast<ne10_fft_cpx_float32_t*>(values);
}

/// Taylor series, to the last bits of a double for |x| <= pi / 2.
constexpr double sine(double x) {
    double term = x;
    double sum = x;
    for (int n = 2; n < 26; n += 2) {
        term *= -x * x / (n * (n + 1));
        sum += term;
    }
    return sum;
}

/// Half of exp(-2 pi i k / N) for k = 0..Half-1, N = 2 Half; real and imaginary parts apart, for
/// the vector unit.
template <int Half>
struct turn_table {
    std::array<double, Half> r;
    std::array<double, Half> i;
};

template <int Half>
constexpr turn_table<Half> make_turns() {
    constexpr double kQuarter = 1.5707963267948966;
    turn_table<Half> turns = {};
    for (int k = 0; k < Half; ++k) {
        const double beyond_quarter = (2.0 * k / Half - 1.0) * kQuarter;
        const auto at = static_cast<size_t>(k);
        turns.r[at] = -0.5 * sine(beyond_quarter);
        turns.i[at] =
                -0.5 * sine(2 * k < Half ? beyond_quarter + kQuarter : kQuarter - beyond_quarter);
    }
    return turns;
}

constexpr auto kTurns256 = make_turns<256>();
constexpr auto kTurns512 = make_turns<512>();
constexpr auto kTurns1024 = make_turns<1024>();

// Below, the N real values are N/2 = `half` complex ones, whose transform Z holds both the even
// samples' transform E and the odd samples' O: E is the part of Z with E[half - k] = conj E[k], i O
// (or -i O) the other one. X[k] = E[k] + exp(-2 pi i k / N) O[k].

/// A complex value as one piece: reversing the order of pairs of floats does not vectorise.
using Piece [[gnu::may_alias]] = uint64_t;
static_assert(sizeof(Piece) == sizeof(krel_complex_t));

/// to[k] = from[half - k], k = 1..half-1. Both aligned to 8 bytes.
void mirror(const krel_complex_t* from, krel_complex_t* to, int half) {
    const auto* const source = reinterpret_cast<const Piece*>(from);
    auto* const target = reinterpret_cast<Piece*>(to);
    for (int k = 1; k < half; ++k) target[k] = source[half - k];
}

// Bins on the edge of a decision (a phase near half a turn) go the way of the last bits. In each
// size those are rounded where the conformance vectors, made with complex transforms, find no such
// bin on the other side: in double throughout at 512 and 1024 points, later in single precision at
// 2048, where that is also the quicker way.
template <int Half>
constexpr bool kAllInDouble = Half < 1024;
/// Whether the odd samples are packed with a minus.
template <int Half>
constexpr bool kMinus = !kAllInDouble<Half>;
template <int Half>
using Real = std::conditional_t<kAllInDouble<Half>, double, float>;

/// z is the transform of the even samples plus or less i times the odd ones.
template <int Half>
void split(const krel_complex_t* z, const krel_complex_t* mirrored, krel_complex_t* x,
           const turn_table<Half>& w) {
    constexpr double kSign = kMinus<Half> ? -1.0 : 1.0;
    for (int k = 1; k < Half; ++k) {
        const auto even_r = 0.5f * (Real<Half>{z[k].r} + mirrored[k].r);
        const auto even_i = 0.5f * (Real<Half>{z[k].i} - mirrored[k].i);
        const double odd_r = kSign * (double{z[k].i} + mirrored[k].i);  // twice, as w is half
        const double odd_i = kSign * (double{mirrored[k].r} - z[k].r);
        const auto at = static_cast<size_t>(k);
        const double turned_r = w.r[at] * odd_r - w.i[at] * odd_i;
        x[k].r = static_cast<float>(even_r + static_cast<Real<Half>>(turned_r));
        x[k].i = static_cast<float>(even_i + (w.r[at] * odd_i + w.i[at] * odd_r));
    }
    constexpr auto kFirst = static_cast<float>(kSign);
    x[0] = {z[0].r + kFirst * z[0].i, 0.0f};
    x[Half] = {z[0].r - kFirst * z[0].i, 0.0f};
}

/// The reverse, of half of x: the other half belongs to the bins above N/2, of which nothing is
/// known here but that they complete a real signal. Always packed with a plus.
template <int Half>
void merge(const krel_complex_t* x, const krel_complex_t* mirrored, krel_complex_t* z,
           const turn_table<Half>& w) {
    using Value = Real<Half>;
    for (int k = 1; k < Half; ++k) {
        const Value even_r = 0.5f * (Value{x[k].r} + mirrored[k].r);
        const Value even_i = 0.5f * (Value{x[k].i} - mirrored[k].i);
        const Value turned_r = Value{x[k].r} - mirrored[k].r;
        const Value turned_i = Value{x[k].i} + mirrored[k].i;
        const auto at = static_cast<size_t>(k);
        const auto w_r = static_cast<Value>(w.r[at]);
        const auto w_i = static_cast<Value>(w.i[at]);
        const Value odd_r = w_r * turned_r + w_i * turned_i;
        const Value odd_i = w_r * turned_i - w_i * turned_r;
        z[k].r = static_cast<float>(0.5f * (even_r - odd_i));
        z[k].i = static_cast<float>(0.5f * (even_i + odd_r));
    }
    z[0] = {0.5f * (x[0].r + x[Half].r), 0.5f * (x[0].r - x[Half].r)};
}

#ifdef KREL_FAST_PATHS
extern "C" decltype(ne10_fft_c2c_1d_float32_neon) ne10_fft_c2c_1d_float32_avx2;
#endif

/// The transform of `from` into `to`. Ne10's is chosen here: its source is not ours to mark.
void transform(krel_fft_t* cfg, krel_complex_t* from, krel_complex_t* to, int inverse) {
#ifdef KREL_FAST_PATHS
    if (__builtin_cpu_supports("avx2"))
        return ne10_fft_c2c_1d_float32_avx2(native(to), native(from), native(cfg), inverse);
#endif
    ne10_fft_c2c_1d_float32_neon(native(to), native(from), native(cfg), inverse);
}

template <typename Function>
void with_turns(int half, Function function) {
    if (half == 256) return function(kTurns256);
    if (half == 512) return function(kTurns512);
    function(kTurns1024);
}

}  // namespace

krel_fft_t* fft_create(int32_t size) {
    return reinterpret_cast<krel_fft_t*>(ne10_fft_alloc_c2c_float32_neon(size / 2));
}

void fft_destroy(krel_fft_t*& cfg) {
    if (cfg != nullptr) ne10_fft_destroy_c2c_float32(native(cfg));
    cfg = nullptr;
}

KREL_FAST
void fft_forward(krel_fft_t* cfg, krel_complex_t* work, krel_complex_t* spectrum) {
    const int half = native(cfg)->nfft;
    krel_complex_t* const z = work + half;
    with_turns(half, [&]<int Half>(const turn_table<Half>& turns) {
        for (int k = 0; kMinus<Half> && k < Half; ++k) work[k].i = -work[k].i;
        transform(cfg, work, z, 0);
        mirror(z, work, Half);
        split(z, work, spectrum, turns);
    });
}

KREL_FAST
void fft_inverse(krel_fft_t* cfg, krel_complex_t* spectrum, krel_complex_t* work) {
    const int half = native(cfg)->nfft;
    krel_complex_t* const z = work + half;
    krel_complex_t* const mirrored = spectrum + half;  // [0] stays the Nyquist bin
    mirror(spectrum, mirrored, half);
    with_turns(half, [&](const auto& turns) { merge(spectrum, mirrored, z, turns); });
    transform(cfg, z, work, 1);
}

}  // namespace krel
