// SPDX-License-Identifier: Apache-2.0
#include "dsp/cubic_interp.h"

#include <math.h>

#include <algorithm>

#include "base/memory.h"

namespace krel {
namespace {

constexpr int sign(float v) { return (v > 0.0f ? 1 : 0) - (v < 0.0f ? 1 : 0); }

/// Widths h and slopes del of the n - 1 intervals between the knots.
/// h[0..n-2] become the widths and del[0..n-2] the slopes between the knots x[0..n-1], y[0..n-1].
void measure_intervals(const float* x, const float* y, float* h, float* del, int n) {
    for (int j = 0; j < n - 1; ++j) {
        h[j] = x[j + 1] - x[j];
        del[j] = (y[j + 1] - y[j]) / h[j];
    }
}

/// Slope between two intervals of widths h0, h1 and slopes del0, del1: their harmonic mean,
/// weighted by the widths.
float inner_slope(float h0, float h1, float del0, float del1) {
    const float hs = h0 + h1;
    const float w1 = (h0 + hs) / (3.0f * hs);
    const float w2 = (hs + h1) / (3.0f * hs);
    const float dmax = std::max(fabsf(del0), fabsf(del1));
    const float dmin = std::min(fabsf(del0), fabsf(del1));
    return dmin / (w1 * (del0 / dmax) + w2 * (del1 / dmax));
}

/// Slope at the outer side of an end interval (h0, del0) whose neighbour is (h1, del1).
float end_slope(float h0, float h1, float del0, float del1) {
    const float d = ((2.0f * h0 + h1) * del0 - h0 * del1) / (h0 + h1);
    if (sign(d) != sign(del0)) return 0.0f;
    if (sign(del0) != sign(del1) && fabsf(d) > fabsf(3.0f * del0)) return 3.0f * del0;
    return d;
}

/// The piece that a query belongs to, 0..n-2. Linear: a curve has a dozen knots.
int find_piece(const Poly* pp, float v) {
    int k = 1;
    while (k < pp->n - 1 && !(pp->breaks[k] >= v)) ++k;
    return k - 1;
}

/// The cubic of the query's piece, in powers of the distance from its left knot.
float evaluate(const Poly* pp, float v) {
    const int j = find_piece(pp, v);
    const float t = v - pp->breaks[j];
    return ((pp->coef0[j] + t * pp->coef1[j]) + t * (t * pp->coef2[j])) +
           t * (t * (t * pp->coef3[j]));
}

}  // namespace
}  // namespace krel

using namespace krel;

void* cubicinterp_init(float* x, float* y, int n) {
    if (x == nullptr || y == nullptr || n < 2) return nullptr;
    c_record<Poly> pp(zeroed_raw<Poly>(1));
    auto coef3 = zeroed<float>(n);
    auto coef2 = zeroed<float>(n);
    auto coef1 = zeroed<float>(n);
    auto coef0 = zeroed<float>(n);
    auto breaks = zeroed<float>(n);
    auto h = zeroed<float>(n);
    auto del = zeroed<float>(n);
    auto d = zeroed<float>(n);
    if (!pp || !coef3 || !coef2 || !coef1 || !coef0 || !breaks || !h || !del || !d) return nullptr;

    std::copy_n(x, n, breaks.get());
    measure_intervals(x, y, h.get(), del.get(), n);
    pchipslopes(x, y, del.get(), d.get(), n);
    *pp = {.n = n,
           .coef3 = coef3.release(),
           .coef2 = coef2.release(),
           .coef1 = coef1.release(),
           .coef0 = coef0.release(),
           .breaks = breaks.release()};
    pwch(x, y, d.get(), h.get(), del.get(), n, pp.get());
    return pp.release();
}

void cubicinterp_process(void* handle, float* xq, float* yq, int m) {
    if (handle == nullptr || xq == nullptr || yq == nullptr) return;
    const auto* pp = static_cast<const Poly*>(handle);
    for (int i = 0; i < m; ++i) yq[i] = evaluate(pp, xq[i]);
}

void cubicinterp_deinit(void* handle) {
    if (handle == nullptr) return;
    auto* pp = static_cast<Poly*>(handle);
    release(pp->breaks);
    release(pp->coef0);
    release(pp->coef1);
    release(pp->coef2);
    release(pp->coef3);
    free(pp);
}

void pchipslopes(float* x, float* /*y*/, float* del, float* d, int n) {
    if (x == nullptr || del == nullptr || d == nullptr || n < 2) return;
    if (n == 2) {
        d[0] = del[0];  // Deliberate: d[1] stays 0.
        return;
    }
    const auto width = [x](int k) { return x[k + 1] - x[k]; };
    for (int k = 1; k < n - 1; ++k) {
        if (sign(del[k - 1]) * sign(del[k]) < 1) continue;  // an extremum, or flat on one side
        d[k] = inner_slope(width(k - 1), width(k), del[k - 1], del[k]);
    }
    d[0] = end_slope(width(0), width(1), del[0], del[1]);
    d[n - 1] = end_slope(width(n - 2), width(n - 3), del[n - 2], del[n - 3]);
}

void pwch(float* /*x*/, float* y, float* d, float* h, float* del, int n, Poly* pp) {
    if (y == nullptr || d == nullptr || h == nullptr || del == nullptr || pp == nullptr) return;
    for (int j = 0; j < n - 1; ++j) {
        const float a = (del[j] - d[j]) / h[j];
        const float b = (d[j + 1] - del[j]) / h[j];
        pp->coef0[j] = y[j];
        pp->coef1[j] = d[j];
        pp->coef2[j] = 2.0f * a - b;
        pp->coef3[j] = (b - a) / h[j];
    }
}
