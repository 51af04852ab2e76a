// SPDX-License-Identifier: Apache-2.0
#include "tests/support/platform.h"

#include <fcntl.h>
#include <malloc.h>
#include <pthread.h>
#include <stdarg.h>
#include <stdio.h>

#include <algorithm>
#include <atomic>
#include <string_view>

#include "wrapper/voice_changer.h"

namespace krel_test {
namespace {

Gate* g_gate = nullptr;
LogCapture* g_log = nullptr;

// Relaxed throughout: a count must not order the threads of a test that looks for missing order.
std::atomic<int64_t> g_blocks, g_bytes;
int64_t bytes_of(void* p) { return static_cast<int64_t>(malloc_usable_size(p)); }
void count(int64_t blocks, int64_t bytes) {
    g_blocks.fetch_add(blocks, std::memory_order_relaxed);
    g_bytes.fetch_add(bytes, std::memory_order_relaxed);
}
void* take(void* p) {
    if (p != nullptr) count(1, bytes_of(p));
    return p;
}

bool refuse(size_t size) {
    if (g_gate == nullptr) return false;
    g_gate->largest = std::max(g_gate->largest, size);
    const int number = ++g_gate->allocations;
    return g_gate->failed() && (g_gate->from_there_on || number == g_gate->fail_at);
}

}  // namespace

Gate::Gate(int fail, bool rest) : fail_at(fail), from_there_on(rest) { g_gate = this; }
Gate::~Gate() { g_gate = nullptr; }
Gate* Gate::open() { return g_gate; }
Live live() { return {g_blocks.load(), g_bytes.load()}; }

LogCapture::LogCapture() { g_log = this; }
LogCapture::~LogCapture() { g_log = nullptr; }

}  // namespace krel_test

using namespace krel_test;

extern "C" {

void* __real_malloc(size_t size);
void* __real_calloc(size_t count, size_t size);
void* __real_realloc(void* p, size_t size);
void __real_free(void* p);
FILE* __real_fopen(const char* path, const char* mode);
size_t __real_fwrite(const void* data, size_t size, size_t count, FILE* file);
int __real_pthread_mutex_lock(pthread_mutex_t* mutex);

void* __wrap_malloc(size_t size) { return refuse(size) ? nullptr : take(__real_malloc(size)); }
void* __wrap_calloc(size_t n, size_t size) {
    return refuse(n * size) ? nullptr : take(__real_calloc(n, size));
}
void* __wrap_realloc(void* p, size_t size) {
    if (g_gate != nullptr && p != nullptr) ++g_gate->reallocations;
    if (refuse(size)) return nullptr;
    const int64_t old_bytes = bytes_of(p);
    void* moved = __real_realloc(p, size);
    if (moved != nullptr) count(p == nullptr ? 1 : 0, bytes_of(moved) - old_bytes);
    return moved;
}
void __wrap_free(void* p) {
    if (g_gate != nullptr && p != nullptr) ++g_gate->frees;
    if (p != nullptr) count(-1, -bytes_of(p));
    __real_free(p);
}

// Under either name, as the file offsets' width has it.
int __real_open(const char* path, int flags, mode_t mode);
int __wrap_open(const char* path, int flags, mode_t mode) {
    if ((flags & O_TMPFILE) == O_TMPFILE && !g_has_nameless_files) return -1;
    return __real_open(path, flags, mode);
}
int __wrap_open64(const char* path, int flags, mode_t mode) {
    return __wrap_open(path, flags | O_LARGEFILE, mode);
}
FILE* __wrap_fopen(const char* path, const char* mode) {
    if (g_gate != nullptr) ++g_gate->files;
    if (!std::string_view(path).starts_with("/data/")) return __real_fopen(path, mode);
    if (g_gate == nullptr || mode != std::string_view("ab+")) return nullptr;
    g_gate->dumps.emplace_back(path, "");
    return __real_fopen("/dev/null", mode);
}
size_t __wrap_fwrite(const void* data, size_t size, size_t n, FILE* file) {
    if (g_gate == nullptr || g_gate->dumps.empty()) return __real_fwrite(data, size, n, file);
    g_gate->dumps.back().second.append(static_cast<const char*>(data), size * n);
    return n;
}

int __wrap_pthread_mutex_lock(pthread_mutex_t* mutex) {
    if (g_gate != nullptr) ++(mutex == &mVcpLock ? g_gate->vcp_locks : g_gate->other_locks);
    return __real_pthread_mutex_lock(mutex);
}

int __wrap___android_log_print(int level, const char* tag, const char* format, ...) {
    char text[1024];
    va_list arguments;
    va_start(arguments, format);
    const int length = vsnprintf(text, sizeof text, format, arguments);
    va_end(arguments);
    if (g_log != nullptr) g_log->lines.push_back(std::to_string(level) + ' ' + tag + ": " + text);
    return length;
}

}  // extern "C"
