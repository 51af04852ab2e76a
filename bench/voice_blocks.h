// SPDX-License-Identifier: Apache-2.0
// Feeds a voice to whatever is measured, block by block and over and over.
#ifndef KREL_BENCH_VOICE_BLOCKS_H
#define KREL_BENCH_VOICE_BLOCKS_H

#include <stddef.h>

#include <algorithm>
#include <vector>

#include "bench/report.h"
#include "core/voice_block.h"

namespace krel_bench {

inline constexpr int kRate = 48000;

/// Times process(block) on block after block of `voice`, samples of type T, which it may change.
template <typename T, typename Process>
void run_voice(benchmark::State& state, const std::vector<int16_t>& voice, Process process) {
    std::vector<T> block(krel::kVoiceBlock);
    size_t at = 0;
    for (auto _ : state) {
        std::copy_n(voice.begin() + static_cast<ptrdiff_t>(at), block.size(), block.begin());
        at = at + 2 * block.size() <= voice.size() ? at + block.size() : 0;
        process(block.data());
        benchmark::DoNotOptimize(block.data());
        benchmark::ClobberMemory();
    }
    report_per_sample(state, krel::kVoiceBlock);
}

}  // namespace krel_bench

#endif
