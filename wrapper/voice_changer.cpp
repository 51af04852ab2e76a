#include "wrapper/voice_changer.h"

#include <stdint.h>
#include <sys/time.h>

#include <algorithm>

#include "base/fixed_point.h"
#include "base/log.h"
#include "base/memory.h"
#include "base/ring.h"
#include "core/vcp.h"
#include "dsp/drc.h"

using namespace krel;

pthread_mutex_t mVcpLock;

namespace {

constexpr int kBlock = 128;  // frames the core takes at a time, and the length of both FIFOs
constexpr uint32_t kStatLoops = 2048;  // blocks between two reports

// Fields of drc_params_t in order: 480 samples of look-ahead, instant attack, threshold 30720, unity gain.
constexpr drc_params_t kCompressor = {2, 240, 0, 7, 30720, 8192, 96};

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
    int16_t* block;       // owned, kBlock: processed by the core in place
    void* vcp_ws;         // owned; null: no core, bypass
    int32_t drcDisable;
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

/// Moves the first sample of each of `frames` frames into the FIFO; `stride` samples from frame to frame.
template <typename T>
void push_frames(sample_fifo& fifo, const T* first, size_t stride, size_t frames) {
    ring_push_n(view(fifo), static_cast<T*>(fifo.data), first, stride, frames);
}

/// Moves as many samples out of the FIFO into the first sample of each frame and, in stereo, into the second too.
template <typename T>
void pop_frames(sample_fifo& fifo, T* first, size_t stride, size_t frames) {
    ring_pop_n(view(fifo), static_cast<const T*>(fifo.data), first, stride, frames);
    if (stride != 2) return;
    for (size_t i = 0; i < frames; ++i) first[2 * i + 1] = first[2 * i];
}

void take_block(work_space* ws) {
    if (ws->bitsPerSample == 16) {
        pop_frames(ws->inFifo, ws->block, 1, kBlock);
        return;
    }
    pop_frames(ws->inFifo, ws->convBuffer, 1, kBlock);
    for (int i = 0; i < kBlock; ++i) ws->block[i] = s16_from_q8_23_sat(ws->convBuffer[i]);
}

void give_block(work_space* ws) {
    if (ws->bitsPerSample == 16) {
        push_frames(ws->outFifo, ws->block, 1, kBlock);
        return;
    }
    for (int i = 0; i < kBlock; ++i) ws->convBuffer[i] = ws->block[i] * 256;
    push_frames(ws->outFifo, ws->convBuffer, 1, kBlock);
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

/// One full input FIFO through core, make-up gain and compressor into the output FIFO.
void run_block(work_space* ws) {
    const int64_t start_us = now_us();
    take_block(ws);
    if (vcp_process(ws->vcp_ws, ws->block, ws->block, kBlock) < 0) {
        KREL_LOGW(kWrapperTag, "%s: vcp_process failed!", "krel_voice_changer_process");
    }
    if (ws->drcDisable == 0) {
        for (int i = 0; i < kBlock; ++i)
            ws->drcInput[i] = (ws->block[i] * 21) >> 4;  // make-up gain 21/16
        drc_process(&ws->drc, ws->drcInput, ws->block, kBlock);
    }
    give_block(ws);
    count_load(ws, now_us() - start_us);
}

/// Every frame gives one sample to the input FIFO and takes one from the output FIFO; a block runs in between whenever
/// the input FIFO is full. Frames are handled in runs up to that point.
template <typename T>
void process_frames(work_space* ws, T* buffer, size_t frames) {
    // Deliberate: any other number of channels than two advances one sample per frame.
    const size_t stride = ws->chnNum == 2 ? 2 : 1;
    while (frames > 0) {
        const auto room = static_cast<size_t>(ws->inFifo.capacity - ws->inFifo.count);
        const size_t run = std::min(frames, room);
        push_frames(ws->inFifo, buffer, stride, run);
        size_t waiting = run;
        if (run == room) {
            pop_frames(ws->outFifo, buffer, stride, run - 1);
            buffer += (run - 1) * stride;
            waiting = 1;
            run_block(ws);
        }
        pop_frames(ws->outFifo, buffer, stride, waiting);
        buffer += waiting * stride;
        frames -= run;
    }
}

void* start_core(uint32_t sample_rate, const char* caller) {
    void* core = vcp_init(static_cast<int>(sample_rate));
    if (core == nullptr) KREL_LOGW(kWrapperTag, "%s: vcp_init return NULL!", caller);
    return core;
}

bool has_buffers(const work_space* ws) {
    return ws->inFifo.data != nullptr && ws->outFifo.data != nullptr && ws->convBuffer != nullptr &&
           ws->block != nullptr && ws->drcInput != nullptr && ws->drc.gain_history != nullptr &&
           ws->drc.delay_line != nullptr;
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

void* krel_voice_changer_init(unsigned chn_num, unsigned sample_rate, int format_type, int mode) {
    KREL_LOGD(kWrapperTag, "%s: chn_num %d, sample_rate %zu, format_type %d, mode %d",
              "krel_voice_changer_init", static_cast<int>(chn_num),
              static_cast<size_t>(sample_rate), format_type, mode);
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
    ws->vcp_ws = start_core(ws->sampleRate, "krel_voice_changer_init");
    fifo_init(ws->inFifo, ws->bitsPerSample);
    fifo_init(ws->outFifo, ws->bitsPerSample);
    ws->convBuffer = zeroed_raw<int32_t>(kBlock);
    ws->block = zeroed_raw<int16_t>(kBlock);
    ws->drcDisable = mode;
    drc_params_t params = kCompressor;
    drc_init(&ws->drc, &params);
    ws->drcInput = zeroed_raw<int32_t>(kBlock);
    if (!has_buffers(ws)) {
        free_work_space(ws);
        return nullptr;
    }
    return ws;
}

void krel_voice_changer_set_mode(void* ws_handle, int mode) {
    auto* ws = static_cast<work_space*>(ws_handle);
    if (ws == nullptr) return;
    const lock_guard lock;
    if (ws->vcp_ws != nullptr) vcp_deinit(ws->vcp_ws);
    ws->vcp_ws = start_core(ws->sampleRate, "krel_voice_changer_set_mode");
    KREL_LOGD(kWrapperTag, "%s: %d, drc %d", "krel_voice_changer_set_mode", mode, ws->drcDisable);
    vcp_set_mode(ws->vcp_ws, mode);
}

void krel_voice_changer_process(void* ws_handle, void* buffer, size_t size) {
    auto* ws = static_cast<work_space*>(ws_handle);
    if (ws == nullptr) return;
    const lock_guard lock;
    if (ws->vcp_ws == nullptr) {
        KREL_LOGW(kWrapperTag, "%s: vcp_ws is NULL, bypass", "krel_voice_changer_process");
        return;
    }
    if (buffer == nullptr || ws->chnNum == 0) return;
    const size_t frames = size / (size_t{ws->chnNum} * static_cast<size_t>(ws->bytesPerSample));
    if (ws->bitsPerSample == 16) {
        process_frames(ws, static_cast<int16_t*>(buffer), frames);
        return;
    }
    auto* samples = static_cast<int32_t*>(buffer);
    const size_t count = frames * ws->chnNum;
    if (ws->formatType == KREL_FORMAT_S32) {
        for (size_t i = 0; i < count; ++i) samples[i] = q8_23_from_s32(samples[i]);
    }
    process_frames(ws, samples, frames);
    if (ws->formatType == KREL_FORMAT_S32) {
        for (size_t i = 0; i < count; ++i) samples[i] = s32_from_q8_23_sat(samples[i]);
    }
}

void krel_voice_changer_deinit(void* ws_handle) {
    auto* ws = static_cast<work_space*>(ws_handle);
    if (ws == nullptr) return;
    KREL_LOGD(kWrapperTag, "%s", "krel_voice_changer_deinit");
    const lock_guard lock;
    free_work_space(ws);
}
