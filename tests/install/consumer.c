/* An outside caller: C11, nothing but the installed headers and library. Exits with 0 when every block answers as it should. */
#include <core/reverb.h>
#include <dsp/drc.h>
#include <dsp/iir.h>
#include <dsp/peq.h>
#include <stdint.h>
#include <stdio.h>
#include <string.h>
#include <wrapper/voice_changer.h>

static int failures;

static void expect(int good, const char* what, long got) {
    if (good) return;
    fprintf(stderr, "consumer: %s: got %ld\n", what, got);
    ++failures;
}

static void use_equaliser(void) {
    peq_stereo_param_t params;
    memset(&params, 0, sizeof params);
    params.band[0].enabled = 1;
    params.band[0].b0 = 1 << 27; /* 0.5 x[n] + 0.25 x[n-1] */
    params.band[0].b1 = 1 << 26;
    int16_t io[4] = {1000, 0, -600, 0};
    const int16_t wanted[4] = {500, 250, -300, -150};
    void* eq = peq_init(&params);
    peq_mono_process(eq, io, io, 4);
    peq_deinit(eq);
    expect(memcmp(io, wanted, sizeof io) == 0, "equaliser's second sample", io[1]);
}

static void use_reverberator(void) {
    allpass ap;
    allpass_init(&ap, 2);
    const int wanted[5] = {500, 0, 750, 0, -375}; /* (g + z^-2) / (1 + g z^-2) at g = 0.5 */
    for (int n = 0; n < 5; ++n) {
        const int got = allpass_process(n == 0 ? 1000 : 0, &ap);
        expect(got == wanted[n], "all-pass", got);
    }
    allpass_end(&ap);

    reverb_t room;
    static int16_t io[4800] = {16000};
    expect(reverb_init(&room) == 0, "reverb_init", -1);
    reverb_update(&room);
    reverb_process_mono(&room, io, io, 4800);
    reverb_end(&room);
    int echo = 0;
    for (int n = 1000; n < 4800; ++n) echo += io[n] > 16 || io[n] < -16;
    expect(io[0] == 0 && echo > 100, "samples of the room's tail", echo);
}

static void use_compressor(void) {
    int32_t three[3] = {3, -7, 2}, mean = 0;
    const int peak = find_current_max_drc(three, &mean, 3);
    expect(peak == 7 && mean == 4, "peak", peak);

    drc_params_t params = {.history_blocks = 2,
                           .delay_unit = 64,
                           .release_shift = 4,
                           .threshold = 16000,
                           .gain = 8192,
                           .noise_floor = 2};
    drc_t drc;
    int32_t in[64];
    int16_t out[64] = {0};
    for (int n = 0; n < 64; ++n) in[n] = n % 2 ? -30000 : 30000;
    drc_init(&drc, &params);
    for (int block = 0; block < 200; ++block) drc_process(&drc, in, out, 64);
    drc_deinit(&drc);
    expect(out[0] > 15000 && out[0] <= 16000, "compressed peak", out[0]);
    expect(out[1] < -15000 && out[1] >= -16000, "compressed peak", out[1]);
}

static void use_filters(void) {
    for (int low_pass = 0; low_pass < 2; ++low_pass) {
        iir_biquad_t filter;
        float io[2000];
        for (int n = 0; n < 2000; ++n) io[n] = 0.5f;
        expect(iir_float_init(&filter, 48000, 1000, low_pass) == 0, "iir_float_init", -1);
        expect(iir_float_process_mono(&filter, io, io, 2000) == 2000, "filtered samples", 0);
        const float error = io[1999] - (low_pass ? 0.5f : 0.0f);
        expect(error < 1e-4f && error > -1e-4f, "settled filter, millionths",
               (long)(io[1999] * 1e6f));
    }
}

static void use_voice_changer(void) {
    enum { kFrames = 480, kDelay = 127, kPlain = 7 };
    int16_t io[2 * kFrames];
    for (int n = 0; n < 2 * kFrames; ++n) io[n] = (int16_t)(n % 2 ? -1 : 10 * n);
    void* changer = krel_voice_changer_init(2, 48000, KREL_FORMAT_S16, 1);
    krel_voice_changer_set_mode(changer, kPlain);
    krel_voice_changer_process(changer, io, sizeof io);
    krel_voice_changer_deinit(changer);
    for (int n = 0; n < kFrames; ++n) {
        const int wanted = n < kDelay ? 0 : 20 * (n - kDelay);
        expect(io[2 * n] == wanted && io[2 * n + 1] == wanted, "voice changer", io[2 * n]);
    }
    expect(pthread_mutex_trylock(&mVcpLock) == 0, "lock is taken", 1);
    pthread_mutex_unlock(&mVcpLock);
}

int main(void) {
    use_equaliser();
    use_reverberator();
    use_compressor();
    use_filters();
    use_voice_changer();
    if (failures == 0) puts("consumer: all blocks answer");
    return failures != 0;
}
