// SPDX-License-Identifier: Apache-2.0
// Periodic Hann windows of the three transform sizes, 0.5 - 0.5 cos(2 pi n / size), rounded to six decimals.
#ifndef KREL_TABLES_HANN_H
#define KREL_TABLES_HANN_H

namespace krel {

// NOLINTBEGIN(bugprone-dynamic-static-initializers): constants, nothing runs to set them
extern const float kHann512[512];
extern const float kHann1024[1024];
extern const float kHann2048[2048];
// NOLINTEND(bugprone-dynamic-static-initializers)

/// The window for a transform of `size` points: 512, 1024 or, for every other value, 2048.
constexpr const float* hann_window(int size) {
    return size == 512 ? kHann512 : size == 1024 ? kHann1024 : kHann2048;
}

}  // namespace krel

#endif
