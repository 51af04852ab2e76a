#include <gtest/gtest.h>
#include <stdlib.h>
#include <string.h>

#include <array>

#include "effect/effect_library.h"
#include "effect/instance.h"
#include "tests/effect/instance.h"
#include "tests/support/log_capture.h"

namespace {

using krel_test::Config;
using krel_test::Instance;
using krel_test::kSetSampleRate;
using krel_test::kUuid;
using krel_test::LogCapture;
using krel_test::LogLine;
using krel_test::platform_config;

const krel_vcp_context_t& record(Instance& instance) {
    return *reinterpret_cast<krel_vcp_context_t*>(instance.handle());
}

void expect_our_descriptor(const effect_descriptor_t& descriptor) {
    EXPECT_EQ(memcmp(&descriptor.type, &kUuid, 16), 0);
    EXPECT_EQ(memcmp(&descriptor.uuid, &kUuid, 16), 0);
    EXPECT_EQ(descriptor.apiVersion, 0x00020000U);
    EXPECT_EQ(descriptor.flags, 0U);
    EXPECT_EQ(descriptor.cpuLoad, 0);
    EXPECT_EQ(descriptor.memoryUsage, 1);
    char name[64] = "KREL VCP Library";
    char implementor[64] = "ZOLT Electronics Technology Corp., Ltd";
    EXPECT_EQ(memcmp(descriptor.name, name, 64), 0) << "text and zero padding";
    EXPECT_EQ(memcmp(descriptor.implementor, implementor, 64), 0);
}

effect_descriptor_t garbage_descriptor() {
    effect_descriptor_t descriptor;
    memset(&descriptor, 0x5A, sizeof descriptor);
    return descriptor;
}

TEST(Library, RecordAndDescriptorsSayWhatTheFrameworkChecks) {
    EXPECT_EQ(AELI.tag, 0x41454C54U);
    EXPECT_EQ(AELI.version, 0x00030000U);
    EXPECT_STREQ(AELI.name, "KREL VCP Library");
    EXPECT_STREQ(AELI.implementor, "ZOLT Electronics Technology Corp., Ltd");

    auto descriptor = garbage_descriptor();
    EXPECT_EQ(AELI.get_descriptor(&kUuid, &descriptor), 0);
    expect_our_descriptor(descriptor);
    descriptor = garbage_descriptor();
    EXPECT_EQ(EffectQueryEffect(0, &descriptor), 0);
    expect_our_descriptor(descriptor);
    Instance instance;
    descriptor = garbage_descriptor();
    EXPECT_EQ((*instance.handle())->get_descriptor(instance.handle(), &descriptor), 0);
    expect_our_descriptor(descriptor);
    EXPECT_EQ((*instance.handle())->process_reverse, nullptr);
    uint32_t effects = 0;
    EXPECT_EQ(EffectQueryNumberEffects(&effects), 0);
    EXPECT_EQ(effects, 1U);
}

TEST(Library, InstancesStartWithTheirDefaultsAndLogTheirLife) {
    LogCapture log;
    {
        Instance instance;
        const krel_vcp_context_t& ctx = record(instance);
        EXPECT_EQ(ctx.state, krel::kInactive);
        EXPECT_EQ(ctx.sampleRate, 48000U);
        EXPECT_EQ(ctx.frameCount, 1200U);
        EXPECT_EQ(ctx.format, static_cast<uint32_t>(AUDIO_FORMAT_PCM_16_BIT));
        EXPECT_EQ(ctx.formatType, 1);
        EXPECT_EQ(ctx.mode, 3);
        EXPECT_FALSE(ctx.enabled);
        EXPECT_EQ(ctx.workBuffer, nullptr);
        EXPECT_EQ(ctx.wrapper, nullptr);
        instance.set_preset(5);
    }
    const std::vector<LogLine> expected = {{3, "_K_krel_vcp_sfx", "EffectCreate"},
                                           {3, "_K_krel_vcp_sfx", "set fx preset 5"},
                                           {3, "_K_krel_vcp_sfx", "EffectRelease"}};
    EXPECT_EQ(log.lines(), expected);
}

TEST(Library, BadArgumentsGetTheDocumentedCodes) {
    effect_uuid_t other = kUuid;
    other.node[5] ^= 1;
    effect_handle_t handle = nullptr;
    effect_descriptor_t descriptor;
    EXPECT_EQ(EffectCreate(nullptr, 0, 0, &handle), -EINVAL);
    EXPECT_EQ(EffectCreate(&kUuid, 0, 0, nullptr), -EINVAL);
    EXPECT_EQ(EffectCreate(&other, 0, 0, &handle), -ENOENT);
    EXPECT_EQ(handle, nullptr);
    EXPECT_EQ(EffectRelease(nullptr), -EINVAL);
    {
        LogCapture log;
        EXPECT_EQ(EffectGetDescriptor(nullptr, &descriptor), -EINVAL);
        EXPECT_EQ(EffectGetDescriptor(&kUuid, nullptr), -EINVAL);
        const LogLine warning = {5, "_K_krel_vcp_sfx",
                                 "EffectGetDescriptor() called with NULL pointer"};
        EXPECT_EQ(log.lines(), (std::vector<LogLine>{warning, warning}));
        log.clear();
        EXPECT_EQ(EffectGetDescriptor(&other, &descriptor), -EINVAL);
        EXPECT_TRUE(log.lines().empty());
    }
    EXPECT_EQ(EffectQueryEffect(1, &descriptor), -EINVAL);
    EXPECT_EQ(EffectQueryEffect(0, nullptr), -EINVAL);
    EXPECT_EQ(EffectQueryNumberEffects(nullptr), -EINVAL);
    Instance instance;
    EXPECT_EQ((*instance.handle())->get_descriptor(instance.handle(), nullptr), -EINVAL);
}

// Which of size, data, reply size and reply a command insists on, and what it answers then.
struct CommandRow {
    uint32_t code;
    uint32_t size;  // the only accepted size; kAnySize: not looked at
    bool needs_data;
    uint32_t reply_size;  // the only accepted reply size; 0: reply not looked at
    bool writes_status;
};
constexpr uint32_t kAnySize = UINT32_MAX;
constexpr CommandRow kRows[] = {
        {EFFECT_CMD_INIT, kAnySize, false, 0, true},
        {EFFECT_CMD_RESET, kAnySize, false, 0, false},
        {EFFECT_CMD_SET_PARAM_DEFERRED, kAnySize, false, 0, false},
        {EFFECT_CMD_SET_PARAM_COMMIT, kAnySize, false, 0, false},
        {EFFECT_CMD_SET_DEVICE, kAnySize, false, 0, false},
        {EFFECT_CMD_SET_VOLUME, 4, true, 0, true},
        {EFFECT_CMD_SET_AUDIO_MODE, 4, true, 0, true},
        {kSetSampleRate, 4, true, 0, true},
        {EFFECT_CMD_SET_CONFIG, sizeof(effect_config_t), true, 4, true},
        {EFFECT_CMD_SET_PARAM, 20, true, 4, true},
        {12, kAnySize, false, 0, false},
        {0x10000, kAnySize, false, 0, false},
        {0xFFFFFFFF, kAnySize, false, 0, false},
};

class CommandTable : public testing::TestWithParam<CommandRow> {
  protected:
    CommandTable() : instance_(Config{}) {
        effect_config_t cfg = platform_config({});
        memcpy(payload_.data(), &cfg, sizeof cfg);
        if (GetParam().code == EFFECT_CMD_SET_PARAM) {
            const int32_t param[] = {0, 4, 4, 0, 5};
            memcpy(payload_.data(), param, sizeof param);
        }
        if (GetParam().code == kSetSampleRate) {
            const uint32_t rate = 44100;
            memcpy(payload_.data(), &rate, sizeof rate);
        }
    }
    uint32_t good_size() const { return GetParam().size == kAnySize ? 0 : GetParam().size; }
    int32_t send(uint32_t size, void* data, uint32_t* reply_size, void* reply) {
        return instance_.command(GetParam().code, size, data, reply_size, reply);
    }

    Instance instance_;
    std::array<char, 256> payload_{};
};

TEST_P(CommandTable, AnswersGoodCalls) {
    int32_t status = 777;
    uint32_t reply_size = 4;
    EXPECT_EQ(send(good_size(), payload_.data(), &reply_size, &status), 0);
    EXPECT_EQ(status, GetParam().writes_status ? 0 : 777);
    EXPECT_EQ(reply_size, 4U);
    // At odd addresses as well.
    std::array<char, 257> shifted{};
    memcpy(shifted.data() + 1, payload_.data(), payload_.size());
    char odd_reply[5] = {};
    EXPECT_EQ(send(good_size(), shifted.data() + 1, &reply_size, odd_reply + 1), 0);
}

TEST_P(CommandTable, RefusesBadSizesAndNullPointersWithoutAnswering) {
    const auto& row = GetParam();
    int32_t status = 777;
    uint32_t reply_size = 4;
    for (const uint32_t size : {good_size() + 1, good_size() - 1, 0U, 5000U}) {
        if (row.size == kAnySize || size == good_size()) continue;
        EXPECT_EQ(send(size, payload_.data(), &reply_size, &status), -EINVAL) << size;
    }
    EXPECT_EQ(status, 777);
    if (row.needs_data) {
        EXPECT_EQ(send(good_size(), nullptr, &reply_size, &status), -EINVAL);
    }
    const int32_t without_reply = row.reply_size != 0 ? -EINVAL : 0;
    EXPECT_EQ(send(good_size(), payload_.data(), &reply_size, nullptr), without_reply);
    if (row.reply_size != 0) {
        EXPECT_EQ(send(good_size(), payload_.data(), nullptr, &status), -EINVAL);
        for (const uint32_t size : {0U, 3U, 5U, 400U}) {
            uint32_t wrong = size;
            EXPECT_EQ(send(good_size(), payload_.data(), &wrong, &status), -EINVAL) << size;
            EXPECT_EQ(wrong, size);
        }
        EXPECT_EQ(status, 777);
    }
}
INSTANTIATE_TEST_SUITE_P(Command, CommandTable, testing::ValuesIn(kRows),
                         [](const auto& row) { return "Code" + std::to_string(row.param.code); });

TEST(Command, EnableAndDisableWantTheirStateAndAFourByteReply) {
    Instance instance;
    int32_t status = 777;
    for (const uint32_t size : {0U, 3U, 5U}) {
        uint32_t wrong = size;
        EXPECT_EQ(instance.command(EFFECT_CMD_ENABLE, 0, nullptr, &wrong, &status), -EINVAL);
        EXPECT_EQ(instance.command(EFFECT_CMD_DISABLE, 0, nullptr, &wrong, &status), -EINVAL);
    }
    uint32_t size = 4;
    EXPECT_EQ(instance.command(EFFECT_CMD_ENABLE, 0, nullptr, &size, nullptr), -EINVAL);
    EXPECT_EQ(instance.command(EFFECT_CMD_ENABLE, 0, nullptr, nullptr, &status), -EINVAL);
    EXPECT_EQ(instance.command(EFFECT_CMD_DISABLE, 0, nullptr, &size, &status), -ENOSYS);
    EXPECT_EQ(status, 777);
    instance.enable();
    EXPECT_EQ(instance.command(EFFECT_CMD_ENABLE, 0, nullptr, &size, &status), -ENOSYS);
    instance.disable();
    EXPECT_EQ(instance.command(EFFECT_CMD_DISABLE, 0, nullptr, &size, &status), -ENOSYS);
}

TEST(Command, NullHandleAndUninitialisedInstancesAreRefused) {
    int32_t status = 0;
    uint32_t size = 4;
    EXPECT_EQ(krel::command(nullptr, EFFECT_CMD_INIT, 0, nullptr, &size, &status), -EINVAL);
    Instance instance;
    auto* ctx = reinterpret_cast<krel_vcp_context_t*>(instance.handle());
    ctx->state = krel::kUninitialised;
    EXPECT_EQ(instance.command(EFFECT_CMD_RESET, 0, nullptr, nullptr, nullptr), -EINVAL);
}

TEST(Command, PresetParameterIsSetReadAndSwitchedOff) {
    Instance instance(Config{});
    EXPECT_EQ(instance.preset(), 3);
    instance.enable();
    LogCapture log;
    EXPECT_EQ(instance.set_preset(3), 0);
    EXPECT_EQ(record(instance).modeSwitchPending, 0) << "the current preset arms no fade";
    EXPECT_TRUE(log.lines().empty());

    EXPECT_EQ(instance.set_preset(11), 0);
    EXPECT_EQ(record(instance).modeSwitchPending, 1);
    EXPECT_EQ(record(instance).fadeInCount, 2);
    EXPECT_EQ(record(instance).fadeOutCount, 3);
    EXPECT_EQ(log.count("set fx preset 11"), 1);
    EXPECT_EQ(instance.set_preset(99), 0);
    EXPECT_EQ(instance.preset(), 99);

    EXPECT_EQ(instance.set_preset(-1), 0);
    EXPECT_EQ(instance.preset(), -1);
    EXPECT_FALSE(record(instance).enabled);
    EXPECT_EQ(record(instance).state, krel::kActive);
    instance.set_preset(4);
    EXPECT_FALSE(record(instance).enabled) << "another preset does not switch on again";

    // With preset -1 any parameter command switches off, a malformed one or one for another parameter too.
    for (const int32_t psize : {4, 3}) {
        instance.set_preset(-1);
        instance.disable();
        instance.enable();
        EXPECT_TRUE(record(instance).enabled);
        int32_t other[] = {0, psize, 4, 9, 5};
        EXPECT_EQ(instance.status_of(EFFECT_CMD_SET_PARAM, sizeof other, other),
                  psize == 4 ? 0 : -EINVAL);
        EXPECT_FALSE(record(instance).enabled);
    }
}

TEST(Command, ParametersOfOtherShapesAreAnsweredInTheReply) {
    Instance instance(Config{});
    struct Row {
        uint32_t psize, vsize;
        int32_t id, status;
    };
    for (const auto& row :
         {Row{3, 4, 0, -EINVAL}, Row{4, 8, 0, -EINVAL}, Row{4, 0, 0, -EINVAL},
          Row{UINT32_MAX, UINT32_MAX, 0, -EINVAL}, Row{4, 4, 1, 0}, Row{4, 4, -7, 0}}) {
        int32_t block[] = {0, static_cast<int32_t>(row.psize), static_cast<int32_t>(row.vsize),
                           row.id, 6};
        EXPECT_EQ(instance.status_of(EFFECT_CMD_SET_PARAM, sizeof block, block), row.status);
        EXPECT_EQ(instance.preset(), 3);
    }
}

TEST(Command, GetParamRepliesTwentyBytesOrSixteenWithAnError) {
    Instance instance(Config{});
    int32_t ask[4] = {55, 4, 999, 0};
    int32_t reply[6] = {};
    uint32_t size = sizeof reply;
    EXPECT_EQ(instance.command(EFFECT_CMD_GET_PARAM, 16, ask, &size, reply), 0);
    EXPECT_EQ(size, 20U);
    const int32_t expected[] = {0, 4, 4, 0, 3};
    EXPECT_EQ(memcmp(reply, expected, sizeof expected), 0);

    // Everything at odd addresses, the reply size included.
    char odd_ask[17], odd_reply[21], odd_size[5];
    memcpy(odd_ask + 1, ask, 16);
    size = 20;
    memcpy(odd_size + 1, &size, 4);
    EXPECT_EQ(instance.command(EFFECT_CMD_GET_PARAM, 16, odd_ask + 1,
                               reinterpret_cast<uint32_t*>(odd_size + 1), odd_reply + 1),
              0);
    EXPECT_EQ(memcmp(odd_reply + 1, expected, sizeof expected), 0);

    ask[3] = 42;  // an unknown parameter: the value word stays as it was
    reply[4] = 1234;
    size = 20;
    EXPECT_EQ(instance.command(EFFECT_CMD_GET_PARAM, 16, ask, &size, reply), 0);
    EXPECT_EQ(size, 20U);
    EXPECT_EQ(reply[0], 0);
    EXPECT_EQ(reply[4], 1234);

    ask[1] = 8;
    size = 20;
    EXPECT_EQ(instance.command(EFFECT_CMD_GET_PARAM, 16, ask, &size, reply), 0);
    EXPECT_EQ(size, 16U);
    const int32_t refused[] = {-EINVAL, 8, 999, 42};
    EXPECT_EQ(memcmp(reply, refused, sizeof refused), 0);

    for (const uint32_t bad : {0U, 16U, 19U}) {
        size = bad;
        EXPECT_EQ(instance.command(EFFECT_CMD_GET_PARAM, 16, ask, &size, reply), -EINVAL);
    }
    size = 20;
    for (const uint32_t bad : {12U, 15U, 17U, 20U}) {
        EXPECT_EQ(instance.command(EFFECT_CMD_GET_PARAM, bad, ask, &size, reply), -EINVAL);
    }
    EXPECT_EQ(instance.command(EFFECT_CMD_GET_PARAM, 16, nullptr, &size, reply), -EINVAL);
    EXPECT_EQ(instance.command(EFFECT_CMD_GET_PARAM, 16, ask, nullptr, reply), -EINVAL);
    EXPECT_EQ(instance.command(EFFECT_CMD_GET_PARAM, 16, ask, &size, nullptr), -EINVAL);
}

TEST(Configure, RefusalsAnswerInTheReplyAndChangeNothing) {
    Instance instance(Config{.rate_hz = 16000});
    void* const wrapper = record(instance).wrapper;
    struct Row {
        void (*spoil)(effect_config_t&);
        const char* warning;
    };
    const Row rows[] = {
            {[](effect_config_t& c) { c.outputCfg.channels = AUDIO_CHANNEL_OUT_MONO; },
             "configure: channels configure error"},
            {[](effect_config_t& c) { c.inputCfg.accessMode = EFFECT_BUFFER_ACCESS_WRITE; },
             "configure: accessMode configure error"},
            {[](effect_config_t& c) { c.outputCfg.accessMode = EFFECT_BUFFER_ACCESS_READ; },
             "configure: accessMode configure error"},
            {[](effect_config_t& c) { c.outputCfg.accessMode = 3; },
             "configure: accessMode configure error"},
            {[](effect_config_t& c) { c.outputCfg.format = AUDIO_FORMAT_PCM_FLOAT; },
             "configure: format configure error"},
    };
    for (const auto& row : rows) {
        LogCapture log;
        effect_config_t cfg = platform_config({.rate_hz = 44100});
        row.spoil(cfg);
        EXPECT_EQ(instance.status_of(EFFECT_CMD_SET_CONFIG, sizeof cfg, &cfg), -EINVAL);
        ASSERT_EQ(log.lines().size(), 2U);
        EXPECT_EQ(log.lines()[0].text, "configure format:1, channels:3, samplingRate:44100");
        EXPECT_EQ(log.lines()[1], (LogLine{5, "_K_krel_vcp_sfx", row.warning}));
        EXPECT_EQ(record(instance).wrapper, wrapper);
        EXPECT_EQ(record(instance).config.inputCfg.samplingRate, 16000U);
        EXPECT_EQ(record(instance).sampleRate, 16000U);
    }
}

TEST(Configure, AcceptedConfigurationsAreStoredAndLogged) {
    struct Row {
        audio_format_t format;
        uint32_t internal;
        int32_t type;
    };
    for (const auto& row :
         {Row{AUDIO_FORMAT_PCM_16_BIT, 1, 1}, Row{AUDIO_FORMAT_PCM_8_BIT, 2, 0},
          Row{AUDIO_FORMAT_PCM_32_BIT, 3, 3}, Row{AUDIO_FORMAT_PCM_8_24_BIT, 4, 2},
          Row{AUDIO_FORMAT_PCM_FLOAT, 3, 3}, Row{AUDIO_FORMAT_PCM_24_BIT_PACKED, 6, 0},
          Row{static_cast<audio_format_t>(0xEE), 0xEE, 0}}) {
        Instance instance(Config{.format = row.format});
        EXPECT_EQ(record(instance).format, row.internal);
        EXPECT_EQ(record(instance).formatType, row.type);
        EXPECT_EQ(record(instance).convertFloat, row.format == AUDIO_FORMAT_PCM_FLOAT);
        EXPECT_EQ(record(instance).config.inputCfg.format, row.internal);
        EXPECT_EQ(record(instance).config.outputCfg.format, row.internal);
    }
    Instance instance;
    LogCapture log;
    effect_config_t cfg = platform_config({.rate_hz = 44100});
    cfg.outputCfg.samplingRate = 8000;  // not an error: the input's rate wins
    EXPECT_EQ(instance.status_of(EFFECT_CMD_SET_CONFIG, sizeof cfg, &cfg), 0);
    EXPECT_EQ(log.count("configure: samplingRate configure 44100"), 1);
    EXPECT_EQ(log.count("init"), 1);
    EXPECT_EQ(
            log.count(
                    "krel_voice_changer_init: chn_num 2, sample_rate 44100, format_type 1, mode 0"),
            1);
    EXPECT_EQ(log.count("krel_voice_changer_set_mode: 3, drc 0"), 1);
    EXPECT_EQ(record(instance).sampleRate, 44100U);
    log.clear();
    EXPECT_EQ(instance.status_of(EFFECT_CMD_SET_CONFIG, sizeof cfg, &cfg), 0);
    EXPECT_EQ(log.count("configure: samplingRate configure 44100"), 1)
            << "the two rates still differ";
    cfg.outputCfg.samplingRate = 44100;
    log.clear();
    EXPECT_EQ(instance.status_of(EFFECT_CMD_SET_CONFIG, sizeof cfg, &cfg), 0);
    EXPECT_EQ(log.count("configure: samplingRate configure 44100"), 0);
}

TEST(Configure, ChannelsAreCountedAsOnTheOldestPlatform) {
    struct Row {
        uint32_t mask, count;
    };
    for (const auto& row : {Row{0x1, 1}, Row{0x3, 2}, Row{0x63F, 8}, Row{0x30000003, 4},
                            Row{0x3FFFFFFF, 22}, Row{0x80000003, 2}, Row{0xBFFFFFFF, 30},
                            Row{0x40000003, 0}, Row{0xC0000000, 0}, Row{0, 0}}) {
        Instance instance(Config{.mask = row.mask});
        EXPECT_EQ(record(instance).channels, row.count) << std::hex << row.mask;
    }
}

TEST(Configure, PresetSurvivesAndTheDumpPropertyIsRead) {
    Instance instance;
    EXPECT_EQ(record(instance).wrapper, nullptr);
    instance.set_preset(9);
    {
        LogCapture log;
        EXPECT_EQ(instance.configure({}), 0);
        EXPECT_EQ(log.count("vcp_set_mode: mode 9"), 1);
    }
    EXPECT_EQ(record(instance).dumpEnabled, 0);
    setenv("AUDIO_KREL_VCP_DUMP", "2", 1);
    EXPECT_EQ(instance.configure({}), 0);
    EXPECT_EQ(record(instance).dumpEnabled, 2);
    setenv("AUDIO_KREL_VCP_DUMP", "true", 1);
    EXPECT_EQ(instance.configure({}), 0);
    EXPECT_EQ(record(instance).dumpEnabled, 0);
    unsetenv("AUDIO_KREL_VCP_DUMP");
}

TEST(Command, PrivateSampleRateNeedsAVoiceChangerButIsKept) {
    Instance instance;
    uint32_t rate = 22050;
    int32_t status = 777;
    uint32_t size = 4;
    LogCapture log;
    EXPECT_EQ(instance.command(kSetSampleRate, 4, &rate, &size, &status), -EINVAL);
    EXPECT_EQ(status, 777);
    EXPECT_EQ(record(instance).sampleRate, 22050U);
    EXPECT_EQ(log.count("command: EFFECT_CMD_SET_SAMPLE_RATE: 22050"), 1);
    EXPECT_EQ(instance.configure({.rate_hz = 48000}), 0);
    EXPECT_EQ(instance.status_of(kSetSampleRate, 4, &rate), 0);
    EXPECT_EQ(record(instance).sampleRate, 22050U);
    EXPECT_EQ(
            log.count(
                    "krel_voice_changer_init: chn_num 2, sample_rate 22050, format_type 1, mode 0"),
            1);
}

}  // namespace
