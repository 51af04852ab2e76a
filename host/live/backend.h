// SPDX-License-Identifier: Apache-2.0
// What stands between `live` and a sound server. The program knows the server by this interface
// alone: a backend is a module, loaded when it is wanted, and only it links the server's library.
#ifndef KREL_HOST_LIVE_BACKEND_H
#define KREL_HOST_LIVE_BACKEND_H

#include <stdint.h>

#include <string>

namespace krel::host::live {

/// What runs in the server's graph.
class Processor {
  public:
    /// One period on the audio thread: neither waits nor allocates nor locks.
    ///
    /// in   `frames` samples at `rate_hz`, full scale at +-1.0; null: silence
    /// out  as many; may be `in`
    virtual void process(const float* in, float* out, uint32_t frames, int rate_hz) noexcept = 0;

  protected:
    ~Processor() = default;
};

/// How things stand. A backend brings it up to date in Backend::dispatch().
struct GraphState {
    int rate_hz = 0;             // 0: not known yet
    uint32_t period_frames = 0;  // 0: not known yet
    double delay_frames = 0.0;   // of the microphone and of who listens, as far as they tell
    std::string microphone;      // the one that is heard; empty: none
    std::string monitor;         // where one hears oneself; empty: nowhere
    std::string offered;         // what other programs choose
    std::string lost;            // why it cannot go on; empty: it can
};

/// How GraphState::lost begins when it is the server that ended.
inline constexpr char kServerGone[] = "the sound server has gone: ";

struct BackendOptions {
    std::string microphone;  // as the user named it; empty: the server's own choice
    bool monitor = false;
};

/// Every call comes from one thread; dispatch() as soon as fd() is readable, and now and then.
class Backend {
  public:
    virtual ~Backend() = default;

    /// Readable when there is something to dispatch.
    [[nodiscard]] virtual int fd() const = 0;
    /// Looks after the graph: connects a microphone that came, or came back.
    virtual void dispatch() = 0;
    [[nodiscard]] virtual const GraphState& state() const = 0;

    virtual void set_monitor(bool on) = 0;
    /// Samples by which the voice is late, for the graph to know.
    virtual void set_voice_delay(uint32_t frames) = 0;
};

/// The one name that a module exports. The processor must outlive the backend. Null, and a line in
/// `error`, when there is no server or no microphone. No exception leaves it.
using OpenBackend = Backend*(const BackendOptions& options, Processor& processor,
                             std::string& error);
inline constexpr char kOpenBackend[] = "krel_open_live_backend";
#define KREL_LIVE_BACKEND extern "C" __attribute__((visibility("default")))

}  // namespace krel::host::live

#endif
