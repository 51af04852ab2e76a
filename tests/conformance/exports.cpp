// SPDX-License-Identifier: Apache-2.0
// What the cases may name: the exported functions, and fields of their records.
#include <type_traits>
#include <utility>

#include "core/vcp.h"
#include "delay/echos.h"
#include "delay/reverb.h"
#include "delay/reverb_filters.h"
#include "dsp/cubic_interp.h"
#include "dsp/drc.h"
#include "dsp/iir.h"
#include "dsp/peq.h"
#include "effect/effect_library.h"
#include "pitch_stream/pitch_stream.h"
#include "spectral/envelope.h"
#include "spectral/pitch.h"
#include "spectral/vocal.h"
#include "spectral/vocoder.h"
#include "tests/conformance/session.h"
#include "wrapper/voice_changer.h"

namespace krel_test {
namespace {

template <typename T>
T argument(Session& session, const std::string& word) {
    if constexpr (std::is_pointer_v<T>) {
        return static_cast<T>(session.address(word));
    } else {
        return static_cast<T>(session.number(word));
    }
}

/// Any function of numbers and pointers as one of words.
template <typename R, typename... A>
Function of_words(R (*f)(A...)) {
    return [f](Session& session, Words words) -> Result {
        if (words.size() != sizeof...(A))
            return session.fail("wrong number of arguments"), Result{};
        const auto call = [&]<size_t... I>(std::index_sequence<I...>) {
            return f(argument<A>(session, words[I])...);
        };
        constexpr std::index_sequence_for<A...> kAll;
        if constexpr (std::is_void_v<R>) {
            call(kAll);
            return {};
        } else if constexpr (std::is_pointer_v<R>) {
            void* pointer = call(kAll);
            return {pointer != nullptr ? 1.0 : 0.0, pointer};
        } else {
            return {static_cast<double>(call(kAll))};
        }
    };
}

template <typename T>
Cells cells(T& member) {
    if constexpr (std::is_array_v<T>) return std::span(member);
    if constexpr (std::is_pointer_v<T>) return std::span(member, 1);
    if constexpr (std::is_arithmetic_v<T>) return std::span(&member, 1);
}

}  // namespace

// clang-format off
#define F(name) {#name, of_words(name)}
const Table<Function> kFunctions = {
    F(EffectCreate), F(EffectRelease), F(EffectGetDescriptor), F(EffectQueryNumberEffects), F(EffectQueryEffect),
    F(krel_voice_changer_init), F(krel_voice_changer_set_mode), F(krel_voice_changer_process),
    F(krel_voice_changer_deinit), F(vcp_init), F(vcp_set_mode), F(vcp_process), F(vcp_deinit), F(drc_init),
    F(drc_deinit), F(drc_process), F(find_current_max_drc),
    F(calculate_echos), F(echos_init), F(echos_process), F(echos_deinit), F(reverb_init), F(reverb_end),
    F(reverb_update), F(reverb_setroomsize), F(reverb_setdamp), F(reverb_setwet), F(reverb_setdry), F(reverb_setwidth),
    F(reverb_setgain), F(reverb_process_mono), F(reverb_process_stereo), F(comb_init), F(comb_end), F(comb_setfeedback),
    F(comb_setsetdamp), F(comb_process), F(allpass_init), F(allpass_end), F(allpass_setfeedback), F(allpass_process),
    F(dc_remove_init), F(dc_remove_end), F(dc_remove_process),
    F(peq_init), F(peq_stereo_process), F(peq_mono_process), F(peq_deinit), F(iir_float_init), F(iir_float_reset),
    F(iir_float_process_mono), F(iir_float_process_stereo), F(iir_short_process_mono), F(iir_short_process_stereo),
    F(iir_lpf_init_coeffs), F(iir_hpf_init_coeffs), F(cubicinterp_init), F(cubicinterp_process), F(cubicinterp_deinit),
    F(pchipslopes), F(pwch),
    F(envelope_detect), F(roll_queue), F(pitch_init), F(pitch_process), F(pitch_deinit), F(vocoder_init),
    F(vocoder_process), F(vocoder_deinit), F(vocal_init), F(vocal_process), F(vocal_deinit),
    F(pitchCreateStream), F(pitchSetPitch), F(pitchDestroyStream), F(pitchWriteShortToStream),
    F(pitchReadShortFromStream), F(processStreamInput), F(allocateStreamBuffers), F(freeStreamBuffers),
    F(enlargeInputBufferIfNeeded), F(enlargeOutputBufferIfNeeded), F(addShortSamplesToInputBuffer), F(copyToOutput),
    F(removeInputSamples), F(copyInputToOutput), F(findPitchPeriod), F(downSampleInput), F(findPitchPeriodInRange),
    F(prevPeriodBetter), F(changeSpeed), F(skipPitchPeriod), F(insertPitchPeriod), F(overlapAdd), F(updateBaseFreq),
    F(adjustRate), F(findVocals),
};

#define FIELD(Record, name) {#name, [](void* r) { return cells(static_cast<Record*>(r)->name); }}
#define DRC(name) FIELD(drc_t, name)
#define REVERB(name) FIELD(reverb_t, name)
#define ECHOS(name) FIELD(echos_t, name)
#define DESIGN(name) FIELD(iir_coeff_gen_t, name)
#define PITCH(name) FIELD(pitch_ctx_t, name)
#define VOCODER(name) FIELD(vocoder_ctx_t, name)
#define VOCAL(name) FIELD(vocal_ctx_t, name)
#define STREAM(name) FIELD(pitchStreamStruct, name)
const Table<std::vector<Field>> kTypes = {
    {"drc", {DRC(threshold), DRC(attack_shift), DRC(release_shift), DRC(gain), DRC(current_gain), DRC(envelope),
             DRC(gate_gain), DRC(mean_level), DRC(noise_floor), DRC(history_len), DRC(delay_unit), DRC(delay_pos),
             DRC(delay_len)}},
    {"drc.envelope", {DRC(envelope)}},
    {"drc.gains", {DRC(current_gain), DRC(gate_gain)}},
    {"drc.history", {DRC(gain_history)}},
    {"reverb", {REVERB(wet), REVERB(wet1), REVERB(wet2), REVERB(dry), REVERB(roomsize), REVERB(damp), REVERB(width),
                REVERB(gain)}},
    {"dc", {FIELD(dc_remove, y), FIELD(dc_remove, x_prev)}},
    {"echos", {ECHOS(dry), ECHOS(tap_count), ECHOS(pos), ECHOS(len), ECHOS(tap_out), ECHOS(gain)}},
    {"curve", {FIELD(Poly, coef3), FIELD(Poly, coef2), FIELD(Poly, coef1), FIELD(Poly, coef0), FIELD(Poly, breaks)}},
    {"design", {DESIGN(b0), DESIGN(b1), DESIGN(a0), DESIGN(a1), DESIGN(a2), DESIGN(gain)}},
    {"pitch", {PITCH(scale), PITCH(fft_size), PITCH(overlap), PITCH(half_size), PITCH(hop), PITCH(latency),
               PITCH(rover), PITCH(freq_per_bin), PITCH(expected_phase_step)}},
    {"vocoder", {VOCODER(fft_size), VOCODER(overlap), VOCODER(half_size), VOCODER(hop), VOCODER(latency),
                 VOCODER(rover)}},
    {"vocal", {VOCAL(formant_ratio), VOCAL(fft_size), VOCAL(overlap), VOCAL(half_size), VOCAL(hop), VOCAL(latency),
               VOCAL(rover), VOCAL(envelope_delay), VOCAL(fdeq_mode)}},
    {"vocal.gains", {VOCAL(eq_gain)}},
    {"stream", {STREAM(speed), STREAM(pitch), STREAM(fixedPitch), STREAM(numInputSamples), STREAM(numOutputSamples),
                STREAM(minPeriod), STREAM(maxPeriod), STREAM(maxRequired), STREAM(remainingInputToCopy),
                STREAM(sampleRate), STREAM(prevPeriod), STREAM(prevMinDiff), STREAM(targetBaseFreq),
                STREAM(vocalThreshold), STREAM(baseFreqCount), STREAM(maxPitch), STREAM(minPitch), STREAM(baseFreq),
                STREAM(tenMsSamples), STREAM(vocalMs)}},
    {"stream.base", {STREAM(baseFreq), STREAM(baseFreqCount)}},
    {"stream.sizes", {STREAM(inputBufferSize), STREAM(outputBufferSize)}},
    {"stream.low", {STREAM(downSampleBuffer)}},
};
// clang-format on

}  // namespace krel_test
