// SPDX-License-Identifier: Apache-2.0
// What every benchmark here reports: time per sample, as the counter "s/sample" (12.3n means 12.3
// ns).
#ifndef KREL_BENCH_REPORT_H
#define KREL_BENCH_REPORT_H

#include <benchmark/benchmark.h>
#include <stdint.h>

namespace krel_bench {

/// Call once after the timing loop; `samples` is the number processed per iteration (frames for
/// multi-channel audio).
inline void report_per_sample(benchmark::State& state, int64_t samples) {
    state.counters["s/sample"] =
            benchmark::Counter(static_cast<double>(state.iterations() * samples),
                               static_cast<benchmark::Counter::Flags>(benchmark::Counter::kIsRate |
                                                                      benchmark::Counter::kInvert));
}

}  // namespace krel_bench

#endif
