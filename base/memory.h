// SPDX-License-Identifier: Apache-2.0
// Owners for memory that C records hold: it comes from calloc and goes back through free. Nothing
// throws.
#ifndef KREL_BASE_MEMORY_H
#define KREL_BASE_MEMORY_H

#include <stdint.h>
#include <stdlib.h>

#include <memory>
#include <type_traits>

namespace krel {

struct free_deleter {
    void operator()(void* p) const { free(p); }
};

/// Owns one calloc-ed array (or one record) until release() hands it to a C record.
template <typename T>
using c_array = std::unique_ptr<T[], free_deleter>;
template <typename T>
using c_record = std::unique_ptr<T, free_deleter>;

/// `count` zeroed elements; null when count < 1 or memory is short. calloc checks the product for
/// overflow.
template <typename T>
T* zeroed_raw(int64_t count) {
    static_assert(std::is_trivial_v<T>);
    if (count < 1) return nullptr;
    return static_cast<T*>(calloc(static_cast<size_t>(count), sizeof(T)));
}
template <typename T>
c_array<T> zeroed(int64_t count) {
    return c_array<T>(zeroed_raw<T>(count));
}

/// Frees what the record's field points to and clears the field, so that a second release is
/// harmless.
template <typename T>
void release(T*& field) {
    free(field);
    field = nullptr;
}

}  // namespace krel

#endif
