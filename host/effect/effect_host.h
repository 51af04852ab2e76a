// SPDX-License-Identifier: Apache-2.0
// Loads an effect library and drives one instance of its effect in the order, with the payloads and
// under the lock of the platform's effect framework. What works here works on a device.
#ifndef KREL_HOST_EFFECT_EFFECT_HOST_H
#define KREL_HOST_EFFECT_EFFECT_HOST_H

#include <hardware/audio_effect.h>

#include <filesystem>
#include <memory>
#include <mutex>
#include <string>

#include "host/audio/sample_format.h"

namespace krel::host {

/// Whether effect libraries that are loaded from now on write their log to stderr. Before any
/// thread is started.
void show_log(bool shown);

/// A loaded library whose record passed the framework's checks.
class EffectLibrary {
  public:
    /// Throws Error when the file cannot be loaded, has no record "AELI", or the record's tag or
    /// major version differs.
    explicit EffectLibrary(const std::filesystem::path& path);

    [[nodiscard]] const audio_effect_library_t& record() const { return *record_; }
    /// The file's name, for messages.
    [[nodiscard]] const std::string& name() const { return name_; }

  private:
    struct Closer {
        void operator()(void* handle) const;
    };
    std::string name_;
    std::unique_ptr<void, Closer> handle_;
    const audio_effect_library_t* record_ = nullptr;
};

/// One instance of the voice changer. Every buffer has two interleaved channels. All calls but the
/// constructor take one lock, as the framework's do, so commands may come from another thread than
/// blocks. Refusals are thrown as Error.
class EffectHost {
  public:
    /// Loads the library, creates the instance and initialises it.
    explicit EffectHost(const std::filesystem::path& library);
    ~EffectHost();
    EffectHost(const EffectHost&) = delete;
    EffectHost& operator=(const EffectHost&) = delete;

    /// Stereo at this rate. Configured twice, as the framework does: first without buffers, then
    /// with the final mode.
    void configure(uint32_t rate_hz, SampleFormat format, bool accumulate);
    void set_preset(int32_t preset);
    void enable();

    /// One block of an enabled instance. in and out may be the same buffer.
    void process(void* in, void* out, size_t frames);

    /// Disables the instance and lets it run out: blocks until it says that it has no more to give,
    /// then a reset. `block` holds `frames` of silence and is overwritten. Throws if the instance
    /// runs on for ten seconds.
    void run_out(void* block, size_t frames, uint32_t rate_hz);

  private:
    int32_t process_locked(void* in, void* out, size_t frames);
    int32_t command(uint32_t code, uint32_t size, void* data, uint32_t* reply_size, void* reply);
    void command_or_throw(const std::string& what, uint32_t code, uint32_t size = 0,
                          void* data = nullptr);
    [[noreturn]] void refuse(const std::string& what, int32_t status) const;

    EffectLibrary library_;
    effect_handle_t handle_ = nullptr;
    std::mutex lock_;
};

/// libkrelvcp.so where a build or an installation has it: beside this program, or in the library
/// folder next to its own.
std::filesystem::path default_library();

}  // namespace krel::host

#endif
