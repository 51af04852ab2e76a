// SPDX-License-Identifier: Apache-2.0
#include "engine/services.h"

#include <stdarg.h>
#include <stdio.h>

#include "base/log.h"
#include "base/random.h"

namespace krel {
namespace {

constexpr int kLongestLine = 256;

thread_local engine_client* t_client = nullptr;

__attribute__((format(printf, 3, 4))) int log_to_client(int priority, const char* /*tag*/,
                                                        const char* format, ...) {
    if (t_client == nullptr || t_client->log == nullptr) return 0;
    char line[kLongestLine];
    va_list arguments;
    va_start(arguments, format);
    const int length = vsnprintf(line, sizeof line, format, arguments);
    va_end(arguments);
    t_client->log(t_client->context, priority, line);
    return length;
}

__attribute__((format(printf, 3, 4))) int log_nothing(int /*priority*/, const char* /*tag*/,
                                                      const char* /*format*/, ...) {
    return 0;
}

}  // namespace

extern const log_print_t log_print = log_to_client;
extern const log_print_t log_print_audio = log_nothing;

int random_draw() {
    return t_client == nullptr
                   ? 0
                   : unseeded_draw(t_client->drawn.fetch_add(1, std::memory_order_relaxed));
}

serving::serving(engine_client* client) : before_(t_client) { t_client = client; }
serving::~serving() { t_client = before_; }

int unseeded_draw(uint32_t n) {
    // x[i] = x[i - 3] + x[i - 31] mod 2^32, its upper 31 bits; the first 344 are not used. They
    // begin with 31 terms of Park and Miller's generator (Communications of the ACM 31, 1988),
    // begun at 1, three of them repeated.
    constexpr uint32_t kTerms = 31;
    constexpr uint32_t kLag = 3;
    constexpr uint32_t kUnused = 344;
    uint32_t x[kTerms] = {1};
    for (uint32_t i = 1; i < kTerms; ++i)
        x[i] = static_cast<uint32_t>(uint64_t{16807} * x[i - 1] % 2147483647);
    for (uint32_t i = kTerms + kLag; i <= kUnused + n; ++i) {
        x[i % kTerms] += x[(i - kLag) % kTerms];
    }
    return static_cast<int>(x[(kUnused + n) % kTerms] >> 1);
}

}  // namespace krel
