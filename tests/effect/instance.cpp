#include "tests/effect/instance.h"

#include <gtest/gtest.h>
#include <string.h>

#include "effect/effect_library.h"
#include "effect/instance.h"

namespace krel_test {
namespace {

struct PresetParam {
    int32_t status = 0;
    uint32_t psize = 4, vsize = 4;
    int32_t id = 0, value = 0;
};

}  // namespace

effect_config_t platform_config(const Config& config) {
    effect_config_t cfg;
    memset(&cfg, 0xA5, sizeof cfg);  // padding is garbage in real life too
    for (buffer_config_t* side : {&cfg.inputCfg, &cfg.outputCfg}) {
        side->buffer.frameCount = 0;
        side->buffer.raw = nullptr;
        side->samplingRate = config.rate_hz;
        side->channels = config.mask;
        side->bufferProvider = {};
        side->format = static_cast<uint8_t>(config.format);
        side->accessMode = EFFECT_BUFFER_ACCESS_READ;
        side->mask = EFFECT_CONFIG_ALL;
    }
    cfg.outputCfg.accessMode = config.access;
    return cfg;
}

Instance::Instance() { AELI.create_effect(&kUuid, 0, 0, &handle_); }

Instance::Instance(const Config& config, std::optional<int32_t> preset) : Instance() {
    // As if it had always been the preset: choosing it by parameter would arm a switch.
    if (preset) reinterpret_cast<krel_vcp_context_t*>(handle_)->mode = *preset;
    EXPECT_EQ(configure(config), 0);
}

Instance::~Instance() {
    if (handle_ != nullptr) AELI.release_effect(handle_);
}

int32_t Instance::command(uint32_t code, uint32_t size, void* data, uint32_t* reply_size,
                          void* reply) {
    return (*handle_)->command(handle_, code, size, data, reply_size, reply);
}

int32_t Instance::status_of(uint32_t code, uint32_t size, void* data) {
    int32_t status = 12345;
    uint32_t reply_size = sizeof status;
    EXPECT_EQ(command(code, size, data, &reply_size, &status), 0);
    EXPECT_EQ(reply_size, sizeof status);
    return status;
}

int32_t Instance::configure(const Config& config) {
    effect_config_t cfg = platform_config(config);
    return status_of(EFFECT_CMD_SET_CONFIG, sizeof cfg, &cfg);
}

int32_t Instance::set_preset(int32_t preset) {
    PresetParam param = {.value = preset};
    return status_of(EFFECT_CMD_SET_PARAM, sizeof param, &param);
}

int32_t Instance::preset() {
    PresetParam param, reply;
    uint32_t reply_size = sizeof reply;
    EXPECT_EQ(command(EFFECT_CMD_GET_PARAM, 16, &param, &reply_size, &reply), 0);
    EXPECT_EQ(reply_size, sizeof reply);
    return reply.value;
}

void Instance::enable() { EXPECT_EQ(status_of(EFFECT_CMD_ENABLE), 0); }
void Instance::disable() { EXPECT_EQ(status_of(EFFECT_CMD_DISABLE), 0); }

int32_t Instance::process(void* in, void* out, size_t frames) {
    audio_buffer_t in_buffer = {}, out_buffer = {};
    in_buffer.frameCount = out_buffer.frameCount = frames;
    in_buffer.raw = in;
    out_buffer.raw = out;
    return (*handle_)->process(handle_, &in_buffer, &out_buffer);
}

template <typename T>
std::vector<T> Instance::run(std::vector<T> block, int32_t result) {
    EXPECT_EQ(process(block.data(), block.data(), block.size() / 2), result);
    return block;
}
template std::vector<int16_t> Instance::run(std::vector<int16_t>, int32_t);
template std::vector<int32_t> Instance::run(std::vector<int32_t>, int32_t);
template std::vector<float> Instance::run(std::vector<float>, int32_t);

}  // namespace krel_test
