// SPDX-License-Identifier: Apache-2.0
// The voice as an LV2 plug-in. A voice is built by the host's worker; where there is none, or where
// the host does not keep to the clock and would outrun it, in run() itself.
#include <lv2/core/lv2.h>
#include <lv2/worker/worker.h>
#include <math.h>
#include <stdlib.h>
#include <string.h>

#include <algorithm>
#include <atomic>
#include <new>

#include "engine/voice.h"
#include "lv2/ports.h"

namespace krel {
namespace {

class voice_plugin {
  public:
    voice_plugin(int rate_hz, const LV2_Worker_Schedule* worker)
        : rate_hz_(rate_hz), worker_(worker) {}
    ~voice_plugin() { krel_voice_release(voice_); }
    voice_plugin(const voice_plugin&) = delete;
    voice_plugin& operator=(const voice_plugin&) = delete;

    bool start();
    void activate() {
        if (started_) start();
    }
    void connect(uint32_t port, void* data) {
        if (port < kPorts) ports_[port] = static_cast<float*>(data);
    }
    void run(uint32_t count);
    void build(int number);

  private:
    [[nodiscard]] bool is_on(Port port, bool otherwise) const {
        return ports_[port] == nullptr ? otherwise : *ports_[port] > 0.0f;
    }
    [[nodiscard]] int chosen() const;
    void choose(int number);
    void report_latency();

    const int rate_hz_;
    const LV2_Worker_Schedule* const worker_;  // null: none
    float* ports_[kPorts] = {};
    krel_voice* voice_ = nullptr;
    int wanted_ = kDefaultVoice;             // the last that was asked for
    std::atomic<int> built_{kDefaultVoice};  // the last that was built
    bool started_ = false;
};

/// A fresh engine, with no memory of what went before.
bool voice_plugin::start() {
    krel_voice* fresh = krel_voice_create(rate_hz_, wanted_, nullptr, nullptr);
    if (fresh == nullptr) return false;
    krel_voice_release(voice_);
    voice_ = fresh;
    built_ = wanted_;
    started_ = false;
    return true;
}

int voice_plugin::chosen() const {
    const float value = ports_[kVoice] == nullptr ? kDefaultVoice : *ports_[kVoice];
    const auto last = static_cast<float>(krel_voice_count() - 1);
    return value >= 0.0f ? static_cast<int>(lrintf(std::min(value, last))) : 0;
}

void voice_plugin::choose(int number) {
    if (number == wanted_) return;
    if (worker_ == nullptr || is_on(kFreeWheeling, false)) {
        build(number);
    } else if (worker_->schedule_work(worker_->handle, sizeof number, &number) !=
               LV2_WORKER_SUCCESS) {
        return;  // the next run asks again
    }
    wanted_ = number;
}

/// Any thread but the audio thread, as far as there is a choice. Without memory the voice stays
/// what it is.
void voice_plugin::build(int number) {
    krel_voice_prepare(voice_, number);
    built_.store(number, std::memory_order_release);
}

void voice_plugin::report_latency() {
    if (ports_[kLatency] == nullptr) return;
    const int number = started_ ? krel_voice_heard(voice_) : wanted_;
    *ports_[kLatency] = static_cast<float>(krel_voice_latency(number, rate_hz_));
}

void voice_plugin::run(uint32_t count) {
    choose(chosen());
    krel_voice_bypass(voice_, is_on(kEnabled, true) ? 0 : 1);
    // The first voice begins at once when it is there: before it there is nothing to fade from.
    if (!started_) started_ = count > 0 && built_.load(std::memory_order_acquire) == wanted_;
    float* const out = ports_[kOut];
    if (count > 0 && out != nullptr && started_ && ports_[kIn] != nullptr) {
        if (out != ports_[kIn]) std::copy_n(ports_[kIn], count, out);
        krel_voice_process_float(voice_, out, count);
    } else if (count > 0 && out != nullptr) {
        std::fill_n(out, count, 0.0f);
    }
    report_latency();
}

// ---- the interface ------------------------------------------------------------------------------

voice_plugin* plugin(LV2_Handle instance) { return static_cast<voice_plugin*>(instance); }

LV2_Handle instantiate(const LV2_Descriptor* /*descriptor*/, double rate, const char* /*bundle*/,
                       const LV2_Feature* const* features) {
    const LV2_Worker_Schedule* worker = nullptr;
    for (; features != nullptr && *features != nullptr; ++features) {
        if (strcmp((*features)->URI, LV2_WORKER__schedule) == 0)
            worker = static_cast<const LV2_Worker_Schedule*>((*features)->data);
    }
    void* memory = malloc(sizeof(voice_plugin));
    if (memory == nullptr) return nullptr;
    const bool carried = rate >= 1.0 && rate <= 1e6;  // the engine knows the exact limits
    auto* self = new (memory) voice_plugin(carried ? static_cast<int>(lrint(rate)) : 0, worker);
    if (self->start()) return self;
    self->~voice_plugin();
    free(memory);
    return nullptr;
}

void connect_port(LV2_Handle instance, uint32_t port, void* data) {
    plugin(instance)->connect(port, data);
}

void activate(LV2_Handle instance) { plugin(instance)->activate(); }

void run(LV2_Handle instance, uint32_t count) { plugin(instance)->run(count); }

void cleanup(LV2_Handle instance) {
    plugin(instance)->~voice_plugin();
    free(instance);
}

LV2_Worker_Status work(LV2_Handle instance, LV2_Worker_Respond_Function /*respond*/,
                       LV2_Worker_Respond_Handle /*handle*/, uint32_t size, const void* data) {
    int number = 0;
    if (size != sizeof number) return LV2_WORKER_ERR_UNKNOWN;
    memcpy(&number, data, sizeof number);
    plugin(instance)->build(number);
    return LV2_WORKER_SUCCESS;
}

LV2_Worker_Status work_response(LV2_Handle /*instance*/, uint32_t /*size*/, const void* /*data*/) {
    return LV2_WORKER_SUCCESS;  // nothing to do: the engine takes the voice by itself
}

const void* extension_data(const char* uri) {
    static const LV2_Worker_Interface kWorker = {work, work_response, nullptr};
    return strcmp(uri, LV2_WORKER__interface) == 0 ? &kWorker : nullptr;
}

const LV2_Descriptor kDescriptor = {kPluginUri, instantiate, connect_port, activate,
                                    run,        nullptr,     cleanup,      extension_data};

}  // namespace
}  // namespace krel

LV2_SYMBOL_EXPORT const LV2_Descriptor* lv2_descriptor(uint32_t index) {
    return index == 0 ? &krel::kDescriptor : nullptr;
}
