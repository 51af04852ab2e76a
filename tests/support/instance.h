// SPDX-License-Identifier: Apache-2.0
// One effect instance, driven only through AELI, with shorthands for the commands.
#ifndef KREL_TESTS_SUPPORT_INSTANCE_H
#define KREL_TESTS_SUPPORT_INSTANCE_H

#include <gtest/gtest.h>
#include <string.h>

#include <string>
#include <utility>
#include <vector>

#include "effect/effect_library.h"
#include "effect/instance.h"
#include "effect/interface.h"

namespace krel_test {

inline constexpr effect_uuid_t kUuid = KREL_VCP_UUID;
inline constexpr int32_t kPlain = 7;  // a preset whose core leaves samples alone

struct Config {
    uint32_t format = AUDIO_FORMAT_PCM_16_BIT;
    uint32_t rate_hz = 48000;
    uint32_t mask = AUDIO_CHANNEL_OUT_STEREO;
    uint32_t access = EFFECT_BUFFER_ACCESS_WRITE;
};

class Instance {
  public:
    Instance() { result_ = AELI.create_effect(&kUuid, 0, 0, &handle_); }
    /// As if it had always been the preset: choosing it by parameter would arm a switch.
    explicit Instance(const Config& config, int32_t preset = kPlain) : Instance() {
        record().mode = preset;
        EXPECT_EQ(configure(config), 0);
    }
    ~Instance() {
        if (handle_ != nullptr) release();
    }
    Instance(const Instance&) = delete;
    Instance& operator=(const Instance&) = delete;

    int32_t release() { return AELI.release_effect(std::exchange(handle_, nullptr)); }
    [[nodiscard]] int32_t result_of_creation() const { return result_; }
    effect_handle_t handle() { return handle_; }
    krel_vcp_context_t& record() { return *reinterpret_cast<krel_vcp_context_t*>(handle_); }

    /// Any command, with everything at odd addresses. reply: its size, "4-" for a size without a
    /// reply, "none" for neither. Returns the result, the reply's size afterwards, and those of six
    /// words of the reply that were written.
    std::vector<int32_t> command(uint32_t code, uint32_t size, const void* data, size_t data_bytes,
                                 const std::string& reply = "4") {
        const bool sized = reply != "none";
        const bool wanted = sized && reply.back() != '-';
        const int32_t offered = sized ? std::stoi(reply) : 0;
        std::vector<char> payload(1 + data_bytes);
        std::vector<char> answer(1 + 6 * 4, 'Z');
        std::vector<char> reply_size(5);
        if (data != nullptr) memcpy(&payload[1], data, data_bytes);
        memcpy(&reply_size[1], &offered, sizeof offered);
        auto* size_at = reinterpret_cast<uint32_t*>(&reply_size[1]);
        std::vector<int32_t> out(1);
        std::vector<int32_t> words(7);
        out[0] = (*handle_)->command(handle_, code, size, data != nullptr ? &payload[1] : nullptr,
                                     sized ? size_at : nullptr, wanted ? &answer[1] : nullptr);
        memcpy(&words[0], &reply_size[1], 4);
        memcpy(&words[1], &answer[1], 6 * 4);
        for (const int32_t word : words) {
            if (word != 0x5A5A5A5A) out.push_back(word);
        }
        return out;
    }
    /// A command with a 4-byte status reply; returns the call's result, or else the status.
    int32_t send(uint32_t code, uint32_t size = 0, const void* data = nullptr) {
        const auto answer = command(code, size, data, size);
        EXPECT_EQ(answer.size() == 2, answer[0] != 0);
        return answer[0] != 0 ? answer[0] : answer.at(2);
    }
    std::vector<int32_t> configure(const Config& in, const Config& out, uint32_t in_access) {
        effect_config_t config;
        memset(&config, 0xA5, sizeof config);  // padding is garbage in real life too
        const auto fill = [](buffer_config_t& side, const Config& from, uint32_t access) {
            side.samplingRate = from.rate_hz;
            side.channels = from.mask;
            side.format = static_cast<uint8_t>(from.format);
            side.accessMode = static_cast<uint8_t>(access);
        };
        fill(config.inputCfg, in, in_access);
        fill(config.outputCfg, out, out.access);
        return command(EFFECT_CMD_SET_CONFIG, sizeof config, &config, sizeof config);
    }
    int32_t configure(const Config& c) {
        const auto answer = configure(c, c, EFFECT_BUFFER_ACCESS_READ);
        return answer[0] != 0 ? answer[0] : answer.at(2);
    }
    int32_t set_preset(int32_t preset) {
        const int32_t parameter[] = {0, 4, 4, 0, preset};
        return send(EFFECT_CMD_SET_PARAM, sizeof parameter, parameter);
    }
    void enable() { EXPECT_EQ(send(EFFECT_CMD_ENABLE), 0); }
    void disable() { EXPECT_EQ(send(EFFECT_CMD_DISABLE), 0); }

    int32_t process(void* in, void* out, size_t frames) {
        audio_buffer_t in_buffer = {frames, {in}};
        audio_buffer_t out_buffer = {frames, {out}};
        return (*handle_)->process(handle_, &in_buffer, &out_buffer);
    }
    /// Two samples per frame, in place.
    template <typename T>
    std::vector<T> run(std::vector<T> block, int32_t result = 0) {
        EXPECT_EQ(process(block.data(), block.data(), block.size() / 2), result);
        return block;
    }

  private:
    effect_handle_t handle_ = nullptr;
    int32_t result_;
};

}  // namespace krel_test

#endif
