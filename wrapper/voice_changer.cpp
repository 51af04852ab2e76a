// SPDX-License-Identifier: Apache-2.0
#include "wrapper/voice_changer.h"

#include <stdint.h>
#include <sys/time.h>

#include <algorithm>

#include "base/fast_paths.h"
#include "base/fixed_point.h"
#include "base/log.h"
#include "base/memory.h"
#include "base/ring.h"
#include "core/vcp.h"
#include "core/voice_block.h"
#include "dsp/drc.h"

using namespace krel;

pthread_mutex_t mVcpLock;

namespace {

constexpr int kBlock = kVoiceBlock;    // also the length of both FIFOs
constexpr uint32_t kStatLoops = 2048;  // blocks between two reports

struct sample_fifo {
    int32_t bits;  // element width, 16 or 32
    int32_t capacity;
    int32_t count;
    int32_t readIndex;
    int32_t writeIndex;
    void* data;  // owned
};

struct work_space {
    uint32_t chnNum;
    uint32_t sampleRate;
    int32_t formatType;
    int32_t bitsPerSample;
    int32_t bytesPerSample;
    sample_fifo inFifo;
    sample_fifo outFifo;
    int32_t* convBuffer;  // owned, kBlock
    int16_t* block;       // owned, kBlock: processed in place
    void* vcp_ws;         // owned; null: no core, bypass
    int32_t drcDisable;   // non-zero: neither make-up gain nor compressor
    drc_t drc;
    int32_t* drcInput;  // owned, kBlock
    uint32_t statLoops;
    uint32_t statFrames;
    int64_t statTotalUs;
    int64_t statMaxUs;
};

/// mVcpLock lives as long as the library is loaded.
const struct lock_life {
    lock_life() { pthread_mutex_init(&mVcpLock, nullptr); }
    ~lock_life() { pthread_mutex_destroy(&mVcpLock); }
    lock_life(const lock_life&) = delete;
    lock_life& operator=(const lock_life&) = delete;
} g_lock_life;

class lock_guard {
  public:
    lock_guard() { pthread_mutex_lock(&mVcpLock); }
    ~lock_guard() { pthread_mutex_unlock(&mVcpLock); }
    lock_guard(const lock_guard&) = delete;
    lock_guard& operator=(const lock_guard&) = delete;
};

int64_t now_us() {
    timeval t = {};
    gettimeofday(&t, nullptr);
    return int64_t{t.tv_sec} * 1'000'000 + t.tv_usec;
}

void fifo_init(sample_fifo& fifo, int32_t bits) {
    fifo = {.bits = bits,
            .capacity = kBlock,
            .count = 0,
            .readIndex = 0,
            .writeIndex = 0,
            .data = nullptr};
    fifo.data = bits == 16 ? static_cast<void*>(zeroed_raw<int16_t>(kBlock))
                           : zeroed_raw<int32_t>(kBlock);
}

ring_view view(sample_fifo& fifo) {
    return {fifo.capacity, fifo.count, fifo.readIndex, fifo.writeIndex};
}

/// Moves the first sample of each of `frames` frames into the FIFO; kStride samples from frame to
/// frame.
template <size_t kStride = 1, typename T>
KREL_FAST void push_frames(sample_fifo& fifo, const T* first, size_t frames) {
    ring_push_n<kStride>(view(fifo), static_cast<T*>(fifo.data), first, frames);
}

/// Moves as many samples out of the FIFO, each into all kStride samples of its frame.
template <size_t kStride = 1, typename T>
KREL_FAST void pop_frames(sample_fifo& fifo, T* first, size_t frames) {
    ring_pop_n<kStride>(view(fifo), static_cast<const T*>(fifo.data), first, frames);
}

KREL_FAST void take_block(work_space* ws) {
    if (ws->bitsPerSample == 16) {
        pop_frames(ws->inFifo, ws->block, kBlock);
        return;
    }
    pop_frames(ws->inFifo, ws->convBuffer, kBlock);
    for (int i = 0; i < kBlock; ++i) ws->block[i] = s16_from_q8_23_sat(ws->convBuffer[i]);
}

KREL_FAST void give_block(work_space* ws) {
    if (ws->bitsPerSample == 16) {
        push_frames(ws->outFifo, ws->block, kBlock);
        return;
    }
    for (int i = 0; i < kBlock; ++i) ws->convBuffer[i] = ws->block[i] * 256;
    push_frames(ws->outFifo, ws->convBuffer, kBlock);
}

void report_load(work_space* ws) {
    KREL_LOGD(kWrapperTag,
              "krel_voice_changer_process CPU usage: %d loops take %ld msecs, max %f msecs",
              static_cast<int>(ws->statLoops), static_cast<long>(ws->statTotalUs / 1000),
              static_cast<double>(ws->statMaxUs) / 1000.0);
    KREL_LOGD(kWrapperTag, "\t\t mean: %f msec & %d frames for each loop",
              static_cast<double>(ws->statTotalUs) / (ws->statLoops * 1000.0),
              static_cast<int>(ws->statFrames / ws->statLoops));
    ws->statLoops = 0;
    ws->statFrames = 0;
    ws->statTotalUs = 0;
    ws->statMaxUs = 0;
}

void count_load(work_space* ws, int64_t elapsed_us) {
    ++ws->statLoops;
    ws->statFrames += kBlock;
    ws->statTotalUs += elapsed_us;
    ws->statMaxUs = std::max(ws->statMaxUs, elapsed_us);
    if (ws->statLoops >= kStatLoops) report_load(ws);
}

/// One full input FIFO through the voice into the output FIFO.
void run_block(work_space* ws) {
    const int64_t start_us = now_us();
    take_block(ws);
    drc_t* const compressor = ws->drcDisable == 0 ? &ws->drc : nullptr;
    if (voice_block_process(ws->vcp_ws, compressor, ws->drcInput, ws->block) < 0) {
        KREL_LOGW(kWrapperTag, "krel_voice_changer_process: vcp_process failed!");
    }
    give_block(ws);
    count_load(ws, now_us() - start_us);
}

/// Every frame gives one sample to the input FIFO and takes one from the output FIFO; a block runs
/// in between whenever the input FIFO is full. Frames are handled in runs up to that point.
template <size_t kStride, typename T>
void process_frames(work_space* ws, T* buffer, size_t frames) {
    while (frames > 0) {
        const auto room = static_cast<size_t>(ws->inFifo.capacity - ws->inFifo.count);
        const size_t run = std::min(frames, room);
        push_frames<kStride>(ws->inFifo, buffer, run);
        size_t waiting = run;
        if (run == room) {
            pop_frames<kStride>(ws->outFifo, buffer, run - 1);
            buffer += (run - 1) * kStride;
            waiting = 1;
            run_block(ws);
        }
        pop_frames<kStride>(ws->outFifo, buffer, waiting);
        buffer += waiting * kStride;
        frames -= run;
    }
}

template <typename T>
void process_buffer(work_space* ws, T* buffer, size_t frames) {
    // Deliberate: any other number of channels than two advances one sample per frame.
    if (ws->chnNum == 2) {
        process_frames<2>(ws, buffer, frames);
    } else {
        process_frames<1>(ws, buffer, frames);
    }
}

/// All that the work space owns but the core. False when some of it is missing.
bool allocate_buffers(work_space* ws) {
    fifo_init(ws->inFifo, ws->bitsPerSample);
    fifo_init(ws->outFifo, ws->bitsPerSample);
    ws->convBuffer = zeroed_raw<int32_t>(kBlock);
    ws->block = zeroed_raw<int16_t>(kBlock);
    ws->drcInput = zeroed_raw<int32_t>(kBlock);
    return voice_compressor_init(&ws->drc) && ws->inFifo.data != nullptr &&
           ws->outFifo.data != nullptr && ws->convBuffer != nullptr && ws->block != nullptr &&
           ws->drcInput != nullptr;
}

void free_work_space(work_space* ws) {
    vcp_deinit(ws->vcp_ws);
    ws->vcp_ws = nullptr;
    release(ws->convBuffer);
    release(ws->block);
    release(ws->inFifo.data);
    release(ws->outFifo.data);
    drc_deinit(&ws->drc);
    release(ws->drcInput);
    free(ws);
}

}  // namespace

void* krel_voice_changer_init(unsigned chn_num, unsigned sample_rate, int format_type,
                              int drc_disable) {
    KREL_LOGD(kWrapperTag,
              "krel_voice_changer_init: chn_num %d, sample_rate %zu, format_type %d, mode %d",
              static_cast<int>(chn_num), static_cast<size_t>(sample_rate), format_type,
              drc_disable);
    auto* ws = zeroed_raw<work_space>(1);
    if (ws == nullptr) return nullptr;

    ws->chnNum = chn_num;
    ws->sampleRate = sample_rate;
    const bool narrow = format_type == KREL_FORMAT_S16;
    ws->formatType = format_type >= KREL_FORMAT_S16 && format_type <= KREL_FORMAT_S32
                             ? format_type
                             : KREL_FORMAT_OTHER;
    ws->bitsPerSample = narrow ? 16 : 32;
    ws->bytesPerSample = narrow ? 2 : 4;
    ws->vcp_ws = vcp_init(static_cast<int>(ws->sampleRate));
    if (ws->vcp_ws == nullptr) {
        KREL_LOGW(kWrapperTag, "krel_voice_changer_init: vcp_init return NULL!");
    }
    ws->drcDisable = drc_disable;
    if (!allocate_buffers(ws)) {
        free_work_space(ws);
        return nullptr;
    }
    return ws;
}

void krel_voice_changer_set_mode(void* ws_handle, int preset) {
    auto* ws = static_cast<work_space*>(ws_handle);
    if (ws == nullptr) return;
    const lock_guard lock;
    if (ws->vcp_ws != nullptr) vcp_deinit(ws->vcp_ws);
    ws->vcp_ws = vcp_init(static_cast<int>(ws->sampleRate));
    if (ws->vcp_ws == nullptr) {
        KREL_LOGW(kWrapperTag, "krel_voice_changer_set_mode: vcp_init return NULL!");
    }
    KREL_LOGD(kWrapperTag, "krel_voice_changer_set_mode: %d, drc %d", preset, ws->drcDisable);
    vcp_set_mode(ws->vcp_ws, preset);
}

void krel_voice_changer_process(void* ws_handle, void* buffer, size_t size) {
    auto* ws = static_cast<work_space*>(ws_handle);
    if (ws == nullptr) return;
    const lock_guard lock;
    if (ws->vcp_ws == nullptr) {
        KREL_LOGW(kWrapperTag, "krel_voice_changer_process: vcp_ws is NULL, bypass");
        return;
    }
    if (buffer == nullptr || ws->chnNum == 0) return;
    const size_t frames = size / (size_t{ws->chnNum} * static_cast<size_t>(ws->bytesPerSample));
    if (ws->bitsPerSample == 16) {
        process_buffer(ws, static_cast<int16_t*>(buffer), frames);
        return;
    }
    auto* samples = static_cast<int32_t*>(buffer);
    const size_t count = frames * ws->chnNum;
    if (ws->formatType == KREL_FORMAT_S32) {
        for (size_t i = 0; i < count; ++i) samples[i] = q8_23_from_s32(samples[i]);
    }
    process_buffer(ws, samples, frames);
    if (ws->formatType == KREL_FORMAT_S32) {
        for (size_t i = 0; i < count; ++i) samples[i] = s32_from_q8_23_sat(samples[i]);
    }
}

void krel_voice_changer_deinit(void* ws_handle) {
    auto* ws = static_cast<work_space*>(ws_handle);
    if (ws == nullptr) return;
    KREL_LOGD(kWrapperTag, "krel_voice_changer_deinit");
    const lock_guard lock;
    free_work_space(ws);
}
