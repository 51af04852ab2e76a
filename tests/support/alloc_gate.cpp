#include "tests/support/alloc_gate.h"

#include <stddef.h>

#include <atomic>

namespace {

std::atomic<bool> g_open{false};
std::atomic<int> g_allocations{0};
std::atomic<int> g_frees{0};
std::atomic<int> g_fail_at{0};
std::atomic<bool> g_from_there_on{false};

/// Counts one allocation; true when it is the one to refuse.
bool refuse() {
    if (!g_open) return false;
    const int number = ++g_allocations;
    const int fail_at = g_fail_at;
    return fail_at > 0 && (g_from_there_on ? number >= fail_at : number == fail_at);
}

}  // namespace

extern "C" {

void* __real_malloc(size_t size);
void* __real_calloc(size_t count, size_t size);
void* __real_realloc(void* p, size_t size);
void* __real_aligned_alloc(size_t alignment, size_t size);
int __real_posix_memalign(void** p, size_t alignment, size_t size);
void __real_free(void* p);

void* __wrap_malloc(size_t size) { return refuse() ? nullptr : __real_malloc(size); }
void* __wrap_calloc(size_t count, size_t size) {
    return refuse() ? nullptr : __real_calloc(count, size);
}
void* __wrap_realloc(void* p, size_t size) { return refuse() ? nullptr : __real_realloc(p, size); }
void* __wrap_aligned_alloc(size_t alignment, size_t size) {
    return refuse() ? nullptr : __real_aligned_alloc(alignment, size);
}
int __wrap_posix_memalign(void** p, size_t alignment, size_t size) {
    constexpr int kNoMemory = 12;
    return refuse() ? kNoMemory : __real_posix_memalign(p, alignment, size);
}
void __wrap_free(void* p) {
    if (g_open && p != nullptr) ++g_frees;
    __real_free(p);
}

}  // extern "C"

namespace krel_test {

AllocGate::AllocGate(int fail_at, bool from_there_on) {
    g_allocations = 0;
    g_frees = 0;
    g_fail_at = fail_at;
    g_from_there_on = from_there_on;
    g_open = true;
}
AllocGate::~AllocGate() { g_open = false; }
int AllocGate::allocations() const { return g_allocations; }
int AllocGate::frees() const { return g_frees; }
bool AllocGate::failed() const { return g_fail_at > 0 && g_allocations >= g_fail_at; }

}  // namespace krel_test
