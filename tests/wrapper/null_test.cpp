// SPDX-License-Identifier: Apache-2.0
// Calls of the building blocks that get null where a record or a buffer belongs, as callers' error
// paths produce them.
#include <gtest/gtest.h>

#include "delay/echos.h"
#include "delay/reverb.h"
#include "dsp/cubic_interp.h"
#include "dsp/drc.h"
#include "dsp/peq.h"
#include "pitch_stream/pitch_stream.h"
#include "wrapper/voice_changer.h"

namespace {

TEST(Null, IsHarmlessWhereARecordOrABufferBelongs) {
    int16_t s16[2] = {7, 7};
    int32_t s32[2] = {7, 7};
    float unit[2] = {7.0f, 7.0f};
    int taps[KREL_ECHO_TAPS] = {};
    drc_params_t params = {};

    drc_init(nullptr, &params);
    drc_process(nullptr, s32, s16, 1);
    drc_deinit(nullptr);
    peq_mono_process(nullptr, s16, s16, 1);
    peq_stereo_process(nullptr, s32, s32, s32, s32, 1);
    peq_deinit(nullptr);
    cubicinterp_process(nullptr, unit, unit, 1);
    cubicinterp_deinit(nullptr);

    calculate_echos(8000, nullptr, taps, 0);
    echos_init(nullptr, taps, taps, 0);
    echos_deinit(nullptr);
    EXPECT_EQ(reverb_init(nullptr), -1);
    for (auto* set : {reverb_setroomsize, reverb_setdamp, reverb_setwet, reverb_setdry,
                      reverb_setwidth, reverb_setgain})
        set(nullptr, 1);
    reverb_update(nullptr);
    reverb_process_mono(nullptr, s16, s16, 1);
    reverb_end(nullptr);
    EXPECT_EQ(comb_process(7, nullptr), 0);
    EXPECT_EQ(allpass_process(7, nullptr), 7);

    pitchSetPitch(nullptr, 1.0f);
    pitchDestroyStream(nullptr);

    krel_voice_changer_set_mode(nullptr, 3);
    krel_voice_changer_process(nullptr, s16, sizeof s16);
    krel_voice_changer_deinit(nullptr);
    EXPECT_TRUE(s16[0] == 7 && s32[0] == 7 && unit[0] == 7.0f);
}

}  // namespace
