/* SPDX-License-Identifier: Apache-2.0 */
/* An outside caller of the engine: C11, nothing but the installed header and library. */
#include <engine/voice.h>
#include <stdio.h>
#include <string.h>

int main(void) {
    enum { kRate = 48000, kGirl = 11, kPlain = 7 };
    static float io[kRate];
    int failures = krel_voice_count() != 17 || strcmp(krel_voice_name(kGirl), "girl") != 0;
    krel_voice* voice = krel_voice_create(kRate, kPlain, NULL, NULL);
    const int late = krel_voice_latency(kPlain, kRate);
    io[0] = 0.25f;
    krel_voice_process_float(voice, io, kRate);
    failures += late != 607 || io[late] < 0.3f || io[late - 1] != 0.0f;
    failures += krel_voice_prepare(voice, kGirl) != 0;
    for (int n = 0; n < kRate; ++n) io[n] = n % 200 < 100 ? 0.2f : -0.2f;
    krel_voice_process_float(voice, io, kRate);
    failures += krel_voice_heard(voice) != kGirl;
    krel_voice_release(voice);
    puts(failures == 0 ? "voice: heard" : "voice: wrong");
    return failures != 0;
}
