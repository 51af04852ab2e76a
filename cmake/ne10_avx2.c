// SPDX-License-Identifier: Apache-2.0
// Ne10's transforms of 2^n points once more, for AVX2 and under names of their own:
// base/fast_paths.h.
#define ne10_fft_c2c_1d_float32_neon ne10_fft_c2c_1d_float32_avx2
#define ne10_mixed_radix_fft_forward_float32_neon ne10_fft_forward_avx2
#define ne10_mixed_radix_fft_backward_float32_neon ne10_fft_backward_avx2
#define asm(name)  // its headers name symbols for assembly too
#include <NE10_fft_float32.neonintrinsic.c>
