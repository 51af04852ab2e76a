#include "tests/support/alloc_gate.h"

#include <malloc.h>
#include <stddef.h>

#include <atomic>

namespace {

/// Relaxed throughout: a count must not order the threads of a test that looks for missing order.
template <typename T>
class Count {
  public:
    T add(T n) { return value_.fetch_add(n, std::memory_order_relaxed) + n; }
    void set(T n) { value_.store(n, std::memory_order_relaxed); }
    [[nodiscard]] T get() const { return value_.load(std::memory_order_relaxed); }

  private:
    std::atomic<T> value_{};
};

Count<int64_t> g_live_blocks, g_live_bytes;
Count<size_t> g_largest;
Count<int> g_open, g_allocations, g_reallocations, g_frees, g_fail_at, g_from_there_on;

/// Counts one allocation of `size` bytes; true when it is the one to refuse.
bool refuse(size_t size) {
    if (g_open.get() == 0) return false;
    if (size > g_largest.get()) g_largest.set(size);
    const int number = g_allocations.add(1);
    const int fail_at = g_fail_at.get();
    return fail_at > 0 && (g_from_there_on.get() != 0 ? number >= fail_at : number == fail_at);
}

int64_t bytes_of(void* p) { return static_cast<int64_t>(malloc_usable_size(p)); }

void* take(void* p) {
    if (p != nullptr) {
        g_live_blocks.add(1);
        g_live_bytes.add(bytes_of(p));
    }
    return p;
}
void give(void* p) {
    if (p == nullptr) return;
    g_live_blocks.add(-1);
    g_live_bytes.add(-bytes_of(p));
}

}  // namespace

extern "C" {

void* __real_malloc(size_t size);
void* __real_calloc(size_t count, size_t size);
void* __real_realloc(void* p, size_t size);
void* __real_aligned_alloc(size_t alignment, size_t size);
int __real_posix_memalign(void** p, size_t alignment, size_t size);
void __real_free(void* p);

void* __wrap_malloc(size_t size) { return refuse(size) ? nullptr : take(__real_malloc(size)); }
void* __wrap_calloc(size_t count, size_t size) {
    return refuse(count * size) ? nullptr : take(__real_calloc(count, size));
}
void* __wrap_realloc(void* p, size_t size) {
    if (g_open.get() != 0 && p != nullptr) g_reallocations.add(1);
    if (refuse(size)) return nullptr;
    const int64_t old_bytes = bytes_of(p);
    void* moved = __real_realloc(p, size);
    if (p == nullptr) return take(moved);
    if (moved != nullptr) g_live_bytes.add(bytes_of(moved) - old_bytes);
    return moved;
}
void* __wrap_aligned_alloc(size_t alignment, size_t size) {
    return refuse(size) ? nullptr : take(__real_aligned_alloc(alignment, size));
}
int __wrap_posix_memalign(void** p, size_t alignment, size_t size) {
    constexpr int kNoMemory = 12;
    if (refuse(size)) return kNoMemory;
    const int result = __real_posix_memalign(p, alignment, size);
    if (result == 0) take(*p);
    return result;
}
void __wrap_free(void* p) {
    if (g_open.get() != 0 && p != nullptr) g_frees.add(1);
    give(p);
    __real_free(p);
}

}  // extern "C"

namespace krel_test {

AllocGate::AllocGate(int fail_at, bool from_there_on) {
    g_allocations.set(0);
    g_reallocations.set(0);
    g_frees.set(0);
    g_largest.set(0);
    g_fail_at.set(fail_at);
    g_from_there_on.set(from_there_on ? 1 : 0);
    g_open.set(1);
}
AllocGate::~AllocGate() { g_open.set(0); }
int AllocGate::allocations() const { return g_allocations.get(); }
int AllocGate::reallocations() const { return g_reallocations.get(); }
int AllocGate::frees() const { return g_frees.get(); }
size_t AllocGate::largest() const { return g_largest.get(); }
bool AllocGate::failed() const {
    const int fail_at = g_fail_at.get();
    return fail_at > 0 && g_allocations.get() >= fail_at;
}

Live live() { return {g_live_blocks.get(), g_live_bytes.get()}; }

}  // namespace krel_test
