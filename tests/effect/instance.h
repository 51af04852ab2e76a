// One effect instance, driven only through AELI, with shorthands for the commands.
#ifndef KREL_TESTS_EFFECT_INSTANCE_H
#define KREL_TESTS_EFFECT_INSTANCE_H

#include <hardware/audio_effect.h>

#include <optional>
#include <vector>

namespace krel_test {

inline constexpr effect_uuid_t kUuid = {
        0x40050b20, 0x6999, 0x11e0, 0xb0d8, {0x00, 0x02, 0xa5, 0xd5, 0xc5, 0x26}};
inline constexpr uint32_t kSetSampleRate = 0xFFFF;

struct Config {
    audio_format_t format = AUDIO_FORMAT_PCM_16_BIT;
    uint32_t rate_hz = 48000;
    uint32_t mask = AUDIO_CHANNEL_OUT_STEREO;
    uint8_t access = EFFECT_BUFFER_ACCESS_WRITE;
};
effect_config_t platform_config(const Config& config);

class Instance {
  public:
    Instance();
    explicit Instance(const Config& config, std::optional<int32_t> preset = {});
    ~Instance();
    Instance(const Instance&) = delete;
    Instance& operator=(const Instance&) = delete;

    [[nodiscard]] bool created() const { return handle_ != nullptr; }

    /// Raw access to slot 2.
    int32_t command(uint32_t code, uint32_t size, void* data, uint32_t* reply_size, void* reply);
    /// A command with a 4-byte status reply; the call's result must be 0, the status is returned.
    int32_t status_of(uint32_t code, uint32_t size = 0, void* data = nullptr);
    int32_t configure(const Config& config);
    int32_t set_preset(int32_t preset);
    int32_t preset();
    void enable();
    void disable();

    /// Slot 1, with separate or equal buffers.
    int32_t process(void* in, void* out, size_t frames);

    /// Processes `block` (two samples per frame) in place; expects `result`.
    template <typename T>
    std::vector<T> run(std::vector<T> block, int32_t result = 0);

    effect_handle_t handle() { return handle_; }

  private:
    effect_handle_t handle_ = nullptr;
};

}  // namespace krel_test

#endif
