// SPDX-License-Identifier: Apache-2.0
#include "dsp/drc.h"

#include <algorithm>

#include "base/fast_paths.h"
#include "base/fixed_point.h"
#include "base/memory.h"

namespace krel {
namespace {

constexpr int32_t kUnityQ17 = 1 << 17;
constexpr int32_t kGateFloorQ13 = 1536;  // 0.1875
constexpr int32_t kSafetyQ13 = 7936;     // 0.96875: a limited block aims 3 % below the exact ratio
constexpr int32_t kLeastNoiseFloor = 2;
constexpr int kRun = 128;  // samples whose gains are worked out at a time

struct block_level {
    int32_t peak;
    int32_t mean;
};

KREL_FAST block_level measure(const int32_t* in, int n) {
    int32_t peak = 0;
    uint64_t sum = 0;
    for (int i = 0; i < n; ++i) {
        const int32_t magnitude = abs_wrap_s32(in[i]);
        peak = std::max(peak, magnitude);
        sum += static_cast<uint32_t>(magnitude);
    }
    return {peak, n > 0 ? wrap_s32(static_cast<int64_t>(sum) / n) : 0};
}

void follow_mean(drc_t* drc, int32_t mean) {
    const int32_t d = sub_wrap_s32(mean, drc->mean_level);
    drc->mean_level = add_wrap_s32(drc->mean_level, mean > drc->mean_level ? d >> 4 : d >> 5);
}

int32_t gate_target_q17(const drc_t* drc) {
    if (drc->mean_level >= drc->noise_floor) return kUnityQ17;
    const int32_t ratio_q13 = shl_wrap_s32(drc->mean_level, 13) / drc->noise_floor;
    return shl_wrap_s32(std::max(ratio_q13, kGateFloorQ13), 4);
}

void follow_peak(drc_t* drc, int32_t peak) {
    const auto product = static_cast<uint64_t>(mul_wide(peak, drc->gain));
    const auto level = static_cast<int32_t>(static_cast<uint32_t>(product >> 13));
    const int32_t d = sub_wrap_s32(level, drc->envelope);
    const int32_t shift = level > drc->envelope ? drc->attack_shift : drc->release_shift;
    drc->envelope = add_wrap_s32(drc->envelope, asr_s32(d, shift));
}

/// The gain that this block asks for, Q13. Holds the envelope at the threshold.
int32_t block_gain_q13(drc_t* drc) {
    if (drc->envelope > drc->threshold) {
        // Only a threshold below 0 lets the envelope be 0 here; there is no ratio then.
        const int64_t limit = mul_wide(drc->threshold, drc->gain);
        const int32_t ratio_q13 = drc->envelope == 0 ? 0 : wrap_s32(limit / drc->envelope);
        drc->envelope = drc->threshold;
        return mul_wrap_s32(ratio_q13, kSafetyQ13) >> 13;
    }
    const int32_t applied_q13 = drc->current_gain >> 4;
    if (drc->gain <= applied_q13) return drc->gain;
    return add_wrap_s32(applied_q13, sub_wrap_s32(drc->gain, applied_q13) >> 1);
}

/// Enters the newest target as history[history_len], returns the least of history[0..history_len]
/// and moves them down by one; Q17.
int32_t least_recent_gain(drc_t* drc, int32_t newest_q17) {
    int32_t* history = drc->gain_history;
    history[drc->history_len] = newest_q17;
    int32_t least = history[0];
    for (int32_t k = 0; k < drc->history_len; ++k) {
        history[k] = history[k + 1];
        least = std::min(least, history[k]);
    }
    return least;
}

/// One step from c up to target = c + d; 8 <= d.
int32_t glide_up(int32_t c, int32_t d, int32_t target) {
    if (d <= 64) return add_wrap_s32(c, d >> 3);
    const int shift = d <= 1024    ? 6
                      : d <= 2048  ? 7
                      : d <= 4096  ? 8
                      : d <= 8192  ? 9
                      : d <= 16384 ? 10
                                   : 11;
    const int32_t step = std::max(c >> 12, d >> shift);
    return std::min(add_wrap_s32(c, step), target);
}

/// One step from c down to target = c + d; d <= -8.
int32_t glide_down(int32_t c, int32_t d, int32_t target) {
    const int32_t fall = sub_wrap_s32(0, d);
    if (d >= -32) return sub_wrap_s32(c, fall >> 3);
    const int shift = d >= -1024 ? 5 : d >= -2048 ? 6 : d >= -4096 ? 7 : d >= -8192 ? 8 : 9;
    const int32_t step = std::max(add_wrap_s32(c, c >> 1) >> 11, fall >> shift);
    return std::max(sub_wrap_s32(c, step), target);
}

/// One sample's step of the applied gain toward the target, both Q17. Falls faster than it rises,
/// never overshoots.
int32_t glide(int32_t c, int32_t target) {
    const int32_t d = sub_wrap_s32(target, c);
    if (d > -8 && d < 8) return target;
    return d > 0 ? glide_up(c, d, target) : glide_down(c, d, target);
}

/// One step of the gate gain toward its target, both Q17.
int32_t glide_gate(int32_t gate, int32_t target) {
    const int32_t e = sub_wrap_s32(target, gate);
    if (e <= 0) return add_wrap_s32(gate, e >> 5);
    return e < 8 ? target : add_wrap_s32(gate, e >> 3);
}

/// gains[0..run-1] become the applied gains of the next samples. Both glides end exactly on their
/// targets and then rest.
void glide_run(drc_t* drc, int32_t target, int32_t gate_target, int32_t* gains, int run) {
    int32_t c = drc->current_gain;
    int i = 0;
    while (i < run && c != target) gains[i++] = c = glide(c, target);
    std::fill(gains + i, gains + run, target);
    drc->current_gain = c;

    // Deliberate: the gate gain is kept up to date and multiplies nothing.
    for (i = 0; i < run && drc->gate_gain != gate_target; ++i) {
        drc->gate_gain = glide_gate(drc->gate_gain, gate_target);
    }
}

/// Swaps in[0..run-1] with line[0..run-1], the delay line from its position on, which does not wrap
/// inside the run, and applies the gains to the old ones.
KREL_FAST
void apply_run(int32_t* line, const int32_t* in, const int32_t* gains, int16_t* out, int run) {
    for (int i = 0; i < run; ++i) {
        const int32_t x = line[i];
        line[i] = in[i];
        out[i] = sat_s16(mul_wide(gains[i], x) >> 17);
    }
}

}  // namespace
}  // namespace krel

using namespace krel;

void drc_init(drc_t* drc, drc_params_t* params) {
    if (drc == nullptr || params == nullptr) return;
    *drc = {};
    drc->threshold = params->threshold;
    drc->attack_shift = params->attack_shift;
    drc->release_shift = params->release_shift;
    drc->gain = params->gain;
    drc->current_gain = mul_wrap_s32(params->gain, 8);  // deliberate: half the target, in Q17
    drc->gate_gain = 8192;
    drc->noise_floor = std::max(params->noise_floor, kLeastNoiseFloor);
    drc->mean_level = drc->noise_floor;
    drc->history_len = params->history_blocks;
    drc->delay_unit = params->delay_unit;
    drc->delay_len = mul_wrap_s32(params->history_blocks, params->delay_unit);
    drc->gain_history = zeroed_raw<int32_t>(add_wrap_s32(params->history_blocks, 1));
    drc->delay_line = zeroed_raw<int32_t>(drc->delay_len);
}

void drc_deinit(drc_t* drc) {
    if (drc == nullptr) return;
    release(drc->gain_history);
    release(drc->delay_line);
}

void drc_process(drc_t* drc, int32_t* in, int16_t* out, int n) {
    if (drc == nullptr || drc->gain_history == nullptr) return;
    if (n > 0 && (in == nullptr || out == nullptr || drc->delay_line == nullptr)) return;

    const block_level level = measure(in, n);
    follow_mean(drc, level.mean);
    const int32_t gate_target = gate_target_q17(drc);
    follow_peak(drc, level.peak);
    const int32_t target = least_recent_gain(drc, shl_wrap_s32(block_gain_q13(drc), 4));

    int32_t gains[kRun];
    for (int done = 0; done < n;) {
        const int run = std::min({kRun, n - done, drc->delay_len - drc->delay_pos});
        glide_run(drc, target, gate_target, gains, run);
        apply_run(drc->delay_line + drc->delay_pos, in + done, gains, out + done, run);
        drc->delay_pos += run;
        if (drc->delay_pos == drc->delay_len) drc->delay_pos = 0;
        done += run;
    }
}

int find_current_max_drc(int32_t* in, int32_t* mean, int n) {
    const block_level level = in == nullptr ? block_level{0, 0} : measure(in, n);
    if (mean != nullptr) *mean = level.mean;
    return level.peak;
}
