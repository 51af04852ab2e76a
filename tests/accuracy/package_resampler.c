// SPDX-License-Identifier: Apache-2.0
// The package's resampler under names of its own: package_resampler_init() and so on.
#include <speex/speexdsp_types.h>

#define OUTSIDE_SPEEX
#define RANDOM_PREFIX package
#define FIXED_POINT
#define VAR_ARRAYS
#define EXPORT
#include <libspeexdsp/resample.c>
