// SPDX-License-Identifier: Apache-2.0
#include "host/effect/effect_host.h"

#include <dlfcn.h>

#include <cstring>

#include "effect/interface.h"
#include "host/error.h"
#include "host/product_file.h"

namespace krel::host {
namespace {

constexpr effect_uuid_t kVoiceChanger = KREL_VCP_UUID;
constexpr uint32_t kLibraryMajor = EFFECT_API_VERSION_MAJOR(EFFECT_LIBRARY_API_VERSION);
constexpr uint32_t kControlMajor = EFFECT_API_VERSION_MAJOR(EFFECT_CONTROL_API_VERSION);
constexpr int32_t kSession = 1;
constexpr int32_t kIoHandle = 1;
constexpr int kRunOutSeconds = 10;

std::string hex(uint32_t value) {
    char text[16];
    snprintf(text, sizeof(text), "0x%08x", value);
    return text;
}

std::string status_text(int32_t status) {
    return std::string(strerror(-status)) + " (" + std::to_string(status) + ")";
}

// dlopen() looks a bare file name up in the system's folders; a path of ours always means the file.
std::string loadable(const std::filesystem::path& path) {
    return path.has_parent_path() ? path.string() : "./" + path.string();
}

effect_config_t stereo_config(uint32_t rate_hz, SampleFormat format, uint8_t output_access) {
    effect_config_t config = {};
    config.inputCfg.samplingRate = rate_hz;
    config.inputCfg.channels = AUDIO_CHANNEL_OUT_STEREO;
    config.inputCfg.format = platform_format(format);
    config.inputCfg.accessMode = EFFECT_BUFFER_ACCESS_READ;
    config.inputCfg.mask = EFFECT_CONFIG_ALL;
    config.outputCfg = config.inputCfg;
    config.outputCfg.accessMode = output_access;
    return config;
}

}  // namespace

void show_log(bool shown) { setenv("AUDIO_KREL_VCP_LOG", shown ? "V" : "S", 1); }

void EffectLibrary::Closer::operator()(void* handle) const { dlclose(handle); }

EffectLibrary::EffectLibrary(const std::filesystem::path& path)
    : name_(path.filename().string()), handle_(dlopen(loadable(path).c_str(), RTLD_NOW)) {
    if (!handle_) throw Error(std::string("cannot load the effect library: ") + dlerror());
    record_ = static_cast<const audio_effect_library_t*>(
            dlsym(handle_.get(), AUDIO_EFFECT_LIBRARY_INFO_SYM_AS_STR));
    if (record_ == nullptr) {
        throw Error(name_ + ": no effect library, it has no " AUDIO_EFFECT_LIBRARY_INFO_SYM_AS_STR);
    }
    if (record_->tag != AUDIO_EFFECT_LIBRARY_TAG) {
        throw Error(name_ + ": no effect library, its tag is " + hex(record_->tag) +
                    " instead of " + hex(AUDIO_EFFECT_LIBRARY_TAG));
    }
    if (EFFECT_API_VERSION_MAJOR(record_->version) != kLibraryMajor) {
        throw Error(name_ + ": library version " + hex(record_->version) +
                    ", only major version 3 is supported");
    }
}

EffectHost::EffectHost(const std::filesystem::path& library) : library_(library) {
    effect_descriptor_t descriptor = {};
    if (const int32_t s = library_.record().get_descriptor(&kVoiceChanger, &descriptor); s != 0) {
        refuse("has no voice changer", s);
    }
    if (EFFECT_API_VERSION_MAJOR(descriptor.apiVersion) != kControlMajor) {
        throw Error(library_.name() + ": effect version " + hex(descriptor.apiVersion) +
                    ", only major version 2 is supported");
    }
    effect_handle_t handle = nullptr;
    const int32_t created =
            library_.record().create_effect(&kVoiceChanger, kSession, kIoHandle, &handle);
    if (created != 0 || handle == nullptr) refuse("cannot create the effect", created);

    const std::lock_guard guard(lock_);
    handle_ = handle;
    descriptor = {};
    (*handle_)->get_descriptor(handle_, &descriptor);
    try {
        command_or_throw("cannot initialise the effect", EFFECT_CMD_INIT);
    } catch (...) {
        library_.record().release_effect(handle_);
        throw;
    }
}

EffectHost::~EffectHost() {
    const std::lock_guard guard(lock_);
    library_.record().release_effect(handle_);
}

void EffectHost::configure(uint32_t rate_hz, SampleFormat format, bool accumulate) {
    const std::string what = "refuses the configuration " + std::to_string(rate_hz) +
                             " Hz, stereo, " + format_name(format);
    const uint8_t access =
            accumulate ? EFFECT_BUFFER_ACCESS_ACCUMULATE : EFFECT_BUFFER_ACCESS_WRITE;
    const std::lock_guard guard(lock_);
    for (const uint8_t output : {uint8_t{EFFECT_BUFFER_ACCESS_WRITE}, access}) {
        effect_config_t config = stereo_config(rate_hz, format, output);
        command_or_throw(what, EFFECT_CMD_SET_CONFIG, sizeof(config), &config);
    }
}

void EffectHost::set_preset(int32_t preset) {
    krel_vcp_param_t parameter = KREL_VCP_PARAM(preset);
    const std::lock_guard guard(lock_);
    command_or_throw("refuses preset " + std::to_string(preset), EFFECT_CMD_SET_PARAM,
                     sizeof(parameter), &parameter);
}

void EffectHost::enable() {
    const std::lock_guard guard(lock_);
    command_or_throw("cannot be enabled", EFFECT_CMD_ENABLE);
}

void EffectHost::process(void* in, void* out, size_t frames) {
    const std::lock_guard guard(lock_);
    // "No data" is not an error of a running instance.
    const int32_t status = process_locked(in, out, frames);
    if (status != 0 && status != -ENODATA) refuse("refuses a block", status);
}

void EffectHost::run_out(void* block, size_t frames, uint32_t rate_hz) {
    const std::lock_guard guard(lock_);
    command_or_throw("cannot be disabled", EFFECT_CMD_DISABLE);
    const size_t limit = size_t{rate_hz} * kRunOutSeconds;
    size_t done = 0;
    while (process_locked(block, block, frames) != -ENODATA) {
        done += frames;
        if (done >= limit) throw Error(library_.name() + ": does not stop after being disabled");
    }
    uint32_t no_reply = 0;
    command(EFFECT_CMD_RESET, 0, nullptr, &no_reply, nullptr);
}

int32_t EffectHost::process_locked(void* in, void* out, size_t frames) {
    audio_buffer_t input = {};
    input.frameCount = frames;
    input.raw = in;
    audio_buffer_t output = input;
    output.raw = out;
    return (*handle_)->process(handle_, &input, in == out ? &input : &output);
}

int32_t EffectHost::command(uint32_t code, uint32_t size, void* data, uint32_t* reply_size,
                            void* reply) {
    return (*handle_)->command(handle_, code, size, data, reply_size, reply);
}

void EffectHost::command_or_throw(const std::string& what, uint32_t code, uint32_t size,
                                  void* data) {
    int32_t reply = 0;
    uint32_t reply_size = sizeof(reply);
    const int32_t status = command(code, size, data, &reply_size, &reply);
    if (status != 0) refuse(what, status);
    if (reply != 0) refuse(what, reply);
}

void EffectHost::refuse(const std::string& what, int32_t status) const {
    throw Error(library_.name() + ": " + what + ": " + status_text(status));
}

std::filesystem::path default_library() { return product_file("libkrelvcp.so"); }

}  // namespace krel::host
