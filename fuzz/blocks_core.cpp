#include "core/echos.h"
#include "core/reverb.h"
#include "core/vcp.h"
#include "fuzz/blocks.h"
#include "fuzz/signal.h"
#include "wrapper/voice_changer.h"

namespace krel_fuzz {
namespace {

constexpr int32_t kMostSamples = 8192;

void draw_reverb_settings(Draw& d, reverb_t* rv) {
    constexpr void (*kSetters[])(reverb_t*, int) = {reverb_setroomsize, reverb_setdamp,
                                                    reverb_setwet,      reverb_setdry,
                                                    reverb_setwidth,    reverb_setgain};
    for (const auto set : kSetters) {
        if (d.one_in(2)) set(rv, d.hostile(0, 8192));
    }
    reverb_update(rv);
}

void run_reverb_stereo(Draw& d, reverb_t* rv, size_t n) {
    auto left = signal_buffer<int16_t>(d, n);
    auto right = signal_buffer<int16_t>(d, n);
    Buffer<int16_t> out(n);
    // Into itself, into the other channel, or elsewhere.
    const int32_t to = d.range(0, 2);
    int16_t* const to_left = to == 0 ? left.data() : to == 1 ? right.data() : out.data();
    int16_t* const to_right = to == 0 ? right.data() : left.data();
    const int32_t no = d.range(0, 63);  // 0..3: a null buffer
    reverb_process_stereo(rv, no == 0 ? nullptr : left.data(), no == 1 ? nullptr : right.data(),
                          no == 2 ? nullptr : to_left, no == 3 ? nullptr : to_right,
                          static_cast<unsigned>(n));
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
    in_drawn_lengths(d, kMostSamples, [&](int32_t n) {
        auto in = signal_buffer<int16_t>(d, static_cast<size_t>(std::max(n, 0)));
        Buffer<int16_t> out(in.all().size());
        require(echos_process(&echos, in.data(), d.one_in(2) ? in.data() : out.data(), n) == n,
                "echo: returns n");
        require(echos_process(&echos, nullptr, out.data(), n) == -1, "echo: refuses null");
    });
    echos_deinit(&echos);
    echos_deinit(&echos);
    echos_deinit(nullptr);
    calculate_echos(8000, nullptr, gains, 0);
    echos_init(nullptr, delays, gains, 0);
}

void fuzz_reverb(Draw& d) {
    reverb_t rv;
    require(reverb_init(&rv) == 0 && reverb_init(nullptr) == -1, "reverb: init");
    draw_reverb_settings(d, &rv);
    in_drawn_lengths(d, kMostSamples, [&](int32_t n) {
        const auto samples = static_cast<size_t>(std::max(n, 0));
        if (d.one_in(8)) draw_reverb_settings(d, &rv);
        if (d.one_in(2)) return run_reverb_stereo(d, &rv, samples);
        auto in = signal_buffer<int16_t>(d, samples);
        Buffer<int16_t> out(samples);
        int16_t* to = d.one_in(2) ? in.data() : out.data();
        reverb_process_mono(&rv, or_null(d, in.data()), to, n);
        if (d.one_in(32)) reverb_end(&rv);  // from here on audio passes through
    });
    reverb_end(&rv);
    reverb_end(&rv);
    reverb_end(nullptr);
    draw_reverb_settings(d, nullptr);
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
    comb_process(0, nullptr);
    allpass_process(0, nullptr);
}

void fuzz_core(Draw& d) {
    void* core = vcp_init(static_cast<int32_t>(d.rate()));
    const int32_t mode = d.hostile(0, 16);
    if (!d.one_in(16)) vcp_set_mode(core, mode);
    in_drawn_lengths(d, kMostSamples, [&](int32_t n) {
        auto in = signal_buffer<int16_t>(d, static_cast<size_t>(std::max(n, 0)));
        Buffer<int16_t> out(in.all().size());
        const bool in_place = d.one_in(2);
        require(vcp_process(core, in.data(), in_place ? in.data() : out.data(), n) ==
                        (n < 1 ? -1 : n),
                "core: returns the frames");
        if (d.one_in(16)) vcp_set_mode(core, d.range(0, 16));  // only the first one counts
    });
    require(vcp_process(nullptr, nullptr, nullptr, 1) == -1 && vcp_set_mode(nullptr, 0) == -1 &&
                    vcp_deinit(nullptr) == -1,
            "core: refuses null");
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
            krel_voice_changer_set_mode(ws, d.hostile(0, 16));
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
    krel_voice_changer_process(ws, nullptr, 64);
    krel_voice_changer_process(nullptr, nullptr, 64);
    krel_voice_changer_set_mode(nullptr, 3);
    krel_voice_changer_deinit(ws);
    krel_voice_changer_deinit(nullptr);
}

}  // namespace krel_fuzz
