// SPDX-License-Identifier: Apache-2.0
#include <algorithm>

#include "bench/voice_blocks.h"
#include "delay/reverb.h"
#include "tests/support/signals.h"

namespace {

using krel_bench::kRate;

// Settings of the first reverberating voice at 44.1 kHz and above. Arg: 0 mono, 1 stereo.
void BM_Reverb(benchmark::State& state) {
    const bool stereo = state.range(0) != 0;
    const auto voice = krel_test::voice_s16(kRate, kRate);
    reverb_t rv;
    reverb_init(&rv);
    reverb_setroomsize(&rv, 256);
    reverb_setdamp(&rv, 256);
    reverb_setwet(&rv, 512);
    reverb_setdry(&rv, 3072);
    reverb_setwidth(&rv, 2048);
    reverb_setgain(&rv, 1024);
    reverb_update(&rv);
    int16_t right[krel::kVoiceBlock];
    krel_bench::run_voice<int16_t>(state, voice, [&](int16_t* left) {
        if (!stereo) return reverb_process_mono(&rv, left, left, krel::kVoiceBlock);
        std::copy_n(left, krel::kVoiceBlock, right);
        reverb_process_stereo(&rv, left, right, left, right, krel::kVoiceBlock);
    });
    reverb_end(&rv);
}
BENCHMARK(BM_Reverb)->ArgName("stereo")->Arg(0)->Arg(1);

}  // namespace
