/* SPDX-License-Identifier: Apache-2.0 */
/**
 * Shape-preserving piecewise cubic Hermite interpolation: monotone data give a monotone curve.
 * Slopes at inner knots are weighted harmonic means (Fritsch and Butland), slopes at the ends
 * three-point formulas limited so that no piece overshoots (Fritsch and Carlson; the family is
 * widely known as "pchip").
 *
 * Single precision throughout. Not for the audio path: building a curve allocates, and a query
 * searches linearly.
 */
#ifndef KREL_DSP_CUBIC_INTERP_H
#define KREL_DSP_CUBIC_INTERP_H

#include <stdint.h>

#include "base/export.h"

KREL_C_BEGIN

/**
 * A piecewise cubic. Piece j, of n - 1, is coef0[j] + t coef1[j] + t^2 coef2[j] + t^3 coef3[j] with
 * t = x - breaks[j], for x up to breaks[j + 1]. Each array has n entries; the last one of the
 * coefficients is 0.
 */
typedef struct Poly {
    int32_t n; /**< knots */
    float* coef3;
    float* coef2;
    float* coef1;  /**< slopes at the knots */
    float* coef0;  /**< values at the knots */
    float* breaks; /**< abscissae of the knots, increasing */
} Poly;

/**
 * Builds the curve through n knots (x[i], y[i]); x strictly increasing, n >= 2. Both arrays are
 * copied.
 *
 * With two knots the curve is not a straight line: it flattens toward its right end, where the
 * slope is 0.
 *
 * Returns a handle, a Poly, for cubicinterp_deinit(); null for n < 2, a null array or when memory
 * is short.
 */
KREL_EXPORT void* cubicinterp_init(float* x, float* y, int n);

/**
 * Evaluates the curve at m points xq[i], in any order, into yq[i]; xq and yq may be the same array.
 * A knot belongs to the piece on its left. Outside the knots the end pieces go on: they
 * extrapolate, and may leave the range of the data. Nothing happens for m < 1 or a null pointer.
 */
KREL_EXPORT void cubicinterp_process(void* handle, float* xq, float* yq, int m);

/** Frees the curve; null is accepted. */
KREL_EXPORT void cubicinterp_deinit(void* handle);

/**
 * Slopes d[0..n-1] at the knots x[0..n-1], from the slopes del[0..n-2] of the straight lines
 * between them. d must be zeroed before: entries whose slope is 0 are not written. With two knots
 * only d[0] is written. y is not read. Nothing happens for n < 2 or a null x, del or d.
 */
KREL_EXPORT void pchipslopes(float* x, float* y, float* del, float* d, int n);

/**
 * Coefficients of the n - 1 pieces into the arrays of *pp, from values y and slopes d at the knots,
 * widths h and slopes del of the intervals. x is not read; breaks and n of *pp are left alone.
 * Nothing happens for n < 2 or a null pointer.
 */
KREL_EXPORT void pwch(float* x, float* y, float* d, float* h, float* del, int n, Poly* pp);

KREL_C_END

#endif
