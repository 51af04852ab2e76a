// SPDX-License-Identifier: Apache-2.0
// The sample FIFO operations. The records that hold FIFOs keep their own field names and lend them
// as a ring_view.
//
// Overrun drops the oldest sample, underrun yields silence. Not thread safe: the caller holds the
// lock.
#ifndef KREL_BASE_RING_H
#define KREL_BASE_RING_H

#include <stddef.h>
#include <stdint.h>

namespace krel {

/// The next index of a ring of `size` slots.
constexpr int32_t ring_next(int32_t index, int32_t size) {
    return index + 1 < size ? index + 1 : 0;
}

/// The index `steps` further on; 0 <= steps <= size.
constexpr int32_t ring_advance(int32_t index, int32_t steps, int32_t size) {
    return steps < size - index ? index + steps : steps - (size - index);
}

/// How many of `wanted` slots from `index` on come before the ring wraps; at least 1 when wanted
/// is.
constexpr int32_t ring_run(int32_t index, int32_t size, int32_t wanted) {
    return wanted < size - index ? wanted : size - index;
}

/// A record's own FIFO fields, whatever it calls them.
struct ring_view {
    int32_t capacity;  // slots, at least 1
    int32_t& count;
    int32_t& read;
    int32_t& write;
};

template <typename T>
void ring_push(ring_view r, T* data, T sample) {
    data[r.write] = sample;
    r.write = ring_next(r.write, r.capacity);
    if (r.count == r.capacity) {
        r.read = ring_next(r.read, r.capacity);
    } else {
        ++r.count;
    }
}

template <typename T>
T ring_pop(ring_view r, const T* data) {
    if (r.count < 1) {
        r.count = 0;
        r.write = r.read;
        return 0;
    }
    const T sample = data[r.read];
    r.read = ring_next(r.read, r.capacity);
    --r.count;
    return sample;
}

/// Pushes n samples, kStride apart, in order.
template <size_t kStride = 1, typename T>
void ring_push_n(ring_view r, T* data, const T* from, size_t n) {
    if (r.count < 0 || n > static_cast<size_t>(r.capacity - r.count)) {
        for (size_t i = 0; i < n; ++i) ring_push(r, data, from[i * kStride]);
        return;
    }
    // Room for all: two plain copies, up to the end of the ring and from its start.
    const size_t first =
            static_cast<size_t>(ring_run(r.write, r.capacity, static_cast<int32_t>(n)));
    for (size_t i = 0; i < first; ++i) data[static_cast<size_t>(r.write) + i] = from[i * kStride];
    for (size_t i = first; i < n; ++i) data[i - first] = from[i * kStride];
    r.count += static_cast<int32_t>(n);
    r.write = ring_advance(r.write, static_cast<int32_t>(n), r.capacity);
}

/// Pops n samples, each into kCopies places in a row.
template <size_t kCopies = 1, typename T>
void ring_pop_n(ring_view r, const T* data, T* to, size_t n) {
    const auto fill = [to](size_t i, T sample) {
        for (size_t copy = 0; copy < kCopies; ++copy) to[kCopies * i + copy] = sample;
    };
    if (r.count < 0 || n > static_cast<size_t>(r.count)) {
        for (size_t i = 0; i < n; ++i) fill(i, ring_pop(r, data));
        return;
    }
    const size_t first = static_cast<size_t>(ring_run(r.read, r.capacity, static_cast<int32_t>(n)));
    for (size_t i = 0; i < first; ++i) fill(i, data[static_cast<size_t>(r.read) + i]);
    for (size_t i = first; i < n; ++i) fill(i, data[i - first]);
    r.count -= static_cast<int32_t>(n);
    r.read = ring_advance(r.read, static_cast<int32_t>(n), r.capacity);
}

}  // namespace krel

#endif
