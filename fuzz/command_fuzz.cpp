// SPDX-License-Identifier: Apache-2.0
// The control path: library calls and commands of any code, size, payload and order, in every
// state, on several instances.
#include <errno.h>

#include "effect/effect_library.h"
#include "fuzz/effect_calls.h"
#include "fuzz/fuzzer.h"
#include "fuzz/signal.h"

using namespace krel_fuzz;

namespace {

constexpr int kMostSteps = 64;
constexpr int kMostRebuilds = 6;  // commands that make a new voice changer
constexpr int kSlots = 3;

/// `size` bytes, `shift` bytes off any alignment, with nothing behind them.
class Bytes {
  public:
    Bytes(const void* from, size_t size, size_t shift) : buffer_(shift + size), shift_(shift) {
        if (size > 0) memcpy(data(), from, size);
    }
    uint8_t* data() { return buffer_.data() + shift_; }
    template <typename T>
    T as() {
        T value;
        memcpy(&value, data(), sizeof value);
        return value;
    }

  private:
    Buffer<uint8_t> buffer_;
    size_t shift_;
};

template <typename T>
std::vector<uint8_t> bytes_of(const T& value) {
    std::vector<uint8_t> bytes(sizeof value);
    memcpy(bytes.data(), &value, sizeof value);
    return bytes;
}

krel_vcp_param_t draw_param(Draw& d) {
    krel_vcp_param_t param = KREL_VCP_PARAM(draw_preset(d));
    if (d.one_in(4)) param.psize = d.any<uint32_t>();
    if (d.one_in(4)) param.vsize = d.any<uint32_t>();
    if (d.one_in(4)) param.id = d.any<int32_t>();
    return param;
}

std::vector<uint8_t> draw_noise(Draw& d) {
    std::vector<uint8_t> bytes(static_cast<size_t>(d.range(0, 200)));
    Signal noise(d);
    fill(bytes, noise);
    return bytes;
}

/// What the command expects, as a rule; else another command's payload or noise, or the right one
/// cut or extended.
std::vector<uint8_t> draw_payload(Draw& d, uint32_t code) {
    constexpr uint32_t kOthers[] = {EFFECT_CMD_SET_CONFIG, EFFECT_CMD_SET_PARAM,
                                    EFFECT_CMD_GET_PARAM, EFFECT_CMD_SET_VOLUME, EFFECT_CMD_RESET};
    std::vector<uint8_t> bytes;
    switch (d.one_in(4) ? d.pick(kOthers) : code) {
        case EFFECT_CMD_SET_CONFIG:
            bytes = bytes_of(draw_config(d));
            break;
        case EFFECT_CMD_SET_PARAM:
            bytes = bytes_of(draw_param(d));
            break;
        case EFFECT_CMD_GET_PARAM:
            bytes = bytes_of(draw_param(d));
            bytes.resize(sizeof(krel_vcp_param_t) - sizeof(int32_t));
            break;
        case EFFECT_CMD_SET_VOLUME:
        case EFFECT_CMD_SET_AUDIO_MODE:
        case EFFECT_CMD_SET_SAMPLE_RATE:
            bytes = bytes_of(d.rate());
            break;
        default:
            bytes = draw_noise(d);
            break;
    }
    if (d.one_in(8)) bytes.resize(static_cast<size_t>(d.range(0, 200)));
    return bytes;
}

/// The reply's size that most commands expect, one that a parameter's answer takes, or about as
/// much as either.
uint32_t draw_reply_size(Draw& d, uint32_t code) {
    constexpr uint32_t kSizes[] = {0, 1, 3, 4, 5, 15, 16, 17, 19, 20, 21, 40};
    if (d.one_in(3)) return d.pick(kSizes);
    return code == EFFECT_CMD_GET_PARAM ? sizeof(krel_vcp_param_t) : sizeof(int32_t);
}

uint32_t draw_code(Draw& d) {
    constexpr uint32_t kCodes[] = {
            EFFECT_CMD_SET_CONFIG, EFFECT_CMD_ENABLE,         EFFECT_CMD_SET_PARAM,
            EFFECT_CMD_GET_PARAM,  EFFECT_CMD_SET_CONFIG,     EFFECT_CMD_DISABLE,
            EFFECT_CMD_INIT,       EFFECT_CMD_SET_AUDIO_MODE, EFFECT_CMD_SET_VOLUME,
            EFFECT_CMD_RESET,      EFFECT_CMD_SET_SAMPLE_RATE};
    if (!d.one_in(8)) return d.pick(kCodes);
    return d.one_in(2) ? d.any<uint32_t>() : static_cast<uint32_t>(d.range(0, 24));
}

/// These write their status wherever the reply points to, whatever its size says.
bool trusts_reply(uint32_t code) {
    return code == EFFECT_CMD_INIT || code == EFFECT_CMD_SET_VOLUME ||
           code == EFFECT_CMD_SET_AUDIO_MODE || code == EFFECT_CMD_SET_SAMPLE_RATE;
}

void check_answer(uint32_t code, int32_t result, uint32_t offered, uint32_t answered) {
    require(result == 0 || result == -EINVAL || result == -ENOSYS, "a documented result");
    require(answered <= offered, "the reply never grows");
    require(answered == offered || (code == EFFECT_CMD_GET_PARAM && result == 0 &&
                                    (answered == 16 || answered == 20)),
            "only a parameter's answer has a size of its own");
}

class Session {
  public:
    explicit Session(Draw& d) : d_(d) {}
    ~Session() {
        for (effect_handle_t handle : slots_) AELI.release_effect(handle);
    }
    Session(const Session&) = delete;
    Session& operator=(const Session&) = delete;

    void step() {
        effect_handle_t& slot = slots_[d_.range(0, kSlots - 1)];
        const int32_t kind = d_.range(0, 15);
        if (kind == 15) return query();
        if (kind == 14) return release(slot);
        if (slot == nullptr) return create(slot);
        if (kind == 13) return describe(slot);
        if (kind == 12) return run_refused_block(slot, d_);
        if (kind >= 10) return run_block(slot, d_, static_cast<size_t>(d_.range(1, 300)));
        command(slot);
    }

  private:
    effect_uuid_t draw_uuid() {
        effect_uuid_t uuid = kUuid;
        if (d_.one_in(8)) uuid.node[5] ^= d_.any<uint8_t>();
        if (d_.one_in(8)) uuid = d_.any<effect_uuid_t>();
        return uuid;
    }

    void create(effect_handle_t& slot) {
        const effect_uuid_t uuid = draw_uuid();
        const bool no_uuid = d_.one_in(16);
        const bool no_handle = d_.one_in(16);
        const int32_t session = d_.range(-128, 127);
        const int32_t result = AELI.create_effect(no_uuid ? nullptr : &uuid, session, -session,
                                                  no_handle ? nullptr : &slot);
        const bool ours = memcmp(&uuid, &kUuid, sizeof uuid) == 0;
        require(result == (no_uuid || no_handle ? -EINVAL : ours ? 0 : -ENOENT), "creation");
        require((slot != nullptr) == (result == 0), "a handle comes with success only");
    }

    static void release(effect_handle_t& slot) {
        require(AELI.release_effect(slot) == (slot == nullptr ? -EINVAL : 0), "release");
        slot = nullptr;
    }

    void describe(effect_handle_t slot) {
        effect_descriptor_t descriptor;
        const bool nowhere = d_.one_in(4);
        const int32_t result = (*slot)->get_descriptor(slot, nowhere ? nullptr : &descriptor);
        require(result == (nowhere ? -EINVAL : 0), "an instance's descriptor");
    }

    void query() {
        effect_descriptor_t descriptor;
        uint32_t effects = 0;
        const effect_uuid_t uuid = draw_uuid();
        const bool nowhere = d_.one_in(8);
        AELI.get_descriptor(d_.one_in(8) ? nullptr : &uuid, nowhere ? nullptr : &descriptor);
        EffectQueryEffect(d_.any<uint8_t>(), nowhere ? nullptr : &descriptor);
        EffectQueryNumberEffects(nowhere ? nullptr : &effects);
        require(effects == (nowhere ? 0 : 1), "one effect");
    }

    void command(effect_handle_t slot) {
        const uint32_t code = draw_code(d_);
        if (code == EFFECT_CMD_SET_CONFIG || code == EFFECT_CMD_SET_SAMPLE_RATE) {
            if (++rebuilds_ > kMostRebuilds) return;
        }
        const std::vector<uint8_t> payload = draw_payload(d_, code);
        Bytes data(payload.data(), payload.size(), static_cast<size_t>(d_.range(0, 3)));
        // A size that no command knows promises nothing about the data.
        const bool odd_size = d_.one_in(16);
        const auto size =
                odd_size ? 0x80000000U + d_.any<uint8_t>() : static_cast<uint32_t>(payload.size());

        const uint32_t reply_bytes = draw_reply_size(d_, code);
        const std::vector<uint8_t> empty(trusts_reply(code) ? std::max(reply_bytes, 4U)
                                                            : reply_bytes);
        Bytes reply(empty.data(), empty.size(), static_cast<size_t>(d_.range(0, 3)));
        Bytes reply_size(&reply_bytes, sizeof reply_bytes, static_cast<size_t>(d_.range(0, 3)));
        const int32_t nulls = d_.range(0, 15);
        const int32_t result = (*slot)->command(
                nulls == 15 ? nullptr : slot, code, size,
                nulls == 14 || nulls == 11 ? nullptr : data.data(),
                nulls == 13 || nulls == 11 ? nullptr
                                           : reinterpret_cast<uint32_t*>(reply_size.data()),
                nulls == 12 || nulls == 11 ? nullptr : reply.data());
        check_answer(code, result, reply_bytes, reply_size.as<uint32_t>());
    }

    Draw& d_;
    effect_handle_t slots_[kSlots] = {};
    int rebuilds_ = 0;
};

}  // namespace

int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    start_execution();
    Draw d(data, size);
    Session session(d);
    for (int step = 0; d.more() && step < kMostSteps; ++step) session.step();
    return 0;
}
