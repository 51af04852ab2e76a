// SPDX-License-Identifier: Apache-2.0
// The only source of randomness. Who links the folders together brings it (see base/system.cpp).
#ifndef KREL_BASE_RANDOM_H
#define KREL_BASE_RANDOM_H

namespace krel {

/// The next draw, 0 to 2^31 - 1.
int random_draw();

}  // namespace krel

#endif
