// SPDX-License-Identifier: Apache-2.0
#include "core/presets.h"
#include "core/vcp.h"
#include "delay/echos.h"
#include "delay/reverb.h"
#include "fuzz/blocks.h"
#include "wrapper/voice_changer.h"

namespace krel_fuzz {
namespace {

constexpr int32_t kLastPreset = krel::kPresetCount - 1;

void draw_reverb_settings(Draw& d, reverb_t* rv) {
    constexpr void (*kSetters[])(reverb_t*, int) = {reverb_setroomsize, reverb_setdamp,
                                                    reverb_setwet,      reverb_setdry,
                                                    reverb_setwidth,    reverb_setgain};
    for (const auto set : kSetters) {
        if (d.one_in(2)) set(rv, d.hostile(0, 8192));
    }
    reverb_update(rv);
}

}  // namespace

void fuzz_echos(Draw& d) {
    int delays[KREL_ECHO_TAPS] = {};
    int gains[KREL_ECHO_TAPS] = {};
    if (!d.one_in(3)) {
        const auto rate = static_cast<int32_t>(d.rate());
        calculate_echos(rate, delays, gains, d.range(-1, 3));
    } else {
        for (int& delay : delays) delay = d.hostile(0, 5000);
        for (int& gain : gains) gain = d.hostile(0, 128);
    }
    echos_t echos;
    echos_init(&echos, delays, gains, d.hostile(0, 128));
    in_drawn_blocks<int16_t>(d, [&](int16_t* in, int16_t* out, int32_t n) {
        require(echos_process(&echos, in, out, n) == n, "echo: returns n");
    });
    echos_deinit(&echos);
    echos_deinit(&echos);
}

void fuzz_reverb(Draw& d) {
    reverb_t rv;
    require(reverb_init(&rv) == 0, "reverb: init");
    draw_reverb_settings(d, &rv);
    in_drawn_lengths(d, kMostSamples, [&](int32_t n) {
        const auto frames = static_cast<unsigned>(std::max(n, 0));
        if (d.one_in(8)) draw_reverb_settings(d, &rv);
        if (d.one_in(2)) {
            return in_stereo_block<int16_t>(d, frames, [&](auto... buffers) {
                reverb_process_stereo(&rv, buffers..., frames);
            });
        }
        in_one_block<int16_t>(d, n, [&](int16_t* in, int16_t* out) {
            reverb_process_mono(&rv, or_null(d, in), out, n);
        });
        if (d.one_in(32)) reverb_end(&rv);  // from here on audio passes through
    });
    reverb_end(&rv);
    reverb_end(&rv);
}

void fuzz_reverb_filters(Draw& d) {
    comber comb;
    allpass ap;
    dc_remove dc;
    comb_init(&comb, d.range(-2, 3000));
    allpass_init(&ap, d.range(-2, 3000));
    dc_remove_init(&dc);
    if (d.one_in(2)) comb_setfeedback(&comb, d.hostile(0, 8192));
    if (d.one_in(2)) comb_setsetdamp(&comb, d.hostile(0, 8192));
    if (d.one_in(2)) allpass_setfeedback(&ap, d.hostile(0, 8192));
    in_drawn_lengths(d, kMostSamples, [&](int32_t n) {
        auto samples = signal_buffer<int32_t>(d, static_cast<size_t>(std::max(n, 0)));
        const int shift = d.pick({0, 16, 15});
        for (int32_t& sample : samples.all()) {
            int32_t x = comb_process(sample >> shift, &comb);
            x = allpass_process(x, &ap);
            dc_remove_process(&dc, &x, &sample);
        }
    });
    comb_end(&comb);
    allpass_end(&ap);
    dc_remove_end(&dc);
    require(comb_process(1, &comb) == 0 && allpass_process(1, &ap) == 1, "filters without a line");
    comb_end(&comb);
    allpass_end(&ap);
}

void fuzz_core(Draw& d) {
    void* core = vcp_init(static_cast<int32_t>(d.rate()));
    const int32_t preset = d.hostile(0, kLastPreset);
    if (!d.one_in(16)) vcp_set_mode(core, preset);
    in_drawn_blocks<int16_t>(d, [&](int16_t* in, int16_t* out, int32_t n) {
        require(vcp_process(core, in, out, n) == (n < 1 ? -1 : n), "core: returns the frames");
        if (d.one_in(16)) vcp_set_mode(core, d.range(0, kLastPreset));  // only the first one counts
    });
    vcp_deinit(core);
}

void fuzz_voice_changer(Draw& d) {
    const auto channels = static_cast<unsigned>(d.one_in(4) ? d.hostile(0, 30) : 2);
    const int32_t format = d.hostile(KREL_FORMAT_OTHER, KREL_FORMAT_S32);
    const uint32_t rate = d.rate();
    void* ws = krel_voice_changer_init(channels, rate, format, d.hostile(0, 1));
    int32_t changes = 8;
    in_drawn_lengths(d, 2 * kMostSamples, [&](int32_t n) {
        if (changes > 0 && d.one_in(3)) {
            --changes;
            krel_voice_changer_set_mode(ws, d.hostile(0, kLastPreset));
        }
        // Any number of bytes, though not all of them make frames.
        const auto bytes =
                static_cast<size_t>(std::max(n, 0)) * 4 + static_cast<size_t>(d.range(0, 7));
        Buffer<int32_t> storage(bytes / 4 + 1);
        Signal signal(d);
        fill(storage.all(), signal);
        Buffer<uint8_t> block(bytes);
        memcpy(block.data(), storage.data(), bytes);
        krel_voice_changer_process(ws, block.data(), bytes);
    });
    krel_voice_changer_deinit(ws);
}

}  // namespace krel_fuzz
