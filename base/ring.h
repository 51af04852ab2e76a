// The sample FIFO operations. The records that hold FIFOs keep their own field names and lend them as a ring_view.
//
// Overrun drops the oldest sample, underrun yields silence. Not thread safe: the caller holds the lock.
#ifndef KREL_BASE_RING_H
#define KREL_BASE_RING_H

#include <stdint.h>

namespace krel {

/// The next index of a ring of `size` slots.
constexpr int32_t ring_next(int32_t index, int32_t size) {
    return index + 1 < size ? index + 1 : 0;
}

/// How many of `wanted` slots from `index` on come before the ring wraps; at least 1 when wanted is.
constexpr int32_t ring_run(int32_t index, int32_t size, int32_t wanted) {
    return wanted < size - index ? wanted : size - index;
}
/// The index after a run of ring_run() slots.
constexpr int32_t ring_skip(int32_t index, int32_t run, int32_t size) {
    return ring_next(index + run - 1, size);
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

}  // namespace krel

#endif
