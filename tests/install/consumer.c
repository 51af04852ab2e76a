/* SPDX-License-Identifier: Apache-2.0 */
/**
 * An outside caller: C11, nothing but the installed headers and library. Exits with 0 when every
 * block answers as it should.
 */
#include <delay/reverb.h>
#include <stdint.h>
#include <stdio.h>
#include <wrapper/voice_changer.h>

static int failures;

static void expect(int good, const char* what, long got) {
    if (good) return;
    fprintf(stderr, "consumer: %s: got %ld\n", what, got);
    ++failures;
}

int main(void) {
    static int16_t io[9600] = {16000};
    reverb_t room;
    expect(reverb_init(&room) == 0, "reverb_init", -1);
    reverb_process_mono(&room, io, io, 4800);
    reverb_end(&room);
    int echo = 0;
    for (int n = 1000; n < 4800; ++n) echo += io[n] > 16 || io[n] < -16;
    expect(io[0] == 0 && echo > 100, "samples of the room's tail", echo);

    for (int n = 0; n < 960; ++n) io[n] = (int16_t)(n % 2 ? -1 : 10 * n);
    void* changer = krel_voice_changer_init(2, 48000, KREL_FORMAT_S16, 1);
    krel_voice_changer_set_mode(changer, 7); /* plain: delayed by 127 frames */
    krel_voice_changer_process(changer, io, 1920);
    krel_voice_changer_deinit(changer);
    expect(io[2 * 126] == 0 && io[2 * 300] == 20 * 173 && io[601] == io[600], "voice", io[600]);
    expect(pthread_mutex_trylock(&mVcpLock) == 0, "lock is taken", 1);
    pthread_mutex_unlock(&mVcpLock);
    if (failures == 0) puts("consumer: all blocks answer");
    return failures != 0;
}
