// The building blocks that allocate, short of memory.
#include <gtest/gtest.h>

#include "dsp/cubic_interp.h"
#include "dsp/drc.h"
#include "dsp/peq.h"
#include "tests/support/alloc_gate.h"

namespace {

using krel_test::fail_each_allocation;

TEST(DspFault, AFailedAllocationLeavesNothingBehindAndNothingToFearFromAnotherRelease) {
    EXPECT_EQ(fail_each_allocation([] {
                  float x[] = {0, 1, 2}, y[] = {0, 1, 4}, at[] = {0.5f}, out[] = {7};
                  void* handle = cubicinterp_init(x, y, 3);
                  if (handle == nullptr) return;
                  cubicinterp_process(handle, at, out, 1);
                  EXPECT_NE(out[0], 7);
                  cubicinterp_deinit(handle);
              }),
              9);
    EXPECT_EQ(fail_each_allocation([] {
                  const peq_stereo_param_t params = {};
                  int16_t sample = 5;
                  void* peq = peq_init(&params);
                  peq_mono_process(peq, &sample, &sample, 1);
                  EXPECT_EQ(sample, 5);
                  peq_deinit(peq);
              }),
              1);
    EXPECT_EQ(fail_each_allocation([] {
                  drc_t drc;
                  drc_params_t params = {};
                  params.history_blocks = 3;
                  params.delay_unit = 160;
                  drc_init(&drc, &params);
                  int32_t in[64] = {};
                  int16_t out[64] = {};
                  drc_process(&drc, in, out, 64);
                  drc_deinit(&drc);
                  drc_deinit(&drc);
              }),
              2);
}

}  // namespace
